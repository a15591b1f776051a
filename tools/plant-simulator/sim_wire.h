// The simulated RS-485 line behind a front: how long an exchange takes at a given character
// format, replies held back until the line would have carried them, and the line check, which
// tells from the request times whether the master kept to the line's rules.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <functional>
#include <map>
#include <optional>

class QSocketNotifier;
class QTimer;

namespace sim {

struct SerialFormat {
    int baud = 19200;
    char parity = 'N'; // N, E or O
    int stopBits = 1;

    // Start bit, 8 data bits, the parity bit if any and the stop bits.
    int bitsPerChar() const { return 9 + (parity == 'N' ? 0 : 1) + stopBits; }
    double charUs() const { return 1e6 * bitsPerChar() / baud; }
    // The silence that ends a frame: 3.5 characters, fixed at 1750 us above 19200 baud.
    double silenceUs() const { return baud > 19200 ? 1750.0 : 3.5 * charUs(); }
    // From the first character of a request to the last of its reply (to the request's last
    // character when there is no reply), rounded up to the microsecond.
    qint64 exchangeUs(qsizetype requestChars, qsizetype replyChars) const;
    QString text() const; // "19200 8N1"
};

// Counts, from the request times, what the master did on the line since the start or a reset.
// An exchange holds the line from its request until its reply has been sent; a request that
// arrives while one does is an overlap, two requests on the line at once.
class LineCheck {
public:
    // A whole request arrived; returns when the line is free to carry it (at least arrivedUs).
    qint64 request(qint64 arrivedUs);
    // The exchange of the last request holds the line until endUs; replyPending: its reply is
    // still to be written, and the line stays held until written() says it was.
    void hold(qint64 endUs, bool replyPending);
    void written(qint64 atUs);
    // Counters only: an exchange under way still holds the line.
    void reset();

    int requests() const { return requests_; }
    int overlaps() const { return overlaps_; }
    // Shortest time from the end of a reply to the next request; none before two exchanges.
    std::optional<qint64> shortestSilenceUs() const { return shortestSilence_; }
    qint64 firstUs() const { return first_; }
    qint64 lastUs() const { return last_; }
    QString summary() const;

private:
    std::optional<qint64> freeAt_;
    int pending_ = 0;
    int requests_ = 0;
    int overlaps_ = 0;
    std::optional<qint64> shortestSilence_;
    qint64 first_ = 0;
    qint64 last_ = 0;
};

// Times the exchanges of a front on a monotonic clock. Paced, each exchange waits until the
// line is free, and its reply is written when the simulated line would have delivered its last
// character; otherwise a reply is written at once, or after its node's delay.
class SimWire : public QObject {
    Q_OBJECT

public:
    explicit SimWire(QObject* parent = nullptr);
    ~SimWire() override;

    void setPacing(std::optional<SerialFormat> format);
    const std::optional<SerialFormat>& pacing() const { return pacing_; }

    // Microseconds since the wire was made.
    qint64 nowUs() const { return clock_.nsecsElapsed() / 1000; }

    // A request of requestChars characters on the line arrived whole at arrivedUs. write sends
    // the reply of replyChars characters when its time comes, delayMs later still; an empty
    // write means no reply.
    void exchange(qint64 arrivedUs, qsizetype requestChars, qsizetype replyChars, int delayMs,
                  std::function<void()> write);
    // Drops the replies not written yet.
    void clear();
    int pendingReplies() const { return static_cast<int>(pending_.size()); }

    LineCheck& line() { return line_; }
    const LineCheck& line() const { return line_; }

private:
    void arm();
    void fire();

    QElapsedTimer clock_;
    std::optional<SerialFormat> pacing_;
    LineCheck line_;
    std::multimap<qint64, std::function<void()>> pending_; // by the time each is due
    int timerFd_ = -1;
    QSocketNotifier* notifier_ = nullptr;
    QTimer* timer_ = nullptr;
};

} // namespace sim
