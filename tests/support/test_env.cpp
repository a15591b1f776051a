#include "test_env.h"

#include "app/frm_main.h"
#include "plant/plant_store.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"

#include <QDir>
#include <QFile>
#include <cmath>

TestEnv::TestEnv() {
    dialogs = installDouble<ScriptedDialogs>(installDialogs);
    clock = installDouble<FakeClock>(installClock);
    beeper = installDouble<CountingBeeper>(installBeeper);
    settings = installDouble<MemorySettingsStore>(installSettingsStore);
    guard = installDouble<FakeInstanceGuard>(installInstanceGuard);
    modbus = installDouble<FakeModbusBackend>(installModbusBackend);
    printers = installDouble<PdfPrinters>(installPrinters);
    printers->outputFolder = m_dir.path();
    accounts = installDouble<FakeAccounts>(installAccounts);

    resetPlantStore();
    resetSession();
    resetRights();
    resetDataLogger();
    gProjectTitle.clear();
    m_previousDir = QDir::currentPath();
    QDir::setCurrent(m_dir.path());
    gAppPath = m_dir.path();
}

TestEnv::~TestEnv() {
    delete frmMain();
    QDir::setCurrent(m_previousDir);
}

void TestEnv::writeTags(const QList<Controller>& controllers) {
    QByteArray out;
    auto num = [](int n) {
        return QByteArray(n >= 0 ? " " : "") + QByteArray::number(n) + " \r\n";
    };
    for (int c = 0; c < 64; ++c) {
        Controller ctl{c + 1, 0, false, QStringLiteral("TAG%1").arg(c + 1), false};
        for (const Controller& given : controllers)
            if (given.node == c + 1) {
                ctl = given;
                if (ctl.tag.isEmpty())
                    ctl.tag = QStringLiteral("TAG%1").arg(c + 1);
            }
        const QString tags[3] = {ctl.tag, ctl.tag + QStringLiteral(".SP"),
                                 ctl.tag + QStringLiteral(".OUT")};
        for (int k = 0; k < 3; ++k) {
            out += num(c) + num(ctl.enabled ? 1 : 0) + tags[k].toLatin1() + "\r\n" + num(k) +
                   num(ctl.type) + num(k == 0 && ctl.logged ? 1 : 0);
        }
    }
    QFile f(path(QStringLiteral("tags.tgn")));
    if (f.open(QIODevice::WriteOnly))
        f.write(out);
}

quint16 k40Raw(double value, double scale) {
    return static_cast<quint16>(std::lround(value / scale + 19999.0));
}
