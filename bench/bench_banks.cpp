// The workstation as it starts (splash, resident windows, first scan) with all sixteen bank
// windows open, polling a plant simulator at the scan time stored in the settings. Measures the
// process's CPU time and resident memory over a window of seconds after a warm-up, and counts
// the reads answered and failed in that window.
#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "bench_memory.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/modctl.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>
#include <cstdio>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sorvantel"));
    QApplication::setOrganizationName(QStringLiteral("Brenlock"));
    const int seconds = argc > 1 ? QByteArray(argv[1]).toInt() : 60;
    const int warmup = argc > 2 ? QByteArray(argv[2]).toInt() : 5;

    auto* splash = new FrmSplash;
    if (splash->load() != FrmSplash::LoadResult::Ok)
        return 1;
    splash->show();
    FrmMain* main = splash->mainWindow();
    int reads = 0;
    int errors = 0;
    double cpu0 = 0;
    QElapsedTimer wall;
    QObject::connect(splash, &FrmSplash::startupComplete, main, [&] {
        for (int bank = 1; bank <= 16; ++bank)
            main->menuItem(QStringLiteral("mnuAddBank%1").arg(bank))->trigger();
        QObject::connect(main->scan().modctl1(), &Modctl::readComplete, [&] { ++reads; });
        QObject::connect(main->scan().modctl1(), &Modctl::error, [&](int) { ++errors; });
        QTimer::singleShot(warmup * 1000, main, [&] {
            reads = errors = 0;
            cpu0 = cpuSeconds();
            wall.start();
            QTimer::singleShot(seconds * 1000, main, [&] {
                const double elapsed = static_cast<double>(wall.elapsed()) / 1000.0;
                const double cpu = cpuSeconds() - cpu0;
                std::printf("controllers %d, scan time %d ms, bank windows 16, %.1f s measured\n",
                            static_cast<int>(gActiveCount), main->scan().timer2()->interval(),
                            elapsed);
                std::printf("cpu %.2f s = %.2f %% of one core\n", cpu, 100.0 * cpu / elapsed);
                std::printf("resident %.1f MiB now, %.1f MiB peak\n", residentMiB(), peakMiB());
                std::printf("reads answered %d (%.1f/s), failed %d\n", reads, reads / elapsed,
                            errors);
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
