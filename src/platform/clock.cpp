#include "clock.h"

namespace {
std::unique_ptr<Clock>& clockSlot() {
    static std::unique_ptr<Clock> c;
    return c;
}
} // namespace

Clock& platformClock() {
    auto& slot = clockSlot();
    if (!slot)
        slot = std::make_unique<SystemClock>();
    return *slot;
}

void installClock(std::unique_ptr<Clock> clock) {
    clockSlot() = std::move(clock);
}
