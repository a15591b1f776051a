#pragma once

#include "plant/child_window.h"

class QStatusBar;
class RecordGrid;

// "System Alarm Log": the alarm annunciator, loaded at start and kept for the whole run.
class AlarmLog : public ChildWindow {
    Q_OBJECT
public:
    explicit AlarmLog(QWidget* parent = nullptr);

    RecordGrid* grid() const { return m_grid; }
    void updateStatusText();
    // Empties the grid, as a rebuild of the active list does.
    void clearAlarms();

private:
    RecordGrid* m_grid;
    QStatusBar* m_status;
};

AlarmLog* alarmLog();
