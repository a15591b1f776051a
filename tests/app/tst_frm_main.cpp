#include "app/frm_main.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "platform/placement.h"
#include "platform/record_grid.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/test_env.h"

#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

class TstFrmMain : public QObject {
    Q_OBJECT
private slots:
    void menuBarIsComplete_data();
    void menuBarIsComplete();
    void menuCommandsAskTheirRight_data();
    void menuCommandsAskTheirRight();
    void placementIsReadAndSavedInTwips();
    void exitAsksAndSavesPlacement();
    void exitAnsweredNoKeepsEverything();
    void minimizedAtExitKeepsStoredPlacement();
    void closeWithSecurityOnIsDeniedWithoutRight24();
    void startScanOpensDialogAndStartsPollingAfterHalfASecond();
    void startScanWithoutControllersDoesNothing();
    void answerFromBeforeTheScanStillStartsThePoll();
    void rebuildActiveListRestartsWithoutTheDialog();
    void timer3YieldsWithBankUpdatingSet();
    void modeChangeRefusedWhileLogging();
    void modeChangeMovesMarksAndRestartsScan();
    void openProjectMenuFollowsLoadedWindows();
    void tilingFillsTheClientArea();
    void missingHelpFileIsReported();
};

void TstFrmMain::menuBarIsComplete_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("caption");
    const QList<std::pair<const char*, const char*>> items = {
        {"mnuFile", "&File"},
        {"mnuOpenP", "&Open Project"},
        {"mnuCloseP", "&Close Project"},
        {"mnuSaveP", "S&ave Project"},
        {"mnuSavePas", "S&ave Project As.."},
        {"mnuFileExit", "E&xit"},
        {"mnuView", "&View"},
        {"mnuDigValues", "&Digital Values"},
        {"mnuAlarmLog", "&Alarm Log"},
        {"mnuTrends", "&Control Trends"},
        {"mnuTrend1", "Trend 1"},
        {"mnuTrend8", "Trend 8"},
        {"mnuBars", "&Bar Graphs"},
        {"mnuBarGraph1", "Bar Graphs (1 To 16)"},
        {"mnuBarGraph4", "Bar Graphs (49 To 64)"},
        {"mnuProfiler", "&Profiler"},
        {"mnuSingleSpRecipe", "&Single Setpoint Recipes"},
        {"mnuHistory", "&Data File Viewer"},
        {"mnuAudit", "&Audit Trail Viewer"},
        {"mnuControlBanks", "&Control Banks"},
        {"Cgroup1", "Controllers 1 to 32"},
        {"Cgroup2", "Controllers 32 to 64"},
        {"mnuAddBank1", "View Controls 1 - 4"},
        {"mnuAddBank8", "View Controls 29 - 32"},
        {"mnuAddBank9", "View Controls 33 - 36"},
        {"mnuAddBank16", "View Controls 61 - 64"},
        {"mnuSetup", "&Setup"},
        {"mnuClabels", "&Controller Labels/Activation"},
        {"mnuDataSave", "&Data Logging"},
        {"loopTuning", "&Loop Tuning"},
        {"mnuAlarms", "&Alarms Setpoints"},
        {"mnuUsers", "&Users"},
        {"mnuLogon", "&Log on.."},
        {"mnuLogOff", "Log off.."},
        {"mnuPasswords", "&Configure user access"},
        {"opMessage", "&Operator message for file"},
        {"menMode", "&Mode"},
        {"mnuSimMode", "&Simulation Mode"},
        {"mnuRtMode", "&Real Time Mode"},
        {"mnuWindow", "&Window"},
        {"mnuWindowCascade", "&Cascade"},
        {"mnuWindowTileHorizontal", "Tile &Horizontal"},
        {"mnuWindowTileVertical", "Tile &Vertical"},
        {"mnuHelp", "&Help"},
        {"mnuHelpContents", "&Contents"},
        {"mnuHelpSearchForHelpOn", "&Search For Help On..."},
        {"mnuHelpAbout", "&About "},
    };
    for (const auto& [name, caption] : items)
        QTest::newRow(name) << QString::fromLatin1(name) << QString::fromLatin1(caption);
}

