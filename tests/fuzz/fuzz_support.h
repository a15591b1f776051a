#pragma once

// What the fuzz targets and their seed writer share: the failure of a property, a folder of the
// run's own, whole files in and out, and the sample plant and records they start from.

#include "plant/plant_store.h"
#include "platform/line_cipher.h"
#include "records/file_cipher.h"
#include "records/record_file.h"
#include "records/record_line.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <cstdio>
#include <cstdlib>

// A property every input must keep. A broken one aborts, so that libFuzzer keeps the input as a
// reproducer and the replay test fails on it.
inline void require(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "fuzz property broken: %s\n", property);
        std::abort();
    }
}

// Removed when the process ends normally; an aborted run leaves it for a look.
inline const QString& scratchFolder() {
    static const QTemporaryDir dir;
    static const QString path = dir.path();
    require(dir.isValid(), "a scratch folder can be made");
    return path;
}

inline void writeBytes(const QString& path, QByteArrayView bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    require(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                file.write(bytes.data(), bytes.size()) == bytes.size(),
            "the folder takes a file");
}

inline QByteArray readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline QByteArrayView inputBytes(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)};
}

// The input as the Latin-1 text of a recipe or tuning file after decipherment.
inline QString inputText(const uint8_t* data, size_t size) {
    return QString::fromLatin1(reinterpret_cast<const char*>(data), qsizetype(size));
}

// Enabled controllers of all three families at these rows of the store, tagged TIC-<101 + row>.
inline void enableSamplePlant(std::initializer_list<int> rows) {
    for (int c : rows) {
        gControlEnabled[c] = true;
        gControlType[c] = static_cast<qint16>(c % 3);
        gPvTag[c] = QStringLiteral("TIC-%1").arg(101 + c);
        gSpTag[c] = gPvTag[c] + QStringLiteral(".SP");
        gOutTag[c] = gPvTag[c] + QStringLiteral(".OUT");
    }
}

// The controller columns of the store as they are when made: what a tag or project file sets.
struct ControllerColumns {
    ControllerColumn<QString> pv = gPvTag, sp = gSpTag, out = gOutTag;
    ControllerColumn<qint16> type = gControlType, logChannel = gLogChannel;
    ControllerColumn<bool> enabled = gControlEnabled;
    bool operator==(const ControllerColumns&) const = default;
};

// Record lines as the workstation writes them: each enciphered, each with CR LF.
inline QByteArray enciphered(const QStringList& lines) {
    QByteArray bytes;
    for (const QString& line : lines) {
        const QString cipher = encryptText(line);
        require(!cipher.isEmpty(), "a record line enciphers");
        bytes += cipher.toLatin1() + "\r\n";
    }
    return bytes;
}

// A data file as the logger starts it: the column titles, the start line and one sample.
inline const QStringList kSampleRun = {
    QStringLiteral("Date,Time,Operator Message,Batch Number,Lot Number,TIC-101,TIC-101.SP,"),
    QStringLiteral("3/14/26,10:00:00 AM,File started byJohn Smith (login as jsmith ),42,7, 123.4,"
                   " 120,"),
    QStringLiteral("3/14/26,10:00:05 AM,.,.,.,123.5,120,")};

// Into the folder: run.slg, its signature file run.sif, and cut.slg, torn inside a third line.
inline void writeSampleRun(const QString& folder) {
    const QByteArray run = enciphered(kSampleRun);
    writeBytes(folder + QStringLiteral("/run.slg"), run);
    const auto hash = sha256OfFile(folder + QStringLiteral("/run.slg"));
    require(hash.has_value(), "the data file hashes");
    writeBytes(
        folder + QStringLiteral("/run.sif"),
        enciphered({kSignatureHeader, recordLine({"3/14/26", "11:00:00 AM", "anna", "Anna Berg",
                                                  "QA", "Signed", "None", bytesToHex(*hash)})}));
    writeBytes(folder + QStringLiteral("/cut.slg"),
               run + encryptText(kSampleRun[2]).left(40).toLatin1());
}
