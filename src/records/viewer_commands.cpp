#include "viewer_commands.h"

#include "plant/comm_errors.h"
#include "plant/plant_store.h"
#include "platform/dialogs.h"
#include "platform/printers.h"
#include "platform/record_grid.h"
#include "record_paths.h"

#include <QPrinter>

void exportGridAsCsv(RecordGrid& grid, const QString& title, const QString& filter,
                     const QString& fileName, const QString& errorWord) {
    FileDialogRequest request;
    request.title = title;
    request.filter = filter;
    request.defaultExtension = QStringLiteral(".csv");
    request.initialDirectory = gAppPath + QStringLiteral("/Export Data");
    request.fileName = fileName;
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (chosen.cancelled)
        return;
    QString error;
    if (!grid.exportCsv(chosen.path, true, &error))
        reportError(errorWord, 75, error);
}

bool defaultPrinterOrSay() {
    if (printers().hasDefaultPrinter())
        return true;
    msgBox(QStringLiteral("There is no default printer!\nPlease install or select a default "
                          "printer."),
           MsgIcon::Information);
    return false;
}

GridPrintJob viewerPrintJob(const QString& jobName, const QString& header) {
    GridPrintJob job;
    job.jobName = jobName;
    job.header = header;
    job.footer = QStringLiteral("/c/rPage #/p");
    job.abortText = QStringLiteral("Printing - Click Cancel to quit");
    return job;
}

void printGridCopies(RecordGrid& grid, const GridPrintJob& job, const QString& errorWord) {
    const std::unique_ptr<QPrinter> printer = printers().defaultPrinter(job.jobName);
    int copies = 1;
    if (!printers().choosePrinter(*printer, &copies))
        return;
    for (int copy = 0; copy < std::max(1, copies); ++copy) {
        QString error;
        if (!grid.print(*printer, job, &error)) {
            // A cancel in the progress window leaves no reason and wants no box.
            if (!error.isEmpty())
                reportError(errorWord, 75, error);
            return;
        }
    }
}
