// The plant simulator's register image: the words the link tests take for granted. The same
// blocks over the wire, and the injected faults, show in the link and poll tests' own outcomes.

#include "sim_plant.h"

#include <QtTest>

using namespace sim;

class TstPlantSimulator : public QObject {
    Q_OBJECT

private slots:
    void pollBlocks();
    void tuningBlockAndItsLimits();
    void autoTuneRunsThenLeavesNewValues();
    void downloadedProfileIsTheOneThatRunsToTheEndState();
    void badWritesChangeNothing_data();
    void badWritesChangeNothing();
};

namespace {

// Big-endian words; a block write is {first, count} + byte count + its words.
QByteArray be(const QList<quint16>& values, QByteArray bytes = {}) {
    for (quint16 v : values)
        bytes.append(char(v >> 8)).append(char(v & 0xFF));
    return bytes;
}
QByteArray blockWrite(int first, int count, int byteCount, const QList<quint16>& data) {
    return be(data, be({quint16(first), quint16(count)}) + char(byteCount));
}

QModbusResponse process(SimPlant& plant, int node, int function, const QByteArray& pdu) {
    return plant.process(node, QModbusRequest(QModbusPdu::FunctionCode(function), pdu));
}
// Exception code of the controller's answer, 0 when it took the request.
int send(SimPlant& plant, int node, int function, const QByteArray& pdu) {
    const QModbusResponse r = process(plant, node, function, pdu);
    return r.isException() ? int(r.exceptionCode()) : 0;
}
// One word goes as the workstation sends it, with 0x06; more with 0x10.
int write(SimPlant& plant, int node, int first, const QList<quint16>& data) {
    const int n = int(data.size());
    return n == 1 ? send(plant, node, 0x06, be({quint16(first), data[0]}))
                  : send(plant, node, 0x10, blockWrite(first, n, 2 * n, data));
}

QList<quint16> read(SimPlant& plant, int node, int first, int count) {
    const QByteArray d = process(plant, node, 0x03, be({quint16(first), quint16(count)})).data();
    QList<quint16> values;
    for (int i = 1; i + 1 < d.size(); i += 2)
        values << quint16((quint8(d.at(i)) << 8) | quint8(d.at(i + 1)));
    return values;
}

} // namespace

// The poll block of each family, word by word (-1: not pinned): the words the workstation
// decodes, pinned here so that the simulator and the decoder cannot agree on a wrong value.
// K40 blocks are holding registers from 129, the profilers' input registers from 1001.
void TstPlantSimulator::pollBlocks() {
    SimPlant plant;
    QString error;
    QVERIFY2(plant.loadText("1 K40 decimal=1 scaled=1 sp=150 pv=148.5 noise=0\n"
                            "2 K40 decimal=0 scaled=1 sp=200 pv=20 noise=0\n"
                            "4 K40 decimal=1 scaled=0 sp=-12.5 pv=80 noise=0\n" // fixed tenths
                            "5 K8 sp=75.5 pv=-5 noise=0\n"
                            "6 K20 sp=120\n"
                            "10 K40 decimal=3 sp=1.5 noise=0\n",
                            &error),
             qPrintable(error));
    const std::pair<int, QList<int>> blocks[]{{1, {21484, 21499, -1, 0, 0x1100}},
                                              {2, {20019, 20199, 10000, 0, 0x1000}},
                                              {4, {20799, 19874, 0, 0, 0x0100}},
                                              {10, {21499, 21499, -1, 0, 0x1300}},
                                              {5, {65536 - 50, 755, 755, 10000, -1, -1, 0, -1, 0}},
                                              {6, {-1, 1200, 1200, -1, -1, -1, 0, -1, 0}}};
    for (const auto& [node, words] : blocks) {
        const int first = words.size() == 5 ? reg::K40Pv : reg::ProfPv;
        for (int i = 0; i < words.size(); ++i)
            if (words.at(i) >= 0)
                QCOMPARE((std::pair{node, int(plant.reg(node, first + i))}),
                         (std::pair{node, words.at(i)}));
    }
}

// The words as the tuning window scales them at one decimal: band 12.5, reset 90 s, rate 4.5 s,
// cool band 20, dead band 1.5. The band in force then drives the loop.
void TstPlantSimulator::tuningBlockAndItsLimits() {
    SimPlant plant;
    QVERIFY(plant.loadText("1 K40 sp=100 noise=0\n2 K40 sp=100 noise=0 rev=1239\n", nullptr));
    const QList<quint16> tuning{125, 90, 45, 20, 19999 + 15};
    QCOMPARE(write(plant, 1, 11, tuning), 0);
    QCOMPARE(read(plant, 1, 11, 5), tuning);
    QCOMPARE(read(plant, 1, 141, 2), (QList<quint16>{1240, 0}));
    // Past the limits, or an unknown command: refused whole.
    QCOMPARE(write(plant, 1, 11, {50, 90, 10000}), 3);
    QCOMPARE(write(plant, 1, 15, {19999 - 10000}), 3);
    QCOMPARE(write(plant, 1, 143, {26662}), 3);
    QCOMPARE(read(plant, 1, 11, 5), tuning);
    // Revision ending in 39: no dead band; the block still reads, register 15 refuses.
    QCOMPARE(read(plant, 2, 11, 5).value(4), quint16(0));
    QCOMPARE(write(plant, 2, 15, {19999}), 2);

    QCOMPARE(write(plant, 2, 11, {25}), 0); // band 2.5, against node 1's 12.5
    for (int node : {1, 2})
        QCOMPARE(write(plant, node, 1, {19999 + 1200}), 0); // SP 120.0
    plant.step(20.0);
    QVERIFY2(plant.pv(1) > 101.0 && 120.0 - plant.pv(2) < 0.5 * (120.0 - plant.pv(1)),
             qPrintable(QStringLiteral("pv %1 and %2").arg(plant.pv(1)).arg(plant.pv(2))));
}

