#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "plant/plant_store.h"
#include "platform/line_cipher.h"
#include "platform/placement.h"
#include "platform/record_grid.h"
#include "records/audit_trail.h"
#include "records/daily_files.h"
#include "records/file_cipher.h"
#include "records/frm_audit_view.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QDir>
#include <QMdiArea>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>
#include <QToolBar>

namespace {
// Starts the workstation as far as its main window, then closes it with a yes to the question.
void startAndClose(TestEnv& env, const std::function<void()>& whileRunning = {}) {
    env.writeTags({{1, 0, true}});
    env.modbus->manual = true;
    auto& splash = *new FrmSplash; // it deletes itself once started, so it lives on the heap
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    if (whileRunning)
        whileRunning();
    for (int i = 0; i < 10; ++i)
        splash.timer1Tick();
    env.dialogs->answerNext(MsgAnswer::Yes);
    frmMain()->close();
    delete frmMain();
}

const QString kToday = QStringLiteral("Audit/3-14-2026 Audit.atr");

void trigger(FrmAuditView* view, const char* button) {
    view->toolbar()->findChild<QAction*>(QString::fromLatin1(button))->trigger();
}
} // namespace

class TstAudit : public QObject {
    Q_OBJECT
private slots:
    void linesCarryTheSessionOrTheSystem();
    void midnightSplitsTheFiles();
    void typedTextCannotForgeAField();
    void failedEncipherWritesNothingAndSays();
    void startAndExitAreAuditedWithSecurityOn();

    void linesFillTheGridAndDamageStaysInItsRow();
    void todaysFileIsMadeThenOpenAsksItsRightAndTheDialog();
    void exportWritesCsvWithTitlesAndPrintUsesTheDefaultPrinter();
    void exportAndPrintNeedALoadedFile();
    void menuItemGuardsTheSingleWindow();
    void closeDuringALongLoadStopsItFirst();
};

void TstAudit::linesCarryTheSessionOrTheSystem() {
    TestEnv env; // without an Audit folder: the first line makes it
    gUserId = QStringLiteral("jsmith");
    gUserFullName = QStringLiteral("John Smith");
    gUserComment = QStringLiteral("Shift B");
    auditLine(QStringLiteral("SP change TIC-1 from 100 to 120.5"));
    systemAuditLine(QStringLiteral("System Started, with a comma"));
    const QString file = env.path(QStringLiteral("Audit/3-14-2026 Audit.atr"));
    // One line of upper-case hexadecimal digits a record, each with CR LF.
    QVERIFY(QRegularExpression("^([0-9A-F]+\r\n){2}$")
                .match(QString::fromLatin1(readBytes(file)))
                .hasMatch());
    const QStringList lines = plainLinesOf(file);
    QCOMPARE(lines.size(), 2);
    const QDateTime now = env.clock->time;
    QCOMPARE(lines[0].split(u','),
             (QStringList{regionalShortDate(now.date()), regionalLongTime(now.time()), "jsmith",
                          "John Smith", "Shift B", "SP change TIC-1 from 100 to 120.5"}));
    QCOMPARE(lines[1].split(u',').mid(2),
             (QStringList{"System", "Sorvantel System", "System Manager", "System Started",
                          " with a comma"})); // nothing escapes a comma
    // Both share the day's file; the session is untouched by a system line.
    QCOMPARE(gUserId, QStringLiteral("jsmith"));
}

void TstAudit::midnightSplitsTheFiles() {
    TestEnv env;
    const QList<std::tuple<QDateTime, QString, QString>> lines{
        {QDateTime(QDate(2026, 3, 7), QTime(23, 59, 59)), "3-7-2026", "before midnight"},
        {QDateTime(QDate(2026, 3, 8), QTime(0, 0, 1)), "3-8-2026", "after midnight"},
        {QDateTime(QDate(2026, 12, 31), QTime(12, 0)), "12-31-2026", "two digits"}};
    for (const auto& [time, day, action] : lines) {
        env.clock->time = time;
        systemAuditLine(action);
    }
    for (const auto& [time, day, action] : lines)
        QCOMPARE(actionsOf(env.path("Audit/" + day + " Audit.atr")), QStringList{action});
}

