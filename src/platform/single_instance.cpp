#include "single_instance.h"

#include "facade_slot.h"

#include <QDir>
#include <QLockFile>

InstanceGuard& instanceGuard() {
    return FacadeSlot<InstanceGuard>::get([] { return std::make_unique<LockFileInstanceGuard>(); });
}

void installInstanceGuard(std::unique_ptr<InstanceGuard> guard) {
    FacadeSlot<InstanceGuard>::install(std::move(guard));
}

struct LockFileInstanceGuard::Impl {
    explicit Impl(const QString& path) : lock(path) {}
    QLockFile lock;
};

LockFileInstanceGuard::LockFileInstanceGuard(QString lockPath)
    : d(std::make_unique<Impl>(lockPath)) {
    // The lock lives as long as the process; it is never considered stale while the holder runs.
    d->lock.setStaleLockTime(0);
}

LockFileInstanceGuard::~LockFileInstanceGuard() = default;

bool LockFileInstanceGuard::acquire() {
    return d->lock.isLocked() || d->lock.tryLock(0);
}

QString LockFileInstanceGuard::defaultLockPath() {
    QString user = qEnvironmentVariable("USER");
    if (user.isEmpty())
        user = qEnvironmentVariable("USERNAME");
    return QDir::temp().filePath(QStringLiteral("sorvantel-%1.lock").arg(user));
}
