#include "frm_main.h"

#include "app/frm_about.h"
#include "plant/child_window.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/frm_main_display.h"
#include "plant/plant_notices.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/placement.h"
#include "platform/settings_keys.h"
#include "records/alarm_log.h"
#include "records/audit_trail.h"
#include "records/data_logger.h"
#include "records/frm_audit_view.h"
#include "security/frm_passwords.h"
#include "security/login.h"
#include "security/rights.h"
#include "security/session.h"

#include <QActionGroup>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QLabel>
#include <QLocale>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QStatusBar>
#include <QTimer>

namespace {
QPointer<FrmMain> gMainInstance;

constexpr int kDataSaveInterval = 1000;
// The main window, the logger and the alarm log are always loaded.
constexpr int kResidentWindows = 3;
} // namespace

FrmMain* frmMain() {
    return gMainInstance.data();
}

FrmMain::FrmMain(QWidget* parent) : QMainWindow(parent) {
    setObjectName(QStringLiteral("frmMain"));
    setWindowTitle(QStringLiteral("Brenlock Sorvantel"));
    gMainInstance = this;
    setSigningOwner(this);
    // The plant tells the window what to show.
    connect(&plantNotices(), &PlantNotices::statusText, this, &FrmMain::setStatusText);

    m_mdi = new QMdiArea(this);
    m_mdi->setObjectName(QStringLiteral("mdiArea"));
    m_mdi->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_mdi->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_mdi->setBackground(QColor(128, 128, 128));
    setCentralWidget(m_mdi);

    m_scan = new ScanController(this);
    m_scan->setDialogHost(m_mdi);
    connect(m_scan->timer3(), &QTimer::timeout, this, &FrmMain::timer3Tick);
    connect(m_scan, &ScanController::pollingRestarted, this, [] {
        if (AlarmLog* log = alarmLog(); log && log->grid())
            log->clearAlarms();
    });
    m_dataSaveTimer = new QTimer(this);
    m_dataSaveTimer->setObjectName(QStringLiteral("DataSaveTimer"));
    m_dataSaveTimer->setInterval(kDataSaveInterval);

    auto* bar = statusBar();
    bar->setObjectName(QStringLiteral("sbStatusBar"));
    m_statusPanel = new QLabel(QStringLiteral("Status"), bar);
    m_statusPanel->setObjectName(QStringLiteral("statusPanel"));
    m_datePanel = new QLabel(bar);
    m_timePanel = new QLabel(bar);
    for (QLabel* l : {m_statusPanel, m_datePanel, m_timePanel})
        l->setFrameStyle(QFrame::Panel | QFrame::Sunken);
    bar->addWidget(m_statusPanel, 1);
    bar->addPermanentWidget(m_datePanel);
    bar->addPermanentWidget(m_timePanel);
    m_clockTimer = new QTimer(this);
    m_clockTimer->setInterval(1000);
    connect(m_clockTimer, &QTimer::timeout, this, &FrmMain::updateClockPanels);
    m_clockTimer->start();
    updateClockPanels();

    buildMenus();

    restorePlacement(this, Sections::Settings, PlacementTwips{1000, 1000, 6500, 6500});
    // No right is in force yet and the active list is empty: this only sets the marks.
    mnuRtMode_Click();
}

FrmMain::~FrmMain() {
    // Child windows that go with the window may still tell it things; by then it is no more.
    disconnect(&plantNotices(), nullptr, this, nullptr);
    // The child windows still run their own close handling while the base classes go; by then
    // there is no main window for them to reach.
    gMainInstance = nullptr;
}

QAction* FrmMain::addItem(QMenu* menu, const QString& name, const QString& caption, int right) {
    QAction* action = menu->addAction(caption);
    action->setObjectName(name);
    if (right >= 0)
        connect(action, &QAction::triggered, this, [right] { checkAccess(right); });
    return action;
}

QAction* FrmMain::menuItem(const QString& name) const {
    return findChild<QAction*>(name);
}

