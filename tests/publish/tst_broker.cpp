// Publishing to a real broker: Debian's mosquitto, started by each test on a free loopback port
// and stopped by it, and mosquitto_sub reading what a subscriber would.
#include "app/frm_main.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "platform/mqtt_link.h"
#include "publish/publisher.h"
#include "records/alarm_log.h"
#include "support/test_env.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <csignal>
#include <unistd.h>

namespace {

int freePort() {
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// One broker of the test's own; killed with the test.
class Broker {
public:
    explicit Broker(const QString& folder, QStringList extra = {}, int onPort = 0)
        : m_folder(folder) {
        port = onPort > 0 ? onPort : freePort();
        // Run as root, the broker would drop to its own account and no longer read the test's
        // files.
        if (::geteuid() == 0)
            extra << QStringLiteral("user root");
        QFile conf(m_folder + QStringLiteral("/mosquitto-%1.conf").arg(port));
        conf.open(QIODevice::WriteOnly);
        conf.write(QStringLiteral("listener %1 127.0.0.1\nallow_anonymous true\npersistence "
                                  "false\nlog_dest none\n")
                       .arg(port)
                       .toUtf8());
        for (const QString& line : extra)
            conf.write(line.toUtf8() + '\n');
        conf.close();
        m_conf = conf.fileName();
    }
    ~Broker() { kill(); }
    bool start() {
        m_process.start(QStringLiteral("mosquitto"), {QStringLiteral("-c"), m_conf});
        if (!m_process.waitForStarted(5000))
            return false;
        // Ready when it takes a connection.
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < 5000) {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, quint16(port));
            if (probe.waitForConnected(200))
                return true;
            QTest::qWait(50);
        }
        return false;
    }
    void kill() {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(3000);
        }
    }
    int port = 0;

private:
    QString m_folder;
    QString m_conf;
    QProcess m_process;
};

// mosquitto_sub on everything the station publishes: "topic payload" a line.
class Subscriber {
public:
    explicit Subscriber(int port) : m_port(port) {
        m_process.start(QStringLiteral("mosquitto_sub"),
                        QStringList{"-h", "127.0.0.1", "-p", QString::number(port), "-t",
                                    "sorvantel/#", "-v", "-q", "1"});
        m_process.waitForStarted(5000);
    }
    ~Subscriber() {
        m_process.kill();
        m_process.waitForFinished(3000);
    }
    // Subscribed once a probe published beside it comes through.
    bool subscribed(int ms = 10000) {
        return QTest::qWaitFor(
            [&] {
                QProcess::execute(QStringLiteral("mosquitto_pub"),
                                  {"-h", "127.0.0.1", "-p", QString::number(m_port), "-t",
                                   "sorvantel/probe", "-m", "{}"});
                return !payloads(QStringLiteral("sorvantel/probe")).isEmpty();
            },
            ms);
    }
    // The payloads of a topic, in order.
    QList<QByteArray> payloads(const QString& topic) {
        read();
        QList<QByteArray> out;
        for (const QByteArray& line : std::as_const(m_lines))
            if (line.startsWith(topic.toUtf8() + ' '))
                out << line.mid(topic.toUtf8().size() + 1);
        return out;
    }
    QJsonObject last(const QString& topic) {
        const QList<QByteArray> all = payloads(topic);
        return all.isEmpty() ? QJsonObject() : QJsonDocument::fromJson(all.last()).object();
    }
    bool waitFor(const QString& topic, const std::function<bool(const QJsonObject&)>& test,
                 int ms = 10000) {
        return QTest::qWaitFor(
            [&] {
                for (const QByteArray& p : payloads(topic))
                    if (test(QJsonDocument::fromJson(p).object()))
                        return true;
                return false;
            },
            ms);
    }
    // Every message a subscriber got: each payload one JSON object, or empty (a topic removed).
    QStringList malformed() {
        read();
        QStringList bad;
        for (const QByteArray& line : std::as_const(m_lines)) {
            const qsizetype space = line.indexOf(' ');
            const QByteArray payload = space < 0 ? QByteArray() : line.mid(space + 1);
            if (!payload.isEmpty() && !QJsonDocument::fromJson(payload).isObject())
                bad << QString::fromUtf8(line);
        }
        return bad;
    }

private:
    void read() {
        m_buffer += m_process.readAllStandardOutput();
        qsizetype end;
        while ((end = m_buffer.indexOf('\n')) >= 0) {
            const QByteArray line = m_buffer.left(end);
            m_buffer.remove(0, end + 1);
            m_lines << line;
        }
    }
    QProcess m_process;
    int m_port;
    QByteArray m_buffer;
    QList<QByteArray> m_lines;
};

