#include "alarm_log.h"

#include "platform/placement.h"
#include "platform/record_grid.h"
#include "platform/settings_keys.h"
#include "platform/window_parts.h"

#include <QCloseEvent>
#include <QHeaderView>
#include <QPointer>
#include <QStatusBar>
#include <QVBoxLayout>

namespace {
QPointer<AlarmLog> gAlarmLogInstance;

struct ColumnDef {
    const char* title;
    int widthChars;
};
constexpr ColumnDef kColumns[] = {
    {"Tagname", 15}, {"Time Of Alarm", 16}, {"PV At Alarm", 9}, {"Ack", 5}};
} // namespace

AlarmLog* alarmLog() {
    return gAlarmLogInstance.data();
}

AlarmLog::AlarmLog(QWidget* parent) : ChildWindow(Life::Resident, Sections::AlarmLog, parent) {
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("AlarmLog"), QStringLiteral("System Alarm Log"));
    QWidget* body = widget();
    m_grid = new RecordGrid(body);
    m_grid->setObjectName(QStringLiteral("Grid1"));
    m_grid->setColumnCount(4);
    for (int c = 0; c < 4; ++c) {
        m_grid->setColumnTitle(c, QString::fromLatin1(kColumns[c].title));
        m_grid->setColumnWidthUnits(c, kColumns[c].widthChars);
    }
    m_grid->setLocked(true);
    m_grid->setWholeRowSelection(true);
    m_grid->horizontalHeader()->setStretchLastSection(true);
    m_status = new QStatusBar(body);
    m_status->setObjectName(QStringLiteral("AlmStatBar"));
    m_status->setSizeGripEnabled(false);
    layout->addWidget(m_grid);
    layout->addWidget(m_status);
    updateStatusText();
    gAlarmLogInstance = this;
}

void AlarmLog::updateStatusText() {
    m_status->showMessage(QStringLiteral("Total number of system alarms is ") +
                          QString::number(m_grid->rowCount()));
}

void AlarmLog::clearAlarms() {
    m_grid->clearRows();
    updateStatusText();
}
