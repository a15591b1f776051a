#include "poll_cycle.h"

#include "comm_errors.h"
#include "plant_store.h"
#include "platform/clock.h"
#include "platform/modbus_line.h"
#include "platform/modctl.h"
#include "register_codec.h"

#include <QCoreApplication>
#include <QTimer>
#include <algorithm>

namespace {
constexpr int kK40FirstRegister = 129;
constexpr int kK40Count = 5;
constexpr int kProfilerFirstRegister = 1001;
constexpr int kProfilerCount = 9;
// Ticks a K40 request may stay unanswered before the same position is asked again.
constexpr int kStallTicks = 2;
constexpr int kLongestHoldDoublings = 5;
// Passes a walk over held-back controllers may take: the longest hold, and as many more as there
// can be controllers held back, each due in a pass of its own.
constexpr int kWalkPasses = (1 << kLongestHoldDoublings) + 64 + 1;
} // namespace

PollCycle::PollCycle(Modctl* modctl1, ScanProgress* progress, QObject* parent)
    : QObject(parent), m_modctl(modctl1), m_progress(progress) {
    connect(m_modctl, &Modctl::readComplete, this, &PollCycle::onReadComplete);
    connect(m_modctl, &Modctl::error, this, &PollCycle::onError);
}

void PollCycle::timer2Tick() {
    if (m_linePaced && !gSimMode) {
        // The reads chain by themselves; the tick only starts them again after a pause.
        kickLine();
        return;
    }
    // Let replies and repaints waiting in the queue run before the next request.
    QCoreApplication::processEvents();
    const int row = rowAtPosition(gPollIndex);
    if (gSimMode) {
        getgControllerValuesFakeProcedure(*this);
        return;
    }
    if (row < 0)
        return;
    if (gControlType[row] == K40Series)
        readControllerBlock();
    else
        readProfilerBlock();
}

void PollCycle::readControllerBlock() {
    if (gPollTick > kStallTicks) {
        readDone = true;
        gPollTick = 0;
    }
    if (!readDone) {
        ++gPollTick;
        return;
    }
    readDone = false;
    if (gActiveList.value(0) < 1)
        return;
    sendBlock(true);
}

void PollCycle::readProfilerBlock() {
    // No handshake: a profiler is asked on every tick that finds it at the position.
    if (gActiveList.value(0) < 1)
        return;
    sendBlock(false);
}

void PollCycle::sendBlock(bool k40) {
    ++m_readsInPass;
    m_sentGeneration = m_generation;
    m_sentAt = steadyMicros();
    if (k40)
        m_modctl->prepare(gActiveList.value(gPollIndex), ModbusArea::Holding, kK40FirstRegister,
                          kK40Count, 0);
    else
        m_modctl->prepare(gActiveList.value(gPollIndex), ModbusArea::Input, kProfilerFirstRegister,
                          kProfilerCount, 0);
    m_modctl->start();
}

void PollCycle::advanceFirstScan() {
    if (!firstScan)
        return;
    if (m_progress)
        m_progress->setScanProgress(gPollIndex);
    if (gPollIndex == gActiveCount) {
        firstScan = false;
        if (m_progress)
            m_progress->closeScan();
    }
}

void PollCycle::onReadComplete() {
    if (gSimMode)
        return;
    // Paced, a read is nearly always on its way when polling starts over; its answer belongs to
    // no position of the new pass.
    if (m_linePaced && m_sentGeneration != m_generation) {
        continueLine();
        return;
    }
    const int position = gPollIndex;
    const int row = rowAtPosition(gPollIndex);
    if (row >= 0) {
        if (gControlType[row] == K40Series) {
            qint16 block[kK40Count];
            for (int i = 0; i < kK40Count; ++i)
                block[i] = m_modctl->data(i);
            decodeK40Block(row, block);
        } else {
            qint16 block[kProfilerCount];
            for (int i = 0; i < kProfilerCount; ++i)
                block[i] = m_modctl->data(i);
            decodeProfilerBlock(row, block);
            // Cleared by list position, not by row: a profiler never shows an alarm, and where
            // position and row differ another controller's word is cleared until its next read.
            if (validRow(gPollIndex))
                gAlarmState[gPollIndex] = 0;
        }
    }
    noteReadAnswered(row);
    if (validRow(gPollIndex))
        gComErrCount[gPollIndex] = 0;
    ++gPollIndex;
    advanceFirstScan();
    wrapPosition();
    readDone = true;
    gPollTick = 0;
    if (m_linePaced) {
        noteLineOutcome(row, position, ModbusCode::Ok);
        continueLine();
    }
}

