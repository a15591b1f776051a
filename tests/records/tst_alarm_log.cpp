// The alarm engine and its windows: rising edges of the two alarm bits, the beeper, the day's
// alarm file, acknowledging and clearing under security, and the viewer of past files.

#include "plant/plant_store.h"
#include "records/alarm_log.h"
#include "records/alm_log_viewer.h"
#include "records/daily_files.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QAction>
#include <QDir>
#include <QHeaderView>
#include <QMdiArea>
#include <QScrollBar>
#include <QTest>
#include <QTimer>
#include <QToolBar>

namespace {
// Controllers at nodes 1 and 3 in the list, node 1 "TIC-1" at 181.6, node 3 "PIC-3" at 6.38.
void twoControllers() {
    gActiveList = {1, 3, 0};
    gActiveCount = 2;
    gPvTag[0] = QStringLiteral("TIC-1");
    gPvTag[2] = QStringLiteral("PIC-3");
    gPV[0] = QStringLiteral("181.6");
    gPV[2] = 6.38;
}

QString when(const TestEnv& env) {
    return regionalShortDate(env.clock->time.date()) + " - " +
           regionalLongTime(env.clock->time.time());
}

QString alarmFile(const TestEnv& env) {
    return env.path("Alarm Logs/3-14-2026 AlmLog.alf");
}

QList<QStringList> rows(const RecordGrid* grid) {
    QList<QStringList> out;
    for (int r = 0; r < grid->rowCount(); ++r)
        out << rowOf(grid, r);
    return out;
}

void press(QToolBar* toolbar, const char* key) {
    toolbar->findChild<QAction*>(QString::fromLatin1(key))->trigger();
}
} // namespace

class TstAlarmLog : public QObject {
    Q_OBJECT
private slots:
    void risingEdgesOnly();
    void beepsOnceOrUntilSilenced();
    void acknowledgeAndClearAreSigned();
    void acknowledgeAllIsOneSignatureAndALineForEachRow();
    void newestFirstTurnsTheRowsAndIsKept();
    void viewerShowsWhatIsIntact();
    void firstSizeShowsEveryColumnWhole();
};

void TstAlarmLog::risingEdgesOnly() {
    TestEnv env;
    twoControllers();
    gAlmLogging = true;
    AlarmLog log;
    QVERIFY(log.timer1()->isActive());
    log.showMinimized();
    // Both alarms of one controller in one tick: two rows, red, and the window comes up.
    gAlarmState[0] = 3;
    log.timer1Tick();
    QVERIFY(!log.isMinimized());
    QCOMPARE(rows(log.grid()), (QList<QStringList>{{"TIC-1 Alm# 1", when(env), "181.6", "NO"},
                                                   {"TIC-1 Alm# 2", when(env), "181.6", "NO"}}));
    QCOMPARE(log.grid()->model()->index(1, 0).data(Qt::ForegroundRole).value<QColor>(),
             QColor(255, 0, 0));
    QCOMPARE(log.statusText(), QStringLiteral("Total number of system alarms is 2"));
    // The file has the bare tag: the alarm number is not in it.
    QCOMPARE(plainLinesOf(alarmFile(env)),
             QStringList(2, "TIC-1," + when(env) + ",181.6,,New Alarm"));

    // A bit that fell and rose between two ticks was never seen low: no second row. One seen
    // low and high again is a new alarm.
    gAlarmState[0] = 0;
    gAlarmState[0] = 1;
    log.timer1Tick();
    QCOMPARE(log.grid()->rowCount(), 2);
    gAlarmState[0] = 0;
    log.timer1Tick();
    gAlarmState[0] = 1;
    log.timer1Tick();
    QCOMPARE(log.grid()->rowCount(), 3);

    // Clearing the rows (as a rebuild of the list does) brings no alarm back while its bit
    // stays high, and writes nothing.
    log.clearAlarms();
    log.timer1Tick();
    QCOMPARE(log.grid()->rowCount(), 0);
    QCOMPARE(plainLinesOf(alarmFile(env)).size(), 3);

    // A controller taken out of the list keeps its memo: back with its alarm still on, it is
    // not entered twice.
    gAlarmState[2] = 2;
    log.timer1Tick();
    gActiveList = {1, 0};
    gActiveCount = 1;
    gAlarmState[2] = 0;
    log.timer1Tick();
    gAlarmState[2] = 2;
    twoControllers();
    log.timer1Tick();
    QCOMPARE(rows(log.grid()), (QList<QStringList>{{"PIC-3 Alm# 2", when(env), "6.38", "NO"}}));

    // With alarm logging off the grid fills as ever and no file is written.
    gAlmLogging = false;
    QVERIFY(QFile::remove(alarmFile(env)));
    gAlarmState[2] = 0;
    log.timer1Tick();
    gAlarmState[2] = 2;
    log.timer1Tick();
    QCOMPARE(log.grid()->rowCount(), 2);
    QVERIFY(!QFile::exists(alarmFile(env)));

    // A line that cannot be written: its box lets the timer tick on, and neither the same
    // alarm nor another one stacks a row or a box over it.
    gAlmLogging = true;
    QVERIFY(QDir().mkpath(alarmFile(env)));
    log.clearAlarms();
    gAlarmState[0] = 0;
    gAlarmState[2] = 0;
    log.timer1Tick();
    int turns = 0;
    env.dialogs->whileOpen = [&] {
        if (turns++ >= 3)
            return;
        log.timer1Tick();
        gAlarmState[2] = 1;
        log.timer1Tick();
    };
    gAlarmState[0] = 1;
    env.dialogs->boxes.clear();
    log.timer1Tick();
    env.dialogs->whileOpen = nullptr;
    QCOMPARE(log.grid()->rowCount(), 2);
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QVERIFY(env.dialogs->texts()[0].contains("Error writing to alarm log!"));
}

