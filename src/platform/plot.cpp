#include "plot.h"

#include "clock.h"
#include "page_print.h"

#include <QImageWriter>
#include <QPicture>
#include <QPrinter>
#include <QVBoxLayout>
#include <cmath>
#include <limits>
#include <qcustomplot.h>

namespace {
constexpr double kMsPerDay = 86'400'000.0;

// Steps in days, labels as date and time in the system's format, minor ticks as set.
class DaysTicker : public QCPAxisTicker {
public:
    QString format;
    int minor = 0;

protected:
    QString getTickLabel(double tick, const QLocale&, QChar, int) override {
        return QDateTime::fromMSecsSinceEpoch(qint64(tick * kMsPerDay)).toString(format);
    }
    int getSubTickCount(double) override { return minor; }
};

class ValueTicker : public QCPAxisTicker {
public:
    int minor = 0;

protected:
    int getSubTickCount(double) override { return minor; }
};

void colorAxis(QCPAxis* axis, const QColor& labels, const QColor& lines) {
    axis->setTickLabelColor(labels);
    axis->setLabelColor(labels);
    for (auto setPen : {&QCPAxis::setBasePen, &QCPAxis::setTickPen, &QCPAxis::setSubTickPen})
        (axis->*setPen)(QPen(lines));
}
} // namespace

Plot::Plot(QWidget* parent) : QWidget(parent), m_plot(new QCustomPlot(this)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_plot);
    m_plot->setObjectName(QStringLiteral("iPlotX"));
    m_plot->xAxis->setTicker(QSharedPointer<DaysTicker>::create());
    m_plot->yAxis->setTicker(QSharedPointer<ValueTicker>::create());
    m_plot->legend->setVisible(true);
    // Beside the chart, not over it: the newest points are drawn at the right edge.
    auto* legendCell = new QCPLayoutGrid;
    m_plot->plotLayout()->addElement(0, 1, legendCell);
    m_plot->plotLayout()->setColumnStretchFactor(1, 0.001);
    m_plot->axisRect()->insetLayout()->take(m_plot->legend);
    legendCell->addElement(0, 0, m_plot->legend);
    legendCell->addElement(1, 0, new QCPLayoutElement(m_plot)); // keeps the legend at the top
    legendCell->setRowStretchFactor(0, 0.001);
    m_plot->plotLayout()->setMargins(QMargins(0, 0, 4, 0));
    showXRange(toDays(currentDateTime()) - m_xSpan);
    showYRange();
    // The time axis may be pulled back through the past; that stops tracking.
    m_plot->setInteraction(QCP::iRangeDrag, true);
    m_plot->axisRect()->setRangeDrag(Qt::Horizontal);
    connect(m_plot->xAxis, qOverload<const QCPRange&>(&QCPAxis::rangeChanged), this, [this] {
        if (!m_settingRange && m_tracking) {
            m_tracking = false;
            emit trackingStopped();
        }
    });
    // The data cursor: a line across the plot where the mouse is, and a box naming the moment
    // and every pen's value there.
    m_cursorLine = new QCPItemStraightLine(m_plot);
    m_cursorLine->setPen(QPen(Qt::gray, 1, Qt::DashLine));
    m_cursorLine->setVisible(false);
    m_cursorText = new QCPItemText(m_plot);
    m_cursorText->position->setType(QCPItemPosition::ptAxisRectRatio);
    m_cursorText->position->setCoords(0.01, 0.02);
    m_cursorText->setPositionAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_cursorText->setTextAlignment(Qt::AlignLeft);
    m_cursorText->setPadding(QMargins(4, 2, 4, 2));
    m_cursorText->setPen(QPen(Qt::gray));
    m_cursorText->setBrush(QColor(255, 255, 255, 215));
    m_cursorText->setColor(Qt::black);
    m_cursorText->setVisible(false);
    connect(m_plot, &QCustomPlot::mouseMove, this, [this](QMouseEvent* event) {
        if (dataCursorVisible())
            setDataCursorKey(m_plot->xAxis->pixelToCoord(event->position().x()));
    });
    // New points change what stands at the cursor.
    connect(m_plot, &QCustomPlot::beforeReplot, this, [this] {
        if (dataCursorVisible())
            m_cursorText->setText(dataCursorText());
        fitTimeLabels();
    });
    setXColors(m_xLabelColor, m_xScaleColor);
    setYColors(m_yLabelColor, m_yScaleColor);
    setBackgroundColor(m_backgroundColor);
    // Time labels until a plot is given its own format.
    setDateTimeFormat(QStringLiteral("hh:nn:ss"));
}

