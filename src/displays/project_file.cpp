#include "project_file.h"

#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/settings_store.h"
#include "records/data_logger.h"
#include "records/record_paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPointer>
#include <QTimer>
#include <algorithm>

namespace {
// The data logger's own range of the save interval; below 1 it would never write a line.
constexpr int kMaxSaveInterval = 43200;
// Far more than a project of 1158 lines with long tags; no more of a file is read.
constexpr qint64 kMaxProjectBytes = 1 << 20;
constexpr int kTrendCount = 8;
// The main window, the logger and the alarm log are always loaded.
constexpr int kResidentWindows = 3;
const QString kProjectFilter = QStringLiteral("Project Files(*.svt)|*.svt");

// The error numbers the boxes have always named for these faults.
enum ErrorNumber {
    Overflow = 6,
    TypeMismatch = 13,
    FileNotFound = 53,
    InputPastEnd = 62,
    FileAccess = 75,
};

ProjectFault lineFault(NumberFault kind, int line) {
    const QString where = QStringLiteral(" in line ") + QString::number(line + 1);
    if (kind == NumberFault::OutOfRange)
        return {Overflow, QStringLiteral("Value out of range") + where};
    return {TypeMismatch, QStringLiteral("Type mismatch") + where};
}

bool failed(ProjectFault* out, const ProjectFault& fault) {
    if (out)
        *out = fault;
    return false;
}

// The values behind the tag table, one a line in the order of the file; the first that does not
// convert is the fault.
struct OptionReader {
    const QStringList& lines;
    int line = kTagLines;
    std::optional<ProjectFault> fault = {};

    template <typename T> void integer(T& target, int min, int max) {
        NumberFault kind = NumberFault::None;
        if (const auto n = wholeNumber(lines[line], min, max, &kind))
            target = static_cast<T>(*n);
        else if (!fault)
            fault = lineFault(kind, line);
        ++line;
    }
    void boolean(bool& target) {
        bool ok = false;
        target = settingToBool(lines[line], &ok);
        if (!ok && !fault)
            fault = lineFault(NumberFault::NotANumber, line);
        ++line;
    }
};

QString trendPath(int n) {
    return gAppPath + QStringLiteral("/Trend") + QString::number(n) + QStringLiteral(".trn");
}

// Beside the project, named by its base name: "Name.v2.svt" has "NameT1.trn".
QString trendCopyPath(int n) {
    return projectsFolder() + u'/' + fileBaseName(gProjectTitle) + u'T' + QString::number(n) +
           QStringLiteral(".trn");
}

// A trend that was never set up has no file; its copy is simply not made.
void copyTrends(bool intoProject) {
    for (int n = 1; n <= kTrendCount; ++n) {
        if (intoProject)
            copyFileOver(trendPath(n), trendCopyPath(n));
        else
            copyFileOver(trendCopyPath(n), trendPath(n));
    }
}

void applyOptions(const ProjectOptions& o) {
    gSaveInterval = o.saveInterval;
    gAutoLog = o.autoLog;
    gLogOnStartup = o.logOnStartup;
    gAlmLogging = o.almLogging;
    gComBeep = o.comBeep;
    if (ScanController* scan = scanController())
        scan->timer2()->setInterval(o.pollInterval);
}

// Always to Projects under the current title, whatever folder the name was chosen in.
bool saveCurrentProject() {
    QDir().mkpath(projectsFolder());
    QString why;
    if (!writeProjectFile(projectsFolder() + u'/' + gProjectTitle, &why)) {
        msgBox(QStringLiteral("Error ") + QString::number(FileAccess) + QStringLiteral(" - ") +
                   why +
                   QStringLiteral(". Project file can not be saved. Check filename or disk space"),
               MsgIcon::Critical);
        return false;
    }
    copyTrends(true);
    return true;
}
} // namespace

QByteArray projectFileText(const TagTable& table, const ProjectOptions& options) {
    QByteArray out;
    out.reserve(kProjectLines * 12);
    for (const auto& row : table) {
        for (const QString& cell : row)
            out += cellLine(cell);
    }
    for (const QString& value :
         {numberPrintForm(options.saveInterval), numberPrintForm(options.autoLog),
          numberPrintForm(options.logOnStartup), boolToSetting(options.almLogging),
          boolToSetting(options.comBeep), numberPrintForm(options.pollInterval)})
        out += cellLine(value);
    return out;
}

std::optional<Project> parseProjectText(const QByteArray& text, TagTable& table,
                                        ProjectFault* fault) {
    const QStringList lines = textFileLines(text);
    fillTagTable(table, lines);
    if (lines.size() < kProjectLines) {
        failed(fault, {InputPastEnd, QStringLiteral("Input past end of file after line %1 of %2")
                                         .arg(lines.size())
                                         .arg(kProjectLines)});
        return std::nullopt;
    }
    // The reader takes the table and the six values and closes the file: a line more, or a
    // blank line at the end, is never read.
    Project project;
    ProjectOptions& o = project.options;
    OptionReader read{lines};
    read.integer(o.saveInterval, 1, kMaxSaveInterval);
    read.integer(o.autoLog, -32768, 32767);
    read.integer(o.logOnStartup, -32768, 32767);
    read.boolean(o.almLogging);
    read.boolean(o.comBeep);
    read.integer(o.pollInterval, 1, 65535);
    if (read.fault) {
        failed(fault, *read.fault);
        return std::nullopt;
    }
    CellFault cell;
    const std::optional<ControllerIdentity> identity = controllerIdentity(table, &cell);
    if (!identity) {
        failed(fault, lineFault(cell.kind, cell.row * kTagColumns + cell.column));
        return std::nullopt;
    }
    project.identity = *identity;
    return project;
}

