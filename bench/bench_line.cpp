// The workstation as it starts, polling the plant simulator on the link and with the pacing its
// settings name (the fixed tick, or as fast as the line allows). After a warm-up the line's and
// the poll's counts start again; over the measured seconds it prints the rounds against the wire
// time of a round, the reads answered, the process's CPU time per read, and the most requests
// that were ever on the line at once.
// Usage: bench_line seconds warm-up
#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "bench_memory.h"
#include "plant/frm_link_statistics.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/modbus_line.h"
#include "platform/modctl.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <cstdio>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sorvantel"));
    QApplication::setOrganizationName(QStringLiteral("Brenlock"));
    const int seconds = argc > 1 ? QByteArray(argv[1]).toInt() : 30;
    const int warmup = argc > 2 ? QByteArray(argv[2]).toInt() : 5;

    auto* splash = new FrmSplash;
    if (splash->load() != FrmSplash::LoadResult::Ok)
        return 1;
    splash->show();
    FrmMain* main = splash->mainWindow();
    int reads = 0;
    double cpu0 = 0;
    QElapsedTimer wall;
    QObject::connect(splash, &FrmSplash::startupComplete, main, [&] {
        QObject::connect(main->scan().modctl1(), &Modctl::readComplete, [&] { ++reads; });
        QTimer::singleShot(warmup * 1000, main, [&] {
            reads = 0;
            modbusLine().resetCounters();
            main->scan().poll().resetRounds();
            cpu0 = cpuSeconds();
            wall.start();
            QTimer::singleShot(seconds * 1000, main, [&] {
                const double elapsed = static_cast<double>(wall.elapsed()) / 1000.0;
                const double cpu = cpuSeconds() - cpu0;
                const PollCycle::Rounds r = main->scan().poll().rounds();
                const double wire = FrmLinkStatistics::wireRoundMicros();
                const ModbusLine& line = modbusLine();
                std::printf("controllers %d, %s, %.1f s measured\n", static_cast<int>(gActiveCount),
                            main->scan().linePaced()
                                ? "as fast as the line allows"
                                : qPrintable(QStringLiteral("fixed tick %1 ms")
                                                 .arg(main->scan().timer2()->interval())),
                            elapsed);
                std::printf("rounds %lld: mean %.3f s, last %.3f s, worst %.3f s", r.count,
                            r.meanMicros() / 1e6, r.lastMicros / 1e6, r.worstMicros / 1e6);
                if (wire > 0)
                    std::printf("; wire time %.3f s, mean/wire %.3f", wire / 1e6,
                                r.meanMicros() / wire);
                std::printf("\nreads answered %d (%.1f/s), requests %lld, most on the line at "
                            "once %d\n",
                            reads, reads / elapsed, line.requests(), line.mostInFlight());
                std::printf("cpu %.3f s = %.2f %% of one core, %.1f us per read answered\n", cpu,
                            100.0 * cpu / elapsed, reads > 0 ? 1e6 * cpu / reads : 0.0);
                std::fflush(stdout);
                QApplication::exit(0);
            });
        });
    });
    const int status = QApplication::exec();
    delete frmMain();
    installModbusBackend(nullptr);
    return status;
}
