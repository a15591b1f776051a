#pragma once

#include <QString>
#include <QStringList>

class RecordAppender;

// Every comma-separated record the workstation writes (audit trail, alarm log, data files) is
// built here, so that text typed by a user or read from a file can never forge a field or a line.
// Readers split blindly at commas, so a comma in any field but the last would move every later
// field, and a line break would start a new record in an export. In every field a control
// character becomes a blank; in every field but the last (the free text, where a comma only
// adds fields the readers drop) a comma becomes ";".
QString recordLine(const QStringList& fields);

// Enciphers the plain line and appends it with its line end, synced to the disk. A line whose
// cipher text came out empty (the key or the random source failing) is never written: an empty
// line would end every reader of the file there, hiding the rest of the day. The reason of a
// failure in *error.
enum class RecordWrite { Written, NotEnciphered, NotWritten };
RecordWrite appendEncipheredLine(const QString& path, const QString& plain,
                                 QString* error = nullptr);
// The same into a record file kept open (the data file of a running log).
RecordWrite appendEncipheredLine(RecordAppender& file, const QString& plain,
                                 QString* error = nullptr);