void TstAudit::typedTextCannotForgeAField() {
    TestEnv env;
    // A comment of the account database may hold commas; text from anywhere may hold breaks.
    gUserId = QStringLiteral("jsmith");
    gUserFullName = QStringLiteral("John\r\nSmith");
    gUserComment = QStringLiteral("Night shift, line 2");
    auditLine(QStringLiteral("Acknowledge Alarm on TIC-1\r\n3/14/26,10:00:00 AM,mlee,forged"));
    const QStringList lines = plainLinesOf(auditFilePath(QDate(2026, 3, 14)));
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines[0].split(u',').mid(2),
             (QStringList{"jsmith", "John  Smith", "Night shift; line 2",
                          "Acknowledge Alarm on TIC-1  3/14/26", "10:00:00 AM", "mlee", "forged"}));
}

void TstAudit::failedEncipherWritesNothingAndSays() {
    TestEnv env;
    systemAuditLine(QStringLiteral("before"));
    gCrypt().setRandomSource([](unsigned char*, int) { return false; });
    systemAuditLine(QStringLiteral("System Shutdown"));
    gCrypt().setRandomSource({});
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Error 5 = The line could not be enciphered. in function auditLine "
                         "occurred.\nPlease contact Brenlock with this error."});
    systemAuditLine(QStringLiteral("after"));
    // No empty line stands between them to end a reader of the day's file.
    QCOMPARE(actionsOf(auditFilePath(QDate(2026, 3, 14))), (QStringList{"before", "after"}));
    QFile f(auditFilePath(QDate(2026, 3, 14)));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QVERIFY(!f.readAll().contains("\r\n\r\n"));
    // A line the disk refuses is lost without a word, as the trail has always done.
    QVERIFY(QDir().mkpath(auditFilePath(QDate(2026, 3, 15))));
    env.clock->time = env.clock->time.addDays(1);
    systemAuditLine(QStringLiteral("lost"));
    QCOMPARE(env.dialogs->texts().size(), 1);
}

void TstAudit::startAndExitAreAuditedWithSecurityOn() {
    TestEnv env;
    env.settings->setValue("Levels\\security", "21CFR", "True");
    env.settings->setValue("Levels\\op", "op 24", "1");
    const QString today = env.path(QStringLiteral("Audit/3-14-2026 Audit.atr"));
    startAndClose(env, [&] {
        QCOMPARE(actionsOf(today), QStringList{"System Started"});
        env.clock->time = env.clock->time.addSecs(60);
    });
    QCOMPARE(actionsOf(today), (QStringList{"System Started", "System Shutdown"}));
    QCOMPARE(plainLinesOf(today)[1].section(u',', 2, 2), QStringLiteral("System"));
    TestEnv off; // security off: no trail at all
    startAndClose(off);
    QVERIFY(!QDir(off.path(QStringLiteral("Audit"))).exists());
}

void TstAudit::linesFillTheGridAndDamageStaysInItsRow() {
    TestEnv env;
    gUserId = QStringLiteral("anna");
    gUserFullName = QStringLiteral("Anna Berg");
    gUserComment = QStringLiteral("QA");
    auditLine(QStringLiteral("Clear Alarm Log"));
    QFile f(env.path(kToday));
    QVERIFY(f.open(QIODevice::Append));
    f.write("0123456789ABCDEF\r\n");
    f.close();
    systemAuditLine(QStringLiteral("System Shutdown, with a comma"));

    FrmAuditView view;
    RecordGrid* grid = view.grid();
    QCOMPARE(grid->rowCount(), 3);
    QCOMPARE(rowOf(grid, 0).mid(2), (QStringList{"anna", "Anna Berg", "QA", "Clear Alarm Log"}));
    QCOMPARE(rowOf(grid, 1), QStringList(6));
    // Fields past the last column are dropped.
    QCOMPARE(rowOf(grid, 2).mid(2),
             (QStringList{"System", "Sorvantel System", "System Manager", "System Shutdown"}));
    QCOMPARE(view.statusText(), QStringLiteral("Current File is ") + env.path(kToday));
    QVERIFY(grid->gridModel()->isLocked());
    QVERIFY(env.dialogs->boxes.isEmpty());

    const QByteArray a = encryptText(QStringLiteral("d,t,u,n,c,first")).toLatin1();
    const QByteArray b = encryptText(QStringLiteral("d,t,u,n,c,second")).toLatin1();
    QVERIFY(writeBytes(env.path("Audit/gap.atr"), a + "\r\n\r\n" + b + "\r\n"));
    QVERIFY(writeBytes(env.path("Audit/torn.atr"), a + "\r\n" + b.left(b.size() / 2) + "\r\n"));
    view.loadAuditGrid(env.path(QStringLiteral("Audit/gap.atr")));
    QCOMPARE(rowOf(grid, 0).last(), QStringLiteral("first"));
    QCOMPARE(grid->rowCount(), 1);
    view.loadAuditGrid(env.path(QStringLiteral("Audit/torn.atr")));
    QCOMPARE(grid->rowCount(), 2);
    QCOMPARE(grid->text(1, 0), QString());
    // A file that was emptied shows an empty grid, not the rows of the file before.
    QVERIFY(writeBytes(env.path("Audit/empty.atr"), {}));
    view.loadAuditGrid(env.path(QStringLiteral("Audit/empty.atr")));
    QCOMPARE(grid->rowCount(), 0);
}

