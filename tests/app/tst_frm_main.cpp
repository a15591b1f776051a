#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "app/startup.h"
#include "displays/trend_window.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/frm_main_display.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/indicators.h"
#include "platform/placement.h"
#include "platform/record_grid.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QAction>
#include <QApplication>
#include <QDoubleSpinBox>
#include <QFile>
#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QProgressBar>
#include <QPushButton>
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

// A part of a bank window: its name and position.
template <typename W> W* part(FrmMainDisplay* bank, const char* name, int index) {
    return bank->findChild<W*>(QString::fromLatin1(name) + QString::number(index));
}
bool lit(FrmMainDisplay* bank, const char* light, int index) {
    return part<LedRectangle>(bank, light, index)->isActive();
}
// The last request on the link: node, register and the word written.
QList<int> lastWrite(const TestEnv& env) {
    const ModbusRequest& r = env.modbus->requests.last();
    return {r.node, r.firstRegister, r.values.value(0)};
}
// A display window refuses to close during the walk of the bank windows, and silently while
// minimized; it is left shown normally.
// Inside the area's view, or filling it when maximized.
bool standsInside(QMdiArea* mdi, const QWidget* w) {
    const QRect area = mdi->viewport()->rect();
    return w->isMaximized() ? w->geometry() == area : area.contains(w->geometry());
}

bool refusesToCloseWhileBusy(const TestEnv& env, QWidget* window) {
    gBankUpdating = true;
    const bool closedInWalk = window->close();
    gBankUpdating = false;
    const qsizetype boxes = env.dialogs->boxes.size();
    window->showMinimized();
    const bool closedMinimized = window->close();
    window->showNormal();
    return !closedInWalk && !closedMinimized && env.dialogs->boxes.size() == boxes;
}
} // namespace

class TstFrmMain : public QObject {
    Q_OBJECT
private slots:
    void menuCommandsAskTheirRight_data();
    void menuCommandsAskTheirRight();
    void placementIsKeptInTwipsAndExitAsksFirst();
    void windowsOpenAndRestoreInsideTheArea();
    void scanStartsAfterHalfASecondOrAtTheFirstAnswer();
    void modeChangeMovesMarksAndRestartsScan();
    void openProjectMenuFollowsLoadedWindowsAndHelpIsReported();
    void bankWalkShowsTheStoreAndStopsEndedProfiles();
    void bankSetpointEntryAndProfileCommandsWrite();
    void trendMenuOpensOneTrendThatClosesOnlyWhenItMay();

    void secondInstanceOrMissingTagFileStopsTheStart();
    void startWithNothingToScanOrLogAndTheSettingsRead();
    void fullStartLogsAndOpensResidentWindowsAfterOneSecond();
};

void TstFrmMain::menuCommandsAskTheirRight_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("right");
    // Commands that ask through the menu table, and those that ask in code of their own.
    // Going back to real time asks the data viewer's right.
    const std::pair<const char*, int> commands[] = {
        {"mnuAudit", 19},   {"mnuOpenP", 0},      {"mnuCloseP", 1},
        {"mnuSaveP", 2},    {"mnuSavePas", 2},    {"mnuRtMode", 9},
        {"mnuSimMode", 10}, {"mnuPasswords", 11}, {"mnuFileExit", 23}};
    for (const auto& [name, right] : commands)
        QTest::newRow(name) << QString::fromLatin1(name) << right;
}

void TstFrmMain::menuCommandsAskTheirRight() {
    QFETCH(QString, name);
    QFETCH(int, right);
    TestEnv env; // a dialog the granted command opens is cancelled by its modal script
    auto* main = new FrmMain;
    g21CFR = true;
    gUserLevel = 1;
    // Every right but the one under test: the command must be denied.
    gSuRights.fill(1);
    gSuRights[right] = 0;
    env.dialogs->answerNext(MsgAnswer::No); // in case the exit question comes
    main->menuItem(name)->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to supervisor level security!"});
    env.dialogs->boxes.clear();
    gSuRights[right] = 1;
    env.dialogs->answerNext(MsgAnswer::No);
    main->menuItem(name)->trigger();
    QVERIFY(!env.dialogs->texts().contains("Access denied to supervisor level security!"));
}

