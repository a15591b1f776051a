// The data file viewer (showing, signing, verifying, searching, its scratch copies) and the
// historical plot it makes of its grid.

#include "app/frm_main.h"
#include "plant/plant_store.h"
#include "plant/tag_file.h"
#include "platform/plot.h"
#include "records/data_logger.h"
#include "records/frm_history.h"
#include "records/frm_history_plot.h"
#include "records/record_file.h"
#include "records/signatures.h"
#include "records/trend_setup.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QDoubleSpinBox>
#include <QLabel>
#include <QMdiArea>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <QToolBar>
#include <sys/stat.h>

namespace {
// A data file with its signature file beside it, as the logger leaves them.
void writeSigned(const QString& path, const QByteArray& bytes) {
    QVERIFY(writeBytes(path, bytes) &&
            writeBytes(signatureFileOf(path), enciphered({kSignatureHeader})));
}

// Titles, the start line at 10:00:00, then rows at 10:00:01... with TIC-1 at 181, 182...
QStringList dataLines(const QString& batch, int rows) {
    QStringList lines{"Date,Time,Operator Message,Batch Number,Lot Number,TIC-1,TIC-2,",
                      "3/14/2026,10:00:00 AM,File started byJane Doe (login as jdoe )," + batch +
                          ",9,181.6,12.25,"};
    for (int i = 1; i <= rows; ++i)
        lines << QStringLiteral("3/14/2026,10:00:%1 AM,.,.,.,%2,12.5,").arg(i).arg(180 + i);
    return lines;
}

void trigger(FrmHistory& view, const char* button) {
    view.toolbar()->findChild<QAction*>(QString::fromLatin1(button))->trigger();
}
bool signingEnabled(FrmHistory& view) {
    return view.toolbar()->findChild<QAction*>("Sign")->isEnabled() &&
           view.toolbar()->findChild<QAction*>("Verify")->isEnabled();
}

// A grid as the viewer loads a data file: date, time, message, batch, lot, then the channels.
void fillGrid(RecordGrid& grid, int rows, const QDate& day = QDate(2026, 3, 14)) {
    grid.setColumnCount(8);
    grid.setColumnTitles({"Date", "Time", "Operator Message", "Batch Number", "Lot Number", "TIC-1",
                          "TIC-2", "FIC-3"});
    RecordGrid::BulkLoad load(grid);
    for (int r = 0; r < rows; ++r)
        grid.appendRow({day.toString("M/d/yyyy"), QTime(10, 0).addSecs(r).toString("h:mm:ss AP"),
                        ".", "7", "9", QString::number(180 + r % 50), QString::number(12.5 + r % 3),
                        "3.5"});
}

void select(RecordGrid& grid, int row1, int col1, int row2, int col2) {
    grid.selectionModel()->select(
        QItemSelection(grid.model()->index(row1, col1), grid.model()->index(row2, col2)),
        QItemSelectionModel::Select);
}

double at10(int seconds) {
    return Plot::toDays(QDateTime(QDate(2026, 3, 14), QTime(10, 0, seconds)));
}
} // namespace

class TstHistory : public QObject {
    Q_OBJECT
private slots:
    void showsSignsAndVerifies();
    void damagedInputsSayWhatTheyMust_data();
    void damagedInputsSayWhatTheyMust();
    void searchesAndPrintsTheSelectedBlock();
    void scratchCopiesArePrivate();
    void menuOpensOneWindowThatWaitsForItsLoad();
    void selectionsAPlotCannotBeMadeOf();
    void blocksBecomeChannelsOverTheirRows();
    void cancelPlotKeepsWhatWasDone();
    void plotButtonOfTheViewerOnARealDataFile();
};

