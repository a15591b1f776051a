#include "bar_display.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace {
QColor platformColor(qint32 value) {
    const auto v = static_cast<quint32>(value);
    return QColor(int(v & 0xFF), int((v >> 8) & 0xFF), int((v >> 16) & 0xFF));
}
constexpr int kScaleSteps = 5;
} // namespace

BarDisplay::BarDisplay(QWidget* parent) : QWidget(parent) {
    setAutoFillBackground(true);
    QPalette p = palette();
    p.setColor(QPalette::Window, Qt::black);
    p.setColor(QPalette::WindowText, Qt::white);
    setPalette(p);
    setMinimumHeight(120);
}

void BarDisplay::setBarCount(int count) {
    m_bars.resize(std::max(count, 0));
    updateGeometry();
    update();
}

void BarDisplay::setBarColor(int bar, qint32 color) {
    if (bar < 0 || bar >= m_bars.size() || m_bars[bar].color == color)
        return;
    m_bars[bar].color = color;
    update();
}

void BarDisplay::setBarHeld(int bar, bool held) {
    if (bar < 0 || bar >= m_bars.size() || m_bars[bar].held == held)
        return;
    m_bars[bar].held = held;
    update();
}

bool BarDisplay::isBarHeld(int bar) const {
    return bar >= 0 && bar < m_bars.size() && m_bars[bar].held;
}

qint32 BarDisplay::barColor(int bar) const {
    return bar >= 0 && bar < m_bars.size() ? m_bars[bar].color : 0;
}

void BarDisplay::setBarPosition(int bar, double value) {
    if (bar < 0 || bar >= m_bars.size())
        return;
    Bar& b = m_bars[bar];
    const bool newPeak = !b.peakSet || value > b.peak;
    if (b.value == value && !newPeak)
        return;
    b.value = value;
    if (newPeak) {
        b.peak = value;
        b.peakSet = true;
    }
    update();
}

double BarDisplay::barPosition(int bar) const {
    return bar >= 0 && bar < m_bars.size() ? m_bars[bar].value : 0.0;
}

double BarDisplay::peak(int bar) const {
    return bar >= 0 && bar < m_bars.size() && m_bars[bar].peakSet ? m_bars[bar].peak : 0.0;
}

void BarDisplay::clearPeaks() {
    // A cleared marker starts again at the bar.
    for (Bar& b : m_bars)
        b.peak = b.value;
    update();
}

void BarDisplay::setScale(double minimum, double maximum) {
    if (m_min == minimum && m_max == maximum)
        return;
    m_min = minimum;
    m_max = maximum;
    update();
}

double BarDisplay::level(double value) const {
    const double span = m_max - m_min;
    if (!(std::abs(span) > 0) || !std::isfinite(value))
        return 0.0;
    return std::clamp((value - m_min) / span, 0.0, 1.0);
}

int BarDisplay::barsLeft() const {
    const QFontMetrics metrics(font());
    const QString widest = QString::number(std::max(std::abs(m_min), std::abs(m_max)), 'g', 6);
    return metrics.horizontalAdvance(u'-' + widest) + 10;
}

QSize BarDisplay::sizeHint() const {
    return {barsLeft() + int(m_bars.size()) * kSlot + 4, 240};
}

void BarDisplay::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QFontMetrics metrics(font());
    const int top = metrics.height() / 2 + 2;
    const int bottom = height() - metrics.height() / 2 - 2;
    const int left = barsLeft();
    auto yOf = [&](double fraction) {
        return bottom - int(std::lround(fraction * (bottom - top)));
    };

    // The scale: labels and lines across at even steps.
    painter.setPen(palette().color(QPalette::WindowText));
    for (int step = 0; step <= kScaleSteps; ++step) {
        const double fraction = double(step) / kScaleSteps;
        const int y = yOf(fraction);
        const QString label = QString::number(m_min + fraction * (m_max - m_min), 'g', 6);
        painter.drawText(QRect(0, y - metrics.height() / 2, left - 6, metrics.height()),
                         Qt::AlignRight | Qt::AlignVCenter, label);
        painter.drawLine(left - 4, y, left - 1, y);
    }
    painter.drawLine(left - 1, top, left - 1, bottom);

    for (int i = 0; i < m_bars.size(); ++i) {
        const Bar& b = m_bars[i];
        const int x = left + i * kSlot;
        const int y = yOf(level(b.value));
        const QRect body(x, y, kBarWidth, bottom - y + 1);
        if (b.held)
            painter.fillRect(body, QBrush(platformColor(b.color), Qt::BDiagPattern));
        else
            painter.fillRect(body, platformColor(b.color));
        if (b.peakSet) {
            const int py = yOf(level(b.peak));
            painter.setPen(QPen(Qt::yellow, 2));
            painter.drawLine(x, py, x + kBarWidth - 1, py);
        }
    }
}

void BarDisplay::mousePressEvent(QMouseEvent* event) {
    const int x = int(event->position().x()) - barsLeft();
    if (x >= 0)
        emit barsClicked(x);
    QWidget::mousePressEvent(event);
}
