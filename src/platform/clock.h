#pragma once

#include <QDateTime>
#include <QElapsedTimer>
#include <memory>

// The time every date the system writes or names a file after comes from, and the steady time
// the link measures its replies and silences by, which a change of the wall clock never moves.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
    virtual qint64 steadyMicros() const { return machineSteadyMicros(); }

    static qint64 machineSteadyMicros() {
        static const QElapsedTimer since = [] {
            QElapsedTimer t;
            t.start();
            return t;
        }();
        return since.nsecsElapsed() / 1000;
    }
};

Clock& platformClock();
void installClock(std::unique_ptr<Clock> clock);
inline QDateTime currentDateTime() {
    return platformClock().now();
}
inline qint64 steadyMicros() {
    return platformClock().steadyMicros();
}

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
};
