// The plant simulator seen from the link: a real Modbus TCP client (or a raw socket, where the
// bytes themselves matter) against SimServer over loopback.

#include "sim_plant.h"
#include "sim_server.h"

#include <QElapsedTimer>
#include <QModbusReply>
#include <QModbusTcpClient>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>
#include <cmath>
#include <memory>

using namespace sim;

namespace {

const char* const kPlant = R"(# test plant
1 K40 decimal=1 scaled=1 sp=150 pv=148.5 noise=0
2 K40 decimal=0 scaled=1 sp=200 pv=20 noise=0
3 K40 decimal=2 scaled=1 sp=4.25 pv=3.5 noise=0
4 K40 decimal=1 scaled=0 sp=-12.5 pv=80 noise=0   # fixed tenths
5 K8 sp=75.5 pv=-5 noise=0
6 K20 sp=120
10 K40 decimal=3 sp=1.5 noise=0
)";

constexpr int kClientTimeout = 300;

struct Result {
    bool finished = false;
    QModbusDevice::Error error = QModbusDevice::NoError;
    int exception = 0;
    QList<quint16> values;
    qint64 ms = 0;
    bool ok() const { return finished && error == QModbusDevice::NoError; }
};

// Value of a K40 offset number, decoded the way the workstation does it.
double k40Value(quint16 raw, quint16 status) {
    static const double factors[] = {1.0, 0.1, 0.01, 0.001};
    const double factor = (status & 0x1000) ? factors[(status >> 8) & 3] : 0.1;
    return (raw - 19999) * factor;
}

bool near(double a, double b, double tolerance = 1e-6) {
    return std::abs(a - b) <= tolerance;
}

quint16 word(int value) {
    return static_cast<quint16>(static_cast<qint16>(value));
}

QByteArray mbap(quint16 tid, quint8 unit, const QByteArray& pdu) {
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << tid << quint16(0) << quint16(pdu.size() + 1) << unit;
    return bytes + pdu;
}

QByteArray readPdu(quint8 fc, quint16 address, quint16 count) {
    QByteArray pdu;
    QDataStream out(&pdu, QIODevice::WriteOnly);
    out << fc << address << count;
    return pdu;
}

QByteArray receive(QTcpSocket& socket, int bytes, int ms) {
    QByteArray got;
    QElapsedTimer t;
    t.start();
    while (got.size() < bytes && t.elapsed() < ms) {
        QTest::qWait(5);
        got += socket.readAll();
    }
    return got;
}

} // namespace

class TstPlantSimulator : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void plantFileErrors_data();
    void plantFileErrors();
    void plantFileAccepted();
    void k40PollBlock_data();
    void k40PollBlock();
    void profilerPollBlock();
    void setpointWrites_data();
    void setpointWrites();
    void illegalRequests_data();
    void illegalRequests();
    void exceptionFault_data();
    void exceptionFault();
    void deadAndLateNodes();
    void cutAndGarbledReplies();
    void twoNodesOnOneConnection();
    void severalClients();
    void framingOnTheWire();
    void closeDropsClients();
    void dynamics();
    void alarms_data();
    void alarms();
    void profileRun();
    void tuningRegisters();

private:
    std::unique_ptr<QModbusTcpClient> makeClient() const;
    Result finish(QModbusReply* reply, const QElapsedTimer& since, int waitMs = 1000) const;
    Result read(int node, QModbusDataUnit::RegisterType type, int start, int count,
                QModbusTcpClient* client = nullptr) const;
    Result write(int node, int start, const QList<quint16>& values) const;
    Result raw(int node, const QModbusRequest& request) const;

    std::unique_ptr<SimPlant> plant_;
    std::unique_ptr<SimServer> server_;
    std::unique_ptr<QModbusTcpClient> client_;
};

std::unique_ptr<QModbusTcpClient> TstPlantSimulator::makeClient() const {
    auto client = std::make_unique<QModbusTcpClient>();
    client->setConnectionParameter(QModbusDevice::NetworkAddressParameter,
                                   QStringLiteral("127.0.0.1"));
    client->setConnectionParameter(QModbusDevice::NetworkPortParameter, server_->port());
    client->setTimeout(kClientTimeout);
    client->setNumberOfRetries(0);
    client->connectDevice();
    return client;
}

Result TstPlantSimulator::finish(QModbusReply* reply, const QElapsedTimer& since,
                                 int waitMs) const {
    Result r;
    if (!reply) {
        r.finished = true;
        r.error = client_->error();
        return r;
    }
    if (!reply->isFinished()) {
        QSignalSpy spy(reply, &QModbusReply::finished);
        spy.wait(waitMs);
    }
    r.ms = since.elapsed();
    r.finished = reply->isFinished();
    if (!r.finished)
        return r; // left to the client, which owns it
    r.error = reply->error();
    if (reply->rawResult().isException())
        r.exception = reply->rawResult().exceptionCode();
    r.values = reply->result().values();
    reply->deleteLater();
    return r;
}