void TstAudit::todaysFileIsMadeThenOpenAsksItsRightAndTheDialog() {
    TestEnv env;
    QVERIFY(!QFile::exists(env.path(kToday)));
    FrmAuditView view;
    QCOMPARE(QFileInfo(env.path(kToday)).size(), 0); // made, and shown empty
    QCOMPARE(view.fileName(), env.path(kToday));
    QCOMPARE(QList<int>({view.grid()->rowCount(), view.grid()->columnCount()}), QList<int>({0, 6}));
    QVERIFY(env.dialogs->boxes.isEmpty());
    g21CFR = true; // an operator without rights
    trigger(&view, "Open");
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
    QVERIFY(env.dialogs->fileRequests.isEmpty());

    gOpRights[Right::OpenSaveFiles] = 1;
    trigger(&view, "Open"); // cancelled: nothing changes
    QCOMPARE(env.dialogs->fileRequests.size(), 1);
    const FileDialogRequest& r = env.dialogs->fileRequests[0];
    QCOMPARE(
        (QStringList{r.filter, r.fileName, r.initialDirectory}),
        (QStringList{"Audit Log Files(*.atr)|*.atr", env.path(QStringLiteral("Audit/Default.atr")),
                     env.path(QStringLiteral("Audit"))}));
    QCOMPARE(view.fileName(), env.path(kToday));

    env.clock->time = QDateTime(QDate(2026, 3, 1), QTime(8, 0));
    systemAuditLine(QStringLiteral("older day"));
    env.dialogs->chooseFile(env.path(QStringLiteral("Audit/3-1-2026 Audit.atr")));
    trigger(&view, "Open");
    QCOMPARE(view.fileName(), env.path(QStringLiteral("Audit/3-1-2026 Audit.atr")));
    QCOMPARE(view.grid()->text(0, 5), QStringLiteral("older day"));
}

