#include "plot_commands.h"

#include "plant/comm_errors.h"
#include "plant/plant_store.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/plot.h"
#include "platform/printers.h"
#include "platform/record_grid.h"
#include "records/daily_files.h"
#include "records/viewer_commands.h"
#include "security/rights.h"

#include <QPrinter>
#include <QSlider>

void savePlotJpeg(Plot& plot, const QString& proposedName, const QString& title) {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = title;
    request.filter = QStringLiteral("Jpeg Files(*.jpg)|*.jpg");
    request.defaultExtension = QStringLiteral(".jpg");
    request.initialDirectory = gAppPath;
    request.fileName = proposedName;
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (chosen.cancelled)
        return;
    if (!plot.saveJpeg(chosen.path, 100))
        msgBox(QStringLiteral("Jpeg file can not be saved. Check filename or disk space"),
               MsgIcon::Critical);
}

void printPlot(Plot& plot, const QString& caption) {
    if (!defaultPrinterOrSay())
        return;
    const QDateTime now = currentDateTime();
    const PrintJob job =
        viewerPrintJob(caption, caption + QStringLiteral(" on ") + regionalShortDate(now.date()) +
                                    QStringLiteral(" at ") + regionalLongTime(now.time()));
    const std::unique_ptr<QPrinter> printer = printers().defaultPrinter(job.jobName);
    // A chart is wider than it is high.
    printer->setPageOrientation(QPageLayout::Landscape);
    QString why;
    if (!plot.print(*printer, job, &why) && !why.isEmpty())
        reportError(QStringLiteral("printPlot"), 75, why);
}

void bindZoomSlider(QSlider* slider, Plot* plot, bool timeAxis, std::function<double()> fullSpan) {
    QObject::connect(slider, &QSlider::valueChanged, plot,
                     [slider, plot, timeAxis, fullSpan = std::move(fullSpan)](int position) {
                         if (position >= 100) {
                             slider->setValue(99);
                             return;
                         }
                         const double span = (100 - position) * 0.01 * fullSpan();
                         if (timeAxis)
                             plot->setXSpan(span);
                         else
                             plot->setYSpan(span);
                     });
}
