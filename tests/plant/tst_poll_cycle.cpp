#include "app/frm_main.h"
#include "plant/comm_errors.h"
#include "plant/controller_io.h"
#include "plant/frm_logger.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "plant/poll_cycle.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QMdiArea>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace {
struct ProgressSpy final : ScanProgress {
    QList<int> values;
    int closes = 0;
    void setScanProgress(int v) override { values << v; }
    void closeScan() override { ++closes; }
};

struct Rig {
    TestEnv env;
    ProgressSpy progress;
    Modctl modctl;
    PollCycle poll{&modctl, &progress};

    // Controllers by node address and family; the fake answers every enabled one unless dead,
    // a K40 with a PV of node x 10 and an SP of 50 at code 1, a profiler with a PV of node.
    explicit Rig(const QList<std::pair<int, int>>& controllers) {
        env.modbus->manual = true;
        for (auto [node, type] : controllers) {
            gControlEnabled[node - 1] = true;
            gControlType[node - 1] = static_cast<qint16>(type);
            if (type == 0)
                env.modbus->setRegisters(node, 3, 129,
                                         {quint16(19999 + node * 100), 20499, 2500, 0, 0x1101});
            else
                env.modbus->setRegisters(node, 2, 1001,
                                         {quint16(node * 10), 200, 0, 1234, 0, 0, 3, 0, 4});
        }
        buildActiveList();
        poll.readDone = true;
    }
    // One tick with every reply the link has by then delivered before the next.
    void tick() { env.tickPoll(poll); } // refusals of a busy control arrive queued
    QList<int> requestedNodes() const {
        QList<int> nodes;
        for (const auto& r : env.modbus->requests)
            nodes << r.node;
        return nodes;
    }
};
} // namespace

class TstPollCycle : public QObject {
    Q_OBJECT
private slots:
    void failedK40StallsTheListAndSecondFailureIsReported();
    void slowAnswerIsWaitedForAndLandsInItsOwnRow();
    void firstScanProgressClosesAtTheEndOrFirstError();
    void simulationFillsOneRowPerTickAndDropsLateAnswers();

    void loggerReportsByListPositionSavesAndClears();

    void setpointsEncodeByFamilyAndGoOutOnTheirOwnControl();
    void oneWriteInFlightTheSelectionReadAtEachTickAndAFailureEnds();
};

// A failed K40 read holds the next K40 position for four ticks, while a profiler is asked on its
// tick all the same. One failure at a position is silent and a good read forgets it; the second
// in a row beeps and is logged by list position, and the count starts again.
void TstPollCycle::failedK40StallsTheListAndSecondFailureIsReported() {
    Rig rig({{2, 0}, {3, 1}, {4, 0}});
    FrmLogger logger;
    gComBeep = true;
    rig.env.modbus->nodes[2].dead = true;
    rig.env.modbus->nodes[3].failureCode = 3;
    auto counts = [&rig] {
        return QList<int>{gComErrCount[0], gComErrCount[1], rig.env.beeper->count};
    };
    for (int i = 0; i < 5; ++i)
        rig.tick();
    QCOMPARE(rig.requestedNodes(), (QList<int>{2, 3}));
    rig.tick(); // the fourth tick at node 4's position
    QCOMPARE(rig.requestedNodes(), (QList<int>{2, 3, 4}));
    QCOMPARE(counts(), (QList<int>{1, 1, 0}));
    rig.env.modbus->nodes[3].failureCode = 0;
    rig.tick();
    rig.tick();
    QCOMPARE(rig.requestedNodes(), (QList<int>{2, 3, 4, 2, 3}));
    QCOMPARE(counts(), (QList<int>{0, 0, 1}));
    QCOMPARE(logger.text(),
             QStringLiteral("\nControl Address# 1, Device did not respond in 1 sec."));
    QCOMPARE(gPV[3].toText(), QStringLiteral("40.0")); // the live neighbour was read
}