void TstAlarmLog::beepsOnceOrUntilSilenced() {
    TestEnv env;
    twoControllers();
    AlarmLog log;
    gBeepOnAlarm = true;
    gAlarmState[0] = 3;
    log.timer1Tick();
    QCOMPARE(env.beeper->count, 2); // one for each new alarm
    log.timer1Tick();
    QCOMPARE(env.beeper->count, 2);

    // Until silenced, once a second; acknowledging does not silence it, the next alarm starts
    // it again.
    gBeepOnAlarm = false;
    gBeepUntilAck = true;
    gAlarmState[2] = 1;
    log.timer1Tick();
    QVERIFY(log.isBeeping());
    env.dialogs->answerNext(MsgAnswer::Yes);
    log.acknowledgeAlarm(2);
    log.timer1Tick();
    log.timer1Tick();
    QCOMPARE(env.beeper->count, 4);
    press(log.toolbar(), "Silence Beeper");
    log.timer1Tick();
    QCOMPARE(env.beeper->count, 4);
    gAlarmState[2] = 0;
    log.timer1Tick();
    gAlarmState[2] = 1;
    log.timer1Tick();
    log.timer1Tick();
    QCOMPARE(env.beeper->count, 5);
}

void TstAlarmLog::acknowledgeAndClearAreSigned() {
    TestEnv env;
    twoControllers();
    gAlmLogging = true;
    g21CFR = true;
    gSuRights[Right::AcknowledgeAlarms] = 1;
    gSuRights[Right::ClearAlarms] = 1;
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe", "Line 1");
    env.accounts->addUser("tom", "pw-tom", {"Sorvantel Operators"}, "Tom Field");
    gUserLevel = 1;
    AlarmLog log;
    // Nothing to clear yet.
    press(log.toolbar(), "Clear");
    press(log.toolbar(), "clear1");
    QCOMPARE(env.dialogs->texts(),
             (QStringList{"There are no alarms to delete!", "There are no alarms to clear!"}));
    gAlarmState[0] = 1;
    gAlarmState[2] = 1;
    log.timer1Tick();
    env.dialogs->boxes.clear();
    const QString newLine = when(env);

    // Refused for an operator, cancelled, then granted: only the last acknowledges.
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.login("tom", "pw-tom");
    log.acknowledgeAlarm(0);
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.cancelLogin();
    log.acknowledgeAlarm(0);
    QCOMPARE(log.grid()->text(0, AlarmLog::Ack), QStringLiteral("NO"));
    env.clock->time = env.clock->time.addSecs(65);
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.login("jdoe", "pw");
    log.acknowledgeAlarm(0);
    QCOMPARE(env.dialogs->boxes.first().title, QStringLiteral("Alarm Acknowledge"));
    QCOMPARE(env.dialogs->texts().first(),
             QStringLiteral("Acknowledge alarm for TIC-1 Alm# 1.\nAre you sure?"));
    QCOMPARE(log.grid()->text(0, AlarmLog::Ack), QStringLiteral("YES"));
    QCOMPARE(log.grid()->model()->index(0, 0).data(Qt::ForegroundRole).value<QColor>(),
             QColor(0, 0, 255));
    log.acknowledgeAlarm(0); // already acknowledged: not asked again
    QCOMPARE(env.dialogs->boxes.size(), 4);

    // One cleared (the selected row), then all.
    log.grid()->setActiveCell(1, 0);
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.login("jdoe", "pw");
    press(log.toolbar(), "Clear");
    QCOMPARE(rows(log.grid()).value(0).value(0), QStringLiteral("TIC-1 Alm# 1"));
    QCOMPARE(log.statusText(), QStringLiteral("Total number of system alarms is 1"));
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.login("jdoe", "pw");
    press(log.toolbar(), "clear1");
    QCOMPARE(log.grid()->rowCount(), 0);
    QCOMPARE(env.modals.pending(), 0);

    const QString later = when(env);
    QCOMPARE(plainLinesOf(alarmFile(env)),
             (QStringList{"TIC-1," + newLine + ",181.6,,New Alarm",
                          "PIC-3," + newLine + ",6.38,,New Alarm",
                          "TIC-1 Alm# 1," + later + ",,,Alarm Acknowledged",
                          "PIC-3 Alm# 1," + later + ",,,Alarm Cleared",
                          "All Controllers," + later + ",,,All Alarms Cleared"}));
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             (QStringList{"User access denied during Acknowledge Alarm on TIC-1 Alm# 1",
                          "Acknowledge Alarm on TIC-1 Alm# 1", "Clear alarm for PIC-3 Alm# 1",
                          "Clear Alarm Log"}));
}