QColor Plot::toColor(qint32 value) {
    const auto v = static_cast<quint32>(value);
    return QColor(int(v & 0xFF), int((v >> 8) & 0xFF), int((v >> 16) & 0xFF));
}

qint32 Plot::fromColor(const QColor& color) {
    return qint32(quint32(color.red()) | quint32(color.green()) << 8 | quint32(color.blue()) << 16);
}

double Plot::toDays(const QDateTime& at) {
    return double(at.toMSecsSinceEpoch()) / kMsPerDay;
}

QString Plot::qtDateTimeFormat(const QString& format) {
    QString out;
    QString text = format;
    text.replace(QLatin1String("am/pm"), QLatin1String("\x01"), Qt::CaseInsensitive);
    for (qsizetype i = 0; i < text.size();) {
        const QChar c = text[i].toLower();
        qsizetype run = 1;
        while (i + run < text.size() && text[i + run].toLower() == c)
            ++run;
        i += run;
        if (c == u'n')
            out += QString(run, u'm');
        else if (c == u'm')
            out += run >= 3 ? QString(std::min<qsizetype>(run, 4), u'M') : QString(run, u'M');
        else if (c == u'y')
            out += run >= 3 ? QStringLiteral("yyyy") : QStringLiteral("yy");
        else if (c == u'h' || c == u's' || c == u'z' || c == u'd')
            out += QString(run, c);
        else if (c == u'\x01')
            out += QStringLiteral("AP"); // beside it Qt's "h" counts to 12 by itself
        else
            out += u'\'' + QString(run, text[i - 1]) + u'\'';
    }
    return out;
}

QCPGraph* Plot::graph(int i) const {
    return i >= 0 && i < m_plot->graphCount() ? m_plot->graph(i) : nullptr;
}

void Plot::replotSoon() {
    m_plot->replot(QCustomPlot::rpQueuedReplot);
}

int Plot::addChannel() {
    // Each channel in a colour of its own until it is given one.
    static const QColor kColours[] = {
        Qt::red,      Qt::blue,    QColor(0, 160, 0), Qt::magenta,         QColor(255, 128, 0),
        Qt::darkCyan, Qt::darkRed, Qt::darkBlue,      QColor(128, 128, 0), Qt::darkMagenta,
        Qt::gray,     Qt::black};
    QCPGraph* g = m_plot->addGraph();
    g->setPen(QPen(kColours[(m_plot->graphCount() - 1) % std::size(kColours)]));
    m_rings.append(kDefaultRing);
    m_notes.append(QString());
    replotSoon();
    return m_plot->graphCount() - 1;
}

void Plot::removeAllChannels() {
    m_plot->clearGraphs();
    m_rings.clear();
    m_notes.clear();
    replotSoon();
}

int Plot::channelCount() const {
    return m_plot->graphCount();
}

namespace {
QString noteSuffix(const QString& note) {
    return note.isEmpty() ? QString() : QStringLiteral(" (") + note + u')';
}
} // namespace

QString Plot::channelTitle(int i) const {
    if (!graph(i))
        return {};
    // The legend's text is the graph's name: the note is taken off it.
    const QString name = graph(i)->name();
    const QString suffix = noteSuffix(channelNote(i));
    return name.endsWith(suffix) ? name.chopped(suffix.size()) : name;
}

void Plot::setChannelTitle(int i, const QString& title) {
    if (QCPGraph* g = graph(i)) {
        g->setName(title + noteSuffix(channelNote(i)));
        replotSoon();
    }
}

QString Plot::channelNote(int i) const {
    return m_notes.value(i);
}

void Plot::setChannelNote(int i, const QString& note) {
    QCPGraph* g = graph(i);
    if (!g || i >= m_notes.size() || m_notes[i] == note)
        return;
    const QString title = channelTitle(i);
    m_notes[i] = note;
    g->setName(title + noteSuffix(note));
    replotSoon();
}