void TstFrmMain::placementIsKeptInTwipsAndExitAsksFirst() {
    TestEnv env;
    const std::pair<const char*, const char*> stored[] = {
        {"MainLeft", "1500"}, {"MainTop", "3000"}, {"MainWidth", "9000"}, {"MainHeight", "7500"}};
    for (auto [key, twips] : stored)
        env.settings->setValue("Settings", key, twips);
    auto* main = new FrmMain;
    const double tpp = twipsPerPixel(main);
    QCOMPARE(main->geometry(),
             QRect(qRound(1500 / tpp), qRound(3000 / tpp), qRound(9000 / tpp), qRound(7500 / tpp)));
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    main->move(200, 100);
    main->resize(800, 600);
    // A window opened from the menu stands where its section says, not where the area would
    // have put it beside the logger.
    env.settings->setValue("Audit", "MainLeft", "1200");
    env.settings->setValue("Audit", "MainTop", "900");
    env.settings->setValue("Audit", "MainWidth", "6000");
    main->menuItem("mnuAudit")->trigger();
    auto* audit = main->mdiArea()->activeSubWindow();
    QCOMPARE(audit->pos(), QPoint(qRound(1200 / tpp), qRound(900 / tpp)));
    audit->close();
    QSignalSpy exits(main, &FrmMain::exitRequested);
    // With security on, closing asks right 24, which nothing in the system grants.
    g21CFR = true;
    gUserLevel = 2;
    gAdRights.fill(1);
    gAdRights[24] = 0;
    main->menuItem("mnuFileExit")->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to administrator level security!"});
    g21CFR = false;
    env.dialogs->answerNext(MsgAnswer::No);
    QVERIFY(!main->close() && main->isVisible() && exits.isEmpty());
    QCOMPARE(env.settings->value("Settings", "MainWidth", ""), QStringLiteral("9000"));
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);

    env.dialogs->boxes.clear();
    main->menuItem("mnuFileExit")->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Exit - are you sure?"});
    QCOMPARE(env.settings->value("Settings", "MainWidth", ""), QString::number(qRound(800 * tpp)));
    QCOMPARE(env.settings->value("settings", "mainleft", ""),
             QString::number(qRound(main->pos().x() * tpp)));
    // Exit requested once, and the logger was unloaded too.
    QVERIFY(exits.size() == 1 && main->mdiArea()->subWindowList().isEmpty());
    delete main;

    // Closed while minimized, the stored placement stays as it was.
    env.settings->values.clear();
    env.settings->setValue("Settings", "MainWidth", "7777");
    auto* minimized = new FrmMain;
    minimized->showMinimized();
    QVERIFY(minimized->close());
    QCOMPARE(env.settings->value("Settings", "MainWidth", ""), QStringLiteral("7777"));
    QCOMPARE(env.settings->value("Settings", "MainLeft", "none"), QStringLiteral("none"));
}

