#include "data_search.h"

#include "record_file.h"

#include <QDir>
#include <QFileInfo>

QStringList listFilesInFolder(const QString& folder, const QString& pattern) {
    QString base = folder;
    base.replace(u'\\', u'/');
    if (!base.endsWith(u'/'))
        base += u'/';
    QStringList out;
    const QFileInfoList entries = QDir(base).entryInfoList(
        {pattern}, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    for (const QFileInfo& e : entries)
        out << (e.isDir() ? e.fileName() + u'/' : e.absoluteFilePath());
    if (out.isEmpty())
        return {QStringLiteral("Directory")};
    if (out.first().endsWith(u'/'))
        out.first() = QStringLiteral("Directory");
    return out;
}

namespace {
// The first two lines of a data file, deciphered; false when they cannot be read whole. Only a
// plain file is opened: a pipe or a device named like a data file would never end.
bool readHead(const QString& path, QString* text) {
    if (!QFileInfo(path).isFile())
        return false;
    text->clear();
    bool whole = true;
    const bool read = readRecordFile(
        path,
        [&](const RecordLine& line) {
            if (!line.plain)
                whole = false;
            else
                *text += *line.plain + u'\n';
        },
        nullptr, 2);
    return read && whole && !text->isEmpty();
}
} // namespace

DataSearchResult searchDataFiles(const QStringList& files, const QString& text, bool firstOnly,
                                 const std::function<bool(int)>& progress) {
    DataSearchResult result;
    QString head;
    for (const QString& path : files) {
        ++result.searched;
        if (!readHead(path, &head))
            ++result.unreadable;
        else if (head.contains(text, Qt::CaseInsensitive))
            result.hits << path;
        if (progress && !progress(result.searched))
            break;
        if (firstOnly && !result.hits.isEmpty())
            break;
    }
    return result;
}
