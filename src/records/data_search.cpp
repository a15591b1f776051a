#include "data_search.h"

#include "record_file.h"

#include <QDir>
#include <QFile>

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
// The first two lines of a data file, deciphered; false when they cannot be read whole.
bool readHead(const QString& path, QString* text) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    text->clear();
    for (int n = 0; n < 2; ++n) {
        QByteArray raw = file.readLine(kMaxRecordLineBytes + 1);
        if (raw.isEmpty())
            break;
        if (raw.size() > kMaxRecordLineBytes)
            return false;
        while (raw.endsWith('\n') || raw.endsWith('\r'))
            raw.chop(1);
        const auto plain = decipherRecordLine(raw);
        if (!plain)
            return false;
        *text += *plain + u'\n';
    }
    return !text->isEmpty();
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
