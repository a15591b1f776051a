#include "value_history.h"

#include <cmath>
#include <limits>

void ValueHistory::Ring::append(const Point& p) {
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

void ValueHistory::record(int row, const QDateTime& at, float pv, float sp, float out) {
    if (row < 0 || row >= int(m_rows.size()) || !at.isValid())
        return;
    Ring& ring = m_rows[size_t(row)];
    const Point p{at.toMSecsSinceEpoch(), pv, sp, out};
    // A read too soon after the last kept one is left out: an hour fits the ring at any rate.
    if (ring.size() > 0 && p.ms - ring.newest().ms < kSpacingMs && p.ms >= ring.newest().ms)
        return;
    ring.append(p);
}

void ValueHistory::recordBreak(int row, const QDateTime& at) {
    if (row < 0 || row >= int(m_rows.size()) || !at.isValid())
        return;
    Ring& ring = m_rows[size_t(row)];
    if (ring.size() == 0 || std::isnan(ring.newest().pv))
        return;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    ring.append({at.toMSecsSinceEpoch(), nan, nan, nan});
}

QVector<ValueHistory::Point> ValueHistory::since(int row, const QDateTime& from) const {
    QVector<Point> out;
    if (row < 0 || row >= int(m_rows.size()))
        return out;
    const Ring& ring = m_rows[size_t(row)];
    const qint64 start = from.toMSecsSinceEpoch();
    for (int i = 0; i < ring.size(); ++i)
        if (ring.at(i).ms >= start)
            out.append(ring.at(i));
    return out;
}

void ValueHistory::clear() {
    for (Ring& ring : m_rows)
        ring = {};
}

size_t ValueHistory::bytes() const {
    size_t total = 0;
    for (const Ring& ring : m_rows)
        total += size_t(ring.points.capacity()) * sizeof(Point);
    return total;
}

ValueHistory& valueHistory() {
    static ValueHistory history;
    return history;
}
