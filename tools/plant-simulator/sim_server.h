// Modbus TCP front of the simulated plant: one listening socket that answers every unit address
// 1..64 from the plant's controllers, with faults that can be set per node while it runs. Paced
// at a baud rate, it plays a gateway in front of an RS-485 line at that rate: one exchange at a
// time, each reply as late as the line would deliver it.
#pragma once

#include "sim_nodes.h"
#include "sim_wire.h"

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <optional>

class QTcpServer;
class QTcpSocket;

namespace sim {

class SimPlant;

class SimServer : public QObject {
    Q_OBJECT

public:
    static constexpr int MaxNode = SimNodes::MaxNode;

    // With its own nodes, or with nodes that another front shares.
    explicit SimServer(SimPlant* plant, QObject* parent = nullptr);
    explicit SimServer(SimNodes* nodes, QObject* parent = nullptr);
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
    void setDead(int node, bool dead) { nodes_->setDead(node, dead); }
    void setException(int node, int code) { nodes_->setException(node, code); }
    void setDelay(int node, int ms) { nodes_->setDelay(node, ms); }
    void setCut(int node, bool cut) { nodes_->setCut(node, cut); }
    void setGarble(int node, bool garble) { nodes_->setGarble(node, garble); }
    void clearFaults() { nodes_->clearFaults(); }
    NodeFaults faults(int node) const { return nodes_->faults(node); }

    // Requests received for the node since the start or the last reset, faults included.
    int requestCount(int node) const { return nodes_->requestCount(node); }
    void resetRequestCounts() { nodes_->resetRequestCounts(); }

    SimNodes& nodes() { return *nodes_; }
    // Paced as a gateway to a line of this format; none (the default): replies go at once.
    void setPacing(std::optional<SerialFormat> format) { wire_->setPacing(format); }
    SimWire& wire() { return *wire_; }
    const SimWire& wire() const { return *wire_; }

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

    SimNodes* nodes_;
    QTcpServer* server_;
    SimWire* wire_;
    QHash<QTcpSocket*, QByteArray> buffers_;
    QString error_;
};

} // namespace sim
