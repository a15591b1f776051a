#pragma once

#include "plant/child_window.h"

class QMdiArea;
class QTimer;
class QToolBar;
class RecordGrid;

// "System Digital Values": every active controller's process value and setpoint as plain
// numbers, one row a controller in the order of the active list, refreshed every second.
class DigitalValues : public ChildWindow {
    Q_OBJECT
public:
    explicit DigitalValues(QWidget* parent = nullptr);

    RecordGrid* Grid1 = nullptr;
    QTimer* Timer1 = nullptr;
    QToolBar* Toolbar1 = nullptr;

    void timer1Tick();
    void printDigitalValues();
};

// The one window: brought back to normal and to the front when it is open, opened otherwise.
DigitalValues* showDigitalValues(QMdiArea* area);
