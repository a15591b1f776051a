#pragma once

#include <QDateTime>
#include <memory>

// The time every date the system writes or names a file after comes from.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;
};

Clock& platformClock();
void installClock(std::unique_ptr<Clock> clock);
inline QDateTime currentDateTime() {
    return platformClock().now();
}

class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTime(); }
};
