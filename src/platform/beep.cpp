#include "beep.h"

#include "facade_slot.h"

#include <QApplication>

Beeper& beeper() {
    return FacadeSlot<Beeper>::get([] { return std::make_unique<SystemBeeper>(); });
}

void installBeeper(std::unique_ptr<Beeper> b) {
    FacadeSlot<Beeper>::install(std::move(b));
}

void SystemBeeper::beep() {
    QApplication::beep();
}
