// The operator's day: a controller that stops answering keeps its last values, marked as held
// on every display and counted in the main window's panel, until it answers again; the windows of
// the last exit open again at start; the menus' keys and the banks' tags; the guide at F1; the
// status bar's panels.

#include "app/frm_guide.h"
#include "app/frm_main.h"
#include "app/main_menu.h"
#include "app/open_windows.h"
#include "app/status_panels.h"
#include "displays/bar_graph.h"
#include "displays/digital_values.h"
#include "displays/trend_file.h"
#include "displays/trend_window.h"
#include "plant/comm_errors.h"
#include "plant/frm_main_display.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "plant/value_history.h"
#include "platform/bar_display.h"
#include "platform/indicators.h"
#include "platform/plot.h"
#include "platform/record_grid.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "records/frm_op_message.h"
#include "security/session.h"
#include "support/test_env.h"

#include <QAction>
#include <QApplication>
#include <QFile>
#include <QHelpEvent>
#include <QLabel>
#include <QMdiArea>
#include <QMenu>
#include <QScrollBar>
#include <QSet>
#include <QStatusBar>
#include <QTest>
#include <QTextBrowser>
#include <QToolTip>
#include <cmath>

namespace {
// Two K40s at nodes 1 and 2, with a PV of 205.0 and 6.50 (one and two decimals).
void twoControllers(TestEnv& env) {
    env.modbus->manual = true;
    for (int node : {1, 2}) {
        gControlEnabled[node - 1] = true;
        gControlType[node - 1] = K40Series;
        gPvTag[node - 1] = QStringLiteral("TIC-10%1").arg(node);
        gSpTag[node - 1] = gPvTag[node - 1] + QStringLiteral(".SP");
    }
    // PV, SP, output, alarm word, status word (scaled, its decimals in the high byte).
    env.modbus->setRegisters(1, 3, 129, {22049, 22049, 2500, 0, 0x1100});
    env.modbus->setRegisters(2, 3, 129, {20649, 20649, 2500, 0, 0x1200});
    buildActiveList();
}

SevenSegmentDisplay* pvDisplay(FrmMainDisplay* bank, int position) {
    return bank->findChild<SevenSegmentDisplay*>(QStringLiteral("CPV%1").arg(position));
}
} // namespace

class TstOperatorDay : public QObject {
    Q_OBJECT
private slots:
    void heldValuesAreMarkedOnEveryDisplayUntilTheyAnswerAgain();
    void historyKeepsAnHourAndALateTrendStartsFromIt();
    void fitValueAxisTakesThePointsInViewOnly();
    void startReopensTheLastWindowsOrTheFirstScannedBank();
    void menusCarryKeysAndTheBanksTheirTags();
    void f1OpensTheGuideAtTheSectionOfTheWindow();
    void panelsSayWhoIsOnAndWhatIsLogged();
};

