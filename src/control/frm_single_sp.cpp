#include "frm_single_sp.h"

#include "plant/comm_errors.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "plant/register_codec.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/printers.h"
#include "platform/record_grid.h"
#include "platform/window_parts.h"
#include "records/daily_files.h"
#include "records/file_cipher.h"
#include "records/record_file.h"
#include "records/record_paths.h"
#include "records/viewer_commands.h"
#include "security/login.h"
#include "security/rights.h"

#include <QAction>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPrinter>
#include <QPushButton>
#include <QStatusBar>
#include <QToolBar>
#include <QVBoxLayout>
#include <cmath>

namespace {
// Codes of -5 and below pass without a word, as they always have.
constexpr int kQuietCodes = -5;
const QString kFilter = QStringLiteral("Setpoint Recipe Files(*.spr)|*.spr");
const QString kCaption = QStringLiteral("Single Setpoint Recipes");

QString recipesFolder() {
    return gAppPath + QStringLiteral("/Recipes");
}

} // namespace

FrmSingleSP::FrmSingleSP(QWidget* parent) : ChildWindow(Life::Closes, {}, parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("frmSingleSP"), kCaption);
    QWidget* body = widget();
    Toolbar1 = makeToolbar(body, Qt::ToolButtonTextUnderIcon);
    ToolCommands button(Toolbar1, this);
    button(QStyle::SP_FileIcon, "New", "New recipe", &FrmSingleSP::newRecipe);
    button(QStyle::SP_DialogOpenButton, "Open", "Open recipe", &FrmSingleSP::openRecipe);
    button(QStyle::SP_DialogSaveButton, "Save", "Save recipe", &FrmSingleSP::saveRecipe);
    button(QStyle::SP_DriveFDIcon, "Save As", "Save recipe as", &FrmSingleSP::saveRecipeAs);
    button(QStyle::SP_FileDialogDetailedView, "Print", "Print recipe", &FrmSingleSP::printRecipe);
    button(QStyle::SP_ArrowDown, "Download", "Download recipe to controllers",
           &FrmSingleSP::downloadRecipe);
    layout->addWidget(Toolbar1);

    spDataGrid = new RecordGrid(body);
    spDataGrid->setObjectName(QStringLiteral("spDataGrid"));
    spDataGrid->setColumns({QStringLiteral("Control Address"), QStringLiteral("Write On/Off"),
                            QStringLiteral("Controller Tagname"), QStringLiteral("Setpoint Value")},
                           {14, 12, 24, 14});
    spDataGrid->setColumnCellType(WriteColumn, GridCellType::CheckBox, {},
                                  QStringLiteral("On/Off"));
    spDataGrid->setRowCount(kControllerCount);
    for (int row = 0; row < kControllerCount; ++row) {
        spDataGrid->setText(row, AddressColumn, QString::number(row + 1));
        // The setpoint row of the controller in the tag table.
        spDataGrid->setText(row, TagColumn, gTagTable[size_t(3 * row + 1)][2]);
        spDataGrid->setCellLocked(row, AddressColumn, true);
        spDataGrid->setCellLocked(row, TagColumn, true);
        if (rowLocked(row)) {
            spDataGrid->setRowLocked(row, true);
            spDataGrid->setRowColors(row, QColor(200, 200, 200), QColor(90, 90, 90));
        }
    }
    layout->addWidget(spDataGrid, 1);

    auto* bottom = new QHBoxLayout;
    bottom->setContentsMargins(6, 4, 6, 4);
    bottom->addStretch(1);
    Command1 = new QPushButton(QStringLiteral("Close"), body);
    Command1->setObjectName(QStringLiteral("Command1"));
    connect(Command1, &QPushButton::clicked, this, &QWidget::close);
    bottom->addWidget(Command1);
    layout->addLayout(bottom);
    auto* statusBar = new QStatusBar(body);
    statusBar->setObjectName(QStringLiteral("rStatusBar"));
    m_status = new QLabel(statusBar);
    statusBar->addWidget(m_status, 1);
    layout->addWidget(statusBar);

    ModSpRecipe =
        new PacedSequence(QStringLiteral("ModSpRecipe"), QStringLiteral("spWriteTimer"), this);
    connect(ModSpRecipe, &PacedSequence::writesSent, this, [this] {
        setStatus(QStringLiteral("Setpoint written to all controllers successfully."));
    });
    connect(ModSpRecipe, &PacedSequence::failed, this, [this](int code) {
        if (code <= kQuietCodes)
            return;
        msgBox(QStringLiteral("Error during write of setpoint values.\n\nMake sure write value "
                              "is within\nupper/lower setpoint limits."),
               MsgIcon::Critical);
        setStatus(QStringLiteral("Error during setpoint writes!"));
    });
    resize(660, 540);
}

