// Publishing with a scripted broker connection: what goes out, when, in which order, and what
// waits or is dropped while the broker is away.
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "platform/mqtt_link.h"
#include "platform/secret_file.h"
#include "publish/frm_publishing.h"
#include "publish/publish_config.h"
#include "publish/publisher.h"
#include "records/alarm_log.h"
#include "records/audit_trail.h"
#include "security/session.h"
#include "support/test_env.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace {

// A broker connection that connects when told, keeps what is handed over, and confirms it when
// told.
class ScriptedLink final : public MqttLink {
public:
    struct Sent {
        int id;
        QString topic;
        QByteArray payload;
        bool retain;
    };
    MqttOptions options;
    QList<Sent> sent;
    State now = State::Closed;
    int nextId = 1;
    int opens = 0;

    void open(const MqttOptions& o) override {
        options = o;
        now = State::Connecting;
        ++opens;
    }
    void close() override { now = State::Closed; }
    int publish(const QString& topic, const QByteArray& payload, bool retain) override {
        if (now != State::Connected)
            return -1;
        sent.append({nextId, topic, payload, retain});
        return nextId++;
    }
    State state() const override { return now; }

    void accept() {
        now = State::Connected;
        emit connected();
    }
    void drop(const QString& why) {
        now = State::Closed;
        emit lost(why);
    }
    // Confirms everything handed over so far.
    void confirmAll() {
        for (const Sent& s : QList<Sent>(sent))
            if (!confirmed.contains(s.id)) {
                confirmed.insert(s.id);
                emit delivered(s.id);
            }
    }
    QSet<int> confirmed;

    QStringList topics() const {
        QStringList all;
        for (const Sent& s : sent)
            all << s.topic;
        return all;
    }
    QJsonObject last(const QString& topic) const {
        for (qsizetype i = sent.size() - 1; i >= 0; --i)
            if (sent[i].topic == topic)
                return QJsonDocument::fromJson(sent[i].payload).object();
        return {};
    }
};

PublishConfig config() {
    PublishConfig c;
    c.enabled = true;
    c.site = QStringLiteral("mill");
    c.station = QStringLiteral("cr1");
    c.deadBand = 0.5;
    c.maxIntervalS = 10;
    return c;
}

// K40s at nodes 1 and 3, answering.
void plant() {
    for (int row : {0, 2}) {
        gControlEnabled[row] = true;
        gPvTag[row] = QStringLiteral("TIC-%1").arg(row + 1);
        gSpTag[row] = gPvTag[row] + QStringLiteral(".SP");
        gPV[row] = PlantValue(QStringLiteral("100.0"));
        gSP[row] = PlantValue(QStringLiteral("120.0"));
        gDecimal[row] = 1;
        gPctOut[row] = 12.34f; // a float: 12.34000015... unless rounded back to the register's
        noteReadAnswered(row);
    }
    buildActiveList();
}

const QString kRoot = QStringLiteral("sorvantel/mill/cr1");

} // namespace

class TstPublisher : public QObject {
    Q_OBJECT
private slots:
    void snapshotThenChangesByDeadBandAndInterval();
    void brokerAwayQueuesBoundedAndResumesValuesFirst();
    void alarmAndAuditEventsAndLeavingControllers();
    void namesThatWouldChangeTheTopics_data();
    void namesThatWouldChangeTheTopics();
    void passwordKeptApartAndNeverInTheTrail();
};

