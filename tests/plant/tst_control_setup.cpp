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
#include <QFile>
#include <QLineEdit>
#include <QSpinBox>
#include <QTest>
#include <QTimer>

namespace {
QByteArray bytesOf(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
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
    void doneWritesThePlantAndScansIt();
    void allDisabledLeavesNothingToPoll();
    void refusedDoneChangesNothing();
    void notOpenedWhileLogging();
    void tagColumnsOpenAtTheFirstClick();
};

void TstControlSetup::cancelSavesTheOptionsAndDropsTheGrid() {
    TestEnv env;
    ScanController scan;
    startPlant(env, scan, {{1, 0}, {2, 2}});
    const QByteArray file = bytesOf(env.path("tags.tgn"));
    gPollIndex = 1;
    {
        FrmControlSetup dlg;
        QCOMPARE(timers(scan), (QList<bool>{false, false}));
        QCOMPARE(dlg.updateTime()->value(), 500);
        RecordGrid* grid = dlg.grid();
        QCOMPARE((QStringList{grid->text(1, 0), grid->text(1, 1), grid->text(1, 2),
                              grid->text(1, 3), grid->text(1, 4)}),
                 (QStringList{"1", "TAG2", "TAG2.SP", "TAG2.OUT", "2"}));
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
    QCOMPARE(bytesOf(env.path("tags.tgn")), file);
    QCOMPARE((QList<bool>{gControlEnabled[0], gPvTag[2] == "TAG3"}), (QList<bool>{true, true}));
    // Polling goes on where it stopped, at the old pace until the next start.
    QCOMPARE(timers(scan), (QList<bool>{true, true}));
    QCOMPARE((QList<int>{gPollIndex, scan.timer2()->interval()}), (QList<int>{1, 500}));
    QCOMPARE((QList<bool>{gAlmLogging, gBeepOnAlarm, gBeepUntilAck, gComBeep}),
             (QList<bool>{true, false, true, false}));
    QCOMPARE((QStringList{env.settings->value("CStatus", "gAlmLogging", {}),
                          env.settings->value("CStatus", "beepUntilAck", {}),
                          env.settings->value("CStatus", "beepOnAlarm", {}),
                          env.settings->value("Cstatus", "gComBeep", {}),
                          env.settings->value("CStatus", "CupdateTime", {})}),
             (QStringList{"True", "True", "False", "False", "1000"}));
}

void TstControlSetup::doneWritesThePlantAndScansIt() {
    TestEnv env;
    // What the file must hold afterwards, written by the test's own writer.
    env.writeTags({{1, 0, false, "TIC-1"}, {2, 2, true, "TIC-2", true}, {3, 1, true, "FIC 3  "}});
    const QByteArray expected = bytesOf(env.path("tags.tgn"));
    ScanController scan;
    startPlant(env, scan, {{1, 0, true, "TIC-1", true}, {2, 2, true, "TIC-2", true}});
    g21CFR = true;
    gSuRights[Right::ActivateControls] = 1;
    gUserLevel = 1;
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    env.modals.login("jdoe", "pw");
    FrmControlSetup dlg;
    dlg.show();
    RecordGrid* grid = dlg.grid();
    grid->setText(0, FrmControlSetup::Status, "0"); // logged, now out of the scan
    grid->setRowFields(2, {"1", "FIC 3  ", "FIC 3  .SP", "FIC 3  .OUT", "1"});
    dlg.updateTime()->setValue(250);
    dlg.assignChannelsControlSetup();
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             QStringList{"Controller Activation/Tags Modified"});
    QCOMPARE(bytesOf(env.path("tags.tgn")), expected);
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

void TstControlSetup::allDisabledLeavesNothingToPoll() {
    TestEnv env;
    ScanController scan;
    startPlant(env, scan, {{1, 0}, {64, 1}});
    FrmControlSetup dlg;
    for (int c = 0; c < 64; ++c)
        dlg.grid()->setText(c, FrmControlSetup::Status, "0");
    dlg.assignChannelsControlSetup(); // security off: no login
    const QList<QByteArray> lines = bytesOf(env.path("tags.tgn")).split('\n');
    QCOMPARE(lines.size(), 1153); // 1152 lines and nothing after the last line end
    for (int r = 0; r < 192; ++r)
        QCOMPARE(lines[6 * r + 1], QByteArray(" 0 \r"));
    QCOMPARE(gActiveCount, qint16(0));
    QVERIFY(!scan.scanning());
    QVERIFY(scan.timer2()->isActive());
}

void TstControlSetup::refusedDoneChangesNothing() {
    TestEnv env;
    ScanController scan;
    startPlant(env, scan, {{1, 0}});
    const QByteArray file = bytesOf(env.path("tags.tgn"));
    g21CFR = true;
    gSuRights[Right::ActivateControls] = 1;
    gUserLevel = 1;
    FrmControlSetup dlg;
    dlg.show();
    dlg.grid()->setText(0, FrmControlSetup::PvTag, "EDITED");
    env.modals.cancelLogin();
    dlg.assignChannelsControlSetup();
    QCOMPARE((QList<bool>{dlg.isVisible(), dlg.grid()->text(0, 1) == "EDITED",
                          bytesOf(env.path("tags.tgn")) == file, gPvTag[0] == "TAG1"}),
             (QList<bool>{true, true, true, true}));
    QCOMPARE(timers(scan), (QList<bool>{false, false}));
    // A file that cannot be written: the box, and the plant in memory stays the one on disk.
    g21CFR = false;
    gAppPath = env.path("gone");
    dlg.grid()->setText(0, FrmControlSetup::Status, "0");
    dlg.assignChannelsControlSetup();
    QCOMPARE(env.dialogs->texts().size(), 1);
    QVERIFY(env.dialogs->texts()[0].contains("in function AssignChannelsControlSetup occurred."));
    QCOMPARE((QList<bool>{dlg.isVisible(), gControlEnabled[0], gPvTag[0] == "TAG1"}),
             (QList<bool>{true, true, true}));
    QCOMPARE(gActiveCount, qint16(1));
}

void TstControlSetup::notOpenedWhileLogging() {
    TestEnv env;
    ScanController scan;
    startPlant(env, scan, {{1, 0}});
    gLogging = true;
    showControlSetup(nullptr);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Label setup not available when datalog is running!\nPlease stop the "
                         "profiler and datalogger first."});
    QCOMPARE(env.modals.unscripted, 0);
    QCOMPARE(timers(scan), (QList<bool>{true, true}));
}

void TstControlSetup::tagColumnsOpenAtTheFirstClick() {
    TestEnv env;
    FrmControlSetup dlg;
    dlg.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dlg));
    RecordGrid* grid = dlg.grid();
    auto click = [grid](int column) {
        const QRect cell = grid->visualRect(grid->model()->index(0, column));
        QTest::mouseClick(grid->viewport(), Qt::LeftButton, {}, cell.center());
        return grid->viewport()->findChild<QLineEdit*>() != nullptr;
    };
    // The output tag, on purpose, waits for a double click or a key.
    QCOMPARE((QList<bool>{click(FrmControlSetup::OutTag), click(FrmControlSetup::SpTag)}),
             (QList<bool>{false, true}));
}

QTEST_MAIN(TstControlSetup)
#include "tst_control_setup.moc"