bool FrmSingleSP::rowLocked(int row) const {
    return !validRow(row) || !gControlEnabled[size_t(row)] ||
           gControlType[size_t(row)] != K40Series;
}

QString FrmSingleSP::statusText() const {
    return m_status->text();
}

void FrmSingleSP::setStatus(const QString& text) {
    m_status->setText(text);
}

void FrmSingleSP::setRecipeCaption() {
    setWindowTitle(kCaption + QStringLiteral(" - ") + fileBaseName(recipeFile));
}

void FrmSingleSP::newRecipe() {
    if (msgBox(QStringLiteral("Clear all recipe values?"), MsgIcon::Question, MsgButtons::YesNo) !=
        MsgAnswer::Yes)
        return;
    for (int row = 0; row < kControllerCount; ++row) {
        spDataGrid->setText(row, ValueColumn, {});
        spDataGrid->setText(row, WriteColumn, {});
    }
    setStatus(QStringLiteral("All fields cleared for new recipe."));
}

QStringList spRecipeLines(const SpRecipe& recipe) {
    QStringList lines;
    for (const std::optional<double>& value : recipe.values)
        lines << (value ? signedText(*value) : QString());
    for (const bool ticked : recipe.ticked)
        lines << signedText(ticked ? 1 : 0);
    return lines;
}

std::optional<SpRecipe> parseSpRecipe(const QStringList& lines) {
    if (lines.size() < 2 * kControllerCount)
        return std::nullopt;
    SpRecipe recipe;
    for (int row = 0; row < kControllerCount; ++row) {
        const QString text = lines[row].trimmed();
        if (text.isEmpty()) {
            recipe.values << std::nullopt;
            continue;
        }
        bool ok = false;
        const double value = text.toDouble(&ok);
        if (!ok || !std::isfinite(value))
            return std::nullopt;
        recipe.values << value + 0.0; // -0 is the setpoint 0
    }
    for (int row = 0; row < kControllerCount; ++row)
        recipe.ticked << (lines[kControllerCount + row].trimmed().toDouble() == 1.0);
    return recipe;
}

QStringList FrmSingleSP::recipeLines() const {
    SpRecipe recipe;
    for (int row = 0; row < kControllerCount; ++row) {
        recipe.values << spDataGrid->text(row, ValueColumn).trimmed().toDouble();
        recipe.ticked << (spDataGrid->text(row, WriteColumn) == QStringLiteral("1"));
    }
    return spRecipeLines(recipe);
}

bool FrmSingleSP::applyRecipeLines(const QStringList& lines) {
    const std::optional<SpRecipe> recipe = parseSpRecipe(lines);
    if (!recipe)
        return false;
    for (int row = 0; row < kControllerCount; ++row) {
        // A locked row's value and tick mean nothing: they are cleared.
        const bool locked = rowLocked(row);
        const std::optional<double> value = recipe->values[row];
        spDataGrid->setText(row, ValueColumn,
                            locked || !value ? QString() : QString::number(*value, 'g', 15));
        spDataGrid->setText(row, WriteColumn,
                            !locked && recipe->ticked[row] ? QStringLiteral("1")
                                                           : QStringLiteral("0"));
    }
    return true;
}

bool FrmSingleSP::writeRecipe(const QString& path) {
    QString why;
    if (!writeEncipheredLines(path, recipeLines(), &why)) {
        reportError(QStringLiteral("saveRecipe"), 75, why);
        return false;
    }
    recipeFile = path;
    setRecipeCaption();
    return true;
}