// Without a controller a start does nothing; a rebuilt list restarts polling at once; a start
// polls after its dialog's half second, or at once when an earlier request's answer ends it.
void TstFrmMain::windowsOpenAndRestoreInsideTheArea() {
    TestEnv env;
    gActiveList = {1, 0};
    gActiveCount = 1;
    gControlEnabled[0] = true;
    gPvTag[0] = QStringLiteral("TIC-1");
    // The logger comes in before the main window shows, at a size the main window was left at
    // that is narrower than the logger: restored, it stands inside all the same.
    for (const auto& [key, twips] : {std::pair{"MainLeft", "1000"}, {"MainTop", "1000"},
                                     {"MainWidth", "6500"}, {"MainHeight", "6500"}})
        env.settings->setValue("Settings", key, twips);
    auto* main = new FrmMain;
    QMdiArea* mdi = main->mdiArea();
    auto* logger = new FrmLogger;
    mdi->addSubWindow(logger);
    main->show();
    QVERIFY(QTest::qWaitForWindowExposed(main));
    QVERIFY(mdi->viewport()->width() < logger->width());
    logger->showMinimized();
    logger->showNormal();
    QTRY_VERIFY(logger->x() >= 0 && logger->y() >= 0);

    // Opened while another is maximized: maximized in its turn, and put back to normal, it
    // stands where its section says, its buttons within reach.
    main->resize(900, 700);
    const double tpp = twipsPerPixel(main);
    for (auto [key, twips] : {std::pair{"MainLeft", "1500"},
                              {"MainTop", "1200"},
                              {"MainWidth", "6000"},
                              {"MainHeight", "4500"}})
        env.settings->setValue("Audit", key, twips);
    logger->showMaximized();
    main->menuItem("mnuAudit")->trigger();
    QMdiSubWindow* audit = mdi->activeSubWindow();
    QVERIFY(audit != logger && standsInside(mdi, audit));
    main->menuItem("mnuAlarms")->trigger();
    QMdiSubWindow* alarms = mdi->activeSubWindow();
    QVERIFY(alarms != audit && standsInside(mdi, alarms));
    QCOMPARE(audit->geometry(),
             QRect(qRound(1500 / tpp), qRound(1200 / tpp), qRound(6000 / tpp), qRound(4500 / tpp)));
    alarms->showNormal();
    QTRY_VERIFY(!alarms->isMaximized() && standsInside(mdi, alarms));
    for (const char* name : {"CmdReadTune", "CmdWriteTune"}) {
        const auto* button = alarms->findChild<QPushButton*>(name);
        QVERIFY(mdi->viewport()->rect().contains(
            QRect(button->mapTo(mdi->viewport(), QPoint()), button->size())));
    }
    // Closed while maximized, it keeps the placement it comes back to.
    audit->showMaximized();
    QVERIFY(audit->close());
    QCOMPARE(env.settings->value("Audit", "MainWidth", ""), QStringLiteral("6000"));

    // Two banks with nothing stored do not open on top of each other.
    QVERIFY(alarms->close());
    logger->showNormal();
    QTRY_VERIFY(!logger->isMaximized());
    FrmMainDisplay* first = main->addControlBank(0, "1");
    FrmMainDisplay* second = main->addControlBank(4, "2");
    QVERIFY(!first->isMaximized() && !second->isMaximized());
    QVERIFY(first->pos() != second->pos());
    QVERIFY(standsInside(mdi, first) && standsInside(mdi, second));
    delete main;
}

void TstFrmMain::scanStartsAfterHalfASecondOrAtTheFirstAnswer() {
    TestEnv env;
    env.modbus->manual = true;
    auto* main = new FrmMain;
    main->show();
    ScanController& scan = main->scan();
    buildActiveList();
    scan.timer2()->start();
    scan.startScan();
    QVERIFY(!scan.scanning() && scan.timer2()->isActive());

    auto* alarms = new AlarmLog;
    main->mdiArea()->addSubWindow(alarms);
    alarms->grid()->setRowCount(3);
    gControlEnabled[0] = gControlEnabled[3] = true;
    gPollIndex = 1;
    rebuildActiveList();
    QCOMPARE(gActiveList, (QVector<qint16>{1, 4, 0}));
    QCOMPARE(pollRunning(main), kRunning);
    QVERIFY(gPollIndex == 0 && !scan.scanning() && alarms->grid()->rowCount() == 0);

    gPollIndex = 1;
    scan.startScan();
    QVERIFY(scan.scanning() && scan.scanning()->isVisible());
    auto* bar = scan.scanning()->findChild<QProgressBar*>("pBar");
    QCOMPARE(QList<int>({bar->maximum(), bar->value(), gPollIndex}), QList<int>({2, 0, 0}));
    QCOMPARE(pollRunning(main), (QList<bool>{false, false, false}));
    QVERIFY(scan.poll().firstScan);
    QTRY_VERIFY_WITH_TIMEOUT(scan.timer2()->isActive(), 2000);
    QCOMPARE(pollRunning(main), kRunning);

    // A request on its way when the scan starts again: a second start replaces the dialog
    // rather than stacking another, and the request's failure ends the first scan at once.
    scan.poll().timer2Tick();
    scan.startScan();
    QVERIFY(scan.scanning() && main->findChildren<FrmScanning*>().size() == 1);
    env.modbus->deliverAll();
    QVERIFY(!scan.scanning());
    QCOMPARE(pollRunning(main), kRunning); // no wait for the half second of a gone dialog
}

