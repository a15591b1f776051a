#include "alarm_log.h"

#include "alm_log_viewer.h"
#include "audit_trail.h"
#include "daily_files.h"
#include "platform/beep.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/placement.h"
#include "platform/printers.h"
#include "platform/record_grid.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "platform/window_parts.h"
#include "record_line.h"
#include "record_notices.h"
#include "security/login.h"
#include "security/rights.h"
#include "security/session.h"
#include "viewer_commands.h"

#include <QCoreApplication>
#include <QDir>
#include <QHeaderView>
#include <QLabel>
#include <QMdiArea>
#include <QPointer>
#include <QPrinter>
#include <QScopedValueRollback>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>
#include <algorithm>

namespace {
QPointer<AlarmLog> gAlarmLogInstance;

constexpr int kTickMs = 1000;
const QColor kNewAlarm(255, 0, 0);
const QColor kAcknowledged(0, 0, 255);

// "<date> - <time>" of a moment, as the grid and the file stamp it.
QString stamp(const QDateTime& at) {
    return regionalShortDate(at.date()) + QStringLiteral(" - ") + regionalLongTime(at.time());
}
} // namespace

void resetAlarmEngine() {
    gAlarmSeen = {};
}

QString alarmLogFolder() {
    return gAppPath + QStringLiteral("/Alarm Logs");
}

QString alarmLogPath(const QDate& date) {
    return alarmLogFolder() + u'/' + dailyFileStem(date) + QStringLiteral(" AlmLog.alf");
}

void writeAlarmLog(const QString& text, const QString& action, const QDateTime& at) {
    if (!gAlmLogging)
        return;
    // A site that lost its folder gets it back rather than losing the day's alarms.
    QDir().mkpath(alarmLogFolder());
    QString why;
    const RecordWrite written =
        appendEncipheredLine(alarmLogPath(at.date()), text + u',' + action, &why);
    if (written == RecordWrite::Written)
        return;
    // The box lets the alarm timer run; a failure meanwhile adds no second box over the first,
    // which already says that the log can not be written.
    static bool boxOpen = false;
    if (boxOpen)
        return;
    const QScopedValueRollback<bool> open(boxOpen, true);
    const int number = written == RecordWrite::NotEnciphered ? 5 : lastFileErrorNumber();
    msgBox(QStringLiteral("Error %1 = %2. Error writing to alarm log!\nPlease contact Brenlock "
                          "with this error.")
               .arg(number)
               .arg(why),
           MsgIcon::Critical);
}

void fitAlarmTimeColumn(RecordGrid& grid, int column) {
    // Two-digit month, day and hour, before and after noon.
    for (const QTime t : {QTime(10, 58, 58), QTime(22, 58, 58)})
        grid.fitColumnToText(column, stamp(QDateTime(QDate(2088, 12, 28), t)));
}

AlarmLog* alarmLog() {
    return gAlarmLogInstance.data();
}

