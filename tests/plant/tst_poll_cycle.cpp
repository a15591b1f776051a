#include "app/frm_main.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "plant/poll_cycle.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/test_env.h"

#include <QFile>
#include <QMdiArea>
#include <QTest>

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

    // Controllers by node address and family; the fake answers every enabled one unless dead.
    explicit Rig(const QList<std::pair<int, int>>& controllers) {
        env.modbus->manual = true;
        for (auto [node, type] : controllers) {
            gControlEnabled[node - 1] = true;
            gControlType[node - 1] = static_cast<qint16>(type);
            if (type == 0)
                env.modbus->setRegisters(
                    node, 3, 129, {k40Raw(node * 10.0, 0.1), k40Raw(50.0, 0.1), 2500, 0, 0x1101});
            else
                env.modbus->setRegisters(node, 2, 1001,
                                         {quint16(node * 10), 200, 0, 1234, 0, 0, 3, 0, 4});
        }
        buildActiveList();
        poll.readDone = true;
    }
    // One tick with every reply the link has by then delivered before the next.
    void tick() {
        poll.timer2Tick();
        env.modbus->deliverAll();
        QCoreApplication::processEvents(); // refusals of a busy control arrive queued
    }
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
    void roundRobinOverGapsDecodesByFamily();
    void failedK40StallsTheListAndSecondFailureIsReported();
    void slowAnswerIsWaitedForAndLandsInItsOwnRow();
    void repliesAfterSwitchToSimulation();
    void firstScanProgressClosesAtTheEndOrFirstError();
    void simulationFillsOneRowPerTick();

    void errorTextsOfBothForms();
    void reportsStatusAndClose();
    void saveAsRichText();
    void clearAsksAndNeedsRight7();
};

void TstPollCycle::roundRobinOverGapsDecodesByFamily() {
    Rig rig({{2, 0}, {5, 1}, {9, 0}});
    for (int i = 0; i < 4; ++i)
        rig.tick();
    QCOMPARE(rig.requestedNodes(), (QList<int>{2, 5, 9, 2}));
    // Each family's block, from the only registers the fake answers, in its node's own row.
    QCOMPARE((QStringList{gPV[1].toText(), gPV[8].toText()}), (QStringList{"20.0", "90.0"}));
    QCOMPARE(*gPV[4].asNumber(), 5.0);
    QCOMPARE(gPollIndex, qint16(1));
}

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

