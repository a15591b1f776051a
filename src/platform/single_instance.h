#pragma once

#include <QString>
#include <memory>

// Tells whether the workstation already runs for this user. The real guard holds a lock file for
// the life of the process; a lock left by a crashed process is taken over.
class InstanceGuard {
public:
    virtual ~InstanceGuard() = default;
    // Takes the guard; false when another live process holds it.
    virtual bool acquire() = 0;
};

InstanceGuard& instanceGuard();
void installInstanceGuard(std::unique_ptr<InstanceGuard> guard);

class LockFileInstanceGuard final : public InstanceGuard {
public:
    explicit LockFileInstanceGuard(QString lockPath = defaultLockPath());
    ~LockFileInstanceGuard() override;
    bool acquire() override;
    static QString defaultLockPath();

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
