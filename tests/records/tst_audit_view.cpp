#include "app/frm_main.h"
#include "plant/plant_store.h"
#include "platform/placement.h"
#include "platform/record_grid.h"
#include "records/audit_trail.h"
#include "records/frm_audit_view.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QDir>
#include <QMdiArea>
#include <QTest>
#include <QTimer>
#include <QToolBar>

namespace {
const QString kToday = QStringLiteral("Audit/3-14-2026 Audit.atr");

QStringList rowOf(const RecordGrid* grid, int row) {
    QStringList out;
    for (int c = 0; c < grid->columnCount(); ++c)
        out << grid->text(row, c);
    return out;
}

void writeLines(const QString& path, const QList<QByteArray>& lines) {
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    for (const QByteArray& l : lines)
        f.write(l + "\r\n");
}

void trigger(FrmAuditView* view, const char* button) {
    view->toolbar()->findChild<QAction*>(QString::fromLatin1(button))->trigger();
}
} // namespace

class TstAuditView : public QObject {
    Q_OBJECT
private slots:
    void linesFillTheGridAndDamageStaysInItsRow();
    void todaysFileIsMadeThenOpenAsksItsRightAndTheDialog();
    void exportWritesCsvWithTitlesAndPrintUsesTheDefaultPrinter();
    void exportAndPrintNeedALoadedFile();
    void menuItemGuardsTheSingleWindow();
    void closeDuringALongLoadStopsItFirst();
};

// Each line is a row; a line that does not decipher is an empty row, an empty line ends the
// load and a torn last line is damaged.
void TstAuditView::linesFillTheGridAndDamageStaysInItsRow() {
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
    writeLines(env.path(QStringLiteral("Audit/gap.atr")), {a, QByteArray(), b});
    writeLines(env.path(QStringLiteral("Audit/torn.atr")), {a, b.left(b.size() / 2)});
    view.loadAuditGrid(env.path(QStringLiteral("Audit/gap.atr")));
    QCOMPARE(rowOf(grid, 0).last(), QStringLiteral("first"));
    QCOMPARE(grid->rowCount(), 1);
    view.loadAuditGrid(env.path(QStringLiteral("Audit/torn.atr")));
    QCOMPARE(grid->rowCount(), 2);
    QCOMPARE(grid->text(1, 0), QString());
    // A file that was emptied shows an empty grid, not the rows of the file before.
    writeLines(env.path(QStringLiteral("Audit/empty.atr")), {});
    view.loadAuditGrid(env.path(QStringLiteral("Audit/empty.atr")));
    QCOMPARE(grid->rowCount(), 0);
}

void TstAuditView::todaysFileIsMadeThenOpenAsksItsRightAndTheDialog() {
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

void TstAuditView::exportWritesCsvWithTitlesAndPrintUsesTheDefaultPrinter() {
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

void TstAuditView::exportAndPrintNeedALoadedFile() {
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

void TstAuditView::menuItemGuardsTheSingleWindow() {
    TestEnv env;
    auto* main = new FrmMain;
    main->show();
    QAction* item = main->menuItem(QStringLiteral("mnuAudit"));
    g21CFR = true; // an operator without rights
    item->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
    QVERIFY(!frmAuditView());

    gOpRights[Right::AuditTrailViewer] = 1;
    item->trigger();
    FrmAuditView* view = frmAuditView();
    QVERIFY(view);
    QVERIFY(!item->isEnabled());
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);
    view->close();
    QTRY_VERIFY(!frmAuditView());
    QVERIFY(item->isEnabled());
}

void TstAuditView::closeDuringALongLoadStopsItFirst() {
    TestEnv env;
    QDir().mkpath(env.path(QStringLiteral("Audit")));
    const QByteArray line = encryptText(QStringLiteral("d,t,u,n,c,a long day")).toLatin1();
    QList<QByteArray> lines(60000, line);
    writeLines(env.path(QStringLiteral("Audit/long.atr")), lines);
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

QTEST_MAIN(TstAuditView)
#include "tst_audit_view.moc"
