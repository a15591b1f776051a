#include "frm_history.h"

#include "data_logger.h"
#include "data_search.h"
#include "plant/comm_errors.h"
#include "plant/plant_store.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/printers.h"
#include "platform/record_grid.h"
#include "platform/window_parts.h"
#include "record_file.h"
#include "record_paths.h"
#include "records/frm_history_plot.h"
#include "security/rights.h"
#include "security/session.h"
#include "signatures.h"
#include "viewer_commands.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPrinter>
#include <QProgressBar>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QVBoxLayout>
#include <climits>
#include <cstring>

namespace {
QPointer<FrmHistory> gHistoryInstance;

const QString kPlacementSection = QStringLiteral("History\\digiView");
const QString kUseOpenIcon = QStringLiteral("Use the open file icon to load a data file.");
const QString kContact = QStringLiteral("Please contact Brenlock with this error.");

constexpr qint64 kCopyBlock = 1 << 20;
constexpr qsizetype kPlainBlock = 1 << 20;

int fileErrorNumber(const QFileDevice& file) {
    return file.error() == QFileDevice::ResourceError ? 61 : 75;
}

void decryptionFailed(int number, const QString& why) {
    msgBox(QStringLiteral("Error Number %1. - Decryption of data file failed!\n").arg(number) +
               kContact + QStringLiteral("\nReason: ") + why,
           MsgIcon::Critical);
}

QString plural(qsizetype n, const QString& one, const QString& many) {
    return QString::number(n) + u' ' + (n == 1 ? one : many);
}
} // namespace

FrmHistory* frmHistory() {
    return gHistoryInstance.data();
}

FrmHistory::FrmHistory(QWidget* parent) : ChildWindow(Life::Closes, kPlacementSection, parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("frmHistory"), QStringLiteral("Data File Viewer"));
    QWidget* body = widget();

    m_toolbar = makeToolbar(body, Qt::ToolButtonTextUnderIcon);
    ToolCommands button(m_toolbar, this);
    button(QStyle::SP_DialogOpenButton, "Open", "Open history file", &FrmHistory::openHistoryFile);
    button(QStyle::SP_FileDialogContentsView, "Plot", "Plot history data",
           &FrmHistory::plotHistory);
    m_sign = button(QStyle::SP_DialogApplyButton, "Sign", "Sign file", &FrmHistory::signDataFile);
    m_verify = button(QStyle::SP_DialogYesButton, "Verify", "Verify signature",
                      &FrmHistory::verifySignature);
    button(QStyle::SP_DialogSaveButton, "Export", "Export data", &FrmHistory::exportDataFile);
    button(QStyle::SP_FileDialogInfoView, "Search", "Search for batch#",
           &FrmHistory::searchDataFiles);
    button(QStyle::SP_FileDialogDetailedView, "Print", "Print history grid",
           &FrmHistory::printHistoryGrid);
    button(QStyle::SP_BrowserStop, "Cancel Plot", "Cancel historical Plotting",
           &FrmHistory::cancelPlot);
    enableSigning(false);

    // Label1 holds both frames and follows the window's size; the splitter lets the user give
    // the signatures more room.
    auto* label1 = new QLabel(body);
    label1->setObjectName(QStringLiteral("Label1"));
    auto* frameLayout = new QVBoxLayout(label1);
    frameLayout->setContentsMargins(2, 2, 2, 2);
    auto* splitter = new QSplitter(Qt::Vertical, label1);
    frameLayout->addWidget(splitter);

    auto* dataFrame = new QGroupBox(splitter);
    dataFrame->setObjectName(QStringLiteral("dataFrame"));
    auto* dataLayout = new QVBoxLayout(dataFrame);
    dataLayout->setContentsMargins(2, 2, 2, 2);
    m_dataGrid = new RecordGrid(dataFrame);
    m_dataGrid->setObjectName(QStringLiteral("vaGrid"));
    m_dataGrid->setProperty("index", 0);
    m_dataGrid->setLocked(true);
    // Several blocks at once (with Ctrl), each its channels in a historical plot.
    m_dataGrid->setSelectionMode(QAbstractItemView::ExtendedSelection);
    dataLayout->addWidget(m_dataGrid);

    auto* sigFrame = new QGroupBox(QStringLiteral("Electronic Signatures:"), splitter);
    sigFrame->setObjectName(QStringLiteral("sigFrame"));
    auto* sigLayout = new QVBoxLayout(sigFrame);
    sigLayout->setContentsMargins(2, 2, 2, 2);
    m_signatureGrid = new RecordGrid(sigFrame);
    m_signatureGrid->setObjectName(QStringLiteral("vaGrid"));
    m_signatureGrid->setProperty("index", 1);
    // Line 1 of the signature file is the grid's header row, row 0, as a row of its own: the
    // line of a signature file that was lost and signed again stands there too.
    m_signatureGrid->horizontalHeader()->hide();
    m_signatureGrid->setRowNumbersVisible(false);
    m_signatureGrid->setLocked(true);
    m_signatureGrid->setWholeRowSelection(true);
    sigLayout->addWidget(m_signatureGrid);
    splitter->setStretchFactor(0, 4);
    splitter->setStretchFactor(1, 1);

    m_statusBar = new QStatusBar(body);
    m_statusBar->setObjectName(QStringLiteral("StatusBar1"));
    m_statusPanel = new QLabel(m_statusBar);
    m_statusPanel->setObjectName(QStringLiteral("Status"));
    m_statusBar->addWidget(m_statusPanel, 1);
    m_dcryLabel = new QLabel(QStringLiteral(" Please Wait..."), m_statusBar);
    m_dcryLabel->setObjectName(QStringLiteral("DcryLabel"));
    m_progBar = new QProgressBar(m_statusBar);
    m_progBar->setObjectName(QStringLiteral("ProgBar"));
    m_progBar->setTextVisible(false);
    m_progBar->setMaximumWidth(220);
    m_statusBar->addPermanentWidget(m_dcryLabel);
    m_statusBar->addPermanentWidget(m_progBar);
    m_dcryLabel->hide();
    m_progBar->hide();

    layout->addWidget(m_toolbar);
    layout->addWidget(label1, 1);
    layout->addWidget(m_statusBar);
    restorePlacement({300, 300, 15000, 9000});
    gHistoryInstance = this;
}