AlarmLog::AlarmLog(QWidget* parent) : ChildWindow(Life::Resident, Sections::AlarmLog, parent) {
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("AlarmLog"), QStringLiteral("System Alarm Log"));
    QWidget* body = widget();
    m_toolbar = makeToolbar(body, Qt::ToolButtonIconOnly);
    ToolCommands button(m_toolbar, this);
    button(QStyle::SP_FileDialogContentsView, "view", "Alarm Log Viewer",
           &AlarmLog::showAlarmViewer);
    button(QStyle::SP_DialogApplyButton, "ackAll", "Acknowledge All Alarms",
           &AlarmLog::acknowledgeAll);
    button(QStyle::SP_DialogDiscardButton, "Clear", "Clear Selected Alarm",
           &AlarmLog::clearSelectedAlarm);
    button(QStyle::SP_TrashIcon, "clear1", "Clear All Alarms", &AlarmLog::clearAllAlarms);
    button(QStyle::SP_DialogSaveButton, "export", "Export Alarm Log", &AlarmLog::exportAlarmLog);
    button(QStyle::SP_FileDialogDetailedView, "print", "Print Alarm Log", &AlarmLog::printAlarmLog);
    button(QStyle::SP_MediaVolumeMuted, "Silence Beeper", "Silence Beeper",
           &AlarmLog::silenceBeeper);
    m_newestAction = button(QStyle::SP_ArrowUp, "newestFirst", "Newest Alarms First",
                            [this](bool on) { setNewestFirst(on); });
    m_newestAction->setCheckable(true);

    m_grid = new RecordGrid(body);
    m_grid->setObjectName(QStringLiteral("Grid1"));
    m_grid->setColumns({QStringLiteral("Tagname"), QStringLiteral("Time Of Alarm"),
                        QStringLiteral("PV At Alarm"), QStringLiteral("Ack")},
                       {15, 16, 9, 5});
    fitAlarmTimeColumn(*m_grid, TimeOfAlarm);
    m_grid->setLocked(true);
    m_grid->setWholeRowSelection(true);
    m_grid->horizontalHeader()->setStretchLastSection(true);
    connect(m_grid, &RecordGrid::cellDoubleClicked, this,
            [this](int row, int) { acknowledgeAlarm(row); });

    m_status = new QStatusBar(body);
    m_status->setObjectName(QStringLiteral("AlmStatBar"));
    m_status->setSizeGripEnabled(false);
    m_statusPanel = new QLabel(m_status);
    m_statusPanel->setObjectName(QStringLiteral("Status"));
    m_status->addWidget(m_statusPanel, 1);
    layout->addWidget(m_toolbar);
    layout->addWidget(m_grid, 1);
    layout->addWidget(m_status);
    updateStatusText();

    setNewestFirst(settingToBool(getSetting(Sections::AlarmLog, QStringLiteral("NewestFirst"))));

    m_timer1 = new QTimer(this);
    m_timer1->setObjectName(QStringLiteral("Timer1"));
    m_timer1->setInterval(kTickMs);
    connect(m_timer1, &QTimer::timeout, this, &AlarmLog::timer1Tick);
    m_timer1->start();
    gAlarmLogInstance = this;
}

AlarmLog::~AlarmLog() {
    if (gAlarmLogInstance == this)
        gAlarmLogInstance = nullptr;
}

QString AlarmLog::statusText() const {
    return m_statusPanel->text();
}

void AlarmLog::setNewestFirst(bool on) {
    m_newestAction->setChecked(on);
    if (on == m_newestFirst)
        return;
    m_newestFirst = on;
    turnRowsRound();
    saveSetting(Sections::AlarmLog, QStringLiteral("NewestFirst"), boolToSetting(on));
}

QList<QStringList> AlarmLog::allRows() const {
    QList<QStringList> rows;
    for (int row = 0; row < m_grid->rowCount(); ++row) {
        QStringList fields;
        for (int column = 0; column < m_grid->columnCount(); ++column)
            fields << m_grid->text(row, column);
        rows << fields;
    }
    return rows;
}

void AlarmLog::writeRows(const QList<QStringList>& rows) {
    for (int row = 0; row < rows.size(); ++row) {
        m_grid->setRowFields(row, rows[row]);
        m_grid->setRowColors(
            row, {}, rows[row].value(Ack) == QLatin1String("YES") ? kAcknowledged : kNewAlarm);
    }
}

void AlarmLog::turnRowsRound() {
    QList<QStringList> rows = allRows();
    std::reverse(rows.begin(), rows.end());
    writeRows(rows);
}

int AlarmLog::findAlarm(const QString& tagname, const QString& time) const {
    for (int row = 0; row < m_grid->rowCount(); ++row)
        if (m_grid->text(row, Tagname) == tagname && m_grid->text(row, TimeOfAlarm) == time)
            return row;
    return -1;
}

int AlarmLog::unacknowledgedCount() const {
    int count = 0;
    for (int row = 0; row < m_grid->rowCount(); ++row)
        count += m_grid->text(row, Ack) == QLatin1String("NO") ? 1 : 0;
    return count;
}