void TstAlarmLog::acknowledgeAllIsOneSignatureAndALineForEachRow() {
    TestEnv env;
    twoControllers();
    gAlmLogging = true;
    g21CFR = true;
    gSuRights[Right::AcknowledgeAlarms] = 1;
    env.accounts->addUser("jdoe", "pw", {"Sorvantel Supervisors"}, "Jane Doe");
    gUserLevel = 1;
    AlarmLog log;
    press(log.toolbar(), "ackAll");
    QCOMPARE(env.dialogs->texts(), QStringList{"There are no alarms to acknowledge!"});
    gAlarmState[0] = 3; // both alarms of TIC-1
    gAlarmState[2] = 1;
    log.timer1Tick();
    QCOMPARE(log.unacknowledgedCount(), 3);
    // One acknowledged by hand first; asked, then cancelled at the login: nothing changes.
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.login("jdoe", "pw");
    log.acknowledgeAlarm(1);
    env.dialogs->boxes.clear();
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.cancelLogin();
    press(log.toolbar(), "ackAll");
    QCOMPARE(env.dialogs->texts(), QStringList{"Acknowledge all 2 alarms.\nAre you sure?"});
    QCOMPARE(log.unacknowledgedCount(), 2);
    env.dialogs->answerNext(MsgAnswer::Yes);
    env.modals.login("jdoe", "pw");
    press(log.toolbar(), "ackAll");
    QCOMPARE(env.modals.pending(), 0);
    QCOMPARE(log.unacknowledgedCount(), 0);
    QCOMPARE(log.grid()->model()->index(2, 0).data(Qt::ForegroundRole).value<QColor>(),
             QColor(0, 0, 255));
    // The signer's line for the first, then one for each further row; the log a line a row.
    QCOMPARE(actionsOf(env.path("Audit/3-14-2026 Audit.atr")),
             (QStringList{"Acknowledge Alarm on TIC-1 Alm# 2", "Acknowledge Alarm on TIC-1 Alm# 1",
                          "Acknowledge Alarm on PIC-3 Alm# 1"}));
    QCOMPARE(plainLinesOf(alarmFile(env)).filter(",Alarm Acknowledged").size(), 3);
}

void TstAlarmLog::newestFirstTurnsTheRowsAndIsKept() {
    TestEnv env;
    twoControllers();
    auto tagsAndColours = [](const AlarmLog& log) {
        QStringList out;
        for (int r = 0; r < log.grid()->rowCount(); ++r)
            out << log.grid()->text(r, AlarmLog::Tagname) + ' ' +
                       log.grid()
                           ->model()
                           ->index(r, 0)
                           .data(Qt::ForegroundRole)
                           .value<QColor>()
                           .name();
        return out;
    };
    AlarmLog log;
    gAlarmState[0] = 1;
    log.timer1Tick();
    press(log.toolbar(), "newestFirst");
    gAlarmState[2] = 1;
    log.timer1Tick();
    QCOMPARE(tagsAndColours(log), (QStringList{"PIC-3 Alm# 1 #ff0000", "TIC-1 Alm# 1 #ff0000"}));
    // Acknowledged where it stands; a third alarm pushes it down, still blue.
    env.dialogs->answerNext(MsgAnswer::Yes);
    log.acknowledgeAlarm(1);
    gAlarmState[0] = 3;
    log.timer1Tick();
    QCOMPARE(tagsAndColours(log),
             (QStringList{"TIC-1 Alm# 2 #ff0000", "PIC-3 Alm# 1 #ff0000", "TIC-1 Alm# 1 #0000ff"}));
    QCOMPARE(env.settings->values.value("alarmlog/newestfirst"), QStringLiteral("True"));
    // Kept for the next start; off again, the oldest first.
    AlarmLog next;
    QVERIFY(next.newestFirst());
    press(log.toolbar(), "newestFirst");
    QCOMPARE(tagsAndColours(log),
             (QStringList{"TIC-1 Alm# 1 #0000ff", "PIC-3 Alm# 1 #ff0000", "TIC-1 Alm# 2 #ff0000"}));
}

