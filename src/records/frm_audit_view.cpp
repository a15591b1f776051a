#include "frm_audit_view.h"

#include "audit_trail.h"
#include "plant/comm_errors.h"
#include "plant/plant_store.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/placement.h"
#include "platform/printers.h"
#include "platform/record_grid.h"
#include "platform/settings_keys.h"
#include "platform/window_parts.h"
#include "record_file.h"
#include "record_paths.h"
#include "security/rights.h"
#include "viewer_commands.h"

#include <QApplication>
#include <QCloseEvent>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPrinter>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace {
QPointer<FrmAuditView> gAuditViewInstance;

const QStringList kTitles{QStringLiteral("Date"),    QStringLiteral("Time"),
                          QStringLiteral("User ID"), QStringLiteral("Full Name"),
                          QStringLiteral("Comment"), QStringLiteral("Action")};
const QString kUseOpenIcon = QStringLiteral("Use the open file icon to load a audit trail file.");

} // namespace

FrmAuditView* frmAuditView() {
    return gAuditViewInstance.data();
}

FrmAuditView::FrmAuditView(QWidget* parent) : ChildWindow(Life::Closes, Sections::Audit, parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("frmAuditView"), QStringLiteral("Audit Trail Viewer"));
    QWidget* body = widget();
    m_toolbar = makeToolbar(body, Qt::ToolButtonTextUnderIcon);
    ToolCommands button(m_toolbar, this);
    button(QStyle::SP_DialogOpenButton, "Open", "Open Audit Trail", &FrmAuditView::openAuditFile);
    button(QStyle::SP_DialogSaveButton, "Export", "Export Audit Trail",
           &FrmAuditView::exportAuditFile);
    button(QStyle::SP_FileDialogDetailedView, "Print", "Print Audit Trail",
           &FrmAuditView::printAuditGrid);

    // Label1 frames the grid and follows the window's size.
    m_label1 = new QLabel(body);
    m_label1->setObjectName(QStringLiteral("Label1"));
    auto* frameLayout = new QVBoxLayout(m_label1);
    frameLayout->setContentsMargins(2, 2, 2, 2);
    m_vaGrid = new RecordGrid(m_label1);
    m_vaGrid->setObjectName(QStringLiteral("vaGrid"));
    m_vaGrid->setColumns(kTitles, {13, 11, 12, 20, 18, 40});
    m_vaGrid->setLocked(true);
    m_vaGrid->horizontalHeader()->setStretchLastSection(true);
    frameLayout->addWidget(m_vaGrid);

    m_statusBar = new QStatusBar(body);
    m_statusBar->setObjectName(QStringLiteral("StatusBar1"));
    m_statusPanel = new QLabel(m_statusBar);
    m_statusPanel->setObjectName(QStringLiteral("Status"));
    m_statusBar->addWidget(m_statusPanel, 1);

    layout->addWidget(m_toolbar);
    layout->addWidget(m_label1, 1);
    layout->addWidget(m_statusBar);
    restorePlacement({600, 600, 14000, 6500});
    gAuditViewInstance = this;

    loadAuditGrid(auditFilePath(currentDateTime().date()));
}

FrmAuditView::~FrmAuditView() {
    if (gAuditViewInstance == this)
        gAuditViewInstance = nullptr;
}

QString FrmAuditView::statusText() const {
    return m_statusPanel->text();
}

void FrmAuditView::setStatus(const QString& text) {
    m_statusPanel->setText(text);
}

void FrmAuditView::loadAuditGrid(const QString& path) {
    if (m_loading)
        return;
    setStatus(QString());
    WaitCursor hourglass;
    m_vaGrid->clearRows();
    // Export and print stay refused until a file has loaded.
    m_fileName.clear();
    if (!QFileInfo::exists(path)) {
        // Today's trail can be viewed before its first line.
        QString why;
        if (!ensureFileExists(path, &why)) {
            reportError(QStringLiteral("loadAuditGrid"), 75, why);
            return;
        }
        m_fileName = path;
        return;
    }

    m_loading = true;
    QElapsedTimer sinceYield;
    sinceYield.start();
    int row = 0;
    bool ended = false;
    QString why;
    // Rows go in one by one rather than in one bulk load: the event loop gets turns during the
    // load, and the view must never see the model in the middle of a reset.
    const bool read = readRecordFile(
        path,
        [&](const RecordLine& line) {
            // An empty line ends the trail there and then; a close asked for meanwhile too.
            ended = ended || line.blank || m_closeAfterLoad;
            if (ended)
                return;
            // A line that does not decipher shows as an empty first cell; the next ones are
            // unharmed.
            m_vaGrid->setRowFields(row++, line.plain.value_or(QString()).split(u','));
            if (sinceYield.elapsed() >= kYieldMs) {
                QCoreApplication::processEvents();
                sinceYield.restart();
            }
        },
        &why);
    m_loading = false;
    if (!read)
        reportError(QStringLiteral("loadAuditGrid"), 75, why);
    // A file that cannot be opened is no file to export or print; one that fails part-way keeps
    // the rows read before the failure.
    if (read || row > 0) {
        m_fileName = path;
        m_vaGrid->setLocked(true);
        setStatus(QStringLiteral("Current File is ") + path);
    }
    if (m_closeAfterLoad)
        QTimer::singleShot(0, this, &QWidget::close);
}

void FrmAuditView::openAuditFile() {
    if (m_loading || !checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.filter = QStringLiteral("Audit Log Files(*.atr)|*.atr");
    request.fileName = auditFolder() + QStringLiteral("/Default.atr");
    request.initialDirectory = auditFolder();
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    if (chosen.cancelled)
        return;
    loadAuditGrid(chosen.path);
}

void FrmAuditView::exportAuditFile() {
    if (m_loading || !checkAccess(Right::ExportDataFiles))
        return;
    if (m_fileName.isEmpty()) {
        msgBox(QStringLiteral("No audit trail file to export!\n") + kUseOpenIcon,
               MsgIcon::Information);
        return;
    }
    exportGridAsCsv(*m_vaGrid, QStringLiteral("Export audit file as?"),
                    QStringLiteral("Exported Audit Files (*.csv)|*.csv"),
                    fileBaseName(m_fileName) + QStringLiteral(".csv"),
                    QStringLiteral("ExportHistoryFile"));
}

void FrmAuditView::printAuditGrid() {
    if (m_loading)
        return;
    if (m_fileName.isEmpty()) {
        msgBox(QStringLiteral("Audit trail file has not been opened!\n") + kUseOpenIcon,
               MsgIcon::Information);
        return;
    }
    if (!defaultPrinterOrSay())
        return;
    const GridPrintJob job =
        viewerPrintJob(QStringLiteral("Audit Trail Printout"),
                       QStringLiteral("Audit trail printout for fileName ") + m_fileName);
    const std::unique_ptr<QPrinter> printer = printers().defaultPrinter(job.jobName);
    m_vaGrid->print(*printer, job);
}

bool FrmAuditView::readyToClose() {
    // The load stops at its next line and closes the window then.
    if (m_loading)
        m_closeAfterLoad = true;
    return !m_loading;
}
