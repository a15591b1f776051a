#include "plant/frm_control_setup.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "plant/tag_file.h"
#include "platform/record_grid.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QSpinBox>
#include <QTest>
#include <QTimer>

namespace {
QCheckBox* box(FrmControlSetup& dlg, const char* name) {
    return dlg.findChild<QCheckBox*>(QString::fromLatin1(name));
}
// Timer 2, timer 3: both run while the plant is scanned.
QList<bool> timers(const ScanController& scan) {
    return {scan.timer2()->isActive(), scan.timer3()->isActive()};
}
// A plant on the disk and in the store, scanned.
void startPlant(TestEnv& env, ScanController& scan, const QList<TestEnv::Controller>& plant) {
    env.writeTags(plant);
    QVERIFY(readTagFile(env.path("tags.tgn")));
    buildActiveList();
    scan.timer2()->setInterval(500);
    scan.resume();
}
} // namespace

class TstControlSetup : public QObject {
    Q_OBJECT
private slots:
    void cancelSavesTheOptionsAndDropsTheGrid();
    void doneIsRefusedOrWritesThePlantAndScansIt();
};

void TstControlSetup::cancelSavesTheOptionsAndDropsTheGrid() {
    TestEnv env;
    ScanController scan;
    startPlant(env, scan, {{1, 0}, {2, 2}});
    const QByteArray file = readBytes(env.path("tags.tgn"));
    // Not opened at all while logging.
    gLogging = true;
    showControlSetup(nullptr);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Label setup not available when datalog is running!\nPlease stop the "
                         "profiler and datalogger first."});
    QCOMPARE(env.modals.unscripted, 0);
    QCOMPARE(timers(scan), (QList<bool>{true, true}));
    gLogging = false;
    gPollIndex = 1;
    {
        FrmControlSetup dlg;
        QCOMPARE(timers(scan), (QList<bool>{false, false}));
        QCOMPARE(dlg.updateTime()->value(), 500);
        RecordGrid* grid = dlg.grid();
        QCOMPARE(rowOf(grid, 1), (QStringList{"1", "TAG2", "TAG2.SP", "TAG2.OUT", "2"}));
        // The PV and SP tags open for typing at the first click; the output tag, on purpose,
        // waits for a double click or a key.
        dlg.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dlg));
        auto click = [grid](int column) {
            const QRect cell = grid->visualRect(grid->model()->index(0, column));
            QTest::mouseClick(grid->viewport(), Qt::LeftButton, {}, cell.center());
            return grid->viewport()->findChild<QLineEdit*>() != nullptr;
        };
        QCOMPARE((QList<bool>{click(FrmControlSetup::OutTag), click(FrmControlSetup::SpTag)}),
                 (QList<bool>{false, true}));
        grid->setText(0, FrmControlSetup::Status, "0");
        grid->setText(2, FrmControlSetup::PvTag, "NEW");
        // The two beep options exclude each other.
        box(dlg, "beepAlmChk")->setChecked(true);
        box(dlg, "beepAckChk")->setChecked(true);
        QVERIFY(!box(dlg, "beepAlmChk")->isChecked());
        box(dlg, "Check1")->setChecked(true);
        dlg.updateTime()->setValue(1000);
        dlg.reject();
    }
    QCOMPARE(readBytes(env.path("tags.tgn")), file);
    QVERIFY(gControlEnabled[0] && gPvTag[2] == "TAG3");
    // Polling goes on where it stopped, at the old pace until the next start.
    QCOMPARE(timers(scan), (QList<bool>{true, true}));
    QCOMPARE((QList<int>{gPollIndex, scan.timer2()->interval()}), (QList<int>{1, 500}));
    QCOMPARE((QList<bool>{gAlmLogging, gBeepOnAlarm, gBeepUntilAck, gComBeep}),
             (QList<bool>{true, false, true, false}));
    QCOMPARE(env.settings->values, (QMap<QString, QString>{{"cstatus/galmlogging", "True"},
                                                           {"cstatus/beepuntilack", "True"},
                                                           {"cstatus/beeponalarm", "False"},
                                                           {"cstatus/gcombeep", "False"},
                                                           {"cstatus/cupdatetime", "1000"}}));
}

// Done keeps the dialog, the file and the plant in memory as they were when the login is
// refused or the file cannot be written; then, logged in, it writes the plant and scans it.
void TstControlSetup::doneIsRefusedOrWritesThePlantAndScansIt() {
    TestEnv env;
    // What the file must hold afterwards, written by the test's own writer.
    env.writeTags({{1, 0, false, "TIC-1"}, {2, 2, true, "TIC-2", true}, {3, 1, true, "FIC 3  "}});
    const QByteArray expected = readBytes(env.path("tags.tgn"));
    ScanController scan;
    startPlant(env, scan, {{1, 0, true, "TIC-1", true}, {2, 2, true, "TIC-2", true}});
    const QByteArray before = readBytes(env.path("tags.tgn"));
    gSuRights[Right::ActivateControls] = 1;
    gUserLevel = 1;
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    FrmControlSetup dlg;
    dlg.show();
    RecordGrid* grid = dlg.grid();
    grid->setText(0, FrmControlSetup::Status, "0"); // logged, now out of the scan
    grid->setRowFields(2, {"1", "FIC 3  ", "FIC 3  .SP", "FIC 3  .OUT", "1"});
    dlg.updateTime()->setValue(250);
    // Shown, edits kept, file and store as they were, not scanned.
    const auto kept = [&] {
        return QList<bool>{dlg.isVisible(), grid->text(2, 1) == "FIC 3  ",
                           readBytes(env.path("tags.tgn")) == before,
                           gControlEnabled[0] && gPvTag[2] == "TAG3" && gActiveCount == 2,
                           scan.timer2()->isActive()};
    };
    const QList<bool> kKept{true, true, true, true, false};
    gAppPath = env.path("gone"); // security off: no login
    dlg.assignChannelsControlSetup();
    QCOMPARE(env.dialogs->texts().size(), 1);
    QVERIFY(env.dialogs->texts()[0].contains("in function AssignChannelsControlSetup occurred."));
    QCOMPARE(kept(), kKept);
    gAppPath = env.appPath();
    g21CFR = true;
    env.modals.cancelLogin();
    dlg.assignChannelsControlSetup();
    QCOMPARE(kept(), kKept);

    env.modals.login("jdoe", "pw");
    dlg.assignChannelsControlSetup();
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             QStringList{"Controller Activation/Tags Modified"});
    QCOMPARE(readBytes(env.path("tags.tgn")), expected);
    QVERIFY(dlg.isHidden());
    QCOMPARE(gActiveList, (QVector<qint16>{2, 3, 0}));
    QCOMPARE(scan.timer2()->interval(), 250);
    QVERIFY(scan.scanning());
    // Read back as written: the blanks of the tag stay, the dropped controller's log flag is 0
    // and the other one's is kept.
    resetPlantStore();
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QCOMPARE((QList<QString>{gPvTag[2], gTagTable[0][5], gTagTable[3][5]}),
             (QList<QString>{"FIC 3  ", " 0 ", " 1 "}));
    QCOMPARE(gControlType[2], qint16(K8RampProfiler));
}

QTEST_MAIN(TstControlSetup)
#include "tst_control_setup.moc"
