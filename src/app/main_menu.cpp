#include "main_menu.h"

#include "app/frm_about.h"
#include "app/frm_main.h"
#include "control/frm_alarm_settings.h"
#include "control/frm_profile.h"
#include "control/frm_single_sp.h"
#include "control/frm_tune_settings.h"
#include "displays/bar_graph.h"
#include "displays/digital_values.h"
#include "displays/project_file.h"
#include "plant/child_window.h"
#include "plant/frm_control_setup.h"
#include "plant/frm_link_statistics.h"
#include "publish/frm_publishing.h"
#include "publish/publisher.h"
#include "records/alarm_log.h"
#include "records/frm_audit_view.h"
#include "records/frm_history.h"
#include "records/frm_logging_setup.h"
#include "records/frm_op_message.h"
#include "security/frm_passwords.h"
#include "security/login.h"
#include "security/rights.h"

#include <QAction>
#include <QMdiArea>

namespace {
using Handler = std::function<void(FrmMain&)>;

// A window that lives from its menu command to its close, one at a time.
template <typename Window> Handler single(const QString& item) {
    return [item](FrmMain& main) {
        main.showSingleWindow(item, new Window);
    };
}

// A project command names the caption the main window takes when it changes.
void takeCaption(FrmMain& main, const std::optional<QString>& caption) {
    if (caption)
        main.setWindowTitle(*caption);
}

std::vector<MenuEntry> buildTable() {
    using E = MenuEntry;
    std::vector<MenuEntry> t;
    auto menu = [&t](const QString& parent, const QString& name, const QString& caption) {
        t.push_back({E::Menu, parent, name, caption});
    };
    auto item = [&t](const QString& parent, const QString& name, const QString& caption, int right,
                     Handler handler = {}) {
        t.push_back({E::Command, parent, name, caption, right, std::move(handler)});
    };
    auto dash = [&t](const QString& parent, const QString& name) {
        t.push_back({E::Separator, parent, name, {}});
    };
    const QString file = QStringLiteral("mnuFile");
    const QString view = QStringLiteral("mnuView");
    const QString setup = QStringLiteral("mnuSetup");
    const QString users = QStringLiteral("mnuUsers");
    const QString mode = QStringLiteral("menMode");
    const QString help = QStringLiteral("mnuHelp");

    // Commands with a right and no handler belong to windows still to come: until then they
    // ask their right and stop there.
    menu({}, file, QStringLiteral("&File"));
    item(file, QStringLiteral("mnuOpenP"), QStringLiteral("&Open Project"), Right::OpenProject,
         [](FrmMain& main) { takeCaption(main, openProject()); });
    item(file, QStringLiteral("mnuCloseP"), QStringLiteral("&Close Project"), Right::CloseProject,
         [](FrmMain& main) { takeCaption(main, closeProject(main.mdiArea())); });
    dash(file, QStringLiteral("mnuFileDash"));
    item(file, QStringLiteral("mnuSaveP"), QStringLiteral("S&ave Project"), Right::SaveProject,
         [](FrmMain& main) { takeCaption(main, saveProject()); });
    item(file, QStringLiteral("mnuSavePas"), QStringLiteral("S&ave Project As.."),
         Right::SaveProject, [](FrmMain& main) { takeCaption(main, saveProjectAs()); });
    dash(file, QStringLiteral("mnuSaveDash"));
    item(file, QStringLiteral("mnuFileExit"), QStringLiteral("E&xit"), -1,
         [](FrmMain& main) { main.mnuFileExit_Click(); });

    menu({}, view, QStringLiteral("&View"));
    item(view, QStringLiteral("mnuDigValues"), QStringLiteral("&Digital Values"), -1,
         [](FrmMain& main) { showDigitalValues(main.mdiArea()); });
    item(view, QStringLiteral("mnuAlarmLog"), QStringLiteral("&Alarm Log"), -1, [](FrmMain&) {
        if (AlarmLog* log = alarmLog())
            log->bringForward();
    });
    item(view, QStringLiteral("mnuLinkStatistics"), QStringLiteral("&Link Statistics"), -1,
         [](FrmMain& main) { showLinkStatistics(main.mdiArea()); });
    dash(view, QStringLiteral("mnuDigDash"));
    menu(view, QStringLiteral("mnuTrends"), QStringLiteral("&Control Trends"));
    for (int i = 1; i <= 8; ++i)
        item(QStringLiteral("mnuTrends"), QStringLiteral("mnuTrend%1").arg(i),
             QStringLiteral("Trend %1").arg(i), -1,
             [i](FrmMain& main) { main.showTrend(QStringLiteral("Trend%1").arg(i), qint16(i)); });
    dash(view, QStringLiteral("mnuBarDash"));
    menu(view, QStringLiteral("mnuBars"), QStringLiteral("&Bar Graphs"));
    for (int i = 1; i <= 4; ++i)
        item(QStringLiteral("mnuBars"), QStringLiteral("mnuBarGraph%1").arg(i),
             QStringLiteral("Bar Graphs (%1 To %2)").arg(16 * (i - 1) + 1).arg(16 * i), -1,
             [i](FrmMain& main) {
                 const QString name = QStringLiteral("mnuBarGraph%1").arg(i);
                 main.menuItem(name)->setEnabled(false);
                 showBarGraph(main.mdiArea(), qint16(16 * (i - 1)))
                     ->guardMenuItem(main.menuItem(name));
             });
    dash(view, QStringLiteral("mnuProfDash"));
    item(view, QStringLiteral("mnuProfiler"), QStringLiteral("&Profiler"), Right::Profiler,
         single<FrmProfile>(QStringLiteral("mnuProfiler")));
    dash(view, QStringLiteral("mnuDash1"));
    item(view, QStringLiteral("mnuSingleSpRecipe"), QStringLiteral("&Single Setpoint Recipes"),
         Right::SingleSetpointRecipes, single<FrmSingleSP>(QStringLiteral("mnuSingleSpRecipe")));
    dash(view, QStringLiteral("mnuDash"));
    item(view, QStringLiteral("mnuHistory"), QStringLiteral("&Data File Viewer"), Right::DataViewer,
         single<FrmHistory>(QStringLiteral("mnuHistory")));
    item(view, QStringLiteral("mnuAudit"), QStringLiteral("&Audit Trail Viewer"),
         Right::AuditTrailViewer, single<FrmAuditView>(QStringLiteral("mnuAudit")));

    menu({}, QStringLiteral("mnuControlBanks"), QStringLiteral("&Control Banks"));
    // "32 to 64", not 33: the caption stands as the operators know it.
    menu(QStringLiteral("mnuControlBanks"), QStringLiteral("Cgroup1"),
         QStringLiteral("Controllers 1 to 32"));
    menu(QStringLiteral("mnuControlBanks"), QStringLiteral("Cgroup2"),
         QStringLiteral("Controllers 32 to 64"));
    for (int bank = 1; bank <= 16; ++bank)
        item(bank <= 8 ? QStringLiteral("Cgroup1") : QStringLiteral("Cgroup2"),
             QStringLiteral("mnuAddBank%1").arg(bank),
             QStringLiteral("View Controls %1 - %2").arg(4 * (bank - 1) + 1).arg(4 * bank), -1,
             [bank](FrmMain& main) { main.addControlBank(4 * (bank - 1), QString::number(bank)); });

    menu({}, setup, QStringLiteral("&Setup"));
    item(setup, QStringLiteral("mnuClabels"), QStringLiteral("&Controller Labels/Activation"),
         Right::ActivateControls, [](FrmMain& main) { showControlSetup(&main); });
    dash(setup, QStringLiteral("mnuDashS2"));
    item(setup, QStringLiteral("mnuDataSave"), QStringLiteral("&Data Logging"), Right::DataLogging,
         [](FrmMain& main) { showLoggingSetup(&main); });
    dash(setup, QStringLiteral("mnuDashS3"));
    item(setup, QStringLiteral("loopTuning"), QStringLiteral("&Loop Tuning"), Right::LoopTuning,
         [](FrmMain& main) {
             if (!controllersEnabledOrSay())
                 return;
             auto* window = new FrmTuneSettings;
             main.showSingleWindow(QStringLiteral("loopTuning"), window,
                                   [&main, window] { window->placeInArea(main.mdiArea()); });
         });
    dash(setup, QStringLiteral("mnuDashS4"));
    item(setup, QStringLiteral("mnuAlarms"), QStringLiteral("&Alarms Setpoints"),
         Right::AlarmSetpoints, [](FrmMain& main) {
             if (!controllersEnabledOrSay())
                 return;
             auto* window = new FrmAlarmSettings;
             main.showSingleWindow(QStringLiteral("mnuAlarms"), window,
                                   [window] { window->centreInArea(); });
         });
    dash(setup, QStringLiteral("mnuDashS5"));
    item(setup, QStringLiteral("mnuPublishing"), QStringLiteral("&Publishing"), Right::Publishing,
         [](FrmMain& main) { showPublishing(main.publisher(), &main); });

    menu({}, users, QStringLiteral("&Users"));
    item(users, QStringLiteral("mnuLogon"), QStringLiteral("&Log on.."), -1,
         [](FrmMain& main) { logOnFromMenu(&main); });
    item(users, QStringLiteral("mnuLogOff"), QStringLiteral("Log off.."), -1,
         [](FrmMain&) { logOffFromMenu(); });
    dash(users, QStringLiteral("mnuDashS12"));
    item(users, QStringLiteral("mnuPasswords"), QStringLiteral("&Configure user access"), -1,
         [](FrmMain& main) { showUserAccessDialog(&main); });
    item(users, QStringLiteral("opMessage"), QStringLiteral("&Operator message for file"),
         Right::OperatorMessage, [](FrmMain& main) { showOperatorMessage(&main); });

    // The mode marks are set by the commands, not by the click; each command asks its own
    // right, after the logging check.
    menu({}, mode, QStringLiteral("&Mode"));
    t.push_back({E::Mark, mode, QStringLiteral("mnuSimMode"), QStringLiteral("&Simulation Mode"),
                 -1, [](FrmMain& main) {
                     main.mnuSimMode_Click();
                 }});
    t.push_back({E::Mark, mode, QStringLiteral("mnuRtMode"), QStringLiteral("&Real Time Mode"), -1,
                 [](FrmMain& main) {
                     main.mnuRtMode_Click();
                 }});

    menu({}, QStringLiteral("mnuWindow"), QStringLiteral("&Window"));

    menu({}, help, QStringLiteral("&Help"));
    item(help, QStringLiteral("mnuHelpGuide"), QStringLiteral("&User Guide"), -1,
         [](FrmMain& main) { main.showGuideHere(); });
    item(help, QStringLiteral("mnuHelpContents"), QStringLiteral("&Contents"), -1,
         [](FrmMain& main) { main.showHelp(); });
    item(help, QStringLiteral("mnuHelpSearchForHelpOn"), QStringLiteral("&Search For Help On..."),
         -1, [](FrmMain& main) { main.showHelp(); });
    dash(help, QStringLiteral("mnuHelpBar0"));
    item(help, QStringLiteral("mnuHelpAbout"), QStringLiteral("&About "), -1, [](FrmMain& main) {
        FrmAbout about(&main);
        about.exec();
    });
    return t;
}
} // namespace

