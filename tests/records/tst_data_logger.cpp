#include "plant/plant_store.h"
#include "plant/tag_file.h"
#include "records/daily_files.h"
#include "records/data_logger.h"
#include "records/frm_logging_setup.h"
#include "records/frm_op_message.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <QTimer>
#include <csignal>
#include <sys/resource.h>

namespace {
// A plant of two K40s whose process values, setpoints and outputs are known.
void plantOfTwo(TestEnv& env) {
    env.writeTags({{1, 0, true, "TIC-1"}, {2, 0, true, "TIC-2"}});
    QVERIFY(readTagFile(env.path("tags.tgn")));
    gPV[0] = QStringLiteral("181.6");
    gSP[0] = 185.0;
    gPctOut[0] = 42.5F;
    gPV[1] = 12.25;
    noteReadAnswered(0);
    noteReadAnswered(1);
}
// The plant of two with controller 1's process value logged every second on the timer given.
void loggingEverySecond(TestEnv& env, QTimer& timer) {
    plantOfTwo(env);
    gTagTable[0][5] = QStringLiteral(" 1 ");
    gSaveInterval = 1;
    installDataSaveTimer(&timer);
}
void tick(int times) {
    for (int i = 0; i < times; ++i)
        dataSaveTimerTick();
}
} // namespace

class TstDataLogger : public QObject {
    Q_OBJECT
private slots:
    void linesOfADataFile();
    void midnightGivesOneNewFile();
    void logFailuresEndLoggingAndKeepTheFile();
    void setupStartsStopsAndKeepsTheChoice();
    void operatorMessage();
};

void TstDataLogger::linesOfADataFile() {
    TestEnv env;
    plantOfTwo(env);
    QTimer timer;
    installDataSaveTimer(&timer);
    gUserId = "jdoe";
    gUserFullName = "Jane Doe";
    // Controller 1's % output and process value, controller 2's setpoint.
    for (size_t row : {2, 0, 4})
        gTagTable[row][5] = QStringLiteral(" 1 ");
    gBatchNumber = 7;
    gLotNumber = 9;
    gSaveInterval = 5;
    makeAutoFileName();
    const QString file = env.path("Log Files/3-14-2026_10H_0M_0S.slg");
    QCOMPARE(gDataFileName, file);
    QVERIFY(startDataFile());
    QVERIFY(timer.isActive() && isCurrentDataFile(file) && !isCurrentDataFile(file + "x"));
    // Two messages in one interval: the last one goes, with its "." behind it; a comma in it
    // cannot move the columns.
    gOperatorMessage = "first";
    tick(3);
    gOperatorMessage = "oil, topped up";
    tick(12);
    QList<QStringList> lines;
    for (const QString& line : plainLinesOf(file))
        lines << line.split(u',');
    QCOMPARE(lines.size(), 5); // lines 1 and 2, then seconds 5, 10 and 15
    QCOMPARE(lines[0], (QStringList{"Date", "Time", "Operator Message", "Batch Number",
                                    "Lot Number", "TIC-1", "TIC-1.OUT", "TIC-2.SP", ""}));
    QCOMPARE(lines[1], (QStringList{regionalShortDate(env.clock->time.date()),
                                    regionalLongTime(env.clock->time.time()),
                                    "File started byJane Doe (login as jdoe )", "7", "9", "181.6",
                                    "42.5", "", ""}));
    QCOMPARE(lines[2].mid(2), (QStringList{"oil; topped up.", ".", ".", "181.6", "42.5", "", ""}));
    QCOMPARE(lines[3].mid(2, 3), (QStringList{".", ".", "."}));
    // Controller 2 stops answering: the lines written while it does say so in the message field,
    // after the operator's message, and keep their fields; its held value stays.
    noteReadFailed(1);
    noteReadFailed(1);
    gOperatorMessage = "valve shut";
    tick(5);
    noteReadFailed(0);
    noteReadFailed(0);
    tick(5);
    noteReadAnswered(0);
    noteReadAnswered(1);
    tick(5);
    lines.clear();
    for (const QString& line : plainLinesOf(file))
        lines << line.split(u',');
    QCOMPARE(lines.size(), 8);
    QCOMPARE(lines[5].mid(2), (QStringList{"valve shut [not answering: TIC-2].", ".", ".", "181.6",
                                           "42.5", "", ""}));
    QCOMPARE(lines[6].at(2), QStringLiteral("[not answering: TIC-1; TIC-2]."));
    QCOMPARE(lines[7].at(2), QStringLiteral("."));
    // The footer is composed from the values at the stop and never written: the file ends with
    // a data line, so that a signature made on it stays true; a later tick writes nothing.
    gPV[0] = QStringLiteral("190.0");
    stopDataFile();
    tick(5);
    QVERIFY(!gLogging && !timer.isActive() && !isCurrentDataFile(file));
    QCOMPARE(gDataLine.section(u',', 2),
             QStringLiteral("File stopped byJane Doe (login as jdoe ),.,.,190.0,42.5,,"));
    QCOMPARE(plainLinesOf(file).size(), 8);
}

