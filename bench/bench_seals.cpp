// What sealing costs: the CPU of logging data lines into a record file, as the data logger writes
// them (enciphered, appended, synced), without and with the sealing helper, at one line a second
// and at a hundred; the helper's own CPU counts with the workstation's. Then the check of a day's
// data log of 86,400 sealed lines.
//
//   bench_seals [seconds at 1 line/s] [seconds at 100 lines/s] [runs of each]
//
// The helper is the test build (its store in a folder of this run's own).

#include "plant/plant_store.h"
#include "platform/file_io.h"
#include "platform/seal_core.h"
#include "records/file_cipher.h"
#include "records/record_line.h"
#include "records/record_seals.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {
// CPU seconds of a process so far, user and system, to the nanosecond: the scheduler's own
// count, since the clock ticks of /proc/<pid>/stat are too coarse for a helper that runs for
// microseconds a second.
double cpuOf(qint64 pid) {
    const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
    double seconds = 0;
    for (const QString& task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile f(tasks + u'/' + task + QStringLiteral("/schedstat"));
        if (f.open(QIODevice::ReadOnly))
            seconds += f.readAll().split(' ').value(0).toDouble() / 1e9;
    }
    return seconds;
}

QString dataLine(int n) {
    QString line = QStringLiteral("3/14/2026,10:%1:%2 AM,.,.,.,")
                       .arg(n / 60 % 60, 2, 10, QChar(u'0'))
                       .arg(n % 60, 2, 10, QChar(u'0'));
    for (int c = 0; c < 32; ++c)
        line += QString::number(100.0 + c + (n % 600) / 10.0, 'f', 1) + u',';
    return line;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

void idle(int ms) {
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// Runs the event loop, idle between events, until done or the time is up.
template <typename Done> void waitFor(int ms, Done done) {
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(20);
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

struct Cost {
    double cpu = 0;    // seconds, the workstation's and the helper's
    double helper = 0; // of which the helper's
    int lines = 0;
    double ticks = 0; // of which the ticks that write the lines
};

// Logs for the given seconds at the given rate, with or without a helper.
Cost logFor(const QString& folder, const QString& name, int perSecond, int seconds, bool sealed) {
    resetRecordSeals();
    std::unique_ptr<SealClient> client;
    if (sealed) {
        client = std::make_unique<SealClient>(QStringLiteral(SORVANTEL_SEALER_EXE));
        waitFor(5000, [&client] { return client->sealing(); });
        installSealClient(client.get());
    }
    // A warm-up: the first line of a run pays for what is set up once (the helper's signing key,
    // the cipher), which a workstation that runs for days pays once.
    RecordAppender warm;
    warm.create(folder + QStringLiteral("/warm-") + name);
    appendEncipheredLine(warm, dataLine(0));
    if (client)
        for (int s = 0; s < 70 && client->pending() != 0; ++s)
            idle(500);
    RecordAppender file;
    file.create(folder + u'/' + name);
    const double helper0 = client ? cpuOf(client->helperPid()) : 0;
    const double self0 = cpuOf(QCoreApplication::applicationPid());
    Cost cost;
    QTimer tick;
    tick.setInterval(1000 / perSecond);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        timespec t0{}, t1{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t0);
        appendEncipheredLine(file, dataLine(cost.lines++));
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t1);
        cost.ticks += (t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) / 1e9;
    });
    tick.start();
    idle(seconds * 1000);
    tick.stop();
    // Both runs idle past the helper's last round (a poll for its answers would cost more than
    // they do).
    idle(31000);
    if (client && client->pending() != 0)
        std::printf("the helper left %d line(s) unanswered\n", client->pending());
    cost.helper = client ? cpuOf(client->helperPid()) - helper0 : 0;
    cost.cpu = cpuOf(QCoreApplication::applicationPid()) - self0 + cost.helper;
    installSealClient(nullptr);
    return cost;
}

// What handing a line to the helper costs the workstation alone: the CPU of the calls, without
// the file write and the timer around them.
void handOver() {
    resetRecordSeals();
    SealClient client(QStringLiteral(SORVANTEL_SEALER_EXE));
    waitFor(5000, [&client] { return client.sealing(); });
    installSealClient(&client);
    const QString path = gAppPath + QStringLiteral("/Log Files/handover.slg");
    QFile(path).open(QIODevice::WriteOnly);
    const QByteArray line = encryptText(dataLine(1)).toUtf8();
    timespec t0{}, t1{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t0);
    const int n = 5000;
    for (int i = 0; i < n; ++i)
        sealWrittenLine(path, line);
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t1);
    std::printf("hand-over of a line to the helper: %.2f us\n",
                ((t1.tv_sec - t0.tv_sec) * 1e9 + (t1.tv_nsec - t0.tv_nsec)) / n / 1e3);
    installSealClient(nullptr);
}

