#pragma once

#include <QStyle>

class QAction;
class QMdiSubWindow;
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
