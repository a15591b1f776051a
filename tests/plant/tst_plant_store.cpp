#include "plant/plant_store.h"
#include "plant/tag_file.h"
#include "support/test_env.h"

#include <QFile>
#include <QTest>

namespace {
QByteArray bytesOf(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeBytes(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}
} // namespace

class TstTagFile : public QObject {
    Q_OBJECT
private slots:
    void readFillsStoreFromPvRowsInAnyNumberForm();
    void roundTripIsByteForByte();
    void missingShortOrBadFileIsRefused();
    void activeListOverGaps();
};

void TstTagFile::readFillsStoreFromPvRowsInAnyNumberForm() {
    TestEnv env;
    env.writeTags({{1, 0, false}, {2, 0, false}, {3, 0, true, "TIC-3", true}, {7, 2, true}});
    QList<QByteArray> lines = bytesOf(env.path("tags.tgn")).split('\n');
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

void TstTagFile::roundTripIsByteForByte() {
    TestEnv env;
    env.writeTags({{1, 0, true}, {64, 1, true, "Z, with comma", true}});
    // A tag written on a machine with a single-byte code page: "Temp \xb0C".
    const QByteArray original = bytesOf(env.path("tags.tgn"))
                                    .replace("TAG1\r\n", "Temp \xb0"
                                                         "C\r\n");
    QVERIFY(writeBytes(env.path("tags.tgn"), original));
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QCOMPARE(gPvTag[0], QStringLiteral("Temp \u00b0C"));
    QVERIFY(writeTagFile(env.path("copy.tgn")));
    QCOMPARE(bytesOf(env.path("copy.tgn")), original);
}

void TstTagFile::missingShortOrBadFileIsRefused() {
    // Lines kept (-1: the file removed) and a flag put in controller 1's PV row.
    const std::pair<int, QByteArray> rows[]{{-1, {}}, {0, {}}, {1151, {}}, {1152, "yes"}};
    for (const auto& [keepLines, badFlag] : rows) {
        TestEnv env;
        env.writeTags({{2, 0, true, "KEEP"}});
        QVERIFY(readTagFile(env.path("tags.tgn")));
        if (keepLines < 0) {
            QVERIFY(QFile::remove(env.path("tags.tgn")));
        } else {
            QList<QByteArray> lines = bytesOf(env.path("tags.tgn")).split('\n').mid(0, keepLines);
            if (!badFlag.isEmpty())
                lines[1] = badFlag + "\r";
            QVERIFY(
                writeBytes(env.path("tags.tgn"), lines.join('\n') + (keepLines > 0 ? "\n" : "")));
        }
        QString error;
        QVERIFY2(!readTagFile(env.path("tags.tgn"), &error),
                 qPrintable(QString::number(keepLines)));
        QVERIFY(!error.isEmpty());
        // What was loaded before stays.
        QCOMPARE(gPvTag[1], QStringLiteral("KEEP"));
        QVERIFY(gControlEnabled[1]);
    }
}

void TstTagFile::activeListOverGaps() {
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

QTEST_GUILESS_MAIN(TstTagFile)
#include "tst_tag_file.moc"