void Plot::addGap(int i, const QDateTime& at) {
    QCPGraph* g = graph(i);
    if (!g || !at.isValid())
        return;
    const auto stored = g->data();
    if (!stored->isEmpty() && std::isnan((stored->constEnd() - 1)->value))
        return;
    addPoint(i, at, std::numeric_limits<double>::quiet_NaN());
}

qint32 Plot::channelColor(int i) const {
    return graph(i) ? fromColor(graph(i)->pen().color()) : 0;
}

void Plot::setChannelColor(int i, qint32 color) {
    if (QCPGraph* g = graph(i)) {
        QPen pen = g->pen();
        pen.setColor(toColor(color));
        g->setPen(pen);
        replotSoon();
    }
}

void Plot::setChannelDots(int i, qint32 color) {
    if (QCPGraph* g = graph(i)) {
        g->setScatterStyle(QCPScatterStyle(QCPScatterStyle::ssDisc, toColor(color), 5));
        replotSoon();
    }
}

int Plot::traceLineWidth(int i) const {
    return graph(i) ? graph(i)->pen().width() : 0;
}

void Plot::setTraceLineWidth(int i, int width) {
    if (QCPGraph* g = graph(i)) {
        QPen pen = g->pen();
        pen.setWidth(std::max(width, 0));
        g->setPen(pen);
        replotSoon();
    }
}

int Plot::ringBufferSize(int i) const {
    return m_rings.value(i);
}

void Plot::setRingBufferSize(int i, int points) {
    if (i < 0 || i >= m_rings.size())
        return;
    m_rings[i] = std::max(points, 1);
    addPoint(i, {}, 0.0); // a null moment adds nothing and trims to the new ring
}

void Plot::addPoint(int i, const QDateTime& at, double value) {
    QCPGraph* g = graph(i);
    if (!g)
        return;
    if (at.isValid())
        g->addData(toDays(at), value);
    const int ring = m_rings.value(i, kDefaultRing);
    const auto stored = g->data();
    if (stored->size() > ring) {
        const auto first = stored->constEnd() - ring;
        // Dropping the oldest costs nothing while the moments differ; points of one moment
        // cannot be told apart by their key, so then the newest are copied.
        if (first->key > (first - 1)->key) {
            stored->removeBefore(first->key);
        } else {
            const QVector<QCPGraphData> kept(first, stored->constEnd());
            stored->set(kept, true);
        }
    }
    follow();
    replotSoon();
}

void Plot::addPoints(int i, const QVector<double>& days, const QVector<double>& values) {
    QCPGraph* g = graph(i);
    if (!g || days.size() != values.size())
        return;
    // Points in order keep it, those of one moment too (the steps of a profile).
    g->addData(days, values, std::is_sorted(days.cbegin(), days.cend()));
    addPoint(i, {}, 0.0); // trims to the ring and follows
}

void Plot::setTitle(const QString& title) {
    if (title.isEmpty()) {
        if (m_title) {
            m_plot->plotLayout()->remove(m_title);
            m_plot->plotLayout()->simplify();
            m_title = nullptr;
        }
    } else if (m_title) {
        m_title->setText(title);
    } else {
        m_plot->plotLayout()->insertRow(0);
        m_title = new QCPTextElement(m_plot, title,
                                     QFont(font().family(), font().pointSize() + 1, QFont::Bold));
        m_title->setTextColor(toColor(m_legendColor));
        m_plot->plotLayout()->addElement(0, 0, m_title);
    }
    replotSoon();
}

QString Plot::title() const {
    return m_title ? m_title->text() : QString();
}

QVector<QPointF> Plot::points(int i) const {
    QVector<QPointF> out;
    if (const QCPGraph* g = graph(i)) {
        for (auto it = g->data()->constBegin(); it != g->data()->constEnd(); ++it)
            out.append({it->key, it->value});
    }
    return out;
}

