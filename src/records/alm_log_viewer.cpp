#include "alm_log_viewer.h"

#include "alarm_log.h"
#include "plant/comm_errors.h"
#include "platform/dialogs.h"
#include "platform/record_grid.h"
#include "platform/settings_keys.h"
#include "platform/window_parts.h"
#include "record_file.h"
#include "security/rights.h"

#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace {
QPointer<AlmLogViewer> gViewerInstance;
} // namespace

AlmLogViewer* almLogViewer() {
    return gViewerInstance.data();
}

AlmLogViewer::AlmLogViewer(QWidget* parent)
    : ChildWindow(Life::Closes, Sections::AlarmViewer, parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("AlmLogViewer"), QStringLiteral("Alarm Log Viewer"));
    QWidget* body = widget();
    m_toolbar = makeToolbar(body, Qt::ToolButtonIconOnly);
    ToolCommands button(m_toolbar, this);
    button(QStyle::SP_DialogOpenButton, "Open", "Open Alarm Log", &AlmLogViewer::openAlarmFile);
    button(QStyle::SP_DialogSaveButton, "export", "Export Alarm Log", [this] {
        if (!m_loading)
            exportAlarmGrid(*m_grid);
    });
    button(QStyle::SP_FileDialogDetailedView, "print", "Print Alarm Log", [this] {
        if (!m_loading)
            printAlarmGrid(*m_grid);
    });
    m_grid = new RecordGrid(body);
    m_grid->setObjectName(QStringLiteral("Grid1"));
    m_grid->setColumns({QStringLiteral("Tagname"), QStringLiteral("Time Of Alarm"),
                        QStringLiteral("PV At Alarm"), QStringLiteral("Action")},
                       {15, 16, 9, 20});
    fitAlarmTimeColumn(*m_grid, 1);
    m_grid->setLocked(true);
    m_grid->horizontalHeader()->setStretchLastSection(true);
    auto* status = new QStatusBar(body);
    status->setObjectName(QStringLiteral("AlmStatBar"));
    m_statusPanel = new QLabel(status);
    m_statusPanel->setObjectName(QStringLiteral("Status"));
    status->addWidget(m_statusPanel, 1);
    layout->addWidget(m_toolbar);
    layout->addWidget(m_grid, 1);
    layout->addWidget(status);
    gViewerInstance = this;
}

AlmLogViewer::~AlmLogViewer() {
    if (gViewerInstance == this)
        gViewerInstance = nullptr;
}

QString AlmLogViewer::statusText() const {
    return m_statusPanel->text();
}

void AlmLogViewer::openAlarmFile() {
    if (m_loading || !checkAccess(Right::OpenSaveFiles))
        return;
    // The title and the default name speak of .slg: the window has always asked so.
    FileDialogRequest request;
    request.title = QStringLiteral("Open alarm log file (.slg)");
    request.filter = QStringLiteral("Alarm Log Files(*.alf)|*.alf");
    request.fileName = alarmLogFolder() + QStringLiteral("/Default.slg");
    request.initialDirectory = alarmLogFolder();
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    if (chosen.cancelled || chosen.path.isEmpty())
        return;
    loadAlarmFile(chosen.path);
}

void AlmLogViewer::loadAlarmFile(const QString& path) {
    if (m_loading)
        return;
    m_loading = true;
    m_statusPanel->setText(QStringLiteral("Loading alarm log file, please wait..."));
    WaitCursor hourglass;
    int row = 0;
    qint64 damaged = 0;
    bool ended = false;
    Yielder yielder;
    QString why;
    const bool read = readRecordFile(
        path,
        [&](const RecordLine& line) {
            ended = ended || line.blank || m_closeAfterLoad;
            if (ended)
                return;
            if (!line.plain)
                ++damaged;
            // The rows follow this file from its first line on. Fields beyond the grid's last
            // column are dropped: the action, the file's fifth field, has no column here.
            m_grid->setRowCount(row + 1);
            m_grid->setRowFields(row++, line.plain.value_or(QString()).split(u','));
            if (yielder.due())
                yielder.yield();
        },
        &why);
    m_loading = false;
    m_grid->setLocked(true);
    m_fileName = path;
    QString status = QStringLiteral("Alarm File: ") + path;
    if (damaged > 0)
        status += QStringLiteral(" - %1 of %2 lines could not be deciphered and show empty")
                      .arg(damaged)
                      .arg(row);
    m_statusPanel->setText(status);
    // The rows read before a failure stay on show.
    if (!read)
        reportError(QStringLiteral("AlmLogViewer"), 75, why);
    if (m_closeAfterLoad)
        QTimer::singleShot(0, this, &QWidget::close);
}

bool AlmLogViewer::readyToClose() {
    if (m_loading)
        m_closeAfterLoad = true;
    return !m_loading;
}