FrmHistory::~FrmHistory() {
    if (gHistoryInstance == this) {
        gHistoryInstance = nullptr;
        gHistoryFileName.clear();
    }
}

QString FrmHistory::encryptedCopyPath() {
    return gAppPath + QStringLiteral("/Enc/encT.enc");
}

QString FrmHistory::plainCopyPath() {
    return gAppPath + QStringLiteral("/Enc/decT.enc");
}

QString FrmHistory::statusText() const {
    return m_statusPanel->text();
}

void FrmHistory::setStatus(const QString& text) {
    m_statusPanel->setText(text);
}

QString FrmHistory::fileStatus() const {
    if (gHistoryFileName.isEmpty())
        return m_searchNote.isEmpty() ? QString() : m_searchNote.mid(3);
    return QStringLiteral("Current File is ") + gHistoryFileName + m_signatureNote + m_searchNote;
}

// Every command is refused while a file loads or the files are searched; the toolbar shows it.
void FrmHistory::setLoading(bool loading) {
    m_loading = loading;
    m_toolbar->setEnabled(!loading);
}

void FrmHistory::enableSigning(bool enabled) {
    m_sign->setEnabled(enabled);
    m_verify->setEnabled(enabled);
}

void FrmHistory::showProgress(qint64 maximum) {
    m_progressShift = 0;
    while ((maximum >> m_progressShift) > INT_MAX)
        ++m_progressShift;
    m_progBar->setRange(0, int(maximum >> m_progressShift));
    m_progBar->setValue(0);
    m_dcryLabel->show();
    m_progBar->show();
}

void FrmHistory::setProgress(qint64 value) {
    m_progBar->setValue(int(std::min<qint64>(value >> m_progressShift, m_progBar->maximum())));
}

