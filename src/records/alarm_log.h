#pragma once

#include "plant/child_window.h"
#include "plant/plant_store.h"
#include "record_notices.h"

#include <QDateTime>
#include <array>

class QAction;
class QLabel;
class QStatusBar;
class QTimer;
class QToolBar;
class RecordGrid;

// The alarm engine's memo: true when the alarm (1 or 2; slot 0 unused) of a controller has been
// entered and its bit has not gone low since. Kept for a controller taken out of the list, so
// that one put back with its alarm still on is not entered twice.
inline std::array<std::array<bool, 3>, kControllerCount> gAlarmSeen{};

void resetAlarmEngine();

// Alarm Logs/<m>-<d>-<yyyy> AlmLog.alf of the day.
QString alarmLogFolder();
QString alarmLogPath(const QDate& date);

// One line into the alarm log of the moment's day, when alarm logging is on: the text, a comma,
// and the action with its own leading comma (",New Alarm"), which leaves the fourth field empty.
// A failure is the alarm log's error box.
void writeAlarmLog(const QString& text, const QString& action, const QDateTime& at);

// Widens the time column of an alarm grid to the widest "<date> - <time>" of the regional forms.
void fitAlarmTimeColumn(RecordGrid& grid, int column);

// "System Alarm Log": the alarm annunciator, loaded at start and kept for the whole run. Once a
// second it looks at the two alarm bits of every controller in the list; a bit that rose since
// the last look adds a red row, brings the window up, beeps as set and writes the day's file.
class AlarmLog : public ChildWindow {
    Q_OBJECT
public:
    enum Column { Tagname, TimeOfAlarm, PvAtAlarm, Ack };

    explicit AlarmLog(QWidget* parent = nullptr);
    ~AlarmLog() override;

    RecordGrid* grid() const { return m_grid; }
    QToolBar* toolbar() const { return m_toolbar; }
    QTimer* timer1() const { return m_timer1; }
    bool isBeeping() const { return m_beeping; }
    QString statusText() const;
    // Rows not yet acknowledged.
    int unacknowledgedCount() const;

    void timer1Tick();
    void addAlarm(int controller, int alarmNumber);
    void restoreAlarmWindow();
    // A double click on a row.
    void acknowledgeAlarm(int row);
    // Every row not yet acknowledged, after one login; an audit line for each row.
    void acknowledgeAll();
    // Newest alarms at the top instead of the bottom; the rows turn round and the choice is kept.
    bool newestFirst() const { return m_newestFirst; }
    void setNewestFirst(bool on);
    void clearSelectedAlarm();
    void clearAllAlarms();
    void exportAlarmLog();
    void printAlarmLog();
    void silenceBeeper();
    void showAlarmViewer();

    void updateStatusText();
    // At its first size as wide as its columns; from its section after that.
    void placeInArea();
    // Empties the grid, as a rebuild of the active list does; nothing goes to the file.
    void clearAlarms();

private:
    // One alarm bit of one controller at this tick.
    void checkAlarm(int controller, int alarmNumber, bool on);
    // The grid's rows as text, and written back, each in the colour its acknowledgement gives it.
    QList<QStringList> allRows() const;
    void writeRows(const QList<QStringList>& rows);
    // The rows in the other order.
    void turnRowsRound();
    // Tells the listeners beyond the records what became of an alarm row.
    void announce(AlarmNotice::Kind kind, const QString& tagname, const QDateTime& at);
    // The row of an alarm by its tag and moment, -1 when it is gone.
    int findAlarm(const QString& tagname, const QString& time) const;

    RecordGrid* m_grid;
    QToolBar* m_toolbar;
    QStatusBar* m_status;
    QLabel* m_statusPanel;
    QTimer* m_timer1;
    bool m_beeping = false;
    bool m_newestFirst = false;
    QAction* m_newestAction = nullptr;
};

AlarmLog* alarmLog();

// Export (right 18) and print of an alarm grid, the log's or the viewer's: the same texts.
void exportAlarmGrid(RecordGrid& grid);
void printAlarmGrid(RecordGrid& grid);
