#include "sim_wire.h"

#include <QSocketNotifier>
#include <QTimer>
#include <algorithm>
#include <cmath>

#ifdef Q_OS_LINUX
#include <sys/timerfd.h>
#include <unistd.h>
#endif

namespace sim {

qint64 SerialFormat::exchangeUs(qsizetype requestChars, qsizetype replyChars) const {
    const double us = replyChars > 0
                          ? static_cast<double>(requestChars + replyChars) * charUs() + silenceUs()
                          : static_cast<double>(requestChars) * charUs();
    return static_cast<qint64>(std::ceil(us - 1e-6)); // a whole microsecond stays whole
}

QString SerialFormat::text() const {
    return QStringLiteral("%1 8%2%3").arg(baud).arg(QLatin1Char(parity)).arg(stopBits);
}

qint64 LineCheck::request(qint64 arrivedUs) {
    if (requests_ == 0)
        first_ = arrivedUs;
    last_ = arrivedUs;
    ++requests_;
    if (pending_ > 0 || (freeAt_ && arrivedUs < *freeAt_)) {
        ++overlaps_;
        return std::max(arrivedUs, freeAt_.value_or(arrivedUs));
    }
    if (freeAt_) {
        const qint64 silence = arrivedUs - *freeAt_;
        shortestSilence_ = std::min(silence, shortestSilence_.value_or(silence));
    }
    return arrivedUs;
}

void LineCheck::hold(qint64 endUs, bool replyPending) {
    freeAt_ = std::max(endUs, freeAt_.value_or(endUs));
    if (replyPending)
        ++pending_;
}

void LineCheck::written(qint64 atUs) {
    pending_ = std::max(0, pending_ - 1);
    freeAt_ = std::max(atUs, freeAt_.value_or(atUs));
}

void LineCheck::reset() {
    requests_ = 0;
    overlaps_ = 0;
    shortestSilence_.reset();
    first_ = last_ = 0;
}

QString LineCheck::summary() const {
    return QStringLiteral("line: requests %1, overlaps %2, shortest silence %3, first..last %4 s")
        .arg(requests_)
        .arg(overlaps_)
        .arg(shortestSilence_ ? QStringLiteral("%1 us").arg(*shortestSilence_)
                              : QStringLiteral("-"))
        .arg(static_cast<double>(last_ - first_) / 1e6, 0, 'f', 2);
}

SimWire::SimWire(QObject* parent) : QObject(parent) {
    clock_.start();
#ifdef Q_OS_LINUX
    // A timer file fires to the microsecond; a Qt timer only to the millisecond, which at
    // 38400 baud is a third of an exchange.
    timerFd_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (timerFd_ >= 0) {
        notifier_ = new QSocketNotifier(timerFd_, QSocketNotifier::Read, this);
        connect(notifier_, &QSocketNotifier::activated, this, [this] {
            quint64 expirations = 0;
            [[maybe_unused]] const ssize_t n = ::read(timerFd_, &expirations, sizeof expirations);
            fire();
        });
        return;
    }
#endif
    timer_ = new QTimer(this);
    timer_->setSingleShot(true);
    timer_->setTimerType(Qt::PreciseTimer);
    connect(timer_, &QTimer::timeout, this, &SimWire::fire);
}

SimWire::~SimWire() {
#ifdef Q_OS_LINUX
    if (timerFd_ >= 0) {
        delete notifier_;
        ::close(timerFd_);
    }
#endif
}

void SimWire::setPacing(std::optional<SerialFormat> format) {
    pacing_ = format;
}

void SimWire::exchange(qint64 arrivedUs, qsizetype requestChars, qsizetype replyChars, int delayMs,
                       std::function<void()> write) {
    const qint64 delayUs = static_cast<qint64>(std::max(delayMs, 0)) * 1000;
    const qint64 start = line_.request(arrivedUs);
    if (!pacing_) {
        // As fast as the link goes: concurrent exchanges do not wait for each other.
        if (!write) {
            line_.hold(arrivedUs, false);
        } else if (delayUs == 0) {
            write();
            line_.hold(nowUs(), false);
        } else {
            line_.hold(nowUs() + delayUs, true);
            pending_.emplace(nowUs() + delayUs, std::move(write));
            arm();
        }
        return;
    }
    if (!write) {
        line_.hold(start + pacing_->exchangeUs(requestChars, 0), false);
        return;
    }
    const qint64 due = start + pacing_->exchangeUs(requestChars, replyChars) + delayUs;
    line_.hold(due, true);
    pending_.emplace(due, std::move(write));
    arm();
}

void SimWire::clear() {
    const qint64 now = nowUs();
    for (std::size_t i = 0; i < pending_.size(); ++i)
        line_.written(now);
    pending_.clear();
    arm();
}

void SimWire::arm() {
    // Never 0: that would disarm the timer file.
    const qint64 waitUs =
        pending_.empty() ? 0 : std::max<qint64>(pending_.begin()->first - nowUs(), 1);
#ifdef Q_OS_LINUX
    if (timerFd_ >= 0) {
        itimerspec when{}; // all zero: disarmed
        when.it_value.tv_sec = static_cast<time_t>(waitUs / 1000000);
        when.it_value.tv_nsec = static_cast<long>(waitUs % 1000000) * 1000;
        ::timerfd_settime(timerFd_, 0, &when, nullptr);
        return;
    }
#endif
    if (waitUs == 0) {
        timer_->stop();
        return;
    }
    // Rounded up: a reply that comes early would hide a master that does not wait for it.
    timer_->start(static_cast<int>((waitUs + 999) / 1000));
}

void SimWire::fire() {
    while (!pending_.empty() && pending_.begin()->first <= nowUs()) {
        const std::function<void()> write = std::move(pending_.begin()->second);
        pending_.erase(pending_.begin());
        // Timed before the write: the master may see the bytes and run before the write returns.
        const qint64 at = nowUs();
        write();
        line_.written(at);
    }
    arm();
}

} // namespace sim
