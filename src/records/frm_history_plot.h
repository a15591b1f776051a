#pragma once

#include "plant/child_window.h"
#include "platform/record_grid.h"

#include <QDateTime>
#include <optional>

class Plot;
class QMdiArea;
class QSlider;
class QToolBar;

// Set while a historical plot is being built; Cancel Plot clears it, and the data file viewer
// will not close meanwhile.
inline bool gPlotRunning = false;

// "Historical Trend Plot": the blocks of a data file selected in the viewer's grid, a channel a
// column and a point a row, against the row's date and time.
class FrmHistoryPlot : public ChildWindow {
    Q_OBJECT
public:
    explicit FrmHistoryPlot(QWidget* parent = nullptr);

    Plot* iPlotX = nullptr;
    QSlider* YSlider = nullptr;
    QSlider* DateSlider = nullptr;
    QToolBar* Toolbar1 = nullptr;
    // The spans the sliders zoom from.
    double fullXSpan = 0.0;
    double fullYSpan = 100.0;

    void trendSetup();
    void toggleDataCursor();
    void saveJpeg();
    void printPlot();
};

// The window while it is loaded.
FrmHistoryPlot* frmHistoryPlot();

// The first column a plot may start at: date, time, operator message, batch and lot come first.
inline constexpr int kFirstDataColumn = 5;

// The check of the Plot button: false, with its box, for a selection a plot cannot be made of.
bool checkPlotSelection(const QList<GridBlock>& blocks);

// A data row's moment from its date and time columns, as the logger wrote them in the regional
// formats (or in the forms data files of other machines use); nothing when they do not read.
std::optional<QDateTime> rowMoment(const QString& date, const QString& time);

// Plots the blocks of the grid into the history plot window (made and shown as needed), with
// the file's name in its title. Empty cells become 0 in the grid too. False when it was cancelled
// (Cancel Plot) or failed; the channels made so far stay.
bool PlotHistoryData(RecordGrid& grid, const QList<GridBlock>& blocks, QMdiArea* area);
