#include "child_window.h"

#include "plant_store.h"

#include <QAction>
#include <QCloseEvent>

ChildWindow::ChildWindow(Life life, QString placementSection, QWidget* parent)
    : QMdiSubWindow(parent), m_life(life), m_section(std::move(placementSection)) {}

void ChildWindow::restorePlacement(const PlacementTwips& defaults) {
    if (m_section.isEmpty())
        return;
    ::restorePlacement(this, m_section, defaults, m_withSize);
    m_placedAt = pos();
}

void ChildWindow::settlePlacement() {
    if (m_placedAt)
        move(*m_placedAt);
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
    if (!m_section.isEmpty())
        savePlacement(this, m_section, m_withSize);
    QMdiSubWindow::closeEvent(event);
}
