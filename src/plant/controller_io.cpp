#include "controller_io.h"

#include "comm_errors.h"
#include "plant_store.h"
#include "platform/modctl.h"
#include "register_codec.h"

namespace {
constexpr int kK40SetpointRegister = 1;
constexpr int kProfilerSetpointRegister = 1003;
} // namespace

ControllerIo::ControllerIo(QObject* parent) : QObject(parent), m_modctl2(new Modctl(this)) {
    m_modctl2->setObjectName(QStringLiteral("Modctl2"));
    connect(m_modctl2, &Modctl::error, this, [](int code) { reportWriteError(code); });
}

ControllerIo& controllerIo() {
    static ControllerIo io;
    return io;
}

void ControllerIo::writeToControllerProcedure(int nodeAddress, int registerNumber, qint32 value) {
    if (gSimMode)
        return;
    m_modctl2->prepare(nodeAddress, ModbusArea::Holding, registerNumber, 1, 1);
    const int row = nodeAddress - 1;
    if (validRow(row) && gControlType[row] < 1)
        m_modctl2->setLongData(0, value);
    else
        m_modctl2->setData(0, static_cast<qint16>(value));
    m_modctl2->start();
}

SetpointWrite setpointWrite(int row, double value) {
    if (validRow(row) && gControlType[row] != K40Series)
        return {kProfilerSetpointRegister, encodeTenths(value)};
    return {kK40SetpointRegister, encodeK40(value, validRow(row) ? gScale[row] : 1.0F)};
}
