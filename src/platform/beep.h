#pragma once

#include <memory>

// The standard system beep.
class Beeper {
public:
    virtual ~Beeper() = default;
    virtual void beep() = 0;
};

Beeper& beeper();
void installBeeper(std::unique_ptr<Beeper> beeper);
inline void beep() {
    beeper().beep();
}

class SystemBeeper final : public Beeper {
public:
    void beep() override;
};