void FrmHistory::hideProgress() {
    m_dcryLabel->hide();
    m_progBar->hide();
}

bool FrmHistory::dataFileOpened() {
    if (!gHistoryFileName.isEmpty())
        return true;
    msgBox(QStringLiteral("Data file has not been opened!\n") + kUseOpenIcon);
    return false;
}

void FrmHistory::clearHistoryGrids() {
    for (RecordGrid* grid : {m_dataGrid, m_signatureGrid}) {
        grid->clearRows();
        grid->setColumnCount(0);
    }
    m_signatureLines.clear();
    m_signatureNote.clear();
    gHistoryFileName.clear();
    enableSigning(false);
}

void FrmHistory::openHistoryFile() {
    if (m_loading || !checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Open Log file (.slg)");
    request.filter = QStringLiteral("Log Files(*.slg)|*.slg");
    request.fileName = logFilesFolder() + QStringLiteral("/Default.slg");
    request.initialDirectory = logFilesFolder();
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    // A cancel leaves the file before on show.
    if (chosen.cancelled || chosen.path.isEmpty())
        return;
    m_searchNote.clear();
    showDataFile(chosen.path);
}

bool FrmHistory::showDataFile(const QString& path) {
    if (m_loading)
        return false;
    setLoading(true);
    gHistoryFileName = path;
    const bool shown = decryptDataFile() && loadDataGrid();
    // The plain text has served once it is in the grid: it does not stay on the disk.
    if (const QFileInfo plain(plainCopyPath()); plain.isFile() && !plain.isSymLink())
        QFile::remove(plainCopyPath());
    if (shown) {
        loadSignatureGrid();
        enableSigning(g21CFR);
    } else {
        setStatus(fileStatus());
    }
    setLoading(false);
    return shown;
}

// Copies the data file byte for byte over the scratch copy, so that the logger can go on
// writing to the original meanwhile. A run of kMaxRecordLineBytes without a line end stops the
// copy: the reader would refuse that line anyway, and copying on could mean gigabytes.
bool FrmHistory::copyAside(QString* why) {
    QFile from(gHistoryFileName);
    QFile to(encryptedCopyPath());
    if (!from.open(QIODevice::ReadOnly)) {
        *why = from.errorString();
        return false;
    }
    if (!openPrivateScratch(to, why))
        return false;
    QByteArray block(kCopyBlock, Qt::Uninitialized);
    qint64 run = 0;
    qint64 lines = 1;
    Yielder yielder;
    for (;;) {
        const qint64 n = from.read(block.data(), block.size());
        if (n < 0) {
            *why = from.errorString();
            return false;
        }
        if (n == 0)
            return true;
        const char* p = block.constData();
        const char* end = p + n;
        while (const char* eol = static_cast<const char*>(std::memchr(p, '\n', size_t(end - p)))) {
            run = 0;
            ++lines;
            p = eol + 1;
        }
        run += end - p;
        if (run >= kMaxRecordLineBytes) {
            *why = QStringLiteral("line %1 is longer than any record line; the file is damaged")
                       .arg(lines);
            return false;
        }
        if (to.write(block.constData(), n) != n) {
            *why = to.errorString();
            return false;
        }
        if (yielder.due())
            yielder.yield();
    }
}

bool FrmHistory::decryptDataFile() {
    setStatus(QStringLiteral("Backing up original data file, please wait..."));
    WaitCursor hourglass;
    QString why;
    // The scratch folder comes back if it was lost, rather than no file being shown.
    if (!QDir().mkpath(gAppPath + QStringLiteral("/Enc"))) {
        decryptionFailed(75, QStringLiteral("the folder Enc cannot be made"));
        clearHistoryGrids();
        return false;
    }
    if (!copyAside(&why)) {
        decryptionFailed(75, why);
        clearHistoryGrids();
        return false;
    }

    QFile plain(plainCopyPath());
    if (!openPrivateScratch(plain, &why)) {
        decryptionFailed(75, why);
        clearHistoryGrids();
        return false;
    }
    setStatus(QStringLiteral("Decrypting data file, please wait..."));
    showProgress(QFileInfo(encryptedCopyPath()).size() + 1);
    QByteArray buffer;
    buffer.reserve(kPlainBlock + 64 * 1024);
    bool written = true;
    qint64 lines = 0;
    qint64 deciphered = 0;
    Yielder yielder;
    yielder.yield(); // the progress shows before the work starts
    const bool read = readRecordFile(
        encryptedCopyPath(),
        [&](const RecordLine& line) {
            ++lines;
            // A line that does not decipher is an empty line here and an empty row in the grid.
            if (line.plain) {
                ++deciphered;
                buffer += line.plain->toLatin1();
            }
            buffer += "\r\n";
            if (buffer.size() >= kPlainBlock) {
                written = written && plain.write(buffer) == buffer.size();
                buffer.truncate(0);
            }
            if (yielder.due()) {
                setProgress(line.end);
                yielder.yield();
            }
        },
        &why);
    written = written && plain.write(buffer) == buffer.size();
    const int writeNumber = fileErrorNumber(plain);
    const QString writeError = plain.errorString();
    plain.close();
    hideProgress();
    const QString name = QFileInfo(gHistoryFileName).fileName();
    bool ok = false;
    if (!read)
        decryptionFailed(75, why);
    else if (!written)
        decryptionFailed(writeNumber, writeError);
    else if (lines == 0)
        msgBox(QStringLiteral("The data file %1 is empty: it holds no lines to show.").arg(name),
               MsgIcon::Critical);
    else if (deciphered == 0)
        msgBox(QStringLiteral("The file %1 is not a data file of this system: none of its %2 "
                              "could be deciphered.")
                   .arg(name, plural(lines, QStringLiteral("line"), QStringLiteral("lines"))),
               MsgIcon::Critical);
    else
        ok = true;
    if (!ok)
        clearHistoryGrids();
    return ok;
}

bool FrmHistory::loadDataGrid() {
    setStatus(QStringLiteral(
        "Loading data file, please wait. Large files could take some time to load."));
    WaitCursor hourglass;
    GridTextFormat format;
    format.columnDelimiter = QStringLiteral(",");
    format.rowDelimiter = QStringLiteral("\r\n");
    // Line 1, the column line, is the header row; the start line is the first data row.
    format.columnTitles = true;
    QString why;
    // One load for the whole file: the view meets the model only before and after it.
    if (!m_dataGrid->loadText(plainCopyPath(), format, &why)) {
        msgBox(QStringLiteral("Error Number 75. - Data file is damaged and will not load.\n") +
                   kContact + QStringLiteral("\nReason: ") + why,
               MsgIcon::Critical);
        clearHistoryGrids();
        return false;
    }
    // The load made no row of the file's last line end, so the last row is a line of the file
    // (an empty one when it did not decipher) and stays. Every line ends with a comma, though:
    // the columns are cut behind the last one that holds anything.
    const int columns = m_dataGrid->columnCount();
    int used = 0;
    for (int c = columns - 1; c >= used; --c) {
        if (!m_dataGrid->columnTitle(c).isEmpty()) {
            used = c + 1;
            break;
        }
    }
    for (int r = 0; r < m_dataGrid->rowCount() && used < columns; ++r) {
        for (int c = columns - 1; c >= used; --c) {
            if (!m_dataGrid->text(r, c).isEmpty()) {
                used = c + 1;
                break;
            }
        }
    }
    m_dataGrid->setColumnCount(used);
    for (int c = 0; c < used; ++c)
        m_dataGrid->setColumnWidthUnits(c, 14);
    m_dataGrid->setLocked(true);
    return true;
}

void FrmHistory::loadSignatureGrid() {
    RecordGrid* grid = m_signatureGrid;
    grid->clearRows();
    grid->setColumnCount(0);
    m_signatureLines.clear();
    m_signatureNote.clear();
    setStatus(QStringLiteral("Loading signature file, please wait..."));
    WaitCursor hourglass;
    const QString path = signatureFileOf(gHistoryFileName);
    QList<QStringList> rows;
    qsizetype damaged = 0;
    if (!QFileInfo(path).isFile()) {
        // The data stays on show; signing makes the file again, without its header line.
        m_signatureNote = QStringLiteral(" - no signature file was found beside it");
    } else {
        setStatus(QStringLiteral("Decrypting signature file, please wait..."));
        QString why;
        const bool read = readRecordFile(
            path,
            [&](const RecordLine& line) {
                damaged += !line.plain;
                m_signatureLines << line.plain.value_or(QString());
                rows << m_signatureLines.last().split(u',');
            },
            &why);
        if (!read)
            m_signatureNote =
                QStringLiteral(" - the signature file could not be read whole: ") + why;
        else if (damaged > 0)
            m_signatureNote = QStringLiteral(" - ") +
                              plural(damaged, QStringLiteral("line of the signature file"),
                                     QStringLiteral("lines of the signature file")) +
                              QStringLiteral(" could not be deciphered");
    }
    qsizetype widest = 8;
    for (const QStringList& fields : rows)
        widest = std::max(widest, fields.size());
    {
        RecordGrid::BulkLoad bulk(*grid);
        grid->setColumnCount(int(std::min<qsizetype>(widest, 4096)));
        for (qsizetype r = 0; r < rows.size(); ++r)
            grid->setRowFields(int(r), rows[r]);
    }
    for (int c = 0; c < grid->columnCount(); ++c)
        grid->setColumnWidthUnits(c, 16);
    if (grid->rowCount() > 0)
        grid->setRowColors(0, grid->palette().color(QPalette::Button),
                           grid->palette().color(QPalette::ButtonText));
    grid->setLocked(true);
    // As the spreadsheet did, the first signature is the active row after a load.
    if (grid->rowCount() > 1)
        grid->setActiveCell(1, 0);
    setStatus(fileStatus());
}

void FrmHistory::signDataFile() {
    if (m_loading || !dataFileOpened() || !maySignDataFile(gHistoryFileName))
        return;
    const QString comment = askSignatureComment();
    setStatus(QStringLiteral("Digitally signing file, please wait..."));
    QString why;
    bool written = false;
    {
        WaitCursor hourglass;
        written = appendSignature(gHistoryFileName, comment, &why);
    }
    if (!written)
        reportError(QStringLiteral("signDataFile"), 75, why);
    loadSignatureGrid();
}

void FrmHistory::verifySignature() {
    if (m_loading)
        return;
    if (m_signatureGrid->rowCount() <= 1 || gHistoryFileName.isEmpty()) {
        msgBox(QStringLiteral("No signature to verify!\n"
                              "Use the open file icon to load a data file or\n"
                              "the sign file icon to sign an open data file."));
        return;
    }
    if (!checkAccess(Right::VerifyDataFiles))
        return;
    setStatus(QStringLiteral("Verifying digital signature, please wait..."));
    const int row = m_signatureGrid->activeRow();
    if (row <= 0) {
        // Row 0 is the header line, or no row is chosen at all.
        msgBox(QStringLiteral("Digital signature selected is not valid!"), MsgIcon::Critical);
    } else {
        WaitCursor hourglass;
        verifyDataFileHash(gHistoryFileName, storedHashOf(m_signatureLines.value(row)));
    }
    setStatus(fileStatus());
}

void FrmHistory::exportDataFile() {
    if (m_loading || !checkAccess(Right::ExportDataFiles))
        return;
    if (gHistoryFileName.isEmpty()) {
        msgBox(QStringLiteral("No data file to export!\n") + kUseOpenIcon);
        return;
    }
    exportGridAsCsv(*m_dataGrid, QStringLiteral("Export data file as?"),
                    QStringLiteral("Exported Data Files (*.csv)|*.csv"),
                    fileBaseName(gHistoryFileName) + QStringLiteral(".csv"),
                    QStringLiteral("ExportHistoryFile"));
}

void FrmHistory::searchDataFiles() {
    if (m_loading || !checkAccess(Right::OpenSaveFiles))
        return;
    const QStringList files = listFilesInFolder(logFilesFolder(), QStringLiteral("*.slg"));
    const QString text =
        dialogs()
            .inputBox(QStringLiteral("Search for data files..."),
                      QStringLiteral("Enter batch or lot number to search for?"), QString())
            .value_or(QString());
    if (text.isEmpty())
        return;
    if (files.value(0) == QLatin1String("Directory")) {
        msgBox(QStringLiteral("There are no files in the log files directory!"),
               MsgIcon::Information);
        return;
    }
    const QString batchLot = QStringLiteral("batch\\lot #") + text;
    setStatus(QStringLiteral("Searching data files for ") + batchLot +
              QStringLiteral(", please wait... "));
    setLoading(true);
    showProgress(files.size());
    const QDateTime started = currentDateTime();
    auto seconds = [&started] {
        return QString::number(started.msecsTo(currentDateTime()) / 1000.0, 'f', 2);
    };
    Yielder yielder;
    yielder.yield();
    const DataSearchResult result = ::searchDataFiles(files, text, true, [&](int done) {
        if (yielder.due()) {
            setProgress(done);
            setStatus(QStringLiteral("Searching for ") + batchLot +
                      QStringLiteral(". Time Elapsed: ") + seconds() + QStringLiteral(" seconds"));
            yielder.yield();
        }
        return true;
    });
    hideProgress();
    setLoading(false);
    m_searchNote.clear();
    if (result.unreadable > 0)
        m_searchNote = QStringLiteral(" - ") +
                       plural(result.unreadable, QStringLiteral("unreadable file was"),
                              QStringLiteral("unreadable files were")) +
                       QStringLiteral(" skipped by the search");
    if (!result.hits.isEmpty()) {
        showDataFile(result.hits.first());
        return;
    }
    setStatus(fileStatus());
    msgBox(QStringLiteral("Batch\\Lot number ") + text +
               QStringLiteral(" was not found in the log files directory.\nSearch time was ") +
               seconds() + QStringLiteral(" seconds"),
           MsgIcon::Information);
}

void FrmHistory::printHistoryGrid() {
    if (m_loading || !dataFileOpened())
        return;
    if (!defaultPrinterOrSay())
        return;
    GridPrintJob job =
        viewerPrintJob(QStringLiteral("History Grid Printout"),
                       QStringLiteral("Grid printout for fileName ") + gHistoryFileName);
    job.selectedBlockOnly = m_dataGrid->selectedBlock().rowCount() >= 2;
    printGridCopies(*m_dataGrid, job, QStringLiteral("printHistoryGrid"));
}

void FrmHistory::plotHistory() {
    if (m_loading || gPlotRunning)
        return;
    const QList<GridBlock> blocks = m_dataGrid->selectedBlocks();
    if (!checkPlotSelection(blocks))
        return;
    setStatus(QStringLiteral(
        "Plotting data, please wait. Large files could take some time to plot data."));
    // Only Cancel Plot stays at hand while the grid is read.
    QList<QAction*> disabled;
    for (QAction* action : m_toolbar->actions()) {
        if (action->objectName() != QStringLiteral("Cancel Plot") && action->isEnabled()) {
            action->setEnabled(false);
            disabled << action;
        }
    }
    QPointer<FrmHistory> alive(this);
    PlotHistoryData(*m_dataGrid, blocks, mdiArea());
    if (!alive)
        return;
    for (QAction* action : std::as_const(disabled))
        action->setEnabled(true);
    setStatus(QStringLiteral("Current File is ") + gHistoryFileName);
}

void FrmHistory::cancelPlot() {
    gPlotRunning = false;
}

void FrmHistory::showPlotProgress(bool visible) {
    if (visible)
        showProgress(100);
    else
        hideProgress();
}

void FrmHistory::setPlotProgress(int percent) {
    setProgress(percent);
}

bool FrmHistory::readyToClose() {
    // A plot on its way reads this window's grid.
    if (gPlotRunning)
        return false;
    // The load or search yields to the event loop; a close then is ignored, not put off.
    if (m_loading)
        return false;
    gHistoryFileName.clear();
    return true;
}