void AlarmLog::placeInArea() {
    const int frame = 2 * style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth, nullptr, this);
    const int width = qRound((m_grid->widthForColumns() + frame) * twipsPerPixel(this));
    restorePlacement({1170, 1125, std::max(5650, width), 2865});
}

void AlarmLog::updateStatusText() {
    m_statusPanel->setText(QStringLiteral("Total number of system alarms is ") +
                           QString::number(m_grid->rowCount()));
}

void AlarmLog::clearAlarms() {
    m_grid->clearRows();
    updateStatusText();
}

void AlarmLog::timer1Tick() {
    if (m_beeping)
        beep();
    QCoreApplication::processEvents();
    for (int position = 0; position < gActiveCount; ++position) {
        const int c = gActiveList.value(position) - 1;
        if (!validRow(c))
            continue;
        const qint16 word = gAlarmState[static_cast<size_t>(c)];
        checkAlarm(c, 1, (word & 1) == 1);
        checkAlarm(c, 2, (word & 2) != 0);
    }
}

void AlarmLog::checkAlarm(int controller, int alarmNumber, bool on) {
    bool& seen = gAlarmSeen[static_cast<size_t>(controller)][static_cast<size_t>(alarmNumber)];
    if (!on) {
        seen = false;
        return;
    }
    if (seen)
        return;
    // Seen before the row is added: a failure box of its line lets the timer tick again.
    seen = true;
    restoreAlarmWindow();
    addAlarm(controller, alarmNumber);
    if (gBeepOnAlarm)
        beep();
    if (gBeepUntilAck)
        m_beeping = true;
}

void AlarmLog::addAlarm(int controller, int alarmNumber) {
    if (!validRow(controller))
        return;
    const auto c = static_cast<size_t>(controller);
    const QDateTime now = currentDateTime();
    const QString pv = gPV[c].toText();
    const int row = m_grid->rowCount();
    m_grid->appendRow({gPvTag[c] + QStringLiteral(" Alm# ") + QString::number(alarmNumber),
                       stamp(now), pv, QStringLiteral("NO")});
    m_grid->setRowColors(row, {}, kNewAlarm);
    // Newest first: the new row goes to the top, the others one down.
    if (m_newestFirst) {
        QList<QStringList> rows = allRows();
        rows.prepend(rows.takeLast());
        writeRows(rows);
    }
    updateStatusText();
    writeAlarmLog(recordLine({gPvTag[c], stamp(now), pv}), QStringLiteral(",New Alarm"), now);
    emit recordNotices().alarm({AlarmNotice::Kind::Raised,
                                gPvTag[c] + QStringLiteral(" Alm# ") + QString::number(alarmNumber),
                                controller,
                                alarmNumber,
                                pv,
                                now,
                                {}});
}

void AlarmLog::restoreAlarmWindow() {
    if (!isMinimized())
        return;
    showNormal();
    // The grid paints its new row before the area around the window has been repainted, and the
    // area keeps a strip of it beside the window: repaint the area once the tick is over.
    if (QMdiArea* area = mdiArea())
        QTimer::singleShot(0, area->viewport(), qOverload<>(&QWidget::update));
}

void AlarmLog::acknowledgeAlarm(int row) {
    if (m_grid->rowCount() == 0 || row < 0 || row >= m_grid->rowCount())
        return;
    const QString tagname = m_grid->text(row, Tagname);
    const QString time = m_grid->text(row, TimeOfAlarm);
    if (m_grid->text(row, Ack) == QLatin1String("YES"))
        return;
    if (msgBox(QStringLiteral("Acknowledge alarm for ") + tagname +
                   QStringLiteral(".\nAre you sure?"),
               MsgIcon::Question, MsgButtons::YesNo,
               QStringLiteral("Alarm Acknowledge")) != MsgAnswer::Yes)
        return;
    if (!checkAccessWithLogin(Right::AcknowledgeAlarms,
                              QStringLiteral("Acknowledge Alarm on ") + tagname))
        return;
    // The login ran the event loop: the row may have gone, or moved, meanwhile.
    row = findAlarm(tagname, time);
    if (row < 0 || m_grid->text(row, Ack) == QLatin1String("YES"))
        return;
    m_grid->setRowColors(row, {}, kAcknowledged);
    m_grid->setText(row, Ack, QStringLiteral("YES"));
    const QDateTime now = currentDateTime();
    writeAlarmLog(recordLine({tagname, stamp(now), QString()}),
                  QStringLiteral(",Alarm Acknowledged"), now);
    announce(AlarmNotice::Kind::Acknowledged, tagname, now);
}