Result TstPlantSimulator::read(int node, QModbusDataUnit::RegisterType type, int start, int count,
                               QModbusTcpClient* client) const {
    QElapsedTimer t;
    t.start();
    QModbusTcpClient* c = client ? client : client_.get();
    return finish(
        c->sendReadRequest(QModbusDataUnit(type, start, static_cast<quint16>(count)), node), t);
}

Result TstPlantSimulator::write(int node, int start, const QList<quint16>& values) const {
    QElapsedTimer t;
    t.start();
    return finish(client_->sendWriteRequest(
                      QModbusDataUnit(QModbusDataUnit::HoldingRegisters, start, values), node),
                  t);
}

Result TstPlantSimulator::raw(int node, const QModbusRequest& request) const {
    QElapsedTimer t;
    t.start();
    return finish(client_->sendRawRequest(request, node), t);
}

void TstPlantSimulator::init() {
    plant_ = std::make_unique<SimPlant>();
    QString error;
    QVERIFY2(plant_->loadText(QString::fromLatin1(kPlant), &error), qPrintable(error));
    server_ = std::make_unique<SimServer>(plant_.get());
    QVERIFY(server_->listen());
    client_ = makeClient();
    QTRY_COMPARE(client_->state(), QModbusDevice::ConnectedState);
}

void TstPlantSimulator::cleanup() {
    client_.reset();
    server_.reset();
    plant_.reset();
}

void TstPlantSimulator::plantFileErrors_data() {
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("bad node") << "1 K40\n\n# note\nx K8"
                              << "line 4: node address \"x\"";
    QTest::newRow("node 0") << "0 K40"
                            << "line 1: node address \"0\" is not a number in 1..64";
    QTest::newRow("node 65") << "\n65 K40"
                             << "line 2: node address \"65\"";
    QTest::newRow("family") << "1 K9"
                            << "line 1: unknown family \"K9\"";
    QTest::newRow("no family") << "1"
                               << "line 1: expected \"<node> <family>";
    QTest::newRow("duplicate") << "1 K40\n2 K8\n1 K8"
                               << "line 3: node 1 is already defined on line 1";
    QTest::newRow("not key=value") << "1 K40 sp"
                                   << "line 1: expected key=value";
    QTest::newRow("unknown key") << "1 K40 colour=red"
                                 << "line 1: unknown key \"colour\"";
    QTest::newRow("bad number") << "1 K40 sp=hot"
                                << "line 1: sp wants a number";
    QTest::newRow("bad whole") << "1 K40 ti=1.5"
                               << "line 1: ti wants a whole number";
    QTest::newRow("decimal on K8") << "5 K8 decimal=1"
                                   << "line 1: decimal applies to K40";
    QTest::newRow("decimal 4") << "1 K40 decimal=4"
                               << "line 1: decimal code 4 is outside 0..3";
    QTest::newRow("scaled 2") << "1 K40 scaled=2"
                              << "line 1: scaled wants 0 or 1";
    QTest::newRow("K40 range") << "1 K40 decimal=3 sp=50"
                               << "line 1: sp=50 does not fit";
    QTest::newRow("K8 range") << "5 K8 pv=3300"
                              << "line 1: pv=3300 does not fit";
    QTest::newRow("alarm range") << "1 K40 decimal=2 alarm1=500"
                                 << "line 1: alarm1=500";
    QTest::newRow("tau") << "1 K40 tau=0"
                         << "line 1: tau must be above 0";
    QTest::newRow("profile form") << "5 K8 profile=100:10"
                                  << "line 1: profile wants";
    QTest::newRow("profile on K40") << "1 K40 profile=100:1:1"
                                    << "line 1: only K8 and K20";
    QTest::newRow("nine segments")
        << "5 K20 profile=1:1:1,2:1:1,3:1:1,4:1:1,5:1:1,6:1:1,7:1:1,8:1:1,9:1:1"
        << "line 1: a profile has at most 8 segments";
    QTest::newRow("empty") << "# nothing\n\n"
                           << "no node is defined";
}

