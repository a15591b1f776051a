#include "frm_link_statistics.h"

#include "plant_store.h"
#include "platform/clock.h"
#include "platform/modbus_line.h"
#include "platform/record_grid.h"
#include "platform/window_parts.h"
#include "records/viewer_commands.h"
#include "scan_controller.h"

#include <QAction>
#include <QHeaderView>
#include <QLabel>
#include <QMdiArea>
#include <QPointer>
#include <QScrollBar>
#include <QStyle>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>
#include <cmath>

namespace {
constexpr int kHeightTwips = 6000;

QPointer<FrmLinkStatistics> gLinkStatistics;

QString millis(double micros) {
    return micros < 0 ? QString() : QString::number(micros / 1000.0, 'f', 1);
}

QString seconds(double micros) {
    return QString::number(micros / 1e6, 'f', 2) + QStringLiteral(" s");
}

// Whether the controller answers, from the quality the poll keeps and the line's back-off.
QString stateOf(int row) {
    if (!gAnswered[row] && gFailedReads[row] == 0)
        return QStringLiteral("No reading yet");
    if (!isNotAnswering(row))
        return QStringLiteral("Answering");
    ScanController* scan = scanController();
    const int held = scan ? scan->poll().heldRounds(row) : 0;
    if (held > 0)
        return QStringLiteral("Not answering, passed over for %1 more round(s)").arg(held);
    return QStringLiteral("Not answering");
}
} // namespace

FrmLinkStatistics::FrmLinkStatistics(QWidget* parent)
    : ChildWindow(Life::Closes, QStringLiteral("LinkStatistics"), parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("frmLinkStatistics"),
                                         QStringLiteral("Link Statistics"));
    QWidget* body = widget();
    QToolBar* toolbar = makeToolbar(body, Qt::ToolButtonTextUnderIcon);
    QAction* reset = addToolButton(toolbar, QStyle::SP_BrowserReload, QStringLiteral("Reset"),
                                   QStringLiteral("Start all counts again"));
    connect(reset, &QAction::triggered, this, &FrmLinkStatistics::resetCounters);
    QAction* exporting =
        addToolButton(toolbar, QStyle::SP_DialogSaveButton, QStringLiteral("Export"),
                      QStringLiteral("Export the statistics as a .csv file"));
    connect(exporting, &QAction::triggered, this, &FrmLinkStatistics::exportStatistics);
    layout->addWidget(toolbar);

    lblLine = new QLabel(body);
    lblLine->setObjectName(QStringLiteral("lblLine"));
    lblLine->setTextInteractionFlags(Qt::TextSelectableByMouse);
    lblLine->setWordWrap(true);
    layout->addWidget(lblLine);

    Grid1 = new RecordGrid(body);
    Grid1->setObjectName(QStringLiteral("Grid1"));
    Grid1->setColumns({QStringLiteral("Ctrl#"), QStringLiteral("Tag"),
                       QStringLiteral("Last reply ms"), QStringLiteral("Mean ms"),
                       QStringLiteral("Worst ms"), QStringLiteral("Requests"),
                       QStringLiteral("Time-outs"), QStringLiteral("Bad frames"),
                       QStringLiteral("Exceptions"), QStringLiteral("State")},
                      {6, 16, 11, 9, 9, 9, 9, 9, 9, 40});
    Grid1->verticalHeader()->hide();
    for (int c = LastMs; c <= Exceptions; ++c)
        Grid1->setColumnAlignment(c, Qt::AlignRight);
    Grid1->setLocked(true);
    Grid1->setToolTip(QStringLiteral(
        "Reply times run from the request going out to its reply. In the row \"Line\" the\n"
        "time columns are the rounds: one pass over every scanned controller."));
    layout->addWidget(Grid1, 1);

    Timer1 = new QTimer(this);
    Timer1->setObjectName(QStringLiteral("Timer1"));
    Timer1->setInterval(1000);
    connect(Timer1, &QTimer::timeout, this, &FrmLinkStatistics::timer1Tick);
    Timer1->start();
}

