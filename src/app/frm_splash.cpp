#include "frm_splash.h"

#include "app/frm_main.h"
#include "app/open_windows.h"
#include "app/startup.h"
#include "displays/project_file.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/placement.h"
#include "platform/settings_keys.h"
#include "publish/publisher.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "records/file_cipher.h"

#include <QLabel>
#include <QMdiArea>
#include <QPainter>
#include <QTimer>
#include <QVBoxLayout>
#include <exception>

namespace {
QPixmap splashPicture() {
    QPixmap pix(360, 120);
    QPainter p(&pix);
    QLinearGradient g(0, 0, 0, 120);
    g.setColorAt(0, QColor(18, 52, 86));
    g.setColorAt(1, QColor(40, 100, 150));
    p.fillRect(pix.rect(), g);
    p.setPen(Qt::white);
    QFont f = p.font();
    f.setPointSize(26);
    f.setBold(true);
    p.setFont(f);
    p.drawText(pix.rect().adjusted(0, 0, 0, -24), Qt::AlignCenter, QStringLiteral("Sorvantel"));
    f.setPointSize(10);
    f.setBold(false);
    p.setFont(f);
    p.drawText(pix.rect().adjusted(0, 60, 0, 0), Qt::AlignCenter,
               QStringLiteral("Brenlock Controls"));
    return pix;
}
} // namespace

FrmSplash::FrmSplash(QWidget* parent)
    : QWidget(parent, Qt::SplashScreen | Qt::FramelessWindowHint) {
    setObjectName(QStringLiteral("frmSplash"));
    auto* layout = new QVBoxLayout(this);
    auto* picture = new QLabel(this);
    picture->setPixmap(splashPicture());
    auto* label = new QLabel(QStringLiteral("Initializing System, Please Wait!"), this);
    label->setObjectName(QStringLiteral("Label1"));
    label->setAlignment(Qt::AlignCenter);
    layout->addWidget(picture);
    layout->addWidget(label);
    m_timer1 = new QTimer(this);
    m_timer1->setObjectName(QStringLiteral("Timer1"));
    m_timer1->setInterval(100);
    connect(m_timer1, &QTimer::timeout, this, &FrmSplash::timer1Tick);
}

FrmSplash::~FrmSplash() = default;

FrmSplash::LoadResult FrmSplash::load() {
    m_main = new FrmMain;
    setCipherKey();
    splashTicks = 1;
    if (!checkPrevInstance()) {
        m_timer1->stop();
        return LoadResult::AlreadyRunning;
    }
    loadSettings(*m_main);
    QString error;
    if (!loadSystemFiles(&error)) {
        initFailed = true;
        m_timer1->stop();
        qWarning("Start-up failed: %s", qPrintable(error));
        showStartupFailure();
        return LoadResult::Failed;
    }
    buildActiveList();
    initLogArray();
    startLoggingAtStartup();
    gProjectTitle.clear();
    m_main->updateCaption();
    m_timer1->start();
    return LoadResult::Ok;
}

void FrmSplash::timer1Tick() {
    if (!initFailed)
        ++splashTicks;
    if (splashTicks <= 10)
        return;
    m_timer1->stop();
    if (!m_main)
        return;
    try {
        auto* logger = new FrmLogger;
        m_main->mdiArea()->addSubWindow(logger);
        m_main->show();
        logger->showMinimized();
        auto* alarms = new AlarmLog;
        m_main->mdiArea()->addSubWindow(alarms);
        alarms->placeInArea();
        alarms->showMinimized();
        hide();
        deleteLater();
        m_main->scan().startScan();
        reopenWindows(*m_main);
        m_main->publisher().apply(loadPublishConfig());
        emit startupComplete();
    } catch (const std::exception& e) {
        reportError(QStringLiteral("splashScreenTimer1"), 0, QString::fromLocal8Bit(e.what()));
    }
}
