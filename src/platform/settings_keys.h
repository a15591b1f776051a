#pragma once

#include <QString>

// Section and key names of the settings store, gathered so that a reader and a writer can never
// spell a name two ways by accident. Where the system itself spells one name two ways (CStatus and
// Cstatus), both stand here; the store folds case, so they meet.
namespace Sections {
inline const QString DataSave = QStringLiteral("DataSave");
inline const QString CStatus = QStringLiteral("CStatus");
inline const QString Cstatus = QStringLiteral("Cstatus");
inline const QString Settings = QStringLiteral("Settings");
inline const QString AlarmLog = QStringLiteral("AlarmLog");
inline const QString LevelsOp = QStringLiteral("Levels\\op");
inline const QString LevelsSu = QStringLiteral("Levels\\su");
inline const QString LevelsAd = QStringLiteral("Levels\\ad");
inline const QString LevelsSecurity = QStringLiteral("Levels\\security");
inline const QString Link = QStringLiteral("Link");
inline const QString Audit = QStringLiteral("Audit");
inline const QString AlarmViewer = QStringLiteral("AlarmLog\\Alarm Viewer");
} // namespace Sections

namespace Keys {
inline const QString SaveInterval = QStringLiteral("SaveInterval");
inline const QString AutoLog = QStringLiteral("gAutoLog");
inline const QString LogOnStartup = QStringLiteral("gLogOnStartup");
inline const QString AlmLogging = QStringLiteral("gAlmLogging");
inline const QString ComBeep = QStringLiteral("gComBeep");
inline const QString BeepOnAlarm = QStringLiteral("beepOnAlarm");
inline const QString BeepUntilAck = QStringLiteral("beepUntilAck");
inline const QString CupdateTime = QStringLiteral("CupdateTime");
// Beside the scan time: each read as soon as the line is free, and the guard added to its silence.
inline const QString LinePaced = QStringLiteral("AsFastAsLineAllows");
inline const QString LineGuard = QStringLiteral("LineGuardMs");
inline const QString Security21CFR = QStringLiteral("21CFR");

inline const QString MainLeft = QStringLiteral("MainLeft");
inline const QString MainTop = QStringLiteral("MainTop");
inline const QString MainWidth = QStringLiteral("MainWidth");
inline const QString MainHeight = QStringLiteral("MainHeight");

// Link section: how the one Modbus link of the workstation is reached.
inline const QString LinkMode = QStringLiteral("Mode"); // TCP or RTU
inline const QString LinkAddress = QStringLiteral("Address");
inline const QString LinkPort = QStringLiteral("Port");
inline const QString LinkSerialPort = QStringLiteral("SerialPort");
inline const QString LinkBaudRate = QStringLiteral("BaudRate");
inline const QString LinkParity = QStringLiteral("Parity"); // N, E or O
inline const QString LinkDataBits = QStringLiteral("DataBits");
inline const QString LinkStopBits = QStringLiteral("StopBits");
inline const QString LinkTimeout = QStringLiteral("Timeout"); // milliseconds
inline const QString LinkRegisterOffset = QStringLiteral("RegisterOffset");
} // namespace Keys
