#include "qt_modbus_backend.h"

#include "settings_keys.h"
#include "settings_store.h"

#include <QModbusRtuSerialClient>
#include <QModbusTcpClient>
#include <QSerialPort>
#include <QTimer>
#include <QVariant>
#include <cmath>

namespace {
// Beyond the client's own time-out, how long a transaction may wait before we give up on the
// client object itself.
constexpr int kWatchdogMarginMs = 1000;
constexpr int kReconnectDelayMs = 1000;
// Time-outs in a row, on every node alike, after which the connection itself is suspect: stray
// bytes in a TCP stream leave the client waiting for a frame that never ends, and every later
// reply behind them is lost too.
constexpr int kTimeoutsBeforeRebuild = 3;

int settingInt(const QString& key, int defaultValue) {
    bool ok = false;
    const int v =
        getSetting(Sections::Link, key, QString::number(defaultValue)).trimmed().toInt(&ok);
    return ok ? v : defaultValue;
}
} // namespace

LinkSettings QtModbusBackend::settingsFromStore() {
    LinkSettings s;
    const QString mode =
        getSetting(Sections::Link, Keys::LinkMode, QStringLiteral("TCP")).trimmed();
    s.mode = mode.compare(QLatin1String("RTU"), Qt::CaseInsensitive) == 0 ? LinkSettings::Mode::Rtu
                                                                          : LinkSettings::Mode::Tcp;
    s.address = getSetting(Sections::Link, Keys::LinkAddress, s.address).trimmed();
    s.port = settingInt(Keys::LinkPort, s.port);
    s.serialPort = getSetting(Sections::Link, Keys::LinkSerialPort, s.serialPort).trimmed();
    s.baudRate = settingInt(Keys::LinkBaudRate, s.baudRate);
    const QString parity =
        getSetting(Sections::Link, Keys::LinkParity, QStringLiteral("N")).trimmed();
    s.parity = parity.isEmpty() ? QLatin1Char('N') : parity.at(0).toUpper();
    s.dataBits = settingInt(Keys::LinkDataBits, s.dataBits);
    s.stopBits = settingInt(Keys::LinkStopBits, s.stopBits);
    s.timeoutMs = qBound(50, settingInt(Keys::LinkTimeout, s.timeoutMs), 60000);
    s.registerOffset = settingInt(Keys::LinkRegisterOffset, 0);
    return s;
}

QtModbusBackend::QtModbusBackend(LinkSettings settings, QObject* parent)
    : ModbusBackend(parent), m_settings(std::move(settings)) {
    m_connectWatchdog = new QTimer(this);
    m_connectWatchdog->setSingleShot(true);
    connect(m_connectWatchdog, &QTimer::timeout, this, [this] {
        // A connect that never completes: give the waiting requests their answer and start over.
        if (!connected()) {
            failAll(ModbusCode::NoConnection);
            scheduleRebuild();
        }
    });
    m_reconnectTimer = new QTimer(this);
    m_reconnectTimer->setSingleShot(true);
    connect(m_reconnectTimer, &QTimer::timeout, this, &QtModbusBackend::ensureConnecting);
    makeClient();
    ensureConnecting();
}

QtModbusBackend::~QtModbusBackend() {
    if (m_client) {
        m_client->disconnect(this);
        m_client->disconnectDevice();
    }
    // Every request still gets its one answer, from the event loop as always: a paced line waits
    // for it before it sends the next.
    for (auto& [id, t] : m_pending)
        if (t.done)
            QTimer::singleShot(0, [done = std::move(t.done)] {
                done(ModbusResult{ModbusCode::NoConnection, {}});
            });
}

bool QtModbusBackend::connected() const {
    return m_client && m_client->state() == QModbusDevice::ConnectedState;
}

int QtModbusBackend::codeForReply(QModbusDevice::Error error, int exceptionCode) {
    switch (error) {
    case QModbusDevice::NoError:
        return ModbusCode::Ok;
    case QModbusDevice::ProtocolError:
        switch (exceptionCode) {
        case 1:
        case 2:
        case 3:
            return exceptionCode;
        case 6:
            return ModbusCode::SlaveBusy;
        case 10:
        case 11:
            return ModbusCode::InvalidNode;
        case 0:
            return ModbusCode::BadFrame;
        default:
            return exceptionCode;
        }
    case QModbusDevice::TimeoutError:
        return ModbusCode::NoResponse;
    case QModbusDevice::ConnectionError:
    case QModbusDevice::ReplyAbortedError:
        return ModbusCode::NoConnection;
    default:
        return ModbusCode::BadFrame;
    }
}

