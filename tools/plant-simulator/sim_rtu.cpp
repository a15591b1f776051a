#include "sim_rtu.h"

#include "sim_nodes.h"
#include "sim_rtu_frame.h"

#include <QFileInfo>
#include <QPointer>
#include <QSerialPort>
#include <algorithm>
#include <cmath>

namespace sim {

namespace {

const QByteArray kStray = QByteArray::fromHex("a55aa5");

} // namespace

SimRtuFront::SimRtuFront(SimNodes* nodes, QObject* parent)
    : QObject(parent), nodes_(nodes), port_(new QSerialPort(this)), wire_(new SimWire(this)) {
    quiet_.setSingleShot(true);
    connect(&quiet_, &QTimer::timeout, this, [this] { takeFrames(true); });
    connect(port_, &QSerialPort::readyRead, this, &SimRtuFront::onReadyRead);
    connect(port_, &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError e) {
        if (e != QSerialPort::NoError && e != QSerialPort::TimeoutError)
            emit message(QStringLiteral("%1: %2").arg(device_, port_->errorString()));
    });
}

SimRtuFront::~SimRtuFront() {
    close();
}

bool SimRtuFront::open(const QString& device, const SerialFormat& format) {
    close();
    device_ = device;
    format_ = format;
    // The serial port takes a bare name as one under /dev: a path that exists stays that path.
    port_->setPortName(QFileInfo::exists(device) ? QFileInfo(device).absoluteFilePath() : device);
    const QSerialPort::Parity parity = format.parity == 'E'   ? QSerialPort::EvenParity
                                       : format.parity == 'O' ? QSerialPort::OddParity
                                                              : QSerialPort::NoParity;
    if (!port_->open(QIODevice::ReadWrite) || !port_->setBaudRate(format.baud) ||
        !port_->setDataBits(QSerialPort::Data8) ||
        !port_->setStopBits(format.stopBits == 2 ? QSerialPort::TwoStop : QSerialPort::OneStop) ||
        !port_->setFlowControl(QSerialPort::NoFlowControl)) {
        error_ = port_->errorString();
        port_->close();
        return false;
    }
    // A pty refuses any parity; it carries the bytes all the same, and the pacing still counts
    // the parity bit, so go on and say so.
    warning_.clear();
    if (!port_->setParity(parity)) {
        warning_ = QStringLiteral("%1 takes no parity setting (%2); the line is paced as %3")
                       .arg(device, port_->errorString(), format.text());
        port_->clearError();
    }
    error_.clear();
    wire_->setPacing(format);
    return true;
}

void SimRtuFront::close() {
    quiet_.stop();
    wire_->clear();
    buffer_.clear();
    if (port_->isOpen())
        port_->close();
}

bool SimRtuFront::isOpen() const {
    return port_->isOpen();
}

void SimRtuFront::setPacing(bool on) {
    wire_->setPacing(on ? std::optional<SerialFormat>(format_) : std::nullopt);
}

void SimRtuFront::resetLine() {
    wire_->line().reset();
    dropped_ = 0;
}

int SimRtuFront::quietMs() const {
    // A pty carries no gaps of its own, but a master may write one frame in two pieces with a
    // pause of a few milliseconds between them: wait longer than that before giving up on it.
    return std::max(10, static_cast<int>(std::ceil(format_.silenceUs() / 1000.0)));
}

void SimRtuFront::onReadyRead() {
    lastBytesUs_ = wire_->nowUs();
    buffer_.append(port_->readAll());
    takeFrames(false);
}

void SimRtuFront::takeFrames(bool quiet) {
    const RtuSplit split = splitRtuRequests(buffer_, quiet);
    buffer_.remove(0, split.used);
    dropped_ += split.dropped;
    if (buffer_.isEmpty())
        quiet_.stop();
    else
        quiet_.start(quietMs());
    for (const RtuFrame& frame : split.frames)
        answer(frame, lastBytesUs_);
}

void SimRtuFront::answer(const RtuFrame& frame, qint64 arrivedUs) {
    const NodeAnswer a = nodes_->handle(frame.address, frame.pdu, true);
    const qsizetype requestChars = frame.pdu.size() + 3;
    if (!a.reply) {
        wire_->exchange(arrivedUs, requestChars, 0, 0, {});
        return;
    }
    QByteArray bytes = encodeRtuFrame(frame.address, responsePdu(a.response));
    if (a.faults.cut)
        bytes.truncate(std::max<qsizetype>(2, bytes.size() / 2)); // no CRC: the master waits
    if (a.faults.garble)
        bytes.prepend(kStray);
    QPointer<QSerialPort> port(port_);
    wire_->exchange(arrivedUs, requestChars, bytes.size(), a.faults.delayMs, [port, bytes] {
        if (port && port->isOpen()) {
            port->write(bytes);
            port->flush(); // now, not on the next turn of the event loop
        }
    });
}

} // namespace sim
