#pragma once

#include <QString>

inline const QString kStatusNormal = QStringLiteral("Status: System Operation Normal.");
inline const QString kStatusCommError =
    QStringLiteral("Status: Communications error at control. See logger for details.");

// The logger's text for a link error code, empty for a code it does not know.
QString commErrorLoggerText(int code);
// The write error message for a link error code, empty for a code it does not know.
QString commErrorWriteText(int code);
// The logger line of a failed poll at list position gPollIndex.
QString commErrorLine(int code, int position);

// A poll that failed twice in a row: beep if wanted, status text, a line in the logger.
void reportCommError(int code);
// A failed write: a blocking stop box.
void reportWriteError(int code);
// An unexpected failure of a procedure: a box that names it.
void reportError(const QString& procedureName, int number, const QString& description);