void TstDataLogger::midnightGivesOneNewFile() {
    TestEnv env;
    plantOfTwo(env);
    gTagTable[0][5] = QStringLiteral(" 1 ");
    g21CFR = true;
    gUserId = "jdoe";
    gAutoLog = 1;
    gSaveInterval = 1;
    env.clock->time = QDateTime(QDate(2026, 3, 14), QTime(23, 59, 58));
    makeAutoFileName();
    const QString before = gDataFileName;
    QVERIFY(startDataFile());
    // However often the tick comes within the minute, one new file.
    for (int s : {0, 0, 1, 30, 59}) {
        env.clock->time = QDateTime(QDate(2026, 3, 15), QTime(0, 0, s));
        midnightRollover();
    }
    const QString after = env.path("Log Files/3-15-2026_0H_0M_0S.slg");
    QCOMPARE(gDataFileName, after);
    QCOMPARE(QDir(env.path("Log Files")).entryList({"*.slg"}).size(), 2);
    QCOMPARE(gUserId, QStringLiteral("jdoe"));
    QCOMPARE(plainLinesOf(after)[1].section(u',', 2, 2),
             QStringLiteral("File started by (login as Sorvantel System )"));
    QCOMPARE(actionsOf(env.path("Audit/3-15-2026 Audit.atr")),
             (QStringList{"Data file stopped. " + before, "Data file started. " + after}));
    // The latch opens a minute later; without automatic names a file runs on over midnight.
    env.clock->time = QDateTime(QDate(2026, 3, 15), QTime(0, 1, 0));
    midnightRollover();
    gAutoLog = 0;
    env.clock->time = QDateTime(QDate(2026, 3, 16), QTime(0, 0, 0));
    midnightRollover();
    QCOMPARE(gDataFileName, after);
    stopDataFile();
}