void TstHistory::showsSignsAndVerifies() {
    TestEnv env;
    env.writeTags({{1, 0, true, "TIC-1", true}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    gPV[0] = QStringLiteral("181.6");
    gDataFileName = env.path("Log Files/run.slg");
    QVERIFY(startDataFile());
    const QString file = gDataFileName;

    FrmHistory view;
    QVERIFY(!signingEnabled(view));
    env.dialogs->chooseFile(file);
    trigger(view, "Open");
    RecordGrid* data = view.dataGrid();
    RecordGrid* grid = view.signatureGrid();
    // Line 1 holds the titles; the empty field behind the closing comma is cut.
    QCOMPARE((QList<QVariant>{data->rowCount(), data->columnCount(), data->columnTitle(5),
                              data->text(0, 5)}),
             (QList<QVariant>{1, 6, "TIC-1", "181.6"}));
    QCOMPARE(rowOf(grid, 0).join(u','), kSignatureHeader);
    QCOMPARE(view.statusText(), "Current File is " + file);
    QCOMPARE(readBytes(FrmHistory::encryptedCopyPath()), readBytes(file));
    QVERIFY(!signingEnabled(view)); // no audit trail in force
    trigger(view, "Open");          // cancelled: the file stays on show
    QCOMPARE(gHistoryFileName, file);
    env.dialogs->chooseFile(env.path("run.csv"));
    trigger(view, "Export"); // the data grid, with its titles
    QVERIFY(readBytes(env.path("run.csv"))
                .startsWith("\xEF\xBB\xBF"
                            "Date,Time,Operator Message,Batch Number,Lot Number,TIC-1\r\n"));
    QVERIFY(env.dialogs->boxes.isEmpty());

    g21CFR = true;
    gUserLevel = 1;
    for (int right : {Right::OpenSaveFiles, Right::SignDataFiles, Right::VerifyDataFiles})
        gSuRights[static_cast<size_t>(right)] = 1;
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe", "QA");
    QVERIFY(view.showDataFile(file));
    QVERIFY(signingEnabled(view));
    env.modals.login("jdoe", "pw");
    view.signDataFile(); // the logger still writes to it
    QCOMPARE(env.dialogs->texts(), QStringList{"The data logger is still writing to the selected "
                                               "file.\nFiles can only be signed when completed."});
    QCOMPARE(grid->rowCount(), 1);

    stopDataFile();
    env.dialogs->inputs = {QString(), "checked, ok"};
    env.modals.login("jdoe", "pw");
    view.signDataFile();
    env.modals.login("jdoe", "pw");
    view.signDataFile();
    const QString hash = hashFileHex(file);
    QCOMPARE(grid->rowCount(), 3);
    QCOMPARE(rowOf(grid, 1).mid(2),
             (QStringList{"jdoe", "Jane Doe", "QA", "Signed", "None", hash}));
    QCOMPARE(rowOf(grid, 2).mid(6), (QStringList{"checked; ok", hash}));
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             QStringList(3, "Digital Signature of file " + file));

    env.dialogs->boxes.clear();
    view.verifySignature(); // the first signature is the active row
    grid->setActiveCell(0, 3);
    view.verifySignature();
    QByteArray bytes = readBytes(file);
    bytes[10] = bytes[10] == 'A' ? 'B' : 'A';
    QVERIFY(writeBytes(file, bytes));
    grid->setActiveCell(2, 0);
    view.verifySignature();
    QCOMPARE(env.dialogs->texts(),
             (QStringList{"Digital signature of file confirmed!",
                          "Digital signature selected is not valid!",
                          "Digital signature of file failed!\n"
                          "File has been altered since signature was stamped."}));

    // A damaged signature line shows as an empty row and is named in the status.
    QVERIFY(writeBytes(signatureFileOf(file), readBytes(signatureFileOf(file)) + "0123ABCD\r\n"));
    QVERIFY(view.showDataFile(file));
    QCOMPARE(rowOf(grid, 3), QStringList(8));
    QCOMPARE(view.statusText(),
             "Current File is " + file + " - 1 line of the signature file could not be deciphered");
}

void TstHistory::damagedInputsSayWhatTheyMust_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("firstCells"); // column 0 of each row
    QTest::addColumn<QString>("box");
    const QStringList good = dataLines("5", 2);
    QByteArray damaged = encryptText(good[2]).toLatin1();
    damaged[50] = damaged[50] == 'A' ? 'B' : 'A';
    QTest::newRow("damaged line") << enciphered(good.mid(0, 2)) + damaged + "\r\n" +
                                         enciphered(good.mid(3))
                                  << QStringList{"3/14/2026", "", "3/14/2026"} << QString();
    QTest::newRow("empty file") << QByteArray() << QStringList() << "bad.slg is empty";
    QTest::newRow("not our file") << QByteArray("Date,Time\r\n1,2\r\n3,4") << QStringList()
                                  << "not a data file of this system: none of its 3 lines";
    QTest::newRow("no line end for 3 MiB")
        << QByteArray(3 << 20, 'A') << QStringList()
        << "Decryption of data file failed!\nPlease contact Brenlock with this error.\n"
           "Reason: line 1 is longer than any record line";
}

