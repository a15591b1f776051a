#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

// Where and how to reach a broker, and the message it is to publish if the connection dies.
struct MqttOptions {
    QString host;
    int port = 1883;
    bool tls = false;
    QString caFile; // with tls: the authority that signed the broker's certificate
    QString user;   // empty: no login
    QString password;
    QString clientId;
    QString willTopic;
    QByteArray willPayload; // retained, at least once
    int keepAliveS = 30;
    int connectTimeoutMs = 10000; // lookup, TCP, TLS and the broker's answer together
};

// A connection to an MQTT broker that only publishes: nothing is subscribed, so nothing can come
// back. Every message goes at least once (QoS 1) and counts as delivered when the broker says so.
// Nothing here blocks: a name that does not resolve, a host that does not answer or a broker that
// stops reading ends in lost(), never in a wait.
class MqttLink : public QObject {
    Q_OBJECT
public:
    enum class State { Closed, Connecting, Connected };
    using QObject::QObject;

    // One attempt: connected() or lost() follows. An open connection is closed first.
    virtual void open(const MqttOptions& options) = 0;
    // Says goodbye to the broker when connected (so the will is not sent) and closes.
    virtual void close() = 0;
    // Hands a message over; returns its id, or -1 when not connected.
    virtual int publish(const QString& topic, const QByteArray& payload, bool retain) = 0;
    virtual State state() const = 0;

signals:
    void connected();
    void delivered(int id);
    // The attempt failed, or the open connection went; the text says why, for the operator.
    void lost(const QString& why);
};

// The link over libmosquitto, driven by the event loop: its socket watched by notifiers, its
// housekeeping on a timer, names looked up by Qt before the library is given an address.
MqttLink* makeMosquittoLink(QObject* parent);
