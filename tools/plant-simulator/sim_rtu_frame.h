// Modbus RTU framing of the simulated line: request frames taken whole out of the bytes a serial
// device delivered, and reply frames made from a response. A frame is the unit address, the PDU
// (function code first) and the CRC-16, low byte first.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QtSerialBus/QModbusPdu>

namespace sim {

// CRC-16 of the RTU line (polynomial 0xA001 reflected, start 0xFFFF). Over a whole frame,
// its own CRC included, it is 0.
quint16 rtuCrc(QByteArrayView bytes);

// Address, PDU and CRC.
QByteArray encodeRtuFrame(quint8 address, QByteArrayView pdu);

// The PDU of a response as it goes on the line: the function code, with bit 7 set for an
// exception, then the data.
QByteArray responsePdu(const QModbusResponse& response);

// Largest frame an RTU device takes in.
inline constexpr qsizetype RtuMaxFrame = 256;
// Highest address a device on the line can have; above it the first byte is no frame start.
inline constexpr quint8 RtuMaxAddress = 247;

// Whole frame size of the request that starts at bytes[0]: > 0 the size, 0 when more bytes are
// needed to tell, -1 when no request starts here (a reserved address, a function code that no
// request carries, a frame longer than a device takes).
qsizetype rtuRequestSize(QByteArrayView bytes);

struct RtuFrame {
    quint8 address = 0;
    QByteArray pdu;   // function code and data, without the CRC
    qsizetype at = 0; // where the frame started in the bytes given
};

struct RtuSplit {
    QList<RtuFrame> frames;
    qsizetype used = 0;    // leading bytes taken, as frames or dropped; the rest waits for more
    qsizetype dropped = 0; // of those, bytes that belonged to no frame
};

// Takes whole request frames off the front of the bytes. Where no valid frame starts (a bad CRC,
// a byte that cannot start one) one byte is dropped and the search goes on from the next, so a
// good frame behind stray bytes or a corrupted frame is still found. A frame that is not whole
// yet waits for more bytes; with quiet (the line has been silent longer than the gap between
// frames, so nothing more joins them) it is dropped byte by byte too, and every byte is used.
RtuSplit splitRtuRequests(QByteArrayView bytes, bool quiet = false);

} // namespace sim
