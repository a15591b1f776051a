#include "plant/plant_store.h"
#include "plant/tag_file.h"
#include "support/test_env.h"

#include <QFile>
#include <QTest>

class TstTagFile : public QObject {
    Q_OBJECT
private slots:
    void readFillsStoreFromPvRows();
    void roundTripIsByteForByte();
    void roundTripKeepsSingleByteText();
    void missingShortOrBadFileIsRefused_data();
    void missingShortOrBadFileIsRefused();
    void numbersInAnyFormRead();
    void printFormOfNumbers();
    void activeListOverGaps();
    void noEnabledController();
};

void TstTagFile::readFillsStoreFromPvRows() {
    TestEnv env;
    env.writeTags({{3, 0, true, "TIC-3", true}, {7, 2, true, "RMP-7"}, {9, 1, false, "OFF-9"}});
    // The SP and Out rows of controller 7 claim another flag and type; only the PV row counts.
    QFile f(env.path("tags.tgn"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QList<QByteArray> lines = f.readAll().split('\n');
    f.close();
    const int spRowOf7 = 3 * 6 + 1;
    lines[spRowOf7 * 6 + 1] = " 0 \r";
    lines[spRowOf7 * 6 + 4] = " 0 \r";
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(lines.join('\n'));
    f.close();

    QString error;
    QVERIFY2(readTagFile(env.path("tags.tgn"), &error), qPrintable(error));
    QCOMPARE(gPvTag[2], QStringLiteral("TIC-3"));
    QCOMPARE(gSpTag[2], QStringLiteral("TIC-3.SP"));
    QCOMPARE(gOutTag[2], QStringLiteral("TIC-3.OUT"));
    QVERIFY(gControlEnabled[2]);
    QCOMPARE(gLogChannel[2], qint16(1));
    QVERIFY(gControlEnabled[6]);
    QCOMPARE(gControlType[6], qint16(2));
    QVERIFY(!gControlEnabled[8]);
    QCOMPARE(gControlType[8], qint16(1));
    QCOMPARE(gTagTable[2 * 3][0], QStringLiteral(" 2 "));
}

void TstTagFile::roundTripIsByteForByte() {
    TestEnv env;
    env.writeTags({{1, 0, true, "A"}, {64, 1, true, "Z, with comma", true}});
    QFile in(env.path("tags.tgn"));
    QVERIFY(in.open(QIODevice::ReadOnly));
    const QByteArray original = in.readAll();
    in.close();
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QVERIFY(writeTagFile(env.path("copy.tgn")));
    QFile out(env.path("copy.tgn"));
    QVERIFY(out.open(QIODevice::ReadOnly));
    QCOMPARE(out.readAll(), original);
    QCOMPARE(original.count("\r\n"), 1152);
}

void TstTagFile::roundTripKeepsSingleByteText() {
    TestEnv env;
    env.writeTags({{1, 0, true}});
    QFile f(env.path("tags.tgn"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QByteArray bytes = f.readAll();
    f.close();
    // A tag written on a machine with a single-byte code page: "Temp \xb0C".
    bytes.replace("TAG1\r\n", "Temp \xb0"
                              "C\r\n");
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
    f.close();
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QCOMPARE(gPvTag[0], QStringLiteral("Temp \u00b0C"));
    QVERIFY(writeTagFile(env.path("tags.tgn")));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), bytes);
}

void TstTagFile::missingShortOrBadFileIsRefused_data() {
    QTest::addColumn<int>("keepLines");
    QTest::addColumn<QByteArray>("badFlag");
    QTest::newRow("missing") << -1 << QByteArray();
    QTest::newRow("empty") << 0 << QByteArray();
    QTest::newRow("one line short") << 1151 << QByteArray();
    QTest::newRow("flag not a number") << 1152 << QByteArray("yes");
}

void TstTagFile::missingShortOrBadFileIsRefused() {
    QFETCH(int, keepLines);
    QFETCH(QByteArray, badFlag);
    TestEnv env;
    env.writeTags({{2, 0, true, "KEEP"}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QFile f(env.path("tags.tgn"));
    if (keepLines < 0) {
        QVERIFY(f.remove());
    } else {
        QVERIFY(f.open(QIODevice::ReadOnly));
        QList<QByteArray> lines = f.readAll().split('\n').mid(0, keepLines);
        f.close();
        if (!badFlag.isEmpty())
            lines[1] = badFlag + "\r";
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(lines.join('\n') + (keepLines > 0 ? "\n" : ""));
        f.close();
    }
    QString error;
    QVERIFY(!readTagFile(env.path("tags.tgn"), &error));
    QVERIFY(!error.isEmpty());
    // What was loaded before stays.
    QCOMPARE(gPvTag[1], QStringLiteral("KEEP"));
    QVERIFY(gControlEnabled[1]);
}

void TstTagFile::numbersInAnyFormRead() {
    TestEnv env;
    env.writeTags({{1, 0, false}, {2, 0, false}});
    QFile f(env.path("tags.tgn"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QList<QByteArray> lines = f.readAll().split('\n');
    f.close();
    // Controller 1's PV row, as another program may have written it: flag, type and log cell.
    lines[1] = "1.0\r";
    lines[4] = " 2\r";
    lines[5] = "1\r";
    // Controller 2: a flag of 1.5 is no 1; a type of 0.5 rounds to the even 0.
    lines[3 * 6 + 1] = " 1.5 \r";
    lines[3 * 6 + 4] = "0.5\r";
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(lines.join('\n'));
    f.close();
    QString error;
    QVERIFY2(readTagFile(env.path("tags.tgn"), &error), qPrintable(error));
    QVERIFY(gControlEnabled[0]);
    QCOMPARE(gControlType[0], qint16(2));
    QCOMPARE(gLogChannel[0], qint16(1));
    QVERIFY(!gControlEnabled[1]);
    QCOMPARE(gControlType[1], qint16(0));
}

void TstTagFile::printFormOfNumbers() {
    QCOMPARE(numberPrintForm(0), QStringLiteral(" 0 "));
    QCOMPARE(numberPrintForm(63), QStringLiteral(" 63 "));
    QCOMPARE(numberPrintForm(-2), QStringLiteral("-2 "));
}

void TstTagFile::activeListOverGaps() {
    TestEnv env;
    gControlEnabled[2] = true;
    gControlEnabled[6] = true;
    gPollIndex = 1;
    buildActiveList();
    QCOMPARE(gActiveCount, qint16(2));
    QCOMPARE(gActiveList, (QVector<qint16>{3, 7, 0}));
    QCOMPARE(gPollIndex, qint16(0));
    QCOMPARE(rowAtPosition(0), 2);
    QCOMPARE(rowAtPosition(1), 6);
    QCOMPARE(rowAtPosition(2), -1); // the empty last element
}

void TstTagFile::noEnabledController() {
    TestEnv env;
    buildActiveList();
    QCOMPARE(gActiveCount, qint16(0));
    QCOMPARE(gActiveList, (QVector<qint16>{0}));
    QVERIFY(!(gActiveList[0] > 0));
}

QTEST_GUILESS_MAIN(TstTagFile)
#include "tst_tag_file.moc"
