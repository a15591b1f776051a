// The Data File Viewer on a day file: 86,400 lines of 32 logged channels (one line a second),
// opened through the window's Open command, against the floor of reading and deciphering the
// same lines with nothing kept.
//
//   cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release
//         -DSORVANTEL_BUILD_TESTS=OFF -DSORVANTEL_BUILD_BENCH=ON
//   cmake --build build-release --target bench_history
//   build-release/bench/bench_history [lines] [channels]

#include "bench_memory.h"
#include "plant/plant_store.h"
#include "platform/dialogs.h"
#include "platform/line_cipher.h"
#include "platform/plot.h"
#include "platform/record_grid.h"
#include "records/file_cipher.h"
#include "records/frm_history.h"
#include "records/frm_history_plot.h"
#include "records/record_file.h"
#include "records/signatures.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <malloc.h>
#include <qcustomplot.h>
#include <unistd.h>

namespace {
// The open dialog answers with the day file; any box is counted, as none should come.
class BenchDialogs final : public Dialogs {
public:
    QString file;
    int boxes = 0;
    MsgAnswer messageBox(MsgIcon, MsgButtons, const QString&, const QString& text) override {
        ++boxes;
        std::printf("BOX: %s\n", qPrintable(text));
        return MsgAnswer::Ok;
    }
    std::optional<QString> inputBox(const QString&, const QString&, const QString&) override {
        return std::nullopt;
    }
    FileDialogResult openFile(const FileDialogRequest&) override { return {false, file}; }
    FileDialogResult saveFile(const FileDialogRequest&) override { return {}; }
    std::optional<QColor> chooseColour(const QColor&) override { return std::nullopt; }
    bool openDocument(const QString&) override { return false; }
};

// Starts the peak of resident memory afresh from the present.
void resetPeak() {
    QFile f(QStringLiteral("/proc/self/clear_refs"));
    if (f.open(QIODevice::WriteOnly))
        f.write("5");
}

void report(const char* what, qint64 ms, qint64 lines) {
    std::printf("%-52s %6lld ms  %6.2f us/line\n", what, static_cast<long long>(ms),
                lines ? 1000.0 * double(ms) / double(lines) : 0.0);
}

// The lines as the logger writes them: the column line, the start line, then one a second.
qint64 writeDayFile(const QString& path, int lines, int channels) {
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly))
        return -1;
    QString plain = QStringLiteral("Date,Time,Operator Message,Batch Number,Lot Number,");
    for (int c = 0; c < channels; ++c)
        plain += QStringLiteral("TIC-%1,").arg(c + 1);
    out.write(encryptText(plain).toLatin1() + "\r\n");
    for (int i = 1; i < lines; ++i) {
        const QTime t = QTime(0, 0).addSecs(i - 1);
        plain = QStringLiteral("3/14/2026,") + t.toString(QStringLiteral("h:mm:ss AP")) +
                (i == 1 ? QStringLiteral(",File started byJane Doe (login as jdoe ),4242,17,")
                        : QStringLiteral(",.,.,.,"));
        for (int c = 0; c < channels; ++c)
            plain += QString::number(100.0 + c + (i % 600) / 10.0, 'f', 1) + u',';
        out.write(encryptText(plain).toLatin1() + "\r\n");
    }
    return out.size();
}
} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int lines = args.size() > 1 ? args[1].toInt() : 86400;
    const int channels = args.size() > 2 ? args[2].toInt() : 32;
    QTemporaryDir temp;
    gAppPath = temp.path();
    QDir().mkpath(gAppPath + QStringLiteral("/Log Files"));
    const QString file = gAppPath + QStringLiteral("/Log Files/day.slg");

    setCipherKey();
    const qint64 bytes = writeDayFile(file, lines, channels);
    QFile sif(signatureFileOf(file));
    if (bytes < 0 || !sif.open(QIODevice::WriteOnly))
        return 1;
    sif.write(encryptText(kSignatureHeader).toLatin1() + "\r\n");
    sif.close();
    std::printf("%d lines, %d channels, %lld bytes on disk\n", lines, channels,
                static_cast<long long>(bytes));

    // Floor 1: the bytes of each line to plain bytes, nothing kept and no text made.
    QElapsedTimer t;
    t.start();
    qint64 plainBytes = 0;
    {
        QFile in(file);
        if (!in.open(QIODevice::ReadOnly))
            return 1;
        QByteArray line(kMaxRecordLineBytes + 1, Qt::Uninitialized);
        for (qint64 n; (n = in.readLine(line.data(), line.size())) > 0;) {
            while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r'))
                --n;
            if (const auto plain = gCrypt().decrypt(
                    QByteArray::fromHex(QByteArray::fromRawData(line.constData(), n))))
                plainBytes += plain->size();
        }
    }
    const qint64 floorRaw = t.elapsed();
    report("floor: read + decipher, bytes only", floorRaw, lines);

    // Floor 2: the shared reader with a handler that keeps nothing.
    t.restart();
    qint64 deciphered = 0;
    readRecordFile(file, [&deciphered](const RecordLine& l) { deciphered += l.plain.has_value(); });
    const qint64 floorReader = t.elapsed();
    report("floor: readRecordFile, nothing kept", floorReader, lines);
    if (deciphered != lines)
        std::printf("ONLY %lld LINES DECIPHERED\n", static_cast<long long>(deciphered));

    auto* dialogs = new BenchDialogs;
    dialogs->file = file;
    installDialogs(std::unique_ptr<Dialogs>(dialogs));
    FrmHistory view;
    view.resize(1200, 800);
    view.show();
    QCoreApplication::processEvents();
    malloc_trim(0);
    const double atRest = residentMiB();
    resetPeak();

    t.restart();
    view.openHistoryFile();
    const qint64 open = t.elapsed();
    RecordGrid* grid = view.dataGrid();
    grid->scrollToBottom();
    QCoreApplication::processEvents();
    const qint64 shown = t.elapsed();
    report("FrmHistory open: Open to the last row in the grid", open, lines);
    report("  ... and the last row painted", shown, lines);
    std::printf("  grid %d rows x %d columns, last row time %s, %d boxes\n", grid->rowCount(),
                grid->columnCount(), qPrintable(grid->text(grid->rowCount() - 1, 1)),
                dialogs->boxes);
    std::printf("  open / floor: %.2fx the bytes-only floor, %.2fx the reader floor\n",
                double(open) / double(std::max<qint64>(1, floorRaw)),
                double(open) / double(std::max<qint64>(1, floorReader)));
    std::printf("resident memory at rest %.1f MiB, after the open %.1f MiB (+%.1f), "
                "peak during the open %.1f MiB (+%.1f); grid rows hold %.1f MiB\n",
                atRest, residentMiB(), residentMiB() - atRest, peakMiB(), peakMiB() - atRest,
                double(grid->gridModel()->rowBytes()) / (1 << 20));

    // The historical plot of six channels over the whole day, from the Plot button to the drawn
    // chart, with the longest wait of a 10 ms timer during it (how responsive the window stays).
    {
        grid->clearSelection();
        grid->selectionModel()->select(
            QItemSelection(grid->model()->index(0, kFirstDataColumn),
                           grid->model()->index(grid->rowCount() - 1, kFirstDataColumn + 5)),
            QItemSelectionModel::Select);
        QElapsedTimer beat;
        qint64 longestWait = 0;
        QTimer pulse;
        pulse.setInterval(10);
        QObject::connect(&pulse, &QTimer::timeout,
                         [&] { longestWait = std::max(longestWait, beat.restart()); });
        pulse.start();
        beat.start();
        t.restart();
        view.plotHistory();
        FrmHistoryPlot* plot = frmHistoryPlot();
        if (!plot)
            return 1;
        plot->iPlotX->customPlot()->replot();
        const qint64 drawn = t.elapsed();
        report("Plot of 6 columns x all rows, to the drawn chart", drawn, lines);
        std::printf("  %d channels of %lld points, longest wait of the event loop %lld ms\n",
                    plot->iPlotX->channelCount(),
                    static_cast<long long>(plot->iPlotX->points(0).size()),
                    static_cast<long long>(longestWait));
    }

    // What the open is made of beside the grid's load (the plain scratch copy is gone by now:
    // it lasts only until the grid holds it): the copy of the data file.
    t.restart();
    QFile::remove(gAppPath + QStringLiteral("/copy.enc"));
    QFile::copy(file, gAppPath + QStringLiteral("/copy.enc"));
    report("  part: QFile::copy of the data file", t.elapsed(), lines);
    t.restart();
    const QString hash = hashFileHex(file);
    report("  beside: hashFileHex of the data file (signing)", t.elapsed(), 0);
    return dialogs->boxes == 0 && grid->rowCount() == lines - 1 && !hash.isEmpty() ? 0 : 1;
}