void TstAlarmLog::viewerShowsWhatIsIntact() {
    TestEnv env;
    const QString file = env.path("Alarm Logs/3-13-2026 AlmLog.alf");
    QByteArray bytes = enciphered({"TIC-1,3/13/2026 - 9:00:00 AM,181.6,,New Alarm",
                                   "All Controllers,3/13/2026 - 9:05:00 AM,,,All Alarms Cleared"});
    bytes += QByteArray(96, 'A') + "\r\n"; // a line of another key, or altered
    QVERIFY(writeBytes(file, bytes + enciphered({"PIC-3,3/13/2026 - 9:10:00 AM,6.38,,New Alarm"})
                                         .chopped(9))); // torn while written
    AlmLogViewer viewer;
    env.dialogs->chooseFile(file);
    press(viewer.toolbar(), "Open");
    QCOMPARE(env.dialogs->fileRequests.value(0).title,
             QStringLiteral("Open alarm log file (.slg)"));
    // The action, the fifth field, has no column; a damaged line is an empty row, and said.
    QCOMPARE(rows(viewer.grid()),
             (QList<QStringList>{{"TIC-1", "3/13/2026 - 9:00:00 AM", "181.6", ""},
                                 {"All Controllers", "3/13/2026 - 9:05:00 AM", "", ""},
                                 {"", "", "", ""},
                                 {"", "", "", ""}}));
    QCOMPARE(viewer.statusText(),
             "Alarm File: " + file + " - 2 of 4 lines could not be deciphered and show empty");

    // A second file replaces the rows from its first line; an empty line ends it there. An
    // empty file leaves the rows before on show.
    const QString other = env.path("Alarm Logs/3-12-2026 AlmLog.alf");
    QVERIFY(writeBytes(other, enciphered({"A,1,2,,New Alarm"}) + "\r\n" + enciphered({"B"})));
    viewer.loadAlarmFile(other);
    QCOMPARE(rows(viewer.grid()), (QList<QStringList>{{"A", "1", "2", ""}}));
    QVERIFY(writeBytes(env.path("Alarm Logs/empty.alf"), {}));
    viewer.loadAlarmFile(env.path("Alarm Logs/empty.alf"));
    QCOMPARE(viewer.grid()->rowCount(), 1);

    // Export under the alarm log's own texts, and print with the heading of the current log.
    QVERIFY(QDir().mkpath(env.path("Export Data")));
    env.dialogs->chooseFile(env.path("Export Data/AlarmLog.csv"));
    press(viewer.toolbar(), "export");
    QCOMPARE(env.dialogs->fileRequests.last().fileName, QStringLiteral("AlarmLog.csv"));
    QCOMPARE(readBytes(env.path("Export Data/AlarmLog.csv")),
             QByteArray("\xEF\xBB\xBFTagname,Time Of Alarm,PV At Alarm,Action\r\nA,1,2,\r\n"));
    press(viewer.toolbar(), "print");
    QCOMPARE(env.printers->jobNames, QStringList{"System Alarm Log Printout"});
    QVERIFY(pdfText(env.printers->outputs.value(0))
                .contains("Current System Alarm Log on " +
                          regionalShortDate(env.clock->time.date()) + " at " +
                          regionalLongTime(env.clock->time.time())));
}

void TstAlarmLog::firstSizeShowsEveryColumnWhole() {
    TestEnv env;
    twoControllers();
    // Two-digit month, day and hour: the widest stamp.
    env.clock->time = QDateTime(QDate(2026, 12, 28), QTime(22, 58, 58));
    QMdiArea area;
    area.resize(1200, 900);
    area.show();
    auto* log = new AlarmLog;
    area.addSubWindow(log);
    log->placeInArea();
    log->show();
    // Rows past the bottom, so that the scroll bar takes its room.
    for (int i = 0; i < 12; ++i) {
        gAlarmState[0] = gAlarmState[2] = 0;
        log->timer1Tick();
        gAlarmState[0] = gAlarmState[2] = 3;
        log->timer1Tick();
    }
    RecordGrid* grid = log->grid();
    QTRY_VERIFY(grid->verticalScrollBar()->isVisible());
    QVERIFY(grid->columnWidth(AlarmLog::TimeOfAlarm) >=
            static_cast<QAbstractItemView*>(grid)->sizeHintForColumn(AlarmLog::TimeOfAlarm));
    QHeaderView* header = grid->horizontalHeader();
    QTRY_VERIFY(header->length() <= grid->viewport()->width());
    QVERIFY(header->sectionSize(AlarmLog::Ack) >= header->sectionSizeHint(AlarmLog::Ack));
}

QTEST_MAIN(TstAlarmLog)
#include "tst_alarm_log.moc"
