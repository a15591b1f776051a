#pragma once

#include <QString>

// State of the data logger, read at start and by every part that must not disturb a running log.
inline bool gLogging = false;
inline QString gDataFileName;
inline int gSaveInterval = 0;
inline qint16 gAutoLog = 0;
inline qint16 gLogOnStartup = 0;
inline QString gBatchNumber;
inline QString gLotNumber;
inline QString gOperatorMessage;

void resetDataLogger();
