#pragma once

#include <QByteArray>
#include <QString>

// Replaces a file whole: written beside it, synced to the disk, then renamed over it, so that a
// crash leaves either the old file or the new one.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error = nullptr);

// Appends one record line (the caller adds the line end) as one write, synced to the disk before
// it returns, so that a crash loses at most the line being written. A file made by this call has
// its folder synced too, so that the new name survives. The file is closed again: nothing stays
// open between lines. False with the reason in *error; a failed line is never retried here.
bool appendRecordLine(const QString& path, const QByteArray& line, QString* error = nullptr);

// Makes an empty file, and its folder, unless the file is already there; what it holds is left
// alone. False with the reason in *error.
bool ensureFileExists(const QString& path, QString* error = nullptr);