void TstFrmMain::modeChangeMovesMarksAndRestartsScan() {
    TestEnv env;
    auto* main = new FrmMain;
    // Simulation flag, its mark, the real-time mark.
    auto marks = [main] {
        return QList<bool>{gSimMode, main->menuItem("mnuSimMode")->isChecked(),
                           main->menuItem("mnuRtMode")->isChecked()};
    };
    QCOMPARE(marks(), QList<bool>({false, false, true})); // every start is in real time
    gControlEnabled[2] = true;
    buildActiveList();
    gLogging = true;
    main->menuItem("mnuSimMode")->trigger();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Simulation or Realtime modes can not\nbe modified while logging data!"});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Information);
    QCOMPARE(marks(), QList<bool>({false, false, true}));
    QVERIFY(!main->scan().scanning());

    gLogging = false;
    main->menuItem("mnuSimMode")->trigger();
    QCOMPARE(marks(), QList<bool>({true, true, false}));
    QVERIFY(main->scan().scanning());
    g21CFR = true; // denied: nothing moves
    main->menuItem("mnuRtMode")->trigger();
    QCOMPARE(marks(), QList<bool>({true, true, false}));
}

void TstFrmMain::openProjectMenuFollowsLoadedWindowsAndHelpIsReported() {
    TestEnv env;
    auto* main = new FrmMain;
    QAction* open = main->menuItem("mnuOpenP");
    main->mdiArea()->addSubWindow(new QWidget);
    main->mdiArea()->addSubWindow(new QWidget);
    main->updateOpenProjectMenu();
    QVERIFY(open->isEnabled());
    gLogging = true;
    main->updateOpenProjectMenu();
    QVERIFY(!open->isEnabled());
    gLogging = false;
    main->mdiArea()->addSubWindow(new QWidget);
    // Timer 3 updates the menu and yields to the event loop with the bank flag set.
    bool seenDuringYield = false;
    QTimer::singleShot(0, main, [&] { seenDuringYield = gBankUpdating; });
    main->timer3Tick();
    QVERIFY(!open->isEnabled() && seenDuringYield && !gBankUpdating);

    gHelpFile = env.path("Sorvantel help.hlp");
    main->menuItem("mnuHelpContents")->trigger();
    QCOMPARE(env.dialogs->openedDocuments, QStringList{gHelpFile});
    QCOMPARE(
        env.dialogs->texts(),
        QStringList{"Unable to display Help Contents. Help is not completed for this project."});
}