// What is intact shows, a damaged line as an empty row without a word; a file that cannot be
// shown at all says why and leaves the window empty. There is no signature file here.
void TstHistory::damagedInputsSayWhatTheyMust() {
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, firstCells);
    QFETCH(QString, box);
    TestEnv env;
    const QString file = env.path("Log Files/bad.slg");
    QVERIFY(writeBytes(file, bytes));
    FrmHistory view;
    QCOMPARE(view.showDataFile(file), box.isEmpty());
    QStringList cells;
    for (int r = 0; r < view.dataGrid()->rowCount(); ++r)
        cells << view.dataGrid()->text(r, 0);
    QCOMPARE(cells, firstCells);
    if (box.isEmpty()) {
        QVERIFY(env.dialogs->boxes.isEmpty());
        QCOMPARE(view.statusText(),
                 "Current File is " + file + " - no signature file was found beside it");
        QCOMPARE(view.signatureGrid()->rowCount(), 0);
        return;
    }
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QVERIFY2(env.dialogs->boxes[0].text.contains(box), qPrintable(env.dialogs->boxes[0].text));
    QCOMPARE(gHistoryFileName, QString());
    // The copy stopped at the over-long line rather than taking the whole file aside.
    QVERIFY(QFileInfo(FrmHistory::encryptedCopyPath()).size() <= (1 << 20));
}

// The search shows the first data file whose head holds the text; the grid then prints the block
// selected in it.
void TstHistory::searchesAndPrintsTheSelectedBlock() {
    TestEnv env;
    QDir().mkpath(env.path("Log Files"));
    FrmHistory view;
    view.printHistoryGrid();
    env.dialogs->inputs = {"4242"};
    view.searchDataFiles();
    QCOMPARE(env.dialogs->texts(), (QStringList{"Data file has not been opened!\n"
                                                "Use the open file icon to load a data file.",
                                                "There are no files in the log files directory!"}));

    writeSigned(env.path("Log Files/a.slg"), enciphered(dataLines("111", 3)));
    writeSigned(env.path("Log Files/b.slg"), enciphered(dataLines("4242", 2)));
    QVERIFY(writeBytes(env.path("Log Files/a1.slg"), "not enciphered\r\n"));
    // A pipe named like a data file would never end a read: it is skipped, not opened.
    QCOMPARE(::mkfifo(QFile::encodeName(env.path("Log Files/a2.slg")).constData(), 0600), 0);
    writeSigned(env.path("Log Files/d.slg"), enciphered(dataLines("4242", 3)));
    env.dialogs->boxes.clear();
    env.dialogs->inputs = {"4242", QString(), "BATCH", "777"};
    view.searchDataFiles();
    QCOMPARE(gHistoryFileName, env.path("Log Files/b.slg"));
    QCOMPARE(view.dataGrid()->rowCount(), 3);
    QCOMPARE(view.statusText(), "Current File is " + env.path("Log Files/b.slg") +
                                    " - 2 unreadable files were skipped by the search");
    view.searchDataFiles(); // nothing entered: the file stays on show
    QCOMPARE(gHistoryFileName, env.path("Log Files/b.slg"));
    view.searchDataFiles(); // line 1 of every data file holds "Batch Number"
    const QString file = env.path("Log Files/a.slg");
    QCOMPARE(gHistoryFileName, file);
    view.searchDataFiles();
    QCOMPARE(gHistoryFileName, file);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Batch\\Lot number 777 was not found in the log files directory.\n"
                         "Search time was 0.00 seconds"});

    env.dialogs->boxes.clear();
    env.printers->available = false;
    view.printHistoryGrid();
    QCOMPARE(env.dialogs->texts(), QStringList{"There is no default printer!\n"
                                               "Please install or select a default printer."});
    env.printers->available = true;
    env.printers->printDialogAnswered = true;
    select(*view.dataGrid(), 2, 0, 3, 6);
    view.printHistoryGrid();
    QCOMPARE(env.printers->jobNames, QStringList{"History Grid Printout"});
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        QSKIP("pdftotext is not installed");
    const QString text = pdfText(env.printers->outputs.value(0));
    QVERIFY(text.contains("Grid printout for fileName " + file));
    QVERIFY(text.contains("182") && text.contains("183"));
    QVERIFY(!text.contains("181")); // rows outside the block
}