void TstFrmMain::menuBarIsComplete() {
    QFETCH(QString, name);
    QFETCH(QString, caption);
    TestEnv env;
    auto* main = new FrmMain;
    QAction* item = main->menuItem(name);
    QVERIFY2(item, qPrintable(name));
    QCOMPARE(item->text(), caption);
    QStringList top;
    for (QAction* a : main->menuBar()->actions())
        top << a->text();
    QCOMPARE(top, (QStringList{"&File", "&View", "&Control Banks", "&Setup", "&Users", "&Mode",
                               "&Window", "&Help"}));
}

void TstFrmMain::menuCommandsAskTheirRight_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("right");
    QTest::newRow("mnuOpenP") << "mnuOpenP" << 0;
    QTest::newRow("mnuCloseP") << "mnuCloseP" << 1;
    QTest::newRow("mnuSaveP") << "mnuSaveP" << 2;
    QTest::newRow("mnuSavePas") << "mnuSavePas" << 2;
    QTest::newRow("mnuClabels") << "mnuClabels" << 3;
    QTest::newRow("mnuDataSave") << "mnuDataSave" << 4;
    QTest::newRow("loopTuning") << "loopTuning" << 5;
    QTest::newRow("mnuAlarms") << "mnuAlarms" << 6;
    QTest::newRow("mnuProfiler") << "mnuProfiler" << 8;
    QTest::newRow("mnuHistory") << "mnuHistory" << 9;
    QTest::newRow("mnuRtMode asks the viewer's right") << "mnuRtMode" << 9;
    QTest::newRow("mnuSimMode") << "mnuSimMode" << 10;
    QTest::newRow("mnuPasswords") << "mnuPasswords" << 11;
    QTest::newRow("opMessage") << "opMessage" << 12;
    QTest::newRow("mnuAudit") << "mnuAudit" << 19;
    QTest::newRow("mnuSingleSpRecipe") << "mnuSingleSpRecipe" << 22;
    QTest::newRow("mnuFileExit") << "mnuFileExit" << 23;
}

void TstFrmMain::menuCommandsAskTheirRight() {
    QFETCH(QString, name);
    QFETCH(int, right);
    TestEnv env;
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
    env.settings->setValue("Settings", "MainLeft", "1500");
    env.settings->setValue("Settings", "MainTop", "3000");
    env.settings->setValue("Settings", "MainWidth", "9000");
    env.settings->setValue("Settings", "MainHeight", "7500");
    auto* main = new FrmMain;
    const double tpp = twipsPerPixel(main);
    QCOMPARE(main->pos(), QPoint(qRound(1500 / tpp), qRound(3000 / tpp)));
    QCOMPARE(main->size(), QSize(qRound(9000 / tpp), qRound(7500 / tpp)));
    // Defaults when nothing is stored: 1000, 1000, 6500, 6500.
    env.settings->values.clear();
    auto* fresh = new FrmMain;
    QCOMPARE(fresh->size(), QSize(qRound(6500 / tpp), qRound(6500 / tpp)));
    delete fresh;
}

void TstFrmMain::exitAsksAndSavesPlacement() {
    TestEnv env;
    auto* main = new FrmMain;
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    main->move(200, 100);
    main->resize(800, 600);
    QSignalSpy exits(main, &FrmMain::exitRequested);
    main->menuItem("mnuFileExit")->trigger();
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QCOMPARE(env.dialogs->boxes[0].text, QStringLiteral("Exit - are you sure?"));
    QCOMPARE(env.dialogs->boxes[0].buttons, MsgButtons::YesNo);
    QCOMPARE(env.dialogs->boxes[0].title, QStringLiteral("Sorvantel"));
    QCOMPARE(exits.size(), 1);
    const double tpp = twipsPerPixel(main);
    QCOMPARE(env.settings->value("Settings", "MainWidth", ""), QString::number(qRound(800 * tpp)));
    QCOMPARE(env.settings->value("settings", "mainleft", ""),
             QString::number(qRound(main->pos().x() * tpp)));
    QVERIFY(main->mdiArea()->subWindowList().isEmpty()); // the logger was unloaded too
}

