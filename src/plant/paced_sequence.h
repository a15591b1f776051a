#pragma once

#include <QObject>
#include <QVector>
#include <functional>
#include <optional>

class Modctl;
class QTimer;

// One register write of a paced sequence.
struct RegisterWrite {
    int node = 1;
    int registerNumber = 0;
    quint16 raw = 0;
    // The sequence ends with this write, whatever stages were still to come.
    bool last = false;
};

// The traffic of the control windows (alarm limits, tuning, profiles, setpoint recipes) with
// one controller or a list of them, on a link control and a timer of the window's own, beside
// the poll. Writes go one register at a time: the next starts on the first tick of the 50 ms
// timer after the previous one has completed, so one write at most is ever in flight. Each
// stage's write is asked of the window at its tick, so a change of the window's selection
// during the sequence reaches the stages still to come. Block reads go out at once.
class PacedSequence : public QObject {
    Q_OBJECT
public:
    static constexpr int kTickMs = 50;

    // The write of a stage, asked at its tick; none ends the sequence there without a write.
    using StageWrite = std::function<std::optional<RegisterWrite>(int stage)>;

    // The link control and the timer carry the names the window knows them by
    // ("ModAlmWrite", "writeTimer").
    PacedSequence(const QString& modctlName, const QString& timerName, QObject* parent = nullptr);

    Modctl* modctl() const { return m_modctl; }
    QTimer* timer() const { return m_timer; }

    // Stage 0 onwards, up to stageCount writes. Starts over if a sequence was running.
    void startWrites(int stageCount, StageWrite stageWrite);
    // Holding registers firstRegister.. of a node; the words come with blockRead.
    void readBlock(int node, int firstRegister, int count);
    // A block of holding registers written in one transaction (the profile download).
    void writeBlock(int node, int firstRegister, const QVector<quint16>& words);

    int stage() const { return m_stage; }
    bool writePending() const { return m_writePending; }
    bool running() const { return m_stage < m_stageCount; }

signals:
    // The last write has been started (not yet answered): the window's "written" text.
    void writesSent();
    void writeComplete();
    void blockRead(int firstRegister, const QVector<quint16>& words);
    // Any failure ends a write sequence: the rest is dropped, earlier registers stay written.
    void failed(int code);

private:
    void tick();
    void finishWrites();

    Modctl* m_modctl;
    QTimer* m_timer;
    StageWrite m_stageWrite;
    int m_stage = 0;
    int m_stageCount = 0;
    bool m_writePending = false;
};
