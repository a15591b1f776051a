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
    void init() { resetPlantStore(); }
    void tagFileReadsPvRowsInAnyNumberFormAndWritesBackByteForByte();

    void k40BlocksDecodeByTheirStatusAndEncodeBack_data();
    void k40BlocksDecodeByTheirStatusAndEncodeBack();
    void profilerDecodingEncodingAndReadings();
};

void TstPlantStore::tagFileReadsPvRowsInAnyNumberFormAndWritesBackByteForByte() {
    TestEnv env;
    const QString tags = env.path("tags.tgn");
    env.writeTags({{1, 0, false},
                   {2, 0, false},
                   {3, 0, true, "TIC-3", true},
                   {7, 2, true},
                   {64, 1, true, "Z, with comma", true}});
    // A tag written on a machine with a single-byte code page: "Temp \xb0C".
    const QByteArray original = readBytes(tags).replace("TAG1\r\n", "Temp \xb0"
                                                                    "C\r\n");
    QVERIFY(writeBytes(tags, original));
    QVERIFY(readTagFile(tags));
    QCOMPARE(gPvTag[0], QStringLiteral("Temp \u00b0C"));
    QVERIFY(writeTagFile(env.path("copy.tgn")));
    QCOMPARE(readBytes(env.path("copy.tgn")), original);

    QList<QByteArray> lines = original.split('\n');
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
    QVERIFY(writeBytes(tags, lines.join('\n')));
    QString error;
    QVERIFY2(readTagFile(tags, &error), qPrintable(error));
    QCOMPARE((QStringList{gPvTag[2], gSpTag[2], gOutTag[2], gTagTable[2 * 3][0]}),
             (QStringList{"TIC-3", "TIC-3.SP", "TIC-3.OUT", " 2 "}));
    // Enabled, type and log channel of 1, 2, 3 and 7.
    QCOMPARE((QList<int>{gControlEnabled[0], gControlType[0], gLogChannel[0], gControlEnabled[1],
                         gControlType[1], gControlEnabled[2], gLogChannel[2], gControlEnabled[6],
                         gControlType[6]}),
             (QList<int>{1, 2, 1, 0, 0, 1, 1, 1, 2}));

    // A missing file is refused with a reason, and the store is kept. (Short and damaged files
    // are the tag file fuzz target's seeds.)
    QVERIFY(QFile::remove(tags));
    QVERIFY(!readTagFile(tags, &error));
    QVERIFY(!error.isEmpty());
    QVERIFY(gPvTag[2] == "TIC-3" && gControlEnabled[2]);
}

void TstPlantStore::k40BlocksDecodeByTheirStatusAndEncodeBack_data() {
    QTest::addColumn<int>("pvWord");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("pv");
    QTest::addColumn<float>("scale");
    QTest::addColumn<int>("multiplier"); // 0: the alarm and tuning dialogs refuse to write

    QTest::newRow("offset is zero, code 2") << 19999 << 0x1200 << "0.00" << 0.01F << 100;
    QTest::newRow("raw 0, code 1 scaled") << 0 << 0x1100 << "-1999.9" << 0.1F << 10;
    QTest::newRow("raw 65535, code 0 scaled") << -1 << 0x1000 << "45536" << 1.0F << 1;
    QTest::newRow("0x1301: code 3, alarm 1") << 20999 << 0x1301 << "1.000" << 0.001F << 1000;
    QTest::newRow("fixed tenths, code 1") << 20004 << 0x0100 << "0.5" << 0.1F << 10;
    QTest::newRow("fixed tenths, code 2") << 20004 << 0x0200 << "0.50" << 0.1F << 0;
    QTest::newRow("0x0301: fixed tenths, format of code 3")
        << 20004 << 0x0301 << "0.500" << 0.1F << 0;
    QTest::newRow("fixed tenths, code 0 rounds to whole") << 20004 << 0x0000 << "1" << 0.1F << 10;
}

void TstPlantStore::k40BlocksDecodeByTheirStatusAndEncodeBack() {
    QFETCH(int, pvWord);
    QFETCH(int, status);
    QFETCH(QString, pv);
    QFETCH(float, scale);
    QFETCH(int, multiplier);
    const qint16 block[5] = {static_cast<qint16>(pvWord), 19999, -100, 777,
                             static_cast<qint16>(status)};
    decodeK40Block(5, block);
    QCOMPARE(gPV[5].toText(), pv);
    QCOMPARE(gScale[5], scale);
    QCOMPARE(rawMultiplier(5), multiplier);
    QCOMPARE(gPctOut[5], -1.0F);              // percent output word -100
    QCOMPARE(gAlarmState[5], qint16(status)); // the whole word is kept
    // The reading encodes to its word again, where it shows every digit of the register.
    if (status != 0)
        QCOMPARE(encodeK40(*gPV[5].asNumber(), gScale[5]), qint32(quint16(pvWord)));
}

// A profiler reads in signed tenths; encoding rounds half to even and words may be negative;
// readings take a number, a text or nothing.
void TstPlantStore::profilerDecodingEncodingAndReadings() {
    const qint16 block[9] = {-5, 1234, 999, 5000, 0, 0, 3, 0, 17};
    decodeProfilerBlock(9, block);
    QVERIFY(!gPV[9].isText());
    QCOMPARE(std::pair(*gPV[9].asNumber(), *gSP[9].asNumber()), std::pair(-0.5, 123.4));
    QCOMPARE(gPctOut[9], 50.0F); // word 3, not word 2
    QCOMPARE((QList<int>{gAlarmState[9], gProfState[9], gDecimal[9]}), (QList<int>{3, 17, 1}));
    QVERIFY(gScale[9] == 1.0F && gFixedTenth[9]);
    QCOMPARE(rawMultiplier(9), 10);

    // Binary fractions, so that the half is exact.
    QCOMPARE((QList<int>{encodeTenths(0.25), encodeTenths(0.75), encodeTenths(1.25),
                         encodeTenths(-0.25), encodeTenths(-0.75), encodeTenths(12.3)}),
             (QList<int>{2, 8, 12, -2, -8, 123}));
    // At the register 19999.5 and 20000.5 go to 20000, 20001.5 to 20002; values above 32767 pass
    // as 32-bit numbers.
    QCOMPARE((QList<qint32>{encodeK40(0.5, 1.0F), encodeK40(1.5, 1.0F), encodeK40(2.5, 1.0F),
                            encodeK40(45536, 1.0F), encodeK40(-1999.9, 0.1F)}),
             (QList<qint32>{20000, 20000, 20002, 65535, 0}));
    // Status words arrive as signed 16-bit numbers; their high bits must still count.
    QCOMPARE(QList<int>({highByte(-1), highByte(-32768)}), QList<int>({255, 128}));
    QVERIFY(bitIsSet(-1, 15) && !bitIsSet(0x0FFF, 12));
    QCOMPARE(decimalCode(static_cast<qint16>(0xFCFF)), qint16(0)); // only bits 8 and 9 count
    QCOMPARE((QList<int>{rawMultiplier(64), rawMultiplier(-1)}), (QList<int>{0, 0}));

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
