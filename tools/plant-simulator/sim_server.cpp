#include "sim_server.h"

#include "sim_plant.h"
#include "sim_rtu_frame.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <algorithm>

namespace sim {

namespace {

constexpr int kHeaderSize = 7;  // transaction id, protocol id, length, unit id
constexpr int kMaxLength = 254; // unit id and the largest PDU of 253 bytes

quint16 be16(const QByteArray& bytes, int at) {
    return static_cast<quint16>((static_cast<quint8>(bytes.at(at)) << 8) |
                                static_cast<quint8>(bytes.at(at + 1)));
}

void appendBe16(QByteArray& bytes, quint16 value) {
    bytes.append(static_cast<char>(value >> 8));
    bytes.append(static_cast<char>(value & 0xFF));
}

QByteArray frame(quint16 transactionId, quint8 unit, const QModbusResponse& response) {
    const QByteArray data = response.data();
    QByteArray bytes;
    appendBe16(bytes, transactionId);
    appendBe16(bytes, 0);
    appendBe16(bytes, static_cast<quint16>(data.size() + 2));
    bytes.append(static_cast<char>(unit));
    const int code = response.functionCode() | (response.isException() ? 0x80 : 0);
    bytes.append(static_cast<char>(code));
    bytes.append(data);
    return bytes;
}

} // namespace

SimServer::SimServer(SimPlant* plant, QObject* parent) : SimServer(new SimNodes(plant), parent) {
    nodes_->setParent(this);
}

SimServer::SimServer(SimNodes* nodes, QObject* parent)
    : QObject(parent), nodes_(nodes), server_(new QTcpServer(this)), wire_(new SimWire(this)) {
    connect(server_, &QTcpServer::newConnection, this, &SimServer::onNewConnection);
    connect(nodes_, &SimNodes::requestReceived, this, &SimServer::requestReceived);
}

SimServer::~SimServer() {
    close();
}

bool SimServer::listen(const QHostAddress& address, quint16 port) {
    if (server_->isListening())
        server_->close();
    if (!server_->listen(address, port)) {
        error_ = server_->errorString();
        return false;
    }
    error_.clear();
    return true;
}

bool SimServer::isListening() const {
    return server_->isListening();
}

quint16 SimServer::port() const {
    return server_->serverPort();
}

QHostAddress SimServer::address() const {
    return server_->serverAddress();
}

void SimServer::close() {
    server_->close();
    wire_->clear();
    const QList<QTcpSocket*> sockets = buffers_.keys();
    buffers_.clear();
    for (QTcpSocket* socket : sockets) {
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
}

void SimServer::onNewConnection() {
    while (QTcpSocket* socket = server_->nextPendingConnection()) {
        // Replies are small and a test measures their delay: do not let Nagle hold them back.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        buffers_.insert(socket, QByteArray());
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] { drop(socket); });
        if (socket->bytesAvailable() > 0)
            onReadyRead(socket);
    }
}

void SimServer::drop(QTcpSocket* socket) {
    if (buffers_.remove(socket) > 0) {
        socket->disconnect(this);
        socket->deleteLater();
    }
}

void SimServer::onReadyRead(QTcpSocket* socket) {
    auto it = buffers_.find(socket);
    if (it == buffers_.end())
        return;
    it->append(socket->readAll());
    // Requests are taken one after another from the stream, however the reads split them.
    while (it->size() >= kHeaderSize) {
        const QByteArray& buffer = *it;
        const quint16 transactionId = be16(buffer, 0);
        const quint16 protocolId = be16(buffer, 2);
        const quint16 length = be16(buffer, 4);
        if (protocolId != 0 || length < 2 || length > kMaxLength) {
            // There is no way to find the next frame in the stream: hang up, as a device would.
            emit message(QStringLiteral("dropped a client that sent a bad frame header "
                                        "(protocol %1, length %2)")
                             .arg(protocolId)
                             .arg(length));
            socket->abort();
            drop(socket);
            return;
        }
        const int total = 6 + length;
        if (buffer.size() < total)
            return;
        const quint8 unit = static_cast<quint8>(buffer.at(6));
        const QByteArray pdu = buffer.mid(kHeaderSize, length - 1);
        it->remove(0, total);
        handleRequest(socket, transactionId, unit, pdu);
        it = buffers_.find(socket);
        if (it == buffers_.end())
            return;
    }
}

void SimServer::handleRequest(QTcpSocket* socket, quint16 transactionId, quint8 unit,
                              const QByteArray& pdu) {
    const qint64 arrived = wire_->nowUs();
    // On the line behind a gateway: address, PDU and CRC.
    const qsizetype requestChars = pdu.size() + 3;
    const NodeAnswer a = nodes_->handle(unit, pdu, false);
    if (!a.reply) {
        wire_->exchange(arrived, requestChars, 0, 0, {});
        return;
    }
    QByteArray bytes = frame(transactionId, unit, a.response);
    if (a.faults.cut) {
        // The header and at most half of the PDU: the client learns the transaction and waits.
        const qsizetype pduSize = bytes.size() - kHeaderSize;
        bytes.truncate(kHeaderSize + std::max<qsizetype>(1, pduSize / 2));
    }
    if (a.faults.garble)
        bytes.prepend(QByteArray::fromHex("a55aa5"));

    const qsizetype replyChars = responsePdu(a.response).size() + 3;
    QPointer<QTcpSocket> target(socket);
    wire_->exchange(arrived, requestChars, replyChars, a.faults.delayMs, [target, bytes] {
        if (target && target->state() == QAbstractSocket::ConnectedState)
            target->write(bytes);
    });
}

} // namespace sim