void Plot::follow() {
    if (!m_tracking)
        return;
    bool any = false;
    double newest = 0.0;
    for (int i = 0; i < channelCount(); ++i) {
        if (!graph(i)->data()->isEmpty()) {
            const double last = (graph(i)->data()->constEnd() - 1)->key;
            newest = any ? std::max(newest, last) : last;
            any = true;
        }
    }
    // A trend without points yet shows the span that ends now.
    showXRange((any ? newest : toDays(currentDateTime())) - m_xSpan);
}

// A span of zero or beyond what the axis can show is kept as set, and shown as the nearest
// range the axis takes.
QCPRange Plot::shownRange(double lower, double span) {
    double upper = lower + span;
    if (!(std::abs(upper - lower) > std::abs(lower) * 1e-12))
        upper = lower + std::max(std::abs(lower) * 1e-12, 1e-12);
    return QCPRange(lower, upper);
}

void Plot::showXRange(double lower) {
    const QCPRange range = shownRange(lower, m_xSpan);
    m_settingRange = true;
    m_plot->xAxis->setRange(range);
    m_settingRange = false;
}

void Plot::showYRange() {
    m_plot->yAxis->setRange(shownRange(m_yMin, m_ySpan));
}

void Plot::fitTimeLabels() {
    // As many time labels as fit side by side with room between them.
    const QFontMetrics metrics(m_plot->xAxis->tickLabelFont());
    const auto* ticker = static_cast<const DaysTicker*>(m_plot->xAxis->ticker().data());
    const int label =
        metrics.horizontalAdvance(
            QDateTime(QDate(2026, 12, 28), QTime(23, 58, 58)).toString(ticker->format)) +
        4 * metrics.horizontalAdvance(u'0');
    m_plot->xAxis->ticker()->setTickCount(
        std::clamp(m_plot->axisRect()->width() * 2 / (3 * std::max(label, 1)), 1, 5));
}

double Plot::xMin() const {
    return m_plot->xAxis->range().lower;
}

double Plot::xSpan() const {
    return m_xSpan;
}

void Plot::setXMin(double days) {
    showXRange(days);
    replotSoon();
}

void Plot::setXSpan(double days) {
    m_xSpan = days;
    showXRange(xMin());
    follow();
    replotSoon();
}

double Plot::yMin() const {
    return m_yMin;
}

double Plot::ySpan() const {
    return m_ySpan;
}

void Plot::setYMin(double value) {
    m_yMin = value;
    showYRange();
    replotSoon();
}

void Plot::setYSpan(double span) {
    m_ySpan = span;
    showYRange();
    replotSoon();
}

bool Plot::fitValueAxis() {
    const QCPRange shown = m_plot->xAxis->range();
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (int i = 0; i < channelCount(); ++i) {
        const auto stored = graph(i)->data();
        for (auto it = stored->findBegin(shown.lower, false);
             it != stored->findEnd(shown.upper, false); ++it) {
            if (std::isnan(it->value))
                continue;
            low = std::min(low, it->value);
            high = std::max(high, it->value);
        }
    }
    if (low > high)
        return false;
    // A margin of a twentieth of the range each side, a unit where the values are all one.
    const double margin = high > low ? (high - low) / 20 : std::max(1.0, std::abs(low) / 20);
    setYMin(low - margin);
    setYSpan(high - low + 2 * margin);
    return true;
}

void Plot::setXColors(qint32 labels, qint32 scaleLines) {
    m_xLabelColor = labels;
    m_xScaleColor = scaleLines;
    colorAxis(m_plot->xAxis, toColor(labels), toColor(scaleLines));
    replotSoon();
}

void Plot::setYColors(qint32 labels, qint32 scaleLines) {
    m_yLabelColor = labels;
    m_yScaleColor = scaleLines;
    colorAxis(m_plot->yAxis, toColor(labels), toColor(scaleLines));
    replotSoon();
}

void Plot::setLegendColor(qint32 color) {
    m_legendColor = color;
    m_plot->legend->setTextColor(toColor(color));
    if (m_title)
        m_title->setTextColor(toColor(color));
    replotSoon();
}

void Plot::setBackgroundColor(qint32 color) {
    m_backgroundColor = color;
    const QColor c = toColor(color);
    m_plot->setBackground(c);
    m_plot->axisRect()->setBackground(c);
    m_plot->legend->setBrush(c);
    replotSoon();
}

