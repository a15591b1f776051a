#include "modctl.h"

#include "modbus_line.h"

#include <QTimer>

namespace {
bool validIndex(int i) {
    return i >= 0 && i < Modctl::kMaxWords;
}
} // namespace

Modctl::Modctl(QObject* parent) : QObject(parent) {}

qint16 Modctl::data(int i) const {
    return validIndex(i) ? static_cast<qint16>(static_cast<quint16>(m_buffer[i] & 0xFFFF)) : 0;
}

void Modctl::setData(int i, qint16 value) {
    if (validIndex(i))
        m_buffer[i] = value;
}

qint32 Modctl::longData(int i) const {
    return validIndex(i) ? m_buffer[i] : 0;
}

void Modctl::setLongData(int i, qint32 value) {
    if (validIndex(i))
        m_buffer[i] = value;
}

void Modctl::failLater(int code) {
    QPointer<Modctl> self(this);
    QTimer::singleShot(0, this, [self, code] {
        if (self)
            emit self->error(code);
    });
}

void Modctl::start() {
    if (m_busy) {
        if (m_busyWriting) {
            failLater(ModbusCode::SlaveBusy);
            return;
        }
        // The same read asked again while it runs (a profiler is asked on every tick) waits
        // for the answer on its way: nothing new goes out, and that answer, or the link's time-out
        // for a controller that is not there, is the outcome of both starts.
        if (node == m_running.node && dataArea == m_running.dataArea &&
            firstRegister == m_running.firstRegister && count == m_running.count && direction == 0)
            return;
        // Another request: the running read is abandoned, its answer dropped if it ever comes,
        // so that no answer is taken for another controller's.
        ++m_transaction;
        m_busy = false;
    }
    if (node < 0 || node > 247) {
        failLater(ModbusCode::InvalidNode);
        return;
    }
    if (count < 1 || count > kMaxWords || firstRegister < 0 || firstRegister + count > 65536) {
        failLater(ModbusCode::IllegalAddress);
        return;
    }
    ModbusRequest request;
    request.node = node;
    request.dataArea = dataArea;
    request.firstRegister = firstRegister;
    request.count = count;
    request.direction = direction;
    if (direction == 1) {
        request.values.reserve(count);
        for (int i = 0; i < count; ++i)
            request.values.append(static_cast<quint16>(m_buffer[i] & 0xFFFF));
    }
    m_busy = true;
    m_busyWriting = direction == 1;
    m_running = request;
    const quint64 transaction = ++m_transaction;
    QPointer<Modctl> self(this);
    const int expected = count;
    const int dir = direction;
    modbusLine().submit(request, [self, transaction, expected, dir](const ModbusResult& result) {
        if (self)
            self->finish(transaction, result, expected, dir);
    });
}

void Modctl::finish(quint64 transaction, const ModbusResult& result, int expectedCount, int dir) {
    if (transaction != m_transaction)
        return; // abandoned
    m_busy = false;
    if (result.code != ModbusCode::Ok) {
        emit error(result.code);
        return;
    }
    if (dir == 1) {
        emit writeComplete();
        return;
    }
    // The link accepts a reply whose count differs from the request; we do not.
    if (result.values.size() != expectedCount) {
        emit error(ModbusCode::BadFrame);
        return;
    }
    for (int i = 0; i < expectedCount; ++i)
        m_buffer[i] = result.values[i];
    emit readComplete();
}
