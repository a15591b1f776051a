#pragma once

// What every live benchmark shares: the workstation as it starts (splash, resident windows, first
// scan) from the settings and the plant of the current folder. `opened` runs once the start-up is
// done (false ends the run with status 1); after `warm-up` seconds `measuring` runs and the counts
// start; `seconds` later `report` gets the window: wall and CPU seconds, the reads Modctl1 had
// answered and failed. Arguments: seconds warm-up [the benchmark's own].

#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "bench_memory.h"
// Ahead of QApplication, whose X11 part declares a global Display that ChildWindow's own would
// shadow.
#include "plant/child_window.h"
#include "plant/scan_controller.h"
#include "platform/modbus_line.h"
#include "platform/modctl.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <cstdio>
#include <functional>

struct BenchWindow {
    double elapsed = 0;
    double cpu = 0;
    int reads = 0;
    int errors = 0;
};

inline int runWorkstationBench(int argc, char* argv[], int defaultSeconds,
                               const std::function<bool(FrmMain&)>& opened,
                               const std::function<void(FrmMain&)>& measuring,
                               const std::function<void(FrmMain&, const BenchWindow&)>& report) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sorvantel"));
    QApplication::setOrganizationName(QStringLiteral("Brenlock"));
    const int seconds = argc > 1 ? QByteArray(argv[1]).toInt() : defaultSeconds;
    const int warmup = argc > 2 ? QByteArray(argv[2]).toInt() : 5;

    auto* splash = new FrmSplash;
    if (splash->load() != FrmSplash::LoadResult::Ok)
        return 1;
    splash->show();
    FrmMain* main = splash->mainWindow();
    BenchWindow window;
    double cpu0 = 0;
    QElapsedTimer wall;
    QObject::connect(splash, &FrmSplash::startupComplete, main, [&] {
        if (opened && !opened(*main)) {
            QApplication::exit(1);
            return;
        }
        QObject::connect(main->scan().modctl1(), &Modctl::readComplete, [&] { ++window.reads; });
        QObject::connect(main->scan().modctl1(), &Modctl::error, [&](int) { ++window.errors; });
        QTimer::singleShot(warmup * 1000, main, [&] {
            window.reads = window.errors = 0;
            if (measuring)
                measuring(*main);
            cpu0 = cpuSeconds();
            wall.start();
            QTimer::singleShot(seconds * 1000, main, [&] {
                window.elapsed = static_cast<double>(wall.elapsed()) / 1000.0;
                window.cpu = cpuSeconds() - cpu0;
                report(*main, window);
                std::fflush(stdout);
                QApplication::exit(0);
            });
        });
    });
    const int status = QApplication::exec();
    delete frmMain();
    installModbusBackend(nullptr);
    resetModbusLine();
    return status;
}