void TstPollCycle::repliesAfterSwitchToSimulation() {
    {
        // A late real answer is dropped.
        Rig rig({{1, 0}, {2, 0}});
        rig.poll.timer2Tick();
        gSimMode = true;
        rig.env.modbus->deliverAll();
        QCOMPARE(gPollIndex, qint16(0));
        QVERIFY(gPV[0].isEmpty());
    }
    // A late failure is still counted, but the scan dialog stays.
    Rig rig({{1, 0}, {2, 0}});
    rig.poll.firstScan = true;
    rig.poll.timer2Tick();
    gSimMode = true;
    rig.env.modbus->nodes[1].dead = true;
    rig.env.modbus->deliverAll();
    QCOMPARE(gComErrCount[0], qint16(1));
    QCOMPARE(rig.progress.closes, 0);
    QVERIFY(rig.poll.firstScan);
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

void TstPollCycle::simulationFillsOneRowPerTick() {
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

// The line names the controller by its list position plus one; two codes keep a tail of their
// own, and codes without a text give the bare address and no write text.
void TstPollCycle::errorTextsOfBothForms() {
    const std::tuple<int, QString, QString> rows[]{
        {3, "Control Address# 3, Illegal Data Value. ", "Illegal Data Value written to control."},
        {16, "Control Address# 3, Slave Busy. Add ", "Slave device is busy."},
        {0, "Control Address# 3", ""},
        {4, "Control Address# 3", ""},
        {-5, "Control Address# 3", ""}};
    for (const auto& [code, line, write] : rows) {
        QCOMPARE(commErrorLine(code, 2), line);
        QCOMPARE(commErrorWriteText(code), write);
    }
    TestEnv env;
    reportWriteError(3);
    QCOMPARE(
        env.dialogs->texts(),
        QStringList{"Error during write to controller!\nIllegal Data Value written to control."});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
}

// A report beeps when asked to, and writes the line by list position and the status; a code
// without a text only beeps. Minimizing the logger restores the status until the next report.
void TstPollCycle::reportsStatusAndClose() {
    TestEnv env;
    auto* main = new FrmMain;
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    gComBeep = true;
    gPollIndex = 4;
    reportCommError(-3);
    QCOMPARE(env.beeper->count, 1);
    QCOMPARE(main->statusText(), kStatusCommError);
    QCOMPARE(logger->text(),
             QStringLiteral("\nControl Address# 5, Device did not respond in 1 sec."));
    main->setStatusText(kStatusNormal);
    reportCommError(4);
    QCOMPARE(env.beeper->count, 2);
    QCOMPARE(main->statusText(), kStatusNormal);
    gComBeep = false;
    reportCommError(-1);
    QCOMPARE(env.beeper->count, 2);
    QCOMPARE(logger->text(), QStringLiteral("\nControl Address# 5, Device did not respond in 1 sec."
                                            "\nControl Address# 5, Adapter Invalid."));
    QCOMPARE(main->statusText(), kStatusCommError);
    logger->showNormal();
    QCOMPARE(main->statusText(), kStatusCommError); // restoring alone changes nothing
    logger->showMinimized();
    QCOMPARE(main->statusText(), kStatusNormal);
    reportCommError(-1);
    QCOMPARE(main->statusText(), kStatusCommError);

    // A close request minimizes it, with its lines.
    logger->showNormal();
    QVERIFY(!logger->close());
    QVERIFY(logger->isMinimized());
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);
    QVERIFY(logger->text().contains("Adapter Invalid."));
}

void TstPollCycle::saveAsRichText() {
    TestEnv env;
    FrmLogger logger;
    logger.appendLine("Control Address# 1, Adapter Invalid.");
    logger.appendLine("Control Address# 2, Slave Busy. Add {x}\\c \u00b0C \u4e2d");
    logger.saveLoggerFile(); // no scripted file: cancelled
    QVERIFY(env.dialogs->boxes.isEmpty());
    env.dialogs->chooseFile(env.path("no such folder/logger.rtf"));
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Logger file can not be saved. Check filename or disk space"});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    env.dialogs->boxes.clear();

    env.dialogs->chooseFile(env.path("logger.rtf"));
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 3);
    const FileDialogRequest& r = env.dialogs->fileRequests[2];
    QVERIFY(r.overwritePrompt && r.initialDirectory == env.appPath());
    QFile f(env.path("logger.rtf"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray rtf = f.readAll();
    QVERIFY(rtf.contains("\\par\r\nControl Address# 1, Adapter Invalid.\\par\r\nControl Address# "
                         "2, Slave Busy. Add \\{x\\}\\\\c \\u176?C \\u20013?"));
    QVERIFY(rtf.startsWith("{\\rtf1") && rtf.trimmed().endsWith('}'));
    QVERIFY(env.dialogs->boxes.isEmpty());

    // Security on without right 19: nothing, not even the dialog.
    g21CFR = true;
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 3);
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
}

void TstPollCycle::clearAsksAndNeedsRight7() {
    TestEnv env;
    FrmLogger logger;
    logger.appendLine("a");
    env.dialogs->answerNext(MsgAnswer::No);
    logger.clearLogger();
    QCOMPARE(env.dialogs->boxes[0].buttons, MsgButtons::YesNo);
    QVERIFY(!logger.text().isEmpty());
    logger.clearLogger();
    QVERIFY(logger.text().isEmpty());
    logger.appendLine("b");
    g21CFR = true;
    gOpRights[Right::ClearErrorLog] = 1;
    logger.clearLogger();
    QVERIFY(logger.text().isEmpty());
    logger.appendLine("c");
    gOpRights[Right::ClearErrorLog] = 0;
    env.dialogs->boxes.clear();
    logger.clearLogger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
    QCOMPARE(logger.text(), QStringLiteral("\nc"));
}

QTEST_MAIN(TstPollCycle)
#include "tst_poll_cycle.moc"
