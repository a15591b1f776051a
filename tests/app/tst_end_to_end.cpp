#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "control/frm_alarm_settings.h"
#include "control/frm_profile.h"
#include "control/frm_single_sp.h"
#include "control/frm_tune_settings.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/frm_main_display.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/indicators.h"
#include "platform/qt_modbus_backend.h"
#include "platform/record_grid.h"
#include "records/alarm_log.h"
#include "security/rights.h"
#include "security/session.h"
#include "sim_plant.h"
#include "sim_server.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QMdiArea>
#include <QRadioButton>
#include <QSignalSpy>
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
    // A supervisor holding the right, who signs each action with a fresh login.
    void signer(int right) {
        g21CFR = true;
        gUserLevel = 1;
        gSuRights[right] = 1;
        env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    }
    template <typename Window> Window* open(const char* menuItem) {
        frmMain()->menuItem(QString::fromLatin1(menuItem))->trigger();
        return frmMain()->mdiArea()->findChild<Window*>();
    }
};
} // namespace

class TstEndToEnd : public QObject {
    Q_OBJECT
private slots:
    void pollsTheSimulatedPlantAndSurvivesFailures();
    void bankWritesReachTheControllersAndComeBack();
    void alarmSetpointsReachTheControllersAndTheAlarmLog();
    void tuningValuesAndAutoTuneOnTheControllers();
    void profileDownloadedUploadedAndRefusedWhileRunning();
    void setpointRecipeReachesEveryTickedK40();
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

void TstEndToEnd::alarmSetpointsReachTheControllersAndTheAlarmLog() {
    Plant sim("1 K40 decimal=0 scaled=1 sp=150 pv=120 noise=0 alarm1=200 alarm2=50\n"
              "2 K40 decimal=2 scaled=1 sp=5 pv=4.5 noise=0 alarm1=8.5 alarm2=1\n"
              "3 K20 sp=30 pv=25 noise=0 alarm1=95 dev1=15\n");
    sim.env.settings->setValue("Link", "Timeout", "300");
    sim.start({{1, 0, true, "TIC-1"}, {2, 0, true, "PIC-2"}, {3, 2, true, "RMP-3"}});
    QTRY_VERIFY_WITH_TIMEOUT(!frmMain()->scan().scanning(), 10000);
    g21CFR = true;
    gUserLevel = 1;
    gSuRights[Right::AlarmSetpoints] = 1;
    sim.env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    frmMain()->menuItem("mnuAlarms")->trigger();
    auto* window = frmMain()->mdiArea()->findChild<FrmAlarmSettings*>();
    QVERIFY(window && !frmMain()->menuItem("mnuAlarms")->isEnabled());
    auto value = [&](FrmAlarmSettings::Field f) {
        return window->field(f)->value();
    };
    auto readBack = [&](int index) {
        window->controlSelect()->setCurrentIndex(index);
        window->field(FrmAlarmSettings::Alm2Dev)->setValue(-1);
        QSignalSpy read(window->reader(), &PacedSequence::blockRead);
        window->readValues();
        return read.wait(5000);
    };
    auto write = [&](FrmAlarmSettings::Field f, double v) {
        window->field(f)->setValue(v);
        sim.env.modals.login("jdoe", "pw");
        window->writeValues();
        return QTest::qWaitFor([&] { return !window->writer()->running(); }, 5000);
    };

    // A K40 in whole units: read, a high alarm set below the process value, the log fills.
    QVERIFY(readBack(0));
    QCOMPARE((QList<double>{value(FrmAlarmSettings::Alm1Set), value(FrmAlarmSettings::Alm2Set)}),
             (QList<double>{200.0, 50.0}));
    QCOMPARE(window->statusText(), QStringLiteral("Alarm values read from control."));
    QVERIFY(write(FrmAlarmSettings::Alm1Set, 110.0));
    QTRY_COMPARE_WITH_TIMEOUT(sim.plant.reg(1, 3), quint16(110 + 19999), 5000);
    QCOMPARE(window->statusText(), QStringLiteral("Alarm values written to controller"));
    QTRY_COMPARE_WITH_TIMEOUT(alarmLog()->grid()->text(0, AlarmLog::Tagname),
                              QStringLiteral("TIC-1 Alm# 1"), 10000);
    QVERIFY(readBack(0));
    QCOMPARE(value(FrmAlarmSettings::Alm1Set), 110.0);

    // Hundredths, and a profiler, which reads unscaled and writes tenths: 95.0 shows as 950.
    QVERIFY(readBack(1));
    QCOMPARE(value(FrmAlarmSettings::Alm1Set), 8.5);
    QVERIFY(write(FrmAlarmSettings::Alm2Dev, 0.25));
    QTRY_COMPARE_WITH_TIMEOUT(sim.plant.reg(2, 6), quint16(25 + 19999), 5000);
    // Its unset low alarm (a zero word, -19999) lies beyond the limits the fields took from the
    // first controller: that field keeps what it showed, says so, and is not written.
    sim.env.dialogs->boxes.clear();
    QVERIFY(readBack(2));
    QCOMPARE((QList<double>{value(FrmAlarmSettings::Alm1Set), value(FrmAlarmSettings::Alm1Dev),
                            value(FrmAlarmSettings::Alm2Dev)}),
             (QList<double>{950.0, 150.0, 0.0}));
    QCOMPARE(sim.env.dialogs->texts(),
             QStringList{"Alarm2 Setpoint: the controller holds -19999.0, beyond this field's "
                         "limits (-19000.0 to 45000.0).\n\nSuch a field keeps what it showed "
                         "and is not written until a value is typed into it."});
    // A value its register cannot hold (tenths of 5000 above the offset) is refused before
    // the login.
    const qsizetype boxes = sim.env.dialogs->boxes.size();
    window->field(FrmAlarmSettings::Alm1Set)->setValue(5000);
    window->writeValues();
    QCOMPARE(sim.env.dialogs->texts().value(boxes),
             QStringLiteral("Error during write of alarm values.\n\nMake sure write value is "
                            "within\nupper/lower setpoint limits."));
    QVERIFY(!window->writer()->running());
    // Nothing goes out while a field shows what the controller does not hold.
    window->field(FrmAlarmSettings::Alm1Set)->setValue(95);
    window->writeValues();
    QCOMPARE(sim.env.dialogs->texts().last(),
             QStringLiteral("Nothing was written. These fields do not show what the controller "
                            "holds: Alarm2 Setpoint.\nType a value into each, or read "
                            "again."));
    QVERIFY(!window->writer()->running());
    // Typed, it is the operator's own value.
    window->field(FrmAlarmSettings::Alm2Set)->selectAll();
    QTest::keyClicks(window->field(FrmAlarmSettings::Alm2Set), "10");
    QVERIFY(write(FrmAlarmSettings::Alm1Dev, 12));
    QCOMPARE(window->statusText(), QStringLiteral("Alarm values written to controller"));
    QTRY_COMPARE_WITH_TIMEOUT(sim.plant.reg(3, 6), quint16(19999), 5000);
    QCOMPARE((QList<quint16>{sim.plant.reg(3, 3), sim.plant.reg(3, 4), sim.plant.reg(3, 5)}),
             (QList<quint16>{950 + 19999, 120 + 19999, 100 + 19999}));

    // A controller that stops answering in the middle: one box, the rest dropped, the status
    // left at "Writing", and the window reads again once the controller is back.
    sim.env.dialogs->boxes.clear();
    QObject::connect(&sim.plant, &sim::SimPlant::registersWritten, &sim.plant,
                     [&](int node, int address) {
                         if (node == 3 && address == 3)
                             sim.server.setDead(3, true);
                     });
    window->field(FrmAlarmSettings::Alm1Dev)->setValue(20);
    QVERIFY(write(FrmAlarmSettings::Alm1Set, 90));
    QCOMPARE((QList<quint16>{sim.plant.reg(3, 3), sim.plant.reg(3, 4)}),
             (QList<quint16>{900 + 19999, 120 + 19999}));
    QCOMPARE(sim.env.dialogs->texts(),
             QStringList{"Error during write of alarm values.\n\nMake sure write value is "
                         "within\nupper/lower setpoint limits."});
    QCOMPARE(window->statusText(), QStringLiteral("Writing alarm values to controller"));
    sim.server.setDead(3, false);
    QVERIFY(readBack(2));
    QCOMPARE(sim.env.dialogs->boxes.size(), 1);
    QCOMPARE(actionsOf(sim.env.path("Audit/3-14-2026 Audit.atr")).count("Alarm Setpoint Change"),
             4);
}

void TstEndToEnd::tuningValuesAndAutoTuneOnTheControllers() {
    Plant sim("1 K40 decimal=1 scaled=1 sp=150 noise=0 pb=15 ti=180 td=4.5 tunetime=20\n"
              "2 K40 decimal=0 scaled=1 sp=80 noise=0 pb=8 rev=1239\n");
    sim.start({{1, 0, true, "TIC-1"}, {2, 0, true, "TIC-2"}});
    QTRY_VERIFY_WITH_TIMEOUT(!frmMain()->scan().scanning(), 10000);
    sim.signer(Right::LoopTuning);
    auto* window = sim.open<FrmTuneSettings>("loopTuning");
    QVERIFY(window);
    window->Timer1->stop();
    auto fields = [&] {
        return QList<double>{window->PBValueX1->value(), window->ResetValueX1->value(),
                             window->RateValueX1->value(), window->CoolPBX1->value(),
                             window->dbX1->value()};
    };
    const QString read = QStringLiteral("Controller tuning values read from controller.");
    auto readBack = [&](int index) {
        window->ControlTuneSelect->setCurrentIndex(index);
        window->dbRevision = 0;
        window->readValues();
        return QTest::qWaitFor(
            [&] { return window->statusText() == read && window->dbRevision != 0; }, 5000);
    };
    auto write = [&](const QString& done) {
        sim.env.modals.login("jdoe", "pw");
        window->writeValues();
        return QTest::qWaitFor([&] { return window->statusText() == done; }, 5000);
    };
    const QString written = QStringLiteral("Tuning values written to controller.");

    // Read, changed, written and read back; the simulated loop runs with the new values.
    QVERIFY(readBack(0));
    QCOMPARE(fields(), (QList<double>{15, 180, 4.5, 0, 0}));
    QCOMPARE(window->dbRevision, 40);
    window->PBValueX1->setValue(22.5);
    window->ResetValueX1->setValue(240);
    window->dbX1->setValue(-1.5);
    // The status says written once the last word has gone out, before its answer.
    QVERIFY(write(written));
    QTRY_COMPARE_WITH_TIMEOUT(
        (QList<quint16>{sim.plant.reg(1, 11), sim.plant.reg(1, 12), sim.plant.reg(1, 15)}),
        (QList<quint16>{225, 240, 19999 - 15}), 5000);
    for (QDoubleSpinBox* f : {window->PBValueX1, window->ResetValueX1, window->dbX1})
        f->setValue(0);
    QVERIFY(readBack(0));
    QCOMPARE(fields(), (QList<double>{22.5, 240, 4.5, 0, -1.5}));

    // The older revision has no dead band: the write stops short of it.
    QVERIFY(readBack(1));
    QCOMPARE(window->dbRevision, 39);
    QCOMPARE(fields(), (QList<double>{8, 120, 0, 0, 0}));
    window->PBValueX1->setValue(9);
    QVERIFY(write(written));
    QCOMPARE(sim.plant.reg(2, 11), quint16(9));

    // An auto-tune started runs on the controller, locks the values while it runs, and ends
    // with new ones.
    QVERIFY(readBack(0));
    window->Option1->setChecked(true);
    QVERIFY(write(QStringLiteral("Auto-tune inititated.")));
    QTRY_COMPARE_WITH_TIMEOUT(sim.plant.reg(1, 142), quint16(2), 5000);
    QVERIFY(readBack(0));
    QVERIFY(window->Option1->isChecked() && !window->PBValueX1->isEnabled());
    sim.plant.step(25);
    QCOMPARE(sim.plant.reg(1, 142), quint16(0));
    QVERIFY(readBack(0));
    QVERIFY(window->Option2->isChecked() && window->PBValueX1->isEnabled());
    QVERIFY(fields() != (QList<double>{22.5, 240, 4.5, 0, -1.5}));
}

void TstEndToEnd::profileDownloadedUploadedAndRefusedWhileRunning() {
    Plant sim("1 K40 sp=150 noise=0\n"
              "3 K20 sp=30 pv=25 noise=0 profile=60:5:20\n");
    sim.start({{1, 0, true, "TIC-1"}, {3, 2, true, "KILN-3"}});
    QTRY_VERIFY_WITH_TIMEOUT(!frmMain()->scan().scanning(), 10000);
    sim.signer(Right::Profiler);
    auto* window = sim.open<FrmProfile>("mnuProfiler");
    QVERIFY(window);
    QCOMPARE(window->ProfileCSelect->count(), 1);
    window->ProfileCSelect->setCurrentIndex(0);

    // Down as a block, up again equal.
    Profile p;
    p.setPoints = {120, 250.5, 250.5, 80, 0, 0, 0, 0};
    p.segTimes = {0, 10, 0, 5, 1, 30, 2, 0, 0, 0, 0, 45, 0, 20, 0, 0};
    window->setProfile(p);
    sim.env.modals.login("jdoe", "pw");
    window->downloadProfile();
    QTRY_COMPARE_WITH_TIMEOUT(window->icurFile->text(),
                              QStringLiteral("Profile download completed!"), 5000);
    QList<quint16> block;
    for (int address = 1057; address <= 1068; ++address)
        block << sim.plant.reg(3, address);
    QCOMPARE(block, (QList<quint16>{1200, 2505, 2505, 800, 0, 0, 0, 0, 10, 5, 90, 120}));
    window->setProfile(Profile{});
    window->uploadProfile();
    QTRY_COMPARE_WITH_TIMEOUT(window->icurFile->text(),
                              QStringLiteral("Profile upload from controller completed!"), 5000);
    QCOMPARE(window->profile(), p);

    // Started from the bank, it runs as downloaded; a download is then refused.
    FrmMainDisplay* bank = frmMain()->addControlBank(0, "1");
    gSuRights[Right::SignDataFiles] = 1;
    sim.env.modals.login("jdoe", "pw");
    bank->profileCommand(2, FrmMainDisplay::ProfileCommand::Run);
    QTRY_VERIFY_WITH_TIMEOUT(sim.plant.profileState(3) >= 1, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(gProfState[2] >= 1, 5000);
    sim.plant.setProfileMinute(1.0);
    sim.plant.step(5); // half way up the first ramp, to 120 in ten minutes
    QVERIFY(sim.plant.sp(3) > 50 && sim.plant.sp(3) < 120);
    const qsizetype boxes = sim.env.dialogs->boxes.size();
    window->setProfile(Profile{});
    sim.env.modals.login("jdoe", "pw");
    window->downloadProfile();
    QCOMPARE(sim.env.dialogs->texts().value(boxes + 1),
             QStringLiteral("Profiler # 3 is running. Profile download\nis not allowed while "
                            "profile is active."));
    QTest::qWait(300);
    QCOMPARE(sim.plant.reg(3, 1057), quint16(1200));
}

void TstEndToEnd::setpointRecipeReachesEveryTickedK40() {
    Plant sim("1 K40 decimal=1 scaled=1 sp=150 noise=0\n"
              "2 K40 decimal=2 scaled=1 sp=5 noise=0\n"
              "3 K20 sp=30 noise=0\n"
              "4 K40 decimal=0 scaled=0 sp=70 noise=0\n");
    sim.start({{1, 0, true, "TIC-1"}, {2, 0, true, "PIC-2"}, {3, 2, true}, {4, 0, true}});
    QTRY_VERIFY_WITH_TIMEOUT(!frmMain()->scan().scanning(), 10000);
    sim.signer(Right::SingleSetpointRecipes);
    auto* window = sim.open<FrmSingleSP>("mnuSingleSpRecipe");
    QVERIFY(window);
    QVERIFY(window->rowLocked(2) && !window->rowLocked(0) && !window->rowLocked(3));
    RecordGrid* grid = window->spDataGrid;
    for (const auto& [row, value] : {std::pair{0, "185.5"}, {1, "6.25"}, {2, "99"}, {3, "85"}}) {
        grid->setText(row, FrmSingleSP::ValueColumn, QString::fromLatin1(value));
        grid->setText(row, FrmSingleSP::WriteColumn, "1");
    }
    sim.env.modals.login("jdoe", "pw");
    window->downloadRecipe();
    QTRY_COMPARE_WITH_TIMEOUT(window->statusText(),
                              QStringLiteral("Setpoint written to all controllers successfully."),
                              5000);
    QCOMPARE((QList<double>{sim.plant.sp(1), sim.plant.sp(2), sim.plant.sp(3), sim.plant.sp(4)}),
             (QList<double>{185.5, 6.25, 30, 85}));
    // The poll brings them back to the store the bank and the trends draw from.
    QTRY_COMPARE_WITH_TIMEOUT(gSP[0].toText(), QStringLiteral("185.5"), 5000);
    QTRY_COMPARE_WITH_TIMEOUT(gSP[1].toText(), QStringLiteral("6.25"), 5000);
}

QTEST_MAIN(TstEndToEnd)
#include "tst_end_to_end.moc"
