#pragma once

#include <QObject>

class Modctl;

// The writes to the controllers, on their own link control (Modctl2) so that they never wait
// for the poll on Modctl1. Writes are fire-and-forget: the new value shows when the poll next
// reaches the controller; a failure is the write error box, with no retry.
class ControllerIo : public QObject {
    Q_OBJECT
public:
    explicit ControllerIo(QObject* parent = nullptr);

    // One register of one controller. A K40 takes the value as 32 bits (offset numbers above
    // 32767), a profiler as a 16-bit word. Nothing at all in simulation.
    void writeToControllerProcedure(int nodeAddress, int registerNumber, qint32 value);

    Modctl* modctl2() const { return m_modctl2; }

private:
    Modctl* m_modctl2;
};

ControllerIo& controllerIo();

// Where a new setpoint of the controller in this row goes and as what: register 1 with the
// K40 offset encoding, register 1003 with the profilers' tenths.
struct SetpointWrite {
    int registerNumber;
    qint32 raw;
};
SetpointWrite setpointWrite(int row, double value);