void TstOperatorDay::heldValuesAreMarkedOnEveryDisplayUntilTheyAnswerAgain() {
    TestEnv env;
    twoControllers(env);
    TrendConfig c;
    c.plotTrend = 0;
    c.tickMs = 1000;
    c.ySpan = 250;
    c.xSpanDays = 1.0 / 24;
    c.codes = {0, 1};
    c.channels = {{QStringLiteral("TIC-101"), 255}, {QStringLiteral("TIC-102"), 255}};
    QVERIFY(writeTrendConfig(env.path(QStringLiteral("Trend1.trn")), c));
    auto* main = new FrmMain;
    main->show();
    PollCycle& poll = main->scan().poll();
    poll.readDone = true;
    auto cycle = [&](int ticks) {
        env.tickPoll(poll, ticks);
    };
    FrmMainDisplay* bank = main->addControlBank(0, "1");
    DigitalValues* values = showDigitalValues(main->mdiArea());
    FrmBarGraph* bars = showBarGraph(main->mdiArea(), 0);
    Ctrend1* trend = showTrend(main->mdiArea(), QStringLiteral("Trend1"), 1);
    auto look = [&] {
        main->timer3Tick();
        values->timer1Tick();
        bars->timer1Tick();
        trend->timer1Tick();
        main->panels()->refresh();
    };
    // Before the first reads nothing is fresh, and nothing is counted as not answering.
    look();
    QVERIFY(pvDisplay(bank, 0)->isHeld() && pvDisplay(bank, 1)->isHeld());
    QCOMPARE(main->panels()->qualityText(), QStringLiteral("All answering"));
    QCOMPARE(trend->iPlotX->channelNote(0), QStringLiteral("no reading yet"));

    cycle(2);
    look();
    QCOMPARE((QStringList{values->Grid1->text(0, 1), values->Grid1->text(1, 1),
                          values->Grid1->text(1, 4), pvDisplay(bank, 1)->shownText()}),
             (QStringList{"205.0", "6.50", "Good", "6.50"}));
    QVERIFY(!pvDisplay(bank, 0)->isHeld() && !pvDisplay(bank, 1)->isHeld());
    QVERIFY(bars->statusText().contains(" : = 205.0  --  "));

    // Node 2 stops answering: one lost reply is no mark, the second is.
    env.modbus->nodes[2].dead = true;
    cycle(6);
    QCOMPARE(gFailedReads[1], qint16(1));
    look();
    QVERIFY(!pvDisplay(bank, 1)->isHeld());
    cycle(6);
    look();
    QVERIFY(isNotAnswering(1) && !isNotAnswering(0));
    // Its last values stay, marked.
    QCOMPARE(pvDisplay(bank, 1)->shownText(), QStringLiteral("6.50"));
    QVERIFY(pvDisplay(bank, 1)->isHeld() && !pvDisplay(bank, 0)->isHeld());
    QCOMPARE((QStringList{values->Grid1->text(1, 1), values->Grid1->text(1, 4),
                          values->Grid1->text(0, 4)}),
             (QStringList{"6.50", "Not answering", "Good"}));
    QVERIFY(bars->Bar1X1->isBarHeld(2) && bars->Bar1X1->isBarHeld(3) &&
            !bars->Bar1X1->isBarHeld(0));
    QCOMPARE(main->panels()->qualityText(), QStringLiteral("Not answering: 1, TIC-102"));
    QVERIFY(main->panels()->qualityWarns());
    const QVector<QPointF> held = trend->iPlotX->points(1);
    QVERIFY(!held.isEmpty() && std::isnan(held.last().y()));
    QCOMPARE(trend->iPlotX->channelNote(1), QStringLiteral("not answering"));
    QCOMPARE(trend->iPlotX->channelTitle(1), QStringLiteral("TIC-102"));
    // A second look adds no second break.
    trend->timer1Tick();
    QCOMPARE(trend->iPlotX->points(1).size(), held.size());

    // It answers again: the marks go.
    env.modbus->nodes[2].dead = false;
    cycle(6);
    look();
    QVERIFY(!pvDisplay(bank, 1)->isHeld() && !main->panels()->qualityWarns());
    QCOMPARE(values->Grid1->text(1, 4), QStringLiteral("Good"));
    QVERIFY(!bars->Bar1X1->isBarHeld(2));
    QCOMPARE(trend->iPlotX->channelNote(1), QString());
    QCOMPARE(trend->iPlotX->points(1).last().y(), 6.5);
}

