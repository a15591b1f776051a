#include "app_icon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace {
QPixmap drawIcon(int size) {
    QPixmap pix(size, size);
    pix.fill(Qt::transparent);
    QPainter p(&pix);
    p.setRenderHint(QPainter::Antialiasing);
    const double s = size / 32.0;
    p.setBrush(QColor(24, 72, 118));
    p.setPen(Qt::NoPen);
    p.drawRoundedRect(QRectF(1 * s, 1 * s, 30 * s, 30 * s), 5 * s, 5 * s);
    // A trend line over a baseline: what the workstation shows all day.
    QPainterPath trend;
    trend.moveTo(5 * s, 22 * s);
    trend.lineTo(11 * s, 14 * s);
    trend.lineTo(16 * s, 18 * s);
    trend.lineTo(21 * s, 9 * s);
    trend.lineTo(27 * s, 12 * s);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(QColor(120, 220, 120), 2.5 * s, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.drawPath(trend);
    p.setPen(QPen(Qt::white, 1.5 * s));
    p.drawLine(QPointF(5 * s, 26 * s), QPointF(27 * s, 26 * s));
    return pix;
}
} // namespace

QIcon appIcon() {
    QIcon icon;
    for (int size : {16, 24, 32, 48, 64})
        icon.addPixmap(drawIcon(size));
    return icon;
}
