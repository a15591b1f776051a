#pragma once

// Record files as the tests make and read them back: raw bytes, enciphered lines, grid rows.

#include "platform/record_grid.h"
#include "records/file_cipher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QStringList>

inline QByteArray readBytes(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Makes the folder when it is missing.
inline bool writeBytes(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// One enciphered line a plain line, each with CR LF, as the workstation writes them.
inline QByteArray enciphered(const QStringList& plain) {
    QByteArray out;
    for (const QString& line : plain)
        out += encryptText(line).toLatin1() + "\r\n";
    return out;
}

// The plain lines of a record file; a line that does not decipher comes back empty.
inline QStringList plainLinesOf(const QString& path) {
    QStringList out;
    for (const QByteArray& raw : readBytes(path).split('\n')) {
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

inline QStringList rowOf(const RecordGrid* grid, int row) {
    QStringList out;
    for (int c = 0; c < grid->columnCount(); ++c)
        out << grid->text(row, c);
    return out;
}

// An exported file's rows as a spreadsheet reads them: Python's csv module, which follows RFC
// 4180 and takes the byte order mark off. Empty when Python cannot read it as CSV at all.
inline QList<QStringList> csvAsASpreadsheetReadsIt(const QString& path) {
    QProcess python;
    python.start(QStringLiteral("python3"),
                 {QStringLiteral("-c"),
                  QStringLiteral("import csv, json, sys\n"
                                 "with open(sys.argv[1], newline='', encoding='utf-8-sig') as f:\n"
                                 "    print(json.dumps(list(csv.reader(f, strict=True))))"),
                  path});
    python.waitForFinished(30000);
    QList<QStringList> rows;
    for (const QJsonValue& row : QJsonDocument::fromJson(python.readAllStandardOutput()).array()) {
        QStringList fields;
        for (const QJsonValue& field : row.toArray())
            fields << field.toString();
        rows << fields;
    }
    return rows;
}
