#include "poll_cycle.h"

#include "comm_errors.h"
#include "plant_store.h"
#include "platform/modctl.h"
#include "register_codec.h"

#include <QCoreApplication>

namespace {
constexpr int kK40FirstRegister = 129;
constexpr int kK40Count = 5;
constexpr int kProfilerFirstRegister = 1001;
constexpr int kProfilerCount = 9;
// Ticks a K40 request may stay unanswered before the same position is asked again.
constexpr int kStallTicks = 2;
} // namespace

PollCycle::PollCycle(Modctl* modctl1, ScanProgress* progress, QObject* parent)
    : QObject(parent), m_modctl(modctl1), m_progress(progress) {
    connect(m_modctl, &Modctl::readComplete, this, &PollCycle::onReadComplete);
    connect(m_modctl, &Modctl::error, this, &PollCycle::onError);
}

void PollCycle::timer2Tick() {
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
    m_modctl->prepare(gActiveList.value(gPollIndex), ModbusArea::Holding, kK40FirstRegister,
                      kK40Count, 0);
    m_modctl->start();
}

void PollCycle::readProfilerBlock() {
    // No handshake: a profiler is asked on every tick that finds it at the position.
    if (gActiveList.value(0) < 1)
        return;
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
    if (gPollIndex == gActiveCount)
        gPollIndex = 0;
    readDone = true;
    gPollTick = 0;
}

void PollCycle::onError(int code) {
    if (firstScan && !gSimMode) {
        // One failure ends the first scan: the dialog does not wait for the other controllers.
        firstScan = false;
        if (m_progress)
            m_progress->closeScan();
    }
    noteReadFailed(rowAtPosition(gPollIndex), code);
    if (validRow(gPollIndex)) {
        ++gComErrCount[gPollIndex];
        if (gComErrCount[gPollIndex] >= 2) {
            gComErrCount[gPollIndex] = 0;
            reportCommError(code);
        }
    }
    ++gPollIndex;
    if (gPollIndex == gActiveCount)
        gPollIndex = 0;
}