void TstOperatorDay::historyKeepsAnHourAndALateTrendStartsFromIt() {
    TestEnv env;
    // Reads four a second for two hours: the ring keeps the last hour, thinned, and stays bounded.
    ValueHistory history;
    const QDateTime t0 = env.clock->time;
    for (int i = 0; i < 4 * 7200; ++i)
        history.record(3, t0.addMSecs(250 * i), float(i), 0, 0);
    const QVector<ValueHistory::Point> kept = history.since(3, t0);
    QVERIFY(kept.size() <= ValueHistory::kCapacity);
    QVERIFY(kept.last().ms - kept.first().ms >= ValueHistory::kKeepMs - 1000);
    QCOMPARE(kept.last().pv, float(4 * 7200 - 4)); // the last read kept is at most a second old
    QCOMPARE(history.bytes(), size_t(ValueHistory::kCapacity) * 16); // 4 MiB for 64 rows

    // Weeks on, or a clock set a month back: times stay exact, what no longer fits goes.
    for (const int days : {30, -30}) {
        const QDateTime at = t0.addDays(days).addMSecs(7);
        history.record(3, at, 1.5f, 2, 3);
        history.record(4, at.addMSecs(900), 2.5f, 2, 3);
        const QVector<ValueHistory::Point> moved = history.since(3, t0.addDays(-40));
        QCOMPARE(moved.size(), 1);
        QCOMPARE(moved.first().ms, at.toMSecsSinceEpoch());
        QCOMPARE(history.since(4, t0.addDays(-40)).first().ms, at.toMSecsSinceEpoch() + 900);
    }

    // A minute of reads through the poll, with a lost reply and then an outage of node 2.
    twoControllers(env);
    TrendConfig c;
    c.tickMs = 1000;
    c.ySpan = 250;
    c.xSpanDays = 1.0 / 24;
    c.codes = {0, 1, 101};
    c.channels = {{"TIC-101", 255}, {"TIC-102", 255}, {"TIC-102.SP", 255}};
    QVERIFY(writeTrendConfig(env.path(QStringLiteral("Trend2.trn")), c));
    auto* main = new FrmMain;
    PollCycle& poll = main->scan().poll();
    poll.readDone = true;
    for (int s = 0; s < 60; ++s) {
        if (s == 40)
            env.modbus->nodes[2].dead = true;
        for (int i = 0; i < 2; ++i) {
            poll.timer2Tick();
            env.modbus->deliverAll();
        }
        env.clock->time = env.clock->time.addSecs(1);
    }
    Ctrend1* trend = showTrend(main->mdiArea(), QStringLiteral("Trend2"), 2);
    const QVector<QPointF> pv1 = trend->iPlotX->points(0);
    const QVector<QPointF> pv2 = trend->iPlotX->points(1);
    // Node 1's from the first second on (the outage slows its reads, as a failed read stalls
    // the next).
    QVERIFY(pv1.size() > 40);
    QCOMPARE(pv1.first(), QPointF(Plot::toDays(t0), 205.0));
    // Node 2's pens: its reads up to the outage, then the break.
    QVERIFY(pv2.size() >= 40 && pv2.size() <= 42 && std::isnan(pv2.last().y()));
    QCOMPARE(trend->iPlotX->points(2).size(), pv2.size());
    delete main;
}

void TstOperatorDay::fitValueAxisTakesThePointsInViewOnly() {
    TestEnv env;
    Plot plot;
    for (int i = 0; i < 2; ++i)
        plot.addChannel();
    plot.setXSpan(1);
    plot.setXMin(10);
    plot.setYMin(0);
    plot.setYSpan(100);
    QVERIFY(!plot.fitValueAxis()); // nothing in view: the axis as it was
    QCOMPARE(QList<double>({plot.yMin(), plot.ySpan()}), QList<double>({0, 100}));
    plot.addPoints(0, {10.2, 10.5, 10.8, 12}, {40, std::nan(""), 60, 500});
    plot.addPoints(1, {9, 10.6}, {-300, 50});
    plot.setXMin(10);
    QVERIFY(plot.fitValueAxis());
    QCOMPARE(QList<double>({plot.yMin(), plot.ySpan()}), QList<double>({39, 22}));
}

