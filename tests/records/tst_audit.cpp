#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "platform/line_cipher.h"
#include "records/audit_trail.h"
#include "records/daily_files.h"
#include "records/frm_audit_view.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QMdiArea>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <QToolBar>

namespace {
// Starts the workstation as far as its main window, then closes it with a yes to the question.
void startAndClose(TestEnv& env) {
    env.writeTags({{1, 0, true}});
    env.modbus->manual = true;
    auto& splash = *new FrmSplash; // it deletes itself once started, so it lives on the heap
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
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
    void linesCannotBeForgedAndSplitAtMidnight();
    void failedEncipherWritesNothingAndSays();
    void startAndExitAreAuditedWithSecurityOn();
    void viewerShowsOpensExportsAndPrints();
    void exportAndPrintNeedALoadedFile();
    void menuOpensOneWindowWhoseCloseWaitsForTheLoad();
};

void TstAudit::linesCannotBeForgedAndSplitAtMidnight() {
    TestEnv env; // without an Audit folder: the first line makes it
    // A comment of the account database may hold commas; text from anywhere may hold breaks.
    gUserId = QStringLiteral("jsmith");
    gUserFullName = QStringLiteral("John\r\nSmith");
    gUserComment = QStringLiteral("Night shift, line 2");
    auditLine("Acknowledge Alarm on TIC-1\r\n3/14/26,10:00:00 AM,mlee,forged");
    systemAuditLine("System Started, with a comma");
    // One line of upper-case hexadecimal digits a record, each with CR LF.
    QVERIFY(QRegularExpression("^([0-9A-F]+\r\n){2}$")
                .match(QString::fromLatin1(readBytes(env.path(kToday))))
                .hasMatch());
    const QStringList lines = plainLinesOf(env.path(kToday));
    const QDateTime now = env.clock->time;
    QCOMPARE(lines[0].split(u','),
             (QStringList{regionalShortDate(now.date()), regionalLongTime(now.time()), "jsmith",
                          "John  Smith", "Night shift; line 2",
                          "Acknowledge Alarm on TIC-1  3/14/26", "10:00:00 AM", "mlee", "forged"}));
    QCOMPARE(lines[1].split(u',').mid(2),
             (QStringList{"System", "Sorvantel System", "System Manager", "System Started",
                          " with a comma"}));    // nothing escapes a comma in the last field
    QCOMPARE(gUserId, QStringLiteral("jsmith")); // the session is untouched by a system line

    const QList<std::tuple<QDateTime, QString, QString>> days{
        {QDateTime(QDate(2026, 3, 7), QTime(23, 59, 59)), "3-7-2026", "before midnight"},
        {QDateTime(QDate(2026, 3, 8), QTime(0, 0, 1)), "3-8-2026", "after midnight"},
        {QDateTime(QDate(2026, 12, 31), QTime(12, 0)), "12-31-2026", "two digits"}};
    for (const auto& [time, day, action] : days) {
        env.clock->time = time;
        systemAuditLine(action);
    }
    for (const auto& [time, day, action] : days)
        QCOMPARE(actionsOf(env.path("Audit/" + day + " Audit.atr")), QStringList{action});
}

void TstAudit::failedEncipherWritesNothingAndSays() {
    TestEnv env;
    systemAuditLine("before");
    gCrypt().setRandomSource([](unsigned char*, int) { return false; });
    systemAuditLine("System Shutdown");
    gCrypt().setRandomSource({});
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Error 5 = The line could not be enciphered. in function auditLine "
                         "occurred.\nPlease contact Brenlock with this error."});
    systemAuditLine("after");
    // No empty line stands between them to end a reader of the day's file.
    QCOMPARE(actionsOf(env.path(kToday)), (QStringList{"before", "after"}));
    QVERIFY(!readBytes(env.path(kToday)).contains("\r\n\r\n"));
    // A line the disk refuses is lost without a word, as the trail has always done.
    QVERIFY(QDir().mkpath(auditFilePath(QDate(2026, 3, 15))));
    env.clock->time = env.clock->time.addDays(1);
    systemAuditLine("lost");
    QCOMPARE(env.dialogs->texts().size(), 1);
}

