#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/frm_main_display.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/indicators.h"
#include "platform/qt_modbus_backend.h"
#include "sim_plant.h"
#include "sim_server.h"
#include "support/test_env.h"

#include <QDoubleSpinBox>
#include <QMdiArea>
#include <QTest>

namespace {
// The workstation started in a temporary application directory against the plant simulator on
// loopback, through the real link, polling every 100 ms.
struct Plant {
    TestEnv env;
    sim::SimPlant plant;
    sim::SimServer server{&plant};

    explicit Plant(const char* text) {
        QString error;
        QVERIFY2(plant.loadText(QString::fromLatin1(text), &error), qPrintable(error));
        QVERIFY(server.listen(QHostAddress::LocalHost, 0));
        env.settings->setValue("Link", "Port", QString::number(server.port()));
        env.settings->setValue("Cstatus", "CupdateTime", "100");
    }
    void start(const QList<TestEnv::Controller>& controllers) {
        installModbusBackend(
            std::make_unique<QtModbusBackend>(QtModbusBackend::settingsFromStore()));
        env.writeTags(controllers);
        auto& splash = *new FrmSplash;
        QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
        for (int i = 0; i < 10; ++i)
            splash.timer1Tick();
    }
};
} // namespace

class TstEndToEnd : public QObject {
    Q_OBJECT
private slots:
    void pollsTheSimulatedPlantAndSurvivesFailures();
    void bankWritesReachTheControllersAndComeBack();
};

void TstEndToEnd::pollsTheSimulatedPlantAndSurvivesFailures() {
    Plant sim("1 K40 decimal=1 scaled=1 sp=150 pv=120.5\n"
              "2 K40 decimal=2 scaled=1 sp=5.25 pv=4.75\n"
              "4 K40 decimal=0 scaled=0 sp=80 pv=70\n"
              "5 K8 sp=25 pv=20\n"
              "6 K20 sp=30 pv=-12.5\n");
    const quint16 port = sim.server.port();
    // Four ticks outlast the time-out, so a dead K40 is answered before it is asked again.
    sim.env.settings->setValue("Link", "Timeout", "300");
    sim.start({{1, 0, true, "TIC-1"},
               {2, 0, true},
               {3, 0, false},
               {4, 0, true},
               {5, 1, true},
               {6, 2, true}});
    FrmMain* main = frmMain();
    QVERIFY(main->scan().scanning());
    QCOMPARE(gActiveList, (QVector<qint16>{1, 2, 4, 5, 6, 0}));

    // The first pass ends with every controller's values in the store.
    QTRY_VERIFY_WITH_TIMEOUT(!main->scan().scanning(), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(gPV[0].toText(), QStringLiteral("120.5"), 5000);
    // Node 4's fixed tenths show with code 0.
    QCOMPARE((QStringList{gSP[0].toText(), gPV[1].toText(), gPV[3].toText(), gPV[4].toText(),
                          gPV[5].toText()}),
             (QStringList{"150.0", "4.75", "70", "20", "-12.5"}));
    QCOMPARE(frmLogger()->text(), QString());

    // Nodes that stop answering: the logger and the status bar say so, by list position. The
    // profiler, asked on every tick while its read is still on its way, is no busy controller.
    sim.server.setDead(2, true);
    sim.server.setDead(5, true);
    for (const char* line : {"Control Address# 2, Device did not respond in 1 sec.",
                             "Control Address# 4, Device did not respond in 1 sec."})
        QTRY_VERIFY_WITH_TIMEOUT(frmLogger()->text().contains(QLatin1String(line)), 15000);
    QVERIFY(!frmLogger()->text().contains("Busy"));
    QCOMPARE(main->statusText(), kStatusCommError);
    QCOMPARE(gPV[1].toText(), QStringLiteral("4.75")); // last good values stay
    sim.server.setDead(2, false);
    sim.server.setDead(5, false);

    // The whole simulator goes away and comes back: values return without a restart.
    sim.server.close();
    QTRY_VERIFY_WITH_TIMEOUT(frmLogger()->text().contains("Adapter Invalid."), 15000);
    sim.plant.setPv(1, 99.5);
    sim.plant.setPv(6, 3.0);
    QVERIFY(sim.server.listen(QHostAddress::LocalHost, port));
    QTRY_COMPARE_WITH_TIMEOUT(gPV[0].toText(), QStringLiteral("99.5"), 15000);
    QTRY_COMPARE_WITH_TIMEOUT(gPV[5].asNumber().value_or(0), 3.0, 15000);

    // Simulation replaces the readings; back in real time they are read again.
    main->mnuSimMode_Click();
    QTRY_VERIFY_WITH_TIMEOUT(!gPV[0].isText(), 5000);
    main->mnuRtMode_Click();
    QTRY_COMPARE_WITH_TIMEOUT(gPV[0].toText(), QStringLiteral("99.5"), 10000);
}

void TstEndToEnd::bankWritesReachTheControllersAndComeBack() {
    Plant sim("1 K40 decimal=1 scaled=1 sp=150 pv=120 noise=0\n"
              "2 K20 sp=30 pv=25 profile=60:5:20\n");
    sim.start({{1, 0, true, "TIC-1"}, {2, 2, true, "RMP-2"}});
    QTRY_COMPARE_WITH_TIMEOUT(gSP[0].toText(), QStringLiteral("150.0"), 10000);

    // A new setpoint entered in bank 1 reaches the K40 and comes back through the poll.
    FrmMainDisplay* bank = frmMain()->addControlBank(0, "1");
    frmMain()->timer3Tick();
    bank->beginSetpointEntry(0);
    bank->findChild<QDoubleSpinBox*>("SPwrite0")->setValue(175.5);
    bank->acceptSetpoint(0);
    QTRY_COMPARE_WITH_TIMEOUT(sim.plant.sp(1), 175.5, 5000);
    QTRY_COMPARE_WITH_TIMEOUT(gSP[0].toText(), QStringLiteral("175.5"), 5000);
    frmMain()->timer3Tick();
    QCOMPARE(bank->findChild<SevenSegmentDisplay*>("CSP0")->shownText(), QStringLiteral("175.5"));
    // A run command starts the simulated profile.
    bank->profileCommand(1, FrmMainDisplay::ProfileCommand::Run);
    QTRY_VERIFY_WITH_TIMEOUT(sim.plant.profileState(2) >= 1, 5000);
}

QTEST_MAIN(TstEndToEnd)
#include "tst_end_to_end.moc"
