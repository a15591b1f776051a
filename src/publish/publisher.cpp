#include "publisher.h"

#include "plant/frm_logger.h"
#include "platform/clock.h"
#include "platform/mqtt_link.h"
#include "security/session.h"

#include <QEventLoop>

Publisher::Publisher(MqttLink* link, QObject* parent) : QObject(parent), m_link(link) {
    if (!m_link->parent())
        m_link->setParent(this);
    m_state = tr("Not publishing");
    m_tick.setInterval(kTickMs);
    connect(&m_tick, &QTimer::timeout, this, &Publisher::tick);
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &Publisher::connectNow);
    connect(m_link, &MqttLink::connected, this, &Publisher::onConnected);
    connect(m_link, &MqttLink::lost, this, &Publisher::onLost);
    connect(m_link, &MqttLink::delivered, this, &Publisher::onDelivered);
    connect(&recordNotices(), &RecordNotices::alarm, this, [this](const AlarmNotice& notice) {
        if (m_running)
            enqueue(OutMessage::Kind::Event, root() + QStringLiteral("/alarms"),
                    alarmMessage(notice, m_config.station), false);
    });
    connect(&recordNotices(), &RecordNotices::audit, this, [this](const AuditNotice& notice) {
        if (m_running && m_config.auditEvents)
            enqueue(OutMessage::Kind::Event, root() + QStringLiteral("/audit"),
                    auditMessage(notice, m_config.station), false);
    });
}

Publisher::~Publisher() {
    stop(0);
}

void Publisher::apply(const PublishConfig& config) {
    const bool restart = !m_running || !config.enabled || !config.sameTarget(m_config) ||
                         config.site != m_config.site || config.station != m_config.station;
    if (!config.enabled || restart)
        stop(m_running ? 500 : 0);
    m_config = config;
    if (!config.enabled)
        return;
    if (!m_running) {
        m_running = true;
        m_queue = PublishQueue(kQueueCapacity);
        m_inFlight.clear();
        m_last.fill(std::nullopt);
        m_lastInfo.fill({});
        m_retryMs = kRetryFirstMs;
        m_lastTrouble.clear();
        m_tick.start();
        connectNow();
    }
}

void Publisher::stop(int waitMs) {
    if (!m_running)
        return;
    m_running = false;
    m_tick.stop();
    m_retry.stop();
    if (m_link->state() == MqttLink::State::Connected) {
        const int id = m_link->publish(root() + QStringLiteral("/status"),
                                       statusMessage(false, currentDateTime()), true);
        if (id >= 0 && waitMs > 0) {
            // The broker's word that it holds the status, or the time given: a broker that
            // does not answer sends the will later, which says the same.
            QEventLoop wait;
            QTimer::singleShot(waitMs, &wait, &QEventLoop::quit);
            const auto done = connect(m_link, &MqttLink::delivered, &wait, [&](int got) {
                if (got == id)
                    wait.quit();
            });
            connect(m_link, &MqttLink::lost, &wait, &QEventLoop::quit);
            wait.exec(QEventLoop::ExcludeUserInputEvents);
            disconnect(done);
        }
    }
    m_link->close();
    m_inFlight.clear();
    setState(tr("Not publishing"), false);
}

void Publisher::connectNow() {
    if (!m_running)
        return;
    MqttOptions o;
    o.host = m_config.host;
    o.port = m_config.port;
    o.tls = m_config.tls;
    o.caFile = m_config.caFile;
    o.user = m_config.user;
    o.password = m_config.password;
    o.clientId = QStringLiteral("sorvantel-%1-%2").arg(m_config.site, m_config.station).left(120);
    o.willTopic = root() + QStringLiteral("/status");
    o.willPayload = statusMessage(false, {});
    setState(tr("Connecting to %1:%2").arg(m_config.host).arg(m_config.port), false);
    m_link->open(o);
}

void Publisher::onConnected() {
    m_retryMs = kRetryFirstMs;
    m_lastTrouble.clear();
    setState(tr("Connected to %1:%2").arg(m_config.host).arg(m_config.port), true);
    // Values first, fresh: what waited of them is older than what the store holds now.
    m_queue.dropValues();
    m_queue.pushFront(snapshot());
    pump();
}

