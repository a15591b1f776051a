// The historical plot: which selections it takes, what it draws from the grid of a data file,
// and Cancel Plot.

#include "displays/trend_setup.h"
#include "platform/plot.h"
#include "platform/record_grid.h"
#include "records/frm_history.h"
#include "records/frm_history_plot.h"
#include "records/record_file.h"
#include "records/signatures.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QAction>
#include <QDoubleSpinBox>
#include <QMdiArea>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTest>
#include <QTimer>
#include <QToolBar>

namespace {
// A grid as the viewer loads a data file: date, time, message, batch, lot, then the channels.
void fillGrid(RecordGrid& grid, int rows, const QDate& day = QDate(2026, 3, 14)) {
    grid.setColumnCount(8);
    grid.setColumnTitles({"Date", "Time", "Operator Message", "Batch Number", "Lot Number", "TIC-1",
                          "TIC-2", "FIC-3"});
    RecordGrid::BulkLoad load(grid);
    for (int r = 0; r < rows; ++r) {
        const QTime at = QTime(10, 0).addSecs(r);
        grid.appendRow({day.toString("M/d/yyyy"), at.toString("h:mm:ss AP"), ".", "7", "9",
                        QString::number(180 + r % 50), QString::number(12.5 + r % 3), "3.5"});
    }
}

void select(RecordGrid& grid, int row1, int col1, int row2, int col2) {
    grid.selectionModel()->select(
        QItemSelection(grid.model()->index(row1, col1), grid.model()->index(row2, col2)),
        QItemSelectionModel::Select);
}

double dayOf(const QDateTime& at) {
    return Plot::toDays(at);
}
} // namespace

class TstHistoryPlot : public QObject {
    Q_OBJECT
private slots:
    void selectionsAPlotCannotBeMadeOf();
    void blocksBecomeChannelsOverTheirRows();
    void cancelPlotKeepsWhatWasDone();
    void plotButtonOfTheViewerOnARealDataFile();
};

void TstHistoryPlot::selectionsAPlotCannotBeMadeOf() {
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
    QCOMPARE(rowMoment("3/14/2026", "1:05:09 PM"), QDateTime(QDate(2026, 3, 14), QTime(13, 5, 9)));
    QCOMPARE(rowMoment("3/14/26", "13:05:09"), QDateTime(QDate(2026, 3, 14), QTime(13, 5, 9)));
    QCOMPARE(rowMoment("3/14/2026", "12:00:01 am"), QDateTime(QDate(2026, 3, 14), QTime(0, 0, 1)));
    QCOMPARE(rowMoment("14 Mar 2026", "12:30:00 PM"), QDateTime(QDate(2026, 3, 14), QTime(12, 30)));
    QVERIFY(!rowMoment("", ""));
    QVERIFY(!rowMoment("3/14/2026", "13:00:00 PM"));
    QVERIFY(!rowMoment("3/14/2026", "noon"));
}

void TstHistoryPlot::blocksBecomeChannelsOverTheirRows() {
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
    QCOMPARE(plot->channelCount(), 3);
    QCOMPARE((QStringList{plot->channelTitle(0), plot->channelTitle(1), plot->channelTitle(2)}),
             (QStringList{"TIC-1", "TIC-2", "FIC-3"}));
    const QDateTime ten(QDate(2026, 3, 14), QTime(10, 0));
    const QVector<QPointF> first = plot->points(0);
    QCOMPARE(first.size(), 4);
    QCOMPARE(first[3], QPointF(dayOf(ten.addSecs(3)), 183));
    // The empty cell is 0 in the plot and in the grid.
    QCOMPARE(plot->points(1).first(), QPointF(dayOf(ten.addSecs(2)), 0));
    QCOMPARE(grid.text(2, 6), QStringLiteral("0"));
    QCOMPARE(plot->points(2).size(), 6);
    // The time axis runs from the first row of all blocks to the last.
    QCOMPARE(plot->xMin(), dayOf(ten));
    QCOMPARE(window->fullXSpan, 7.0 / 86400);
    QCOMPARE(plot->yMin(), 0.0);
    QCOMPARE(plot->ySpan(), 100.0);
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
    QCOMPARE(plot->yMin(), 150.0);
    QCOMPARE(window->fullYSpan, 50.0);
    QCOMPARE(plot->traceLineWidth(1), 3);

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

void TstHistoryPlot::cancelPlotKeepsWhatWasDone() {
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

    // The viewer will not close while a plot reads its grid.
    FrmHistory viewer;
    gPlotRunning = true;
    QVERIFY(!viewer.close());
    gPlotRunning = false;
}

// The viewer's own buttons on an enciphered data file as the logger writes it.
void TstHistoryPlot::plotButtonOfTheViewerOnARealDataFile() {
    TestEnv env;
    QDir().mkpath(env.path("Log Files"));
    const QString file = env.path("Log Files/batch7.slg");
    QStringList lines{"Date,Time,Operator Message,Batch Number,Lot Number,TIC-1,TIC-2,",
                      "3/14/2026,9:59:59 AM,File started,7,9,181.6,12.25,"};
    for (int i = 0; i < 6; ++i)
        lines << QStringLiteral("3/14/2026,10:00:0%1 AM,.,.,.,%2,12.5,").arg(i).arg(180 + i);
    QVERIFY(writeBytes(file, enciphered(lines)) &&
            writeBytes(signatureFileOf(file), enciphered({kSignatureHeader})));
    QMdiArea area;
    area.show();
    FrmHistory* view = new FrmHistory;
    area.addSubWindow(view);
    view->show();
    QVERIFY(view->showDataFile(file));
    RecordGrid* grid = view->dataGrid();
    select(*grid, 1, 5, 6, 5);
    view->toolbar()->findChild<QAction*>("Plot")->trigger();
    QCOMPARE(view->statusText(), "Current File is " + file);
    Plot* plot = frmHistoryPlot()->iPlotX;
    QCOMPARE(plot->channelTitle(0), QStringLiteral("TIC-1"));
    QList<double> values;
    for (const QPointF& p : plot->points(0))
        values << p.y();
    QCOMPARE(values, (QList<double>{180, 181, 182, 183, 184, 185}));
    QCOMPARE(plot->xMin(), dayOf(QDateTime(QDate(2026, 3, 14), QTime(10, 0))));
    QCOMPARE(frmHistoryPlot()->fullXSpan, 5.0 / 86400);
    QVERIFY(env.dialogs->texts().isEmpty());
}

QTEST_MAIN(TstHistoryPlot)
#include "tst_history_plot.moc"
