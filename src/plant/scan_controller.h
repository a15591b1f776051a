#pragma once

#include "plant/frm_scanning.h"
#include "plant/poll_cycle.h"

#include <QObject>
#include <QPointer>

class Modctl;
class QTimer;

// The life of the poll: the link control Modctl1, the poll cycle, the poll timer Timer2 and the
// housekeeping timer Timer3, the first-scan dialog, and the changes of mode. The main window
// owns one and gives it the area the first-scan dialog is centred in; the setup dialogs hold it
// still while they change the plant.
class ScanController : public QObject, public ScanProgress {
    Q_OBJECT
public:
    explicit ScanController(QObject* parent = nullptr);
    ~ScanController() override;

    Modctl* modctl1() const { return m_modctl1; }
    PollCycle& poll() { return *m_poll; }
    QTimer* timer2() const { return m_timer2; }
    QTimer* timer3() const { return m_timer3; }
    FrmScanning* scanning() const { return m_scanning; }

    // The area the first-scan dialog comes up in the middle of.
    void setDialogHost(QWidget* host) { m_host = host; }

    // Restart of polling through the first-scan dialog.
    void startScan();
    // Restart of polling without the dialog, after the active list was rebuilt.
    void restartPolling();
    // Simulation or real time: refused while logging or without the right. True when the mode
    // was set and scanning started over.
    bool changeMode(bool simulation);

    // As fast as the line allows, with a guard beyond the line's own silence; or one read a
    // Timer2 tick.
    void setLinePacing(bool paced, int guardMs);
    bool linePaced() const;

    // No scanning and no alarm processing while the plant is being changed.
    void suspend();
    void resume();
    // At the end of the run: the first-scan dialog goes, the timers stop.
    void stop();

    // ScanProgress
    void setScanProgress(int value) override;
    void closeScan() override;

signals:
    // Polling starts over on a new active list: alarms of the old plant are void.
    void pollingRestarted();
    // True while the plant is being changed, false once scanning resumes.
    void suspended(bool on);

private:
    void onScanTimer();
    void startTimers();

    Modctl* m_modctl1;
    PollCycle* m_poll;
    QTimer* m_timer2;
    QTimer* m_timer3;
    QPointer<QWidget> m_host;
    QPointer<FrmScanning> m_scanning;
    // A scan has started and its half-second delay has not yet started the poll.
    bool m_scanPending = false;
};

// The pacing kept in the settings store; anything unreadable is the fixed tick with no guard.
struct StoredLinePacing {
    static constexpr int kMaxGuardMs = 1000;
    bool paced = false;
    int guardMs = 0;
};
StoredLinePacing storedLinePacing();

// The scan controller of the running workstation, or null before the main window exists.
ScanController* scanController();
