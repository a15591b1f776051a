#include "app/app_icon.h"
#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "platform/modbus_line.h"
#include "platform/modctl.h"
#include "records/record_seals.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Sorvantel"));
    QApplication::setOrganizationName(QStringLiteral("Brenlock"));
    QApplication::setApplicationVersion(QStringLiteral(SORVANTEL_VERSION));
    QApplication::setWindowIcon(appIcon());

    // Sealing starts before the first record line of the run is written.
    SealClient sealer(QStringLiteral(SORVANTEL_SEALER_PATH));
    installSealClient(&sealer);
    auto* splash = new FrmSplash;
    switch (splash->load()) {
    case FrmSplash::LoadResult::AlreadyRunning:
        return 0;
    case FrmSplash::LoadResult::Failed:
        return 1;
    case FrmSplash::LoadResult::Ok:
        break;
    }
    splash->mainWindow()->watchSealing(&sealer);
    QObject::connect(splash->mainWindow(), &FrmMain::exitRequested, &app,
                     [] { QApplication::exit(0); });
    splash->show();
    const int status = QApplication::exec();
    delete frmMain();
    // The link's sockets and timers go while the application still exists.
    installModbusBackend(nullptr);
    resetModbusLine();
    return status;
}
