#pragma once

#include "modbus_backend.h"

#include <QModbusDevice>
#include <QString>
#include <map>

class QModbusClient;
class QModbusReply;
class QTimer;

struct LinkSettings {
    enum class Mode { Tcp, Rtu };
    Mode mode = Mode::Tcp;
    QString address = QStringLiteral("127.0.0.1");
    int port = 502;
    QString serialPort;
    int baudRate = 9600;
    QChar parity = QLatin1Char('N');
    int dataBits = 8;
    int stopBits = 1;
    int timeoutMs = 1000;
    // Added to every register number; for devices that count their registers from 1.
    int registerOffset = 0;
};

// The real link over Qt SerialBus: one client object for the whole process, rebuilt after a loss
// or a hang, with a watchdog of its own on every transaction because the client can wait for good
// (a connect that never completes, a reply cut after its header, stray bytes in the TCP stream).
class QtModbusBackend final : public ModbusBackend {
    Q_OBJECT
public:
    explicit QtModbusBackend(LinkSettings settings, QObject* parent = nullptr);
    ~QtModbusBackend() override;

    static LinkSettings settingsFromStore();

    void submit(const ModbusRequest& request, Done done) override;
    qint64 lineSilenceMicros() const override;
    double characterMicros() const override;
    qint64 keepSilence(qint64 micros) override;

    const LinkSettings& settings() const { return m_settings; }
    // Connection state of the client, for tests and the status of the link.
    bool connected() const;

    // The code of the logger table for a finished Qt reply.
    static int codeForReply(QModbusDevice::Error error, int exceptionCode);

private:
    struct Transaction {
        ModbusRequest request;
        Done done;
        QModbusReply* reply = nullptr;
        QTimer* watchdog = nullptr;
        bool sent = false;
    };

    void makeClient();
    void ensureConnecting();
    void send(quint64 id);
    void sendUnsent();
    void onStateChanged(QModbusDevice::State state);
    void onDeviceError(QModbusDevice::Error error);
    void onReplyFinished(quint64 id);
    void onWatchdog(quint64 id);
    void complete(quint64 id, const ModbusResult& result);
    void completeLater(quint64 id, int code);
    void failAll(int code);
    void scheduleRebuild();

    LinkSettings m_settings;
    QModbusClient* m_client = nullptr;
    QTimer* m_connectWatchdog = nullptr;
    QTimer* m_reconnectTimer = nullptr;
    std::map<quint64, Transaction> m_pending;
    quint64 m_nextId = 1;
    bool m_rebuildScheduled = false;
    int m_timeoutsInARow = 0;
    // The silence a serial client keeps before each request, asked for by the caller.
    qint64 m_silenceMicros = 0;
};
