#include "beep.h"

#include <QApplication>

namespace {
std::unique_ptr<Beeper>& beeperSlot() {
    static std::unique_ptr<Beeper> b;
    return b;
}
} // namespace

Beeper& beeper() {
    auto& slot = beeperSlot();
    if (!slot)
        slot = std::make_unique<SystemBeeper>();
    return *slot;
}

void installBeeper(std::unique_ptr<Beeper> b) {
    beeperSlot() = std::move(b);
}

void SystemBeeper::beep() {
    QApplication::beep();
}
