#include "plant_store.h"

#include "scan_controller.h"

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
