// Modbus TCP front of the simulated plant: one listening socket that answers every unit address
// 1..64 from the plant's controllers, with faults that can be set per node while it runs.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <array>

class QTcpServer;
class QTcpSocket;

namespace sim {

class SimPlant;

struct NodeFaults {
    bool dead = false;   // never answers
    int exception = 0;   // answers every request with this exception code; 0 = none
    int delayMs = 0;     // answers this late
    bool cut = false;    // sends the header and part of the reply, then nothing
    bool garble = false; // sends stray bytes ahead of the reply, which breaks the framing

    bool any() const { return dead || exception != 0 || delayMs != 0 || cut || garble; }
};

class SimServer : public QObject {
    Q_OBJECT

public:
    static constexpr int MaxNode = 64;

    explicit SimServer(SimPlant* plant, QObject* parent = nullptr);
    ~SimServer() override;

    bool listen(const QHostAddress& address = QHostAddress::LocalHost, quint16 port = 0);
    bool isListening() const;
    quint16 port() const;
    QHostAddress address() const;
    QString errorString() const { return error_; }
    // Stops listening and drops every open connection, so that clients see the link lost.
    void close();
    int connectionCount() const { return static_cast<int>(buffers_.size()); }

    // Fault setters ignore node addresses outside 1..64. Nodes not in the plant are always dead.
    void setDead(int node, bool dead);
    void setException(int node, int code);
    void setDelay(int node, int ms);
    void setCut(int node, bool cut);
    void setGarble(int node, bool garble);
    void clearFaults();
    NodeFaults faults(int node) const;

    // Requests received for the node since the start or the last reset, faults included.
    int requestCount(int node) const;
    void resetRequestCounts();

signals:
    void requestReceived(int node, int functionCode);
    // A client broke the framing and its connection was dropped.
    void message(const QString& text);

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);
    void drop(QTcpSocket* socket);
    void handleRequest(QTcpSocket* socket, quint16 transactionId, quint8 unit,
                       const QByteArray& pdu);
    NodeFaults* faultsOf(int node);

    SimPlant* plant_;
    QTcpServer* server_;
    QHash<QTcpSocket*, QByteArray> buffers_;
    std::array<NodeFaults, MaxNode + 1> faults_{};
    std::array<int, MaxNode + 1> counts_{};
    QString error_;
};

} // namespace sim
