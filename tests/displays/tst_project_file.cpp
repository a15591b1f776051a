// The project files: what Save As writes and Open reads back, the files Open refuses and what
// they leave behind, the trend copies beside a project, the close of the displays, and the demo's
// own project.

#include "app/frm_main.h"
#include "displays/project_file.h"
#include "displays/trend_window.h"
#include "plant/frm_logger.h"
#include "plant/frm_main_display.h"
#include "plant/plant_store.h"
#include "plant/poll_cycle.h"
#include "plant/scan_controller.h"
#include "platform/record_grid.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QMdiArea>
#include <QTest>
#include <QTimer>

namespace {
// Timer 2, timer 3 and the poll's read-done flag: all set once polling runs.
QList<bool> polling(FrmMain* main) {
    return {main->scan().timer2()->isActive(), main->scan().timer3()->isActive(),
            main->scan().poll().readDone};
}
const QList<bool> kRunning{true, true, true};

QStringList requestTexts(const FileDialogRequest& r) {
    return {r.title, r.filter, r.initialDirectory, r.fileName, r.defaultExtension};
}
} // namespace

class TstProjectFile : public QObject {
    Q_OBJECT
private slots:
    void saveAsSaveOpenAndCancelledOpenOfAProject();
    void damagedFileIsRefusedAndTheOldPlantPollsOn_data();
    void damagedFileIsRefusedAndTheOldPlantPollsOn();
    void closeProjectWarnsDuringLoggingAndClosesTheDisplays();
    void demoProjectReadsAndWritesBackToTheByte();
};

