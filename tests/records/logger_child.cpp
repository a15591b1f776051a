// A workstation that does nothing but log, as fast as it can, into <dir>/Log Files/run.slg, until
// it is killed or the disk ends the log. Each data line carries its number as the operator
// message, so that a reader can tell that no line went missing. Prints "started" once the file
// has its first two lines, and the texts of the boxes shown when logging ends. With a sealing
// helper named after the folder, each line is sealed, the next written once the helper has
// answered, as the logger's one line a second leaves it time to.
#include "plant/plant_store.h"
#include "records/data_logger.h"
#include "records/file_cipher.h"
#include "records/record_seals.h"
#include "support/fakes.h"

#include <QApplication>
#include <QElapsedTimer>
#include <cstdio>
#include <memory>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    if (argc < 2)
        return 2;
    auto* dialogs = installDouble<ScriptedDialogs>(installDialogs);
    gAppPath = QString::fromLocal8Bit(argv[1]);
    setCipherKey();
    for (int c = 0; c < 16; ++c) {
        gTagTable[static_cast<size_t>(3 * c)] = {QStringLiteral(" %1 ").arg(c),
                                                 " 1 ",
                                                 QStringLiteral("TAG-%1").arg(c + 1),
                                                 " 0 ",
                                                 " 0 ",
                                                 " 1 "};
        gPV[static_cast<size_t>(c)] = 100.0 + c;
        noteReadAnswered(c);
    }
    gSaveInterval = 1;
    std::unique_ptr<SealClient> sealer;
    auto untilAnswered = [&sealer] {
        QElapsedTimer t;
        t.start();
        while (sealer && (!sealer->sealing() || sealer->pending() > 0) && t.elapsed() < 5000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    };
    if (argc > 2) {
        sealer = std::make_unique<SealClient>(QString::fromLocal8Bit(argv[2]));
        installSealClient(sealer.get());
        untilAnswered();
    }
    gDataFileName = gAppPath + QStringLiteral("/Log Files/run.slg");
    if (!startDataFile())
        return 1;
    std::printf("started\n");
    std::fflush(stdout);
    for (int n = 1; gLogging; ++n) {
        gOperatorMessage = QString::number(n);
        gPV[0] = 100.0 + n % 50;
        dataSaveTimerTick();
        untilAnswered();
    }
    for (const QString& text : dialogs->texts())
        std::printf("%s\n", qPrintable(text));
    return 0;
}
