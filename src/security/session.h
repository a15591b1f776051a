#pragma once

#include <QString>

// Who is at the workstation and whether the security switch is on.
inline bool g21CFR = false;
inline QString gUserId = QStringLiteral("Sorvantel System");
inline QString gUserFullName;
inline QString gUserComment;
inline QString gUserNote;
// 0 operator, 1 supervisor, 2 administrator.
inline qint16 gUserLevel = 0;
// Outcome of the login dialog's last password test.
inline bool gLoggedOn = false;
inline bool gLoginCancelled = false;
inline QString gComputerName;

inline const QString kSystemUserId = QStringLiteral("Sorvantel System");

// The session's identity and level, kept aside while somebody else signs.
struct SessionSnapshot {
    QString userId;
    QString fullName;
    QString comment;
    QString note;
    qint16 level = 0;
};
SessionSnapshot saveSession();
void restoreSession(const SessionSnapshot& saved);

void resetSession();
