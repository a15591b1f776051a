#pragma once

// What the fuzz targets share: the failure of a property, a folder of the run's own and whole
// files in and out. Each target stands alone otherwise, so that a replay needs nothing else.

#include "plant/plant_store.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QFile>
#include <QString>
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
    QFile file(path);
    require(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                file.write(bytes.data(), bytes.size()) == bytes.size(),
            "the scratch folder takes a file");
}

inline QByteArray readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline QByteArrayView inputBytes(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)};
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
