#include "modbus_line.h"

#include "clock.h"
#include "facade_slot.h"
#include "qt_modbus_backend.h"

#include <QPointer>
#include <QTimer>
#include <cmath>

ModbusBackend& modbusBackend() {
    return FacadeSlot<ModbusBackend>::get(
        [] { return std::make_unique<QtModbusBackend>(QtModbusBackend::settingsFromStore()); });
}

void installModbusBackend(std::unique_ptr<ModbusBackend> backend) {
    FacadeSlot<ModbusBackend>::install(std::move(backend));
}

ModbusLine& modbusLine() {
    return FacadeSlot<ModbusLine>::get([] { return std::make_unique<ModbusLine>(); });
}

void resetModbusLine() {
    FacadeSlot<ModbusLine>::install(nullptr);
}

ModbusLine::ModbusLine(QObject* parent) : QObject(parent), m_gapTimer(new QTimer(this)) {
    m_gapTimer->setSingleShot(true);
    // A coarse timer may fire early; the silence is a minimum.
    m_gapTimer->setTimerType(Qt::PreciseTimer);
    connect(m_gapTimer, &QTimer::timeout, this, &ModbusLine::pump);
    m_since = steadyMicros();
}

ModbusLine::~ModbusLine() {
    // Requests that never went out still get their one answer, from the event loop as always.
    for (Waiting& w : m_queue)
        if (w.done)
            QTimer::singleShot(0, [done = std::move(w.done)] {
                done(ModbusResult{ModbusCode::NoConnection, {}});
            });
}

void ModbusLine::setPacing(const Pacing& pacing) {
    // Unpaced again, the link keeps only its own default silence.
    if (m_pacing.paced && !pacing.paced)
        modbusBackend().keepSilence(0);
    m_pacing = pacing;
    m_pacing.guardMicros = qMax(0, pacing.guardMicros);
    while (!m_pacing.paced && !m_queue.empty()) {
        Waiting w = std::move(m_queue.front());
        m_queue.pop_front();
        send(std::move(w));
    }
    pump();
}

qint64 ModbusLine::silenceMicros() const {
    return modbusBackend().lineSilenceMicros() + m_pacing.guardMicros;
}

void ModbusLine::submit(const ModbusRequest& request, ModbusBackend::Done done) {
    if (!m_pacing.paced) {
        send(Waiting{request, std::move(done)});
        return;
    }
    m_queue.push_back(Waiting{request, std::move(done)});
    pump();
}

void ModbusLine::pump() {
    if (!m_pacing.paced || m_inFlight > 0 || m_queue.empty())
        return;
    // Asked before each request: the link may have been replaced since.
    const qint64 own = modbusBackend().keepSilence(silenceMicros());
    if (m_lastEnd >= 0 && own > 0) {
        const qint64 left = m_lastEnd + own - steadyMicros();
        if (left > 0) {
            m_gapTimer->start(static_cast<int>((left + 999) / 1000));
            return;
        }
    }
    Waiting w = std::move(m_queue.front());
    m_queue.pop_front();
    send(std::move(w));
}

void ModbusLine::send(Waiting item) {
    const qint64 now = steadyMicros();
    const int node = item.request.node;
    ++m_nodes[static_cast<std::size_t>(qBound(0, node, kMaxNode))].requests;
    ++m_requests;
    if (m_inFlight++ == 0)
        m_busySince = now;
    m_mostInFlight = qMax(m_mostInFlight, m_inFlight);
    QPointer<ModbusLine> self(this);
    modbusBackend().submit(
        item.request, [self, node, now, done = std::move(item.done)](const ModbusResult& result) {
            if (self)
                self->finished(node, now, done, result);
            else if (done)
                done(result);
        });
}

void ModbusLine::finished(int node, qint64 sentAt, const ModbusBackend::Done& done,
                          const ModbusResult& result) {
    const qint64 now = steadyMicros();
    if (--m_inFlight == 0)
        m_busy += now - qMax(m_busySince, m_since);
    m_lastEnd = now;
    NodeLinkCounters& c = m_nodes[static_cast<std::size_t>(qBound(0, node, kMaxNode))];
    c.lastCode = result.code;
    switch (result.code) {
    case ModbusCode::NoResponse:
    case ModbusCode::Timeout:
        ++c.timeouts;
        break;
    case ModbusCode::NoConnection:
        ++c.noConnection;
        break;
    default:
        if (result.code == ModbusCode::BadFrame)
            ++c.badFrames;
        else if (result.code != ModbusCode::Ok)
            ++c.exceptions;
        // A reply came, good or not: the controller is there and this is how long it took.
        ++c.answered;
        c.lastMicros = now - sentAt;
        c.worstMicros = qMax(c.worstMicros, c.lastMicros);
        c.totalMicros += c.lastMicros;
        break;
    }
    if (done)
        done(result);
    pump();
}

const NodeLinkCounters& ModbusLine::node(int address) const {
    return m_nodes[static_cast<std::size_t>(qBound(0, address, kMaxNode))];
}

qint64 ModbusLine::busyMicros() const {
    return m_busy + (m_inFlight > 0 ? steadyMicros() - qMax(m_busySince, m_since) : 0);
}

void ModbusLine::resetCounters() {
    m_nodes.fill(NodeLinkCounters{});
    m_requests = 0;
    m_busy = 0;
    m_since = steadyMicros();
    m_mostInFlight = m_inFlight;
}