PublishConfig to(int port) {
    PublishConfig c;
    c.enabled = true;
    c.port = port;
    c.site = QStringLiteral("mill");
    c.station = QStringLiteral("cr1");
    c.maxIntervalS = 5;
    return c;
}

const QString kRoot = QStringLiteral("sorvantel/mill/cr1");

// Runs a command of the test's own (openssl, mosquitto_passwd); true when it ended well.
bool run(const QString& program, const QStringList& arguments, const QString& folder) {
    QProcess p;
    p.setWorkingDirectory(folder);
    p.start(program, arguments);
    return p.waitForFinished(30000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

// An authority and a certificate for localhost and 127.0.0.1 signed by it.
bool makeCertificates(const QString& folder, const QString& authority) {
    const QStringList ec{"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"};
    QFile ext(folder + "/san.ext");
    ext.open(QIODevice::WriteOnly);
    ext.write("subjectAltName=DNS:localhost,IP:127.0.0.1\n");
    ext.close();
    return run("openssl",
               QStringList{"req", "-x509"} + ec +
                   QStringList{"-keyout", authority + ".key", "-out", authority + ".crt", "-days",
                               "2", "-subj", "/CN=" + authority},
               folder) &&
           run("openssl",
               QStringList{"req"} + ec +
                   QStringList{"-keyout", "server.key", "-out", "server.csr", "-subj",
                               "/CN=localhost"},
               folder) &&
           run("openssl",
               {"x509", "-req", "-in", "server.csr", "-CA", authority + ".crt", "-CAkey",
                authority + ".key", "-CAcreateserial", "-out", "server.crt", "-days", "2",
                "-extfile", "san.ext"},
               folder);
}

} // namespace

class TstBroker : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void plantValuesQualityAndAlarmsReachASubscriber();
    void theWillSaysOfflineWhenTheWorkstationIsKilled();
    void aBrokerRestartedMidRunGetsASnapshotAndTheWaitingEvents();
    void tlsWithTheTestsOwnAuthority();
    void refusalsSayWhyAndNeverBlock_data();
    void refusalsSayWhyAndNeverBlock();
};

void TstBroker::initTestCase() {
    if (QStandardPaths::findExecutable("mosquitto").isEmpty() &&
        !QFile::exists("/usr/sbin/mosquitto"))
        QFAIL("mosquitto is not installed: scripts/install-deps.sh installs it");
}

void TstBroker::plantValuesQualityAndAlarmsReachASubscriber() {
    TestEnv env;
    QTemporaryDir dir;
    Broker broker(dir.path());
    QVERIFY(broker.start());
    Subscriber sub(broker.port);
    QVERIFY(sub.subscribed());
    // Two K40s polled through the link double; node 2 stops answering.
    env.modbus->manual = true;
    for (int node : {1, 2}) {
        gControlEnabled[node - 1] = true;
        gPvTag[node - 1] = QStringLiteral("TIC-10%1").arg(node);
    }
    env.modbus->setRegisters(1, 3, 129, {22049, 22049, 2500, 0, 0x1100});
    env.modbus->setRegisters(2, 3, 129, {20649, 20649, 2500, 0, 0x1200});
    buildActiveList();
    auto* main = new FrmMain;
    PollCycle& poll = main->scan().poll();
    poll.readDone = true;
    auto cycle = [&](int ticks) {
        env.tickPoll(poll, ticks);
    };
    cycle(4);
    main->publisher().apply(to(broker.port));
    QVERIFY(sub.waitFor(kRoot + "/status", [](auto& o) { return o.value("state") == "online"; }));
    QVERIFY(sub.waitFor(kRoot + "/1/values",
                        [](auto& o) { return o.value("pv").toDouble() == 205.0; }));
    QCOMPARE(sub.last(kRoot + "/2/info").value("pvTag"), "TIC-102");
    QCOMPARE(sub.last(kRoot + "/2/values").value("quality"), "good");

    env.modbus->nodes[2].dead = true;
    cycle(12); // two reads of node 2 lost
    QVERIFY(
        sub.waitFor(kRoot + "/2/values", [](auto& o) { return o.value("quality") == "no reply"; }));
    QCOMPARE(sub.last(kRoot + "/1/values").value("quality"), "good");

    AlarmLog alarms;
    gAlarmState[0] = 1;
    alarms.timer1Tick();
    QVERIFY(sub.waitFor(kRoot + "/alarms", [](auto& o) {
        return o.value("event") == "raised" && o.value("tagname") == "TIC-101 Alm# 1";
    }));
    QCOMPARE(sub.malformed(), QStringList());
    delete main; // says offline on its way
    QVERIFY(sub.waitFor(kRoot + "/status", [](auto& o) { return o.value("state") == "offline"; }));
}

