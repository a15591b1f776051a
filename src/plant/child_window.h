#pragma once

#include "platform/placement.h"

#include <QMdiSubWindow>
#include <QPoint>
#include <QString>
#include <optional>

class QAction;

// The base of every child window of the main window. It owns what they all share: where the
// window stands (its settings section, in twips), what a close does (a resident window only
// minimizes, a display window refuses while the Timer3 walk runs or while it is minimized),
// the menu item that guards a single instance, and the refresh the Timer3 walk calls.
class ChildWindow : public QMdiSubWindow {
    Q_OBJECT
public:
    enum class Life {
        Resident, // the logger and the alarm log: loaded for the whole run
        Closes,   // lives from its menu command to its close
        Display,  // as Closes, but never closes during the walk or while minimized
    };

    // An empty section keeps no placement.
    ChildWindow(Life life, QString placementSection, QWidget* parent = nullptr);

    // Places the window from its section; call once it stands in the main window's area.
    void restorePlacement(const PlacementTwips& defaults);
    // The main window's area places a window it takes in at a free spot of its own choosing;
    // called once the window stands there, this puts it back where its placement said.
    void settlePlacement();
    // A window of fixed size keeps only its position.
    void keepPositionOnly() { m_withSize = false; }
    // Exit unloads every window, resident or not, whatever the walk is doing.
    void allowClose() { m_closeAllowed = true; }
    // Disables the menu item that opened the window until the window is gone.
    void guardMenuItem(QAction* item);
    // The Timer3 walk calls this on every open child window.
    virtual void refresh() {}

protected:
    void closeEvent(QCloseEvent* event) override;
    // A window in the middle of its work may put its close off; it closes itself later.
    virtual bool readyToClose() { return true; }

private:
    Life m_life;
    QString m_section;
    bool m_closeAllowed = false;
    bool m_withSize = true;
    std::optional<QPoint> m_placedAt;
};
