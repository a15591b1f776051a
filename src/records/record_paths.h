#pragma once

#include <QString>

// Path helpers of the record files. Both "\" and "/" separate folders.

// True when the path names an existing file; "*" and "?" in the name match as in a folder search.
// A folder is not a file.
bool fileExists(const QString& path);
// The name behind the last separator, up to its first dot: "a\b.c.slg" gives "b".
QString fileBaseName(const QString& path);
// The folder part with its separator, then the name up to its first dot: "C:\a\b.c.slg" gives
// "C:\a\b". The signature file of a data file is this and ".sif".
QString pathWithoutExtension(const QString& path);
// The trimmed path with everything up to each separator removed, as long as the separator is not
// the first character: "\a\b" stays as it is, as it always has. A leading "/" is the root of an
// absolute path on this system (what the drive is elsewhere) and does not stop the stripping.
QString fileNameOnly(const QString& path);
