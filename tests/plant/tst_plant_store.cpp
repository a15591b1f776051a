#include "plant/plant_store.h"
#include "plant/register_codec.h"
#include "plant/tag_file.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QFile>
#include <QTest>

class TstPlantStore : public QObject {
    Q_OBJECT
private slots:
    void readFillsStoreFromPvRowsInAnyNumberForm();
    void roundTripIsByteForByte();
    void missingFileIsRefused();
    void activeListOverGaps();

    void init() { resetPlantStore(); }
    void bitsOfNegativeWords();
    void k40Decoding_data();
    void k40Decoding();
    void profilerDecodingIsSignedTenths();
    void rawMultiplierInvertsTheDecodedScale();
    void encodingRoundsHalfToEvenAndInvertsDecoding();
    void readingsAcceptNumberTextAndEmpty();
};

void TstPlantStore::readFillsStoreFromPvRowsInAnyNumberForm() {
    TestEnv env;
    env.writeTags({{1, 0, false}, {2, 0, false}, {3, 0, true, "TIC-3", true}, {7, 2, true}});
    QList<QByteArray> lines = readBytes(env.path("tags.tgn")).split('\n');
    // The SP and Out rows of controller 7 claim another flag and type; only the PV row counts.
    const int spRowOf7 = 3 * 6 + 1;
    lines[spRowOf7 * 6 + 1] = " 0 \r";
    lines[spRowOf7 * 6 + 4] = " 0 \r";
    // Controller 1's PV row, as another program may have written it: flag, type and log cell.
    lines[1] = "1.0\r";
    lines[4] = " 2\r";
    lines[5] = "1\r";
    // Controller 2: a flag of 1.5 is no 1; a type of 0.5 rounds to the even 0.
    lines[3 * 6 + 1] = " 1.5 \r";
    lines[3 * 6 + 4] = "0.5\r";
    QVERIFY(writeBytes(env.path("tags.tgn"), lines.join('\n')));

    QString error;
    QVERIFY2(readTagFile(env.path("tags.tgn"), &error), qPrintable(error));
    QCOMPARE((QStringList{gPvTag[2], gSpTag[2], gOutTag[2], gTagTable[2 * 3][0]}),
             (QStringList{"TIC-3", "TIC-3.SP", "TIC-3.OUT", " 2 "}));
    // Enabled, type and log channel of 1, 2, 3 and 7.
    QCOMPARE((QList<int>{gControlEnabled[0], gControlType[0], gLogChannel[0], gControlEnabled[1],
                         gControlType[1], gControlEnabled[2], gLogChannel[2], gControlEnabled[6],
                         gControlType[6]}),
             (QList<int>{1, 2, 1, 0, 0, 1, 1, 1, 2}));
}

void TstPlantStore::roundTripIsByteForByte() {
    TestEnv env;
    env.writeTags({{1, 0, true}, {64, 1, true, "Z, with comma", true}});
    // A tag written on a machine with a single-byte code page: "Temp \xb0C".
    const QByteArray original = readBytes(env.path("tags.tgn"))
                                    .replace("TAG1\r\n", "Temp \xb0"
                                                         "C\r\n");
    QVERIFY(writeBytes(env.path("tags.tgn"), original));
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QCOMPARE(gPvTag[0], QStringLiteral("Temp \u00b0C"));
    QVERIFY(writeTagFile(env.path("copy.tgn")));
    QCOMPARE(readBytes(env.path("copy.tgn")), original);
}

