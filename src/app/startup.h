#pragma once

#include <QString>

class FrmMain;

// The start-up procedures, in the order the splash runs them.

// False when another instance of the workstation already runs for this user; the message has
// been shown.
bool checkPrevInstance();
// All settings read at start; Timer2 gets its interval; the rights and the security switch.
void loadSettings(FrmMain& main);
// gAppPath, the help file, the tag file, today's alarm log file. False on a failure that stops
// the start, with its cause in *error.
bool loadSystemFiles(QString* error);
// Cancels logging on start when no channel is marked for logging.
void initLogArray();

// The box shown when the start cannot go on.
void showStartupFailure();