void FrmMain::buildMenus() {
    QMenuBar* bar = menuBar();
    auto addMenu = [bar](const QString& name, const QString& caption) {
        QMenu* menu = bar->addMenu(caption);
        menu->setObjectName(name);
        menu->menuAction()->setObjectName(name);
        return menu;
    };
    auto addSeparator = [](QMenu* menu, const QString& name) {
        menu->addSeparator()->setObjectName(name);
    };
    auto addSubMenu = [](QMenu* menu, const QString& name, const QString& caption) {
        QMenu* sub = menu->addMenu(caption);
        sub->setObjectName(name);
        sub->menuAction()->setObjectName(name);
        return sub;
    };

    // The windows of these commands arrive with their own subsystems; until then the commands
    // ask their right and stop there.
    QMenu* file = addMenu(QStringLiteral("mnuFile"), QStringLiteral("&File"));
    addItem(file, QStringLiteral("mnuOpenP"), QStringLiteral("&Open Project"), Right::OpenProject);
    addItem(file, QStringLiteral("mnuCloseP"), QStringLiteral("&Close Project"),
            Right::CloseProject);
    addSeparator(file, QStringLiteral("mnuFileDash"));
    addItem(file, QStringLiteral("mnuSaveP"), QStringLiteral("S&ave Project"), Right::SaveProject);
    addItem(file, QStringLiteral("mnuSavePas"), QStringLiteral("S&ave Project As.."),
            Right::SaveProject);
    addSeparator(file, QStringLiteral("mnuSaveDash"));
    QAction* exitItem = addItem(file, QStringLiteral("mnuFileExit"), QStringLiteral("E&xit"));
    connect(exitItem, &QAction::triggered, this, &FrmMain::mnuFileExit_Click);

    QMenu* view = addMenu(QStringLiteral("mnuView"), QStringLiteral("&View"));
    addItem(view, QStringLiteral("mnuDigValues"), QStringLiteral("&Digital Values"));
    QAction* alarmItem = addItem(view, QStringLiteral("mnuAlarmLog"), QStringLiteral("&Alarm Log"));
    connect(alarmItem, &QAction::triggered, this, [this] {
        if (AlarmLog* log = alarmLog()) {
            log->showNormal();
            m_mdi->setActiveSubWindow(log);
            log->raise();
        }
    });
    addSeparator(view, QStringLiteral("mnuDigDash"));
    QMenu* trends =
        addSubMenu(view, QStringLiteral("mnuTrends"), QStringLiteral("&Control Trends"));
    for (int i = 1; i <= 8; ++i)
        addItem(trends, QStringLiteral("mnuTrend%1").arg(i), QStringLiteral("Trend %1").arg(i));
    addSeparator(view, QStringLiteral("mnuBarDash"));
    QMenu* bars = addSubMenu(view, QStringLiteral("mnuBars"), QStringLiteral("&Bar Graphs"));
    for (int i = 1; i <= 4; ++i)
        addItem(bars, QStringLiteral("mnuBarGraph%1").arg(i),
                QStringLiteral("Bar Graphs (%1 To %2)").arg(16 * (i - 1) + 1).arg(16 * i));
    addSeparator(view, QStringLiteral("mnuProfDash"));
    addItem(view, QStringLiteral("mnuProfiler"), QStringLiteral("&Profiler"), Right::Profiler);
    addSeparator(view, QStringLiteral("mnuDash1"));
    addItem(view, QStringLiteral("mnuSingleSpRecipe"), QStringLiteral("&Single Setpoint Recipes"),
            Right::SingleSetpointRecipes);
    addSeparator(view, QStringLiteral("mnuDash"));
    addItem(view, QStringLiteral("mnuHistory"), QStringLiteral("&Data File Viewer"),
            Right::DataViewer);
    connect(addItem(view, QStringLiteral("mnuAudit"), QStringLiteral("&Audit Trail Viewer")),
            &QAction::triggered, this, &FrmMain::mnuAudit_Click);

    QMenu* banks = addMenu(QStringLiteral("mnuControlBanks"), QStringLiteral("&Control Banks"));
    // "32 to 64", not 33: the caption stands as the operators know it.
    QMenu* group1 =
        addSubMenu(banks, QStringLiteral("Cgroup1"), QStringLiteral("Controllers 1 to 32"));
    QMenu* group2 =
        addSubMenu(banks, QStringLiteral("Cgroup2"), QStringLiteral("Controllers 32 to 64"));
    for (int bank = 1; bank <= 16; ++bank) {
        QAction* item =
            addItem(bank <= 8 ? group1 : group2, QStringLiteral("mnuAddBank%1").arg(bank),
                    QStringLiteral("View Controls %1 - %2").arg(4 * (bank - 1) + 1).arg(4 * bank));
        connect(item, &QAction::triggered, this,
                [this, bank] { addControlBank(4 * (bank - 1), QString::number(bank)); });
    }

    QMenu* setup = addMenu(QStringLiteral("mnuSetup"), QStringLiteral("&Setup"));
    addItem(setup, QStringLiteral("mnuClabels"), QStringLiteral("&Controller Labels/Activation"),
            Right::ActivateControls);
    addSeparator(setup, QStringLiteral("mnuDashS2"));
    addItem(setup, QStringLiteral("mnuDataSave"), QStringLiteral("&Data Logging"),
            Right::DataLogging);
    addSeparator(setup, QStringLiteral("mnuDashS3"));
    addItem(setup, QStringLiteral("loopTuning"), QStringLiteral("&Loop Tuning"), Right::LoopTuning);
    addSeparator(setup, QStringLiteral("mnuDashS4"));
    addItem(setup, QStringLiteral("mnuAlarms"), QStringLiteral("&Alarms Setpoints"),
            Right::AlarmSetpoints);

    QMenu* users = addMenu(QStringLiteral("mnuUsers"), QStringLiteral("&Users"));
    connect(addItem(users, QStringLiteral("mnuLogon"), QStringLiteral("&Log on..")),
            &QAction::triggered, this, [this] { logOnFromMenu(this); });
    connect(addItem(users, QStringLiteral("mnuLogOff"), QStringLiteral("Log off..")),
            &QAction::triggered, this, &logOffFromMenu);
    addSeparator(users, QStringLiteral("mnuDashS12"));
    connect(
        addItem(users, QStringLiteral("mnuPasswords"), QStringLiteral("&Configure user access")),
        &QAction::triggered, this, [this] { showUserAccessDialog(this); });
    addItem(users, QStringLiteral("opMessage"), QStringLiteral("&Operator message for file"),
            Right::OperatorMessage);

    QMenu* mode = addMenu(QStringLiteral("menMode"), QStringLiteral("&Mode"));
    QAction* sim = addItem(mode, QStringLiteral("mnuSimMode"), QStringLiteral("&Simulation Mode"));
    QAction* rt = addItem(mode, QStringLiteral("mnuRtMode"), QStringLiteral("&Real Time Mode"));
    sim->setCheckable(true);
    rt->setCheckable(true);
    // The marks are set by the commands, not by the click itself.
    connect(sim, &QAction::triggered, this, [this, sim] {
        sim->setChecked(!sim->isChecked());
        mnuSimMode_Click();
    });
    connect(rt, &QAction::triggered, this, [this, rt] {
        rt->setChecked(!rt->isChecked());
        mnuRtMode_Click();
    });

    m_windowMenu = addMenu(QStringLiteral("mnuWindow"), QStringLiteral("&Window"));
    connect(m_windowMenu, &QMenu::aboutToShow, this, &FrmMain::rebuildWindowMenu);
    rebuildWindowMenu();

    QMenu* help = addMenu(QStringLiteral("mnuHelp"), QStringLiteral("&Help"));
    connect(addItem(help, QStringLiteral("mnuHelpContents"), QStringLiteral("&Contents")),
            &QAction::triggered, this, &FrmMain::showHelp);
    connect(addItem(help, QStringLiteral("mnuHelpSearchForHelpOn"),
                    QStringLiteral("&Search For Help On...")),
            &QAction::triggered, this, &FrmMain::showHelp);
    addSeparator(help, QStringLiteral("mnuHelpBar0"));
    connect(addItem(help, QStringLiteral("mnuHelpAbout"), QStringLiteral("&About ")),
            &QAction::triggered, this, [this] {
                FrmAbout about(this);
                about.exec();
            });
}

