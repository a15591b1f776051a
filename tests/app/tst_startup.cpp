#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "app/startup.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "plant/tag_file.h"
#include "platform/placement.h"
#include "records/alarm_log.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QFile>
#include <QTest>
#include <QTimer>

namespace {
const QString kFailureText =
    QStringLiteral("Sorvantel has encountered and error while initializing data.\n"
                   "This is probably due to a file that is missing.\n"
                   "Please re-install Sorvantel from the CD or orig source.");
} // namespace

class TstStartup : public QObject {
    Q_OBJECT
private slots:
    void missingTagFileStopsTheStart();
    void secondInstanceStopsBeforeAnythingIsRead();
    void settingsAreReadWithTheirDefaults();
    void logOnStartupNeedsAMarkedChannel();
    void fullStartOpensResidentWindowsAfterOneSecond();
    void startWithNoControllerComesUpWithoutScanning();
};

void TstStartup::missingTagFileStopsTheStart() {
    TestEnv env;
    auto& splash = *new FrmSplash; // it deletes itself once started, so it lives on the heap
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Failed);
    QVERIFY(splash.initFailed);
    QCOMPARE(env.dialogs->texts(), QStringList{kFailureText});
    QCOMPARE((std::pair{env.dialogs->boxes[0].icon, env.dialogs->boxes[0].title}),
             (std::pair{MsgIcon::Critical, QString("Sorvantel")}));
    QTest::qWait(50);
    QVERIFY(env.modbus->requests.isEmpty());
    QVERIFY(!frmMain()->isVisible());
}

void TstStartup::secondInstanceStopsBeforeAnythingIsRead() {
    TestEnv env;
    env.writeTags({{1, 0, true}});
    env.guard->otherRunning = true;
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::AlreadyRunning);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Sorvantel is already running! Please check the\ntaskbar or background "
                         "window for active version."});
    QVERIFY(gPvTag[0].isEmpty()); // the tag file was never read
}

void TstStartup::settingsAreReadWithTheirDefaults() {
    TestEnv env;
    auto* main = new FrmMain;
    loadSettings(*main);
    QCOMPARE((QList<int>{gSaveInterval, gAutoLog, main->scan().timer2()->interval(), gUserLevel}),
             (QList<int>{1, 0, 500, 0}));
    QVERIFY(!gComBeep && !gBeepOnAlarm && !gBeepUntilAck && !gAlmLogging && !g21CFR);
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));

    // The two spellings of the section meet; booleans read from True and from -1.
    env.settings->setValue("Cstatus", "gComBeep", "True");
    env.settings->setValue("CStatus", "CupdateTime", "250");
    env.settings->setValue("CStatus", "beepOnAlarm", "-1");
    env.settings->setValue("DataSave", "SaveInterval", "10");
    env.settings->setValue("Levels\\security", "21CFR", "True");
    env.settings->setValue("Levels\\su", "su 4", "1");
    loadSettings(*main);
    QVERIFY(gComBeep && gBeepOnAlarm && g21CFR);
    QCOMPARE(
        (QList<int>{main->scan().timer2()->interval(), gSaveInterval, gSuRights[4], gSuRights[3]}),
        (QList<int>{250, 10, 1, 0}));

    // A value that does not read, or a zero interval, leaves what was there.
    env.settings->setValue("DataSave", "SaveInterval", "often");
    env.settings->setValue("Cstatus", "CupdateTime", "fast");
    env.settings->setValue("CStatus", "gComBeep", "maybe");
    loadSettings(*main);
    QCOMPARE((QList<int>{gSaveInterval, main->scan().timer2()->interval()}), (QList<int>{10, 250}));
    QVERIFY(gComBeep);
    env.settings->setValue("Cstatus", "CupdateTime", "0");
    loadSettings(*main);
    QCOMPARE(main->scan().timer2()->interval(), 250);
}

void TstStartup::logOnStartupNeedsAMarkedChannel() {
    TestEnv env;
    env.writeTags({{1, 0, true}, {2, 1, true}});
    env.settings->setValue("DataSave", "gLogOnStartup", "1");
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    QCOMPARE(gLogOnStartup, qint16(0));
    QCOMPARE(env.settings->value("DataSave", "gLogOnStartup", ""), QStringLiteral("1"));
    QVERIFY(!gLogging);
    delete &splash;
    // With a channel marked the log starts under a name from the clock, and the trail says so.
    env.writeTags({{1, 0, true}, {2, 1, true, "", true}});
    env.settings->setValue("Levels\\security", "21CFR", "True");
    auto& second = *new FrmSplash;
    QCOMPARE(second.load(), FrmSplash::LoadResult::Ok);
    const QString file = env.path("Log Files/3-14-2026_10H_0M_0S.slg");
    QCOMPARE((std::pair{gLogging, gDataFileName}), (std::pair{true, file}));
    QCOMPARE(plainLinesOf(file).size(), 2);
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             (QStringList{"System Started", "Data file started. " + file}));
    delete &second;
}

void TstStartup::fullStartOpensResidentWindowsAfterOneSecond() {
    TestEnv env;
    env.writeTags({{1, 0, true, "TIC-1"}, {3, 1, true, "RMP-3"}});
    env.modbus->manual = true;
    // The alarm log's placement: two values stored, the others from their defaults.
    env.settings->setValue("AlarmLog", "MainLeft", "2000");
    env.settings->setValue("AlarmLog", "MainHeight", "3000");
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    FrmMain* main = frmMain();
    QCOMPARE(main->windowTitle(), QStringLiteral("Brenlock Controls Sorvantel"));
    QCOMPARE(gActiveList, (QVector<qint16>{1, 3, 0}));
    QCOMPARE(gAppPath, env.appPath());
    QVERIFY(QFile::exists(env.path("Alarm Logs/3-14-2026 AlmLog.alf")));
    QVERIFY(!main->isVisible());
    QCOMPARE(main->statusText(), QStringLiteral("Status"));

    for (int i = 0; i < 9; ++i)
        splash.timer1Tick();
    QVERIFY(!frmLogger()); // nine ticks: not yet
    splash.timer1Tick();
    QVERIFY(main->isVisible() && frmLogger() && frmLogger()->isMinimized());
    QCOMPARE(main->statusText(), kStatusNormal); // minimizing the logger set it
    AlarmLog* alarms = alarmLog();
    QVERIFY(alarms && alarms->isMinimized());
    const double tpp = twipsPerPixel(alarms);
    alarms->showNormal();
    QCOMPARE(alarms->pos(), QPoint(qRound(2000 / tpp), qRound(1125 / tpp)));
    QCOMPARE(alarms->size(), QSize(qRound(5650 / tpp), qRound(3000 / tpp)));
    QVERIFY(main->scan().scanning());
    // Half a second later the poll starts, and its first request goes to node 1.
    QTRY_VERIFY_WITH_TIMEOUT(!env.modbus->requests.isEmpty(), 3000);
    QCOMPARE(env.modbus->requests[0].node, 1);
}

void TstStartup::startWithNoControllerComesUpWithoutScanning() {
    TestEnv env;
    env.writeTags({});
    auto& splash = *new FrmSplash;
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    for (int i = 0; i < 10; ++i)
        splash.timer1Tick();
    QVERIFY(frmMain()->isVisible() && !frmMain()->scan().scanning() &&
            !frmMain()->scan().timer2()->isActive());
    QVERIFY(env.dialogs->boxes.isEmpty());
}

QTEST_MAIN(TstStartup)
#include "tst_startup.moc"
