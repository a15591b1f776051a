#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "app/startup.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "plant/tag_file.h"
#include "platform/placement.h"
#include "platform/record_grid.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/modal_script.h"
#include "support/test_env.h"

#include <QFile>
#include <QMdiArea>
#include <QProgressBar>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace {
// Timer 2, timer 3 and the poll's read-done flag: all set once polling runs.
QList<bool> pollRunning(FrmMain* main) {
    return {main->scan().timer2()->isActive(), main->scan().timer3()->isActive(),
            main->scan().poll().readDone};
}
const QList<bool> kRunning{true, true, true};

const QString kFailureText =
    QStringLiteral("Sorvantel has encountered and error while initializing data.\n"
                   "This is probably due to a file that is missing.\n"
                   "Please re-install Sorvantel from the CD or orig source.");
} // namespace

class TstFrmMain : public QObject {
    Q_OBJECT
private slots:
    void menuCommandsAskTheirRight_data();
    void menuCommandsAskTheirRight();
    void placementIsReadAndSavedInTwips();
    void exitAsksThenSavesPlacementAndUnloads();
    void startScanOpensDialogAndStartsPollingAfterHalfASecond();
    void answerFromBeforeTheScanStillStartsThePoll();
    void rebuildActiveListRestartsWithoutTheDialog();
    void modeChangeMovesMarksAndRestartsScan();
    void openProjectMenuFollowsLoadedWindows();
    void helpThatCannotBeShownIsReported();

    void missingTagFileStopsTheStart();
    void secondInstanceStopsBeforeAnythingIsRead();
    void settingsAreReadWithTheirDefaults();
    void logOnStartupNeedsAMarkedChannel();
    void fullStartOpensResidentWindowsAfterOneSecond();
    void startWithNoControllerComesUpWithoutScanning();
};

void TstFrmMain::menuCommandsAskTheirRight_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("right");
    // One command that asks through the menu table, and those that ask in code of their own.
    // Going back to real time asks the data viewer's right.
    const QList<std::pair<const char*, int>> commands{{"mnuAudit", 19},
                                                      {"mnuRtMode", 9},
                                                      {"mnuSimMode", 10},
                                                      {"mnuPasswords", 11},
                                                      {"mnuFileExit", 23}};
    for (const auto& [name, right] : commands)
        QTest::newRow(name) << QString::fromLatin1(name) << right;
}

void TstFrmMain::menuCommandsAskTheirRight() {
    QFETCH(QString, name);
    QFETCH(int, right);
    TestEnv env;
    ModalScript modals; // a dialog the granted command opens is cancelled
    auto* main = new FrmMain;
    g21CFR = true;
    gUserLevel = 1;
    // Every right but the one under test: the command must be denied.
    gSuRights.fill(1);
    gSuRights[right] = 0;
    env.dialogs->answerNext(MsgAnswer::No); // in case the exit question comes
    main->menuItem(name)->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to supervisor level security!"});
    // With the right granted, no denial.
    env.dialogs->boxes.clear();
    gSuRights[right] = 1;
    env.dialogs->answerNext(MsgAnswer::No);
    main->menuItem(name)->trigger();
    QVERIFY(!env.dialogs->texts().contains("Access denied to supervisor level security!"));
}

void TstFrmMain::placementIsReadAndSavedInTwips() {
    TestEnv env;
    for (auto [key, twips] : {std::pair{"MainLeft", "1500"},
                              {"MainTop", "3000"},
                              {"MainWidth", "9000"},
                              {"MainHeight", "7500"}})
        env.settings->setValue("Settings", key, twips);
    auto* main = new FrmMain;
    const double tpp = twipsPerPixel(main);
    QCOMPARE(main->geometry(),
             QRect(qRound(1500 / tpp), qRound(3000 / tpp), qRound(9000 / tpp), qRound(7500 / tpp)));
    // Closed while minimized, the stored placement stays as it was.
    env.settings->values.clear();
    env.settings->setValue("Settings", "MainWidth", "7777");
    main->showMinimized();
    QVERIFY(main->close());
    QCOMPARE(env.settings->value("Settings", "MainWidth", ""), QStringLiteral("7777"));
    QCOMPARE(env.settings->value("Settings", "MainLeft", "none"), QStringLiteral("none"));
}