void TstPlantSimulator::plantFileErrors() {
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QString error;
    QVERIFY(!plant_->loadText(text, &error));
    QVERIFY2(error.startsWith(expected), qPrintable(error));
    // A failed load leaves the running plant alone.
    QCOMPARE(plant_->nodes(), (QList<int>{1, 2, 3, 4, 5, 6, 10}));

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("plant.sim"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
    file.close();
    QVERIFY(!plant_->load(path, &error));
    QVERIFY2(error.startsWith(path + QStringLiteral(": ") + expected), qPrintable(error));
}

void TstPlantSimulator::plantFileAccepted() {
    QString error;
    QVERIFY(!plant_->load(QStringLiteral("/nonexistent/plant.sim"), &error));
    QVERIFY2(error.startsWith(QStringLiteral("/nonexistent/plant.sim: cannot read")),
             qPrintable(error));

    const QString text = QStringLiteral("\t12 k8   SP=33.3 # kiln\r\n"
                                        "9 k40\r\n"
                                        "  \r\n"
                                        "3 K20 profile=10:1:2,20:0:5 pv=-7\r\n");
    QVERIFY2(plant_->loadText(text, &error), qPrintable(error));
    QCOMPARE(plant_->nodes(), (QList<int>{3, 9, 12}));
    QVERIFY(!plant_->hasNode(1));
    const NodeConfig k40 = *plant_->config(9);
    QCOMPARE(k40.family, Family::K40);
    QCOMPARE(k40.decimalCode, 1);
    QVERIFY(k40.scaled);
    QVERIFY(near(plant_->pv(9), plant_->sp(9)));
    QCOMPARE(plant_->config(12)->family, Family::K8);
    QVERIFY(near(plant_->sp(12), 33.3));
    QCOMPARE(plant_->config(3)->profile.size(), 2);
    QCOMPARE(plant_->reg(3, reg::ProfileBlock + 11), quint16(5));
    QCOMPARE(plant_->reg(3, reg::ProfPv), word(-70));

    QVERIFY(!plant_->addNode(NodeConfig{9, Family::K8, 1, true}, &error));
    QVERIFY2(error.contains(QStringLiteral("already defined")), qPrintable(error));
    QVERIFY(plant_->addNode(NodeConfig{40, Family::K40, 2, false}, &error));
    QCOMPARE(plant_->reg(40, reg::K40Status) & 0x1300, 0x0200);
}

void TstPlantSimulator::k40PollBlock_data() {
    QTest::addColumn<int>("node");
    QTest::addColumn<int>("pv");
    QTest::addColumn<int>("sp");
    QTest::addColumn<int>("status");
    QTest::addColumn<double>("pvValue");
    QTest::addColumn<double>("spValue");
    QTest::addColumn<int>("output");
    QTest::newRow("decimal 1") << 1 << 21484 << 21499 << 0x1100 << 148.5 << 150.0 << -1;
    QTest::newRow("decimal 0") << 2 << 20019 << 20199 << 0x1000 << 20.0 << 200.0 << 10000;
    QTest::newRow("decimal 2") << 3 << 20349 << 20424 << 0x1200 << 3.5 << 4.25 << -1;
    QTest::newRow("fixed tenths") << 4 << 20799 << 19874 << 0x0100 << 80.0 << -12.5 << 0;
    QTest::newRow("decimal 3") << 10 << 21499 << 21499 << 0x1300 << 1.5 << 1.5 << -1;
}

void TstPlantSimulator::k40PollBlock() {
    QFETCH(int, node);
    QFETCH(int, pv);
    QFETCH(int, sp);
    QFETCH(int, status);
    QFETCH(double, pvValue);
    QFETCH(double, spValue);
    QFETCH(int, output);
    const Result r = read(node, QModbusDataUnit::HoldingRegisters, 129, 5);
    QVERIFY(r.ok());
    QCOMPARE(r.values.size(), 5);
    QCOMPARE(r.values.at(0), quint16(pv));
    QCOMPARE(r.values.at(1), quint16(sp));
    QCOMPARE(r.values.at(3), quint16(0));
    QCOMPARE(r.values.at(4), quint16(status));
    QVERIFY(near(k40Value(r.values.at(0), r.values.at(4)), pvValue));
    QVERIFY(near(k40Value(r.values.at(1), r.values.at(4)), spValue));
    if (output >= 0)
        QCOMPARE(r.values.at(2), quint16(output));
    // The setpoint register and the poll block show one setpoint.
    const Result setpoint = read(node, QModbusDataUnit::HoldingRegisters, 1, 1);
    QVERIFY(setpoint.ok());
    QCOMPARE(setpoint.values.at(0), quint16(sp));
}

void TstPlantSimulator::profilerPollBlock() {
    const Result k8 = read(5, QModbusDataUnit::InputRegisters, 1001, 9);
    QVERIFY(k8.ok());
    QCOMPARE(k8.values.size(), 9);
    QCOMPARE(k8.values.at(0), word(-50));
    QCOMPARE(k8.values.at(1), quint16(755));
    QCOMPARE(k8.values.at(2), quint16(755));
    QCOMPARE(k8.values.at(6), quint16(0));
    QCOMPARE(k8.values.at(8), quint16(0));
    QCOMPARE(static_cast<qint16>(k8.values.at(3)), qint16(10000)); // PV far below SP

    // Holding reads of the same block give the same words.
    const Result holding = read(5, QModbusDataUnit::HoldingRegisters, 1001, 9);
    QVERIFY(holding.ok());
    QCOMPARE(holding.values, k8.values);

    const Result k20 = read(6, QModbusDataUnit::InputRegisters, 1001, 9);
    QVERIFY(k20.ok());
    QVERIFY(std::abs(static_cast<qint16>(k20.values.at(0)) - 1200) <= 2); // noise of the default
    QCOMPARE(k20.values.at(1), quint16(1200));
}

void TstPlantSimulator::setpointWrites_data() {
    QTest::addColumn<int>("node");
    QTest::addColumn<int>("target");
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("pollRegister");
    QTest::addColumn<int>("area");
    QTest::addColumn<double>("engineering");
    const int holding = QModbusDataUnit::HoldingRegisters;
    const int input = QModbusDataUnit::InputRegisters;
    QTest::newRow("K40 tenths") << 1 << 1 << 21004 << 130 << holding << 100.5;
    QTest::newRow("K40 units") << 2 << 1 << 20099 << 130 << holding << 100.0;
    QTest::newRow("K40 above 32767") << 2 << 1 << 45000 << 130 << holding << 25001.0;
    QTest::newRow("K40 via 130") << 3 << 130 << 20000 << 1 << holding << 0.01;
    QTest::newRow("K8") << 5 << 1003 << 1234 << 1002 << input << 123.4;
    QTest::newRow("K20 negative") << 6 << 1003 << int(word(-10)) << 1002 << input << -1.0;
}

void TstPlantSimulator::setpointWrites() {
    QFETCH(int, node);
    QFETCH(int, target);
    QFETCH(int, value);
    QFETCH(int, pollRegister);
    QFETCH(int, area);
    QFETCH(double, engineering);
    const Result w = write(node, target, {quint16(value)});
    QVERIFY(w.ok());
    const Result r = read(node, static_cast<QModbusDataUnit::RegisterType>(area), pollRegister, 1);
    QVERIFY(r.ok());
    QCOMPARE(r.values.at(0), quint16(value));
    QVERIFY(near(plant_->sp(node), engineering));
}

void TstPlantSimulator::illegalRequests_data() {
    QTest::addColumn<int>("node");
    QTest::addColumn<int>("function");
    QTest::addColumn<int>("address");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("exception");
    QTest::newRow("K40 profile block") << 1 << 3 << 1057 << 24 << 2;
    QTest::newRow("K40 gap") << 1 << 3 << 16 << 1 << 2;
    QTest::newRow("K40 past tuning") << 1 << 3 << 13 << 4 << 2;
    QTest::newRow("K40 input area") << 1 << 4 << 129 << 5 << 2;
    QTest::newRow("K8 register 1") << 5 << 3 << 1 << 1 << 2;
    QTest::newRow("K8 input past poll") << 5 << 4 << 1001 << 10 << 2;
    QTest::newRow("K8 input profile") << 6 << 4 << 1057 << 24 << 2;
    QTest::newRow("write K40 PV") << 1 << 6 << 129 << 500 << 2;
    QTest::newRow("write K8 state") << 5 << 6 << 1009 << 1 << 2;
    QTest::newRow("write outside") << 1 << 6 << 200 << 1 << 2;
    QTest::newRow("count 0") << 1 << 3 << 129 << 0 << 3;
    QTest::newRow("count 126") << 1 << 3 << 1 << 126 << 3;
    QTest::newRow("read coils") << 1 << 1 << 0 << 8 << 1;
    QTest::newRow("diagnostics") << 1 << 8 << 0 << 0 << 1;
    QTest::newRow("read/write multiple") << 5 << 0x17 << 1001 << 1 << 1;
    QTest::newRow("device id") << 6 << 0x2B << 0x0E01 << 0 << 1;
}

void TstPlantSimulator::illegalRequests() {
    QFETCH(int, node);
    QFETCH(int, function);
    QFETCH(int, address);
    QFETCH(int, count);
    QFETCH(int, exception);
    const quint16 before = plant_->reg(node, address);
    const Result r = raw(node, QModbusRequest(static_cast<QModbusPdu::FunctionCode>(function),
                                              quint16(address), quint16(count)));
    QVERIFY(r.finished);
    QCOMPARE(r.error, QModbusDevice::ProtocolError);
    QCOMPARE(r.exception, exception);
    QCOMPARE(plant_->reg(node, address), before);
}

void TstPlantSimulator::exceptionFault_data() {
    QTest::addColumn<int>("code");
    QTest::newRow("illegal address") << 2;
    QTest::newRow("busy") << 6;
    QTest::newRow("gateway target") << 11;
}

void TstPlantSimulator::exceptionFault() {
    QFETCH(int, code);
    server_->setException(5, code);
    const Result r = read(5, QModbusDataUnit::InputRegisters, 1001, 9);
    QCOMPARE(r.error, QModbusDevice::ProtocolError);
    QCOMPARE(r.exception, code);
    // A refused write leaves the controller as it was.
    const Result w = write(5, 1003, {999});
    QCOMPARE(w.exception, code);
    QVERIFY(near(plant_->sp(5), 75.5));
    // Other nodes are not touched, and clearing ends the fault.
    QVERIFY(read(1, QModbusDataUnit::HoldingRegisters, 129, 5).ok());
    server_->clearFaults();
    QVERIFY(read(5, QModbusDataUnit::InputRegisters, 1001, 9).ok());
}

void TstPlantSimulator::deadAndLateNodes() {
    server_->setDead(1, true);
    Result r = read(1, QModbusDataUnit::HoldingRegisters, 129, 5);
    QCOMPARE(r.error, QModbusDevice::TimeoutError);
    QVERIFY(r.ms >= kClientTimeout - 20);
    QCOMPARE(server_->requestCount(1), 1); // dead nodes still count what they were sent

    // A node missing from the plant file never answers either.
    r = read(7, QModbusDataUnit::HoldingRegisters, 129, 5);
    QCOMPARE(r.error, QModbusDevice::TimeoutError);
    QCOMPARE(server_->requestCount(7), 1);

    server_->setDead(1, false);
    QVERIFY(read(1, QModbusDataUnit::HoldingRegisters, 129, 5).ok());
    QCOMPARE(server_->requestCount(1), 2);

    server_->setDelay(2, 150);
    r = read(2, QModbusDataUnit::HoldingRegisters, 129, 5);
    QVERIFY(r.ok());
    QVERIFY2(r.ms >= 140, qPrintable(QString::number(r.ms)));
    QCOMPARE(r.values.at(1), quint16(20199));

    server_->setDelay(2, kClientTimeout + 300);
    r = read(2, QModbusDataUnit::HoldingRegisters, 129, 5);
    QCOMPARE(r.error, QModbusDevice::TimeoutError);
    // The late answer then arrives for a forgotten transaction and must not disturb the next.
    server_->setDelay(2, 0);
    QTest::qWait(400);
    QVERIFY(read(2, QModbusDataUnit::HoldingRegisters, 129, 5).ok());
}

void TstPlantSimulator::cutAndGarbledReplies() {
    server_->setCut(1, true);
    Result r = read(1, QModbusDataUnit::HoldingRegisters, 129, 5);
    QVERIFY(!r.ok());

    auto second = makeClient();
    QTRY_COMPARE(second->state(), QModbusDevice::ConnectedState);
    server_->setCut(1, false);
    server_->setGarble(1, true);
    r = read(1, QModbusDataUnit::HoldingRegisters, 129, 5, second.get());
    QVERIFY(!r.ok());

    // A clean connection is served normally while the faults stand.
    auto third = makeClient();
    QTRY_COMPARE(third->state(), QModbusDevice::ConnectedState);
    QVERIFY(read(2, QModbusDataUnit::HoldingRegisters, 129, 5, third.get()).ok());
}

void TstPlantSimulator::twoNodesOnOneConnection() {
    server_->setDelay(1, 150);
    QModbusReply* slow =
        client_->sendReadRequest(QModbusDataUnit(QModbusDataUnit::HoldingRegisters, 129, 5), 1);
    QModbusReply* fast =
        client_->sendReadRequest(QModbusDataUnit(QModbusDataUnit::InputRegisters, 1001, 9), 5);
    QVERIFY(slow && fast);
    QList<int> order;
    const QObject scope; // ends the connections before order goes
    connect(slow, &QModbusReply::finished, &scope, [&order] { order << 1; });
    connect(fast, &QModbusReply::finished, &scope, [&order] { order << 5; });
    QTRY_COMPARE(order.size(), 2);
    QCOMPARE(order, (QList<int>{5, 1}));
    QCOMPARE(slow->error(), QModbusDevice::NoError);
    QCOMPARE(fast->error(), QModbusDevice::NoError);
    QCOMPARE(slow->result().value(4), quint16(0x1100));
    QCOMPARE(fast->result().value(2), quint16(755));
    slow->deleteLater();
    fast->deleteLater();
}

void TstPlantSimulator::severalClients() {
    auto other = makeClient();
    QTRY_COMPARE(other->state(), QModbusDevice::ConnectedState);
    QTRY_COMPARE(server_->connectionCount(), 2);
    QVERIFY(write(1, 1, {21000}).ok());
    const Result seen = read(1, QModbusDataUnit::HoldingRegisters, 130, 1, other.get());
    QVERIFY(seen.ok());
    QCOMPARE(seen.values.at(0), quint16(21000));
    client_->disconnectDevice();
    QTRY_COMPARE(server_->connectionCount(), 1);
    QVERIFY(read(5, QModbusDataUnit::InputRegisters, 1001, 9, other.get()).ok());
}

void TstPlantSimulator::framingOnTheWire() {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, server_->port());
    QTRY_COMPARE(socket.state(), QAbstractSocket::ConnectedState);

    // One request dribbled out a byte at a time.
    const QByteArray request = mbap(0x1234, 1, readPdu(3, 129, 5));
    for (char byte : request) {
        socket.write(&byte, 1);
        socket.flush();
        QTest::qWait(2);
    }
    QByteArray reply = receive(socket, 19, 1000);
    QCOMPARE(reply.size(), 19);
    QCOMPARE(reply.left(9), QByteArray::fromHex("12340000000d01030a"));
    QCOMPARE(reply.mid(9, 2), QByteArray::fromHex("53ec")); // 21484

    // Two requests in one write, and a third split across writes.
    socket.write(mbap(7, 1, readPdu(3, 133, 1)) + mbap(8, 5, readPdu(4, 1009, 1)) +
                 mbap(9, 2, readPdu(3, 130, 1)).left(4));
    socket.flush();
    QTest::qWait(20);
    socket.write(mbap(9, 2, readPdu(3, 130, 1)).mid(4));
    reply = receive(socket, 33, 1000);
    QCOMPARE(reply.toHex(), QByteArray("000700000005010302"
                                       "1100"
                                       "000800000005050402"
                                       "0000"
                                       "000900000005020302"
                                       "4ee7"));

    // A cut reply: the whole header, then fewer PDU bytes than it announces.
    server_->setCut(1, true);
    socket.write(mbap(10, 1, readPdu(3, 129, 5)));
    reply = receive(socket, 19, 400);
    QVERIFY(reply.size() > 7 && reply.size() < 19);
    QCOMPARE(reply.left(7), QByteArray::fromHex("000a0000000d01"));
    server_->setCut(1, false);

    // A garbled reply starts with bytes that are no header of ours.
    QTcpSocket other;
    other.connectToHost(QHostAddress::LocalHost, server_->port());
    QTRY_COMPARE(other.state(), QAbstractSocket::ConnectedState);
    server_->setGarble(5, true);
    other.write(mbap(11, 5, readPdu(4, 1001, 9)));
    reply = receive(other, 40, 400);
    QVERIFY(reply.size() > 7 + 2 + 18);
    QVERIFY(!reply.startsWith(QByteArray::fromHex("000b0000")));

    // A header that cannot be framed ends the connection.
    QSignalSpy message(server_.get(), &SimServer::message);
    socket.write(QByteArray::fromHex("000c00050006010300810005"));
    QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(message.size(), 1);
}

