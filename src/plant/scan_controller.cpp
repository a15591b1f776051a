#include "scan_controller.h"

#include "frm_scanning.h"
#include "plant_store.h"
#include "platform/dialogs.h"
#include "platform/modbus_line.h"
#include "platform/modctl.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "records/data_logger.h"
#include "security/rights.h"

#include <QCoreApplication>
#include <QTimer>
#include <QWidget>

namespace {
QPointer<ScanController> gScanInstance;

// The poll interval the windows were laid out with; the stored scan time replaces it at start.
constexpr int kDesignTimer2Interval = 300;
constexpr int kTimer3Interval = 500;
} // namespace

ScanController* scanController() {
    return gScanInstance.data();
}

StoredLinePacing storedLinePacing() {
    StoredLinePacing p;
    bool ok = false;
    p.paced = settingToBool(getSetting(Sections::CStatus, Keys::LinePaced, QStringLiteral("False")),
                            &ok) &&
              ok;
    const int guard = getSetting(Sections::CStatus, Keys::LineGuard, {}).trimmed().toInt(&ok);
    p.guardMs = ok ? qBound(0, guard, StoredLinePacing::kMaxGuardMs) : 0;
    return p;
}

ScanController::ScanController(QObject* parent)
    : QObject(parent), m_modctl1(new Modctl(this)), m_timer2(new QTimer(this)),
      m_timer3(new QTimer(this)) {
    gScanInstance = this;
    m_modctl1->setObjectName(QStringLiteral("Modctl1"));
    m_poll = new PollCycle(m_modctl1, this, this);
    m_timer2->setObjectName(QStringLiteral("Timer2"));
    m_timer2->setInterval(kDesignTimer2Interval);
    connect(m_timer2, &QTimer::timeout, m_poll, &PollCycle::timer2Tick);
    m_timer3->setObjectName(QStringLiteral("Timer3"));
    m_timer3->setInterval(kTimer3Interval);
}

ScanController::~ScanController() {
    delete m_scanning;
}

void ScanController::startScan() {
    if (m_scanning) {
        m_scanning->close();
        delete m_scanning;
    }
    if (gActiveCount < 1)
        return;
    m_timer2->stop();
    m_timer3->stop();
    m_poll->readDone = false;
    m_poll->firstScan = true;
    gPollIndex = 0;
    m_scanPending = true;
    m_scanning = new FrmScanning(m_host ? m_host->window() : nullptr);
    connect(m_scanning, &FrmScanning::timer1Fired, this, &ScanController::onScanTimer);
    m_scanning->setRange(gActiveCount);
    if (m_host) {
        const QRect client(m_host->mapToGlobal(QPoint(0, 0)), m_host->size());
        m_scanning->adjustSize();
        m_scanning->move(client.center() -
                         QPoint(m_scanning->width() / 2, m_scanning->height() / 2));
    }
    QCoreApplication::processEvents();
    // An answer to a request made before this start may already have ended the first scan.
    if (!m_scanning)
        return;
    m_scanning->startTimer1();
    m_scanning->show();
}

void ScanController::startTimers() {
    m_timer2->start();
    m_timer3->start();
    m_poll->restartLine();
    // Paced, the first read need not wait for Timer2's first tick.
    m_poll->kickLine();
}

void ScanController::onScanTimer() {
    m_scanPending = false;
    m_poll->readDone = true;
    startTimers();
}

void ScanController::restartPolling() {
    m_poll->readDone = true;
    startTimers();
    emit pollingRestarted();
}

void ScanController::setLinePacing(bool paced, int guardMs) {
    modbusLine().setPacing({paced, qMax(0, guardMs) * 1000});
    m_poll->setLinePaced(paced, m_timer2);
    if (m_timer2->isActive())
        m_poll->kickLine();
}

bool ScanController::linePaced() const {
    return m_poll->linePaced();
}

bool ScanController::changeMode(bool simulation) {
    if (gLogging) {
        msgBox(
            QStringLiteral("Simulation or Realtime modes can not\nbe modified while logging data!"),
            MsgIcon::Information);
        return false;
    }
    // Going back to real time asks the data viewer's right: that is how the table is laid out.
    if (!checkAccess(simulation ? Right::SimRealMode : Right::DataViewer))
        return false;
    gSimMode = simulation;
    startScan();
    return true;
}

void ScanController::suspend() {
    m_timer2->stop();
    m_timer3->stop();
    emit suspended(true);
}

void ScanController::resume() {
    m_poll->readDone = true;
    startTimers();
    emit suspended(false);
}

void ScanController::stop() {
    m_scanPending = false;
    closeScan();
    m_timer2->stop();
    m_timer3->stop();
}

void ScanController::setScanProgress(int value) {
    if (m_scanning)
        m_scanning->setProgress(value);
}

void ScanController::closeScan() {
    if (m_scanning) {
        m_scanning->close();
        m_scanning->deleteLater();
        m_scanning = nullptr;
    }
    // The dialog went before its half second was up (an answer to a request made before the
    // scan started): the poll must not wait for a timer that went with it.
    if (m_scanPending)
        onScanTimer();
}
