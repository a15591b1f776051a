#pragma once

#include <QString>
#include <QStringList>
#include <functional>

// The folder search of the record viewers: the entries of the folder (not below) that match the
// pattern, "." and ".." left out, sub-folders with "/" behind their names, files by full path,
// in name order. When the first entry is a folder, or nothing matched, the list starts with the
// word "Directory" instead, as the viewers have always tested it.
QStringList listFilesInFolder(const QString& folder, const QString& pattern);

// The batch and lot search over data files: only the first two lines of each file are read and
// deciphered (the column line and the start line), and the text is looked for in them without
// regard to case, so a tag name, a date or a user name matches as well as a batch or lot number.
struct DataSearchResult {
    QStringList hits;   // full paths, in the order searched
    int searched = 0;   // files looked at
    int unreadable = 0; // files that could not be opened or whose two lines did not decipher
};
// Calls progress(filesDone) after each file; a false return stops the search there. With
// firstOnly the search ends at the first hit.
DataSearchResult searchDataFiles(const QStringList& files, const QString& text, bool firstOnly,
                                 const std::function<bool(int)>& progress = {});