void TstPollCycle::slowAnswerIsWaitedForAndLandsInItsOwnRow() {
    Rig rig({{5, 1}, {6, 0}});
    rig.poll.timer2Tick(); // node 5 asked; its answer is slow
    rig.poll.timer2Tick(); // a profiler is asked on every tick: the same read, still on its way
    QCoreApplication::processEvents();
    QCOMPARE(rig.env.modbus->requests.size(), 1);
    QCOMPARE((QList<int>{gComErrCount[0], gPollIndex}), (QList<int>{0, 0}));
    gAlarmState[0] = 3;
    rig.env.modbus->deliverAll(); // node 5's answer, at last, for node 5's row
    QCOMPARE(gPV[4].asNumber().value_or(-1), 5.0);
    QVERIFY(gPV[5].isEmpty());
    // The profiler's status word is cleared by list position (0), not by its row (4): row 0's
    // word goes, the profiler's own as read stays.
    QCOMPARE((QList<int>{gAlarmState[0], gAlarmState[4]}), (QList<int>{0, 3}));
    QCOMPARE(gPollIndex, qint16(1));
    // A K40 that does not answer is asked again on the fourth tick; that too waits for the
    // answer on its way instead of counting a failure of its own.
    for (int i = 0; i < 5; ++i)
        rig.poll.timer2Tick();
    QCoreApplication::processEvents();
    QCOMPARE(rig.requestedNodes(), (QList<int>{5, 6}));
    QCOMPARE(gComErrCount[1], qint16(0));
    rig.env.modbus->deliverAll();
    QCOMPARE(gPV[5].toText(), QStringLiteral("60.0"));
}

void TstPollCycle::firstScanProgressClosesAtTheEndOrFirstError() {
    {
        Rig rig({{1, 0}, {2, 1}, {3, 0}});
        rig.poll.firstScan = true;
        for (int i = 0; i < 3; ++i)
            rig.tick();
        QCOMPARE(gPollIndex, qint16(0)); // the last of the list wraps within its own tick
        rig.tick();
        QCOMPARE(rig.progress.values, (QList<int>{1, 2, 3}));
        QCOMPARE((std::pair{rig.progress.closes, rig.poll.firstScan}), (std::pair{1, false}));
    }
    Rig rig({{1, 0}, {2, 1}, {3, 1}});
    rig.env.modbus->nodes[2].dead = true;
    rig.poll.firstScan = true;
    for (int i = 0; i < 3; ++i)
        rig.tick();
    QCOMPARE(rig.progress.values, QList<int>{1}); // nothing after the close
    QCOMPARE((std::pair{rig.progress.closes, rig.poll.firstScan}), (std::pair{1, false}));
    QCOMPARE(gComErrCount[1], qint16(1)); // and the error was still counted
}

void TstPollCycle::simulationFillsOneRowPerTickAndDropsLateAnswers() {
    {
        Rig rig({{2, 0}, {4, 1}});
        gSimMode = true;
        gAlarmState[0] = 1;
        rig.poll.firstScan = true;
        rig.tick();
        QVERIFY(rig.env.modbus->requests.isEmpty());
        const double pv = gPV[1].asNumber().value_or(-1), sp = gSP[1].asNumber().value_or(-1);
        QVERIFY(pv >= 1 && pv <= 200 && pv == std::floor(pv) && sp >= 1 && sp <= 150);
        QVERIFY(gPctOut[1] >= 1 && gPctOut[1] <= 100 && gPV[3].isEmpty());
        QCOMPARE(gAlarmState[0], qint16(0));
        rig.tick();
        QVERIFY(!gPV[3].isEmpty());
        QCOMPARE(rig.progress.values, (QList<int>{1, 2}));
        QCOMPARE((QList<int>{rig.progress.closes, gPollIndex}), (QList<int>{1, 0}));
    }
    // A real answer arriving after the switch is dropped; a late failure is still counted, but
    // the scan dialog stays.
    Rig rig({{1, 0}, {2, 0}});
    rig.poll.firstScan = true;
    rig.poll.timer2Tick();
    gSimMode = true;
    rig.env.modbus->deliverAll();
    QVERIFY(gPollIndex == 0 && gPV[0].isEmpty());
    gSimMode = false;
    rig.poll.readDone = true;
    rig.poll.timer2Tick();
    gSimMode = true;
    rig.env.modbus->nodes[1].dead = true;
    rig.env.modbus->deliverAll();
    QCOMPARE(gComErrCount[0], qint16(1));
    QCOMPARE(rig.progress.closes, 0);
    QVERIFY(rig.poll.firstScan);
}