void TstHistory::scratchCopiesArePrivate() {
    TestEnv env;
    const QString file = env.path("Log Files/run.slg");
    writeSigned(file, enciphered(dataLines("7", 2)));
    const QString victim = env.path("victim");
    QVERIFY(writeBytes(victim, "victim") && QDir().mkpath(env.path("Enc")));
    FrmHistory view;
    auto open = [&] {
        env.dialogs->boxes.clear();
        env.dialogs->chooseFile(file);
        trigger(view, "Open");
        return view.dataGrid()->rowCount();
    };
    // Whatever the umask, the copy is the owner's alone, and the plain text is gone once shown.
    const mode_t umaskBefore = umask(0);
    const int rows = open();
    umask(umaskBefore);
    QCOMPARE(rows, 3);
    struct stat copy {};
    QCOMPARE(::stat(QFile::encodeName(FrmHistory::encryptedCopyPath()).constData(), &copy), 0);
    QCOMPARE(copy.st_mode & 07777, 0600u);
    QVERIFY(!QFileInfo::exists(FrmHistory::plainCopyPath()));

    // A link planted at either name is neither written through nor removed: the open fails.
    for (const QString& scratch : {FrmHistory::plainCopyPath(), FrmHistory::encryptedCopyPath()}) {
        QFile::remove(scratch);
        QVERIFY(QFile::link(victim, scratch));
        QCOMPARE(open(), 0);
        QVERIFY(env.dialogs->texts().value(0).startsWith(
            "Error Number 75. - Decryption of data file failed!"));
        QVERIFY(QFileInfo(scratch).isSymLink());
        QCOMPARE(readBytes(victim), QByteArray("victim"));
        QFile::remove(scratch);
    }
}

// The menu opens the window; a close while it loads is ignored, and the close after it clears
// the file.
void TstHistory::menuOpensOneWindowThatWaitsForItsLoad() {
    TestEnv env;
    const QString file = env.path("Log Files/long.slg");
    writeSigned(file, enciphered(dataLines("1", 1)).repeated(20000));
    auto* main = new FrmMain;
    main->show();
    main->menuItem(QStringLiteral("mnuHistory"))->trigger();
    FrmHistory* view = frmHistory();
    QVERIFY(view);
    // Looked at on every turn the load hands the event loop, until the deciphering shows its
    // label: how many turns the copy before it takes depends on the machine's load.
    bool labelShown = false;
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, view, [&] {
        if (view->findChild<QLabel*>("DcryLabel")->isHidden())
            return;
        watch.stop();
        labelShown = !view->toolbar()->isEnabled() && !view->close();
    });
    watch.start(0);
    QVERIFY(view->showDataFile(file));
    QVERIFY(labelShown);
    QVERIFY(view->findChild<QLabel*>("DcryLabel")->isHidden());
    QCOMPARE(view->dataGrid()->rowCount(), 59999);
    QVERIFY(view->close());
    QTRY_VERIFY(!frmHistory());
    QCOMPARE(gHistoryFileName, QString());
}

