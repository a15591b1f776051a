#pragma once

#include "plant/plant_store.h"
#include "publish_config.h"
#include "publish_messages.h"
#include "publish_queue.h"

#include <QHash>
#include <QObject>
#include <QTimer>
#include <array>
#include <optional>

class MqttLink;

// Publishes the plant to a broker, read-only: every scanned controller's tags and values as
// retained messages, alarm rows and (where the site wants them) audit lines as events, and the
// station's status, set to offline by the broker itself when the workstation dies. It reads the
// plant store on a timer of its own and never asks a controller anything; a broker that is away
// or slow costs the poll nothing: messages wait in a bounded queue and go when it is back.
class Publisher : public QObject {
    Q_OBJECT
public:
    static constexpr int kTickMs = 250;
    static constexpr int kQueueCapacity = 2000;
    static constexpr int kWindow = 32; // messages handed over and not yet confirmed
    static constexpr int kRetryFirstMs = 1000;
    static constexpr int kRetryMostMs = 30000;

    // Takes the link as its own where it has no parent.
    explicit Publisher(MqttLink* link, QObject* parent = nullptr);
    ~Publisher() override;

    // Starts, changes or stops publishing as the configuration says.
    void apply(const PublishConfig& config);
    // Says offline, waits up to waitMs for the broker to have it, and closes.
    void stop(int waitMs);

    const PublishConfig& config() const { return m_config; }
    QString stateText() const { return m_state; }
    quint64 sent() const { return m_sent; }
    quint64 dropped() const { return m_queue.dropped(); }
    int queued() const { return m_queue.size() + int(m_inFlight.size()); }
    QString root() const { return topicRoot(m_config.site, m_config.station); }

    // One look at the plant store: the values and tags now due go to the queue. The timer's.
    void tick();

signals:
    // The state line of the setup dialog: what the connection does, and why.
    void stateChanged(const QString& text);

private:
    void connectNow();
    void onConnected();
    void onLost(const QString& why);
    void onDelivered(int id);
    void pump();
    QList<OutMessage> snapshot();
    void enqueue(OutMessage::Kind kind, const QString& topic, const QByteArray& payload,
                 bool retain);
    void setState(const QString& text, bool toLogger);

    MqttLink* m_link;
    PublishConfig m_config;
    bool m_running = false;
    PublishQueue m_queue{kQueueCapacity};
    QHash<int, OutMessage> m_inFlight;
    quint64 m_sent = 0;
    QTimer m_tick;
    QTimer m_retry;
    int m_retryMs = kRetryFirstMs;
    QString m_state;
    QString m_lastTrouble; // the logger hears a trouble once, not at every retry
    std::array<std::optional<ControllerValues>, kControllerCount> m_last{};
    std::array<qint64, kControllerCount> m_lastMs{};
    std::array<QByteArray, kControllerCount> m_lastInfo{};
};