void TstFrmMain::bankWalkShowsTheStoreAndStopsEndedProfiles() {
    TestEnv env;
    auto* main = new FrmMain;
    main->show();
    // Bank 2: a K20 first, a K40 in alarm, a disabled controller, a K8 at the end of its profile.
    const int types[] = {2, 0, 0, 1};
    for (int i = 0; i < 4; ++i) {
        gControlType[4 + i] = static_cast<qint16>(types[i]);
        gControlEnabled[4 + i] = i != 2;
        gPvTag[4 + i] = QStringLiteral("TAG-%1").arg(5 + i);
    }
    gPV[4] = 12.5;
    gPV[5] = QStringLiteral("150.0");
    gDecimal[4] = gDecimal[5] = 1;
    gAlarmState[5] = 2; // alarm 2 alone
    gProfState[4] = 3;
    gProfState[7] = 17;
    g21CFR = true;
    FrmMainDisplay* bank = main->addControlBank(4, "2");
    QVERIFY(!main->menuItem("mnuAddBank2")->isEnabled());
    QCOMPARE(bank->windowTitle(), QStringLiteral("Controls - Bank 2"));
    main->timer3Tick();
    // The disabled one dark, its tag shown.
    QCOMPARE((QStringList{part<SevenSegmentDisplay>(bank, "CPV", 0)->shownText(),
                          part<SevenSegmentDisplay>(bank, "CPV", 1)->shownText(),
                          part<SevenSegmentDisplay>(bank, "CPV", 2)->shownText(),
                          part<QLabel>(bank, "Clabel", 2)->text()}),
             (QStringList{"12.5", "150.0", "", "TAG-7"}));
    const bool alarmLit = lit(bank, "AlarmLEDX1", 1);
    QVERIFY(part<LedRectangle>(bank, "AlarmLEDX1", 1)->isVisible() &&
            !part<LedRectangle>(bank, "AlarmLEDX1", 0)->isVisible());
    main->timer3Tick();
    QCOMPARE(lit(bank, "AlarmLEDX1", 1), !alarmLit); // it blinks
    // The K20 first: its own profile shows; the K8 at state 17 is stopped by the system, with
    // no audit line.
    QVERIFY(lit(bank, "ProfRun", 0) && lit(bank, "ProfStop", 3));
    QCOMPARE((QStringList{part<QLabel>(bank, "currSeg", 0)->text(),
                          part<QLabel>(bank, "currSeg", 3)->text()}),
             (QStringList{"3", "End"}));
    QTRY_COMPARE(lastWrite(env), (QList<int>{8, 1082, 0}));
    QVERIFY(!QFile::exists(env.path("Audit/3-14-2026 Audit.atr")));
    // A bank that begins with a K40 gets no profile update, for its profilers neither.
    gControlType[1] = 2;
    gProfState[1] = 3;
    FrmMainDisplay* bank1 = main->addControlBank(0, "1");
    main->timer3Tick();
    QVERIFY(!lit(bank1, "ProfRun", 1) && part<LedRectangle>(bank1, "ProfRun", 1)->isVisible());
    // Closed when it may, it frees the menu item and keeps its place but not its size.
    QVERIFY(refusesToCloseWhileBusy(env, bank));
    QVERIFY(bank->close());
    QTRY_VERIFY(main->menuItem("mnuAddBank2")->isEnabled());
    QVERIFY(env.settings->values.contains("controlbanks/bank 4/mainleft") &&
            !env.settings->values.contains("controlbanks/bank 4/mainwidth"));
}

void TstFrmMain::bankSetpointEntryAndProfileCommandsWrite() {
    TestEnv env;
    auto* main = new FrmMain;
    main->show();
    QVERIFY(QTest::qWaitForWindowActive(main));
    gControlType[5] = 1;
    gControlEnabled[4] = gControlEnabled[5] = true;
    gScale[4] = 0.1F;
    gDecimal[4] = 1;
    gSP[4] = 100.0;
    gPvTag[0] = QStringLiteral("TIC-1");
    gPvTag[4] = QStringLiteral("TIC-5");
    FrmMainDisplay* bank = main->addControlBank(4, "2");
    main->timer3Tick();
    // A click on the setpoint opens the entry on the shown value; the operator types over it
    // straight away, the walk going on meanwhile leaves the typing alone, and Return writes.
    QTest::mouseClick(part<SevenSegmentDisplay>(bank, "CSP", 0), Qt::LeftButton);
    auto* entry = part<QDoubleSpinBox>(bank, "SPwrite", 0);
    QCOMPARE(entry->value(), 100.0);
    QTest::keyClicks(QApplication::focusWidget(), "10");
    main->timer3Tick();
    QTest::keyClicks(QApplication::focusWidget(), "3.5");
    QCOMPARE((QList<QVariant>{entry->isVisible(), entry->text()}),
             (QList<QVariant>{true, "103.5"}));
    QTest::keyClick(entry, Qt::Key_Return);
    QTRY_COMPARE(lastWrite(env), (QList<int>{5, 1, 21034}));
    QVERIFY(entry->isHidden());
    // With security on the line names the tag of row 0, not of the bank's row: a known quirk.
    g21CFR = true;
    gSuRights[Right::ChangeSetpoints] = gSuRights[Right::SignDataFiles] = 1;
    gUserLevel = 1;
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    env.modals.login("jdoe", "pw");
    bank->beginSetpointEntry(0);
    bank->acceptSetpoint(0);
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             QStringList{"SP change TIC-1 from 100 to 100"});
    // A run command on the K8 is written to 1082 and shown at once.
    env.modals.login("jdoe", "pw");
    bank->profileCommand(1, FrmMainDisplay::ProfileCommand::Run);
    QTRY_COMPARE(lastWrite(env), (QList<int>{6, 1082, 1}));
    QVERIFY(lit(bank, "ProfRun", 1) && !lit(bank, "ProfStop", 1) && gProfState[5] == 1);
    // In simulation the audited action writes nothing.
    const qsizetype sent = env.modbus->requests.size();
    gSimMode = true;
    env.modals.login("jdoe", "pw");
    bank->profileCommand(1, FrmMainDisplay::ProfileCommand::Stop);
    QTest::qWait(20);
    QVERIFY(env.modbus->requests.size() == sent && gProfState[5] == 0);
}

