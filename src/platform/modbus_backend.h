#pragma once

// The Modbus link as the workstation sees it: a request, its outcome, the link that carries it,
// and how long frames and silences last on a serial line.

#include <QObject>
#include <QVector>
#include <functional>
#include <memory>

// Result codes of a link transaction, as the logger and the write messages know them.
namespace ModbusCode {
inline constexpr int Ok = 0;
inline constexpr int Timeout = -4;        // the controller's own time-out; not produced by us
inline constexpr int NoResponse = -3;     // no answer within the link's time-out
inline constexpr int BadFrame = -2;       // a reply that does not fit the request
inline constexpr int NoConnection = -1;   // the link itself is down
inline constexpr int IllegalFunction = 1; // Modbus exception 1
inline constexpr int IllegalAddress = 2;  // Modbus exception 2
inline constexpr int IllegalValue = 3;    // Modbus exception 3
inline constexpr int SlaveBusy = 16;      // exception 6, or this control still busy
inline constexpr int InvalidNode = 18;    // gateway exceptions 10 and 11, or a node out of range
} // namespace ModbusCode

// Data areas of the link control.
namespace ModbusArea {
inline constexpr int Input = 2;   // input registers, read with 0x04
inline constexpr int Holding = 3; // holding registers, read 0x03, written 0x06 or 0x10
} // namespace ModbusArea

struct ModbusRequest {
    int node = 1;
    int dataArea = 3;      // 3 holding registers, 2 input registers
    int firstRegister = 0; // Modbus address of the first register
    int count = 1;
    int direction = 0;       // 0 read, 1 write
    QVector<quint16> values; // words to write
};

struct ModbusResult {
    int code = ModbusCode::Ok;
    QVector<quint16> values; // words read
};

// One Modbus link shared by every link control of the process. `submit` returns at once and
// calls `done` exactly once, later, from the event loop.
class ModbusBackend : public QObject {
    Q_OBJECT
public:
    using Done = std::function<void(const ModbusResult&)>;
    explicit ModbusBackend(QObject* parent = nullptr) : QObject(parent) {}
    virtual void submit(const ModbusRequest& request, Done done) = 0;

    // The silence the line needs between two frames, in microseconds: 3.5 characters on a serial
    // line; nothing on a network link, where a gateway keeps the silences of its own line.
    virtual qint64 lineSilenceMicros() const { return 0; }
    // How long one character takes on the line; 0 where the link has no baud rate of its own.
    virtual double characterMicros() const { return 0.0; }
    // Asks the link to keep `micros` of silence before each request itself, where it can time
    // that better than its caller; returns what the caller must still keep.
    virtual qint64 keepSilence(qint64 micros) { return micros; }
};

ModbusBackend& modbusBackend();
void installModbusBackend(std::unique_ptr<ModbusBackend> backend);

// How long frames and silences last on a serial Modbus line.
namespace LineTiming {
// Bits of one character: start, data, parity, stop.
inline int bitsPerCharacter(int dataBits, bool parity, int stopBits) {
    return 1 + dataBits + (parity ? 1 : 0) + stopBits;
}
inline double characterMicros(int baud, int bitsPerChar) {
    return baud > 0 ? 1e6 * bitsPerChar / baud : 0.0;
}
// The silence that ends a frame: 3.5 characters, and a fixed 1.75 ms above 19,200 baud, where
// 3.5 characters would be shorter than a converter can tell.
inline double silenceMicros(int baud, int bitsPerChar) {
    return baud > 19200 ? 1750.0 : 3.5 * characterMicros(baud, bitsPerChar);
}
// One request and its reply on the wire, with the silence after each.
inline double exchangeMicros(int requestBytes, int replyBytes, int baud, int bitsPerChar) {
    return (requestBytes + replyBytes) * characterMicros(baud, bitsPerChar) +
           2 * silenceMicros(baud, bitsPerChar);
}
// RTU frames of a read of `count` registers: address, function, first, count, CRC; and address,
// function, byte count, the words, CRC.
inline constexpr int kReadRequestBytes = 8;
inline int readReplyBytes(int count) {
    return 5 + 2 * count;
}
} // namespace LineTiming
