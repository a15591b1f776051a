#include "sim_nodes.h"

#include "sim_plant.h"

#include <algorithm>

namespace sim {

namespace {

bool isWrite(int functionCode) {
    return functionCode == QModbusPdu::WriteSingleCoil ||
           functionCode == QModbusPdu::WriteSingleRegister ||
           functionCode == QModbusPdu::WriteMultipleCoils ||
           functionCode == QModbusPdu::WriteMultipleRegisters;
}

} // namespace

SimNodes::SimNodes(SimPlant* plant, QObject* parent) : QObject(parent), plant_(plant) {}

NodeFaults* SimNodes::faultsOf(int node) {
    return node >= 1 && node <= MaxNode ? &faults_[static_cast<std::size_t>(node)] : nullptr;
}

void SimNodes::setDead(int node, bool dead) {
    if (NodeFaults* f = faultsOf(node))
        f->dead = dead;
}

void SimNodes::setException(int node, int code) {
    if (NodeFaults* f = faultsOf(node))
        f->exception = std::clamp(code, 0, 255);
}

void SimNodes::setDelay(int node, int ms) {
    if (NodeFaults* f = faultsOf(node))
        f->delayMs = std::max(ms, 0);
}

void SimNodes::setCut(int node, bool cut) {
    if (NodeFaults* f = faultsOf(node))
        f->cut = cut;
}

void SimNodes::setGarble(int node, bool garble) {
    if (NodeFaults* f = faultsOf(node))
        f->garble = garble;
}

void SimNodes::clearFaults() {
    faults_.fill(NodeFaults{});
}

NodeFaults SimNodes::faults(int node) const {
    return node >= 1 && node <= MaxNode ? faults_[static_cast<std::size_t>(node)] : NodeFaults{};
}

int SimNodes::requestCount(int node) const {
    return node >= 1 && node <= MaxNode ? counts_[static_cast<std::size_t>(node)] : 0;
}

void SimNodes::resetRequestCounts() {
    counts_.fill(0);
}

NodeAnswer SimNodes::handle(quint8 unit, QByteArrayView pdu, bool broadcast) {
    NodeAnswer answer;
    if (pdu.isEmpty())
        return answer;
    const int functionCode = static_cast<quint8>(pdu.at(0));
    const auto code = static_cast<QModbusPdu::FunctionCode>(functionCode & 0x7F);
    const QByteArray data = pdu.sliced(1).toByteArray();
    if (unit >= 1 && unit <= MaxNode)
        ++counts_[unit];
    emit requestReceived(unit, functionCode);

    if (unit == 0 && broadcast && isWrite(functionCode)) {
        for (int node : plant_->nodes()) {
            const NodeFaults f = faults(node);
            if (!f.dead && f.exception == 0)
                plant_->process(node, QModbusRequest(code, data));
        }
        return answer;
    }
    answer.faults = faults(unit);
    if (unit < 1 || unit > MaxNode || answer.faults.dead || !plant_->hasNode(unit))
        return answer;

    answer.reply = true;
    if (functionCode & 0x80)
        answer.response = QModbusExceptionResponse(code, QModbusPdu::IllegalFunction);
    else if (answer.faults.exception != 0)
        answer.response = QModbusExceptionResponse(
            code, static_cast<QModbusPdu::ExceptionCode>(answer.faults.exception));
    else
        answer.response = plant_->process(unit, QModbusRequest(code, data));
    return answer;
}

} // namespace sim
