#pragma once

#include <QDateTime>
#include <QVector>
#include <array>
#include <cstddef>

// The recent past of every controller: its process value, setpoint and output at its good reads
// for the last hour, so that a trend opened later starts filled. Kept in memory only, at most one
// point a controller in kSpacingMs (a read sooner after the last kept one is left out), so that
// an hour fits the ring whatever the poll's rate. A controller that stops answering leaves a
// break.
class ValueHistory {
public:
    struct Point {
        qint64 ms = 0; // since the epoch, from the clock of the reads
        float pv = 0;  // NaN where the controller gave no number
        float sp = 0;
        float out = 0;
    };
    static constexpr qint64 kKeepMs = 3600 * 1000;
    static constexpr int kCapacity = 4096;
    static constexpr qint64 kSpacingMs = kKeepMs / kCapacity + 1;

    void record(int row, const QDateTime& at, float pv, float sp, float out);
    // A break in the row's values: a point of NaN, once.
    void recordBreak(int row, const QDateTime& at);
    // The row's points from the moment given on, oldest first.
    QVector<Point> since(int row, const QDateTime& from) const;
    void clear();
    // Memory held by the points.
    size_t bytes() const;

private:
    // A point as kept: its time in ms from m_baseMs, so that it takes 16 bytes, not 24.
    struct Kept {
        qint32 ms = 0;
        float pv = 0;
        float sp = 0;
        float out = 0;
    };
    struct Ring {
        QVector<Kept> points; // grows to kCapacity, then wraps
        int first = 0;        // index of the oldest once wrapped
        int size() const { return int(points.size()); }
        const Kept& at(int i) const { return points[(first + i) % points.size()]; }
        const Kept& newest() const { return points[(first + points.size() - 1) % points.size()]; }
        void append(const Kept& p);
    };
    void append(int row, const Point& p);
    std::array<Ring, 64> m_rows;
    qint64 m_baseMs = 0;
    bool m_based = false;
};

ValueHistory& valueHistory();
