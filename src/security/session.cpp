#include "session.h"

SessionSnapshot saveSession() {
    return SessionSnapshot{gUserId, gUserFullName, gUserComment, gUserNote, gUserLevel};
}

void restoreSession(const SessionSnapshot& saved) {
    gUserId = saved.userId;
    gUserFullName = saved.fullName;
    gUserComment = saved.comment;
    gUserNote = saved.note;
    gUserLevel = saved.level;
}

void resetSession() {
    g21CFR = false;
    restoreSession(SessionSnapshot{kSystemUserId, {}, {}, {}, 0});
    gLoggedOn = false;
    gLoginCancelled = false;
    gComputerName.clear();
}
