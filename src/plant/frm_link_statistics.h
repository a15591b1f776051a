#pragma once

#include "child_window.h"

class QLabel;
class QMdiArea;
class QTimer;
class QToolBar;
class RecordGrid;

// "Link Statistics": how the line is doing, from what the line and the poll count anyway; it
// never asks a controller anything of its own. One row a scanned controller (reply times,
// requests, time-outs, bad frames, exceptions, whether it answers), then a row for the line
// whose time columns are the rounds over the active list. Refreshed every second.
class FrmLinkStatistics : public ChildWindow {
    Q_OBJECT
public:
    explicit FrmLinkStatistics(QWidget* parent = nullptr);

    enum Column {
        Ctrl = 0,
        Tag,
        LastMs,
        MeanMs,
        WorstMs,
        Requests,
        Timeouts,
        BadFrames,
        Exceptions,
        State,
        ColumnCount
    };

    RecordGrid* Grid1 = nullptr;
    QLabel* lblLine = nullptr;
    QTimer* Timer1 = nullptr;

    void timer1Tick();
    // Counts start again, of the line and of the rounds.
    void resetCounters();
    void exportStatistics();

private:
    QString lineSummary(qint64 now);

    qint64 m_lastRequests = 0;
    qint64 m_lastTick = -1;
    double m_lastRate = 0.0;
};

// The one window: brought to the front when it is open, opened otherwise.
FrmLinkStatistics* showLinkStatistics(QMdiArea* area);
