#include "platform/modctl.h"
#include "platform/qt_modbus_backend.h"
#include "sim_plant.h"
#include "sim_server.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QModbusRtuSerialServer>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {
constexpr int kTimeoutMs = 300;

// A link control set up for one transaction, with its last outcome kept: 0 for a good read or
// write, else the error code.
struct Probe {
    Modctl ctl;
    int events = 0;
    int last = 99;

    Probe(int node, int area, int first, int count, int direction = 0) {
        ctl.prepare(node, area, first, count, direction);
        QObject::connect(&ctl, &Modctl::readComplete, [this] { done(0); });
        QObject::connect(&ctl, &Modctl::writeComplete, [this] { done(0); });
        QObject::connect(&ctl, &Modctl::error, [this](int code) { done(code); });
    }
    void done(int code) {
        last = code;
        ++events;
    }

    // Starts the transaction and waits for its outcome; 99 when none came.
    int run() {
        const int before = events;
        ctl.start();
        return QTest::qWaitFor([&] { return events != before; }, 6000) ? last : 99;
    }

    // Asks again and again until a transaction succeeds or a few seconds have passed: the link
    // heals by itself after a fault, without anyone restarting it.
    int runOnceHealed() {
        QElapsedTimer t;
        t.start();
        int code = run();
        for (; code != 0 && t.elapsed() < 8000; code = run())
            QTest::qWait(100);
        return code;
    }
};
} // namespace

class TstModbusLink : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void readsBothFamiliesOverTheSharedConnection();
    void writesAndExceptionsMapToLoggerCodes();
    void deadNodeTimesOutAndLateReplyIsIgnored();
    void brokenRepliesFailAndTheLinkHeals();
    void aBoxOpenOnAReplyOutlivesARebuildOfTheLink();
    void rtuThroughAPtyPair();

private:
    std::unique_ptr<sim::SimPlant> m_plant;
    std::unique_ptr<sim::SimServer> m_server;
};

void TstModbusLink::init() {
    m_plant = std::make_unique<sim::SimPlant>();
    QString error;
    QVERIFY2(m_plant->loadText("1 K40 decimal=1 scaled=1 sp=150 pv=120\n"
                               "2 K40 decimal=2 scaled=1 sp=5.5\n"
                               "5 K8 sp=25 pv=20\n",
                               &error),
             qPrintable(error));
    m_server = std::make_unique<sim::SimServer>(m_plant.get());
    QVERIFY(m_server->listen(QHostAddress::LocalHost, 0));
    LinkSettings s;
    s.port = m_server->port();
    s.timeoutMs = kTimeoutMs;
    installModbusBackend(std::make_unique<QtModbusBackend>(s));
}

void TstModbusLink::cleanup() {
    installModbusBackend(nullptr);
    m_server.reset();
    m_plant.reset();
}

void TstModbusLink::readsBothFamiliesOverTheSharedConnection() {
    Probe k40(1, 3, 129, 5);
    Probe k8(5, 2, 1001, 9);
    // Both in flight at once on the one connection.
    k40.ctl.start();
    k8.ctl.start();
    QTRY_COMPARE_WITH_TIMEOUT(k40.events + k8.events, 2, 5000);
    // K40: PV and SP in tenths over the offset, scaled by decimal code 1; K8: plain tenths.
    QCOMPARE((QList<int>{k40.last, k8.last, k40.ctl.longData(0), k40.ctl.longData(1),
                         k40.ctl.data(4) & 0x1300, k8.ctl.data(0), k8.ctl.data(1)}),
             (QList<int>{0, 0, 19999 + 1200, 19999 + 1500, 0x1100, 200, 250}));
    QCOMPARE(m_server->connectionCount(), 1);
}

void TstModbusLink::writesAndExceptionsMapToLoggerCodes() {
    Probe sp(1, 3, 1, 1, 1);
    sp.ctl.setLongData(0, 19999 + 15000); // 1500.0: a word above 32767
    Probe k8sp(5, 3, 1003, 1, 1);
    k8sp.ctl.setData(0, -15);
    QCOMPARE((QList<int>{sp.run(), k8sp.run()}), (QList<int>{0, 0}));
    QCOMPARE(std::pair(m_plant->sp(1), m_plant->sp(5)), std::pair(1500.0, -1.5));
    // An input register cannot be written: refused before it reaches the wire.
    QCOMPARE(Probe(5, 2, 1001, 1, 1).run(), 1);

    QCOMPARE(Probe(1, 3, 4000, 2).run(), 2);
    Probe busy(2, 3, 129, 5);
    for (auto [exception, code] : {std::pair{6, 16}, {11, 18}, {3, 3}, {0, 0}}) {
        m_server->setException(2, exception);
        QCOMPARE(busy.run(), code);
    }
}

