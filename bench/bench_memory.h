#pragma once

// Memory figures of the benchmark's own process, from /proc (Linux only, like the benchmarks).

#include <QByteArray>
#include <QFile>
#include <QList>
#include <sys/resource.h>
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

// User and system CPU time of the process so far, in seconds.
inline double cpuSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}
