#pragma once

#include <QObject>
#include <QPointer>
#include <QVector>
#include <array>
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

// The link control: set node, data area, first register, count and direction, fill the buffer
// for a write, start; the outcome comes as readComplete, writeComplete or error(code). One
// transaction at a time. A start while a read runs: the same read joins the running one (one
// outcome for both, so a controller that is not there is reported as not responding, never as
// busy); another request abandons the running read, whose answer is then dropped, so that a late
// answer can never be taken for another controller's. A start while a write runs is refused with
// error 16, and the write still reports how it went.
class Modctl : public QObject {
    Q_OBJECT
public:
    static constexpr int kMaxWords = 125;

    explicit Modctl(QObject* parent = nullptr);

    int node = 1;
    int dataArea = 3;
    int firstRegister = 0;
    int count = 1;
    int direction = 0;

    // Word i of the buffer as a signed 16-bit number.
    qint16 data(int i) const;
    void setData(int i, qint16 value);
    // Word i as a 32-bit number: 0..65535 for a word read, or what was set for a write.
    qint32 longData(int i) const;
    void setLongData(int i, qint32 value);

    // Sets the five fields of a transaction at once.
    void prepare(int nodeAddress, int area, int first, int words, int dir) {
        node = nodeAddress;
        dataArea = area;
        firstRegister = first;
        count = words;
        direction = dir;
    }

    bool busy() const { return m_busy; }
    void start();

signals:
    void readComplete();
    void writeComplete();
    void error(int code);

private:
    void finish(quint64 transaction, const ModbusResult& result, int expectedCount, int dir);
    void failLater(int code);

    std::array<qint32, kMaxWords> m_buffer{};
    bool m_busy = false;
    bool m_busyWriting = false;
    ModbusRequest m_running;
    quint64 m_transaction = 0;
};