void FrmMain::rebuildWindowMenu() {
    m_windowMenu->clear();
    connect(m_windowMenu->addAction(QStringLiteral("&Cascade")), &QAction::triggered, this,
            &FrmMain::arrangeCascade);
    m_windowMenu->actions().constLast()->setObjectName(QStringLiteral("mnuWindowCascade"));
    connect(m_windowMenu->addAction(QStringLiteral("Tile &Horizontal")), &QAction::triggered, this,
            &FrmMain::arrangeTileHorizontal);
    m_windowMenu->actions().constLast()->setObjectName(QStringLiteral("mnuWindowTileHorizontal"));
    connect(m_windowMenu->addAction(QStringLiteral("Tile &Vertical")), &QAction::triggered, this,
            &FrmMain::arrangeTileVertical);
    m_windowMenu->actions().constLast()->setObjectName(QStringLiteral("mnuWindowTileVertical"));
    const QList<QMdiSubWindow*> windows = m_mdi->subWindowList();
    if (!windows.isEmpty())
        m_windowMenu->addSeparator();
    int n = 1;
    for (QMdiSubWindow* w : windows) {
        QAction* a =
            m_windowMenu->addAction(QStringLiteral("&%1 %2").arg(n++).arg(w->windowTitle()));
        a->setCheckable(true);
        a->setChecked(w == m_mdi->activeSubWindow());
        connect(a, &QAction::triggered, this, [this, w = QPointer<QMdiSubWindow>(w)] {
            if (!w)
                return;
            if (w->isMinimized())
                w->showNormal();
            m_mdi->setActiveSubWindow(w);
        });
    }
}