// The line names the controller by its list position plus one; two codes keep a tail of their
// own, and codes without a text give the bare address and no write text. A report beeps when
// asked to, and writes the line by list position and the status; a code without a text only
// beeps. Minimizing the logger restores the status until the next report.
void TstPollCycle::loggerReportsByListPositionSavesAndClears() {
    for (const auto& [code, line, write] : std::initializer_list<std::tuple<int, QString, QString>>{
             {3, "Control Address# 3, Illegal Data Value. ",
              "Illegal Data Value written to control."},
             {16, "Control Address# 3, Slave Busy. Add ", "Slave device is busy."},
             {4, "Control Address# 3", ""}}) {
        QCOMPARE(commErrorLine(code, 2), line);
        QCOMPARE(commErrorWriteText(code), write);
    }
    TestEnv env;
    auto* main = new FrmMain;
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    gComBeep = true;
    gPollIndex = 4;
    reportCommError(-3);
    QCOMPARE(std::pair(env.beeper->count, main->statusText()), std::pair(1, kStatusCommError));
    main->setStatusText(kStatusNormal);
    reportCommError(4);
    QCOMPARE(std::pair(env.beeper->count, main->statusText()), std::pair(2, kStatusNormal));
    gComBeep = false;
    reportCommError(-1);
    QCOMPARE(std::pair(env.beeper->count, main->statusText()), std::pair(2, kStatusCommError));
    QCOMPARE(logger->text(), QStringLiteral("\nControl Address# 5, Device did not respond in 1 sec."
                                            "\nControl Address# 5, Adapter Invalid."));
    logger->showNormal();
    QCOMPARE(main->statusText(), kStatusCommError); // restoring alone changes nothing
    logger->showMinimized();
    QCOMPARE(main->statusText(), kStatusNormal);
    reportCommError(-1);
    QCOMPARE(main->statusText(), kStatusCommError);
    // A close request minimizes it, with its lines.
    logger->showNormal();
    QVERIFY(!logger->close() && logger->isMinimized() &&
            logger->text().contains("Adapter Invalid."));
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);

    // Saved as rich text, asking where.
    logger->appendLine("Control Address# 2, Slave Busy. Add {x}\\c \u00b0C \u4e2d");
    logger->saveLoggerFile(); // no scripted file: cancelled
    QVERIFY(env.dialogs->boxes.isEmpty());
    env.dialogs->chooseFile(env.path("no such folder/logger.rtf"));
    logger->saveLoggerFile();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Logger file can not be saved. Check filename or disk space"});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    env.dialogs->chooseFile(env.path("logger.rtf"));
    logger->saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 3);
    const FileDialogRequest& r = env.dialogs->fileRequests[2];
    QVERIFY(r.overwritePrompt && r.initialDirectory == env.appPath());
    const QByteArray rtf = readBytes(env.path("logger.rtf"));
    QVERIFY(rtf.contains("\\par\r\nControl Address# 5, Adapter Invalid.\\par\r\nControl Address# "
                         "2, Slave Busy. Add \\{x\\}\\\\c \\u176?C \\u20013?"));
    QVERIFY(rtf.startsWith("{\\rtf1") && rtf.trimmed().endsWith('}'));
    QCOMPARE(env.dialogs->boxes.size(), 1);

    // Clearing asks first.
    env.dialogs->boxes.clear();
    env.dialogs->answerNext(MsgAnswer::No);
    logger->clearLogger();
    QCOMPARE(env.dialogs->boxes[0].buttons, MsgButtons::YesNo);
    QVERIFY(!logger->text().isEmpty());
    logger->clearLogger();
    QVERIFY(logger->text().isEmpty());
    // Security on: clearing needs right 7, saving right 19; without it nothing happens, not even
    // the file dialog.
    logger->appendLine("b");
    g21CFR = true;
    gOpRights[Right::ClearErrorLog] = 1;
    logger->clearLogger();
    QVERIFY(logger->text().isEmpty());
    logger->appendLine("c");
    gOpRights[Right::ClearErrorLog] = 0;
    env.dialogs->boxes.clear();
    logger->clearLogger();
    logger->saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 3);
    QCOMPARE(env.dialogs->texts(), QStringList(2, "Access denied to operator level security!"));
    QCOMPARE(logger->text(), QStringLiteral("\nc"));
}