void Plot::setMinorCounts(int x, int y) {
    m_xMinor = std::max(x, 0);
    m_yMinor = std::max(y, 0);
    static_cast<DaysTicker*>(m_plot->xAxis->ticker().data())->minor = m_xMinor;
    static_cast<ValueTicker*>(m_plot->yAxis->ticker().data())->minor = m_yMinor;
    replotSoon();
}

void Plot::setDateTimeFormat(const QString& format) {
    m_dateTimeFormat = format;
    static_cast<DaysTicker*>(m_plot->xAxis->ticker().data())->format = qtDateTimeFormat(format);
    replotSoon();
}

void Plot::setTrackingEnabled(bool on) {
    m_tracking = on;
    follow();
    replotSoon();
}

bool Plot::dataCursorVisible() const {
    return m_cursorLine->visible();
}

void Plot::setDataCursorVisible(bool visible) {
    m_cursorLine->setVisible(visible);
    m_cursorText->setVisible(visible);
    // It comes up in the middle of what is shown.
    if (visible)
        setDataCursorKey(xMin() + xSpan() / 2);
    replotSoon();
}

void Plot::setDataCursorKey(double days) {
    m_cursorKey = days;
    m_cursorLine->point1->setCoords(days, 0);
    m_cursorLine->point2->setCoords(days, 1);
    m_cursorText->setText(dataCursorText());
    replotSoon();
}

QString Plot::dataCursorText() const {
    const QString format = m_dateTimeFormat.isEmpty() ? QStringLiteral("hh:mm:ss")
                                                      : qtDateTimeFormat(m_dateTimeFormat);
    QStringList lines{QDateTime::fromMSecsSinceEpoch(qint64(std::round(m_cursorKey * kMsPerDay)))
                          .toString(format)};
    for (int i = 0; i < channelCount(); ++i) {
        // The newest point at or before the cursor.
        const auto stored = graph(i)->data();
        const auto after = stored->findEnd(m_cursorKey, false);
        const QString value = after == stored->constBegin() || std::isnan((after - 1)->value)
                                  ? QStringLiteral("-")
                                  : QString::number((after - 1)->value, 'g', 6);
        lines << channelTitle(i) + QStringLiteral(": ") + value;
    }
    return lines.join(u'\n');
}

bool Plot::saveJpeg(const QString& path, int quality, QString* error) {
    QImageWriter writer(path, "jpg");
    writer.setQuality(quality);
    writer.setProgressiveScanWrite(true);
    if (writer.write(m_plot->toPixmap().toImage()))
        return true;
    if (error)
        *error = writer.errorString();
    return false;
}

bool Plot::print(QPrinter& printer, const PrintJob& job, QString* error) {
    PagePrinter pages(printer, job, *this);
    if (!pages.begin(error))
        return false;
    pages.showProgress(1);
    if (!pages.beginPage(error))
        return false;
    // A plot never laid out on screen has no shape of its own yet; it takes a window's.
    QSize chart = size();
    if (chart.width() < 100 || chart.height() < 100)
        chart = QSize(640, 480);
    const QRect body = pages.body();
    const double scale =
        std::min(double(body.width()) / chart.width(), double(body.height()) / chart.height());
    if (scale > 0.0) {
        // Recorded, then played on paper: a picture keeps the text in proportion to the chart at
        // any printer resolution, where drawing straight on the printer would size the fonts for
        // its dots per inch inside a chart scaled up from screen pixels. It stays vector output.
        QPicture picture;
        {
            QCPPainter recorder(&picture);
            recorder.setMode(QCPPainter::pmVectorized);
            m_plot->toPainter(&recorder, chart.width(), chart.height());
        }
        QPainter& painter = pages.painter();
        painter.save();
        painter.translate(body.topLeft());
        // Playing scales the picture from its own resolution to the printer's by itself.
        painter.scale(scale * picture.logicalDpiX() / printer.logicalDpiX(),
                      scale * picture.logicalDpiY() / printer.logicalDpiY());
        painter.drawPicture(0, 0, picture);
        painter.restore();
    }
    // The chart was laid out for paper; the next redraw lays it out for the screen again.
    replotSoon();
    return pages.endPage(error);
}
