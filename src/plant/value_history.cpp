#include "value_history.h"

#include <cmath>
#include <cstdlib>
#include <limits>

void ValueHistory::Ring::append(const Kept& p) {
    if (points.size() < kCapacity) {
        // The whole ring at once: a controller that is read at all fills it within the hour.
        if (points.isEmpty())
            points.reserve(kCapacity);
        points.append(p);
        return;
    }
    points[first] = p;
    first = (first + 1) % kCapacity;
}

void ValueHistory::append(int row, const Point& p) {
    // Times are kept as offsets of 32 bits (24 days either way). A workstation up for longer,
    // or a clock set far off, starts the offsets again from now; the hour before is dropped
    // only where it would not fit.
    constexpr qint64 kReach = std::numeric_limits<qint32>::max() - 2 * kKeepMs;
    if (!m_based || p.ms - m_baseMs > kReach || m_baseMs - p.ms > kReach) {
        const qint64 base = p.ms - kKeepMs;
        for (Ring& ring : m_rows) {
            Ring moved;
            for (int i = 0; i < ring.size(); ++i) {
                const qint64 ms = m_baseMs + ring.at(i).ms;
                if (m_based && std::abs(ms - base) <= kReach) {
                    Kept k = ring.at(i);
                    k.ms = qint32(ms - base);
                    moved.append(k);
                }
            }
            ring = std::move(moved);
        }
        m_baseMs = base;
        m_based = true;
    }
    m_rows[size_t(row)].append({qint32(p.ms - m_baseMs), p.pv, p.sp, p.out});
}

void ValueHistory::record(int row, const QDateTime& at, float pv, float sp, float out) {
    if (row < 0 || row >= int(m_rows.size()) || !at.isValid())
        return;
    const Ring& ring = m_rows[size_t(row)];
    const Point p{at.toMSecsSinceEpoch(), pv, sp, out};
    // A read too soon after the last kept one is left out: an hour fits the ring at any rate.
    if (ring.size() > 0) {
        const qint64 newest = m_baseMs + ring.newest().ms;
        if (p.ms - newest < kSpacingMs && p.ms >= newest)
            return;
    }
    append(row, p);
}

void ValueHistory::recordBreak(int row, const QDateTime& at) {
    if (row < 0 || row >= int(m_rows.size()) || !at.isValid())
        return;
    const Ring& ring = m_rows[size_t(row)];
    if (ring.size() == 0 || std::isnan(ring.newest().pv))
        return;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    append(row, {at.toMSecsSinceEpoch(), nan, nan, nan});
}

QVector<ValueHistory::Point> ValueHistory::since(int row, const QDateTime& from) const {
    QVector<Point> out;
    if (row < 0 || row >= int(m_rows.size()))
        return out;
    const Ring& ring = m_rows[size_t(row)];
    const qint64 start = from.toMSecsSinceEpoch();
    for (int i = 0; i < ring.size(); ++i) {
        const Kept& k = ring.at(i);
        if (m_baseMs + k.ms >= start)
            out.append({m_baseMs + k.ms, k.pv, k.sp, k.out});
    }
    return out;
}

void ValueHistory::clear() {
    for (Ring& ring : m_rows)
        ring = {};
    m_based = false;
}

size_t ValueHistory::bytes() const {
    size_t total = 0;
    for (const Ring& ring : m_rows)
        total += size_t(ring.points.capacity()) * sizeof(Kept);
    return total;
}

ValueHistory& valueHistory() {
    static ValueHistory history;
    return history;
}
