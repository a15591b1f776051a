#include "platform/seal_core.h"
#include "records/record_file.h"
#include "support/audit_files.h"

#include <QDir>
#include <QFile>
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

// Runs the child in the folder, with a sealing helper when one is named; true once it has started
// its log.
bool startChild(QProcess& child, const QString& dir, const QString& sealer = {}) {
    // Standard output only: Qt's own warnings go to standard error.
    child.start(QStringLiteral(LOGGER_CHILD),
                sealer.isEmpty() ? QStringList{dir} : QStringList{dir, sealer});
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
    void killedWhileSealingLeavesAtMostTheLastLineUnsealed();
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

void TstLoggerCrash::killedWhileSealingLeavesAtMostTheLastLineUnsealed() {
    for (int round = 0; round < 6; ++round) {
        QTemporaryDir dir;
        const QString store = dir.filePath("seals");
        QVERIFY(QDir().mkpath(store));
        qputenv("SORVANTEL_SEAL_STORE", store.toLocal8Bit());
        // Rounds of a second: what matters is that the last one is signed when the pipe ends.
        qputenv("SORVANTEL_SEAL_ROUND_MS", "1000");
        QProcess init;
        init.start(QStringLiteral(SORVANTEL_SEALER_EXE), {"init"});
        QVERIFY(init.waitForFinished(10000));
        QProcess child;
        QVERIFY(startChild(child, dir.path(), QStringLiteral(SORVANTEL_SEALER_EXE)));
        QTest::qWait(50 + QRandomGenerator::global()->bounded(400));
        ::kill(static_cast<pid_t>(child.processId()), SIGKILL);
        QVERIFY(child.waitForFinished(5000));
        // The helper seals what reached its pipe at the end of its round, then ends with it.
        const auto lines = [](const QString& path) {
            std::vector<std::string> out;
            QFile f(path);
            if (f.open(QIODevice::ReadOnly))
                for (QByteArray line : f.readAll().split('\n'))
                    if (!line.isEmpty())
                        out.push_back(line.endsWith('\r') ? line.chopped(1).toStdString()
                                                          : line.toStdString());
            return out;
        };
        const std::string site = seal::fromHex(lines(store + "/site").at(1), 16).value_or("");
        const std::string key = seal::fromHex(lines(store + "/site").at(2), 32).value_or("");
        const std::string name = "Log Files/run.slg";
        const std::vector<std::string> record = lines(dir.filePath("Log Files/run.slg"));
        const std::string last =
            "line " + std::to_string(record.size()) + " never sealed (the last line";
        seal::FileCheck check;
        const auto atMostTheLastUnsealed = [&] {
            check = seal::checkFile(
                site, seal::checkDays(site, key, lines(store + "/days")), name, record,
                lines(store + "/files/" + QString::fromStdString(seal::sealFileName(name))));
            return check.intact ||
                   (check.findings.size() == 1 && check.findings[0].rfind(last, 0) == 0);
        };
        QTRY_VERIFY_WITH_TIMEOUT(atMostTheLastUnsealed(), 8000);
        QVERIFY(record.size() > 2);
        qunsetenv("SORVANTEL_SEAL_STORE");
        qunsetenv("SORVANTEL_SEAL_ROUND_MS");
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