void TstOperatorDay::startReopensTheLastWindowsOrTheFirstScannedBank() {
    TestEnv env;
    gControlEnabled[5] = true; // bank 2 alone has a scanned controller
    {
        // A first start: no record of the last exit.
        auto* main = new FrmMain;
        main->show();
        reopenWindows(*main);
        QCOMPARE(openDisplayWindows(main->mdiArea()), QStringList{"mnuAddBank2"});
        main->menuItem("mnuDigValues")->trigger();
        main->menuItem("mnuBarGraph2")->trigger();
        main->menuItem("mnuTrend3")->trigger();
        saveOpenWindows(main->mdiArea());
        delete main;
    }
    QCOMPARE(env.settings->values.value("settings/openwindows"),
             QStringLiteral("mnuAddBank2 mnuDigValues mnuBarGraph2 mnuTrend3"));
    {
        auto* main = new FrmMain;
        main->show();
        reopenWindows(*main);
        QCOMPARE(openDisplayWindows(main->mdiArea()),
                 (QStringList{"mnuAddBank2", "mnuDigValues", "mnuBarGraph2", "mnuTrend3"}));
        delete main;
    }
    // A window that needs a right stays shut, and a record of nothing opens nothing.
    env.settings->values.insert("settings/openwindows", "mnuHistory mnuAddBank9");
    auto* main = new FrmMain;
    main->show();
    reopenWindows(*main);
    QCOMPARE(openDisplayWindows(main->mdiArea()), QStringList{"mnuAddBank9"});
    QVERIFY(main->mdiArea()->subWindowList().size() == 1);
    saveOpenWindows(main->mdiArea());
    main->mdiArea()->closeAllSubWindows();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    saveOpenWindows(main->mdiArea());
    reopenWindows(*main);
    QVERIFY(main->mdiArea()->subWindowList().isEmpty());
}

void TstOperatorDay::menusCarryKeysAndTheBanksTheirTags() {
    TestEnv env;
    gControlEnabled[4] = gControlEnabled[6] = true;
    gPvTag[4] = QStringLiteral("TIC-5");
    gPvTag[6] = QStringLiteral("FIC-7");
    auto* main = new FrmMain;
    QSet<QString> keys;
    for (const auto& [name, key] : menuShortcuts()) {
        QCOMPARE(main->menuItem(name)->shortcut(), key);
        keys << key.toString();
    }
    QCOMPARE(keys.size(), int(menuShortcuts().size()));
    QCOMPARE(main->menuItem("mnuAddBank2")->shortcut().toString(), QStringLiteral("Ctrl+2"));
    emit main->findChild<QMenu*>("Cgroup1")->aboutToShow();
    QCOMPARE((QStringList{main->menuItem("mnuAddBank2")->toolTip(),
                          main->menuItem("mnuAddBank3")->toolTip()}),
             (QStringList{"TIC-5, FIC-7", "No scanned controller in this bank"}));
    delete main;
}

void TstOperatorDay::f1OpensTheGuideAtTheSectionOfTheWindow() {
    TestEnv env;
    auto* main = new FrmMain;
    main->show();
    QVERIFY(QTest::qWaitForWindowActive(main));
    // Each section a window opens the guide at is in the guide.
    QFile html(QStringLiteral(":/guide/guide.html"));
    QVERIFY(html.open(QIODevice::ReadOnly));
    const QString guide = QString::fromUtf8(html.readAll());
    for (const QString& section : guideSections())
        QVERIFY2(guide.contains(QStringLiteral("name=\"%1\"").arg(section)), qPrintable(section));
    main->menuItem("mnuDigValues")->trigger();
    QTest::keyClick(main, Qt::Key_F1);
    auto* guideWindow = main->findChild<FrmGuide*>();
    QVERIFY(guideWindow);
    QCOMPARE(guideWindow->section(), QStringLiteral("digital-values"));
    QVERIFY(guideWindow->browser()->toPlainText().contains("Digital Values"));
    // From the guide itself, its own section; the menu item opens the one window again.
    main->menuItem("mnuHelpGuide")->trigger();
    QCOMPARE(guideWindow->section(), QStringLiteral("help"));
    QCOMPARE(main->findChildren<FrmGuide*>().size(), 1);

    // A modal dialog holds the input away from the main window: F1 opens a guide of its own,
    // once however often it is pressed, and the main window's guide stays where it was.
    auto* dialog = new FrmOpMessage(main);
    dialog->show();
    QVERIFY(QApplication::activeModalWidget() == dialog);
    QTest::keyClick(dialog, Qt::Key_F1);
    QTest::keyClick(dialog, Qt::Key_F1);
    const auto overs = dialog->findChildren<QTextBrowser*>(QStringLiteral("guideText"));
    QCOMPARE(overs.size(), 1);
    QVERIFY(overs.first()->isVisible());
    QVERIFY(overs.first()->verticalScrollBar()->value() > 0); // at "data-logging", not the top
    QCOMPARE(guideWindow->section(), QStringLiteral("help"));
    delete dialog;
    delete main;
}