void TstHistory::selectionsAPlotCannotBeMadeOf() {
    TestEnv env;
    RecordGrid grid;
    fillGrid(grid, 10);
    QVERIFY(!checkPlotSelection(grid.selectedBlocks()));
    select(grid, 0, 5, 2, 5); // three rows
    QVERIFY(!checkPlotSelection(grid.selectedBlocks()));
    grid.clearSelection();
    select(grid, 0, 4, 5, 6); // from the lot number
    QVERIFY(!checkPlotSelection(grid.selectedBlocks()));
    QCOMPARE(env.dialogs->texts(),
             (QStringList{"you must select at least 4 cells\nfor historical trend!",
                          "you must select at least 4 cells\nfor historical trend!",
                          "Only data cells can be used\nfor historical trend!"}));
    grid.clearSelection();
    select(grid, 3, 5, 6, 5); // four rows of one column
    QVERIFY(checkPlotSelection(grid.selectedBlocks()));

    // Dates and times as the logger writes them, and in the forms of other machines.
    const QDate day(2026, 3, 14);
    QCOMPARE(rowMoment("3/14/2026", "1:05:09 PM"), QDateTime(day, QTime(13, 5, 9)));
    QCOMPARE(rowMoment("3/14/26", "13:05:09"), QDateTime(day, QTime(13, 5, 9)));
    QCOMPARE(rowMoment("3/14/2026", "12:00:01 am"), QDateTime(day, QTime(0, 0, 1)));
    QCOMPARE(rowMoment("14 Mar 2026", "12:30:00 PM"), QDateTime(day, QTime(12, 30)));
    for (const auto& [date, time] :
         {std::pair{"", ""}, {"3/14/2026", "13:00:00 PM"}, {"3/14/2026", "noon"}})
        QVERIFY(!rowMoment(date, time));
}

void TstHistory::blocksBecomeChannelsOverTheirRows() {
    TestEnv env;
    gHistoryFileName = env.path("Log Files/batch7.slg");
    QMdiArea area;
    area.show();
    RecordGrid grid;
    fillGrid(grid, 10);
    grid.setText(2, 6, ""); // an empty cell
    select(grid, 0, 5, 3, 5);
    select(grid, 2, 6, 7, 7);
    QVERIFY(PlotHistoryData(grid, grid.selectedBlocks(), &area));
    FrmHistoryPlot* window = frmHistoryPlot();
    QVERIFY(window && window->isVisible());
    QCOMPARE(window->windowTitle(), QStringLiteral("Historical Trend Plot"));
    Plot* plot = window->iPlotX;
    QCOMPARE(plot->title(), QStringLiteral("Current File is batch7.slg"));
    QCOMPARE((QStringList{plot->channelTitle(0), plot->channelTitle(1), plot->channelTitle(2)}),
             (QStringList{"TIC-1", "TIC-2", "FIC-3"}));
    QCOMPARE(plot->channelCount(), 3);
    QCOMPARE(plot->points(0).size(), 4);
    QCOMPARE(plot->points(0)[3], QPointF(at10(3), 183));
    // The empty cell is 0 in the plot and in the grid.
    QCOMPARE(plot->points(1).first(), QPointF(at10(2), 0));
    QCOMPARE(grid.text(2, 6), QStringLiteral("0"));
    QCOMPARE(plot->points(2).size(), 6);
    // The time axis runs from the first row of all blocks to the last.
    QCOMPARE((QList<double>{plot->xMin(), window->fullXSpan, plot->yMin(), plot->ySpan()}),
             (QList<double>{at10(0), 7.0 / 86400, 0, 100}));
    QVERIFY(!gPlotRunning);

    // The sliders zoom from the full spans; 100 is held at 99.
    window->DateSlider->setValue(100);
    QCOMPARE(window->DateSlider->value(), 99);
    QCOMPARE(plot->xSpan(), 0.01 * 7.0 / 86400);
    window->YSlider->setValue(50);
    QCOMPARE(plot->ySpan(), 50.0);

    // The setup dialog serves this plot by its name and sets the scale the sliders start from.
    env.modals.act([](QDialog* d) {
        auto* setup = qobject_cast<TrendSetup*>(d);
        setup->TrendZeroAnalog->setValue(150);
        setup->TrendSpanAnalog->setValue(200);
        setup->PWidth[1]->setValue(3);
        setup->OKButton->click();
    });
    window->trendSetup();
    QCOMPARE(gTrendSetupCaller, QStringLiteral("History Plot"));
    QCOMPARE((QList<double>{plot->yMin(), window->fullYSpan, double(plot->traceLineWidth(1))}),
             (QList<double>{150, 50, 3}));

    // Across a month's end the span comes from the day numbers alone.
    RecordGrid late;
    fillGrid(late, 2, QDate(2026, 3, 31));
    late.appendRow({"4/1/2026", "10:00:00 AM", ".", "7", "9", "1", "2", "3"});
    late.appendRow({"4/1/2026", "10:00:01 AM", ".", "7", "9", "1", "2", "3"});
    select(late, 0, 5, 3, 5);
    QVERIFY(PlotHistoryData(late, late.selectedBlocks(), &area));
    QCOMPARE(frmHistoryPlot(), window);
    QCOMPARE(window->fullXSpan, (1 - 31) + 1.0 / 86400);
}

