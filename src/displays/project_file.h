#pragma once

#include "plant/tag_file.h"

#include <QByteArray>
#include <QString>
#include <optional>

class QMdiArea;

// A project: how the workstation is set up (the tag table with the controllers enabled, their tags
// and families, a few logger and alarm options, the poll interval), kept as one .svt file in the
// folder Projects, with copies of the eight trend files beside it named <base>T<n>.trn. Single-byte
// text (Latin-1) like tags.tgn, one value a line, CR LF line ends, no header and no check value:
// a file is a project only if it reads cleanly to its last line.
//
//   0..1151  the tag table row by row, six texts a row, as they stand
//   1152     gSaveInterval      1155  gAlmLogging, "True" or "False"
//   1153     gAutoLog           1156  gComBeep, "True" or "False"
//   1154     gLogOnStartup      1157  the poll interval (Timer2), ms
//   numbers in their print form (" 5 ")

inline constexpr int kProjectLines = kTagLines + 6;

// The main window's caption with no project, and before the name of an open or saved one.
inline const QString kMainCaption = QStringLiteral("Brenlock Controls Sorvantel");
inline const QString kProjectCaption = QStringLiteral("Brenlock Sorvantel - ");

// The current project's file name with its extension, no folder; empty while none was opened or
// saved, and then Save asks for a name.
inline QString gProjectTitle;

struct ProjectOptions {
    int saveInterval = 1;
    qint16 autoLog = 0;
    qint16 logOnStartup = 0;
    bool almLogging = false;
    bool comBeep = false;
    int pollInterval = 500;
    bool operator==(const ProjectOptions&) const = default;
};

// What a project sets besides the tag table.
struct Project {
    ProjectOptions options;
    ControllerIdentity identity;
};

// Why a file is no project: the error number its box names, and the reason.
struct ProjectFault {
    int number = 0;
    QString description;
};

QByteArray projectFileText(const TagTable& table, const ProjectOptions& options);

// Reads a project's text. The tag table's lines go into the table as they come, so a file that
// fails leaves in it what was read before the fault. Nothing, with the fault, for fewer or more
// lines than a project has, an option that is no number or boolean or lies outside what it sets,
// or a controller whose enable flag, family or log channel is no number.
std::optional<Project> parseProjectText(const QByteArray& text, TagTable& table,
                                        ProjectFault* fault = nullptr);

// The options as the workstation runs now.
ProjectOptions currentProjectOptions();
// Reads the file into gTagTable and, when it is a project, sets the store's controller columns
// and the options from it. A file that fails leaves both as they were.
bool loadProjectFile(const QString& path, ProjectFault* fault = nullptr);
// Writes the workstation's project over the file.
bool writeProjectFile(const QString& path, QString* why = nullptr);

QString projectsFolder();

// The File menu's project commands; the menu has asked their rights. Each gives the caption the
// main window is to take, or nothing when it keeps its own.
std::optional<QString> openProject();
std::optional<QString> closeProject(QMdiArea* area);
std::optional<QString> saveProject();
std::optional<QString> saveProjectAs();