void QtModbusBackend::makeClient() {
    QModbusClient* client = nullptr;
    if (m_settings.mode == LinkSettings::Mode::Rtu) {
        auto* rtu = new QModbusRtuSerialClient(this);
        rtu->setConnectionParameter(QModbusDevice::SerialPortNameParameter, m_settings.serialPort);
        rtu->setConnectionParameter(QModbusDevice::SerialBaudRateParameter, m_settings.baudRate);
        rtu->setConnectionParameter(QModbusDevice::SerialDataBitsParameter, m_settings.dataBits);
        rtu->setConnectionParameter(QModbusDevice::SerialStopBitsParameter, m_settings.stopBits);
        QSerialPort::Parity parity = QSerialPort::NoParity;
        if (m_settings.parity == QLatin1Char('E'))
            parity = QSerialPort::EvenParity;
        else if (m_settings.parity == QLatin1Char('O'))
            parity = QSerialPort::OddParity;
        rtu->setConnectionParameter(QModbusDevice::SerialParityParameter, parity);
        if (m_silenceMicros > 0)
            rtu->setInterFrameDelay(static_cast<int>(m_silenceMicros));
        client = rtu;
    } else {
        auto* tcp = new QModbusTcpClient(this);
        tcp->setConnectionParameter(QModbusDevice::NetworkAddressParameter, m_settings.address);
        tcp->setConnectionParameter(QModbusDevice::NetworkPortParameter, m_settings.port);
        client = tcp;
    }
    client->setTimeout(m_settings.timeoutMs);
    // The poll cycle has its own retry; Qt's default of 3 would stretch one time-out to 4 s.
    client->setNumberOfRetries(0);
    connect(client, &QModbusDevice::stateChanged, this, &QtModbusBackend::onStateChanged);
    connect(client, &QModbusDevice::errorOccurred, this, &QtModbusBackend::onDeviceError);
    m_client = client;
}

void QtModbusBackend::ensureConnecting() {
    if (m_rebuildScheduled)
        return;
    if (!m_client)
        makeClient();
    if (m_client->state() == QModbusDevice::UnconnectedState) {
        m_connectWatchdog->start(m_settings.timeoutMs + kWatchdogMarginMs);
        if (!m_client->connectDevice()) {
            // Refused at once (no such serial port, bad address): nothing to wait for.
            m_connectWatchdog->stop();
            failAll(ModbusCode::NoConnection);
        }
    }
}

namespace {
int bitsOf(const LinkSettings& s) {
    return LineTiming::bitsPerCharacter(s.dataBits, s.parity != QLatin1Char('N'), s.stopBits);
}
} // namespace

qint64 QtModbusBackend::lineSilenceMicros() const {
    if (m_settings.mode != LinkSettings::Mode::Rtu)
        return 0;
    return static_cast<qint64>(
        std::ceil(LineTiming::silenceMicros(m_settings.baudRate, bitsOf(m_settings))));
}

double QtModbusBackend::characterMicros() const {
    if (m_settings.mode != LinkSettings::Mode::Rtu)
        return 0.0;
    return LineTiming::characterMicros(m_settings.baudRate, bitsOf(m_settings));
}

qint64 QtModbusBackend::keepSilence(qint64 micros) {
    if (m_settings.mode != LinkSettings::Mode::Rtu)
        return micros;
    // The serial client already waits its own silence (in whole milliseconds, never less than
    // 3.5 characters of 11 bits) after queueing each request: it keeps ours instead of adding a
    // second one after it.
    if (micros != m_silenceMicros) {
        m_silenceMicros = micros;
        if (auto* rtu = qobject_cast<QModbusRtuSerialClient*>(m_client))
            rtu->setInterFrameDelay(static_cast<int>(micros));
    }
    return 0;
}

void QtModbusBackend::submit(const ModbusRequest& request, Done done) {
    const quint64 id = m_nextId++;
    Transaction t;
    t.request = request;
    t.done = std::move(done);
    t.watchdog = new QTimer(this);
    t.watchdog->setSingleShot(true);
    connect(t.watchdog, &QTimer::timeout, this, [this, id] { onWatchdog(id); });
    // A serial client waits the line's silence and the guard before it sends.
    t.watchdog->start(m_settings.timeoutMs + kWatchdogMarginMs +
                      static_cast<int>(m_silenceMicros / 1000));
    m_pending.emplace(id, std::move(t));

    if (connected())
        send(id);
    else
        ensureConnecting();
}

void QtModbusBackend::send(quint64 id) {
    auto it = m_pending.find(id);
    if (it == m_pending.end() || it->second.sent)
        return;
    Transaction& t = it->second;
    t.sent = true;

    QModbusDataUnit::RegisterType type = QModbusDataUnit::Invalid;
    if (t.request.dataArea == 3)
        type = QModbusDataUnit::HoldingRegisters;
    else if (t.request.dataArea == 2 && t.request.direction == 0)
        type = QModbusDataUnit::InputRegisters;
    if (type == QModbusDataUnit::Invalid) {
        completeLater(id, ModbusCode::IllegalFunction);
        return;
    }
    const int address = t.request.firstRegister + m_settings.registerOffset;
    if (address < 0 || address + t.request.count > 65536) {
        completeLater(id, ModbusCode::IllegalAddress);
        return;
    }
    QModbusDataUnit unit(type, address, static_cast<quint16>(t.request.count));
    QModbusReply* reply = nullptr;
    if (t.request.direction == 1) {
        unit.setValues(QList<quint16>(t.request.values.begin(), t.request.values.end()));
        reply = m_client->sendWriteRequest(unit, t.request.node);
    } else {
        reply = m_client->sendReadRequest(unit, t.request.node);
    }
    if (!reply) {
        completeLater(id, connected() ? ModbusCode::BadFrame : ModbusCode::NoConnection);
        return;
    }
    t.reply = reply;
    if (reply->isFinished()) {
        // Broadcasts finish at once; answer from the event loop all the same.
        QTimer::singleShot(0, this, [this, id] { onReplyFinished(id); });
    } else {
        // Queued: a reply finishes inside the socket's readyRead. A caller that shows a message
        // box there runs a nested event loop, in which a rebuild of the client deletes that
        // socket under the frames still on the stack (measured: a crash once the box is shut).
        connect(
            reply, &QModbusReply::finished, this, [this, id] { onReplyFinished(id); },
            Qt::QueuedConnection);
    }
}

