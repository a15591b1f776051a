#include "indicators.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace {
// Segments a..g of each character, as bits 0..6.
int segmentsOf(QChar c) {
    switch (c.unicode()) {
    case '0':
        return 0b0111111;
    case '1':
        return 0b0000110;
    case '2':
        return 0b1011011;
    case '3':
        return 0b1001111;
    case '4':
        return 0b1100110;
    case '5':
        return 0b1101101;
    case '6':
        return 0b1111101;
    case '7':
        return 0b0000111;
    case '8':
        return 0b1111111;
    case '9':
        return 0b1101111;
    case '-':
        return 0b1000000;
    default:
        return 0;
    }
}

// One segment as a six-sided bar from a to b, of the given thickness.
QPainterPath bar(QPointF a, QPointF b, qreal thick) {
    const QPointF d = b - a;
    const qreal length = std::hypot(d.x(), d.y());
    const QPointF u = d / length;
    const QPointF n(-u.y(), u.x());
    const qreal h = thick / 2;
    QPainterPath path;
    path.moveTo(a);
    path.lineTo(a + u * h + n * h);
    path.lineTo(b - u * h + n * h);
    path.lineTo(b);
    path.lineTo(b - u * h - n * h);
    path.lineTo(a + u * h - n * h);
    path.closeSubpath();
    return path;
}
} // namespace

SevenSegmentDisplay::SevenSegmentDisplay(QWidget* parent) : Indicator(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    refresh();
}

void SevenSegmentDisplay::setValue(double value) {
    m_value = value;
    refresh();
}

void SevenSegmentDisplay::setValueText(const QString& text) {
    bool ok = false;
    const double v = text.trimmed().toDouble(&ok);
    m_value = ok ? v : std::nan("");
    refresh();
}

void SevenSegmentDisplay::setPrecision(int decimals) {
    m_precision = qBound(0, decimals, 6);
    refresh();
}

void SevenSegmentDisplay::setDigitCount(int digits) {
    m_digits = qBound(1, digits, 16);
    updateGeometry();
    refresh();
}

void SevenSegmentDisplay::setOn(bool on) {
    m_on = on;
    refresh();
}

void SevenSegmentDisplay::setHeld(bool held) {
    if (held == m_held)
        return;
    m_held = held;
    update();
}

void SevenSegmentDisplay::setColours(const QColor& lit, const QColor& unlit,
                                     const QColor& background) {
    m_lit = lit;
    m_unlit = unlit;
    m_background = background;
    update();
}

void SevenSegmentDisplay::refresh() {
    QString text;
    if (m_on) {
        text = std::isfinite(m_value) ? QString::number(m_value, 'f', m_precision) : QString();
        if (text.startsWith(u'-') && text.toDouble() == 0.0)
            text.remove(0, 1); // no minus sign before a zero
        const qsizetype places = text.size() - text.count(u'.');
        if (text.isEmpty() || places > m_digits)
            text = QString(m_digits, u'-');
    }
    if (text == m_shown)
        return;
    m_shown = text;
    update();
}

QSize SevenSegmentDisplay::sizeHint() const {
    return {m_digits * 22 + 10, 44};
}

void SevenSegmentDisplay::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), m_background);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    // Characters are laid out from the right, each place with its optional point.
    struct Place {
        QChar c = u' ';
        bool point = false;
    };
    QList<Place> places(m_digits);
    int at = m_digits - 1;
    for (qsizetype i = m_shown.size() - 1; i >= 0 && at >= 0; --i) {
        if (m_shown[i] == u'.') {
            places[at].point = true;
            continue;
        }
        places[at--].c = m_shown[i];
    }
    // A held value's segments glow a third as bright, between lit and unlit.
    const QColor litColour = m_held ? QColor::fromRgbF((m_lit.redF() + 2 * m_unlit.redF()) / 3,
                                                       (m_lit.greenF() + 2 * m_unlit.greenF()) / 3,
                                                       (m_lit.blueF() + 2 * m_unlit.blueF()) / 3)
                                    : m_lit;
    const qreal margin = 4;
    const qreal cellW = (width() - 2 * margin) / m_digits;
    const qreal h = height() - 2 * margin;
    const qreal w = std::min(cellW * 0.72, h * 0.55);
    const qreal thick = std::max<qreal>(2, w * 0.18);
    for (int i = 0; i < m_digits; ++i) {
        const qreal x0 = margin + i * cellW + (cellW - w) / 2 - thick / 2;
        const qreal y0 = margin;
        const QPointF tl(x0, y0), tr(x0 + w, y0), ml(x0, y0 + h / 2), mr(x0 + w, y0 + h / 2),
            bl(x0, y0 + h), br(x0 + w, y0 + h);
        const QPointF ends[7][2] = {{tl, tr}, {tr, mr}, {mr, br}, {bl, br},
                                    {ml, bl}, {tl, ml}, {ml, mr}};
        const int lit = segmentsOf(places[i].c);
        for (int s = 0; s < 7; ++s) {
            p.setBrush((lit >> s & 1) ? litColour : m_unlit);
            p.drawPath(bar(ends[s][0], ends[s][1], thick));
        }
        p.setBrush(places[i].point ? litColour : m_unlit);
        p.drawEllipse(QPointF(x0 + w + thick * 1.1, y0 + h - thick / 2), thick / 2, thick / 2);
    }
}

LedRectangle::LedRectangle(const QString& label, QWidget* parent)
    : Indicator(parent), m_label(label) {}

void LedRectangle::setLabel(const QString& label) {
    if (label == m_label)
        return;
    m_label = label;
    update();
}

void LedRectangle::setActive(bool active) {
    if (active == m_active)
        return;
    m_active = active;
    update();
}

void LedRectangle::setColours(const QColor& active, const QColor& inactive) {
    m_activeColour = active;
    m_inactiveColour = inactive;
    update();
}

QSize LedRectangle::sizeHint() const {
    return {std::max(40, fontMetrics().horizontalAdvance(m_label) + 14), 22};
}

void LedRectangle::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(1, 1, -1, -1);
    p.setPen(QPen(Qt::black, 1));
    p.setBrush(m_active ? m_activeColour : m_inactiveColour);
    p.drawRoundedRect(r, 3, 3);
    p.setPen(m_active ? Qt::white : QColor(170, 170, 170));
    p.drawText(r, Qt::AlignCenter, m_label);
}

void Indicator::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton)
        emit clicked();
}