// A trend opens centred at its first size and guards its menu item; it will not close during the
// walk of the bank windows or while minimized; its close and the exit keep its file.
void TstFrmMain::trendMenuOpensOneTrendThatClosesOnlyWhenItMay() {
    TestEnv env;
    TrendConfig config;
    config.minutes = 1;
    config.codes = {0};
    config.channels = {{QStringLiteral("TIC-101"), 255}};
    QVERIFY(writeTrendConfig(env.path("Trend1.trn"), config));
    auto* main = new FrmMain;
    main->resize(1000, 800);
    main->show();
    main->menuItem("mnuTrend1")->trigger();
    auto* trend = qobject_cast<Ctrend1*>(main->mdiArea()->activeSubWindow());
    QVERIFY(trend && trend->tag() == QStringLiteral("Trend1"));
    QVERIFY(!main->menuItem("mnuTrend1")->isEnabled() && main->menuItem("mnuTrend2")->isEnabled());
    const double tpp = twipsPerPixel(main);
    QCOMPARE(trend->size(), QSize(qRound(7380 / tpp), qRound(3930 / tpp)));
    const QSize area = main->mdiArea()->viewport()->size();
    QCOMPARE(trend->pos().x(), qRound(qRound((area.width() * tpp - 7380) / 2) / tpp));

    QVERIFY(refusesToCloseWhileBusy(env, trend));
    QFile::remove(env.path("Trend1.trn"));
    const int width = trend->width();
    QVERIFY(trend->close());
    QTRY_VERIFY(main->menuItem("mnuTrend1")->isEnabled());
    QCOMPARE(readTrendConfig(env.path("Trend1.trn"))->codes, QVector<qint16>{0});
    QCOMPARE(env.settings->value("Trends\\Ctrend1", "MainWidth", ""),
             QString::number(qRound(width * tpp)));

    // The exit unloads a trend like any window, and the trend writes its file on the way.
    main->menuItem("mnuTrend1")->trigger();
    QFile::remove(env.path("Trend1.trn"));
    env.dialogs->answerNext(MsgAnswer::Yes);
    QVERIFY(main->close());
    QVERIFY(readTrendConfig(env.path("Trend1.trn")));
    delete main;
}

void TstFrmMain::secondInstanceOrMissingTagFileStopsTheStart() {
    TestEnv env;
    env.writeTags({{1, 0, true}});
    env.guard->otherRunning = true;
    // A splash deletes itself once started, so it lives on the heap.
    QCOMPARE((new FrmSplash)->load(), FrmSplash::LoadResult::AlreadyRunning);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Sorvantel is already running! Please check the\ntaskbar or background "
                         "window for active version."});
    QVERIFY(gPvTag[0].isEmpty()); // the tag file was never read

    env.guard->otherRunning = false;
    env.dialogs->boxes.clear();
    QVERIFY(QFile::remove(env.path("tags.tgn")));
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Failed);
    QVERIFY(splash.initFailed);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Sorvantel has encountered and error while initializing data.\n"
                         "This is probably due to a file that is missing.\n"
                         "Please re-install Sorvantel from the CD or orig source."});
    QCOMPARE((std::pair{env.dialogs->boxes[0].icon, env.dialogs->boxes[0].title}),
             (std::pair{MsgIcon::Critical, QString("Sorvantel")}));
    QTest::qWait(50);
    QVERIFY(env.modbus->requests.isEmpty() && !frmMain()->isVisible());
}

