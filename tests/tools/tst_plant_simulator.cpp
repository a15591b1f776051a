// The plant simulator's register image: the words the link tests take for granted. The same
// blocks over the wire, and the injected faults, show in the link and poll tests' own outcomes.
// Its RTU front: the framing of the line, the time each exchange takes on it, and the line check
// that tells whether a master waited for the line, over a socat pty pair.

#include "sim_nodes.h"
#include "sim_plant.h"
#include "sim_rtu.h"
#include "sim_rtu_frame.h"
#include "sim_server.h"
#include "sim_wire.h"

#include <QSerialPort>
#include <QTcpSocket>
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

    void crcOfDocumentedFrames_data();
    void crcOfDocumentedFrames();
    void splitRequests_data();
    void splitRequests();
    void wireTime_data();
    void wireTime();
    void lineCheck();
    void rtuRepliesAndFaults_data();
    void rtuRepliesAndFaults();
    void rtuLineCheckSeesOverlaps();
    void rtuBroadcastWritesAndNoneAnswers();
    void gatewayServesOneExchangeAtATime();
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

namespace {

QByteArray hex(const char* text) {
    return QByteArray::fromHex(text);
}
// A read of count registers from first, framed for the line.
QByteArray readFrame(int unit, int first, int count, int function = 0x03) {
    return encodeRtuFrame(quint8(unit),
                          be({quint16(first), quint16(count)}, QByteArray(1, char(function))));
}
// Two K40s (1, 3) and a K8 (5); nothing answers at 4.
const char* const kLinePlant = "1 K40 noise=0\n3 K40 sp=150 noise=0\n5 K8 noise=0\n";

// Two ends of a simulated serial line.
struct PtyPair {
    QTemporaryDir dir;
    QProcess socat;
    QString master, slave;

    static bool available() { return !QStandardPaths::findExecutable("socat").isEmpty(); }
    bool start() {
        const QString a = dir.filePath("ttyA"), b = dir.filePath("ttyB");
        socat.start(QStandardPaths::findExecutable("socat"),
                    {"-d", "pty,raw,echo=0,link=" + a, "pty,raw,echo=0,link=" + b});
        QElapsedTimer t;
        t.start();
        while (!(QFile::exists(a) && QFile::exists(b)) && t.elapsed() < 5000)
            QTest::qWait(10);
        master = QFileInfo(a).canonicalFilePath();
        slave = QFileInfo(b).canonicalFilePath();
        return !master.isEmpty() && !slave.isEmpty();
    }
    ~PtyPair() {
        socat.terminate();
        socat.waitForFinished(2000);
    }
};

// A master writing raw frames: what came back, and when the last of it came after the send.
struct RawMaster {
    QSerialPort port;
    QElapsedTimer clock;
    QByteArray got;
    qint64 lastUs = -1;

    bool open(const QString& device, const SerialFormat& f) {
        port.setPortName(device);
        QObject::connect(&port, &QSerialPort::readyRead, [this] {
            got += port.readAll();
            lastUs = clock.nsecsElapsed() / 1000;
        });
        // No parity: a pty refuses it, and carries the bytes the same.
        return port.open(QIODevice::ReadWrite) && port.setBaudRate(f.baud) &&
               port.setStopBits(f.stopBits == 2 ? QSerialPort::TwoStop : QSerialPort::OneStop);
    }
    void send(const QByteArray& bytes) {
        got.clear();
        lastUs = -1;
        clock.start();
        port.write(bytes);
        port.flush();
    }
    // Waits until size bytes came, then a little longer for any that should not come; for none,
    // the whole time.
    void collect(qsizetype size, int atMostMs) {
        QElapsedTimer t;
        t.start();
        while ((size == 0 || got.size() < size) && t.elapsed() < atMostMs)
            QTest::qWait(1);
        QTest::qWait(size > 0 ? 30 : 0);
    }
};

// The simulator's RTU front on one end of a pty pair, a raw master on the other.
struct RtuRig {
    PtyPair pty;
    SimPlant plant;
    SimNodes nodes{&plant};
    SimRtuFront front{&nodes};
    RawMaster master;