void TstFrmMain::exitAsksThenSavesPlacementAndUnloads() {
    TestEnv env;
    auto* main = new FrmMain;
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    main->move(200, 100);
    main->resize(800, 600);
    QSignalSpy exits(main, &FrmMain::exitRequested);
    // With security on, closing asks right 24, which nothing in the system grants.
    g21CFR = true;
    gUserLevel = 2;
    gAdRights.fill(1);
    gAdRights[24] = 0;
    main->menuItem("mnuFileExit")->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to administrator level security!"});
    QVERIFY(main->isVisible());
    g21CFR = false;
    env.dialogs->boxes.clear();
    env.dialogs->answerNext(MsgAnswer::No);
    QVERIFY(!main->close());
    QVERIFY(main->isVisible());
    QCOMPARE(exits.size(), 0);
    QVERIFY(env.settings->values.isEmpty());
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);

    env.dialogs->boxes.clear();
    main->menuItem("mnuFileExit")->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Exit - are you sure?"});
    QCOMPARE(exits.size(), 1);
    const double tpp = twipsPerPixel(main);
    QCOMPARE(env.settings->value("Settings", "MainWidth", ""), QString::number(qRound(800 * tpp)));
    QCOMPARE(env.settings->value("settings", "mainleft", ""),
             QString::number(qRound(main->pos().x() * tpp)));
    QVERIFY(main->mdiArea()->subWindowList().isEmpty()); // the logger was unloaded too
}

void TstFrmMain::startScanOpensDialogAndStartsPollingAfterHalfASecond() {
    TestEnv env;
    env.modbus->manual = true;
    auto* main = new FrmMain;
    main->show();
    buildActiveList();
    main->scan().timer2()->start();
    main->scan().startScan(); // no controller: nothing happens
    QVERIFY(!main->scan().scanning());
    QVERIFY(main->scan().timer2()->isActive());

    gControlEnabled[0] = gControlEnabled[3] = true;
    buildActiveList();
    gPollIndex = 1;
    main->scan().startScan();
    FrmScanning* scanning = main->scan().scanning();
    QVERIFY(scanning);
    QVERIFY(scanning->isVisible());
    auto* bar = scanning->findChild<QProgressBar*>("pBar");
    QCOMPARE(QList<int>({bar->maximum(), bar->value(), gPollIndex}), QList<int>({2, 0, 0}));
    QVERIFY(!main->scan().timer2()->isActive() && !main->scan().poll().readDone &&
            main->scan().poll().firstScan);
    QTRY_VERIFY_WITH_TIMEOUT(main->scan().timer2()->isActive(), 2000);
    QCOMPARE(pollRunning(main), kRunning);
    // A second start replaces the dialog rather than stacking another.
    main->scan().startScan();
    QCOMPARE(main->findChildren<FrmScanning*>().size(), 1);
}

void TstFrmMain::answerFromBeforeTheScanStillStartsThePoll() {
    TestEnv env;
    env.modbus->manual = true;
    auto* main = new FrmMain;
    main->show();
    gControlEnabled[0] = gControlEnabled[1] = true;
    buildActiveList();
    env.modbus->nodes[1].dead = true;
    main->scan().poll().readDone = true;
    main->scan().poll().timer2Tick(); // a request on its way when the scan restarts
    main->scan().startScan();
    QVERIFY(main->scan().scanning());
    env.modbus->deliverAll(); // its failure ends the first scan at once
    QVERIFY(!main->scan().scanning());
    // The poll does not wait for the half second of a dialog that has gone.
    QCOMPARE(pollRunning(main), kRunning);
}

void TstFrmMain::rebuildActiveListRestartsWithoutTheDialog() {
    TestEnv env;
    auto* main = new FrmMain;
    auto* alarms = new AlarmLog;
    main->mdiArea()->addSubWindow(alarms);
    alarms->grid()->setRowCount(3);
    gControlEnabled[4] = gControlEnabled[9] = true;
    gPollIndex = 1;
    rebuildActiveList();
    QCOMPARE(gActiveList, (QVector<qint16>{5, 10, 0}));
    QCOMPARE(gPollIndex, qint16(0));
    QCOMPARE(pollRunning(main), kRunning);
    QVERIFY(!main->scan().scanning());
    QCOMPARE(alarms->grid()->rowCount(), 0);
}

