#include "digital_values.h"

#include "plant/comm_errors.h"
#include "plant/plant_store.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/placement.h"
#include "platform/printers.h"
#include "platform/record_grid.h"
#include "platform/window_parts.h"
#include "records/daily_files.h"
#include "records/viewer_commands.h"

#include <QAction>
#include <QCoreApplication>
#include <QHeaderView>
#include <QMdiArea>
#include <QPointer>
#include <QPrinter>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace {
constexpr int kWidthTwips = 4515;
constexpr int kHeightTwips = 2868;
// Below this the window has always put itself back to it.
constexpr int kMinWidthTwips = 4515;
constexpr int kMinHeightTwips = 2865;

QPointer<DigitalValues> gDigitalValues;

} // namespace

DigitalValues::DigitalValues(QWidget* parent)
    : ChildWindow(Life::Display, QStringLiteral("digitalValues"), parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("DigitalValues"),
                                         QStringLiteral("System Digital Values"));
    QWidget* body = widget();
    Toolbar1 = makeToolbar(body, Qt::ToolButtonTextUnderIcon);
    QAction* print = addToolButton(Toolbar1, QStyle::SP_FileIcon, QStringLiteral("Print"),
                                   QStringLiteral("Print Digital Values"));
    connect(print, &QAction::triggered, this, &DigitalValues::printDigitalValues);
    layout->addWidget(Toolbar1);
    Grid1 = new RecordGrid(body);
    Grid1->setObjectName(QStringLiteral("Grid1"));
    // The quality column says whether the values are measured or held (a controller that stopped
    // answering keeps its last values).
    Grid1->setColumns({QStringLiteral("Tagname"), QStringLiteral("Value"),
                       QStringLiteral("Tagname"), QStringLiteral("Value"),
                       QStringLiteral("Quality")},
                      {20, 9, 20, 9, 13});
    // Numbers with the controller's own decimals, their points one under the other.
    for (const int column : {1, 3})
        Grid1->setColumnAlignment(column, Qt::AlignRight);
    Grid1->setRowHeightUnits(11);
    Grid1->setLocked(true);
    layout->addWidget(Grid1, 1);

    Timer1 = new QTimer(this);
    Timer1->setObjectName(QStringLiteral("Timer1"));
    Timer1->setInterval(1000);
    connect(Timer1, &QTimer::timeout, this, &DigitalValues::timer1Tick);
    Timer1->start();

    const double tpp = twipsPerPixel(this);
    setMinimumSize(qRound(kMinWidthTwips / tpp), qRound(kMinHeightTwips / tpp));
}

void DigitalValues::timer1Tick() {
    if (gActiveCount <= 0) {
        Grid1->setRowCount(0);
        return;
    }
    QPointer<DigitalValues> alive(this);
    for (int i = 0; i < gActiveCount; ++i) {
        QCoreApplication::processEvents();
        if (!alive)
            return;
        // The list may have been rebuilt while the events ran.
        Grid1->setRowCount(gActiveCount);
        const int c = gActiveList.value(i) - 1;
        if (!validRow(c))
            continue;
        const auto row = size_t(c);
        Grid1->setText(i, 0, gPvTag[row]);
        // A reading that is no number (an error display) leaves the cell as it was.
        if (gPV[row].asNumber())
            Grid1->setText(i, 1, readingText(c, gPV[row]));
        Grid1->setText(i, 2, gSpTag[row]);
        if (gSP[row].asNumber())
            Grid1->setText(i, 3, readingText(c, gSP[row]));
        const QString quality = qualityText(c);
        if (Grid1->text(i, 4) != quality) {
            Grid1->setText(i, 4, quality);
            // Held values grey, as the bank's digits dim.
            Grid1->setRowColors(i, {}, isFresh(c) ? QColor() : QColor(Qt::gray));
        }
    }
}

void DigitalValues::printDigitalValues() {
    // The alarm log's texts: this window has always said so.
    if (Grid1->rowCount() == 0) {
        msgBox(QStringLiteral("There are no alarms to print!"), MsgIcon::Question, MsgButtons::Ok,
               QStringLiteral("Print Alarms"));
        return;
    }
    if (!printers().hasDefaultPrinter()) {
        msgBox(QStringLiteral("There is no default printer! Please install or select a default "
                              "printer."),
               MsgIcon::Critical);
        return;
    }
    const QDateTime now = currentDateTime();
    const GridPrintJob job = viewerPrintJob(
        QStringLiteral("System Digital Values Printout"),
        QStringLiteral("Current System Digital Values on ") + regionalShortDate(now.date()) +
            QStringLiteral(" at ") + regionalLongTime(now.time()));
    printGridCopies(*Grid1, job, QStringLiteral("printDigitalValues"));
}

DigitalValues* showDigitalValues(QMdiArea* area) {
    if (DigitalValues* open = gDigitalValues.data()) {
        open->bringForward();
        return open;
    }
    auto* window = new DigitalValues;
    gDigitalValues = window;
    area->addSubWindow(window);
    // Wide enough for its four columns at first: the grid's characters are wider here than the
    // window's old size allowed for.
    const int frame =
        2 * window->style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth, nullptr, window);
    const int width = std::max(
        kWidthTwips, qRound((window->Grid1->widthForColumns() + frame) * twipsPerPixel(area)));
    window->restoreCentred(width, kHeightTwips);
    window->show();
    window->timer1Tick();
    return window;
}