void QtModbusBackend::sendUnsent() {
    std::vector<quint64> ids;
    for (const auto& [id, t] : m_pending)
        if (!t.sent)
            ids.push_back(id);
    for (quint64 id : ids)
        send(id);
}

void QtModbusBackend::onReplyFinished(quint64 id) {
    auto it = m_pending.find(id);
    if (it == m_pending.end())
        return;
    QModbusReply* reply = it->second.reply;
    ModbusResult result;
    if (!reply) {
        result.code = ModbusCode::NoConnection;
    } else {
        result.code = codeForReply(reply->error(), reply->rawResult().exceptionCode());
        if (result.code == ModbusCode::Ok && it->second.request.direction == 0) {
            const QModbusDataUnit unit = reply->result();
            const QList<quint16> values = unit.values();
            result.values = QVector<quint16>(values.begin(), values.end());
        }
    }
    complete(id, result);
}

void QtModbusBackend::onWatchdog(quint64 id) {
    auto it = m_pending.find(id);
    if (it == m_pending.end())
        return;
    const bool sent = it->second.sent;
    complete(id, ModbusResult{sent ? ModbusCode::NoResponse : ModbusCode::NoConnection, {}});
    // The client has not answered in far more than its own time-out: it may be stuck for good.
    scheduleRebuild();
}

void QtModbusBackend::complete(quint64 id, const ModbusResult& result) {
    auto it = m_pending.find(id);
    if (it == m_pending.end())
        return;
    Transaction t = std::move(it->second);
    m_pending.erase(it);
    if (result.code == ModbusCode::NoResponse) {
        if (++m_timeoutsInARow >= kTimeoutsBeforeRebuild) {
            m_timeoutsInARow = 0;
            scheduleRebuild();
        }
    } else if (result.code != ModbusCode::NoConnection) {
        m_timeoutsInARow = 0;
    }
    if (t.watchdog)
        t.watchdog->deleteLater();
    if (t.reply) {
        t.reply->disconnect(this);
        t.reply->deleteLater();
    }
    // The callback may start the next transaction at once; the map is consistent by now.
    if (t.done)
        t.done(result);
}

void QtModbusBackend::completeLater(quint64 id, int code) {
    QTimer::singleShot(0, this, [this, id, code] { complete(id, ModbusResult{code, {}}); });
}

void QtModbusBackend::failAll(int code) {
    std::vector<quint64> ids;
    ids.reserve(m_pending.size());
    for (const auto& entry : m_pending)
        ids.push_back(entry.first);
    for (quint64 id : ids)
        completeLater(id, code);
}

void QtModbusBackend::onStateChanged(QModbusDevice::State state) {
    if (state == QModbusDevice::ConnectedState) {
        m_connectWatchdog->stop();
        sendUnsent();
    } else if (state == QModbusDevice::UnconnectedState) {
        m_connectWatchdog->stop();
        failAll(ModbusCode::NoConnection);
        if (!m_rebuildScheduled)
            m_reconnectTimer->start(kReconnectDelayMs);
    }
}

void QtModbusBackend::onDeviceError(QModbusDevice::Error error) {
    // A serial port that vanished floods read errors; a broken TCP stream shows up the same way.
    if (error == QModbusDevice::ReadError || error == QModbusDevice::WriteError ||
        error == QModbusDevice::ConnectionError) {
        failAll(ModbusCode::NoConnection);
        scheduleRebuild();
    }
}

void QtModbusBackend::scheduleRebuild() {
    if (m_rebuildScheduled)
        return;
    m_rebuildScheduled = true;
    // Deleting the client inside one of its own signals is not safe: defer to the event loop.
    QTimer::singleShot(0, this, [this] {
        m_rebuildScheduled = false;
        // Everything the old client still holds gets its answer before the client goes.
        for (auto& [id, t] : m_pending) {
            if (t.sent && t.reply) {
                t.reply->disconnect(this);
                t.reply = nullptr;
                completeLater(id, ModbusCode::NoConnection);
            }
        }
        if (m_client) {
            m_client->disconnect(this);
            m_client->disconnectDevice();
            m_client->deleteLater();
            m_client = nullptr;
        }
        makeClient();
        m_reconnectTimer->start(kReconnectDelayMs);
        if (!m_pending.empty())
            ensureConnecting();
    });
}