ProjectOptions currentProjectOptions() {
    ProjectOptions o;
    // As the logging setup shows it: a project always holds an interval the logger can run with.
    o.saveInterval = std::clamp(gSaveInterval, 1, kMaxSaveInterval);
    o.autoLog = gAutoLog;
    o.logOnStartup = gLogOnStartup;
    o.almLogging = gAlmLogging;
    o.comBeep = gComBeep;
    if (const ScanController* scan = scanController())
        o.pollInterval = scan->timer2()->interval();
    return o;
}

bool loadProjectFile(const QString& path, ProjectFault* fault) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failed(fault, {file.exists() ? FileAccess : FileNotFound, file.errorString()});
    QByteArray text = file.read(kMaxProjectBytes + 1);
    if (file.error() != QFileDevice::NoError)
        return failed(fault, {FileAccess, file.errorString()});
    // What lies past the project's lines is never read, however long; only the lines a project
    // needs must come within the limit, and a line cut at the limit is not one of them.
    const bool cut = text.size() > kMaxProjectBytes;
    if (cut)
        text.truncate(text.lastIndexOf('\n', kMaxProjectBytes - 1) + 1);
    const std::optional<Project> project = parseProjectText(text, gTagTable, fault);
    if (!project) {
        if (cut)
            failed(fault, {FileAccess, QStringLiteral("File too large for a project")});
        return false;
    }
    applyOptions(project->options);
    applyControllerIdentity(gTagTable, project->identity);
    return true;
}

bool writeProjectFile(const QString& path, QString* why) {
    return writeFileAtomically(path, projectFileText(gTagTable, currentProjectOptions()), why);
}

QString projectsFolder() {
    return gAppPath + QStringLiteral("/Projects");
}

std::optional<QString> openProject() {
    // No poll step may see a half-loaded table.
    ScanController* scan = scanController();
    if (scan) {
        scan->timer2()->stop();
        scan->timer3()->stop();
    }
    gPollIndex = 0;
    FileDialogRequest request;
    request.title = QStringLiteral("Open Project File(.svt)");
    request.filter = kProjectFilter;
    request.initialDirectory = projectsFolder();
    request.fileName = projectsFolder() + QStringLiteral("/Default.svt");
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    // Polling and the displays stand still until something restarts them: the command has always
    // left them so.
    if (chosen.cancelled)
        return std::nullopt;
    // The name is taken before anything is read, and kept when the file fails.
    gProjectTitle = fileNameOnly(chosen.path);
    ProjectFault fault;
    if (!loadProjectFile(chosen.path, &fault)) {
        msgBox(QStringLiteral("Error") + QString::number(fault.number) + QStringLiteral(" - ") +
                   fault.description +
                   QStringLiteral(
                       " Project file is not compatible or damaged. Please select another file."),
               MsgIcon::Critical);
        // The old plant polls on: its list and controller columns are as they were.
        if (scan) {
            scan->poll().readDone = true;
            scan->timer2()->start();
            scan->timer3()->start();
        }
        gPollIndex = 0;
        return std::nullopt;
    }
    copyTrends(false);
    rebuildActiveList();
    return kProjectCaption + gProjectTitle;
}

std::optional<QString> closeProject(QMdiArea* area) {
    // A warning only: the close goes on, and the data save with it.
    if (gLogging)
        msgBox(QStringLiteral("Project can not be closed while data save is active!\n"
                              "Stop data save and then close project."),
               MsgIcon::Information);
    // Held weakly: a window closed by the events run after another's close is skipped.
    QList<QPointer<QMdiSubWindow>> windows;
    for (QMdiSubWindow* w : area->subWindowList())
        windows.append(w);
    if (1 + windows.size() > kResidentWindows) {
        for (const QPointer<QMdiSubWindow>& w : windows) {
            if (!w)
                continue;
            const QString tag = w->property("Tag").toString();
            if (tag >= QLatin1String("101") && tag <= QLatin1String("103"))
                continue;
            // A minimized display refuses its close; restored, a trend writes its file as it goes.
            w->showNormal();
            w->close();
            QCoreApplication::processEvents();
        }
    }
    return kMainCaption;
}

std::optional<QString> saveProject() {
    if (gProjectTitle.isEmpty())
        return saveProjectAs();
    saveCurrentProject();
    return std::nullopt;
}

std::optional<QString> saveProjectAs() {
    FileDialogRequest request;
    request.title = QStringLiteral("Save .svt Project file as?");
    request.filter = kProjectFilter;
    request.defaultExtension = QStringLiteral(".svt");
    request.initialDirectory = projectsFolder();
    request.fileName = QStringLiteral("Project.svt");
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (chosen.cancelled)
        return std::nullopt;
    gProjectTitle = fileNameOnly(chosen.path);
    if (!saveCurrentProject())
        return std::nullopt;
    return kProjectCaption + gProjectTitle;
}