void TstAudit::startAndExitAreAuditedWithSecurityOn() {
    TestEnv env;
    env.settings->setValue("Levels\\security", "21CFR", "True");
    env.settings->setValue("Levels\\op", "op 24", "1");
    startAndClose(env);
    QCOMPARE(actionsOf(env.path(kToday)), (QStringList{"System Started", "System Shutdown"}));
    QCOMPARE(plainLinesOf(env.path(kToday))[1].section(u',', 2, 2), QStringLiteral("System"));
    TestEnv off; // security off: no trail at all
    startAndClose(off);
    QVERIFY(!QDir(off.path(QStringLiteral("Audit"))).exists());
}

void TstAudit::viewerShowsOpensExportsAndPrints() {
    TestEnv env;
    FrmAuditView view;
    RecordGrid* grid = view.grid();
    QCOMPARE(QFileInfo(env.path(kToday)).size(), 0); // made, and shown empty
    QCOMPARE(view.fileName(), env.path(kToday));
    QCOMPARE(grid->rowCount(), 0);
    QVERIFY(env.dialogs->boxes.isEmpty());
    g21CFR = true; // an operator without rights
    trigger(&view, "Open");
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
    QVERIFY(env.dialogs->fileRequests.isEmpty());
    gOpRights[Right::OpenSaveFiles] = 1;
    gOpRights[Right::ExportDataFiles] = 1;
    trigger(&view, "Open"); // cancelled
    const FileDialogRequest& open = env.dialogs->fileRequests.value(0);
    QCOMPARE((QStringList{open.filter, open.fileName, open.initialDirectory}),
             (QStringList{"Audit Log Files(*.atr)|*.atr", env.path("Audit/Default.atr"),
                          env.path("Audit")}));

    // An empty line ends the trail; a file that was emptied shows an empty grid.
    const QByteArray a = encryptText(QStringLiteral("d,t,u,n,c,first")).toLatin1();
    QVERIFY(writeBytes(env.path("Audit/gap.atr"), a + "\r\n\r\n" + a + "\r\n"));
    view.loadAuditGrid(env.path("Audit/gap.atr"));
    QCOMPARE(grid->rowCount(), 1);
    QCOMPARE(rowOf(grid, 0).last(), QStringLiteral("first"));
    QVERIFY(writeBytes(env.path("Audit/empty.atr"), {}));
    view.loadAuditGrid(env.path("Audit/empty.atr"));
    QCOMPARE(grid->rowCount(), 0);

    // A damaged line stays in its row; fields past the last column are dropped.
    gUserId = QStringLiteral("anna");
    gUserFullName = QStringLiteral("Anna Berg");
    gUserComment = QStringLiteral("QA");
    auditLine("Clear Alarm Log");
    QVERIFY(writeBytes(env.path(kToday), readBytes(env.path(kToday)) + "0123456789ABCDEF\r\n"));
    systemAuditLine("System Shutdown, with a comma");
    env.dialogs->boxes.clear();
    env.dialogs->chooseFile(env.path(kToday));
    trigger(&view, "Open");
    QCOMPARE(grid->rowCount(), 3);
    QCOMPARE(rowOf(grid, 0).mid(2), (QStringList{"anna", "Anna Berg", "QA", "Clear Alarm Log"}));
    QCOMPARE(rowOf(grid, 1), QStringList(6));
    QCOMPARE(rowOf(grid, 2).mid(2),
             (QStringList{"System", "Sorvantel System", "System Manager", "System Shutdown"}));
    QCOMPARE(view.statusText(), "Current File is " + env.path(kToday));
    QVERIFY(grid->gridModel()->isLocked());

    const QString csv = env.path("Export Data/audit.csv");
    env.dialogs->chooseFile(csv);
    trigger(&view, "Export"); // the folder is not there yet
    QCOMPARE(env.dialogs->texts().size(), 1);
    QVERIFY(env.dialogs->texts()[0].startsWith("Error 75 = "));
    QVERIFY(env.dialogs->texts()[0].contains("in function ExportHistoryFile occurred."));
    QVERIFY(QDir().mkpath(env.path("Export Data")));
    env.dialogs->chooseFile(csv);
    trigger(&view, "Export");
    const FileDialogRequest& r = env.dialogs->fileRequests.value(3);
    QCOMPARE((QStringList{r.title, r.filter, r.defaultExtension, r.initialDirectory, r.fileName}),
             (QStringList{"Export audit file as?", "Exported Audit Files (*.csv)|*.csv", ".csv",
                          env.path("Export Data"), "3-14-2026 Audit.csv"}));
    const QList<QByteArray> lines = readBytes(csv).split('\n');
    QCOMPARE(lines.size(), 5); // titles, three rows, and nothing after the last line end
    QCOMPARE(lines[0] + lines[4], QByteArray("\xEF\xBB\xBF"
                                             "Date,Time,User ID,Full Name,Comment,Action\r"));
    QVERIFY(lines[1].endsWith(",anna,Anna Berg,QA,Clear Alarm Log\r"));
    QVERIFY(lines[3].endsWith(",System,Sorvantel System,System Manager,System Shutdown\r"));

    env.dialogs->boxes.clear();
    env.printers->available = false;
    trigger(&view, "Print");
    QCOMPARE(env.dialogs->texts(), QStringList{"There is no default printer!\n"
                                               "Please install or select a default printer."});
    QVERIFY(env.printers->outputs.isEmpty());
    env.printers->available = true;
    trigger(&view, "Print");
    QCOMPARE(env.printers->jobNames, QStringList{"Audit Trail Printout"});
    QCOMPARE(env.dialogs->boxes.size(), 1);
    // The grid prints its own rows: the job's heading and footer are this window's part.
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        QSKIP("pdftotext is not installed");
    const QString text = pdfText(env.printers->outputs.value(0));
    QVERIFY(text.contains("Audit trail printout for fileName " + env.path(kToday)));
    QVERIFY(text.contains("Page #1"));
}

