#pragma once

#include <QMdiSubWindow>

class QStatusBar;
class RecordGrid;

// "System Alarm Log": the alarm annunciator, loaded at start and kept for the whole run.
class AlarmLog : public QMdiSubWindow {
    Q_OBJECT
public:
    explicit AlarmLog(QWidget* parent = nullptr);

    RecordGrid* grid() const { return m_grid; }
    void updateStatusText();
    // Empties the grid, as a rebuild of the active list does.
    void clearAlarms();
    void allowClose() { m_closeAllowed = true; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    RecordGrid* m_grid;
    QStatusBar* m_status;
    bool m_closeAllowed = false;
};

AlarmLog* alarmLog();