void TstPollCycle::setpointsEncodeByFamilyAndGoOutOnTheirOwnControl() {
    TestEnv env;
    gControlType[1] = K8RampProfiler;
    gControlType[2] = K20RampProfiler;
    gControlType[4] = K8RampProfiler;
    gScale[0] = 1.0F;
    const auto write = [](int row, double value) {
        const SetpointWrite w = setpointWrite(row, value);
        return std::pair{w.registerNumber, w.raw};
    };
    QCOMPARE(write(0, 45536), (std::pair{1, 65535})); // above 32767: sent as 32 bits
    QCOMPARE(write(1, 75.5), (std::pair{1003, 755}));
    QCOMPARE(write(2, -12.5), (std::pair{1003, -125}));

    env.modbus->setRegisters(1, 3, 1, {0});
    env.modbus->setRegisters(5, 3, 1003, {0});
    ControllerIo io;
    io.writeToControllerProcedure(1, 1, 45000);
    QTRY_COMPARE(env.modbus->nodes[1].holding[1], quint16(45000));
    io.writeToControllerProcedure(5, 1003, -125);
    QTRY_COMPARE(env.modbus->nodes[5].holding[1003], quint16(65536 - 125));
    const ModbusRequest& r = env.modbus->requests.last();
    QCOMPARE((QList<int>{r.node, r.dataArea, r.firstRegister, r.count, r.direction}),
             (QList<int>{5, 3, 1003, 1, 1}));
    // A failed write is the stop box, at once.
    env.modbus->nodes[7].dead = true;
    io.writeToControllerProcedure(7, 1, 20000);
    QTRY_COMPARE(
        env.dialogs->texts(),
        QStringList{"Error during write to controller!\nDevice did not respond in 1 sec."});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
}

void TstPollCycle::oneWriteInFlightTheSelectionReadAtEachTickAndAFailureEnds() {
    TestEnv env;
    env.modbus->manual = true;
    env.modbus->nodes[3] = env.modbus->nodes[7] = {};
    PacedSequence seq("ModAlmWrite", "writeTimer");
    QSignalSpy sent(&seq, &PacedSequence::writesSent);
    int selected = 3;
    seq.startWrites(4, [&selected](int stage) {
        return std::optional<RegisterWrite>({selected, 3 + stage, quint16(20000 + stage)});
    });
    QTRY_COMPARE(env.modbus->requests.size(), 1);
    // Unanswered, the next write waits however many ticks pass.
    QTest::qWait(4 * PacedSequence::kTickMs);
    QCOMPARE(env.modbus->requests.size(), 1);
    env.modbus->deliverAll();
    QTRY_COMPARE(env.modbus->requests.size(), 2);
    // The operator picks another controller: the stages still to come go to it.
    selected = 7;
    for (int n = 3; n <= 4; ++n) {
        env.modbus->deliverAll();
        QTRY_COMPARE(env.modbus->requests.size(), n);
    }
    // "Written" as soon as the last write has started, before its answer.
    QCOMPARE(sent.size(), 1);
    QVERIFY(!seq.timer()->isActive());
    QCOMPARE(env.modbus->writes(),
             (QList<QList<int>>{{3, 3, 20000}, {3, 4, 20001}, {7, 5, 20002}, {7, 6, 20003}}));

    // A failure drops the rest; the first controller keeps what it was given. (A stage with
    // nothing to write, or a write marked last, ends the sequence in the loop tuning's test; a
    // block written in one transaction is in the profiler's.)
    env.modbus->deliverAll();
    env.modbus->manual = false;
    env.modbus->requests.clear();
    sent.clear();
    env.modbus->nodes[1] = {};
    env.modbus->nodes[2].failureCode = 3;
    QSignalSpy failed(&seq, &PacedSequence::failed);
    const QList<int> nodes{1, 2, 1, 1};
    seq.startWrites(4, [&nodes](int stage) {
        return std::optional<RegisterWrite>({nodes[stage], 1, 21000});
    });
    QTRY_COMPARE(failed.size(), 1);
    QCOMPARE(failed.first().first().toInt(), 3);
    QTest::qWait(3 * PacedSequence::kTickMs);
    QCOMPARE((QList<qsizetype>{env.modbus->requests.size(), sent.size()}),
             (QList<qsizetype>{2, 0}));
    QVERIFY(!seq.running() && !seq.writePending() && !seq.timer()->isActive());
    QCOMPARE(env.modbus->nodes[1].holding.value(1), quint16(21000));

    // A block read names its first register, its words unsigned.
    env.modbus->setRegisters(5, 3, 1057, {100, 62700});
    QSignalSpy read(&seq, &PacedSequence::blockRead);
    seq.readBlock(5, 1057, 2);
    QTRY_COMPARE(read.size(), 1);
    QCOMPARE(read.first()[0].toInt(), 1057);
    QCOMPARE(read.first()[1].value<QVector<quint16>>(), (QVector<quint16>{100, 62700}));
}

QTEST_MAIN(TstPollCycle)
#include "tst_poll_cycle.moc"