void TstPlantSimulator::closeDropsClients() {
    const quint16 port = server_->port();
    server_->close();
    QTRY_COMPARE(client_->state(), QModbusDevice::UnconnectedState);
    QVERIFY(!server_->isListening());

    auto refused = makeClient();
    QTRY_COMPARE(refused->state(), QModbusDevice::UnconnectedState);
    QCOMPARE(refused->error(), QModbusDevice::ConnectionError);

    QVERIFY(server_->listen(QHostAddress::LocalHost, port));
    client_ = makeClient();
    QTRY_COMPARE(client_->state(), QModbusDevice::ConnectedState);
    QVERIFY(read(1, QModbusDataUnit::HoldingRegisters, 129, 5).ok());

    // A port in use is reported, not fatal.
    SimServer second(plant_.get());
    QVERIFY(!second.listen(QHostAddress::LocalHost, port));
    QVERIFY(!second.errorString().isEmpty());
}

void TstPlantSimulator::dynamics() {
    // Node 2 starts at 20 with its setpoint at 200: PV rises without overshoot.
    double last = plant_->pv(2);
    double lastOutput = plant_->output(2);
    QCOMPARE(lastOutput, 100.0);
    for (int i = 0; i < 40; ++i) {
        plant_->step(5.0);
        QVERIFY(plant_->pv(2) > last);
        QVERIFY(plant_->pv(2) <= 200.0);
        QVERIFY(plant_->output(2) <= lastOutput);
        last = plant_->pv(2);
        lastOutput = plant_->output(2);
    }
    QVERIFY(near(plant_->pv(2), 200.0, 1.0));
    QVERIFY(lastOutput < 60.0);
    // The link shows the same PV.
    const Result r = read(2, QModbusDataUnit::HoldingRegisters, 129, 1);
    QVERIFY(r.ok());
    QVERIFY(near(k40Value(r.values.at(0), 0x1000), std::round(plant_->pv(2)), 1e-9));

    // Node 4 falls towards a setpoint below zero.
    QVERIFY(plant_->pv(4) < 0.0);

    // The measurement noise stays within its band around a steady PV.
    for (int i = 0; i < 20; ++i) {
        plant_->step(0.25);
        QVERIFY(std::abs(plant_->pv(6) - 120.0) <= 0.15 + 1e-9);
    }

    // On the event loop's own timer.
    plant_->setPv(2, 20.0);
    plant_->start(20);
    QVERIFY(plant_->isRunning());
    QTRY_VERIFY_WITH_TIMEOUT(plant_->pv(2) > 21.0, 3000);
    plant_->stop();
    const double stopped = plant_->pv(2);
    QTest::qWait(100);
    QCOMPARE(plant_->pv(2), stopped);
}