void TstPublisher::snapshotThenChangesByDeadBandAndInterval() {
    TestEnv env;
    plant();
    auto& link = *new ScriptedLink; // the publisher's own
    Publisher publisher(&link);
    publisher.apply(config());
    QCOMPARE(link.opens, 1);
    QCOMPARE(link.options.willTopic, kRoot + "/status");
    QCOMPARE(QJsonDocument::fromJson(link.options.willPayload).object().value("state"), "offline");
    link.accept();
    // The station, then each controller's tags and values, all retained.
    QCOMPARE(link.topics(), (QStringList{kRoot + "/status", kRoot + "/1/info", kRoot + "/1/values",
                                         kRoot + "/3/info", kRoot + "/3/values"}));
    QVERIFY(std::all_of(link.sent.cbegin(), link.sent.cend(), [](auto& s) { return s.retain; }));
    QCOMPARE(link.last(kRoot + "/status").value("state"), "online");
    const QJsonObject v = link.last(kRoot + "/1/values");
    QCOMPARE(v.value("pv").toDouble(), 100.0);
    QCOMPARE(QJsonDocument(v).toJson(QJsonDocument::Compact).contains("\"out\":12.34,"), true);
    QCOMPARE(v.value("quality"), "good");
    QCOMPARE(v.value("time"), env.clock->time.toUTC().toString(Qt::ISODateWithMs));
    QCOMPARE(link.last(kRoot + "/3/info").value("pvTag"), "TIC-3");
    link.confirmAll();
    QCOMPARE(publisher.sent(), quint64(5));

    // Within the dead band: nothing; beyond it, an alarm bit or a held reading: at once.
    const qsizetype before = link.sent.size();
    gPV[0] = PlantValue(QStringLiteral("100.4"));
    publisher.tick();
    QCOMPARE(link.sent.size(), before);
    gPV[0] = PlantValue(QStringLiteral("100.6"));
    gAlarmState[2] = 2;
    publisher.tick();
    QCOMPARE(link.sent.size(), before + 2);
    QCOMPARE(link.last(kRoot + "/3/values").value("alarm2"), true);
    noteReadFailed(0, -3);
    noteReadFailed(0, -3);
    publisher.tick();
    QCOMPARE(link.last(kRoot + "/1/values").value("quality"), "no reply");
    noteReadFailed(2, -2);
    noteReadFailed(2, 2);
    publisher.tick();
    QCOMPARE(link.last(kRoot + "/3/values").value("quality"), "exception 2");
    // Unchanged, it goes again when the interval has passed, and not before.
    const qsizetype quiet = link.sent.size();
    env.clock->time = env.clock->time.addSecs(9);
    publisher.tick();
    QCOMPARE(link.sent.size(), quiet);
    env.clock->time = env.clock->time.addSecs(1);
    publisher.tick();
    QCOMPARE(link.sent.size(), quiet + 2);
}

void TstPublisher::brokerAwayQueuesBoundedAndResumesValuesFirst() {
    TestEnv env;
    plant();
    auto& link = *new ScriptedLink; // the publisher's own
    Publisher publisher(&link);
    publisher.apply(config());
    link.accept();
    link.confirmAll();
    // An alarm handed over but not confirmed when the broker goes: it goes again.
    emit recordNotices().alarm(
        {AlarmNotice::Kind::Raised, "TIC-1 Alm# 1", 0, 1, "101.0", env.clock->time, {}});
    QCOMPARE(link.topics().last(), kRoot + "/alarms");
    FrmLogger logger;
    link.drop(QStringLiteral("the connection to 127.0.0.1:1883 was lost"));
    QVERIFY(publisher.stateText().contains("was lost; trying again in 1 s"));
    // The logger hears a reason once, however often the retries meet it.
    QTRY_COMPARE(link.opens, 2);
    link.drop(QStringLiteral("the connection to 127.0.0.1:1883 was lost"));
    QVERIFY(publisher.stateText().contains("trying again in 2 s"));
    QCOMPARE(logger.text().count("Publishing: Not connected: the connection to 127.0.0.1:1883 "
                                 "was lost"),
             1);
    // Away: every change of a controller replaces its waiting value, counted as dropped.
    for (int i = 0; i < 50; ++i) {
        gPV[0] = PlantValue(QString::number(200 + i));
        env.clock->time = env.clock->time.addSecs(1);
        publisher.tick();
    }
    emit recordNotices().alarm(
        {AlarmNotice::Kind::Acknowledged, "TIC-1 Alm# 1", 0, 1, {}, env.clock->time, "jdoe"});
    QCOMPARE(publisher.dropped(), quint64(49 + 4)); // node 1's values, node 3's by the interval
    QCOMPARE(publisher.queued(), 4);                // two values, two events
    // Back: status and a fresh snapshot first, then the events in the order they happened.
    link.sent.clear();
    link.accept();
    QCOMPARE(link.topics(), (QStringList{kRoot + "/status", kRoot + "/1/info", kRoot + "/1/values",
                                         kRoot + "/3/info", kRoot + "/3/values", kRoot + "/alarms",
                                         kRoot + "/alarms"}));
    QCOMPARE(link.last(kRoot + "/1/values").value("pv").toDouble(), 249.0);
    QCOMPARE(QJsonDocument::fromJson(link.sent[5].payload).object().value("event"), "raised");
    QCOMPARE(QJsonDocument::fromJson(link.sent[6].payload).object().value("user"), "jdoe");

    // A broker that confirms nothing: never more than the window handed over, the rest waits
    // bounded, events kept over values.
    link.sent.clear();
    for (int i = 0; i < Publisher::kQueueCapacity + 100; ++i)
        emit recordNotices().alarm(
            {AlarmNotice::Kind::Cleared, "TIC-3 Alm# 2", 2, 2, {}, env.clock->time, "jdoe"});
    QCOMPARE(link.sent.size(), Publisher::kWindow - 7);
    QCOMPARE(publisher.queued(), Publisher::kQueueCapacity + Publisher::kWindow);
    link.confirmAll(); // those listed: the seven of the snapshot stay unconfirmed
    QCOMPARE(link.sent.size(), 2 * (Publisher::kWindow - 7));
}