// Short and damaged files are the tag file fuzz target's seeds: refused, with the store kept.
void TstPlantStore::missingFileIsRefused() {
    TestEnv env;
    env.writeTags({{2, 0, true, "KEEP"}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QVERIFY(QFile::remove(env.path("tags.tgn")));
    QString error;
    QVERIFY(!readTagFile(env.path("tags.tgn"), &error));
    QVERIFY(!error.isEmpty());
    QVERIFY(gPvTag[1] == "KEEP" && gControlEnabled[1]);
}

void TstPlantStore::activeListOverGaps() {
    TestEnv env;
    gControlEnabled[2] = gControlEnabled[6] = true;
    gPollIndex = 1;
    buildActiveList();
    QCOMPARE((QList<int>{gActiveCount, gPollIndex}), (QList<int>{2, 0}));
    QCOMPARE(gActiveList, (QVector<qint16>{3, 7, 0}));
    // The empty last element is no row.
    QCOMPARE((QList<int>{rowAtPosition(0), rowAtPosition(1), rowAtPosition(2)}),
             (QList<int>{2, 6, -1}));
    // With none enabled the list holds only its empty last element.
    gControlEnabled[2] = gControlEnabled[6] = false;
    buildActiveList();
    QCOMPARE(gActiveCount, qint16(0));
    QCOMPARE(gActiveList, (QVector<qint16>{0}));
}

// Status words arrive as signed 16-bit numbers; their high bits must still count.
void TstPlantStore::bitsOfNegativeWords() {
    QCOMPARE(QList<int>({highByte(-1), highByte(-32768)}), QList<int>({255, 128})); // +65536 first
    QVERIFY(bitIsSet(-1, 15) && !bitIsSet(0x0FFF, 12));
    QCOMPARE(decimalCode(static_cast<qint16>(0xFCFF)), qint16(0)); // only bits 8 and 9 count
}

void TstPlantStore::k40Decoding_data() {
    QTest::addColumn<int>("pvWord");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("pv");
    QTest::addColumn<float>("scale");
    QTest::addColumn<bool>("fixedTenth");
    QTest::addColumn<int>("decimal");

    QTest::newRow("offset is zero, code 2") << 19999 << 0x1200 << "0.00" << 0.01F << false << 2;
    QTest::newRow("raw 0, code 1 scaled") << 0 << 0x1100 << "-1999.9" << 0.1F << false << 1;
    QTest::newRow("raw 65535, code 0 scaled") << -1 << 0x1000 << "45536" << 1.0F << false << 0;
    QTest::newRow("0x1301: code 3, alarm 1") << 20999 << 0x1301 << "1.000" << 0.001F << false << 3;
    QTest::newRow("0x0301: fixed tenths, format of code 3")
        << 20004 << 0x0301 << "0.500" << 0.1F << true << 3;
    QTest::newRow("fixed tenths, code 0 rounds to whole")
        << 20004 << 0x0000 << "1" << 0.1F << true << 0;
}

void TstPlantStore::k40Decoding() {
    QFETCH(int, pvWord);
    QFETCH(int, status);
    QFETCH(QString, pv);
    QFETCH(float, scale);
    QFETCH(bool, fixedTenth);
    QFETCH(int, decimal);
    const int row = 5;
    const qint16 block[5] = {static_cast<qint16>(pvWord), static_cast<qint16>(19999), -100, 777,
                             static_cast<qint16>(status)};
    decodeK40Block(row, block);
    QCOMPARE(gPV[row].toText(), pv);
    QVERIFY(gPV[row].isText());
    QCOMPARE(gScale[row], scale);
    QCOMPARE(gFixedTenth[row], fixedTenth);
    QCOMPARE(gDecimal[row], qint16(decimal));
    QCOMPARE(gPctOut[row], -1.0F);              // percent output word -100
    QCOMPARE(gAlarmState[row], qint16(status)); // the whole word is kept
}

void TstPlantStore::profilerDecodingIsSignedTenths() {
    const int row = 9;
    const qint16 block[9] = {-5, 1234, 999, 5000, 0, 0, 3, 0, 17};
    decodeProfilerBlock(row, block);
    QVERIFY(!gPV[row].isText());
    QCOMPARE(*gPV[row].asNumber(), -0.5);
    QCOMPARE(*gSP[row].asNumber(), 123.4);
    QCOMPARE(gPctOut[row], 50.0F); // word 3, not word 2
    QCOMPARE((QList<int>{gAlarmState[row], gProfState[row], gDecimal[row]}),
             (QList<int>{3, 17, 1}));
    QVERIFY(gScale[row] == 1.0F && gFixedTenth[row]);
}

// Engineering values written to a register are multiplied back by what decoding divided by,
// except on fixed-tenths controllers with a code above 1, which the dialogs refuse with 0.
void TstPlantStore::rawMultiplierInvertsTheDecodedScale() {
    for (int status : {0x1000, 0x1100, 0x1200, 0x1300, 0x0000, 0x0100, 0x0200, 0x0300}) {
        const qint16 block[5] = {0, 0, 0, 0, static_cast<qint16>(status)};
        decodeK40Block(4, block);
        const bool refused = gFixedTenth[4] && gDecimal[4] > 1;
        QCOMPARE(rawMultiplier(4), refused ? 0 : qRound(1.0F / gScale[4]));
    }
    QCOMPARE(rawMultiplier(64), 0);
    QCOMPARE(rawMultiplier(-1), 0);
}

void TstPlantStore::encodingRoundsHalfToEvenAndInvertsDecoding() {
    // Binary fractions, so that the half is exact.
    QCOMPARE((QList<int>{encodeTenths(0.25), encodeTenths(0.75), encodeTenths(1.25),
                         encodeTenths(-0.25), encodeTenths(-0.75), encodeTenths(12.3)}),
             (QList<int>{2, 8, 12, -2, -8, 123}));
    // At the register 19999.5 and 20000.5 go to 20000, 20001.5 to 20002; values above 32767 pass
    // as 32-bit numbers.
    QCOMPARE((QList<qint32>{encodeK40(0.5, 1.0F), encodeK40(1.5, 1.0F), encodeK40(2.5, 1.0F),
                            encodeK40(45536, 1.0F), encodeK40(-1999.9, 0.1F)}),
             (QList<qint32>{20000, 20000, 20002, 65535, 0}));
    for (int code = 0; code <= 3; ++code) {
        const float scale = code == 0 ? 1.0F : code == 1 ? 0.1F : code == 2 ? 0.01F : 0.001F;
        const qint32 raw = encodeK40(12.345, scale);
        const qint16 block[5] = {static_cast<qint16>(raw), 0, 0, 0,
                                 static_cast<qint16>(0x1000 | (code << 8))};
        decodeK40Block(0, block);
        const QString expected[4] = {"12", "12.3", "12.35", "12.345"};
        QCOMPARE(gPV[0].toText(), expected[code]);
    }
}

void TstPlantStore::readingsAcceptNumberTextAndEmpty() {
    // Never answered: zero for a number, nothing for a text.
    QVERIFY(gPV[3].isEmpty() && gPV[3].toText().isEmpty());
    QCOMPARE(gPV[3].asNumber().value_or(-1), 0.0);
    QCOMPARE(PlantValue(QStringLiteral(" -1999.9 ")).asNumber().value_or(0), -1999.9);
    QCOMPARE(QStringList({PlantValue(-0.5).toText(), PlantValue(200.0).toText()}),
             QStringList({"-0.5", "200"}));
    // Not a number: the reader skips it.
    QVERIFY(!PlantValue(QStringLiteral("12,5")).asNumber() && !PlantValue(QString()).asNumber());
}

QTEST_GUILESS_MAIN(TstPlantStore)
#include "tst_plant_store.moc"
