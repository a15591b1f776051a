// Modbus RTU front of the simulated plant: one serial device (a pty of a socat pair, or a real
// port) on which every unit address 1..64 answers as the plant's controllers, with the nodes'
// faults, and with each reply held back as long as the line would take to carry the exchange.
#pragma once

#include "sim_wire.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

class QSerialPort;

namespace sim {

class SimNodes;
struct RtuFrame;

class SimRtuFront : public QObject {
    Q_OBJECT

public:
    explicit SimRtuFront(SimNodes* nodes, QObject* parent = nullptr);
    ~SimRtuFront() override;

    // 8 data bits; pacing on, at the format's rate.
    bool open(const QString& device, const SerialFormat& format);
    void close();
    bool isOpen() const;
    QString device() const { return device_; }
    SerialFormat format() const { return format_; }
    QString errorString() const { return error_; }
    // What open() could not set but went on without; empty when all went as asked.
    QString warning() const { return warning_; }

    // Off, a reply goes as soon as it is made (a node's delay still holds it back).
    void setPacing(bool on);
    bool isPacing() const { return wire_->pacing().has_value(); }

    SimWire& wire() { return *wire_; }
    const SimWire& wire() const { return *wire_; }
    // Bytes that belonged to no request frame since the start or the last reset.
    qint64 droppedBytes() const { return dropped_; }
    // The line check and the dropped bytes; the nodes keep their own request counts.
    void resetLine();

signals:
    void message(const QString& text);

private:
    void onReadyRead();
    void takeFrames(bool quiet);
    void answer(const RtuFrame& frame, qint64 arrivedUs);
    int quietMs() const;

    SimNodes* nodes_;
    QSerialPort* port_;
    SimWire* wire_;
    QTimer quiet_;
    QByteArray buffer_;
    qint64 lastBytesUs_ = 0;
    qint64 dropped_ = 0;
    QString device_;
    SerialFormat format_;
    QString error_;
    QString warning_;
};

} // namespace sim