QString FrmLinkStatistics::lineSummary(qint64 now) {
    const ModbusLine& line = modbusLine();
    ScanController* scan = scanController();
    QStringList parts;
    const qint64 silence = modbusBackend().lineSilenceMicros();
    if (scan && scan->linePaced() && silence > 0)
        parts << QStringLiteral("As fast as the line allows: silence %1 ms, guard %2 ms.")
                     .arg(double(silence) / 1000.0, 0, 'f', 2)
                     .arg(line.pacing().guardMicros / 1000);
    else if (scan && scan->linePaced())
        parts << QStringLiteral("As fast as the link answers, guard %1 ms.")
                     .arg(line.pacing().guardMicros / 1000);
    else if (scan)
        parts << QStringLiteral("One read every %1 ms.").arg(scan->timer2()->interval());

    const PollCycle::Rounds* rounds = scan ? &scan->poll().rounds() : nullptr;
    if (rounds && rounds->count > 0)
        parts << QStringLiteral("Last round %1, mean %2 over %3.")
                     .arg(seconds(rounds->lastMicros), seconds(rounds->meanMicros()))
                     .arg(rounds->count);
    else
        parts << QStringLiteral("No round finished yet.");
    const double wire = wireRoundMicros();
    if (wire > 0.0)
        parts << QStringLiteral("Wire time of a round %1.").arg(seconds(wire));

    if (m_lastTick >= 0 && now > m_lastTick)
        m_lastRate = double(line.requests() - m_lastRequests) * 1e6 / double(now - m_lastTick);
    m_lastRequests = line.requests();
    m_lastTick = now;
    const qint64 span = now - line.countingSinceMicros();
    const double share = span > 0 ? 100.0 * double(line.busyMicros()) / double(span) : 0.0;
    parts << QStringLiteral("%1 requests a second; line in use %2 %.")
                 .arg(m_lastRate, 0, 'f', 1)
                 .arg(qMin(share, 100.0), 0, 'f', 0);
    return parts.join(QLatin1Char(' '));
}

void FrmLinkStatistics::timer1Tick() {
    const qint64 now = steadyMicros();
    lblLine->setText(lineSummary(now));
    const ModbusLine& line = modbusLine();
    QList<QStringList> rows;
    NodeLinkCounters sum;
    for (int i = 0; i < gActiveCount; ++i) {
        const int row = rowAtPosition(i);
        if (!validRow(row))
            continue;
        const NodeLinkCounters& c = line.node(row + 1);
        sum.requests += c.requests;
        sum.timeouts += c.timeouts;
        sum.badFrames += c.badFrames;
        sum.exceptions += c.exceptions;
        rows.append({QString::number(row + 1), gPvTag[row], millis(double(c.lastMicros)),
                     millis(c.meanMicros()),
                     c.answered > 0 ? millis(double(c.worstMicros)) : QString(),
                     QString::number(c.requests), QString::number(c.timeouts),
                     QString::number(c.badFrames), QString::number(c.exceptions), stateOf(row)});
    }
    ScanController* scan = scanController();
    const PollCycle::Rounds rounds = scan ? scan->poll().rounds() : PollCycle::Rounds{};
    const bool any = rounds.count > 0;
    rows.append(
        {QStringLiteral("Line"), QString(), any ? millis(double(rounds.lastMicros)) : QString(),
         any ? millis(rounds.meanMicros()) : QString(),
         any ? millis(double(rounds.worstMicros)) : QString(), QString::number(sum.requests),
         QString::number(sum.timeouts), QString::number(sum.badFrames),
         QString::number(sum.exceptions), QStringLiteral("%1 rounds").arg(rounds.count)});

    // Cells change in place, so that a selection or a scrolled view stays where the operator
    // put it; only a changed plant loads the grid anew.
    if (Grid1->rowCount() == rows.size()) {
        for (int r = 0; r < rows.size(); ++r)
            for (int c = 0; c < ColumnCount; ++c)
                if (Grid1->text(r, c) != rows[r][c])
                    Grid1->setText(r, c, rows[r][c]);
        return;
    }
    RecordGrid::BulkLoad bulk(*Grid1);
    Grid1->setRowCount(0);
    for (const QStringList& fields : std::as_const(rows))
        Grid1->appendRow(fields);
}

void FrmLinkStatistics::resetCounters() {
    modbusLine().resetCounters();
    if (ScanController* scan = scanController())
        scan->poll().resetRounds();
    m_lastRequests = 0;
    m_lastTick = steadyMicros();
    timer1Tick();
}

void FrmLinkStatistics::exportStatistics() {
    timer1Tick();
    exportGridAsCsv(*Grid1, QStringLiteral("Export link statistics as?"),
                    QStringLiteral("Comma Separated Files (*.csv)|*.csv"),
                    QStringLiteral("Link Statistics.csv"), QStringLiteral("exportStatistics"));
}

FrmLinkStatistics* showLinkStatistics(QMdiArea* area) {
    if (FrmLinkStatistics* open = gLinkStatistics.data()) {
        open->bringForward();
        return open;
    }
    auto* window = new FrmLinkStatistics;
    gLinkStatistics = window;
    area->addSubWindow(window);
    const int frame =
        2 * window->style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth, nullptr, window) +
        window->Grid1->verticalScrollBar()->sizeHint().width();
    window->restoreCentred(qRound((window->Grid1->widthForColumns() + frame) * twipsPerPixel(area)),
                           kHeightTwips);
    window->show();
    window->timer1Tick();
    return window;
}
