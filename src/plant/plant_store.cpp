#include "plant_store.h"

#include "platform/clock.h"
#include "scan_controller.h"
#include "value_history.h"

#include <algorithm>
#include <limits>

int rowAtPosition(int position) {
    if (position < 0 || position >= gActiveList.size())
        return -1;
    const int row = gActiveList[position] - 1;
    return validRow(row) ? row : -1;
}

void buildActiveList() {
    gActiveList.clear();
    for (int row = 0; row < kControllerCount; ++row) {
        if (gControlEnabled[row])
            gActiveList.append(static_cast<qint16>(row + 1));
    }
    gActiveCount = static_cast<qint16>(gActiveList.size());
    gActiveList.append(0);
    gPollIndex = 0;
}

void rebuildActiveList() {
    buildActiveList();
    if (ScanController* scan = scanController())
        scan->restartPolling();
}

void noteReadAnswered(int row) {
    if (!validRow(row))
        return;
    gFailedReads[row] = 0;
    gAnswered[row] = true;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    valueHistory().record(row, currentDateTime(), float(gPV[row].asNumber().value_or(nan)),
                          float(gSP[row].asNumber().value_or(nan)), gPctOut[row]);
}

void noteReadFailed(int row, int code) {
    if (!validRow(row))
        return;
    gLastReadError[row] = code;
    if (gFailedReads[row] >= 1000)
        return;
    if (++gFailedReads[row] == kNotAnsweringAfter)
        valueHistory().recordBreak(row, currentDateTime());
}

QString readingText(int row, const PlantValue& value) {
    const std::optional<double> number = value.isText() ? std::nullopt : value.asNumber();
    if (!number)
        return value.toText();
    const int decimals = validRow(row) ? std::clamp<int>(gDecimal[row], 0, 6) : 1;
    return QString::number(*number, 'f', decimals);
}

QString heldNote(int row) {
    if (isFresh(row))
        return {};
    return validRow(row) && gAnswered[row] ? QStringLiteral("not answering")
                                           : QStringLiteral("no reading yet");
}

QString qualityText(int row) {
    const QString note = heldNote(row);
    return note.isEmpty() ? QStringLiteral("Good") : note.left(1).toUpper() + note.mid(1);
}

int notAnsweringCount(QString* firstTag) {
    int count = 0;
    for (int row = 0; row < kControllerCount; ++row) {
        if (!gControlEnabled[row] || !isNotAnswering(row))
            continue;
        if (count++ == 0 && firstTag)
            *firstTag = gPvTag[row];
    }
    return count;
}

void resetPlantStore() {
    for (int row = 0; row < kControllerCount; ++row) {
        gPvTag[row].clear();
        gSpTag[row].clear();
        gOutTag[row].clear();
        gPV[row] = PlantValue();
        gSP[row] = PlantValue();
    }
    gControlType.fill(0);
    gControlEnabled.fill(false);
    gLogChannel.fill(0);
    gPctOut.fill(0);
    gAlarmState.fill(0);
    gDecimal.fill(0);
    gScale.fill(0);
    gFixedTenth.fill(false);
    gProfState.fill(0);
    gComErrCount.fill(0);
    gFailedReads.fill(0);
    gAnswered.fill(false);
    gLastReadError.fill(0);
    valueHistory().clear();
    gActiveList = {0};
    gActiveCount = 0;
    gPollIndex = 0;
    gPollTick = 0;
    gSimMode = false;
    gBankUpdating = false;
    for (auto& row : gTagTable)
        for (auto& cell : row)
            cell.clear();
    gComBeep = gBeepOnAlarm = gBeepUntilAck = gAlmLogging = false;
    gAppPath.clear();
}