    bool start(const SerialFormat& format) {
        return pty.start() && plant.loadText(kLinePlant, nullptr) &&
               front.open(pty.slave, format) && master.open(pty.master, format);
    }
};

} // namespace

// Frames from the Modbus serial line documents, whose CRCs are printed there.
void TstPlantSimulator::crcOfDocumentedFrames_data() {
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("read 10 from 0 at 1") << hex("01030000000ac5cd");
    QTest::newRow("read 3 from 107 at 17") << hex("1103006b00037687");
}

void TstPlantSimulator::crcOfDocumentedFrames() {
    QFETCH(QByteArray, frame);
    const QByteArray body = frame.chopped(2);
    QCOMPARE(encodeRtuFrame(quint8(body.at(0)), body.sliced(1)).toHex(), frame.toHex());
    QCOMPARE(rtuCrc(frame), quint16(0));
}

void TstPlantSimulator::splitRequests_data() {
    QTest::addColumn<QByteArrayList>("reads");
    QTest::addColumn<bool>("quiet"); // the line fell silent after the last read
    QTest::addColumn<QByteArrayList>("frames");
    QTest::addColumn<int>("dropped");
    QTest::addColumn<int>("left");
    const QByteArray r1 = readFrame(1, 129, 5), r2 = readFrame(5, 1001, 9, 0x04);
    const QByteArray w = encodeRtuFrame(3, hex("1000010002") + "\x04" + hex("4e9f0000"));
    QByteArray badCrc = r1;
    badCrc[7] = char(badCrc[7] ^ 0x01);
    const QByteArray broadcast = encodeRtuFrame(0, hex("060001c350"));
    const QByteArray longClaim = hex("011000000001f0"); // a block write of 240 bytes, torn off
    QTest::newRow("two frames glued")
        << QByteArrayList{r1 + r2} << false << QByteArrayList{r1, r2} << 0 << 0;
    QTest::newRow("split across reads") << QByteArrayList{r1.left(3), r1.mid(3, 4), r1.mid(7)}
                                        << false << QByteArrayList{r1} << 0 << 0;
    QTest::newRow("bad CRC, then a good frame")
        << QByteArrayList{badCrc + r2} << false << QByteArrayList{r2} << 8 << 0;
    QTest::newRow("garbage prefix")
        << QByteArrayList{hex("a55aa5") + r1} << false << QByteArrayList{r1} << 3 << 0;
    QTest::newRow("block write") << QByteArrayList{w.left(6), w.mid(6)} << false
                                 << QByteArrayList{w} << 0 << 0;
    QTest::newRow("block write waits for its count")
        << QByteArrayList{w.left(6)} << false << QByteArrayList{} << 0 << 6;
    QTest::newRow("torn frame waits")
        << QByteArrayList{r1.left(5)} << false << QByteArrayList{} << 0 << 5;
    QTest::newRow("torn frame dropped after silence")
        << QByteArrayList{r1.left(5)} << true << QByteArrayList{} << 5 << 0;
    QTest::newRow("torn long write holds the next frame")
        << QByteArrayList{longClaim + r1} << false << QByteArrayList{} << 0 << 15;
    QTest::newRow("silence frees the frame behind it")
        << QByteArrayList{longClaim + r1} << true << QByteArrayList{r1} << 7 << 0;
    QTest::newRow("reserved address, then a broadcast")
        << QByteArrayList{hex("f8") + broadcast} << false << QByteArrayList{broadcast} << 1 << 0;
}