void TstOperatorDay::panelsSayWhoIsOnAndWhatIsLogged() {
    TestEnv env;
    auto* main = new FrmMain;
    StatusPanels* panels = main->panels();
    QCOMPARE(
        (QStringList{panels->loggingText(), panels->userText(), panels->alarmsText()}),
        (QStringList{"Not logging", "Sorvantel System, security off", "No alarms to acknowledge"}));
    gLogging = true;
    gDataFileName = env.path("Log Files/batch7.slg");
    gUserId = QStringLiteral("jdoe");
    g21CFR = true;
    auto* alarms = new AlarmLog;
    main->mdiArea()->addSubWindow(alarms);
    gActiveList = {1, 0};
    gActiveCount = 1;
    gPvTag[0] = QStringLiteral("TIC-1");
    gAlarmState[0] = 1;
    alarms->timer1Tick();
    panels->refresh();
    QCOMPARE(
        (QStringList{panels->loggingText(), panels->userText(), panels->alarmsText()}),
        (QStringList{"Logging to batch7.slg", "jdoe, security on", "Alarms: 1 unacknowledged"}));
    QVERIFY(panels->alarmsWarn() && !panels->qualityWarns());

    // On a screen of 1280 pixels, when a fault and a long file name come while it is shown:
    // the fault text and the warnings are read whole, and the panels beside them give way.
    main->resize(1152, 700);
    main->show();
    QVERIFY(QTest::qWaitForWindowExposed(main));
    gDataFileName = env.path("Log Files/3-14-2026_9H_5M_12S batch 7 line 2 rerun.slg");
    panels->refresh();
    auto* status = main->findChild<QLabel*>("statusPanel");
    status->setText(kStatusCommError);
    QTest::qWait(50);
    QCOMPARE(main->width(), 1152);
    QVERIFY(main->statusBar()->minimumSizeHint().width() <= main->width()); // every panel in view
    QVERIFY(status->contentsRect().width() >=
            status->fontMetrics().horizontalAdvance(kStatusCommError));
    auto* logging = main->findChild<QLabel*>("loggingPanel");
    QVERIFY(logging->width() < logging->sizeHint().width());
    auto* alarmsPanel = main->findChild<QLabel*>("alarmsPanel"); // a warning stays whole
    QVERIFY(alarmsPanel->contentsRect().width() >=
            alarmsPanel->fontMetrics().horizontalAdvance(alarmsPanel->text()));
    auto* user = main->findChild<QLabel*>("userPanel"); // cut, it shows itself whole on hover
    QVERIFY(user->contentsRect().width() < user->fontMetrics().horizontalAdvance(user->text()));
    QHelpEvent tip(QEvent::ToolTip, {2, 2}, user->mapToGlobal(QPoint(2, 2)));
    QCoreApplication::sendEvent(user, &tip);
    QVERIFY(QToolTip::isVisible());
    QCOMPARE(QToolTip::text(), QStringLiteral("jdoe, security on"));
    gLogging = false;
    delete main;
}

QTEST_MAIN(TstOperatorDay)
#include "tst_operator_day.moc"
