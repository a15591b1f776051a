// The batch search over a folder of data files: by default 1,000 files of 1,000 lines of 32
// values, the batch number in three of them and as the lot number in two more. Times the
// workstation's search (first two lines of each file, all hits) and sorvantel-records search
// --batch, in this process and as a process of its own, with the files in the page cache and
// after they were dropped from it.
//
//   bench_search [files] [lines] [folder]
//
// Lines 1 and 2 are enciphered for each file; the data lines behind them, which the search never
// reads, are enciphered once and shared, so that writing a million lines takes seconds.

#include "record_commands.h"
#include "records/data_search.h"
#include "records/file_cipher.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <unistd.h>

namespace {
constexpr int kValues = 32;
// The planted number has a 9; every other batch is written without one (below), so no other
// file's batch holds the planted number as its text at any file count.
constexpr qint32 kBatch = 9411;

// A batch of its own for file f: "1" and f in base nine, unique for every f and free of 9s.
qint32 otherBatch(int f) {
    qint32 batch = 0;
    qint32 place = 1;
    for (int rest = f; rest > 0; rest /= 9, place *= 10)
        batch += rest % 9 * place;
    return place + batch;
}

QString columnsLine() {
    QString line = QStringLiteral("Date,Time,Operator Message,Batch Number,Lot Number,");
    for (int c = 0; c < kValues; ++c)
        line += QStringLiteral("TIC-%1,").arg(c + 1);
    return line;
}

QString values(int second) {
    QString text;
    for (int c = 0; c < kValues; ++c)
        text += QStringLiteral("%1,").arg(100.0 + c + (second % 600) / 10.0, 0, 'f', 1);
    return text;
}

QString timeOf(int second) {
    return QTime(8, 0).addSecs(second).toString(QStringLiteral("h:mm:ss AP"));
}

QString startLine(qint32 batch, qint32 lot) {
    return QStringLiteral("3/14/2026,%1,File started byJane Doe (login as jdoe ),%2,%3,")
               .arg(timeOf(0))
               .arg(batch)
               .arg(lot) +
           values(0);
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// Once on the disk, the files' pages can leave the cache: the next read goes to the disk.
void dropFromCache(const QStringList& files) {
    for (const QString& path : files) {
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY);
        if (fd < 0)
            continue;
        ::fdatasync(fd);
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
        ::close(fd);
    }
}

void report(const char* what, qint64 us, int hits) {
    std::printf("%-52s %8.1f ms  %d hits\n", what, double(us) / 1000.0, hits);
}

struct Timing {
    qint64 us;
    int hits;
};

template <typename Run> Timing best(int times, Run run) {
    Timing out{std::numeric_limits<qint64>::max(), 0};
    for (int i = 0; i < times; ++i) {
        QElapsedTimer t;
        t.start();
        const int hits = run();
        out = {std::min(out.us, t.nsecsElapsed() / 1000), hits};
    }
    return out;
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int fileCount = args.size() > 1 ? args[1].toInt() : 1000;
    const int lineCount = args.size() > 2 ? args[2].toInt() : 1000;
    QTemporaryDir temp;
    const QString folder = args.size() > 3 ? args[3] : temp.path();
    if (fileCount < 5 || lineCount < 2 || !QDir().mkpath(folder)) {
        std::fprintf(stderr, "bench_search [files >= 5] [lines >= 2] [folder]\n");
        return 2;
    }

    QElapsedTimer t;
    t.start();
    setCipherKey();
    report("key derivation (once a process)", t.nsecsElapsed() / 1000, 0);

    t.restart();
    QByteArray body;
    for (int i = 2; i < lineCount; ++i)
        body += encryptText(QStringLiteral("3/14/2026,%1,.,.,.,").arg(timeOf(i)) + values(i))
                    .toLatin1() +
                "\r\n";
    const QByteArray columns = encryptText(columnsLine()).toLatin1() + "\r\n";
    QStringList files;
    qint64 bytes = 0;
    for (int f = 0; f < fileCount; ++f) {
        // Three files hold the batch, two others hold it as their lot number: five distinct
        // files at any count of five or more.
        const qint32 batch =
            (f == 0 || f == fileCount / 2 || f == fileCount - 1) ? kBatch : otherBatch(f);
        const qint32 lot = (f == 1 || f == fileCount - 2) ? kBatch : f % 50;
        const QByteArray data =
            columns + encryptText(startLine(batch, lot)).toLatin1() + "\r\n" + body;
        const QString path =
            QStringLiteral("%1/3-%2-2026_8H_0M_%3S.slg").arg(folder).arg(1 + f / 60).arg(f % 60);
        if (!writeFile(path, data)) {
            std::fprintf(stderr, "%s: cannot be written\n", qPrintable(path));
            return 2;
        }
        files << path;
        bytes += data.size();
    }
    std::printf("%d files of %d lines (%d values), %.0f MB, line 2 of %lld characters\n", fileCount,
                lineCount, kValues, double(bytes) / 1e6,
                static_cast<long long>(startLine(kBatch, 0).size()));
    report("writing the files", t.nsecsElapsed() / 1000, 0);

    const QString number = QString::number(kBatch);
    auto listAndSearch = [&] {
        QStringList list = listFilesInFolder(folder, QStringLiteral("*.slg"));
        return int(searchDataFiles(list, number, false).hits.size());
    };
    auto command = [&] {
        QBuffer out;
        QBuffer err;
        out.open(QIODevice::WriteOnly);
        err.open(QIODevice::WriteOnly);
        DataFileQuery query;
        query.batch = kBatch;
        searchRecords(folder, query, out, err);
        return int(out.data().count('\n'));
    };
    auto process = [&] {
        QProcess p;
        p.start(QStringLiteral(SORVANTEL_RECORDS_EXE),
                {QStringLiteral("search"), QStringLiteral("--batch"), number,
                 QStringLiteral("--folder"), folder});
        p.waitForFinished(-1);
        return int(p.readAllStandardOutput().count('\n'));
    };

    std::printf("-- files in the page cache, best of 5\n");
    const Timing list =
        best(5, [&] { return int(listFilesInFolder(folder, QStringLiteral("*.slg")).size()); });
    report("listFilesInFolder", list.us, 0);
    const Timing search =
        best(5, [&] { return int(searchDataFiles(files, number, false).hits.size()); });
    report("searchDataFiles, all hits (text, before the field)", search.us, search.hits);
    const Timing both = best(5, listAndSearch);
    report("listFilesInFolder + searchDataFiles", both.us, both.hits);
    const Timing inProcess = best(5, command);
    report("search --batch, in this process", inProcess.us, inProcess.hits);
    const Timing own = best(5, process);
    report("sorvantel-records search --batch, a process", own.us, own.hits);

    std::printf("-- files dropped from the page cache before each run\n");
    dropFromCache(files);
    const Timing coldSearch = best(1, listAndSearch);
    report("listFilesInFolder + searchDataFiles", coldSearch.us, coldSearch.hits);
    dropFromCache(files);
    const Timing coldProcess = best(1, process);
    report("sorvantel-records search --batch, a process", coldProcess.us, coldProcess.hits);

    const bool right =
        search.hits == 5 && inProcess.hits == 3 && own.hits == 3 && coldProcess.hits == 3;
    if (!right)
        std::printf("WRONG HITS: expected 5 for the text and 3 for the batch\n");
    return right ? 0 : 1;
}