// Bytes as reads deliver them, into a buffer that keeps what was not used.
void TstPlantSimulator::splitRequests() {
    QFETCH(QByteArrayList, reads);
    QFETCH(bool, quiet);
    QFETCH(QByteArrayList, frames);
    QFETCH(int, dropped);
    QFETCH(int, left);
    QByteArray buffer;
    QByteArrayList out;
    int droppedAll = 0;
    for (int i = 0; i < reads.size(); ++i) {
        buffer += reads.at(i);
        const RtuSplit split = splitRtuRequests(buffer, quiet && i == reads.size() - 1);
        for (const RtuFrame& f : split.frames) {
            QCOMPARE(buffer.mid(f.at, f.pdu.size() + 3), encodeRtuFrame(f.address, f.pdu));
            out << encodeRtuFrame(f.address, f.pdu);
        }
        buffer.remove(0, split.used);
        droppedAll += int(split.dropped);
    }
    QCOMPARE(out, frames);
    QCOMPARE(droppedAll, dropped);
    QCOMPARE(buffer.size(), left);
}

// Exchange times worked out by hand from the character time (start, 8 data, parity, stops).
void TstPlantSimulator::wireTime_data() {
    QTest::addColumn<int>("baud");
    QTest::addColumn<char>("parity");
    QTest::addColumn<int>("stopBits");
    QTest::addColumn<int>("replyChars");
    QTest::addColumn<qint64>("us");
    // 8-byte read, 15-byte reply of five registers.
    QTest::newRow("19200 8N1") << 19200 << 'N' << 1 << 15 << qint64(13803); // 26.5 x 520.83
    QTest::newRow("9600 8E1") << 9600 << 'E' << 1 << 15 << qint64(30365);   // 26.5 x 1145.83
    QTest::newRow("9600 8O2") << 9600 << 'O' << 2 << 15 << qint64(33125);   // 26.5 x 1250
    QTest::newRow("38400 8N2, fixed silence")
        << 38400 << 'N' << 2 << 15 << qint64(8339); // 23 x 286.46 + 1750
    QTest::newRow("115200 8N1, fixed silence")
        << 115200 << 'N' << 1 << 15 << qint64(3747); // 23 x 86.81 + 1750
    QTest::newRow("no reply: the request only")
        << 19200 << 'N' << 1 << 0 << qint64(4167); // 8 x 520.83
}

void TstPlantSimulator::wireTime() {
    QFETCH(int, baud);
    QFETCH(char, parity);
    QFETCH(int, stopBits);
    QFETCH(int, replyChars);
    QFETCH(qint64, us);
    QCOMPARE(SerialFormat({baud, parity, stopBits}).exchangeUs(8, replyChars), us);
}

// A reply on its way holds the line however early its time was; a request that does not wait
// for it overlaps, and only the waits of the others are silences.
void TstPlantSimulator::lineCheck() {
    LineCheck line;
    QCOMPARE(line.request(1000), qint64(1000));
    line.hold(5000, true);
    QCOMPARE(line.request(3000), qint64(5000)); // waits its turn
    line.hold(9000, true);
    line.written(5100);
    QCOMPARE(line.request(9020), qint64(9020)); // the reply's time came, but it is not out yet
    line.hold(13000, true);
    line.written(9050);
    line.written(13000);
    QCOMPARE(line.request(14000), qint64(14000));
    line.hold(18000, false); // no reply
    QCOMPARE(line.request(18333), qint64(18333));
    line.hold(20000, true);
    line.written(20500); // written late: the line was busy till then
    QCOMPARE(line.request(20800), qint64(20800));
    QCOMPARE(std::tuple(line.requests(), line.overlaps(), line.shortestSilenceUs()),
             std::tuple(6, 2, std::optional<qint64>(300)));
    QCOMPARE(line.summary(),
             QStringLiteral("line: requests 6, overlaps 2, shortest silence 300 us, "
                            "first..last 0.02 s"));
    line.hold(22000, true);
    line.reset();
    QCOMPARE(line.summary(), QStringLiteral("line: requests 0, overlaps 0, shortest silence -, "
                                            "first..last 0.00 s"));
    line.request(21000); // the exchange before the reset is still on the line
    QCOMPARE(std::pair(line.requests(), line.overlaps()), std::pair(1, 1));
}

