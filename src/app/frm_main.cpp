#include "frm_main.h"

#include "app/frm_guide.h"
#include "app/main_menu.h"
#include "app/open_windows.h"
#include "app/status_panels.h"
#include "displays/project_file.h"
#include "displays/trend_window.h"
#include "plant/child_window.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/frm_main_display.h"
#include "plant/plant_notices.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/mqtt_link.h"
#include "platform/placement.h"
#include "platform/settings_keys.h"
#include "platform/shrinking_panel.h"
#include "publish/publisher.h"
#include "records/alarm_log.h"
#include "records/audit_trail.h"
#include "records/data_logger.h"
#include "records/record_seals.h"
#include "security/login.h"
#include "security/rights.h"
#include "security/session.h"

#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QLabel>
#include <QLocale>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QScreen>
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
    // No alarm processing while the plant is being changed.
    connect(m_scan, &ScanController::suspended, this, [](bool on) {
        if (AlarmLog* log = alarmLog(); log && log->timer1()) {
            if (on)
                log->timer1()->stop();
            else
                log->timer1()->start();
        }
    });
    m_dataSaveTimer = new QTimer(this);
    m_dataSaveTimer->setObjectName(QStringLiteral("DataSaveTimer"));
    m_dataSaveTimer->setInterval(kDataSaveInterval);
    installDataSaveTimer(m_dataSaveTimer);

    auto* bar = statusBar();
    bar->setObjectName(QStringLiteral("sbStatusBar"));
    m_statusPanel = new QLabel(QStringLiteral("Status"), bar);
    m_statusPanel->setObjectName(QStringLiteral("statusPanel"));
    m_datePanel = new QLabel(bar);
    m_timePanel = new QLabel(bar);
    m_sealPanel = new ShrinkingPanel(bar);
    m_sealPanel->setText(QStringLiteral("Records not sealed"));
    m_sealPanel->setObjectName(QStringLiteral("sealPanel"));
    for (QLabel* l : {m_statusPanel, m_datePanel, m_timePanel})
        l->setFrameStyle(QFrame::Panel | QFrame::Sunken);
    // The status text is read whole (its label asks for all of it); the panels beside it give way.
    bar->addWidget(m_statusPanel, 1);
    m_panels = new StatusPanels(bar);
    bar->addPermanentWidget(m_sealPanel);
    bar->addPermanentWidget(m_datePanel);
    bar->addPermanentWidget(m_timePanel);
    m_clockTimer = new QTimer(this);
    m_clockTimer->setInterval(1000);
    connect(m_clockTimer, &QTimer::timeout, this, &FrmMain::updateClockPanels);
    m_clockTimer->start();
    updateClockPanels();

    // Publishing starts once the plant is loaded; until then it holds nothing.
    m_publisher = new Publisher(makeMosquittoLink(nullptr), this);

    buildMenus();

    // A first start fills most of the screen: the plant is what the operator came to see.
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRect free = screen ? screen->availableGeometry() : QRect(0, 0, 1024, 768);
    const double tpp = twipsPerPixel(this);
    const QSize first = free.size() * 0.9;
    restorePlacement(this, Sections::Settings,
                     PlacementTwips{qRound((free.x() + (free.width() - first.width()) / 2) * tpp),
                                    qRound((free.y() + (free.height() - first.height()) / 2) * tpp),
                                    qRound(first.width() * tpp), qRound(first.height() * tpp)});
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

QAction* FrmMain::menuItem(const QString& name) const {
    return findChild<QAction*>(name);
}