void TstBroker::theWillSaysOfflineWhenTheWorkstationIsKilled() {
    QTemporaryDir dir;
    Broker broker(dir.path());
    QVERIFY(broker.start());
    Subscriber sub(broker.port);
    QVERIFY(sub.subscribed());
    QProcess station;
    station.start(QStringLiteral(PUBLISH_CHILD), {QString::number(broker.port)});
    QVERIFY(station.waitForStarted(5000));
    QVERIFY(sub.waitFor(kRoot + "/status", [](auto& o) { return o.value("state") == "online"; }));
    QVERIFY(sub.waitFor(kRoot + "/1/values", [](auto& o) { return o.value("pv") == 42.5; }));
    ::kill(pid_t(station.processId()), SIGKILL);
    station.waitForFinished(3000);
    QVERIFY(sub.waitFor(
        kRoot + "/status",
        [](auto& o) { return o.value("state") == "offline" && !o.contains("since"); }, 5000));
}

void TstBroker::aBrokerRestartedMidRunGetsASnapshotAndTheWaitingEvents() {
    TestEnv env;
    QTemporaryDir dir;
    auto broker = std::make_unique<Broker>(dir.path());
    const int port = broker->port;
    QVERIFY(broker->start());
    gControlEnabled[0] = true;
    gPvTag[0] = QStringLiteral("TIC-1");
    gPV[0] = PlantValue(1.0);
    noteReadAnswered(0);
    buildActiveList();
    Publisher publisher(makeMosquittoLink(nullptr));
    publisher.apply(to(port));
    QTRY_VERIFY_WITH_TIMEOUT(publisher.stateText().startsWith("Connected"), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(publisher.queued(), 0, 5000);

    broker->kill();
    QTRY_VERIFY_WITH_TIMEOUT(publisher.stateText().startsWith("Not connected"), 10000);
    // Away for the first two tries: values change and alarm rows come and go meanwhile.
    for (int i = 0; i < 12; ++i) {
        gPV[0] = PlantValue(2.0 + i);
        publisher.tick();
        emit recordNotices().alarm({AlarmNotice::Kind::Raised,
                                    QStringLiteral("TIC-1 Alm# 1"),
                                    0,
                                    1,
                                    QString::number(i),
                                    env.clock->time,
                                    {}});
        QTest::qWait(300);
    }
    QVERIFY(publisher.dropped() > 0);
    broker = std::make_unique<Broker>(dir.path(), QStringList{}, port);
    QVERIFY(broker->start());
    Subscriber sub(port);
    QVERIFY(sub.subscribed());
    QVERIFY(sub.waitFor(
        kRoot + "/1/values", [](auto& o) { return o.value("pv") == 13.0; }, 20000));
    QTRY_COMPARE_WITH_TIMEOUT(sub.payloads(kRoot + "/alarms").size(), 12, 5000);
    QCOMPARE(QJsonDocument::fromJson(sub.payloads(kRoot + "/alarms").last()).object().value("pv"),
             "11");
    QCOMPARE(sub.malformed(), QStringList());
    publisher.stop(1000);
}

void TstBroker::tlsWithTheTestsOwnAuthority() {
    TestEnv env;
    QTemporaryDir dir;
    QVERIFY(makeCertificates(dir.path(), "testca"));
    QVERIFY(
        run("openssl",
            {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-keyout", "other.key", "-out", "other.crt", "-days", "2", "-subj", "/CN=other"},
            dir.path()));
    const int tlsPort = freePort();
    Broker broker(dir.path(),
                  {QStringLiteral("listener %1 127.0.0.1").arg(tlsPort),
                   "cafile " + dir.filePath("testca.crt"), "certfile " + dir.filePath("server.crt"),
                   "keyfile " + dir.filePath("server.key")});
    QVERIFY(broker.start());
    Subscriber sub(broker.port);
    QVERIFY(sub.subscribed());
    Publisher publisher(makeMosquittoLink(nullptr));
    PublishConfig c = to(tlsPort);
    c.host = QStringLiteral("localhost");
    c.tls = true;
    c.caFile = dir.filePath("testca.crt");
    publisher.apply(c);
    QVERIFY(sub.waitFor(kRoot + "/status", [](auto& o) { return o.value("state") == "online"; }));
    QVERIFY(publisher.stateText().startsWith("Connected to localhost:"));
    publisher.stop(1000);
    // Another authority: the broker is not trusted, and the station says why.
    c.caFile = dir.filePath("other.crt");
    publisher.apply(c);
    QTRY_VERIFY2_WITH_TIMEOUT(publisher.stateText().contains("not trusted"),
                              qPrintable(publisher.stateText()), 10000);
    c.caFile = dir.filePath("missing.crt");
    publisher.apply(c);
    QTRY_VERIFY_WITH_TIMEOUT(publisher.stateText().contains("cannot be read"), 10000);
    publisher.stop(0);
}

void TstBroker::refusalsSayWhyAndNeverBlock_data() {
    QTest::addColumn<QString>("host");
    QTest::addColumn<bool>("login");
    QTest::addColumn<bool>("closed");
    QTest::addColumn<QString>("said");
    QTest::newRow("bad password") << "127.0.0.1" << true << false << "refused";
    QTest::newRow("no such host") << "no-such-host.invalid" << false << false << "does not resolve";
    QTest::newRow("nothing listening") << "127.0.0.1" << false << true << "Connection refused";
}

void TstBroker::refusalsSayWhyAndNeverBlock() {
    QFETCH(QString, host);
    QFETCH(bool, login);
    QFETCH(bool, closed);
    QFETCH(QString, said);
    TestEnv env;
    QTemporaryDir dir;
    QVERIFY(run("mosquitto_passwd", {"-b", "-c", "passwd", "plant", "right"}, dir.path()));
    Broker broker(dir.path(),
                  login ? QStringList{"password_file " + dir.filePath("passwd")} : QStringList{});
    if (!closed)
        QVERIFY(broker.start());
    PublishConfig c = to(broker.port);
    c.host = host;
    c.user = QStringLiteral("plant");
    c.password = QStringLiteral("wrong");
    Publisher publisher(makeMosquittoLink(nullptr));
    // A timer of the event loop keeps its pace the whole time.
    QElapsedTimer clock;
    qint64 last = 0;
    qint64 worst = 0;
    QTimer pace;
    pace.setInterval(10);
    clock.start();
    QObject::connect(&pace, &QTimer::timeout, [&] {
        worst = std::max(worst, clock.elapsed() - last);
        last = clock.elapsed();
    });
    pace.start();
    publisher.apply(c);
    QTRY_VERIFY_WITH_TIMEOUT(publisher.stateText().contains(said), 15000);
    QVERIFY2(publisher.stateText().startsWith("Not connected: "),
             qPrintable(publisher.stateText()));
    QVERIFY2(worst < 250, qPrintable(QString::number(worst)));
    QVERIFY(!publisher.stateText().contains("wrong"));
    publisher.stop(0);
}

QTEST_MAIN(TstBroker)
#include "tst_broker.moc"
