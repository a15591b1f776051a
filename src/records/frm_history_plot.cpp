#include "frm_history_plot.h"

#include "plant/comm_errors.h"
#include "platform/dialogs.h"
#include "platform/placement.h"
#include "platform/plot.h"
#include "platform/window_parts.h"
#include "records/frm_history.h"
#include "records/plot_commands.h"
#include "records/record_paths.h"
#include "records/trend_setup.h"
#include "security/rights.h"

#include <QAction>
#include <QGridLayout>
#include <QLocale>
#include <QMdiArea>
#include <QPointer>
#include <QSlider>
#include <QSpinBox>
#include <QToolBar>

namespace {
constexpr int kWidthTwips = 8130;
constexpr int kHeightTwips = 5055;
constexpr int kSliderTop = 100;

QPointer<FrmHistoryPlot> gHistoryPlot;

const QString kTooFewRows =
    QStringLiteral("you must select at least 4 cells\nfor historical trend!");

// A block's rows as the plot takes them: a whole-column selection is every row.
GridBlock rowsOf(GridBlock block, int rowCount) {
    if (block.row1 < 0)
        block.row1 = 0;
    if (block.row2 < 0)
        block.row2 = rowCount - 1;
    return block;
}

// A two-digit year of a regional date belongs to this century.
QDate withCentury(QDate date, const QString& format) {
    if (date.isValid() && !format.contains(QLatin1String("yyyy")) && date.year() < 2000)
        return date.addYears(100);
    return date;
}

QDate readDate(const QString& text) {
    const QLocale system = QLocale::system();
    const QString regional = system.dateFormat(QLocale::ShortFormat);
    QDate date = withCentury(system.toDate(text, regional), regional);
    for (const char* format : {"M/d/yy", "M/d/yyyy", "d MMM yyyy", "yyyy-MM-dd", "d.M.yyyy"}) {
        if (date.isValid())
            break;
        date = withCentury(QDate::fromString(text, QLatin1String(format)), QLatin1String(format));
    }
    return date;
}

// "10:05:09", "1:05:09 PM": the forms nearly every data file holds, read without the cost of
// a general parser, which a day of rows would feel.
QTime plainTime(const QString& text) {
    int fields[3] = {0, 0, 0};
    int field = 0;
    int digits = 0;
    qsizetype i = 0;
    for (; i < text.size() && field < 3; ++i) {
        const QChar c = text[i];
        if (c >= u'0' && c <= u'9' && digits < 2) {
            fields[field] = fields[field] * 10 + (c.unicode() - u'0');
            ++digits;
        } else if (c == u':' && digits > 0 && field < 2) {
            ++field;
            digits = 0;
        } else {
            break;
        }
    }
    if (field != 2 || digits == 0)
        return {};
    const QString rest = text.mid(i).trimmed();
    int hour = fields[0];
    if (!rest.isEmpty()) {
        const bool pm = rest.compare(QLatin1String("PM"), Qt::CaseInsensitive) == 0;
        if (!pm && rest.compare(QLatin1String("AM"), Qt::CaseInsensitive) != 0)
            return {};
        if (hour < 1 || hour > 12)
            return {};
        hour = hour % 12 + (pm ? 12 : 0);
    }
    return QTime(hour, fields[1], fields[2]);
}

QTime readTime(const QString& text) {
    if (const QTime plain = plainTime(text); plain.isValid())
        return plain;
    const QLocale system = QLocale::system();
    QTime time = system.toTime(text, QLocale::LongFormat);
    if (!time.isValid())
        time = system.toTime(text, QLocale::ShortFormat);
    for (const char* format : {"h:mm:ss AP", "h:mm:ss ap", "H:mm:ss", "HH:mm:ss", "H:mm"}) {
        if (time.isValid())
            break;
        time = QTime::fromString(text, QLatin1String(format));
    }
    return time;
}
} // namespace

std::optional<QDateTime> rowMoment(const QString& date, const QString& time) {
    // A day file holds one date for many thousand rows: read it once.
    static QString lastText;
    static QDate lastDate;
    if (date != lastText) {
        lastText = date;
        lastDate = readDate(date.trimmed());
    }
    const QTime t = readTime(time.trimmed());
    if (!lastDate.isValid() || !t.isValid())
        return std::nullopt;
    return QDateTime(lastDate, t);
}

FrmHistoryPlot* frmHistoryPlot() {
    return gHistoryPlot.data();
}