const std::vector<MenuEntry>& mainMenuTable() {
    static const std::vector<MenuEntry> table = buildTable();
    return table;
}

const std::vector<std::pair<QString, QKeySequence>>& menuShortcuts() {
    static const std::vector<std::pair<QString, QKeySequence>> keys = [] {
        std::vector<std::pair<QString, QKeySequence>> k;
        // Banks 1 to 10 on Ctrl and a digit, 11 to 16 on Ctrl+Alt and a digit; trends on Alt.
        for (int bank = 1; bank <= 16; ++bank)
            k.emplace_back(QStringLiteral("mnuAddBank%1").arg(bank),
                           QKeySequence(bank <= 10 ? QStringLiteral("Ctrl+%1").arg(bank % 10)
                                                   : QStringLiteral("Ctrl+Alt+%1").arg(bank - 10)));
        for (int trend = 1; trend <= 8; ++trend)
            k.emplace_back(QStringLiteral("mnuTrend%1").arg(trend),
                           QKeySequence(QStringLiteral("Alt+%1").arg(trend)));
        k.emplace_back(QStringLiteral("mnuDigValues"), QKeySequence(Qt::Key_F6));
        k.emplace_back(QStringLiteral("mnuHistory"), QKeySequence(Qt::Key_F7));
        k.emplace_back(QStringLiteral("mnuAlarmLog"), QKeySequence(Qt::Key_F9));
        k.emplace_back(QStringLiteral("mnuLogon"), QKeySequence(QStringLiteral("Ctrl+Shift+L")));
        k.emplace_back(QStringLiteral("mnuHelpGuide"), QKeySequence(Qt::Key_F1));
        return k;
    }();
    return keys;
}