void AlarmLog::acknowledgeAll() {
    // Each row by its tag and moment: the login runs the event loop, and rows may go meanwhile.
    QList<std::pair<QString, QString>> open;
    for (int row = 0; row < m_grid->rowCount(); ++row)
        if (m_grid->text(row, Ack) != QLatin1String("YES"))
            open.append({m_grid->text(row, Tagname), m_grid->text(row, TimeOfAlarm)});
    if (open.isEmpty()) {
        msgBox(QStringLiteral("There are no alarms to acknowledge!"), MsgIcon::Information,
               MsgButtons::Ok, QStringLiteral("Alarm Acknowledge"));
        return;
    }
    if (msgBox(QStringLiteral("Acknowledge all %1 alarms.\nAre you sure?").arg(open.size()),
               MsgIcon::Question, MsgButtons::YesNo,
               QStringLiteral("Alarm Acknowledge")) != MsgAnswer::Yes)
        return;
    // One signature for all; its audit line is the first row's, as a double click writes it.
    if (!checkAccessWithLogin(Right::AcknowledgeAlarms,
                              QStringLiteral("Acknowledge Alarm on ") + open.first().first))
        return;
    const QDateTime now = currentDateTime();
    for (int row = 0; row < m_grid->rowCount(); ++row) {
        const std::pair<QString, QString> key{m_grid->text(row, Tagname),
                                              m_grid->text(row, TimeOfAlarm)};
        if (m_grid->text(row, Ack) == QLatin1String("YES") || !open.contains(key))
            continue;
        if (g21CFR && key != open.first())
            auditLine(QStringLiteral("Acknowledge Alarm on ") + key.first);
        m_grid->setRowColors(row, {}, kAcknowledged);
        m_grid->setText(row, Ack, QStringLiteral("YES"));
        writeAlarmLog(recordLine({key.first, stamp(now), QString()}),
                      QStringLiteral(",Alarm Acknowledged"), now);
        announce(AlarmNotice::Kind::Acknowledged, key.first, now);
    }
}

void AlarmLog::clearSelectedAlarm() {
    if (m_grid->rowCount() == 0) {
        msgBox(QStringLiteral("There are no alarms to delete!"), MsgIcon::Information,
               MsgButtons::Ok, QStringLiteral("Delete Alarms"));
        return;
    }
    // The grid's active cell starts on the first row.
    const int row = std::max(m_grid->activeRow(), 0);
    const QString tagname = m_grid->text(row, Tagname);
    if (msgBox(QStringLiteral("Delete alarm for ") + tagname + QStringLiteral(".\nAre you sure?"),
               MsgIcon::Question, MsgButtons::YesNo) != MsgAnswer::Yes)
        return;
    if (!checkAccessWithLogin(Right::ClearAlarms, QStringLiteral("Clear alarm for ") + tagname))
        return;
    if (row >= m_grid->rowCount() || m_grid->text(row, Tagname) != tagname)
        return;
    m_grid->removeRow(row);
    const QDateTime now = currentDateTime();
    writeAlarmLog(recordLine({tagname, stamp(now), QString()}), QStringLiteral(",Alarm Cleared"),
                  now);
    announce(AlarmNotice::Kind::Cleared, tagname, now);
    updateStatusText();
}