void TstPlantSimulator::autoTuneRunsThenLeavesNewValues() {
    SimPlant plant;
    QVERIFY(plant.loadText("1 K40 sp=100 noise=0 tau=10 tunetime=8\n", nullptr));
    const QList<quint16> before = read(plant, 1, 11, 3);
    QCOMPARE(write(plant, 1, 143, {26664}), 0);
    bool full = false, off = false;
    for (int i = 0; i < 24; ++i) { // 6 s: the relay swings the output both ways around SP
        plant.step(0.25);
        QCOMPARE(plant.reg(1, 142), quint16(2));
        full = full || plant.output(1) == 100.0;
        off = off || plant.output(1) == 0.0;
    }
    QVERIFY(full && off);
    QCOMPARE(write(plant, 1, 11, {50}), 6);
    plant.step(2.5);
    QCOMPARE(plant.reg(1, 142), quint16(0));
    const QList<quint16> after = read(plant, 1, 11, 3);
    QVERIFY(after.size() == 3 && after != before);
    QVERIFY(after[0] >= 1 && after[0] <= 9999 && after[1] >= 1 && after[1] <= 9999);
    // Preparing a tuning write ends a second tune at once, keeping what the first found.
    QCOMPARE(write(plant, 1, 143, {26664}), 0);
    plant.step(1.0);
    QCOMPARE(write(plant, 1, 143, {26661}), 0);
    QCOMPARE(plant.reg(1, 142), quint16(0));
    QCOMPARE(read(plant, 1, 11, 3), after);
}

// Segment 1 jumps to 150.5 and soaks 2 minutes, segment 2 ramps to 80.0 in 1 and soaks 1. The
// bank overview stops a profile that reports 17: the simulator must get there by itself.
void TstPlantSimulator::downloadedProfileIsTheOneThatRunsToTheEndState() {
    SimPlant plant;
    QVERIFY(plant.loadText("5 K8 sp=20 noise=0 profile=40:1:1\n", nullptr));
    QList<quint16> block(24, 0);
    block[0] = 1505;
    block[1] = 800;
    block[9] = 2;
    block[10] = block[11] = 1;
    QCOMPARE(write(plant, 5, 1057, block), 0);
    QCOMPARE(read(plant, 5, 1057, 24), block);
    plant.setReg(5, 1082, 1); // run
    QCOMPARE(plant.profileState(5), 1);
    plant.step(0.5);
    QCOMPARE(plant.sp(5), 150.5);
    const QList<quint16> other(24, 1);
    QCOMPARE(write(plant, 5, 1057, other), 6);
    plant.setReg(5, 1082, 2); // held, still in force
    QCOMPARE(write(plant, 5, 1057, other), 6);
    QCOMPARE(read(plant, 5, 1057, 24), block);
    plant.setReg(5, 1082, 1);
    for (int i = 0; i < 10 && plant.profileState(5) != 17; ++i)
        plant.step(1.0); // a minute of the profile lasts a second
    QCOMPARE((std::pair{plant.profileState(5), plant.sp(5)}), (std::pair{17, 80.0}));
    QCOMPARE(write(plant, 5, 1057, other), 0);
    plant.setReg(5, 1082, 0); // the workstation's stop
    QCOMPARE(plant.profileState(5), 0);
}

void TstPlantSimulator::badWritesChangeNothing_data() {
    QTest::addColumn<int>("function");
    QTest::addColumn<QByteArray>("pdu");
    QTest::addColumn<int>("exception");
    const QList<quint16> w23(23, 7);
    QList<quint16> negative(24, 7);
    negative[15] = 0xFFFF;
    QTest::newRow("profile one word short") << 0x10 << blockWrite(1057, 23, 46, w23) << 2;
    QTest::newRow("profile word alone") << 0x06 << be({1060, 5}) << 2;
    QTest::newRow("count above its bytes") << 0x10 << blockWrite(1057, 24, 46, w23) << 3;
    QTest::newRow("no registers") << 0x10 << blockWrite(11, 0, 0, {}) << 3;
    QTest::newRow("negative segment time") << 0x10 << blockWrite(1057, 24, 48, negative) << 3;
    QTest::newRow("read of none") << 0x03 << be({11, 0}) << 3;
}

// Refused with the exception given; the profile and the tuning words stand.
void TstPlantSimulator::badWritesChangeNothing() {
    QFETCH(int, function);
    QFETCH(QByteArray, pdu);
    QFETCH(int, exception);
    SimPlant plant;
    QVERIFY(plant.loadText("5 K20 noise=0 profile=40:1:1,60:2:2\n", nullptr));
    const QList<quint16> profile = read(plant, 5, 1057, 24);
    const QList<quint16> tuning = read(plant, 5, 11, 5);
    QCOMPARE(send(plant, 5, function, pdu), exception);
    QCOMPARE(read(plant, 5, 1057, 24), profile);
    QCOMPARE(read(plant, 5, 11, 5), tuning);
    QCOMPARE(profile.size(), 24);
}

QTEST_GUILESS_MAIN(TstPlantSimulator)
#include "tst_plant_simulator.moc"
