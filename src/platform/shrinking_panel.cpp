#include "shrinking_panel.h"

#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>

ShrinkingPanel::ShrinkingPanel(QWidget* parent) : QLabel(parent) {
    setFrameStyle(QFrame::Panel | QFrame::Sunken);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

void ShrinkingPanel::setHoldsWholeText(bool whole) {
    if (m_whole == whole)
        return;
    m_whole = whole;
    updateGeometry();
}

QSize ShrinkingPanel::minimumSizeHint() const {
    const QSize whole = QLabel::minimumSizeHint();
    if (m_whole)
        return whole;
    const int few = fontMetrics().horizontalAdvance(QStringLiteral("Mmm...")) + 2 * frameWidth();
    return {std::min(whole.width(), few), whole.height()};
}

bool ShrinkingPanel::isCut() const {
    return fontMetrics().horizontalAdvance(text()) > contentsRect().width() - 2 * margin();
}

bool ShrinkingPanel::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip && toolTip().isEmpty()) {
        if (isCut())
            QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), text(), this);
        else
            QToolTip::hideText();
        return true;
    }
    return QLabel::event(event);
}

void ShrinkingPanel::paintEvent(QPaintEvent* event) {
    if (!isCut()) {
        QLabel::paintEvent(event);
        return;
    }
    const QRect room = contentsRect().adjusted(margin(), 0, -margin(), 0);
    QFrame::paintEvent(event); // the sunken frame and any background of a warning
    QPainter painter(this);
    painter.drawText(room, int(alignment()),
                     fontMetrics().elidedText(text(), Qt::ElideRight, room.width()));
}
