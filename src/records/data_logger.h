#pragma once

#include <QString>

class QTimer;

// The data logger: at every gSaveInterval seconds one enciphered line of the chosen channels
// into the open .slg file, synced to the disk before the timer returns.

inline bool gLogging = false;
inline QString gDataFileName;
// The line last built: a data line, or the footer composed at a stop (never written).
inline QString gDataLine;
inline int gSaveTick = 0;
inline int gSaveInterval = 0;
inline qint16 gAutoLog = 0;
inline qint16 gLogOnStartup = 0;
inline qint32 gBatchNumber = 0;
inline qint32 gLotNumber = 0;
// Waits for the next data line; empty when there is none.
inline QString gOperatorMessage;

// The one-second timer that drives the writing (frmMain's DataSaveTimer); the logger starts and
// stops it. Set once by the main window, or by a test.
void installDataSaveTimer(QTimer* timer);

// Makes gDataFileName with its signature file beside it, both new (a name that is taken ends the
// start with its failure box), writes the column line and the
// start line, and starts the timer. The caller has set the name, the batch and lot numbers and
// the log flags of the tag table. False after the start failure box.
bool startDataFile();
// One tick of the timer: a data line once gSaveInterval ticks have passed.
void dataSaveTimerTick();
// Ends logging. The footer is composed in gDataLine only: a stopped file ends with its last data
// line, so that a signature made on it stays true.
void stopDataFile();
// Log Files/<m>-<d>-<yyyy>_<h>H_<m>M_<s>S.slg from the clock, into gDataFileName; when that
// name is taken, the first free one of the seconds after.
void makeAutoFileName();
// A file, or a link, stands at the data file's name or at its signature file's name (the name up
// to the first dot, then .sif): a start there would overwrite a record.
bool dataFileNameTaken(const QString& path);
bool isCurrentDataFile(const QString& path);
// The Timer3 half of an automatic log: at 0:00 one new file, whatever the rate of the ticks.
void midnightRollover();
// The start-up step: a log that is to start with the program does so, under an automatic name.
void startLoggingAtStartup();

// The plain lines of a data file, from the store and the tag table as they are now.
QString dataColumnsLine();
QString dataStartLine(const QString& date, const QString& time);
QString dataValuesLine(const QString& date, const QString& time);
QString dataFooterLine(const QString& date, const QString& time);

QString logFilesFolder();

void resetDataLogger();
