#pragma once

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QStyle>

class QCheckBox;
class QMdiSubWindow;
class QTimer;
class QToolBar;
class QVBoxLayout;
class QWidget;

// The parts every child window of the workstation is built of.

// The window's body: a widget with a margin-less column layout, set as the window's widget.
// Controls are added to the layout top to bottom.
QVBoxLayout* makeWindowBody(QMdiSubWindow* window, const QString& objectName,
                            const QString& caption);
// "Toolbar1" of a window, its buttons found by their key.
QToolBar* makeToolbar(QWidget* parent, Qt::ToolButtonStyle style);
QAction* addToolButton(QToolBar* toolbar, QStyle::StandardPixmap icon, const QString& key,
                       const QString& toolTip);
// Buttons of one window's toolbar, each running a command of that window:
//     ToolCommands button(Toolbar1, this);
//     button(QStyle::SP_FileIcon, "New", "New Recipe", &FrmProfile::newRecipe);
template <typename Window> class ToolCommands {
public:
    ToolCommands(QToolBar* toolbar, Window* window) : m_toolbar(toolbar), m_window(window) {}
    template <typename Command>
    QAction* operator()(QStyle::StandardPixmap icon, const char* key, const char* toolTip,
                        Command command) const {
        QAction* action =
            addToolButton(m_toolbar, icon, QString::fromLatin1(key), QString::fromLatin1(toolTip));
        QObject::connect(action, &QAction::triggered, m_window, command);
        return action;
    }

private:
    QToolBar* m_toolbar;
    Window* m_window;
};

// A check box of the setup dialogs: its caption stands before the box, ending in a colon.
QCheckBox* makeOptionBox(const QString& objectName, const QString& caption, bool checked,
                         QWidget* parent);

// Starts a window's tick timer as the workstation's timers have always run: one of interval 0
// stays stopped. A QTimer of interval 0 would fire on every pass of the event loop and spin a core.
void startTickTimer(QTimer* timer);

// Long loads hand the event loop a turn this often, so the workstation's timers keep running; a
// turn after every line would cost more than the work on the line.
constexpr int kYieldMs = 50;

// Hourglass for the life of a long command.
class WaitCursor {
public:
    WaitCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~WaitCursor() { QApplication::restoreOverrideCursor(); }
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;
};

// Yields to the event loop once kYieldMs have passed since the last turn.
class Yielder {
public:
    Yielder() { m_since.start(); }
    bool due() const { return m_since.elapsed() >= kYieldMs; }
    void yield() {
        QCoreApplication::processEvents();
        m_since.restart();
    }

private:
    QElapsedTimer m_since;
};