void TstAudit::exportAndPrintNeedALoadedFile() {
    TestEnv env;
    // Today's file cannot be made: a folder stands in its place.
    QVERIFY(QDir().mkpath(env.path(kToday)));
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
    QVERIFY(env.dialogs->fileRequests.isEmpty() && env.printers->outputs.isEmpty());
}

void TstAudit::menuOpensOneWindowWhoseCloseWaitsForTheLoad() {
    TestEnv env;
    const QByteArray line = encryptText(QStringLiteral("d,t,u,n,c,a long day")).toLatin1();
    QVERIFY(writeBytes(env.path("Audit/long.atr"), (line + "\r\n").repeated(60000)));
    auto* main = new FrmMain;
    main->show();
    QAction* item = main->menuItem(QStringLiteral("mnuAudit"));
    item->trigger();
    FrmAuditView* view = frmAuditView();
    QVERIFY(view);
    QVERIFY(!item->isEnabled());
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);
    // The close request arrives while the load hands the event loop a turn.
    QTimer::singleShot(0, view, [view, &env] {
        trigger(view, "Export"); // refused while loading: no dialog
        view->close();
        QVERIFY(env.dialogs->fileRequests.isEmpty());
    });
    view->loadAuditGrid(env.path("Audit/long.atr"));
    QVERIFY(frmAuditView()); // still there: the close waited for the load to stop
    QVERIFY(view->grid()->rowCount() > 0 && view->grid()->rowCount() < 60000);
    QTRY_VERIFY(!frmAuditView());
    QVERIFY(item->isEnabled());
}

QTEST_MAIN(TstAudit)
#include "tst_audit.moc"
