#include "status_panels.h"

#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/shrinking_panel.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "security/session.h"

#include <QFileInfo>
#include <QLabel>
#include <QStatusBar>

namespace {
ShrinkingPanel* panel(QStatusBar* bar, const char* name) {
    auto* label = new ShrinkingPanel(bar);
    label->setObjectName(QLatin1String(name));
    bar->addPermanentWidget(label);
    return label;
}

// Sets a panel's text and its warning colour, only where they changed: a repaint a second of
// every panel would cost more than the rest of the tick. A warning is read whole; the panels
// that only inform give way to it.
void show(ShrinkingPanel* label, const QString& text, bool warn, bool* warned) {
    if (label->text() != text)
        label->setText(text);
    if (warned && *warned != warn) {
        *warned = warn;
        label->setHoldsWholeText(warn);
        label->setStyleSheet(warn ? QStringLiteral("QLabel { background: #c00000; color: white; }")
                                  : QString());
    }
}
} // namespace

StatusPanels::StatusPanels(QStatusBar* bar)
    : QObject(bar), m_quality(panel(bar, "qualityPanel")), m_round(panel(bar, "roundPanel")),
      m_alarms(panel(bar, "alarmsPanel")), m_logging(panel(bar, "loggingPanel")),
      m_user(panel(bar, "userPanel")) {
    m_quality->setToolTip(tr("Controllers that failed their last reads: their values are held"));
    m_round->setToolTip(tr("The last round over the scanned controllers: each was read once in "
                           "that time. View, Link Statistics tells more."));
    refresh();
}

void StatusPanels::refresh() {
    QString first;
    const int silent = notAnsweringCount(&first);
    show(m_quality,
         silent == 0 ? tr("All answering") : tr("Not answering: %1, %2").arg(silent).arg(first),
         silent > 0, &m_qualityWarns);

    ScanController* scan = scanController();
    const qint64 round = scan ? scan->poll().rounds().lastMicros : -1;
    show(m_round,
         round < 0 ? tr("No round yet")
                   : tr("Round %1 s").arg(double(round) / 1e6, 0, 'f', round < 10'000'000 ? 2 : 1),
         false, nullptr);

    int open = 0;
    if (const AlarmLog* log = alarmLog())
        open = log->unacknowledgedCount();
    show(m_alarms,
         open == 0 ? tr("No alarms to acknowledge") : tr("Alarms: %1 unacknowledged").arg(open),
         open > 0, &m_alarmsWarn);

    show(m_logging,
         gLogging ? tr("Logging to %1").arg(QFileInfo(gDataFileName).fileName())
                  : tr("Not logging"),
         false, nullptr);
    m_logging->setToolTip(gLogging ? gDataFileName : QString());

    show(m_user, tr("%1, security %2").arg(gUserId, g21CFR ? tr("on") : tr("off")), false, nullptr);
}

QString StatusPanels::qualityText() const {
    return m_quality->text();
}

QString StatusPanels::roundText() const {
    return m_round->text();
}

QString StatusPanels::alarmsText() const {
    return m_alarms->text();
}

QString StatusPanels::loggingText() const {
    return m_logging->text();
}

QString StatusPanels::userText() const {
    return m_user->text();
}