void TstPlantSimulator::rtuRepliesAndFaults_data() {
    QTest::addColumn<int>("baud");
    QTest::addColumn<char>("parity");
    QTest::addColumn<int>("stopBits");
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QByteArray>("head"); // the first bytes that come back
    QTest::addColumn<int>("size");        // all that comes back
    QTest::addColumn<bool>("frameOk");    // the bytes from the address on end in a good CRC
    QTest::addColumn<int>("lateMs");
    const QByteArray block = hex("03030a"); // node 3, five registers
    QTest::newRow("19200 8N1") << 19200 << 'N' << 1 << "" << block << 15 << true << 0;
    QTest::newRow("9600 8E1") << 9600 << 'E' << 1 << "" << block << 15 << true << 0;
    QTest::newRow("38400 8N2") << 38400 << 'N' << 2 << "" << block << 15 << true << 0;
    QTest::newRow("exception") << 19200 << 'N' << 1 << "exception" << hex("038304") << 5 << true
                               << 0;
    QTest::newRow("delay") << 19200 << 'N' << 1 << "delay" << block << 15 << true << 40;
    QTest::newRow("cut") << 19200 << 'N' << 1 << "cut" << block << 7 << false << 0;
    QTest::newRow("garble") << 19200 << 'N' << 1 << "garble" << hex("a55aa5") + block << 18 << true
                            << 0;
    QTest::newRow("dead") << 19200 << 'N' << 1 << "dead" << QByteArray() << 0 << false << 0;
}

// What a raw master sees of a read of node 3, and when: the last byte no sooner than the line
// would have carried the request, the silence and every byte that comes back.
void TstPlantSimulator::rtuRepliesAndFaults() {
    QFETCH(int, baud);
    QFETCH(char, parity);
    QFETCH(int, stopBits);
    QFETCH(QString, fault);
    QFETCH(QByteArray, head);
    QFETCH(int, size);
    QFETCH(bool, frameOk);
    QFETCH(int, lateMs);
    if (!PtyPair::available())
        QSKIP("socat is not installed; the RTU line cannot be simulated");
    RtuRig rig;
    SimNodes& nodes = rig.nodes;
    RawMaster& master = rig.master;
    nodes.setException(3, fault == "exception" ? 4 : 0);
    nodes.setDelay(3, lateMs);
    nodes.setCut(3, fault == "cut");
    nodes.setGarble(3, fault == "garble");
    nodes.setDead(3, fault == "dead");
    const SerialFormat format{baud, parity, stopBits};
    QVERIFY(rig.start(format));

    master.send(readFrame(3, reg::K40Pv, 5));
    const qint64 wireUs = format.exchangeUs(8, size) + lateMs * 1000;
    master.collect(size, int(wireUs / 1000) + (size > 0 ? 500 : 100));
    QCOMPARE(master.got.size(), size);
    QCOMPARE(master.got.left(head.size()).toHex(), head.toHex());
    const qsizetype frameAt = fault == "garble" ? 3 : 0; // behind the stray bytes
    QCOMPARE(rtuCrc(master.got.sliced(std::min(frameAt, master.got.size()))) == 0, frameOk);
    if (size > 0)
        QVERIFY2(master.lastUs >= wireUs && master.lastUs < wireUs + 100'000,
                 qPrintable(QStringLiteral("%1 us, the line %2").arg(master.lastUs).arg(wireUs)));
    QCOMPARE(nodes.requestCount(3), 1);
}