FrmHistoryPlot::FrmHistoryPlot(QWidget* parent)
    : ChildWindow(Life::Closes, QStringLiteral("History\\HistPlot"), parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    setProperty("Tag", kHistoryPlotCaller);
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("frmHistoryPlot"),
                                         QStringLiteral("Historical Trend Plot"));
    QWidget* body = widget();
    Toolbar1 = makeToolbar(body, Qt::ToolButtonIconOnly);
    ToolCommands button(Toolbar1, this);
    button(QStyle::SP_FileDialogDetailedView, "Setup", "Trend Setup", &FrmHistoryPlot::trendSetup);
    button(QStyle::SP_FileDialogContentsView, "Cursor", "Show/Hide Data Cursor",
           &FrmHistoryPlot::toggleDataCursor);
    button(QStyle::SP_DriveFDIcon, "Jpeg", "Save as Jpeg", &FrmHistoryPlot::saveJpeg);
    // The value axis to the data in view; the scale set up stays for the next setup.
    button(QStyle::SP_ToolBarVerticalExtensionButton, "Fit", "Fit Value Axis to Data",
           [this] { iPlotX->fitValueAxis(); });
    button(QStyle::SP_FileIcon, "Print", "Print Trend", &FrmHistoryPlot::printPlot);
    layout->addWidget(Toolbar1);

    auto* grid = new QGridLayout;
    grid->setContentsMargins(4, 4, 4, 4);
    iPlotX = new Plot(body);
    iPlotX->setDateTimeFormat(QStringLiteral("m/d hh:nn:ss"));
    YSlider = new QSlider(Qt::Vertical, body);
    YSlider->setObjectName(QStringLiteral("YSlider"));
    DateSlider = new QSlider(Qt::Horizontal, body);
    DateSlider->setObjectName(QStringLiteral("DateSlider"));
    for (QSlider* slider : {YSlider, DateSlider})
        slider->setRange(0, kSliderTop);
    bindZoomSlider(DateSlider, iPlotX, true, [this] { return fullXSpan; });
    bindZoomSlider(YSlider, iPlotX, false, [this] { return fullYSpan; });
    grid->addWidget(iPlotX, 0, 0);
    grid->addWidget(YSlider, 0, 1);
    grid->addWidget(DateSlider, 1, 0);
    layout->addLayout(grid, 1);
    gHistoryPlot = this;
}

void FrmHistoryPlot::trendSetup() {
    if (!checkAccess(Right::TrendingSetup))
        return;
    gTrendSetupCaller = kHistoryPlotCaller;
    TrendSetup setup(window());
    setup.fillFromPlot(*iPlotX);
    for (int i = 0; i < std::min(iPlotX->channelCount(), TrendSetup::kPenRows); ++i)
        setup.PWidth[size_t(i)]->setValue(iPlotX->traceLineWidth(i));
    setup.histPlotobj = iPlotX;
    if (setup.exec() == QDialog::Accepted) {
        // The sliders zoom from the scale the dialog set.
        fullYSpan = iPlotX->ySpan();
        YSlider->setValue(0);
    }
}

void FrmHistoryPlot::toggleDataCursor() {
    iPlotX->setDataCursorVisible(!iPlotX->dataCursorVisible());
}

void FrmHistoryPlot::saveJpeg() {
    savePlotJpeg(*iPlotX, fileBaseName(gHistoryFileName) + QStringLiteral(".jpg"));
}

void FrmHistoryPlot::printPlot() {
    ::printPlot(*iPlotX, windowTitle());
}

bool checkPlotSelection(const QList<GridBlock>& blocks) {
    if (blocks.isEmpty()) {
        msgBox(kTooFewRows);
        return false;
    }
    for (const GridBlock& block : blocks) {
        // Whole columns run to the last row, so only a short block is refused here.
        if (block.row1 >= 0 && block.row2 >= 0 && block.row2 - block.row1 < 3) {
            msgBox(kTooFewRows);
            return false;
        }
        if (block.col1 < kFirstDataColumn) {
            msgBox(QStringLiteral("Only data cells can be used\nfor historical trend!"));
            return false;
        }
    }
    return true;
}

