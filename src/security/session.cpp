#include "session.h"

void resetSession() {
    g21CFR = false;
    gUserId = kSystemUserId;
    gUserFullName.clear();
    gUserComment.clear();
    gUserNote.clear();
    gUserLevel = 0;
    gLoggedOn = false;
    gLoginCancelled = false;
    gComputerName.clear();
}