void TstFrmMain::modeChangeMovesMarksAndRestartsScan() {
    TestEnv env;
    auto* main = new FrmMain;
    QVERIFY(main->menuItem("mnuRtMode")->isChecked()); // every start is in real time
    gControlEnabled[2] = true;
    buildActiveList();
    gLogging = true;
    main->menuItem("mnuSimMode")->trigger();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Simulation or Realtime modes can not\nbe modified while logging data!"});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Information);
    // Simulation flag, its mark, the real-time mark.
    auto marks = [main] {
        return QList<bool>{gSimMode, main->menuItem("mnuSimMode")->isChecked(),
                           main->menuItem("mnuRtMode")->isChecked()};
    };
    QCOMPARE(marks(), QList<bool>({false, false, true}));
    QVERIFY(!main->scan().scanning());

    gLogging = false;
    main->menuItem("mnuSimMode")->trigger();
    QCOMPARE(marks(), QList<bool>({true, true, false}));
    QVERIFY(main->scan().scanning());
    // Denied: nothing moves.
    g21CFR = true;
    main->menuItem("mnuRtMode")->trigger();
    QCOMPARE(marks(), QList<bool>({true, true, false}));
}

void TstFrmMain::openProjectMenuFollowsLoadedWindows() {
    TestEnv env;
    auto* main = new FrmMain;
    main->mdiArea()->addSubWindow(new QWidget);
    main->mdiArea()->addSubWindow(new QWidget);
    main->updateOpenProjectMenu();
    QVERIFY(main->menuItem("mnuOpenP")->isEnabled());
    gLogging = true;
    main->updateOpenProjectMenu();
    QVERIFY(!main->menuItem("mnuOpenP")->isEnabled());
    gLogging = false;
    main->mdiArea()->addSubWindow(new QWidget);
    // Timer 3 updates the menu and yields to the event loop with the bank flag set.
    bool seenDuringYield = false;
    QTimer::singleShot(0, main, [&] { seenDuringYield = gBankUpdating; });
    main->timer3Tick();
    QVERIFY(!main->menuItem("mnuOpenP")->isEnabled());
    QVERIFY(seenDuringYield);
    QVERIFY(!gBankUpdating);
}

void TstFrmMain::helpThatCannotBeShownIsReported() {
    TestEnv env;
    auto* main = new FrmMain;
    gHelpFile = env.path("Sorvantel help.hlp");
    main->menuItem("mnuHelpContents")->trigger();
    QCOMPARE(env.dialogs->openedDocuments, QStringList{gHelpFile});
    QCOMPARE(
        env.dialogs->texts(),
        QStringList{"Unable to display Help Contents. Help is not completed for this project."});
}

void TstFrmMain::missingTagFileStopsTheStart() {
    TestEnv env;
    auto& splash = *new FrmSplash; // it deletes itself once started, so it lives on the heap
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Failed);
    QVERIFY(splash.initFailed);
    QCOMPARE(env.dialogs->texts(), QStringList{kFailureText});
    QCOMPARE((std::pair{env.dialogs->boxes[0].icon, env.dialogs->boxes[0].title}),
             (std::pair{MsgIcon::Critical, QString("Sorvantel")}));
    QTest::qWait(50);
    QVERIFY(env.modbus->requests.isEmpty());
    QVERIFY(!frmMain()->isVisible());
}

void TstFrmMain::secondInstanceStopsBeforeAnythingIsRead() {
    TestEnv env;
    env.writeTags({{1, 0, true}});
    env.guard->otherRunning = true;
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::AlreadyRunning);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Sorvantel is already running! Please check the\ntaskbar or background "
                         "window for active version."});
    QVERIFY(gPvTag[0].isEmpty()); // the tag file was never read
}

void TstFrmMain::settingsAreReadWithTheirDefaults() {
    TestEnv env;
    auto* main = new FrmMain;
    loadSettings(*main);
    QCOMPARE((QList<int>{gSaveInterval, gAutoLog, main->scan().timer2()->interval(), gUserLevel}),
             (QList<int>{1, 0, 500, 0}));
    QVERIFY(!gComBeep && !gBeepOnAlarm && !gBeepUntilAck && !gAlmLogging && !g21CFR);
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));

    // The two spellings of the section meet; booleans read from True and from -1.
    env.settings->setValue("Cstatus", "gComBeep", "True");
    env.settings->setValue("CStatus", "CupdateTime", "250");
    env.settings->setValue("CStatus", "beepOnAlarm", "-1");
    env.settings->setValue("DataSave", "SaveInterval", "10");
    env.settings->setValue("Levels\\security", "21CFR", "True");
    env.settings->setValue("Levels\\su", "su 4", "1");
    loadSettings(*main);
    QVERIFY(gComBeep && gBeepOnAlarm && g21CFR);
    QCOMPARE(
        (QList<int>{main->scan().timer2()->interval(), gSaveInterval, gSuRights[4], gSuRights[3]}),
        (QList<int>{250, 10, 1, 0}));

    // A value that does not read, or a zero interval, leaves what was there.
    env.settings->setValue("DataSave", "SaveInterval", "often");
    env.settings->setValue("Cstatus", "CupdateTime", "fast");
    env.settings->setValue("CStatus", "gComBeep", "maybe");
    loadSettings(*main);
    QCOMPARE((QList<int>{gSaveInterval, main->scan().timer2()->interval()}), (QList<int>{10, 250}));
    QVERIFY(gComBeep);
    env.settings->setValue("Cstatus", "CupdateTime", "0");
    loadSettings(*main);
    QCOMPARE(main->scan().timer2()->interval(), 250);
}

