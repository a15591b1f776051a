// A workstation that does nothing but log, as fast as it is told, into <dir>/Log Files/run.slg,
// until it is killed or the disk ends the log. Each data line carries its number as the operator
// message, so that a reader can tell that no line went missing. Prints "started" once the file
// has its first two lines, and the texts of the boxes shown when logging ends.
#include "plant/plant_store.h"
#include "records/data_logger.h"
#include "records/file_cipher.h"
#include "support/fakes.h"

#include <QApplication>
#include <QThread>
#include <cstdio>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    if (argc < 3)
        return 2;
    auto* dialogs = installDouble<ScriptedDialogs>(installDialogs);
    gAppPath = QString::fromLocal8Bit(argv[1]);
    const int pauseMs = QByteArray(argv[2]).toInt();
    setCipherKey();
    for (int c = 0; c < 16; ++c) {
        auto& row = gTagTable[static_cast<size_t>(3 * c)];
        row = {QStringLiteral(" %1 ").arg(c),
               QStringLiteral(" 1 "),
               QStringLiteral("TAG-%1").arg(c + 1),
               QStringLiteral(" 0 "),
               QStringLiteral(" 0 "),
               QStringLiteral(" 1 ")};
        gPV[static_cast<size_t>(c)] = 100.0 + c;
    }
    gSaveInterval = 1;
    gDataFileName = gAppPath + QStringLiteral("/Log Files/run.slg");
    if (!startDataFile())
        return 1;
    std::printf("started\n");
    std::fflush(stdout);
    for (int n = 1; gLogging; ++n) {
        gOperatorMessage = QString::number(n);
        gPV[0] = 100.0 + n % 50;
        dataSaveTimerTick();
        if (pauseMs > 0)
            QThread::msleep(static_cast<unsigned long>(pauseMs));
    }
    for (const QString& text : dialogs->texts())
        std::printf("%s\n", qPrintable(text));
    return 0;
}