void Publisher::onLost(const QString& why) {
    // Events handed over but not confirmed go again; values come fresh with the next snapshot.
    QList<OutMessage> again;
    QList<int> ids = m_inFlight.keys();
    std::sort(ids.begin(), ids.end());
    for (const int id : ids)
        if (m_inFlight[id].kind == OutMessage::Kind::Event)
            again.append(m_inFlight[id]);
    m_inFlight.clear();
    m_queue.pushFront(again);
    if (!m_running)
        return;
    const int seconds = m_retryMs / 1000;
    setState(tr("Not connected: %1; trying again in %2 s").arg(why).arg(seconds),
             why != m_lastTrouble);
    m_lastTrouble = why;
    m_retry.start(m_retryMs);
    m_retryMs = std::min(m_retryMs * 2, kRetryMostMs);
}

void Publisher::onDelivered(int id) {
    if (m_inFlight.remove(id))
        ++m_sent;
    pump();
}

void Publisher::pump() {
    while (m_running && m_link->state() == MqttLink::State::Connected &&
           m_inFlight.size() < kWindow && !m_queue.isEmpty()) {
        OutMessage message = m_queue.takeFirst();
        const int id = m_link->publish(message.topic, message.payload, message.retain);
        if (id < 0) {
            m_queue.pushFront({message});
            return;
        }
        m_inFlight.insert(id, std::move(message));
    }
}

QList<OutMessage> Publisher::snapshot() {
    QList<OutMessage> all;
    const QString base = root();
    all.append({OutMessage::Kind::Value, base + QStringLiteral("/status"),
                statusMessage(true, currentDateTime()), true});
    const QDateTime now = currentDateTime();
    for (int i = 0; i < gActiveCount; ++i) {
        const int row = gActiveList.value(i) - 1;
        if (!validRow(row))
            continue;
        m_lastInfo[row] = infoMessage(row);
        all.append({OutMessage::Kind::Value, controllerTopic(base, row, QStringLiteral("info")),
                    m_lastInfo[row], true});
        m_last[row] = readControllerValues(row);
        m_lastMs[row] = now.toMSecsSinceEpoch();
        all.append({OutMessage::Kind::Value, controllerTopic(base, row, QStringLiteral("values")),
                    valuesMessage(*m_last[row], now), true});
    }
    return all;
}

void Publisher::tick() {
    if (!m_running)
        return;
    const QDateTime now = currentDateTime();
    const qint64 ms = now.toMSecsSinceEpoch();
    const QString base = root();
    std::array<bool, kControllerCount> scanned{};
    for (int i = 0; i < gActiveCount; ++i) {
        const int row = gActiveList.value(i) - 1;
        if (!validRow(row))
            continue;
        scanned[size_t(row)] = true;
        const QByteArray info = infoMessage(row);
        if (info != m_lastInfo[row]) {
            m_lastInfo[row] = info;
            enqueue(OutMessage::Kind::Value, controllerTopic(base, row, QStringLiteral("info")),
                    info, true);
        }
        ControllerValues values = readControllerValues(row);
        const bool due = !m_last[row] || values.differsFrom(*m_last[row], m_config.deadBand) ||
                         ms - m_lastMs[row] >= qint64(m_config.maxIntervalS) * 1000 ||
                         ms < m_lastMs[row];
        if (!due)
            continue;
        enqueue(OutMessage::Kind::Value, controllerTopic(base, row, QStringLiteral("values")),
                valuesMessage(values, now), true);
        m_last[row] = std::move(values);
        m_lastMs[row] = ms;
    }
    // A controller no longer scanned leaves the broker: an empty retained message removes its
    // topics.
    for (int row = 0; row < kControllerCount; ++row) {
        if (scanned[size_t(row)] || m_lastInfo[row].isEmpty())
            continue;
        m_lastInfo[row].clear();
        m_last[row].reset();
        enqueue(OutMessage::Kind::Value, controllerTopic(base, row, QStringLiteral("info")), {},
                true);
        enqueue(OutMessage::Kind::Value, controllerTopic(base, row, QStringLiteral("values")), {},
                true);
    }
}

void Publisher::enqueue(OutMessage::Kind kind, const QString& topic, const QByteArray& payload,
                        bool retain) {
    m_queue.push({kind, topic, payload, retain});
    pump();
}

void Publisher::setState(const QString& text, bool toLogger) {
    m_state = text;
    if (toLogger)
        if (FrmLogger* logger = frmLogger())
            logger->appendLine(tr("Publishing: %1").arg(text));
    emit stateChanged(text);
}
