// The plant simulator seen from a stock Modbus TCP client over loopback: the words the link tests
// take for granted. Its injected faults show in the link and poll tests' own outcomes.

#include "sim_plant.h"
#include "sim_server.h"

#include <QModbusReply>
#include <QModbusTcpClient>
#include <QSignalSpy>
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
    QList<quint16> values;
    bool ok() const { return finished && error == QModbusDevice::NoError; }
};

quint16 word(int value) {
    return static_cast<quint16>(static_cast<qint16>(value));
}

} // namespace

class TstPlantSimulator : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void pollBlocks_data();
    void pollBlocks();
    void profileRunsToTheEndState();

private:
    Result read(int node, QModbusDataUnit::RegisterType type, int start, int count) const;

    std::unique_ptr<SimPlant> plant_;
    std::unique_ptr<SimServer> server_;
    std::unique_ptr<QModbusTcpClient> client_;
};

Result TstPlantSimulator::read(int node, QModbusDataUnit::RegisterType type, int start,
                               int count) const {
    Result r;
    QModbusReply* reply =
        client_->sendReadRequest(QModbusDataUnit(type, start, static_cast<quint16>(count)), node);
    if (!reply)
        return r;
    if (!reply->isFinished())
        QSignalSpy(reply, &QModbusReply::finished).wait(1000);
    r.finished = reply->isFinished();
    if (!r.finished)
        return r; // left to the client, which owns it
    r.error = reply->error();
    r.values = reply->result().values();
    reply->deleteLater();
    return r;
}

void TstPlantSimulator::init() {
    plant_ = std::make_unique<SimPlant>();
    QString error;
    QVERIFY2(plant_->loadText(QString::fromLatin1(kPlant), &error), qPrintable(error));
    server_ = std::make_unique<SimServer>(plant_.get());
    QVERIFY(server_->listen());
    client_ = std::make_unique<QModbusTcpClient>();
    client_->setConnectionParameter(QModbusDevice::NetworkAddressParameter, "127.0.0.1");
    client_->setConnectionParameter(QModbusDevice::NetworkPortParameter, server_->port());
    client_->setTimeout(kClientTimeout);
    client_->setNumberOfRetries(0);
    client_->connectDevice();
    QTRY_COMPARE(client_->state(), QModbusDevice::ConnectedState);
}

void TstPlantSimulator::cleanup() {
    client_.reset();
    server_.reset();
    plant_.reset();
}

// The poll block of each family, word by word (-1: not pinned): the words the workstation
// decodes, pinned here so that the simulator and the decoder cannot agree on a wrong value.
void TstPlantSimulator::pollBlocks_data() {
    QTest::addColumn<int>("node");
    QTest::addColumn<QList<int>>("words");
    QTest::newRow("K40 decimal 1") << 1 << QList<int>{21484, 21499, -1, 0, 0x1100};
    QTest::newRow("K40 decimal 0") << 2 << QList<int>{20019, 20199, 10000, 0, 0x1000};
    QTest::newRow("K40 decimal 2") << 3 << QList<int>{20349, 20424, -1, 0, 0x1200};
    QTest::newRow("K40 fixed tenths") << 4 << QList<int>{20799, 19874, 0, 0, 0x0100};
    QTest::newRow("K40 decimal 3") << 10 << QList<int>{21499, 21499, -1, 0, 0x1300};
    QTest::newRow("K8") << 5 << QList<int>{word(-50), 755, 755, 10000, -1, -1, 0, -1, 0};
    QTest::newRow("K20") << 6 << QList<int>{-1, 1200, 1200, -1, -1, -1, 0, -1, 0};
}

void TstPlantSimulator::pollBlocks() {
    QFETCH(int, node);
    QFETCH(QList<int>, words);
    // K40 blocks are holding registers from 129, the profilers' input registers from 1001.
    const bool k40 = words.size() == 5;
    const Result r =
        read(node, k40 ? QModbusDataUnit::HoldingRegisters : QModbusDataUnit::InputRegisters,
             k40 ? 129 : 1001, static_cast<int>(words.size()));
    QVERIFY(r.ok());
    QCOMPARE(r.values.size(), words.size());
    for (int i = 0; i < words.size(); ++i) {
        if (words.at(i) >= 0)
            QCOMPARE(int(r.values.at(i)), words.at(i));
    }
}

// The bank overview stops a profile that reports 17: the simulator must get there by itself.
void TstPlantSimulator::profileRunsToTheEndState() {
    SimPlant plant;
    QVERIFY(plant.loadText("7 K20 sp=20 profile=40:1:1\n", nullptr));
    plant.setReg(7, 1082, 1); // run
    QCOMPARE(plant.profileState(7), 1);
    for (int i = 0; i < 40 && plant.profileState(7) != 17; ++i)
        plant.step(1.0); // a minute of the profile lasts a second
    QCOMPARE(plant.profileState(7), 17);
    plant.setReg(7, 1082, 0); // the workstation's stop
    QCOMPARE(plant.profileState(7), 0);
}

QTEST_GUILESS_MAIN(TstPlantSimulator)
#include "tst_plant_simulator.moc"
