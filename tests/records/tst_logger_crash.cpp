#include "records/record_file.h"
#include "support/test_env.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <unistd.h>

namespace {
const QString kChild = QStringLiteral(LOGGER_CHILD);

// What a reader finds in the data file: the lines that decipher, whether only the last one
// does not, and whether the data lines carry their numbers without a gap.
struct Found {
    int lines = 0;
    int damaged = 0;
    bool onlyLastDamaged = true;
    bool numbered = true;
};
Found readBack(const QString& path) {
    Found f;
    QList<RecordLine> lines;
    const bool read = readRecordFile(path, [&lines](const RecordLine& l) { lines << l; });
    if (!read)
        return {};
    f.lines = static_cast<int>(lines.size());
    for (int i = 0; i < lines.size(); ++i) {
        if (!lines[i].plain) {
            ++f.damaged;
            f.onlyLastDamaged = f.onlyLastDamaged && i == lines.size() - 1;
            continue;
        }
        // The operator message column of data line n (file line n + 2) holds "n.".
        if (i >= 2 && lines[i].plain->section(u',', 2, 2) != QStringLiteral("%1.").arg(i - 1))
            f.numbered = false;
    }
    return f;
}

// Runs the child in the folder; true once it has started its log.
bool startChild(QProcess& child, const QString& dir, int pauseMs) {
    // Standard output only: Qt's own warnings go to standard error.
    child.start(kChild, {dir, QString::number(pauseMs)});
    if (!child.waitForStarted(5000))
        return false;
    while (!child.canReadLine())
        if (!child.waitForReadyRead(10000))
            return false;
    return child.readLine().trimmed() == "started";
}
} // namespace

class TstLoggerCrash : public QObject {
    Q_OBJECT
private slots:
    void killedAtAnyMomentLosesAtMostTheLastLine();
    void aFullDiskEndsTheLogWithEveryLineWhole();
};

void TstLoggerCrash::killedAtAnyMomentLosesAtMostTheLastLine() {
    for (int round = 0; round < 8; ++round) {
        QTemporaryDir dir;
        QProcess child;
        QVERIFY(startChild(child, dir.path(), 0));
        QTest::qWait(10 + QRandomGenerator::global()->bounded(250));
        ::kill(static_cast<pid_t>(child.processId()), SIGKILL);
        QVERIFY(child.waitForFinished(5000));
        const Found f = readBack(dir.filePath("Log Files/run.slg"));
        QVERIFY2(f.lines >= 2, qPrintable(QString::number(f.lines)));
        QVERIFY(f.damaged <= 1 && f.onlyLastDamaged && f.numbered);
        QCOMPARE(readBack(dir.filePath("Log Files/run.sif")).lines, 1);
    }
}

void TstLoggerCrash::aFullDiskEndsTheLogWithEveryLineWhole() {
    if (::geteuid() != 0)
        QSKIP("a small filesystem to fill needs root to mount it");
    QTemporaryDir dir;
    const QString mount = dir.filePath("small");
    QDir().mkpath(mount);
    if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=64k", "tmpfs", mount}) != 0)
        QSKIP("tmpfs could not be mounted here (a container without the right to mount?)");
    QProcess child;
    const bool started = startChild(child, mount, 0);
    const bool ended = started && child.waitForFinished(60000);
    const QByteArray said = child.readAllStandardOutput();
    const Found f = readBack(mount + "/Log Files/run.slg");
    const qint64 size = QFile(mount + "/Log Files/run.slg").size();
    QProcess::execute("umount", {mount});
    QVERIFY(started && ended);
    QCOMPARE(said.trimmed(), QByteArray("Error during file save, Please check disk space and try "
                                        "again"));
    // Every line that went is whole: the one the disk took in part was cut off again.
    QVERIFY2(f.lines > 20, qPrintable(QString::number(f.lines)));
    QCOMPARE(f.damaged, 0);
    QVERIFY(f.numbered);
    QVERIFY(size > 32 * 1024);
}

QTEST_MAIN(TstLoggerCrash)
#include "tst_logger_crash.moc"
