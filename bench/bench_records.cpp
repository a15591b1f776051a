// The cost of a day of records: 86,400 data lines of about 40 fields (one a second) enciphered,
// deciphered, hashed and loaded into the record grid.
//
//   bench_records [lines] [folder]
//
// Writes plain.txt and data.slg into the folder (default: a temporary one) so that run-bench.sh
// can set openssl beside the same bytes.

#include "platform/file_io.h"
#include "platform/line_cipher.h"
#include "platform/record_grid.h"
#include "records/file_cipher.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>
#include <cstdio>

namespace {
// Date, time, the message, batch and lot columns, then 35 values as the logger writes them.
QString dataLine(int second) {
    const QTime t = QTime(0, 0).addSecs(second);
    QString line = QStringLiteral("3/14/2026,") + t.toString(QStringLiteral("h:mm:ss AP")) +
                   QStringLiteral(",.,.,.,");
    for (int c = 0; c < 35; ++c)
        line += QStringLiteral(" %1,").arg(100.0 + c + (second % 600) / 10.0, 0, 'f', 1);
    return line;
}

long rssKiB() {
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& l : f.readAll().split('\n')) {
        if (l.startsWith("VmRSS:"))
            return l.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

void report(const char* what, qint64 ms, int lines) {
    std::printf("%-44s %7lld ms  %6.2f us/line\n", what, static_cast<long long>(ms),
                lines ? 1000.0 * double(ms) / lines : 0.0);
}
} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int lines = args.size() > 1 ? args[1].toInt() : 86400;
    QTemporaryDir temp;
    const QString folder = args.size() > 2 ? args[2] : temp.path();
    QDir().mkpath(folder);

    QStringList plain;
    plain.reserve(lines);
    for (int i = 0; i < lines; ++i)
        plain << dataLine(i);
    std::printf("%d lines of %lld characters, %d fields\n", lines,
                static_cast<long long>(plain[0].size()), int(plain[0].count(u',')));

    QElapsedTimer t;
    t.start();
    setCipherKey();
    report("key derivation (once a process)", t.elapsed(), 0);

    t.restart();
    QStringList enciphered;
    enciphered.reserve(lines);
    for (const QString& p : plain)
        enciphered << encryptText(p);
    report("encryptText", t.elapsed(), lines);

    QByteArray fileBytes;
    QByteArray plainBytes;
    for (int i = 0; i < lines; ++i) {
        fileBytes += enciphered[i].toLatin1() + "\r\n";
        plainBytes += plain[i].toLatin1() + "\r\n";
    }
    QFile out(folder + QStringLiteral("/data.slg"));
    QFile plainOut(folder + QStringLiteral("/plain.txt"));
    if (!out.open(QIODevice::WriteOnly) || !plainOut.open(QIODevice::WriteOnly))
        return 1;
    out.write(fileBytes);
    plainOut.write(plainBytes);
    out.close();
    plainOut.close();
    std::printf("data.slg %lld bytes, plain %lld bytes\n", static_cast<long long>(fileBytes.size()),
                static_cast<long long>(plainBytes.size()));

    t.restart();
    int failed = 0;
    QStringList deciphered;
    deciphered.reserve(lines);
    for (const QString& e : enciphered) {
        deciphered << decryptText(e);
        failed += deciphered.last().isEmpty();
    }
    report("decryptText", t.elapsed(), lines);
    if (failed || deciphered != plain) {
        std::printf("ROUND TRIP FAILED (%d lines)\n", failed);
        return 1;
    }

    t.restart();
    const QString hash = hashFileHex(out.fileName());
    report("hashFileHex of data.slg", t.elapsed(), 0);
    std::printf("  %s\n", qPrintable(hash));

    t.restart();
    QFile durable(folder + QStringLiteral("/durable.slg"));
    durable.remove();
    const int syncedLines = qMin(lines, 500);
    for (int i = 0; i < syncedLines; ++i)
        appendRecordLine(durable.fileName(), fileBytes.mid(0, enciphered[0].size() + 2));
    report("appendRecordLine, synced (500 lines)", t.elapsed(), syncedLines);

    const long before = rssKiB();
    RecordGrid grid;
    grid.setColumnCount(int(plain[0].count(u',')) + 1);
    t.restart();
    {
        RecordGrid::BulkLoad bulk(grid);
        for (int i = 0; i < lines; ++i)
            grid.setRowFields(i, deciphered[i].split(u','));
    }
    report("record grid load (split + setRowFields)", t.elapsed(), lines);
    std::printf("  grid %d rows x %d columns, resident memory +%ld KiB\n", grid.rowCount(),
                grid.columnCount(), rssKiB() - before);

    t.restart();
    {
        RecordGrid::BulkLoad bulk(grid);
        grid.clearRows();
        for (int i = 0; i < lines; ++i)
            grid.setRowFields(i, decryptText(enciphered[i]).split(u','));
    }
    report("decipher and load, as a viewer does", t.elapsed(), lines);

    grid.resize(1000, 700);
    grid.show();
    t.restart();
    grid.scrollToBottom();
    QCoreApplication::processEvents();
    report("first paint at the last row", t.elapsed(), 0);
    return 0;
}
