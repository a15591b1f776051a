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
inline bool gLoggedOn = false;
inline bool gLoginCancelled = false;
inline QString gComputerName;

inline const QString kSystemUserId = QStringLiteral("Sorvantel System");

void resetSession();
