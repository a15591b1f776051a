#include "records/record_file.h"
#include "support/audit_files.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <unistd.h>

namespace {
// What a reader finds in the data file: the lines that decipher, whether the last one does not,
// and whether every other one does, with data line n (file line n + 2) carrying "n." as its
// operator message, so that no line went missing.
struct Found {
    QStringList lines;
    bool lastDamaged = false;
    bool numbered = true;
};
Found readBack(const QString& path) {
    Found f{plainLinesOf(path)};
    f.lastDamaged = !f.lines.isEmpty() && f.lines.last().isEmpty();
    if (f.lastDamaged)
        f.lines.removeLast();
    for (qsizetype i = 0; i < f.lines.size(); ++i)
        f.numbered = f.numbered && !f.lines[i].isEmpty() &&
                     (i < 2 || f.lines[i].section(u',', 2, 2) == QStringLiteral("%1.").arg(i - 1));
    return f;
}

// Runs the child in the folder; true once it has started its log.
bool startChild(QProcess& child, const QString& dir) {
    // Standard output only: Qt's own warnings go to standard error.
    child.start(QStringLiteral(LOGGER_CHILD), {dir});
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
        QVERIFY(startChild(child, dir.path()));
        QTest::qWait(10 + QRandomGenerator::global()->bounded(250));
        ::kill(static_cast<pid_t>(child.processId()), SIGKILL);
        QVERIFY(child.waitForFinished(5000));
        const Found f = readBack(dir.filePath("Log Files/run.slg"));
        QVERIFY2(f.lines.size() >= 2 && f.numbered, qPrintable(f.lines.join(u'\n').right(500)));
        QCOMPARE(plainLinesOf(dir.filePath("Log Files/run.sif")), QStringList{kSignatureHeader});
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
    const bool started = startChild(child, mount);
    const bool ended = started && child.waitForFinished(60000);
    const QByteArray said = child.readAllStandardOutput();
    const Found f = readBack(mount + "/Log Files/run.slg");
    const qint64 size = QFile(mount + "/Log Files/run.slg").size();
    QProcess::execute("umount", {mount});
    QVERIFY(started && ended);
    QCOMPARE(said.trimmed(), QByteArray("Error during file save, Please check disk space and try "
                                        "again"));
    // Every line that went is whole: the one the disk took in part was cut off again.
    QVERIFY2(f.lines.size() > 20, qPrintable(QString::number(f.lines.size())));
    QVERIFY(!f.lastDamaged && f.numbered);
    QVERIFY(size > 32 * 1024);
}

QTEST_MAIN(TstLoggerCrash)
#include "tst_logger_crash.moc"