void FrmMain::showHelp() {
    if (!dialogs().openDocument(gHelpFile))
        msgBox(QStringLiteral(
            "Unable to display Help Contents. Help is not completed for this project."));
}

void FrmMain::updateClockPanels() {
    const QDateTime now = currentDateTime();
    m_datePanel->setText(QLocale::system().toString(now.date(), QLocale::ShortFormat));
    m_timePanel->setText(now.time().toString(QStringLiteral("hh:mm:ss")));
}

void FrmMain::setStatusText(const QString& text) {
    m_statusPanel->setText(text);
}

QString FrmMain::statusText() const {
    return m_statusPanel->text();
}

void FrmMain::updateCaption() {
    setWindowTitle(kMainCaption + gProjectTitle);
}

namespace {
void changeMode(FrmMain* main, bool simulation) {
    if (!main->scan().changeMode(simulation))
        return;
    main->menuItem(QStringLiteral("mnuSimMode"))->setChecked(simulation);
    main->menuItem(QStringLiteral("mnuRtMode"))->setChecked(!simulation);
}
} // namespace

void FrmMain::mnuSimMode_Click() {
    changeMode(this, true);
}

void FrmMain::mnuRtMode_Click() {
    changeMode(this, false);
}

void FrmMain::mnuFileExit_Click() {
    if (!checkAccess(Right::QuitProgram))
        return;
    close();
}

void FrmMain::timer3Tick() {
    gBankUpdating = true;
    midnightRollover();
    updateOpenProjectMenu();
    QCoreApplication::processEvents();
    // Every open child window takes what it shows from the store; none can close meanwhile.
    for (QMdiSubWindow* w : m_mdi->subWindowList()) {
        if (auto* child = qobject_cast<ChildWindow*>(w))
            child->refresh();
    }
    gBankUpdating = false;
}

