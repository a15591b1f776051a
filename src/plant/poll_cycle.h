#pragma once

#include <QObject>
#include <QPointer>
#include <array>

class Modctl;
class QTimer;

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
    // Back to the head of the active list at its end; a pass is over.
    void wrapPosition();

    // As fast as the line allows: each read goes out as soon as the previous one has ended, and
    // the line keeps the silences. The poll goes on while `heartbeat` (Timer2) runs; each of its
    // ticks starts the chain again if nothing is on its way.
    void setLinePaced(bool on, const QTimer* heartbeat);
    bool linePaced() const { return m_linePaced; }
    // A new start of polling: back-offs are forgotten and the pass is timed from now.
    void restartLine();
    // Paced: sends the next read that is due, unless one is on its way.
    void kickLine();

    // A controller that times out is passed over for 1 round, then 2, 4... up to 32 after each
    // time-out in a row, or later where another held-back one falls due in that round. Counted in
    // rounds, not seconds, so that a long round is never filled with the time-outs of the
    // controllers it waits for; one lost reply costs a live controller one round.
    static constexpr int kBackoffAfter = 1;
    static int holdRounds(int timeoutsInARow);
    // The rounds a controller that stopped answering is still passed over for; 0 when it is not.
    int heldRounds(int row) const;
    // An outcome that comes back sooner than this after its request was made here, not on the
    // line (a register refused by the link, the link itself down).
    static constexpr qint64 kQuickestReplyMicros = 1000;

    // The time of a pass over the active list, from the head of the list to its next return there.
    struct Rounds {
        qint64 lastMicros = -1;
        qint64 worstMicros = 0;
        qint64 totalMicros = 0;
        qint64 count = 0;
        double meanMicros() const { return count > 0 ? double(totalMicros) / count : -1.0; }
    };
    const Rounds& rounds() const { return m_rounds; }
    void resetRounds();

private:
    void sendBlock(bool k40);
    void continueLine();
    void noteLineOutcome(int row, int position, int code);
    // The pass in which the controller at this position is next visited.
    qint64 nextVisit(int position) const;

    Modctl* m_modctl;
    ScanProgress* m_progress;
    bool m_linePaced = false;
    QPointer<const QTimer> m_heartbeat;
    std::array<int, 64> m_timeoutsInARow{};
    // The pass each held-back controller is asked again in; passes count from the last restart.
    std::array<qint64, 64> m_duePass{};
    qint64 m_pass = 0;
    // A restart of polling makes a read still on its way answer for a position that no longer
    // stands.
    quint64 m_generation = 0;
    quint64 m_sentGeneration = 0;
    qint64 m_sentAt = 0;
    Rounds m_rounds;
    qint64 m_passStarted = -1;
    int m_readsInPass = 0;
};

// The wire time of one pass over the active list on a serial line: each read's request and reply
// and the silence after each; 0 on a link without a baud rate of its own.
double wireRoundMicros();

// Fills the row at gPollIndex with random values and advances, for simulation mode.
void getgControllerValuesFakeProcedure(PollCycle& poll);