bool PlotHistoryData(RecordGrid& grid, const QList<GridBlock>& blocks, QMdiArea* area) {
    gPlotRunning = true;
    WaitCursor hourglass;
    FrmHistoryPlot* window = frmHistoryPlot();
    const bool fresh = !window;
    if (fresh) {
        window = new FrmHistoryPlot;
        if (area)
            area->addSubWindow(window);
    }
    QPointer<FrmHistoryPlot> alive(window);
    Plot& plot = *window->iPlotX;
    plot.removeAllChannels();
    plot.setYMin(0);
    plot.setYSpan(100);
    plot.setXMin(0);
    window->DateSlider->setValue(0);
    window->YSlider->setValue(0);
    plot.setTitle(QStringLiteral("Current File is ") + fileNameOnly(gHistoryFileName));
    FrmHistory* viewer = frmHistory();
    if (viewer)
        viewer->showPlotProgress(true);

    // Cancel Plot, or the plot window closed on the way: the plot ends, the viewer is free again.
    auto endCancelled = [viewer] {
        if (viewer)
            viewer->showPlotProgress(false);
        gPlotRunning = false;
        msgBox(QStringLiteral("Historical plot has been canceled by user."), MsgIcon::Information);
        return false;
    };
    int firstRow = -1;
    int lastRow = -1;
    Yielder yielder;
    bool cancelled = false;
    for (const GridBlock& selected : blocks) {
        const GridBlock block = rowsOf(selected, grid.rowCount());
        firstRow = firstRow < 0 ? block.row1 : std::min(firstRow, block.row1);
        lastRow = std::max(lastRow, block.row2);
        // The moments of the block's rows, read once for all its columns; a row whose date and
        // time do not read (a line that did not decipher) is left out.
        QVector<double> days;
        QVector<int> rows;
        for (int r = block.row1; r <= block.row2 && r < grid.rowCount() && !cancelled; ++r) {
            if (const auto at = rowMoment(grid.text(r, 0), grid.text(r, 1))) {
                days.append(Plot::toDays(*at));
                rows.append(r);
            }
            if (yielder.due()) {
                yielder.yield();
                if (!alive)
                    return endCancelled();
                cancelled = !gPlotRunning;
            }
        }
        for (int c = block.col1; c <= block.col2 && !cancelled; ++c) {
            if (!gPlotRunning) {
                cancelled = true;
                break;
            }
            const int channel = plot.addChannel();
            plot.setChannelTitle(channel, grid.columnTitle(c));
            plot.setRingBufferSize(channel, std::max(1, int(rows.size())));
            QVector<double> values;
            values.reserve(rows.size());
            for (qsizetype k = 0; k < rows.size(); ++k) {
                const int r = rows[k];
                QString cell = grid.text(r, c);
                if (cell.isEmpty()) {
                    grid.setText(r, c, QStringLiteral("0"));
                    cell = QStringLiteral("0");
                }
                // A text that is no number counts as 0.
                values.append(cell.trimmed().toDouble());
                if (yielder.due()) {
                    if (viewer)
                        viewer->setPlotProgress(int(100 * (k + 1) / rows.size()));
                    yielder.yield();
                    if (!alive)
                        return endCancelled();
                    if (!gPlotRunning) {
                        cancelled = true;
                        break;
                    }
                }
            }
            plot.addPoints(channel, days.mid(0, values.size()), values);
        }
        if (cancelled)
            break;
    }
    if (cancelled)
        return endCancelled();
    if (viewer)
        viewer->showPlotProgress(false);
    // The span from the day of the month, the hours, minutes and seconds: the month is not
    // looked at, so a plot across a month's end has the span of its day numbers.
    const auto start = rowMoment(grid.text(firstRow, 0), grid.text(firstRow, 1));
    const auto end = rowMoment(grid.text(lastRow, 0), grid.text(lastRow, 1));
    if (start && end) {
        const QDate d0 = start->date();
        const QDate d1 = end->date();
        const QTime t0 = start->time();
        const QTime t1 = end->time();
        window->fullXSpan = (d1.day() - d0.day()) + (t1.hour() - t0.hour()) / 24.0 +
                            (t1.minute() - t0.minute()) / 1440.0 +
                            (t1.second() - t0.second()) / 86400.0;
        plot.setXSpan(window->fullXSpan);
        plot.setXMin(Plot::toDays(*start));
    }
    window->fullYSpan = 100;
    if (fresh || !window->isVisible()) {
        PlacementTwips place{0, 0, kWidthTwips, kHeightTwips};
        if (area) {
            const double tpp = twipsPerPixel(area);
            const QSize client = area->viewport()->size();
            place.left = qRound((client.width() * tpp - kWidthTwips) / 2);
            place.top = qRound((client.height() * tpp - kHeightTwips) / 2);
        }
        window->restorePlacement(place);
        window->show();
    }
    gPlotRunning = false;
    return true;
}