void TstAudit::exportWritesCsvWithTitlesAndPrintUsesTheDefaultPrinter() {
    TestEnv env;
    systemAuditLine(QStringLiteral("System Started"));
    gUserId = QStringLiteral("ben");
    auditLine(QStringLiteral("Logged Off"));
    FrmAuditView view;
    env.dialogs->chooseFile(env.path(QStringLiteral("Export Data/audit.csv")));
    trigger(&view, "Export"); // the folder is not there yet
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QVERIFY(env.dialogs->boxes[0].text.startsWith(QStringLiteral("Error 75 = ")));
    QVERIFY(env.dialogs->boxes[0].text.contains(
        QStringLiteral("in function ExportHistoryFile occurred.")));

    const QString out = env.path(QStringLiteral("Export Data/audit.csv"));
    QDir().mkpath(env.path(QStringLiteral("Export Data")));
    env.dialogs->chooseFile(out);
    trigger(&view, "Export");
    QCOMPARE(env.dialogs->boxes.size(), 1);
    const FileDialogRequest& r = env.dialogs->fileRequests.value(1);
    QCOMPARE((QStringList{r.title, r.filter, r.defaultExtension, r.initialDirectory, r.fileName}),
             (QStringList{"Export audit file as?", "Exported Audit Files (*.csv)|*.csv", ".csv",
                          env.path(QStringLiteral("Export Data")), "3-14-2026 Audit.csv"}));
    QFile f(out);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = f.readAll().split('\n');
    QCOMPARE(lines.size(), 4); // titles, two rows, and nothing after the last line end
    QCOMPARE(lines[0] + lines[3], QByteArray("Date,Time,User ID,Full Name,Comment,Action\r"));
    QVERIFY(lines[1].endsWith(",System,Sorvantel System,System Manager,System Started\r"));
    QVERIFY(lines[2].endsWith(",ben,,,Logged Off\r"));

    env.dialogs->boxes.clear();
    env.printers->available = false;
    trigger(&view, "Print");
    QCOMPARE(env.dialogs->texts(), QStringList{"There is no default printer!\n"
                                               "Please install or select a default printer."});
    QVERIFY(env.printers->outputs.isEmpty());
    env.dialogs->boxes.clear();
    env.printers->available = true;
    trigger(&view, "Print");
    QCOMPARE(env.printers->jobNames, QStringList{"Audit Trail Printout"});
    QVERIFY(env.dialogs->boxes.isEmpty());
    const QString text = pdfText(env.printers->outputs.value(0));
    if (text.isEmpty())
        QSKIP("pdftotext is not installed");
    QVERIFY(text.contains(QStringLiteral("Audit trail printout for fileName ") + env.path(kToday)));
    for (const char* seen : {"User ID", "Logged Off", "ben", "Page #1"})
        QVERIFY2(text.contains(QLatin1String(seen)), seen);
}

void TstAudit::exportAndPrintNeedALoadedFile() {
    TestEnv env;
    // Today's file cannot be made: a folder stands in its place.
    QVERIFY(QDir().mkpath(env.path(QStringLiteral("Audit"))));
    QVERIFY(QDir().mkpath(env.path(kToday)));
    env.dialogs->answers.push_back(MsgAnswer::Ok);
    FrmAuditView view;
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QVERIFY(env.dialogs->boxes[0].text.contains(QStringLiteral("loadAuditGrid")));
    QCOMPARE(view.fileName(), QString());
    env.dialogs->boxes.clear();
    trigger(&view, "Export");
    trigger(&view, "Print");
    QCOMPARE(env.dialogs->texts(),
             (QStringList{"No audit trail file to export!\n"
                          "Use the open file icon to load a audit trail file.",
                          "Audit trail file has not been opened!\n"
                          "Use the open file icon to load a audit trail file."}));
    QVERIFY(env.dialogs->fileRequests.isEmpty());
    QVERIFY(env.printers->outputs.isEmpty());
}

void TstAudit::menuItemGuardsTheSingleWindow() {
    TestEnv env;
    auto* main = new FrmMain;
    main->show();
    QAction* item = main->menuItem(QStringLiteral("mnuAudit"));
    item->trigger();
    FrmAuditView* view = frmAuditView();
    QVERIFY(view);
    QVERIFY(!item->isEnabled());
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);
    view->close();
    QTRY_VERIFY(!frmAuditView());
    QVERIFY(item->isEnabled());
}

void TstAudit::closeDuringALongLoadStopsItFirst() {
    TestEnv env;
    QDir().mkpath(env.path(QStringLiteral("Audit")));
    const QByteArray line = encryptText(QStringLiteral("d,t,u,n,c,a long day")).toLatin1();
    QVERIFY(writeBytes(env.path("Audit/long.atr"), (line + "\r\n").repeated(60000)));
    auto* main = new FrmMain;
    main->show();
    auto* view = new FrmAuditView;
    main->mdiArea()->addSubWindow(view);
    view->show();
    // The close request arrives while the load hands the event loop a turn.
    QTimer::singleShot(0, view, [view, &env] {
        trigger(view, "Export"); // refused while loading: no dialog
        view->close();
        QVERIFY(env.dialogs->fileRequests.isEmpty());
    });
    view->loadAuditGrid(env.path(QStringLiteral("Audit/long.atr")));
    QVERIFY(frmAuditView()); // still there: the close waited for the load to stop
    QVERIFY(view->grid()->rowCount() > 0);
    QVERIFY(view->grid()->rowCount() < 60000);
    QTRY_VERIFY(!frmAuditView());
}

QTEST_MAIN(TstAudit)
#include "tst_audit.moc"