void TstDataLogger::logFailuresEndLoggingAndKeepTheFile() {
    TestEnv env;
    QTimer timer;
    loggingEverySecond(env, timer);
    // Starts the disk refuses: a file where its folder should be, and a file that appeared after
    // its name was chosen, which is not overwritten and gets no signature file of ours beside it.
    QVERIFY(writeBytes(env.path("Log Files/no such folder"), {}));
    QVERIFY(writeBytes(env.path("Log Files/late.slg"), "someone else's"));
    for (const char* name : {"no such folder/x.slg", "late.slg"}) {
        gDataFileName = env.path("Log Files/") + name;
        QVERIFY(!startDataFile());
        QVERIFY(!gLogging && !timer.isActive());
    }
    QVERIFY(!QFile::exists(env.path("Log Files/late.sif")));
    QCOMPARE(readBytes(env.path("Log Files/late.slg")), QByteArray("someone else's"));
    QCOMPARE(env.dialogs->boxes.size(), 2);
    QVERIFY(env.dialogs->texts()[0].startsWith("Error number 75. Description is "));
    for (const QString& text : env.dialogs->texts())
        QVERIFY(text.endsWith("\nError occured during start of logger, Please check disk space "
                              "and\nreport this error to Brenlock."));
    env.dialogs->boxes.clear();
    // A line the disk refuses part-way (the file size limit stands in for a full disk): the save
    // box, logging ends, the part that went is cut off again, and the tick carries on past it.
    gDataFileName = env.path("Log Files/full.slg");
    QVERIFY(startDataFile());
    tick(2);
    const qint64 size = QFileInfo(gDataFileName).size();
    rlimit kept{};
    getrlimit(RLIMIT_FSIZE, &kept);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = kept;
    small.rlim_cur = static_cast<rlim_t>(size + 20);
    setrlimit(RLIMIT_FSIZE, &small);
    gOperatorMessage = "lost with its line";
    tick(1);
    setrlimit(RLIMIT_FSIZE, &kept);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Error during file save, Please check disk space and try again"});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    QVERIFY(!gLogging && !timer.isActive() && gOperatorMessage.isEmpty());
    QCOMPARE(QFileInfo(gDataFileName).size(), size);
    QCOMPARE(plainLinesOf(gDataFileName).size(), 4);
    QVERIFY(!plainLinesOf(gDataFileName).contains(QString()));
}