void FrmMain::buildMenus() {
    QHash<QString, QMenu*> menus;
    for (const MenuEntry& e : mainMenuTable()) {
        QMenu* parent = menus.value(e.parent);
        if (e.kind == MenuEntry::Separator) {
            parent->addSeparator()->setObjectName(e.name);
            continue;
        }
        if (e.kind == MenuEntry::Menu) {
            QMenu* menu = parent ? parent->addMenu(e.caption) : menuBar()->addMenu(e.caption);
            menu->setObjectName(e.name);
            menu->menuAction()->setObjectName(e.name);
            menus.insert(e.name, menu);
            continue;
        }
        QAction* action = parent->addAction(e.caption);
        action->setObjectName(e.name);
        action->setCheckable(e.kind == MenuEntry::Mark);
        connect(action, &QAction::triggered, this, [this, action, &e] {
            // A mark follows what the command did, not the click.
            if (e.kind == MenuEntry::Mark)
                action->setChecked(!action->isChecked());
            if (e.right >= 0 && !checkAccess(e.right))
                return;
            if (e.handler)
                e.handler(*this);
        });
    }
    for (const auto& [name, key] : menuShortcuts())
        if (QAction* action = menuItem(name))
            action->setShortcut(key);
    // The guide's key works in every window; over a modal dialog it opens a guide of the dialog.
    menuItem(QStringLiteral("mnuHelpGuide"))->setShortcutContext(Qt::ApplicationShortcut);
    qApp->installEventFilter(new GuideKeyOverDialogs(this));
    // Each bank item names the controllers it shows, as they are when the menu opens.
    for (const char* group : {"Cgroup1", "Cgroup2"}) {
        QMenu* menu = menus.value(QLatin1String(group));
        menu->setToolTipsVisible(true);
        connect(menu, &QMenu::aboutToShow, this, &FrmMain::updateBankTips);
    }
    updateBankTips();
    m_windowMenu = menus.value(QStringLiteral("mnuWindow"));
    connect(m_windowMenu, &QMenu::aboutToShow, this, &FrmMain::rebuildWindowMenu);
    rebuildWindowMenu();
}

void FrmMain::updateBankTips() {
    for (int bank = 1; bank <= 16; ++bank) {
        QStringList tags;
        for (int row = 4 * (bank - 1); row < 4 * bank; ++row)
            if (gControlEnabled[size_t(row)])
                tags << gPvTag[size_t(row)];
        if (QAction* action = menuItem(QStringLiteral("mnuAddBank%1").arg(bank)))
            action->setToolTip(tags.isEmpty() ? tr("No scanned controller in this bank")
                                              : tags.join(QStringLiteral(", ")));
    }
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

void FrmMain::showGuideHere() {
    QWidget* window = QApplication::activeWindow();
    if (!window || window == this)
        window = m_mdi->activeSubWindow();
    showGuide(m_mdi, window ? guideSectionFor(window) : QStringLiteral("start"));
}

void FrmMain::updateClockPanels() {
    const QDateTime now = currentDateTime();
    m_datePanel->setText(QLocale::system().toString(now.date(), QLocale::ShortFormat));
    m_timePanel->setText(now.time().toString(QStringLiteral("hh:mm:ss")));
    m_panels->refresh();
}

void FrmMain::watchSealing(SealClient* client) {
    auto show = [this](bool on, const QString& why) {
        m_sealPanel->setText(on ? QStringLiteral("Records sealed")
                                : QStringLiteral("Records not sealed"));
        m_sealPanel->setToolTip(on ? QString() : why);
        const QString line = on ? QStringLiteral("Record sealing started")
                                : QStringLiteral("Record sealing stopped: ") + why;
        if (FrmLogger* logger = frmLogger())
            logger->appendLine(line);
        if (g21CFR)
            systemAuditLine(line);
    };
    connect(client, &SealClient::sealingChanged, this, show);
    if (client->announced())
        show(client->sealing(), QStringLiteral("no sealing helper answers"));
}

QString FrmMain::sealText() const {
    return m_sealPanel->text();
}

void FrmMain::setStatusText(const QString& text) {
    m_statusPanel->setText(text);
    // The panels beside it may leave it too narrow for its longest text: all of it on hover.
    m_statusPanel->setToolTip(text);
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
    // The logging half of the day's end: a new automatic file at midnight.
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

void FrmMain::showSingleWindow(const QString& menuItemName, ChildWindow* window,
                               const std::function<void()>& place) {
    window->guardMenuItem(menuItem(menuItemName));
    m_mdi->addSubWindow(window);
    // Placed while hidden and normal: beside a maximized window the area maximizes it as it
    // shows, and this is where it comes back to.
    if (place)
        place();
    else
        window->settlePlacement();
    window->show();
    m_mdi->setActiveSubWindow(window);
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

Ctrend1* FrmMain::showTrend(const QString& name, qint16 trendNumber) {
    if (trendNumber >= 1 && trendNumber <= 8)
        menuItem(QStringLiteral("mnuTrend") + QString::number(trendNumber))->setEnabled(false);
    Ctrend1* trend = ::showTrend(m_mdi, name, trendNumber);
    if (trendNumber >= 1 && trendNumber <= 8)
        trend->guardMenuItem(menuItem(QStringLiteral("mnuTrend") + QString::number(trendNumber)));
    return trend;
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
    saveOpenWindows(m_mdi);
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
    // The station says it goes, and waits a moment for the broker to have it.
    m_publisher->stop(500);
    event->accept();
    emit exitRequested();
}
