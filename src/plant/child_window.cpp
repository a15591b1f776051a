#include "child_window.h"

#include "plant_store.h"

#include <QAction>
#include <QCloseEvent>
#include <QMdiArea>
#include <QStyle>
#include <QTimer>
#include <algorithm>

ChildWindow::ChildWindow(Life life, QString placementSection, QWidget* parent)
    : QMdiSubWindow(parent), m_life(life), m_section(std::move(placementSection)) {}

void ChildWindow::restoreCentred(int widthTwips, int heightTwips) {
    QMdiArea* area = mdiArea();
    if (!area)
        return;
    const double tpp = twipsPerPixel(area);
    const QSize client = area->viewport()->size();
    restorePlacement({qRound((client.width() * tpp - widthTwips) / 2),
                      qRound((client.height() * tpp - heightTwips) / 2), widthTwips, heightTwips});
}

void ChildWindow::bringForward() {
    showNormal();
    if (QMdiArea* area = mdiArea())
        area->setActiveSubWindow(this);
    raise();
}

void ChildWindow::restorePlacement(const PlacementTwips& defaults) {
    if (m_section.isEmpty())
        return;
    QRect r = placementRect(this, m_section, defaults);
    if (!m_withSize)
        r.setSize(normalRect().size());
    placeAt(clearOfSameKind(insideArea(r)));
    m_placed = m_normalRect;
}

void ChildWindow::settlePlacement() {
    if (m_placed)
        placeAt(*m_placed);
}

bool ChildWindow::standsNormally() const {
    return !(windowState() & (Qt::WindowMinimized | Qt::WindowMaximized));
}

QRect ChildWindow::normalRect() const {
    return standsNormally() || !m_normalRect.isValid() ? geometry() : m_normalRect;
}

void ChildWindow::placeAt(QRect r) {
    if (!m_withSize)
        r.setSize(normalRect().size());
    m_normalRect = r = insideArea(r);
    if (standsNormally())
        setGeometry(r);
}

QRect ChildWindow::insideArea(QRect r) const {
    const QMdiArea* area = mdiArea();
    // An area not shown yet has no size to keep to; the window is kept inside at its restore.
    if (!area || !area->isVisible())
        return r;
    const QSize view = area->viewport()->size();
    r.moveLeft(std::clamp(r.left(), 0, std::max(0, view.width() - r.width())));
    r.moveTop(std::clamp(r.top(), 0, std::max(0, view.height() - r.height())));
    return r;
}

QRect ChildWindow::clearOfSameKind(QRect r) const {
    const QMdiArea* area = mdiArea();
    if (!area)
        return r;
    const int step = style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, this);
    auto taken = [&](QPoint at) {
        for (QMdiSubWindow* w : area->subWindowList()) {
            const auto* other = qobject_cast<const ChildWindow*>(w);
            if (other && other != this && !other->isHidden() &&
                other->metaObject() == metaObject() && other->normalRect().topLeft() == at)
                return true;
        }
        return false;
    };
    // A step down and right for each window already there, as far as the area lets it go.
    for (int i = 0; i < 32 && taken(r.topLeft()); ++i) {
        const QRect next = insideArea(r.translated(step, step));
        if (next.topLeft() == r.topLeft())
            break;
        r = next;
    }
    return r;
}

void ChildWindow::changeEvent(QEvent* event) {
    // The area follows a window's own change of state with changes of its own as it lays the
    // windows out; only the window's own tells where it stood, and the area has put it back at
    // its own rectangle only once they are all through.
    const auto* change = event->type() == QEvent::WindowStateChange
                             ? static_cast<const QWindowStateChangeEvent*>(event)
                             : nullptr;
    if (change && mdiArea() && !change->isOverride()) {
        const bool wasNormal = !(change->oldState() & (Qt::WindowMinimized | Qt::WindowMaximized));
        if (wasNormal && !standsNormally()) {
            m_normalRect = geometry();
        } else if (!wasNormal && standsNormally()) {
            QTimer::singleShot(0, this, [this] {
                if (standsNormally() && m_normalRect.isValid())
                    setGeometry(insideArea(m_normalRect));
            });
        }
    }
    QMdiSubWindow::changeEvent(event);
}

void ChildWindow::guardMenuItem(QAction* item) {
    item->setEnabled(false);
    connect(this, &QObject::destroyed, item, [item] { item->setEnabled(true); });
}

void ChildWindow::closeEvent(QCloseEvent* event) {
    if (!m_closeAllowed) {
        if (m_life == Life::Resident) {
            event->ignore();
            showMinimized();
            return;
        }
        // A window closed while the walk yields would pull the list from under it.
        if (m_life == Life::Display && (gBankUpdating || isMinimized())) {
            event->ignore();
            return;
        }
    }
    if (!readyToClose()) {
        event->ignore();
        return;
    }
    if (!m_section.isEmpty() && !isMinimized())
        savePlacement(this, m_section, normalRect(), m_withSize);
    QMdiSubWindow::closeEvent(event);
}
