#pragma once

#include "modbus_backend.h"

#include <QObject>
#include <array>
#include <deque>

class QTimer;

// What the line has seen of one node address since the counters were last reset.
struct NodeLinkCounters {
    qint64 requests = 0;
    qint64 answered = 0; // a reply came: good, an exception or a bad frame
    qint64 timeouts = 0;
    qint64 badFrames = 0;
    qint64 exceptions = 0;
    qint64 noConnection = 0;
    qint64 lastMicros = -1; // time of the last reply, from the request going out
    qint64 worstMicros = 0;
    qint64 totalMicros = 0; // over the answered requests, for the mean
    int lastCode = 0;

    double meanMicros() const { return answered > 0 ? double(totalMicros) / answered : -1.0; }
};

// The one Modbus line every link control of the process shares. Unpaced, each request goes to
// the link at once, as many at a time as the controls start. Paced, requests wait their turn in
// the order they came: one on the line at a time, and after each has ended the line's silence and
// the guard pass before the next. Either way it counts what went out and how it ended.
class ModbusLine : public QObject {
    Q_OBJECT
public:
    struct Pacing {
        bool paced = false;
        int guardMicros = 0; // beyond the line's own silence, for slow converters and controllers
    };

    explicit ModbusLine(QObject* parent = nullptr);
    ~ModbusLine() override;

    void setPacing(const Pacing& pacing);
    const Pacing& pacing() const { return m_pacing; }
    // The silence kept before each request while paced: the line's own and the guard.
    qint64 silenceMicros() const;

    // Calls `done` exactly once, later, from the event loop.
    void submit(const ModbusRequest& request, ModbusBackend::Done done);

    int inFlight() const { return m_inFlight; }
    int waiting() const { return static_cast<int>(m_queue.size()); }

    static constexpr int kMaxNode = 247;
    const NodeLinkCounters& node(int address) const;
    qint64 requests() const { return m_requests; }
    // Time with at least one request on the line, and since when it is counted.
    qint64 busyMicros() const;
    qint64 countingSinceMicros() const { return m_since; }
    // The most requests that were on the line at once since the reset.
    int mostInFlight() const { return m_mostInFlight; }
    void resetCounters();

private:
    struct Waiting {
        ModbusRequest request;
        ModbusBackend::Done done;
    };
    void pump();
    void send(Waiting item);
    void finished(int node, qint64 sentAt, const ModbusBackend::Done& done,
                  const ModbusResult& result);

    Pacing m_pacing;
    std::deque<Waiting> m_queue;
    QTimer* m_gapTimer;
    int m_inFlight = 0;
    qint64 m_lastEnd = -1;
    std::array<NodeLinkCounters, kMaxNode + 1> m_nodes{};
    qint64 m_requests = 0;
    qint64 m_busy = 0;
    qint64 m_busySince = 0;
    qint64 m_since = 0;
    int m_mostInFlight = 0;
};

ModbusLine& modbusLine();
// A fresh line, unpaced, for tests; requests still on the old one end without it.
void resetModbusLine();