// A day's data log of 86,400 lines sealed as the helper seals them, and its check.
void checkADay() {
    const std::string site(16, 'S');
    const auto verification = seal::newKeyPair();
    const auto day = seal::newKeyPair();
    const int64_t t0 = 1773446400; // 2026-03-14 00:00 UTC
    seal::DayEntry entry{1, seal::utcDate(t0), day->publicKey, {}};
    entry.signature = *seal::sign(verification->secret, seal::dayMessage(site, entry));
    std::vector<std::string> record;
    std::vector<std::string> seals{seal::formatFileHeader(site, "Log Files/day.slg")};
    std::string link;
    for (int n = 1; n <= 86400; ++n) {
        record.push_back(encryptText(dataLine(n)).toStdString());
        seal::SealEntry e =
            seal::SealEntry::line(n, t0 + n - 1, "operator", seal::sha256(record.back()));
        link = *seal::chainEntry(site, "Log Files/day.slg", e, link);
        seals.push_back(seal::formatSeal(e));
        // A signature every other line: the helper's rounds at one line a second.
        if (n % 2 == 0) {
            seal::SealEntry v = seal::SealEntry::signedBy(1, t0 + n - 1);
            link = *seal::chainEntry(site, "Log Files/day.slg", v, link, day->secret);
            seals.push_back(seal::formatSeal(v));
        }
    }
    QElapsedTimer t;
    t.start();
    const seal::DayChain days =
        seal::checkDays(site, verification->publicKey, {seal::formatDay(entry)});
    const seal::FileCheck check = seal::checkFile(site, days, "Log Files/day.slg", record, seals);
    std::printf("check of a day's data log, %lld lines, %s: %.0f ms\n",
                static_cast<long long>(check.lines), check.intact ? "intact" : "NOT INTACT",
                double(t.nsecsElapsed()) / 1e6);
    // The slow path, taken only when a seal entry was forged: the last line's entry altered,
    // so that the day's signatures are checked by halving to find where.
    seals[seals.size() - 2] = seal::formatSeal([&] {
        seal::SealEntry e = *seal::parseSeal(seals[seals.size() - 2]);
        e.lineHash = seal::sha256("FORGED");
        return e;
    }());
    t.restart();
    const seal::FileCheck forged = seal::checkFile(site, days, "Log Files/day.slg", record, seals);
    std::printf("the same with its last seal entry forged (%s): %.0f ms\n",
                forged.findings.empty() ? "nothing found" : forged.findings[0].c_str(),
                double(t.nsecsElapsed()) / 1e6);
}
} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    const int slowSeconds = argc > 1 ? std::atoi(argv[1]) : 60;
    const int fastSeconds = argc > 2 ? std::atoi(argv[2]) : 30;
    const int repeats = argc > 3 ? std::max(1, std::atoi(argv[3])) : 3;
    QTemporaryDir dir;
    qputenv("SORVANTEL_SEAL_STORE", dir.filePath("seals").toLocal8Bit());
    QDir().mkpath(dir.filePath("seals"));
    QDir().mkpath(dir.filePath("Log Files"));
    gAppPath = dir.path();
    QProcess init;
    init.start(QStringLiteral(SORVANTEL_SEALER_EXE), {QStringLiteral("init")});
    init.waitForFinished(10000);
    setCipherKey();

    // Unsealed and sealed runs in turn, so that both meet the same disk and the same machine;
    // the median of each.
    for (const auto& [rate, seconds] : {std::pair{1, slowSeconds}, {100, fastSeconds}}) {
        if (seconds <= 0)
            continue;
        std::vector<double> plain, sealed, helper;
        int lines = 0;
        for (int r = 0; r < repeats; ++r) {
            const QString run = QStringLiteral("%1-%2").arg(rate).arg(r);
            const Cost u =
                logFor(dir.filePath("Log Files"), "plain" + run + ".slg", rate, seconds, false);
            plain.push_back(u.cpu);
            const Cost s =
                logFor(dir.filePath("Log Files"), "sealed" + run + ".slg", rate, seconds, true);
            sealed.push_back(s.cpu);
            helper.push_back(s.helper);
            std::printf("  run %d: %.4f s (ticks %.4f s) unsealed, %.4f s (ticks %.4f s, helper "
                        "%.4f s) sealed\n",
                        r, u.cpu, u.ticks, s.cpu, s.ticks, s.helper);
            std::fflush(stdout);
            lines = s.lines;
        }
        const double p = median(plain);
        const double q = median(sealed);
        std::printf("%3d line(s)/s, %d runs of %d s (%d lines): CPU %.4f s unsealed, %.4f s "
                    "sealed (of which the helper %.4f s), +%.1f %%\n",
                    rate, repeats, seconds, lines, p, q, median(helper),
                    p > 0 ? 100.0 * (q - p) / p : 0.0);
    }
    handOver();
    checkADay();
    return 0;
}
