#include "test_env.h"

#include "app/frm_main.h"
#include "audit_files.h"
#include "displays/project_file.h"
#include "plant/plant_store.h"
#include "plant/poll_cycle.h"
#include "platform/modbus_line.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"

#include <QCoreApplication>
#include <QDir>

TestEnv::TestEnv() {
    dialogs = installDouble<ScriptedDialogs>(installDialogs);
    clock = installDouble<FakeClock>(installClock);
    beeper = installDouble<CountingBeeper>(installBeeper);
    settings = installDouble<MemorySettingsStore>(installSettingsStore);
    guard = installDouble<FakeInstanceGuard>(installInstanceGuard);
    modbus = installDouble<FakeModbusBackend>(installModbusBackend);
    resetModbusLine();
    printers = installDouble<PdfPrinters>(installPrinters);
    printers->outputFolder = m_dir.path();
    accounts = installDouble<FakeAccounts>(installAccounts);

    resetPlantStore();
    resetSession();
    resetRights();
    resetDataLogger();
    resetAlarmEngine();
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
    const auto num = [](int n) {
        return (n >= 0 ? " " : "") + QByteArray::number(n) + " \r\n";
    };
    QByteArray out;
    for (int c = 0; c < 64; ++c) {
        Controller ctl{c + 1, 0, false};
        for (const Controller& given : controllers)
            if (given.node == c + 1)
                ctl = given;
        const QString tag = ctl.tag.isEmpty() ? QStringLiteral("TAG%1").arg(c + 1) : ctl.tag;
        const QString tags[3] = {tag, tag + ".SP", tag + ".OUT"};
        for (int k = 0; k < 3; ++k)
            out += num(c) + num(ctl.enabled) + tags[k].toLatin1() + "\r\n" + num(k) +
                   num(ctl.type) + num(k == 0 && ctl.logged);
    }
    writeBytes(path(QStringLiteral("tags.tgn")), out);
}

void TestEnv::tickPoll(PollCycle& poll, int ticks) {
    for (int i = 0; i < ticks; ++i) {
        poll.timer2Tick();
        modbus->deliverAll();
        QCoreApplication::processEvents();
    }
}