void PollCycle::onError(int code) {
    if (m_linePaced && !gSimMode && m_sentGeneration != m_generation) {
        continueLine();
        return;
    }
    if (firstScan && !gSimMode) {
        // One failure ends the first scan: the dialog does not wait for the other controllers.
        firstScan = false;
        if (m_progress)
            m_progress->closeScan();
    }
    const int position = gPollIndex;
    const int row = rowAtPosition(gPollIndex);
    noteReadFailed(row, code);
    if (validRow(gPollIndex)) {
        ++gComErrCount[gPollIndex];
        if (gComErrCount[gPollIndex] >= 2) {
            gComErrCount[gPollIndex] = 0;
            reportCommError(code);
        }
    }
    ++gPollIndex;
    wrapPosition();
    if (m_linePaced && !gSimMode) {
        noteLineOutcome(row, position, code);
        // With the link itself down, or a request the link refuses before it reaches the line,
        // every read fails at once: the line waits for Timer2's next tick instead of filling the
        // logger as fast as it can.
        const bool onTheLine = code == ModbusCode::NoResponse || code == ModbusCode::Timeout ||
                               steadyMicros() - m_sentAt >= kQuickestReplyMicros;
        if (code != ModbusCode::NoConnection && onTheLine)
            continueLine();
    }
}

void PollCycle::wrapPosition() {
    if (gPollIndex != gActiveCount)
        return;
    gPollIndex = 0;
    ++m_pass;
    const qint64 now = steadyMicros();
    // A pass in which every controller was passed over is no round of the line.
    if (m_passStarted >= 0 && (m_readsInPass > 0 || !m_linePaced || gSimMode)) {
        m_rounds.lastMicros = now - m_passStarted;
        m_rounds.totalMicros += m_rounds.lastMicros;
        m_rounds.worstMicros = qMax(m_rounds.worstMicros, m_rounds.lastMicros);
        ++m_rounds.count;
    }
    m_passStarted = now;
    m_readsInPass = 0;
}

void PollCycle::resetRounds() {
    m_rounds = Rounds{};
    // The pass under way began before the reset: the first to count is the next whole one.
    m_passStarted = -1;
}

void PollCycle::setLinePaced(bool on, const QTimer* heartbeat) {
    m_linePaced = on;
    m_heartbeat = heartbeat;
    restartLine();
}

void PollCycle::restartLine() {
    m_timeoutsInARow.fill(0);
    m_duePass.fill(0);
    m_pass = 0;
    ++m_generation;
    // Timed from the head of the list only: a pass resumed half-way is no round.
    m_passStarted = gPollIndex == 0 ? steadyMicros() : -1;
    m_readsInPass = 0;
}

int PollCycle::holdRounds(int timeoutsInARow) {
    if (timeoutsInARow < kBackoffAfter)
        return 0;
    return 1 << qMin(timeoutsInARow - kBackoffAfter, kLongestHoldDoublings);
}

qint64 PollCycle::nextVisit(int position) const {
    return position >= gPollIndex ? m_pass : m_pass + 1;
}

int PollCycle::heldRounds(int row) const {
    if (!validRow(row))
        return 0;
    const int position = static_cast<int>(gActiveList.indexOf(static_cast<qint16>(row + 1)));
    return static_cast<int>(
        qMax<qint64>(0, m_duePass[static_cast<std::size_t>(row)] - nextVisit(position)));
}

void PollCycle::noteLineOutcome(int row, int position, int code) {
    if (!validRow(row))
        return;
    const auto r = static_cast<std::size_t>(row);
    if (code == ModbusCode::NoResponse || code == ModbusCode::Timeout) {
        // A controller that does not answer costs a whole time-out of the line each time it is
        // asked: it is asked less and less often until it answers.
        const int hold = holdRounds(++m_timeoutsInARow[r]);
        // Several dead controllers would otherwise fall due in the same round and stretch it by
        // all their time-outs at once: each takes a round no other held one is due in.
        qint64 due = nextVisit(position) + hold;
        while (std::find(m_duePass.begin(), m_duePass.end(), due) != m_duePass.end())
            ++due;
        m_duePass[r] = due;
    } else if (code != ModbusCode::NoConnection) {
        m_timeoutsInARow[r] = 0;
        m_duePass[r] = 0;
    }
}

void PollCycle::kickLine() {
    if (m_linePaced && !gSimMode && !m_modctl->busy())
        continueLine();
}

void PollCycle::continueLine() {
    if (gSimMode || !m_heartbeat || !m_heartbeat->isActive() || m_modctl->busy())
        return;
    if (gActiveCount < 1 || gActiveList.value(0) < 1)
        return;
    // Held-back controllers are passed over until the pass they are due in.
    for (int step = 0; step < gActiveCount * kWalkPasses; ++step) {
        const int row = rowAtPosition(gPollIndex);
        if (!validRow(row))
            return;
        if (m_duePass[static_cast<std::size_t>(row)] <= m_pass) {
            sendBlock(gControlType[row] == K40Series);
            return;
        }
        ++gPollIndex;
        wrapPosition();
    }
}

double wireRoundMicros() {
    const ModbusBackend& link = modbusBackend();
    const double character = link.characterMicros();
    if (character <= 0.0)
        return 0.0;
    double total = 0.0;
    for (int i = 0; i < gActiveCount; ++i) {
        const int row = rowAtPosition(i);
        if (!validRow(row))
            continue;
        const int words = gControlType[row] == K40Series ? kK40Count : kProfilerCount;
        total += (LineTiming::kReadRequestBytes + LineTiming::readReplyBytes(words)) * character +
                 2.0 * static_cast<double>(link.lineSilenceMicros());
    }
    return total;
}
