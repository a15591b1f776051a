#include "mqtt_link.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mosquitto.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <utility>

namespace {

// While connecting, the library is looked after often, since a TLS handshake that waits for the
// broker must not spin on a socket that is always writable; once connected, once a second keeps
// the keep-alive.
constexpr int kConnectingTickMs = 50;
constexpr int kConnectedTickMs = 1000;

// Where a context keeps the first fault its verification found, so that the reason survives
// however the library then reports the failed handshake (it may have freed the session by then).
int verifySlot() {
    static const int slot = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return slot;
}

int noteVerifyFault(int ok, X509_STORE_CTX* store) {
    if (ok)
        return ok;
    const auto* ssl = static_cast<const SSL*>(
        X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* fault =
        ssl ? static_cast<long*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), verifySlot())) : nullptr;
    if (fault && *fault == X509_V_OK)
        *fault = X509_STORE_CTX_get_error(store);
    return ok;
}

// The TLS context of one attempt: the broker's certificate must chain to the given authority and
// name the host as the operator typed it, although the library is given its address.
SSL_CTX* tlsContext(const MqttOptions& options, long* verifyFault, QString* why) {
    SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());
    if (!ctx) {
        *why = QStringLiteral("TLS cannot be set up on this machine");
        return nullptr;
    }
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, noteVerifyFault);
    SSL_CTX_set_ex_data(ctx, verifySlot(), verifyFault);
    if (SSL_CTX_load_verify_locations(ctx, options.caFile.toLocal8Bit().constData(), nullptr) !=
        1) {
        SSL_CTX_free(ctx);
        *why = QStringLiteral("the CA file %1 cannot be read as a certificate").arg(options.caFile);
        return nullptr;
    }
    X509_VERIFY_PARAM* param = SSL_CTX_get0_param(ctx);
    const QByteArray host = options.host.toUtf8();
    const int named = QHostAddress(options.host).isNull()
                          ? X509_VERIFY_PARAM_set1_host(param, host.constData(), 0)
                          : X509_VERIFY_PARAM_set1_ip_asc(param, host.constData());
    if (named != 1) {
        SSL_CTX_free(ctx);
        *why = QStringLiteral("the host name %1 cannot be checked against a certificate")
                   .arg(options.host);
        return nullptr;
    }
    return ctx;
}

class MosquittoLink final : public MqttLink {
public:
    explicit MosquittoLink(QObject* parent) : MqttLink(parent) {
        static const bool ready = [] {
            mosquitto_lib_init();
            // A broker that closes its end while a message is written must not end the process.
            std::signal(SIGPIPE, SIG_IGN);
            return true;
        }();
        Q_UNUSED(ready)
        m_tick.setTimerType(Qt::CoarseTimer);
        connect(&m_tick, &QTimer::timeout, this, [this] { housekeeping(); });
        m_deadline.setSingleShot(true);
        connect(&m_deadline, &QTimer::timeout, this, [this] {
            fail(QStringLiteral("no answer from %1:%2 within %3 s")
                     .arg(m_options.host)
                     .arg(m_options.port)
                     .arg(m_options.connectTimeoutMs / 1000));
        });
    }
    ~MosquittoLink() override { drop(); }

    void open(const MqttOptions& options) override {
        drop();
        m_options = options;
        m_state = State::Connecting;
        m_deadline.start(options.connectTimeoutMs);
        const QHostAddress literal(options.host);
        if (!literal.isNull()) {
            // A reverse lookup of an address could hang: an address goes to the library as it is.
            const quint64 attempt = m_attempt;
            QTimer::singleShot(0, this, [this, attempt, literal] {
                if (attempt == m_attempt)
                    start(literal);
            });
            return;
        }
        m_lookup = QHostInfo::lookupHost(options.host, this, [this](const QHostInfo& info) {
            m_lookup = -1;
            const QList<QHostAddress> all = info.addresses();
            if (info.error() != QHostInfo::NoError || all.isEmpty()) {
                fail(QStringLiteral("the name %1 does not resolve (%2)")
                         .arg(m_options.host, info.errorString()));
                return;
            }
            QHostAddress chosen = all.first();
            for (const QHostAddress& a : all)
                if (a.protocol() == QAbstractSocket::IPv4Protocol) {
                    chosen = a;
                    break;
                }
            start(chosen);
        });
    }

