#include "clock.h"

#include "facade_slot.h"

Clock& platformClock() {
    return FacadeSlot<Clock>::get([] { return std::make_unique<SystemClock>(); });
}

void installClock(std::unique_ptr<Clock> clock) {
    FacadeSlot<Clock>::install(std::move(clock));
}