void TstFrmMain::logOnStartupNeedsAMarkedChannel() {
    TestEnv env;
    env.writeTags({{1, 0, true}, {2, 1, true}});
    env.settings->setValue("DataSave", "gLogOnStartup", "1");
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    QCOMPARE(gLogOnStartup, qint16(0));
    QCOMPARE(env.settings->value("DataSave", "gLogOnStartup", ""), QStringLiteral("1"));
    QVERIFY(!gLogging);
    delete &splash;
    // With a channel marked the log starts under a name from the clock, and the trail says so.
    env.writeTags({{1, 0, true}, {2, 1, true, "", true}});
    env.settings->setValue("Levels\\security", "21CFR", "True");
    auto& second = *new FrmSplash;
    QCOMPARE(second.load(), FrmSplash::LoadResult::Ok);
    const QString file = env.path("Log Files/3-14-2026_10H_0M_0S.slg");
    QCOMPARE((std::pair{gLogging, gDataFileName}), (std::pair{true, file}));
    QCOMPARE(plainLinesOf(file).size(), 2);
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             (QStringList{"System Started", "Data file started. " + file}));
    delete &second;
}

void TstFrmMain::fullStartOpensResidentWindowsAfterOneSecond() {
    TestEnv env;
    env.writeTags({{1, 0, true, "TIC-1"}, {3, 1, true, "RMP-3"}});
    env.modbus->manual = true;
    // The alarm log's placement: two values stored, the others from their defaults.
    env.settings->setValue("AlarmLog", "MainLeft", "2000");
    env.settings->setValue("AlarmLog", "MainHeight", "3000");
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    FrmMain* main = frmMain();
    QCOMPARE(main->windowTitle(), QStringLiteral("Brenlock Controls Sorvantel"));
    QCOMPARE(gActiveList, (QVector<qint16>{1, 3, 0}));
    QCOMPARE(gAppPath, env.appPath());
    QVERIFY(QFile::exists(env.path("Alarm Logs/3-14-2026 AlmLog.alf")));
    QVERIFY(!main->isVisible());
    QCOMPARE(main->statusText(), QStringLiteral("Status"));

    for (int i = 0; i < 9; ++i)
        splash.timer1Tick();
    QVERIFY(!frmLogger()); // nine ticks: not yet
    splash.timer1Tick();
    QVERIFY(main->isVisible() && frmLogger() && frmLogger()->isMinimized());
    QCOMPARE(main->statusText(), kStatusNormal); // minimizing the logger set it
    AlarmLog* alarms = alarmLog();
    QVERIFY(alarms && alarms->isMinimized());
    const double tpp = twipsPerPixel(alarms);
    alarms->showNormal();
    QCOMPARE(alarms->pos(), QPoint(qRound(2000 / tpp), qRound(1125 / tpp)));
    QCOMPARE(alarms->size(), QSize(qRound(5650 / tpp), qRound(3000 / tpp)));
    QVERIFY(main->scan().scanning());
    // Half a second later the poll starts, and its first request goes to node 1.
    QTRY_VERIFY_WITH_TIMEOUT(!env.modbus->requests.isEmpty(), 3000);
    QCOMPARE(env.modbus->requests[0].node, 1);
}

void TstFrmMain::startWithNoControllerComesUpWithoutScanning() {
    TestEnv env;
    env.writeTags({});
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    for (int i = 0; i < 10; ++i)
        splash.timer1Tick();
    QVERIFY(frmMain()->isVisible() && !frmMain()->scan().scanning() &&
            !frmMain()->scan().timer2()->isActive());
    QVERIFY(env.dialogs->boxes.isEmpty());
}

QTEST_MAIN(TstFrmMain)
#include "tst_frm_main.moc"
