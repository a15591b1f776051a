// The workstation as it starts, polling the plant simulator at the scan time stored in the
// settings, with publishing off or on (to a broker on 127.0.0.1 at the port given). Measures the
// process's CPU time over a window of seconds after a warm-up, the reads answered, the longest
// gap between two poll ticks, and what publishing sent, dropped and holds.
// Usage: bench_publish seconds warm-up [broker port]
#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "bench_memory.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/modctl.h"
#include "publish/publisher.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <cstdio>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sorvantel"));
    QApplication::setOrganizationName(QStringLiteral("Brenlock"));
    const int seconds = argc > 1 ? QByteArray(argv[1]).toInt() : 60;
    const int warmup = argc > 2 ? QByteArray(argv[2]).toInt() : 5;
    const int port = argc > 3 ? QByteArray(argv[3]).toInt() : 0;

    auto* splash = new FrmSplash;
    if (splash->load() != FrmSplash::LoadResult::Ok)
        return 1;
    splash->show();
    FrmMain* main = splash->mainWindow();
    int reads = 0;
    double cpu0 = 0;
    qint64 lastTick = -1;
    qint64 worstGap = 0;
    QElapsedTimer wall;
    QObject::connect(splash, &FrmSplash::startupComplete, main, [&] {
        if (port > 0) {
            PublishConfig c;
            c.enabled = true;
            c.port = port;
            c.site = QStringLiteral("bench");
            c.station = QStringLiteral("station1");
            main->publisher().apply(c);
        }
        QObject::connect(main->scan().modctl1(), &Modctl::readComplete, [&] { ++reads; });
        QObject::connect(main->scan().timer2(), &QTimer::timeout, [&] {
            if (wall.isValid()) {
                if (lastTick >= 0)
                    worstGap = std::max(worstGap, wall.elapsed() - lastTick);
                lastTick = wall.elapsed();
            }
        });
        QTimer::singleShot(warmup * 1000, main, [&] {
            reads = 0;
            cpu0 = cpuSeconds();
            wall.start();
            QTimer::singleShot(seconds * 1000, main, [&] {
                const double elapsed = static_cast<double>(wall.elapsed()) / 1000.0;
                const double cpu = cpuSeconds() - cpu0;
                const Publisher& p = main->publisher();
                std::printf("controllers %d, scan time %d ms, publishing %s, %.1f s measured\n",
                            static_cast<int>(gActiveCount), main->scan().timer2()->interval(),
                            port > 0 ? "on" : "off", elapsed);
                std::printf("cpu %.2f s = %.2f %% of one core\n", cpu, 100.0 * cpu / elapsed);
                std::printf("reads answered %d (%.1f/s), longest gap between poll ticks %lld ms\n",
                            reads, reads / elapsed, static_cast<long long>(worstGap));
                std::printf("published: sent %llu, dropped %llu, queued %d; %s\n",
                            static_cast<unsigned long long>(p.sent()),
                            static_cast<unsigned long long>(p.dropped()), p.queued(),
                            qPrintable(p.stateText()));
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
