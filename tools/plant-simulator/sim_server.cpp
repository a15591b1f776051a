#include "sim_server.h"

#include "sim_plant.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
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

SimServer::SimServer(SimPlant* plant, QObject* parent)
    : QObject(parent), plant_(plant), server_(new QTcpServer(this)) {
    connect(server_, &QTcpServer::newConnection, this, &SimServer::onNewConnection);
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
    const QList<QTcpSocket*> sockets = buffers_.keys();
    buffers_.clear();
    for (QTcpSocket* socket : sockets) {
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
}

NodeFaults* SimServer::faultsOf(int node) {
    return node >= 1 && node <= MaxNode ? &faults_[static_cast<std::size_t>(node)] : nullptr;
}

void SimServer::setDead(int node, bool dead) {
    if (NodeFaults* f = faultsOf(node))
        f->dead = dead;
}

void SimServer::setException(int node, int code) {
    if (NodeFaults* f = faultsOf(node))
        f->exception = std::clamp(code, 0, 255);
}

void SimServer::setDelay(int node, int ms) {
    if (NodeFaults* f = faultsOf(node))
        f->delayMs = std::max(ms, 0);
}

void SimServer::setCut(int node, bool cut) {
    if (NodeFaults* f = faultsOf(node))
        f->cut = cut;
}

void SimServer::setGarble(int node, bool garble) {
    if (NodeFaults* f = faultsOf(node))
        f->garble = garble;
}

void SimServer::clearFaults() {
    faults_.fill(NodeFaults{});
}

NodeFaults SimServer::faults(int node) const {
    return node >= 1 && node <= MaxNode ? faults_[static_cast<std::size_t>(node)] : NodeFaults{};
}

int SimServer::requestCount(int node) const {
    return node >= 1 && node <= MaxNode ? counts_[static_cast<std::size_t>(node)] : 0;
}

void SimServer::resetRequestCounts() {
    counts_.fill(0);
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
    const int functionCode = static_cast<quint8>(pdu.at(0));
    if (unit >= 1 && unit <= MaxNode)
        ++counts_[unit];
    emit requestReceived(unit, functionCode);

    const NodeFaults f = faults(unit);
    if (unit < 1 || unit > MaxNode || f.dead || !plant_->hasNode(unit))
        return;

    const auto code = static_cast<QModbusPdu::FunctionCode>(functionCode & 0x7F);
    QModbusResponse response;
    if (functionCode & 0x80)
        response = QModbusExceptionResponse(code, QModbusPdu::IllegalFunction);
    else if (f.exception != 0)
        response =
            QModbusExceptionResponse(code, static_cast<QModbusPdu::ExceptionCode>(f.exception));
    else
        response = plant_->process(unit, QModbusRequest(code, pdu.mid(1)));

    QByteArray bytes = frame(transactionId, unit, response);
    if (f.cut) {
        // The header and at most half of the PDU: the client learns the transaction and waits.
        const qsizetype pduSize = bytes.size() - kHeaderSize;
        bytes.truncate(kHeaderSize + std::max<qsizetype>(1, pduSize / 2));
    }
    if (f.garble)
        bytes.prepend(QByteArray::fromHex("a55aa5"));

    if (f.delayMs > 0) {
        QTimer::singleShot(f.delayMs, socket, [socket, bytes] {
            if (socket->state() == QAbstractSocket::ConnectedState)
                socket->write(bytes);
        });
    } else {
        socket->write(bytes);
    }
}

} // namespace sim