// Logging on start-up asked, but no channel marked: no log this run, the setting kept. With no
// controller the workstation comes up without scanning. The other settings take their defaults,
// and a stored value is read only where it reads.
void TstFrmMain::startWithNothingToScanOrLogAndTheSettingsRead() {
    TestEnv env;
    env.writeTags({});
    env.settings->setValue("DataSave", "gLogOnStartup", "1");
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    QVERIFY(gLogOnStartup == 0 && !gLogging);
    QCOMPARE(env.settings->value("DataSave", "gLogOnStartup", ""), QStringLiteral("1"));
    for (int i = 0; i < 10; ++i)
        splash.timer1Tick();
    FrmMain* main = frmMain();
    QTimer* poll = main->scan().timer2();
    QVERIFY(main->isVisible() && !main->scan().scanning() && !poll->isActive());
    QVERIFY(env.dialogs->boxes.isEmpty());
    QCOMPARE((QList<int>{gSaveInterval, gAutoLog, poll->interval(), gUserLevel}),
             (QList<int>{1, 0, 500, 0}));
    QVERIFY(!gComBeep && !gBeepOnAlarm && !gBeepUntilAck && !gAlmLogging && !g21CFR);
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));

    // The two spellings of the section meet; booleans read from True and from -1.
    env.settings->setValue("Cstatus", "gComBeep", "True");
    env.settings->setValue("CStatus", "CupdateTime", "250");
    env.settings->setValue("CStatus", "beepOnAlarm", "-1");
    env.settings->setValue("DataSave", "SaveInterval", "10");
    env.settings->setValue("Levels\\security", "21CFR", "True");
    loadSettings(*main);
    QVERIFY(gComBeep && gBeepOnAlarm && g21CFR);
    QCOMPARE((QList<int>{poll->interval(), gSaveInterval}), (QList<int>{250, 10}));

    // A value that does not read, or a zero interval, leaves what was there.
    env.settings->setValue("DataSave", "SaveInterval", "often");
    env.settings->setValue("Cstatus", "CupdateTime", "fast");
    env.settings->setValue("CStatus", "gComBeep", "maybe");
    loadSettings(*main);
    QVERIFY(gComBeep);
    QCOMPARE((QList<int>{gSaveInterval, poll->interval()}), (QList<int>{10, 250}));
    env.settings->setValue("Cstatus", "CupdateTime", "0");
    loadSettings(*main);
    QCOMPARE(poll->interval(), 250);
}

void TstFrmMain::fullStartLogsAndOpensResidentWindowsAfterOneSecond() {
    TestEnv env;
    env.writeTags({{1, 0, true, "TIC-1"}, {3, 1, true, "RMP-3", true}});
    env.modbus->manual = true;
    env.settings->setValue("DataSave", "gLogOnStartup", "1");
    env.settings->setValue("Levels\\security", "21CFR", "True");
    // The alarm log's placement: two values stored, the others from their defaults.
    env.settings->setValue("AlarmLog", "MainLeft", "2000");
    env.settings->setValue("AlarmLog", "MainHeight", "3000");
    // A main window that holds it: a placement past the area's edge is brought inside.
    env.settings->setValue("Settings", "MainWidth", "15000");
    env.settings->setValue("Settings", "MainHeight", "12000");
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    FrmMain* main = frmMain();
    QCOMPARE(main->windowTitle(), QStringLiteral("Brenlock Controls Sorvantel"));
    QVERIFY(QFile::exists(env.path("Alarm Logs/3-14-2026 AlmLog.alf")));
    // With a channel marked the log starts under a name from the clock, and the trail says so.
    const QString file = env.path("Log Files/3-14-2026_10H_0M_0S.slg");
    QCOMPARE((std::pair{gLogging, gDataFileName}), (std::pair{true, file}));
    QCOMPARE(plainLinesOf(file).size(), 2);
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             (QStringList{"System Started", "Data file started. " + file}));

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
    QTRY_COMPARE(alarms->pos(), QPoint(qRound(2000 / tpp), qRound(1125 / tpp)));
    // At least its old first width, and as wide as its columns need.
    QCOMPARE(alarms->height(), qRound(3000 / tpp));
    QVERIFY(alarms->width() >= qRound(5650 / tpp));
    // While the plant is being changed no alarm is processed.
    main->scan().suspend();
    QVERIFY(!alarms->timer1()->isActive());
    main->scan().resume();
    QVERIFY(alarms->timer1()->isActive());
}

QTEST_MAIN(TstFrmMain)
#include "tst_frm_main.moc"