void FrmMain::midnightRollover() {
    if (!gLogging)
        return;
    const QTime now = currentDateTime().time();
    const QString hm = QStringLiteral("%1:%2").arg(now.hour()).arg(now.minute());
    if (hm == QLatin1String("0:0") && gAutoLog == 1 && !m_midnightDone) {
        // Not built yet: closing the day's data file and opening the next belongs to the data
        // logger, which does not exist so far; gLogging is never set until it does.
        m_midnightDone = true;
    } else if (hm == QLatin1String("0:1") && m_midnightDone) {
        m_midnightDone = false;
    }
}

void FrmMain::updateOpenProjectMenu() {
    // The main window, its child windows and the scanning dialog.
    const int loaded =
        1 + static_cast<int>(m_mdi->subWindowList().size()) + (m_scan->scanning() ? 1 : 0);
    menuItem(QStringLiteral("mnuOpenP"))->setEnabled(!(loaded > kResidentWindows || gLogging));
}

namespace {
// Lays the visible child windows out in one row or one column, filling the client area.
void tileInLine(QMdiArea* mdi, bool stacked) {
    QList<QMdiSubWindow*> windows;
    for (QMdiSubWindow* w : mdi->subWindowList())
        if (w->isVisible() && !w->isMinimized())
            windows << w;
    if (windows.isEmpty())
        return;
    const QRect area = mdi->viewport()->rect();
    const int n = static_cast<int>(windows.size());
    for (int i = 0; i < n; ++i) {
        QMdiSubWindow* w = windows[i];
        if (w->isMaximized())
            w->showNormal();
        if (stacked) {
            const int h = area.height() / n;
            w->setGeometry(0, i * h, area.width(), h);
        } else {
            const int wd = area.width() / n;
            w->setGeometry(i * wd, 0, wd, area.height());
        }
    }
}
} // namespace

void FrmMain::showSingleWindow(const QString& menuItemName, ChildWindow* window) {
    window->guardMenuItem(menuItem(menuItemName));
    m_mdi->addSubWindow(window);
    window->show();
    m_mdi->setActiveSubWindow(window);
}

void FrmMain::mnuAudit_Click() {
    if (!checkAccess(Right::AuditTrailViewer))
        return;
    showSingleWindow(QStringLiteral("mnuAudit"), new FrmAuditView);
}

FrmMainDisplay* FrmMain::addControlBank(int firstRow, const QString& bankText) {
    auto* bank = new FrmMainDisplay(firstRow, bankText);
    bank->guardMenuItem(menuItem(QStringLiteral("mnuAddBank") + bankText));
    m_mdi->addSubWindow(bank);
    // Centred by default, the left from the window's height rather than its width: the bank
    // windows have always come up there.
    const double tpp = twipsPerPixel(this);
    const QSize client = m_mdi->viewport()->size();
    bank->restorePlacement({qRound((client.width() - bank->height()) / 2 * tpp),
                            qRound((client.height() - bank->height()) / 2 * tpp), 0, 0});
    bank->show();
    return bank;
}

void FrmMain::arrangeCascade() {
    m_mdi->cascadeSubWindows();
}

void FrmMain::arrangeTileHorizontal() {
    tileInLine(m_mdi, true);
}

void FrmMain::arrangeTileVertical() {
    tileInLine(m_mdi, false);
}

void FrmMain::closeEvent(QCloseEvent* event) {
    if (m_closing) {
        event->accept();
        return;
    }
    if (!checkAccess(Right::CloseMainWindow)) {
        event->ignore();
        return;
    }
    if (msgBox(QStringLiteral("Exit - are you sure?"), MsgIcon::Question, MsgButtons::YesNo) !=
        MsgAnswer::Yes) {
        event->ignore();
        return;
    }
    m_closing = true;
    savePlacement(this, Sections::Settings);
    m_scan->stop();
    for (QMdiSubWindow* w : m_mdi->subWindowList()) {
        if (auto* child = qobject_cast<ChildWindow*>(w))
            child->allowClose();
        // Unloaded now, not at the next turn of the event loop: the process ends right after.
        if (w->close())
            delete w;
    }
    if (g21CFR)
        systemAuditLine(QStringLiteral("System Shutdown"));
    event->accept();
    emit exitRequested();
}
