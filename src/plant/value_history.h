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
    struct Ring {
        QVector<Point> points; // grows to kCapacity, then wraps
        int first = 0;         // index of the oldest once wrapped
        int size() const { return int(points.size()); }
        const Point& at(int i) const { return points[(first + i) % points.size()]; }
        Point& newest() { return points[(first + points.size() - 1) % points.size()]; }
        void append(const Point& p);
    };
    std::array<Ring, 64> m_rows;
};

ValueHistory& valueHistory();