void FrmSingleSP::openRecipe() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Open setpoint recipe file (.spr)");
    request.filter = kFilter;
    request.initialDirectory = recipesFolder();
    request.fileName = recipesFolder() + QStringLiteral("/Setpoint recipe.spr");
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    if (chosen.cancelled)
        return;
    // A damaged line deciphers empty and leaves an empty cell; the rest of the recipe stands.
    if (!takePlainFile(chosen.path, 2 * kControllerCount, QStringLiteral("Setpoint recipe"),
                       [this](const QStringList& lines) { return applyRecipeLines(lines); }))
        return;
    recipeFile = chosen.path;
    setRecipeCaption();
}

void FrmSingleSP::saveRecipe() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    if (recipeFile.isEmpty()) {
        saveRecipeAs();
        return;
    }
    writeRecipe(recipeFile);
}

void FrmSingleSP::saveRecipeAs() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Save .spr Recipe file as?");
    request.filter = kFilter;
    request.defaultExtension = QStringLiteral(".spr");
    request.initialDirectory = recipesFolder();
    request.fileName = QStringLiteral("Setpoint recipe.spr");
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (!chosen.cancelled)
        writeRecipe(chosen.path);
}

void FrmSingleSP::printRecipe() {
    if (!printers().hasDefaultPrinter()) {
        msgBox(QStringLiteral("There is no default printer! Please install or select a default "
                              "printer."));
        return;
    }
    const QDateTime now = currentDateTime();
    const GridPrintJob job = viewerPrintJob(
        QStringLiteral("Single Setpoint Recipe Values Printout"),
        QStringLiteral("Single Setpoint Recipe Values Printout\nSingle Setpoint Recipe - ") +
            fileBaseName(recipeFile) + QStringLiteral(" - Printed on ") +
            regionalShortDate(now.date()) + QStringLiteral(" at ") + regionalLongTime(now.time()));
    const std::unique_ptr<QPrinter> printer = printers().defaultPrinter(job.jobName);
    QString why;
    if (!spDataGrid->print(*printer, job, &why) && !why.isEmpty())
        reportError(QStringLiteral("printRecipe"), 75, why);
}

std::optional<quint16> FrmSingleSP::rawSetpoint(int row, double value) {
    const double scale = validRow(row) ? double(gScale[size_t(row)]) : 0.0;
    if (!(scale != 0.0))
        return std::nullopt;
    return offsetWord(value, 1.0 / scale);
}

void FrmSingleSP::downloadRecipe() {
    // Nothing goes to the controllers of a simulated plant, and nothing is said.
    if (gSimMode)
        return;
    if (!checkAccessWithLogin(Right::SingleSetpointRecipes,
                              windowTitle() + QStringLiteral(" - Downloaded to controllers")))
        return;
    if (msgBox(QStringLiteral("Download recipe to controllers?"), MsgIcon::Question,
               MsgButtons::YesNo) != MsgAnswer::Yes)
        return;
    QVector<std::pair<int, quint16>> table;
    for (int row = 0; row < kControllerCount; ++row) {
        // A locked row is no K40 in the scan, whatever tick it may still hold.
        if (spDataGrid->text(row, WriteColumn) != QStringLiteral("1") || rowLocked(row))
            continue;
        const int node = spDataGrid->text(row, AddressColumn).toInt();
        // An empty value is 0, the raw word 19999.
        const double value = spDataGrid->text(row, ValueColumn).trimmed().toDouble();
        const std::optional<quint16> raw = rawSetpoint(node - 1, value);
        if (!raw) {
            // Refused before anything is written: no controller gets half a recipe.
            msgBox(QStringLiteral("The setpoint of ") + spDataGrid->text(row, TagColumn) +
                       QStringLiteral(" can not be written: the controller can not hold it."),
                   MsgIcon::Critical);
            return;
        }
        table.append({node, *raw});
    }
    if (table.isEmpty())
        return;
    m_writeTable = table;
    setStatus(QStringLiteral("Writing setpoints to controllers, please wait!"));
    ModSpRecipe->startWrites(int(table.size()), [this](int stage) -> std::optional<RegisterWrite> {
        if (stage >= m_writeTable.size())
            return std::nullopt;
        const auto& [node, raw] = m_writeTable[stage];
        return RegisterWrite{node, kSetpointRegister, raw, false};
    });
}
