#pragma once

// Reading back what the audit writers put on disk.

#include "records/file_cipher.h"

#include <QFile>
#include <QStringList>

// The plain lines of a record file; a line that does not decipher comes back empty.
inline QStringList plainLinesOf(const QString& path) {
    QFile f(path);
    QStringList out;
    if (!f.open(QIODevice::ReadOnly))
        return out;
    const QList<QByteArray> lines = f.readAll().split('\n');
    for (const QByteArray& raw : lines) {
        if (!raw.isEmpty())
            out << decryptText(QString::fromLatin1(raw).trimmed());
    }
    return out;
}

inline QStringList actionsOf(const QString& path) {
    QStringList out;
    for (const QString& line : plainLinesOf(path))
        out << line.section(u',', 5);
    return out;
}