void AlarmLog::clearAllAlarms() {
    const QString title = QStringLiteral("Clear Alarms");
    if (m_grid->rowCount() == 0) {
        msgBox(QStringLiteral("There are no alarms to clear!"), MsgIcon::Information,
               MsgButtons::Ok, title);
        return;
    }
    if (msgBox(QStringLiteral("Clear all alarms.\nAre you sure?"), MsgIcon::Question,
               MsgButtons::YesNo, title) != MsgAnswer::Yes)
        return;
    if (!checkAccessWithLogin(Right::ClearAlarms, QStringLiteral("Clear Alarm Log")))
        return;
    m_grid->clearRows();
    const QDateTime now = currentDateTime();
    writeAlarmLog(recordLine({QStringLiteral("All Controllers"), stamp(now), QString()}),
                  QStringLiteral(",All Alarms Cleared"), now);
    announce(AlarmNotice::Kind::AllCleared, QStringLiteral("All Controllers"), now);
    updateStatusText();
}

void AlarmLog::announce(AlarmNotice::Kind kind, const QString& tagname, const QDateTime& at) {
    // The grid's tagname is the tag, " Alm# " and the number: the controller is found by its tag.
    AlarmNotice notice{kind, tagname, -1, 0, {}, at, gUserId};
    const qsizetype mark = tagname.lastIndexOf(QStringLiteral(" Alm# "));
    if (mark >= 0) {
        notice.alarmNumber = tagname.mid(mark + 6).toInt();
        for (int row = 0; row < kControllerCount; ++row)
            if (gPvTag[row] == tagname.left(mark)) {
                notice.controller = row;
                break;
            }
    }
    emit recordNotices().alarm(notice);
}

void AlarmLog::exportAlarmLog() {
    exportAlarmGrid(*m_grid);
}

void AlarmLog::printAlarmLog() {
    printAlarmGrid(*m_grid);
}

void AlarmLog::silenceBeeper() {
    m_beeping = false;
}

void AlarmLog::showAlarmViewer() {
    if (AlmLogViewer* open = almLogViewer()) {
        open->showNormal();
        if (QMdiArea* area = open->mdiArea())
            area->setActiveSubWindow(open);
        return;
    }
    auto* viewer = new AlmLogViewer;
    if (QMdiArea* area = mdiArea())
        area->addSubWindow(viewer);
    viewer->restorePlacement({900, 900, 9000, 5000});
    viewer->show();
}

// The two alarm grids export and print alike.
void exportAlarmGrid(RecordGrid& grid) {
    if (!checkAccess(Right::ExportDataFiles))
        return;
    if (grid.rowCount() == 0) {
        msgBox(QStringLiteral("There are no alarms to export!"), MsgIcon::Information,
               MsgButtons::Ok, QStringLiteral("Print Alarms"));
        return;
    }
    exportGridAsCsv(grid, QStringLiteral("Export alarm file as?"),
                    QStringLiteral("Exported Alarm Files (*.csv)|*.csv"),
                    QStringLiteral("AlarmLog.csv"), QStringLiteral("ExportAlarmLogFile"));
}

void printAlarmGrid(RecordGrid& grid) {
    if (grid.rowCount() == 0) {
        msgBox(QStringLiteral("There are no alarms to print!"), MsgIcon::Information,
               MsgButtons::Ok, QStringLiteral("Print Alarms"));
        return;
    }
    if (!printers().hasDefaultPrinter()) {
        msgBox(QStringLiteral("There is no default printer! Please install or select a default "
                              "printer."),
               MsgIcon::Information);
        return;
    }
    // An old file prints under the heading of the current log and today's moment too.
    const QDateTime now = currentDateTime();
    const GridPrintJob job = viewerPrintJob(
        QStringLiteral("System Alarm Log Printout"),
        QStringLiteral("Current System Alarm Log on ") + regionalShortDate(now.date()) +
            QStringLiteral(" at ") + regionalLongTime(now.time()));
    const std::unique_ptr<QPrinter> printer = printers().defaultPrinter(job.jobName);
    grid.print(*printer, job);
}