void TstProjectFile::saveAsSaveOpenAndCancelledOpenOfAProject() {
    TestEnv env;
    env.writeTags({{1, 0}, {3, 2, true, QStringLiteral("DRYER-3")}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    auto* main = new FrmMain;
    gSaveInterval = 7;
    gAutoLog = 1;
    gAlmLogging = true;
    main->scan().timer2()->setInterval(250);
    QVERIFY(writeBytes(env.path("Trend1.trn"), "trend as saved"));

    // Another folder chosen: the file goes to Projects all the same.
    QDir().mkpath(env.path("elsewhere"));
    env.dialogs->chooseFile(env.path("elsewhere/Name.v2.svt"));
    main->menuItem("mnuSavePas")->trigger();
    const FileDialogRequest saveAs = env.dialogs->fileRequests.at(0);
    QCOMPARE(requestTexts(saveAs),
             (QStringList{"Save .svt Project file as?", "Project Files(*.svt)|*.svt",
                          env.path("Projects"), "Project.svt", ".svt"}));
    QVERIFY(saveAs.overwritePrompt && !saveAs.fileMustExist);
    QVERIFY(!QFile::exists(env.path("elsewhere/Name.v2.svt")));
    const QByteArray saved = readBytes(env.path("Projects/Name.v2.svt"));
    QCOMPARE(saved,
             readBytes(env.path("tags.tgn")) + " 7 \r\n 1 \r\n 0 \r\nTrue\r\nFalse\r\n 250 \r\n");
    QCOMPARE(main->windowTitle(), QStringLiteral("Brenlock Sorvantel - Name.v2.svt"));
    // Named up to the first dot; a trend never set up has no copy.
    QCOMPARE(readBytes(env.path("Projects/NameT1.trn")), readBytes(env.path("Trend1.trn")));
    QVERIFY(!QFile::exists(env.path("Projects/NameT2.trn")));

    // Another plant meanwhile, another trend, alarms in the grid, the poll part-way.
    env.writeTags({{2, 1}, {5, 0}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    buildActiveList();
    gSaveInterval = 1;
    gAutoLog = 0;
    gAlmLogging = false;
    gComBeep = true;
    main->scan().timer2()->setInterval(500);
    QVERIFY(writeBytes(env.path("Trend1.trn"), "trend changed since"));
    auto* alarms = new AlarmLog;
    main->mdiArea()->addSubWindow(alarms);
    alarms->grid()->setRowCount(2);
    gPollIndex = 1;

    // What follows the project's lines (a line more, a blank line, two megabytes of anything) is
    // never read.
    QVERIFY(writeBytes(env.path("Projects/Name.v2.svt"),
                       saved + "one line more\r\n\r\n" + QByteArray(2 << 20, 'x')));
    env.dialogs->chooseFile(env.path("Projects/Name.v2.svt"));
    main->menuItem("mnuOpenP")->trigger();
    const FileDialogRequest open = env.dialogs->fileRequests.at(1);
    QCOMPARE(requestTexts(open),
             (QStringList{"Open Project File(.svt)", "Project Files(*.svt)|*.svt",
                          env.path("Projects"), env.path("Projects/Default.svt"), ""}));
    QVERIFY(open.fileMustExist);
    QCOMPARE(env.dialogs->texts(), QStringList());
    QCOMPARE(gActiveList, (QVector<qint16>{1, 3, 0}));
    QCOMPARE(polling(main), kRunning);
    QCOMPARE((QStringList{gPvTag[2], gSpTag[2], gPvTag[1], main->windowTitle()}),
             (QStringList{"DRYER-3", "DRYER-3.SP", "TAG2", "Brenlock Sorvantel - Name.v2.svt"}));
    // The poll from its start, the alarm grid emptied, the options and the trend as saved.
    QCOMPARE((QList<int>{gPollIndex, alarms->grid()->rowCount(), gControlType[2], gSaveInterval,
                         gAutoLog, gAlmLogging, gComBeep, main->scan().timer2()->interval()}),
             (QList<int>{0, 0, 2, 7, 1, true, false, 250}));
    QCOMPARE(readBytes(env.path("Trend1.trn")), QByteArray("trend as saved"));

    // Save writes to the open project without asking: byte for byte what was opened.
    QVERIFY(QFile::remove(env.path("Projects/Name.v2.svt")));
    main->menuItem("mnuSaveP")->trigger();
    QCOMPARE(env.dialogs->fileRequests.size(), 2);
    QCOMPARE(readBytes(env.path("Projects/Name.v2.svt")), saved);

    // A cancelled open leaves polling stopped and the name as it was, without a word.
    main->menuItem("mnuOpenP")->trigger();
    QCOMPARE(env.dialogs->fileRequests.size(), 3);
    QCOMPARE(env.dialogs->texts(), QStringList());
    QCOMPARE(polling(main).mid(0, 2), (QList<bool>{false, false}));
    QCOMPARE(gProjectTitle, QStringLiteral("Name.v2.svt"));
}

void TstProjectFile::damagedFileIsRefusedAndTheOldPlantPollsOn_data() {
    QTest::addColumn<int>("line");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");
    // Line -1: the last line is missing. Line 19 is the enable flag of controller 2.
    const std::tuple<const char*, int, const char*, const char*> rows[] = {
        {"one line short", -1, "", "Error62 - Input past end of file after line 1157 of 1158"},
        {"save interval", 1152, "five", "Error13 - Type mismatch in line 1153"},
        {"boolean", 1155, "Yes", "Error13 - Type mismatch in line 1156"},
        {"poll interval", 1157, " 0 ", "Error6 - Value out of range in line 1158"},
        {"enable flag", 19, "on", "Error13 - Type mismatch in line 20"}};
    for (const auto& [name, line, text, reason] : rows)
        QTest::newRow(name) << line << QByteArray(text) << QString::fromLatin1(reason);
}

void TstProjectFile::damagedFileIsRefusedAndTheOldPlantPollsOn() {
    QFETCH(int, line);
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);
    TestEnv env;
    env.writeTags({{1, 0, true, QStringLiteral("NEW-1")}, {2, 1}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    auto* main = new FrmMain;
    QDir().mkpath(env.path("Projects"));
    QVERIFY(writeProjectFile(env.path("Projects/Bad.svt")));
    QList<QByteArray> lines = readBytes(env.path("Projects/Bad.svt")).split('\n');
    lines.removeLast();
    if (line < 0)
        lines.removeLast();
    else
        lines[line] = text + '\r';
    QVERIFY(writeBytes(env.path("Projects/Bad.svt"), lines.join('\n') + '\n'));

    env.writeTags({{4, 2, true, QStringLiteral("OLD-4")}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    buildActiveList();
    gSaveInterval = 3;
    const auto enabled = gControlEnabled;
    env.dialogs->chooseFile(env.path("Projects/Bad.svt"));
    main->menuItem("mnuOpenP")->trigger();
    QCOMPARE(env.dialogs->texts(),
             QStringList{reason + " Project file is not compatible or damaged. Please select "
                                  "another file."});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    // The old plant polls on, from the start of its list; the table keeps what was read.
    QCOMPARE(polling(main), kRunning);
    QCOMPARE(gActiveList, (QVector<qint16>{4, 0}));
    QVERIFY(gControlEnabled == enabled);
    QCOMPARE((QList<int>{gPollIndex, gControlType[3], gSaveInterval}), (QList<int>{0, 2, 3}));
    // The name is kept all the same; the caption is not.
    QCOMPARE((QStringList{gPvTag[0], gPvTag[3], gTagTable[0][2], gTagTable[9][2], gProjectTitle,
                          main->windowTitle()}),
             (QStringList{"TAG1", "OLD-4", "NEW-1", "TAG4", "Bad.svt", "Brenlock Sorvantel"}));
}

void TstProjectFile::closeProjectWarnsDuringLoggingAndClosesTheDisplays() {
    TestEnv env;
    auto* main = new FrmMain;
    main->resize(1000, 800);
    main->show();
    for (ChildWindow* resident : std::initializer_list<ChildWindow*>{new FrmLogger, new AlarmLog}) {
        main->mdiArea()->addSubWindow(resident);
        resident->show();
    }
    gProjectTitle = QStringLiteral("Line.svt");
    // Only the windows that are always loaded: nothing closes, the caption goes back.
    main->menuItem("mnuCloseP")->trigger();
    QCOMPARE(main->windowTitle(), QStringLiteral("Brenlock Controls Sorvantel"));
    QCOMPARE(env.dialogs->texts(), QStringList());
    for (QMdiSubWindow* w : main->mdiArea()->subWindowList())
        QVERIFY(!w->isMinimized());

    TrendConfig config;
    config.minutes = 1;
    QVERIFY(writeTrendConfig(env.path("Trend1.trn"), config));
    QPointer<Ctrend1> trend = main->showTrend(QStringLiteral("Trend1"), 1);
    QPointer<QMdiSubWindow> bank = main->addControlBank(0, QStringLiteral("1"));
    QVERIFY(QFile::remove(env.path("Trend1.trn")));
    trend->showMinimized();
    gLogging = true;
    main->menuItem("mnuCloseP")->trigger();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Project can not be closed while data save is active!\nStop data save "
                         "and then close project."});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Information);
    QTRY_VERIFY(!trend && !bank);
    // The minimized trend was restored to pass its close, and wrote its file as it went.
    QVERIFY(QFile::exists(env.path("Trend1.trn")));
    QCOMPARE(main->mdiArea()->subWindowList().size(), 2);
    QVERIFY(gLogging);
    QCOMPARE(gProjectTitle, QStringLiteral("Line.svt"));
    gLogging = false;
}

void TstProjectFile::demoProjectReadsAndWritesBackToTheByte() {
    const QString demo = QStringLiteral(SOURCE_DIR "/demo/");
    const QByteArray text = readBytes(demo + "Projects/Demo.svt");
    auto table = std::make_unique<TagTable>();
    ProjectFault fault;
    const std::optional<Project> project = parseProjectText(text, *table, &fault);
    QVERIFY2(project, qPrintable(fault.description));
    QVERIFY(project->options == (ProjectOptions{5, 0, 0, true, false, 500}));
    QCOMPARE(projectFileText(*table, project->options), text);
    QVERIFY(text.startsWith(readBytes(demo + "tags.tgn")));
    for (int n = 1; n <= 8; ++n)
        QCOMPARE(readBytes(demo + QStringLiteral("Projects/DemoT%1.trn").arg(n)),
                 readBytes(demo + QStringLiteral("Trend%1.trn").arg(n)));
}

QTEST_MAIN(TstProjectFile)
#include "tst_project_file.moc"