void TstDataLogger::setupStartsStopsAndKeepsTheChoice() {
    TestEnv env;
    plantOfTwo(env);
    QTimer timer;
    installDataSaveTimer(&timer);
    FrmLoggingSetup dlg;
    RecordGrid* grid = dlg.grid();
    // Rows of controllers not in use are locked; the address column counts from 1.
    QCOMPARE(
        (QList<QVariant>{grid->text(3, 0), grid->isCellLocked(3, 1), grid->isCellLocked(6, 1)}),
        (QList<QVariant>{"2", false, true}));
    // Logging at start-up needs names from the clock: ticking it ticks both, and the date box
    // cannot be cleared while it stands.
    auto* dt = dlg.findChild<QCheckBox*>("dtCheck");
    auto* sl = dlg.findChild<QCheckBox*>("SLCheck");
    QTest::mouseClick(sl, Qt::LeftButton);
    QTest::mouseClick(dt, Qt::LeftButton);
    QCOMPARE((QList<bool>{dt->isChecked(), sl->isChecked(), gAutoLog == 1}),
             (QList<bool>{true, true, true}));
    QTest::mouseClick(sl, Qt::LeftButton);
    QTest::mouseClick(dt, Qt::LeftButton);
    QCOMPARE(gAutoLog, qint16(0));

    dlg.startLog(); // nothing chosen
    QCOMPARE(env.dialogs->texts().last(), QStringLiteral("There are no controls enabled for "
                                                         "logging!\nPlease select controls to "
                                                         "log from grid."));
    grid->setText(0, FrmLoggingSetup::WriteOnOff, "1");
    // Batch and lot beyond 32 bits end the start as an overflow.
    auto* batch = dlg.findChild<QDoubleSpinBox*>("batchNum");
    batch->setValue(3000000000.0);
    dlg.startLog();
    QVERIFY(env.dialogs->texts().last().startsWith("Error number 6. Description is Overflow."));
    batch->setValue(42);
    // A chosen name is refused when its signature file is there too: batch7.rerun.slg would sign
    // into batch7.sif. A cancelled dialog ends in silence.
    QVERIFY(writeBytes(env.path("Log Files/batch7.sif"), "signed"));
    env.dialogs->chooseFile(env.path("Log Files/batch7.rerun.slg"));
    dlg.startLog();
    QCOMPARE(env.dialogs->texts().last(),
             QStringLiteral("File already exists. Please select another filename!"));
    QVERIFY(!QFile::exists(env.path("Log Files/batch7.rerun.slg")));
    QCOMPARE(readBytes(env.path("Log Files/batch7.sif")), QByteArray("signed"));
    const qsizetype shown = env.dialogs->boxes.size();
    dlg.startLog();
    QCOMPARE(env.dialogs->boxes.size(), shown);
    QVERIFY(!gLogging);
    // With security on the start and the stop are signed for.
    g21CFR = true;
    gSuRights[Right::DataLogging] = 1;
    gUserLevel = 1;
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    env.dialogs->chooseFile(env.path("Log Files/new.slg"));
    env.modals.login("jdoe", "pw");
    dlg.startLog();
    QVERIFY(gLogging);
    QCOMPARE(gBatchNumber, 42);
    QCOMPARE(dlg.findChild<QLabel*>("Label4")->text(), QStringLiteral("Active"));
    QCOMPARE(dlg.findChild<QLabel*>("Label5")->text(), QStringLiteral("new.slg"));
    // While logging the choice cannot change.
    dlg.selectAll(true);
    QCOMPARE(env.dialogs->texts().last(),
             QStringLiteral("Data save status can not be\nchanged while logging data!"));
    QCOMPARE(grid->text(3, 1), QStringLiteral("0"));
    env.modals.login("jdoe", "pw");
    dlg.stopLog();
    QVERIFY(!gLogging);
    QCOMPARE(dlg.findChild<QLabel*>("Label4")->text(), QStringLiteral("InActive"));
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             (QStringList{"Data logging started. " + env.path("Log Files/new.slg"),
                          "Data logging stopped. " + env.path("Log Files/new.slg")}));
    // With names from the clock nobody is asked: a name taken gives way to the next second's.
    g21CFR = false;
    gAutoLog = 1;
    QVERIFY(writeBytes(env.path("Log Files/3-14-2026_10H_0M_0S.slg"), "kept"));
    dlg.startLog();
    QVERIFY(gLogging);
    QCOMPARE(gDataFileName, env.path("Log Files/3-14-2026_10H_0M_1S.slg"));
    QCOMPARE(readBytes(env.path("Log Files/3-14-2026_10H_0M_0S.slg")), QByteArray("kept"));
    stopDataFile();

    // The close keeps the channels in tags.tgn and the options in the settings.
    dlg.findChild<QSpinBox*>("saveInterval")->setValue(30);
    grid->setText(3, FrmLoggingSetup::WriteOnOff, "1");
    dlg.selectAll(false);
    grid->setText(4, FrmLoggingSetup::WriteOnOff, "1");
    dlg.reject();
    resetPlantStore();
    QVERIFY(readTagFile(env.path("tags.tgn")));
    QCOMPARE((QStringList{gTagTable[3][5], gTagTable[4][5]}), (QStringList{" 0 ", " 1 "}));
    QCOMPARE((QStringList{env.settings->value("DataSave", "SaveInterval", {}),
                          env.settings->value("DataSave", "gAutoLog", {}),
                          env.settings->value("DataSave", "gLogOnStartup", {})}),
             (QStringList{"30", "0", "0"}));
    QCOMPARE(gSaveInterval, 30);
}

void TstDataLogger::operatorMessage() {
    TestEnv env;
    showOperatorMessage(nullptr);
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Data Logging must be active to write\noperator messages to file."});
    QCOMPARE(env.modals.unscripted, 0);
    gLogging = true;
    g21CFR = true;
    gSuRights[Right::OperatorMessage] = 1;
    gUserLevel = 1;
    gOperatorMessage = "waiting";
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    FrmOpMessage dlg;
    dlg.message()->setText("new one");
    env.modals.cancelLogin();
    dlg.okClicked();
    QCOMPARE(gOperatorMessage, QStringLiteral("waiting")); // a refused login keeps it
    env.modals.login("jdoe", "pw");
    dlg.okClicked();
    QCOMPARE(gOperatorMessage, QStringLiteral("new one"));
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             QStringList{"Operator message to data file"});
    FrmOpMessage cancelled;
    cancelled.cancelClicked();
    QVERIFY(gOperatorMessage.isEmpty());
    gLogging = false;
}

QTEST_MAIN(TstDataLogger)
#include "tst_data_logger.moc"
