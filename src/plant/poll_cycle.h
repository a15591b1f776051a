#pragma once

#include <QObject>

class Modctl;

// What the poll tells the first-scan dialog: its bar, and that the pass is over.
class ScanProgress {
public:
    virtual ~ScanProgress() = default;
    virtual void setScanProgress(int value) = 0;
    virtual void closeScan() = 0;
};

// The main loop of the workstation: each Timer2 tick reads one controller of the active list,
// round robin, or fills one row with random values in simulation. The reply decodes into the
// plant store when it arrives.
class PollCycle : public QObject {
    Q_OBJECT
public:
    explicit PollCycle(Modctl* modctl1, ScanProgress* progress, QObject* parent = nullptr);

    // The previous K40 read has been answered; the next may be sent.
    bool readDone = false;
    // The first pass since the last start of scanning is running.
    bool firstScan = false;

    void timer2Tick();
    void readControllerBlock();
    void readProfilerBlock();
    void onReadComplete();
    void onError(int code);

    // The step both the reply and the simulation take after storing a row.
    void advanceFirstScan();

private:
    Modctl* m_modctl;
    ScanProgress* m_progress;
};

// Fills the row at gPollIndex with random values and advances, for simulation mode.
void getgControllerValuesFakeProcedure(PollCycle& poll);