void TstPublisher::alarmAndAuditEventsAndLeavingControllers() {
    TestEnv env;
    plant();
    auto& link = *new ScriptedLink; // the publisher's own
    Publisher publisher(&link);
    publisher.apply(config());
    link.accept();
    // Alarm rows from the alarm log itself; audit lines only where the site asks for them.
    AlarmLog alarms;
    gAlarmState[0] = 1;
    alarms.timer1Tick();
    const QJsonObject raised = link.last(kRoot + "/alarms");
    QCOMPARE((QStringList{raised.value("event").toString(), raised.value("tagname").toString()}),
             (QStringList{"raised", "TIC-1 Alm# 1"}));
    QCOMPARE(raised.value("node").toInt(), 1);
    QVERIFY(!link.sent.last().retain);
    systemAuditLine(QStringLiteral("System Started"));
    QVERIFY(!link.topics().contains(kRoot + "/audit"));
    PublishConfig withAudit = config();
    withAudit.auditEvents = true;
    publisher.apply(withAudit);
    QCOMPARE(link.opens, 1); // the same target: no new connection
    gUserId = QStringLiteral("jdoe");
    auditLine(QStringLiteral("SP change TIC-1 from 100 to 110"));
    QCOMPARE(link.last(kRoot + "/audit").value("action"), "SP change TIC-1 from 100 to 110");
    QCOMPARE(link.last(kRoot + "/audit").value("user"), "jdoe");

    // A controller taken out of the scan leaves the broker: empty retained messages.
    gControlEnabled[2] = false;
    buildActiveList();
    publisher.tick();
    QCOMPARE(link.sent.last().topic, kRoot + "/3/values");
    QVERIFY(link.sent.last().payload.isEmpty() && link.sent.last().retain);
    // Switched off: the station says it goes, and the connection closes.
    PublishConfig off = withAudit;
    off.enabled = false;
    publisher.apply(off);
    QCOMPARE(link.last(kRoot + "/status").value("state"), "offline");
    QCOMPARE(link.now, MqttLink::State::Closed);
    QCOMPARE(publisher.stateText(), "Not publishing");
}

void TstPublisher::namesThatWouldChangeTheTopics_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("problem");
    QTest::newRow("plain") << "Line 2 (north)"
                           << "";
    QTest::newRow("slash") << "a/b"
                           << "must not hold \"/\"";
    QTest::newRow("plus") << "a+"
                          << "must not hold \"+\"";
    QTest::newRow("hash") << "#"
                          << "must not hold \"#\"";
    QTest::newRow("control") << "a\tb"
                             << "control characters";
    QTest::newRow("dollar") << "$SYS"
                            << "must not begin with \"$\"";
    QTest::newRow("empty") << ""
                           << "is empty";
    QTest::newRow("long") << QString(65, u'x') << "longer than 64";
}

void TstPublisher::namesThatWouldChangeTheTopics() {
    QFETCH(QString, name);
    QFETCH(QString, problem);
    PublishConfig c = config();
    c.station = name;
    const QString said = publishConfigProblem(c);
    QCOMPARE(said.isEmpty(), problem.isEmpty());
    QVERIFY2(said.contains(problem) && (problem.isEmpty() || said.contains("station")),
             qPrintable(said));
}

void TstPublisher::passwordKeptApartAndNeverInTheTrail() {
    TestEnv env;
    PublishConfig c = config();
    c.user = QStringLiteral("plant");
    c.password = QStringLiteral("s3cret,pass");
    QString why;
    QVERIFY2(savePublishConfig(c, &why), qPrintable(why));
    for (const auto& [key, value] : env.settings->values.asKeyValueRange())
        QVERIFY2(!value.contains("s3cret"), qPrintable(key));
    QFile secret(secretPath(QStringLiteral("Sorvantel-broker.secret")));
    QCOMPARE(secret.permissions() &
                 (QFile::ReadGroup | QFile::ReadOther | QFile::WriteGroup | QFile::WriteOther),
             QFile::Permissions());
    QCOMPARE(loadPublishConfig(), c);
    PublishConfig other = c;
    other.password = QStringLiteral("n3w");
    const QString action = publishingAuditText(c, other);
    QVERIFY(action.startsWith("Publishing target changed to 127.0.0.1:1883"));
    QVERIFY(!action.contains("n3w") && !action.contains("s3cret"));
    c.password.clear();
    QVERIFY(savePublishConfig(c, &why) && !secret.exists());
}

QTEST_MAIN(TstPublisher)
#include "tst_publisher.moc"
