#include "plant/controller_io.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "support/test_env.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace {
// Node, register and word of every write sent.
QList<QList<int>> writesSent(const TestEnv& env) {
    QList<QList<int>> out;
    for (const ModbusRequest& r : env.modbus->requests)
        out << QList<int>{r.node, r.firstRegister, r.values.value(0)};
    return out;
}
} // namespace

class TstControllerIo : public QObject {
    Q_OBJECT
private slots:
    void setpointsEncodeByFamily();
    void writesGoOutOnTheirOwnControl();

    void oneWriteInFlightAndTheSelectionReadAtEachTick();
    void aFailureDropsTheRest();
    void aStageCanEndTheSequence();
    void blocksGoInOneTransaction();
};

void TstControllerIo::setpointsEncodeByFamily() {
    TestEnv env;
    gControlType[0] = K40Series;
    gControlType[1] = K8RampProfiler;
    gControlType[2] = K20RampProfiler;
    const auto write = [](int row, float scale, double value) {
        gScale[row] = scale;
        const SetpointWrite w = setpointWrite(row, value);
        return std::pair{w.registerNumber, w.raw};
    };
    QCOMPARE(write(0, 0.1F, 100.5), (std::pair{1, 21004}));
    QCOMPARE(write(0, 1.0F, 100), (std::pair{1, 20099}));
    QCOMPARE(write(0, 1.0F, 45536), (std::pair{1, 65535})); // above 32767: sent as 32 bits
    QCOMPARE(write(1, 1.0F, 75.5), (std::pair{1003, 755}));
    QCOMPARE(write(2, 1.0F, -12.5), (std::pair{1003, -125}));
}

void TstControllerIo::writesGoOutOnTheirOwnControl() {
    TestEnv env;
    gControlType[4] = K8RampProfiler;
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
    // In simulation nothing goes out at all.
    gSimMode = true;
    io.writeToControllerProcedure(1, 1, 20000);
    QTest::qWait(20);
    QCOMPARE(env.modbus->requests.size(), 2);
    // A failed write is the stop box, at once.
    gSimMode = false;
    env.modbus->nodes[7].dead = true;
    io.writeToControllerProcedure(7, 1, 20000);
    QTRY_COMPARE(
        env.dialogs->texts(),
        QStringList{"Error during write to controller!\nDevice did not respond in 1 sec."});
}

void TstControllerIo::oneWriteInFlightAndTheSelectionReadAtEachTick() {
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
    QCOMPARE(writesSent(env),
             (QList<QList<int>>{{3, 3, 20000}, {3, 4, 20001}, {7, 5, 20002}, {7, 6, 20003}}));
}

void TstControllerIo::aFailureDropsTheRest() {
    TestEnv env;
    env.modbus->nodes[1] = {};
    env.modbus->nodes[2].failureCode = 3;
    PacedSequence seq("ModSpRecipe", "spWriteTimer");
    QSignalSpy failed(&seq, &PacedSequence::failed);
    QSignalSpy sent(&seq, &PacedSequence::writesSent);
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
    // The first controller keeps what it was given.
    QCOMPARE(env.modbus->nodes[1].holding.value(1), quint16(21000));
}

void TstControllerIo::aStageCanEndTheSequence() {
    TestEnv env;
    env.modbus->nodes[1] = {};
    PacedSequence seq("ModTuneWrite", "TwriteTimer");
    QSignalSpy sent(&seq, &PacedSequence::writesSent);
    // A stage with nothing to write (a register the controller's revision lacks) ends it.
    seq.startWrites(6, [](int stage) -> std::optional<RegisterWrite> {
        if (stage == 2)
            return std::nullopt;
        return RegisterWrite{1, 11 + stage, 5};
    });
    QTRY_COMPARE(sent.size(), 1);
    QCOMPARE(env.modbus->requests.size(), 2);
    // A write marked last ends it too (the auto-tune command).
    seq.startWrites(6, [](int) { return std::optional<RegisterWrite>({1, 143, 26664, true}); });
    QTRY_COMPARE(sent.size(), 2);
    QTest::qWait(3 * PacedSequence::kTickMs);
    QCOMPARE(writesSent(env).last(), (QList<int>{1, 143, 26664}));
    QCOMPARE(env.modbus->requests.size(), 3);
}

void TstControllerIo::blocksGoInOneTransaction() {
    TestEnv env;
    QList<quint16> profile;
    for (int i = 0; i < 24; ++i)
        profile << quint16(100 * i + (i == 23 ? 65000 - 2300 : 0));
    env.modbus->setRegisters(5, 3, 1057, profile);
    PacedSequence seq("ModProfRead", "none");
    QSignalSpy read(&seq, &PacedSequence::blockRead);
    seq.readBlock(5, 1057, 24);
    QTRY_COMPARE(read.size(), 1);
    QCOMPARE(read.first()[0].toInt(), 1057);
    QCOMPARE(read.first()[1].value<QVector<quint16>>(),
             QVector<quint16>(profile.begin(), profile.end()));
    QSignalSpy done(&seq, &PacedSequence::writeComplete);
    seq.writeBlock(5, 1057, QVector<quint16>(24, 7));
    QTRY_COMPARE(done.size(), 1);
    QCOMPARE(
        (QList<int>{env.modbus->requests.last().count, env.modbus->requests.last().values[23]}),
        (QList<int>{24, 7}));
}

QTEST_MAIN(TstControllerIo)
#include "tst_controller_io.moc"
