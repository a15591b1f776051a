#pragma once

#include <QStringList>

class QIODevice;

// The whole of sorvantel-records behind its process: the arguments as QCoreApplication gives
// them (the program name first), what it prints going to out and err. Returns the exit status
// (record_commands.h). Help and version are printed to out with status 0, not by exiting, so
// that a caller in the same process (a test, a fuzzer) keeps running.
int runRecordsTool(const QStringList& arguments, QIODevice& out, QIODevice& err);