void TstPlantSimulator::alarms_data() {
    QTest::addColumn<QString>("line");
    QTest::addColumn<double>("seconds");
    QTest::addColumn<int>("statusRegister");
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("bits");
    QTest::newRow("above alarm 1") << "1 K40 sp=150 pv=185 alarm1=180" << 0.0 << 133 << 1 << 1;
    QTest::newRow("below alarm 1") << "1 K40 sp=150 pv=175 alarm1=180" << 0.0 << 133 << 0 << 0;
    QTest::newRow("high deviation") << "1 K40 sp=150 pv=161 dev1=10" << 0.0 << 133 << 1 << 1;
    QTest::newRow("within deviation") << "1 K40 sp=150 pv=141 dev1=10" << 0.0 << 133 << 0 << 0;
    QTest::newRow("below alarm 2") << "1 K40 sp=150 pv=40 alarm2=50" << 0.0 << 133 << 2 << 2;
    QTest::newRow("low deviation") << "1 K40 sp=150 pv=139 dev2=10" << 0.0 << 133 << 2 << 2;
    QTest::newRow("both") << "1 K40 sp=0 pv=-50 alarm1=-60 alarm2=-40" << 0.0 << 133 << 3 << 3;
    QTest::newRow("none set") << "1 K40 decimal=0 sp=-19000 pv=45000" << 0.0 << 133 << 0 << 0;
    QTest::newRow("PV rises into alarm")
        << "1 K40 sp=200 pv=20 alarm1=150 tau=5 noise=0" << 60.0 << 133 << 0 << 1;
    QTest::newRow("PV settles out of alarm")
        << "1 K40 sp=100 pv=20 alarm2=50 tau=5 noise=0" << 60.0 << 133 << 2 << 0;
    QTest::newRow("K8") << "5 K8 sp=80 pv=120 alarm1=100" << 0.0 << 1007 << 1 << 1;
    QTest::newRow("K20 deviation") << "5 K20 sp=80 pv=60 dev2=5" << 0.0 << 1007 << 2 << 2;
}