void TstFrmMain::exitAnsweredNoKeepsEverything() {
    TestEnv env;
    auto* main = new FrmMain;
    main->show();
    QSignalSpy exits(main, &FrmMain::exitRequested);
    env.dialogs->answerNext(MsgAnswer::No);
    QVERIFY(!main->close());
    QVERIFY(main->isVisible());
    QCOMPARE(exits.size(), 0);
    QVERIFY(env.settings->values.isEmpty());
}

void TstFrmMain::minimizedAtExitKeepsStoredPlacement() {
    TestEnv env;
    env.settings->setValue("Settings", "MainWidth", "7777");
    auto* main = new FrmMain;
    main->showMinimized();
    QVERIFY(main->close());
    QCOMPARE(env.settings->value("Settings", "MainWidth", ""), QStringLiteral("7777"));
    QVERIFY(env.settings->value("Settings", "MainLeft", "none") == "none");
}

void TstFrmMain::closeWithSecurityOnIsDeniedWithoutRight24() {
    TestEnv env;
    auto* main = new FrmMain;
    main->show();
    g21CFR = true;
    gUserLevel = 2;
    gAdRights.fill(1);
    gAdRights[24] = 0; // nothing in the system grants 24
    main->menuItem("mnuFileExit")->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to administrator level security!"});
    QVERIFY(main->isVisible());
}

void TstFrmMain::startScanOpensDialogAndStartsPollingAfterHalfASecond() {
    TestEnv env;
    env.modbus->manual = true;
    auto* main = new FrmMain;
    main->show();
    gControlEnabled[0] = gControlEnabled[3] = true;
    buildActiveList();
    gPollIndex = 1;
    main->timer2()->start();
    main->startScan();
    FrmScanning* scanning = main->scanning();
    QVERIFY(scanning);
    QVERIFY(scanning->isVisible());
    QCOMPARE(scanning->windowTitle(), QStringLiteral("Scanning Active Controls"));
    QCOMPARE(scanning->findChild<QLabel*>("Label1")->text(),
             QStringLiteral(
                 "Sorvantel is scanning active controllers for default settings.  Please wait!"));
    auto* bar = scanning->findChild<QProgressBar*>("pBar");
    QCOMPARE(bar->maximum(), 2);
    QCOMPARE(bar->value(), 0);
    QVERIFY(!main->timer2()->isActive());
    QVERIFY(!main->poll().readDone);
    QVERIFY(main->poll().firstScan);
    QCOMPARE(gPollIndex, qint16(0));
    QTRY_VERIFY_WITH_TIMEOUT(main->timer2()->isActive(), 2000);
    QVERIFY(main->timer3()->isActive());
    QVERIFY(main->poll().readDone);
    // A second start replaces the dialog rather than stacking another.
    main->startScan();
    QCOMPARE(main->findChildren<FrmScanning*>().size(), 1);
}

void TstFrmMain::startScanWithoutControllersDoesNothing() {
    TestEnv env;
    auto* main = new FrmMain;
    buildActiveList();
    main->timer2()->start();
    main->startScan();
    QVERIFY(!main->scanning());
    QVERIFY(main->timer2()->isActive()); // timers stay as they were
}

void TstFrmMain::answerFromBeforeTheScanStillStartsThePoll() {
    TestEnv env;
    env.modbus->manual = true;
    auto* main = new FrmMain;
    main->show();
    gControlEnabled[0] = gControlEnabled[1] = true;
    buildActiveList();
    env.modbus->nodes[1].dead = true;
    main->poll().readDone = true;
    main->poll().timer2Tick(); // a request on its way when the scan restarts
    main->startScan();
    QVERIFY(main->scanning());
    env.modbus->deliverAll(); // its failure ends the first scan at once
    QVERIFY(!main->scanning());
    // The poll does not wait for the half second of a dialog that has gone.
    QVERIFY(main->timer2()->isActive());
    QVERIFY(main->timer3()->isActive());
    QVERIFY(main->poll().readDone);
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
    QVERIFY(main->poll().readDone);
    QVERIFY(main->timer2()->isActive());
    QVERIFY(main->timer3()->isActive());
    QVERIFY(!main->scanning());
    QCOMPARE(alarms->grid()->rowCount(), 0);
}

