#include "window_parts.h"

#include <QCheckBox>
#include <QMdiSubWindow>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

QVBoxLayout* makeWindowBody(QMdiSubWindow* window, const QString& objectName,
                            const QString& caption) {
    window->setObjectName(objectName);
    window->setWindowTitle(caption);
    auto* body = new QWidget;
    auto* layout = new QVBoxLayout(body);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    window->setWidget(body);
    return layout;
}

QToolBar* makeToolbar(QWidget* parent, Qt::ToolButtonStyle style) {
    auto* toolbar = new QToolBar(parent);
    toolbar->setObjectName(QStringLiteral("Toolbar1"));
    toolbar->setToolButtonStyle(style);
    return toolbar;
}

QAction* addToolButton(QToolBar* toolbar, QStyle::StandardPixmap icon, const QString& key,
                       const QString& toolTip) {
    QAction* action = toolbar->addAction(toolbar->style()->standardIcon(icon), key);
    action->setObjectName(key);
    action->setToolTip(toolTip);
    return action;
}

QCheckBox* makeOptionBox(const QString& objectName, const QString& caption, bool checked,
                         QWidget* parent) {
    auto* box = new QCheckBox(caption, parent);
    box->setObjectName(objectName);
    box->setLayoutDirection(Qt::RightToLeft);
    box->setChecked(checked);
    return box;
}

void startTickTimer(QTimer* timer) {
    if (timer->interval() > 0)
        timer->start();
    else
        timer->stop();
}
