#pragma once

#include "platform/placement.h"

#include <QMdiSubWindow>
#include <QRect>
#include <QString>
#include <optional>

class QAction;

// The base of every child window of the main window. It owns what they all share: where the
// window stands (its settings section, in twips), what a close does (a resident window only
// minimizes, a display window refuses while the Timer3 walk runs or while it is minimized),
// the menu item that guards a single instance, and the refresh the Timer3 walk calls.
// Wherever it is placed or restored, it stands inside the main window's area, and a window of
// the same kind already standing at the same spot makes room for the new one.
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
    // The same, with a first placement of this size in the middle of the area.
    void restoreCentred(int widthTwips, int heightTwips);
    // A window chosen again from its menu: back to normal, active and in front in its area.
    void bringForward();
    // The main window's area places a window it takes in at a free spot of its own choosing;
    // called before the window is shown, this puts it back where its placement said.
    void settlePlacement();
    // Puts the window at r, inside the area. While it is maximized or minimized, r is where
    // it comes back to.
    void placeAt(QRect r);
    // Where the window stands, or comes back to, when neither maximized nor minimized.
    QRect normalRect() const;
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
    void changeEvent(QEvent* event) override;
    // A window in the middle of its work may put its close off; it closes itself later.
    virtual bool readyToClose() { return true; }

private:
    bool standsNormally() const;
    QRect insideArea(QRect r) const;
    QRect clearOfSameKind(QRect r) const;

    Life m_life;
    QString m_section;
    bool m_closeAllowed = false;
    bool m_withSize = true;
    std::optional<QRect> m_placed;
    // Where the window comes back to from maximized or minimized; Qt keeps its own but does
    // not tell it, and does not keep it inside the area.
    QRect m_normalRect;
};
