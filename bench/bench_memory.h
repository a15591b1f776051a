#pragma once

// Memory figures of the benchmark's own process, from /proc (Linux only, like the benchmarks).

#include <QByteArray>
#include <QFile>
#include <QList>
#include <unistd.h>

// Resident set size now, in MiB.
inline double residentMiB() {
    QFile f(QStringLiteral("/proc/self/statm"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = f.readAll().split(' ');
    return double(fields.value(1).toLongLong()) * double(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// The highest resident set size so far, in MiB.
inline double peakMiB() {
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& l : f.readAll().split('\n')) {
        if (l.startsWith("VmHWM:"))
            return l.mid(6).trimmed().split(' ').value(0).toDouble() / 1024;
    }
    return -1;
}