void TstPlantSimulator::alarms() {
    QFETCH(QString, line);
    QFETCH(double, seconds);
    QFETCH(int, statusRegister);
    QFETCH(int, before);
    QFETCH(int, bits);
    QString error;
    QVERIFY2(plant_->loadText(line, &error), qPrintable(error));
    const int node = plant_->nodes().constFirst();
    QCOMPARE(plant_->reg(node, statusRegister) & 3, before);
    plant_->step(seconds);
    const Result r = read(node, QModbusDataUnit::HoldingRegisters, statusRegister, 1);
    QVERIFY(r.ok());
    QCOMPARE(r.values.at(0) & 3, bits);
}

void TstPlantSimulator::profileRun() {
    plant_->setProfileMinute(1.0); // one step second per profile minute
    // Two segments: 100.0 after a 2 minute ramp with 1 minute soak, then a step to 50.0 held 2
    // minutes; the empty third segment ends the profile.
    QList<quint16> block(24, 0);
    block[0] = 1000;
    block[1] = 500;
    block[8] = 2;
    block[9] = 1;
    block[10] = 0;
    block[11] = 2;
    QVERIFY(write(5, 1057, block).ok());
    const Result back = read(5, QModbusDataUnit::HoldingRegisters, 1057, 24);
    QVERIFY(back.ok());
    QCOMPARE(back.values, block);

    plant_->setPv(5, 20.0);
    QVERIFY(write(5, 1003, {300}).ok());
    auto state = [this] {
        return plant_->reg(5, reg::ProfState);
    };
    auto workingSp = [this] {
        return static_cast<qint16>(plant_->reg(5, reg::ProfWorkingSp));
    };

    QVERIFY(write(5, 1082, {1}).ok());
    QCOMPARE(state(), quint16(1));
    QCOMPARE(workingSp(), qint16(200)); // the ramp starts from PV
    plant_->step(1.0);
    QCOMPARE(workingSp(), qint16(600));

    QVERIFY(write(5, 1082, {2}).ok()); // hold
    plant_->step(5.0);
    QCOMPARE(state(), quint16(1));
    QCOMPARE(workingSp(), qint16(600));
    QVERIFY(write(5, 1003, {400}).ok()); // the profile keeps the working setpoint
    QCOMPARE(workingSp(), qint16(600));

    QVERIFY(write(5, 1082, {1}).ok()); // resume
    plant_->step(1.0);
    QCOMPARE(state(), quint16(1));
    QCOMPARE(workingSp(), qint16(1000));
    plant_->step(1.0);
    QCOMPARE(state(), quint16(2));
    QCOMPARE(workingSp(), qint16(500));
    plant_->step(1.5);
    QCOMPARE(state(), quint16(2));
    plant_->step(1.0);
    const Result finished = read(5, QModbusDataUnit::InputRegisters, 1001, 9);
    QVERIFY(finished.ok());
    QCOMPARE(finished.values.at(8), quint16(17));
    QCOMPARE(finished.values.at(1), quint16(500));

    QVERIFY(write(5, 1082, {0}).ok()); // stop: back to the local setpoint
    QCOMPARE(state(), quint16(0));
    QCOMPARE(workingSp(), qint16(400));
    plant_->step(10.0);
    QCOMPARE(state(), quint16(0));

    // A state set by hand, as a test of the workstation fakes a running profile.
    plant_->setReg(6, reg::ProfState, 3);
    const Result faked = read(6, QModbusDataUnit::InputRegisters, 1009, 1);
    QVERIFY(faked.ok());
    QCOMPARE(faked.values.at(0), quint16(3));
    QVERIFY(write(6, 1082, {0}).ok());
    QCOMPARE(plant_->profileState(6), 0);

    // On the timer, a one-segment profile runs to its end.
    QVERIFY(write(6, 1057, {1000}).ok());
    QVERIFY(write(6, 1066, {1}).ok()); // a one minute soak
    plant_->setProfileMinute(0.05);
    plant_->start(10);
    QVERIFY(write(6, 1082, {1}).ok());
    QTRY_COMPARE(plant_->reg(6, reg::ProfState), quint16(17));
}