    void close() override {
        if (m_mosq && m_state == State::Connected) {
            // The goodbye goes out if the socket takes it now; a broker that does not read
            // sends the will later, which says no less than the truth.
            mosquitto_disconnect(m_mosq);
            mosquitto_loop_write(m_mosq, 1);
        }
        drop();
    }

    int publish(const QString& topic, const QByteArray& payload, bool retain) override {
        if (m_state != State::Connected || !m_mosq)
            return -1;
        int id = 0;
        const int rc = mosquitto_publish(m_mosq, &id, topic.toUtf8().constData(),
                                         int(payload.size()), payload.constData(), 1, retain);
        if (rc != MOSQ_ERR_SUCCESS) {
            const QString why = problem(rc);
            // Told after this call returns: the caller may be in the middle of its queue.
            const quint64 attempt = m_attempt;
            QTimer::singleShot(0, this, [this, attempt, why] {
                if (attempt == m_attempt)
                    fail(why);
            });
            return -1;
        }
        watch();
        return id;
    }

    State state() const override { return m_state; }

private:
    void start(const QHostAddress& address) {
        m_mosq = mosquitto_new(m_options.clientId.toUtf8().constData(), true, this);
        if (!m_mosq) {
            fail(QStringLiteral("the MQTT client cannot be made (%1)")
                     .arg(QString::fromLocal8Bit(std::strerror(errno))));
            return;
        }
        mosquitto_int_option(m_mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
        mosquitto_connect_callback_set(m_mosq, [](mosquitto*, void* self, int rc) {
            static_cast<MosquittoLink*>(self)->m_connack = rc;
        });
        mosquitto_disconnect_callback_set(m_mosq, [](mosquitto*, void* self, int rc) {
            auto* link = static_cast<MosquittoLink*>(self);
            link->m_gone = true;
            link->m_goneRc = rc;
        });
        mosquitto_publish_callback_set(m_mosq, [](mosquitto*, void* self, int id) {
            static_cast<MosquittoLink*>(self)->m_delivered.append(id);
        });
        if (!m_options.user.isEmpty())
            mosquitto_username_pw_set(m_mosq, m_options.user.toUtf8().constData(),
                                      m_options.password.toUtf8().constData());
        if (!m_options.willTopic.isEmpty())
            mosquitto_will_set(m_mosq, m_options.willTopic.toUtf8().constData(),
                               int(m_options.willPayload.size()), m_options.willPayload.constData(),
                               1, true);
        if (m_options.tls) {
            QString why;
            SSL_CTX* ctx = tlsContext(m_options, &m_verifyFault, &why);
            if (!ctx) {
                fail(why);
                return;
            }
            mosquitto_int_option(m_mosq, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
            mosquitto_void_option(m_mosq, MOSQ_OPT_SSL_CTX, ctx);
            SSL_CTX_free(ctx); // the client holds its own reference
        }
        const int rc = mosquitto_connect_async(m_mosq, address.toString().toLatin1().constData(),
                                               m_options.port, m_options.keepAliveS);
        if (rc != MOSQ_ERR_SUCCESS) {
            fail(QStringLiteral("cannot connect to %1:%2: %3")
                     .arg(m_options.host)
                     .arg(m_options.port)
                     .arg(problem(rc)));
            return;
        }
        m_tick.start(kConnectingTickMs);
        watch();
    }

    // The library's work for what the socket can do now, then what its callbacks said.
    void service(bool readable, bool writable) {
        if (!m_mosq)
            return;
        int rc = MOSQ_ERR_SUCCESS;
        const bool handshaking = m_options.tls && m_state == State::Connecting;
        // The library moves a TLS handshake on from its reader only.
        if (readable || (writable && handshaking))
            rc = mosquitto_loop_read(m_mosq, 1);
        if (rc == MOSQ_ERR_SUCCESS && m_mosq && mosquitto_want_write(m_mosq))
            rc = mosquitto_loop_write(m_mosq, 1);
        if (writable && handshaking)
            m_holdWriter = true; // until the next tick: the socket stays writable meanwhile
        settle(rc);
    }

    void housekeeping() {
        if (!m_mosq)
            return;
        m_holdWriter = false;
        if (m_options.tls && m_state == State::Connecting) {
            service(false, true);
            return;
        }
        settle(mosquitto_loop_misc(m_mosq));
    }

    void settle(int rc) {
        const QString why = rc == MOSQ_ERR_SUCCESS ? QString() : problem(rc);
        const QPointer<MosquittoLink> alive(this);
        const quint64 attempt = m_attempt;
        auto gone = [&] {
            return !alive || attempt != m_attempt;
        };
        for (const int id : std::exchange(m_delivered, {})) {
            emit delivered(id);
            if (gone())
                return;
        }
        if (m_connack > 0) {
            fail(QStringLiteral("%1:%2 refused: %3")
                     .arg(m_options.host)
                     .arg(m_options.port)
                     .arg(QString::fromUtf8(mosquitto_connack_string(m_connack))));
            return;
        }
        if (m_connack == 0 && m_state == State::Connecting) {
            m_connack = -1;
            m_state = State::Connected;
            m_deadline.stop();
            m_tick.start(kConnectedTickMs);
            emit connected();
            if (gone())
                return;
        }
        if (m_gone || !why.isEmpty()) {
            fail(!why.isEmpty() ? why : problem(m_goneRc));
            return;
        }
        watch();
    }

    // Notifiers on the library's socket as it is now, the writer only while it has bytes to go.
    void watch() {
        const int fd = m_mosq ? mosquitto_socket(m_mosq) : -1;
        if (fd < 0) {
            dropNotifiers();
            return;
        }
        if (!m_read || m_read->socket() != fd) {
            dropNotifiers();
            m_read = new QSocketNotifier(fd, QSocketNotifier::Read, this);
            connect(m_read, &QSocketNotifier::activated, this, [this] { service(true, false); });
            m_write = new QSocketNotifier(fd, QSocketNotifier::Write, this);
            connect(m_write, &QSocketNotifier::activated, this, [this] { service(false, true); });
        }
        m_write->setEnabled(!m_holdWriter && mosquitto_want_write(m_mosq));
    }

    QString problem(int rc) const {
        // A broker found untrusted is the cause of whatever failure the handshake then reports.
        if (m_verifyFault != X509_V_OK)
            return QStringLiteral("the broker's certificate is not trusted (%1)")
                .arg(QString::fromUtf8(X509_verify_cert_error_string(m_verifyFault)));
        switch (rc) {
        case MOSQ_ERR_ERRNO:
            return QString::fromLocal8Bit(std::strerror(errno));
        case MOSQ_ERR_TLS:
            return QStringLiteral("the TLS handshake with the broker failed");
        case MOSQ_ERR_CONN_LOST:
        case MOSQ_ERR_NO_CONN:
            return QStringLiteral("the connection to %1:%2 was lost")
                .arg(m_options.host)
                .arg(m_options.port);
        default:
            return QString::fromUtf8(mosquitto_strerror(rc));
        }
    }

    void fail(const QString& why) {
        const bool wasOpen = m_state != State::Closed;
        drop();
        if (wasOpen)
            emit lost(why);
    }

    void dropNotifiers() {
        delete m_read;
        delete m_write;
        m_read = m_write = nullptr;
    }

    void drop() {
        ++m_attempt;
        if (m_lookup >= 0)
            QHostInfo::abortHostLookup(m_lookup);
        m_lookup = -1;
        m_tick.stop();
        m_deadline.stop();
        dropNotifiers(); // before the library closes the socket they watch
        if (m_mosq)
            mosquitto_destroy(m_mosq);
        m_mosq = nullptr;
        m_state = State::Closed;
        m_connack = -1;
        m_gone = false;
        m_goneRc = 0;
        m_verifyFault = X509_V_OK;
        m_holdWriter = false;
        m_delivered.clear();
    }

    MqttOptions m_options;
    State m_state = State::Closed;
    mosquitto* m_mosq = nullptr;
    quint64 m_attempt = 0; // moves on at every drop: late news of an old attempt is ignored
    int m_lookup = -1;
    QSocketNotifier* m_read = nullptr;
    QSocketNotifier* m_write = nullptr;
    bool m_holdWriter = false;
    QTimer m_tick;
    QTimer m_deadline;
    // What the library's callbacks said during one of its calls, handled when it has returned.
    int m_connack = -1;
    bool m_gone = false;
    int m_goneRc = 0;
    long m_verifyFault = X509_V_OK; // the context of the attempt writes here during the handshake
    QList<int> m_delivered;
};

} // namespace

MqttLink* makeMosquittoLink(QObject* parent) {
    return new MosquittoLink(parent);
}