void TstFrmMain::timer3YieldsWithBankUpdatingSet() {
    TestEnv env;
    auto* main = new FrmMain;
    bool seenDuringYield = false;
    QTimer::singleShot(0, main, [&] { seenDuringYield = gBankUpdating; });
    main->timer3Tick();
    QVERIFY(seenDuringYield);
    QVERIFY(!gBankUpdating);
}

void TstFrmMain::modeChangeRefusedWhileLogging() {
    TestEnv env;
    auto* main = new FrmMain;
    gLogging = true;
    main->menuItem("mnuSimMode")->trigger();
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Information);
    QCOMPARE(
        env.dialogs->boxes[0].text,
        QStringLiteral("Simulation or Realtime modes can not\nbe modified while logging data!"));
    QVERIFY(!gSimMode);
    QVERIFY(!main->menuItem("mnuSimMode")->isChecked());
    QVERIFY(main->menuItem("mnuRtMode")->isChecked());
}

void TstFrmMain::modeChangeMovesMarksAndRestartsScan() {
    TestEnv env;
    auto* main = new FrmMain;
    QVERIFY(main->menuItem("mnuRtMode")->isChecked()); // every start is in real time
    gControlEnabled[2] = true;
    buildActiveList();
    main->menuItem("mnuSimMode")->trigger();
    QVERIFY(gSimMode);
    QVERIFY(main->menuItem("mnuSimMode")->isChecked());
    QVERIFY(!main->menuItem("mnuRtMode")->isChecked());
    QVERIFY(main->scanning());
    // Denied: nothing moves.
    g21CFR = true;
    main->menuItem("mnuRtMode")->trigger();
    QVERIFY(gSimMode);
    QVERIFY(main->menuItem("mnuSimMode")->isChecked());
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
    main->timer3Tick();
    QVERIFY(!main->menuItem("mnuOpenP")->isEnabled());
    QVERIFY(!gBankUpdating);
}

void TstFrmMain::tilingFillsTheClientArea() {
    TestEnv env;
    auto* main = new FrmMain;
    main->resize(900, 700);
    main->show();
    QMdiSubWindow* a = main->mdiArea()->addSubWindow(new QWidget);
    QMdiSubWindow* b = main->mdiArea()->addSubWindow(new QWidget);
    QMdiSubWindow* c = main->mdiArea()->addSubWindow(new QWidget);
    a->show();
    b->show();
    c->showMinimized();
    const QSize area = main->mdiArea()->viewport()->size();
    main->menuItem("mnuWindowTileHorizontal")->trigger();
    QCOMPARE(a->geometry(), QRect(0, 0, area.width(), area.height() / 2));
    QCOMPARE(b->geometry(), QRect(0, area.height() / 2, area.width(), area.height() / 2));
    main->menuItem("mnuWindowTileVertical")->trigger();
    QCOMPARE(a->geometry(), QRect(0, 0, area.width() / 2, area.height()));
    QCOMPARE(b->geometry().left(), area.width() / 2);
    QVERIFY(c->isMinimized());
}

void TstFrmMain::missingHelpFileIsReported() {
    TestEnv env;
    auto* main = new FrmMain;
    gHelpFile = env.path("Sorvantel help.hlp");
    main->menuItem("mnuHelpContents")->trigger();
    QCOMPARE(env.dialogs->openedDocuments, QStringList{gHelpFile});
    QCOMPARE(
        env.dialogs->texts(),
        QStringList{"Unable to display Help Contents. Help is not completed for this project."});
}

QTEST_MAIN(TstFrmMain)
#include "tst_frm_main.moc"