void TstPlantSimulator::tuningRegisters() {
    QString error;
    QVERIFY2(plant_->loadText(QStringLiteral("1 K40 decimal=1 pb=12.5 ti=90 td=4.5 coolpb=7 "
                                             "deadband=-2 rev=1239\n"
                                             "2 K40 decimal=2"),
                              &error),
             qPrintable(error));
    Result r = read(1, QModbusDataUnit::HoldingRegisters, 11, 5);
    QVERIFY(r.ok());
    QCOMPARE(r.values, (QList<quint16>{125, 90, 45, 7, 19979}));
    r = read(1, QModbusDataUnit::HoldingRegisters, 141, 2);
    QVERIFY(r.ok());
    QCOMPARE(r.values, (QList<quint16>{1239, 0}));
    r = read(2, QModbusDataUnit::HoldingRegisters, 141, 1);
    QCOMPARE(r.values.at(0), quint16(1240));

    // Tuning values are written after the prepare code, which starts nothing.
    QVERIFY(write(1, 143, {reg::TuneWritePrepare}).ok());
    QVERIFY(write(1, 11, {150, 60}).ok());
    QCOMPARE(plant_->reg(1, reg::AutoTuneState), quint16(0));
    QCOMPARE(plant_->reg(1, reg::PropBand), quint16(150));

    QVERIFY(write(1, 143, {reg::TuneAutoStart}).ok());
    r = read(1, QModbusDataUnit::HoldingRegisters, 142, 1);
    QCOMPARE(r.values.at(0), quint16(2));
    plant_->step(10.0);
    QCOMPARE(plant_->reg(1, reg::AutoTuneState), quint16(2));
    plant_->step(15.0);
    QCOMPARE(plant_->reg(1, reg::AutoTuneState), quint16(0));
    QVERIFY(plant_->reg(1, reg::PropBand) != 150); // the tune found new values
}

QTEST_GUILESS_MAIN(TstPlantSimulator)
#include "tst_plant_simulator.moc"
