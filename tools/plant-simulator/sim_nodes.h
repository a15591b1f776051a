// The unit addresses 1..64 of the simulated plant as a front (TCP or RTU) sees them: the faults
// set per node while it runs, the requests counted per node, and the answer of each request.
#pragma once

#include <QByteArrayView>
#include <QObject>
#include <QtSerialBus/QModbusPdu>
#include <array>

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

// What a node does with one request.
struct NodeAnswer {
    bool reply = false; // false: nothing goes back (dead, absent, broadcast)
    QModbusResponse response;
    NodeFaults faults; // of the node, for the front to apply to the reply's bytes and time
};

class SimNodes : public QObject {
    Q_OBJECT

public:
    static constexpr int MaxNode = 64;

    explicit SimNodes(SimPlant* plant, QObject* parent = nullptr);

    SimPlant* plant() const { return plant_; }

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

    // One request PDU (function code first) for the unit: counted, told by requestReceived, and
    // answered as the node and its faults would. With broadcast, unit 0 is a write that every
    // node which hears it (not dead, no exception fault) carries out, and none answers;
    // without, unit 0 is ignored as any address outside 1..64.
    NodeAnswer handle(quint8 unit, QByteArrayView pdu, bool broadcast);

signals:
    void requestReceived(int node, int functionCode);

private:
    NodeFaults* faultsOf(int node);

    SimPlant* plant_;
    std::array<NodeFaults, MaxNode + 1> faults_{};
    std::array<int, MaxNode + 1> counts_{};
};

} // namespace sim