// A master that waits for each reply and then a silence keeps the line clean; one that writes
// two requests back to back puts both on the line at once, and the second waits its turn.
void TstPlantSimulator::rtuLineCheckSeesOverlaps() {
    if (!PtyPair::available())
        QSKIP("socat is not installed; the RTU line cannot be simulated");
    RtuRig rig;
    const SerialFormat format;
    QVERIFY(rig.start(format));
    SimRtuFront& front = rig.front;
    RawMaster& master = rig.master;
    const QByteArray read = readFrame(1, reg::K40Pv, 5);
    const LineCheck& line = front.wire().line();

    for (int i = 0; i < 3; ++i) {
        master.send(read);
        master.collect(15, 1000);
        QCOMPARE(master.got.size(), 15);
        QTest::qWait(5);
    }
    QCOMPARE(std::pair(line.requests(), line.overlaps()), std::pair(3, 0));
    QVERIFY2(line.shortestSilenceUs() >= 5000, qPrintable(line.summary()));

    front.resetLine();
    master.send(read + read);
    master.collect(30, 1000);
    QCOMPARE(master.got.size(), 30);
    QVERIFY2(master.lastUs >= 2 * format.exchangeUs(8, 15), qPrintable(line.summary()));
    QCOMPARE(std::pair(line.requests(), line.overlaps()), std::pair(2, 1));
}

// A write to address 0 reaches every node that hears; no reply comes, and the line is free again
// once the request is in.
void TstPlantSimulator::rtuBroadcastWritesAndNoneAnswers() {
    if (!PtyPair::available())
        QSKIP("socat is not installed; the RTU line cannot be simulated");
    RtuRig rig;
    rig.nodes.setDead(3, true);
    QVERIFY(rig.start(SerialFormat()));
    SimPlant& plant = rig.plant;
    RawMaster& master = rig.master;
    SimRtuFront& front = rig.front;
    const quint16 sp = quint16(reg::OffsetZero + 1234); // a K40 setpoint of 123.4
    master.send(encodeRtuFrame(0, be({quint16(reg::K40Setpoint), sp}, hex("06"))));
    QTRY_COMPARE(front.wire().line().requests(), 1);
    master.collect(0, 100);
    QCOMPARE(master.got.toHex(), QByteArray());
    QCOMPARE(plant.reg(1, reg::K40Setpoint), sp);
    QVERIFY(plant.reg(3, reg::K40Setpoint) != sp);
}

// Over TCP at a baud rate the simulator plays a gateway: two requests sent together come back
// one line exchange apart, and the line check counts the second as an overlap.
void TstPlantSimulator::gatewayServesOneExchangeAtATime() {
    SimPlant plant;
    QVERIFY(plant.loadText(kLinePlant, nullptr));
    SimServer server(&plant);
    const SerialFormat format{9600, 'N', 1};
    server.setPacing(format);
    QVERIFY(server.listen());
    QTcpSocket socket;
    QByteArray got;
    QElapsedTimer clock;
    QList<qint64> at; // when each 19-byte reply was in
    QObject::connect(&socket, &QTcpSocket::readyRead, [&] {
        got += socket.readAll();
        while (at.size() < got.size() / 19)
            at << clock.nsecsElapsed() / 1000;
    });
    socket.connectToHost(server.address(), server.port());
    QVERIFY(socket.waitForConnected(2000));
    const QByteArray pdu = be({quint16(reg::K40Pv), 5}, hex("03"));
    QByteArray requests;
    for (quint16 id : {1, 2})
        requests += be({id, 0, quint16(pdu.size() + 1)}) + char(1) + pdu;
    clock.start();
    socket.write(requests);
    QTRY_COMPARE_WITH_TIMEOUT(at.size(), 2, 2000);
    const qint64 exchangeUs = format.exchangeUs(8, 15);
    QVERIFY2(at[0] >= exchangeUs && at[1] >= 2 * exchangeUs,
             qPrintable(QStringLiteral("%1 and %2 us").arg(at[0]).arg(at[1])));
    QCOMPARE(std::pair(got.mid(0, 2).toHex(), got.mid(19, 2).toHex()),
             std::pair(QByteArray("0001"), QByteArray("0002")));
    QCOMPARE(std::pair(server.wire().line().requests(), server.wire().line().overlaps()),
             std::pair(2, 1));
}

QTEST_GUILESS_MAIN(TstPlantSimulator)
#include "tst_plant_simulator.moc"
