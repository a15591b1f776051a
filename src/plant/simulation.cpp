#include "comm_errors.h"
#include "plant_store.h"
#include "poll_cycle.h"

#include <QRandomGenerator>

void getgControllerValuesFakeProcedure(PollCycle& poll) {
    if (gActiveList.value(0) <= 0)
        return;
    const int row = rowAtPosition(gPollIndex);
    if (row < 0) {
        reportError(QStringLiteral("getgControllerValuesFakeProcedure"), 9,
                    QStringLiteral("Subscript out of range"));
        return;
    }
    QRandomGenerator* random = QRandomGenerator::global();
    auto wholeUpTo = [random](int top) {
        return static_cast<int>(top * random->generateDouble()) + 1;
    };
    gPV[row] = static_cast<double>(wholeUpTo(200));
    gSP[row] = static_cast<double>(wholeUpTo(150));
    gPctOut[row] = static_cast<float>(wholeUpTo(100));
    gFixedTenth[row] = true;
    noteReadAnswered(row);
    // By position, as the poll does it.
    if (validRow(gPollIndex))
        gAlarmState[gPollIndex] = 0;
    ++gPollIndex;
    poll.advanceFirstScan();
    poll.wrapPosition();
}