void TstHistory::cancelPlotKeepsWhatWasDone() {
    TestEnv env;
    QMdiArea area;
    RecordGrid grid;
    // Large enough that the plot hands the event loop a turn before it is done.
    fillGrid(grid, 300000);
    select(grid, 0, 5, grid.rowCount() - 1, 7);
    QTimer::singleShot(0, [] { gPlotRunning = false; });
    QVERIFY(!PlotHistoryData(grid, grid.selectedBlocks(), &area));
    QCOMPARE(env.dialogs->texts(), QStringList{"Historical plot has been canceled by user."});
    QVERIFY(!gPlotRunning);
    QVERIFY(frmHistoryPlot()->iPlotX->channelCount() < 3);

    // The plot window closed on the way ends the plot as Cancel Plot does.
    env.dialogs->boxes.clear();
    QTimer::singleShot(0, [] { frmHistoryPlot()->close(); });
    QVERIFY(!PlotHistoryData(grid, grid.selectedBlocks(), &area));
    QCOMPARE(env.dialogs->texts(), QStringList{"Historical plot has been canceled by user."});
    QVERIFY(!gPlotRunning);

    // The viewer will not close while a plot reads its grid.
    FrmHistory viewer;
    gPlotRunning = true;
    QVERIFY(!viewer.close());
    gPlotRunning = false;
}

// The viewer's own Plot button on an enciphered data file as the logger writes it.
void TstHistory::plotButtonOfTheViewerOnARealDataFile() {
    TestEnv env;
    const QString file = env.path("Log Files/batch7.slg");
    writeSigned(file, enciphered(dataLines("7", 6)));
    QMdiArea area;
    area.show();
    auto* view = new FrmHistory;
    area.addSubWindow(view);
    view->show();
    QVERIFY(view->showDataFile(file));
    select(*view->dataGrid(), 1, 5, 6, 5);
    trigger(*view, "Plot");
    QCOMPARE(view->statusText(), "Current File is " + file);
    Plot* plot = frmHistoryPlot()->iPlotX;
    QCOMPARE(plot->channelTitle(0), QStringLiteral("TIC-1"));
    QList<double> values;
    for (const QPointF& p : plot->points(0))
        values << p.y();
    QCOMPARE(values, (QList<double>{181, 182, 183, 184, 185, 186}));
    QCOMPARE(plot->xMin(), at10(1));
    QCOMPARE(frmHistoryPlot()->fullXSpan, 5.0 / 86400);
    QVERIFY(env.dialogs->texts().isEmpty());
}

QTEST_MAIN(TstHistory)
#include "tst_history.moc"