void TstModbusLink::deadNodeTimesOutAndLateReplyIsIgnored() {
    QElapsedTimer t;
    t.start();
    QCOMPARE(Probe(9, 3, 129, 5).run(), -3); // not in the plant
    QVERIFY2(t.elapsed() < kTimeoutMs + 700, qPrintable(QString::number(t.elapsed())));
    // A reply that comes after the time-out must not be taken for the next request's.
    m_server->setDelay(1, kTimeoutMs + 200);
    QCOMPARE(Probe(1, 3, 129, 5).run(), -3);
    m_server->setDelay(1, 0);
    Probe next(2, 3, 129, 5);
    QCOMPARE(next.run(), 0);
    QCOMPARE(next.ctl.longData(1), 19999 + 550);
    QTest::qWait(300);
    QCOMPARE(next.run(), 0);
    QCOMPARE(next.ctl.longData(1), 19999 + 550);
}

// A reply cut short ends by the watchdog, a garbled one must not pass as a good read; either
// way the link heals by itself once the replies are clean again.
void TstModbusLink::brokenRepliesFailAndTheLinkHeals() {
    m_server->setCut(1, true);
    Probe p(1, 3, 129, 5);
    QVERIFY(QList<int>({-3, -1, -2}).contains(p.run()));
    m_server->setCut(1, false);
    QCOMPARE(p.runOnceHealed(), 0);

    m_server->setGarble(2, true);
    Probe q(2, 3, 129, 5);
    QVERIFY(q.run() != 0);
    m_server->setGarble(2, false);
    QCOMPARE(q.runOnceHealed(), 0);
    QCOMPARE(q.ctl.longData(1), 19999 + 550);
}

// A window shows its message box from the reply's event; while it stands the poll times out
// on a dead node and the link is rebuilt. Shut, the box returns into nothing of the old link.
void TstModbusLink::aBoxOpenOnAReplyOutlivesARebuildOfTheLink() {
    Probe dead(9, 3, 129, 5);
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (!dead.ctl.busy())
            dead.ctl.start();
    });
    Probe shown(1, 3, 129, 5);
    QObject::connect(&shown.ctl, &Modctl::readComplete, [&] {
        poll.start(20);
        QEventLoop box;
        QTimer::singleShot(6 * kTimeoutMs, &box, &QEventLoop::quit);
        box.exec();
        poll.stop();
    });
    QCOMPARE(shown.run(), 0);
    QVERIFY(dead.events >= 3);
    QCOMPARE(shown.runOnceHealed(), 0);
}

void TstModbusLink::rtuThroughAPtyPair() {
    const QString socat = QStandardPaths::findExecutable("socat");
    if (socat.isEmpty())
        QSKIP("socat is not installed; the RTU line cannot be simulated");
    QTemporaryDir dir;
    const QString a = dir.filePath("ttyA");
    const QString b = dir.filePath("ttyB");
    QProcess pair;
    pair.start(socat, {"-d", "pty,raw,echo=0,link=" + a, "pty,raw,echo=0,link=" + b});
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(a) && QFile::exists(b), 5000);
    auto stop = qScopeGuard([&] {
        installModbusBackend(nullptr);
        pair.terminate();
        pair.waitForFinished(2000);
    });

    QModbusRtuSerialServer slave;
    slave.setConnectionParameter(QModbusDevice::SerialPortNameParameter,
                                 QFileInfo(b).canonicalFilePath());
    slave.setConnectionParameter(QModbusDevice::SerialBaudRateParameter, 19200);
    slave.setServerAddress(7);
    const auto holding = QModbusDataUnit::HoldingRegisters;
    slave.setMap({{holding, QModbusDataUnit(holding, 129, {21234, 0, 0, 0, 0x1100})}});
    QVERIFY(slave.connectDevice());

    LinkSettings s;
    s.mode = LinkSettings::Mode::Rtu;
    s.serialPort = QFileInfo(a).canonicalFilePath();
    s.baudRate = 19200;
    s.timeoutMs = 500;
    installModbusBackend(std::make_unique<QtModbusBackend>(s));
    Probe p(7, 3, 129, 5);
    QCOMPARE(p.run(), 0);
    QCOMPARE(std::pair(p.ctl.longData(0), p.ctl.data(4)), std::pair(21234, qint16(0x1100)));
    QCOMPARE(Probe(8, 3, 129, 5).run(), -3); // nobody answers unit 8 on the line
}

QTEST_MAIN(TstModbusLink)
#include "tst_modbus_link.moc"
