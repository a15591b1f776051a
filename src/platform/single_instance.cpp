#include "single_instance.h"

#include "facade_slot.h"

#include <QDir>
#include <QFileInfo>
#include <QLockFile>
#include <QStandardPaths>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

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
    // The lock lives as long as the process: never stale by age while the holder runs, and free
    // at once when the process named in it is gone.
    d->lock.setStaleLockTime(0);
}

LockFileInstanceGuard::~LockFileInstanceGuard() = default;

namespace {
// After "su" without a login, XDG_RUNTIME_DIR still names the other user's folder.
bool ownFolder(const QFileInfo& folder) {
#ifdef Q_OS_UNIX
    return folder.isDir() && folder.isWritable() && folder.ownerId() == ::getuid();
#else
    return folder.isDir() && folder.isWritable();
#endif
}
} // namespace

bool LockFileInstanceGuard::acquire() {
    return d->lock.isLocked() || d->lock.tryLock(0);
}

QString LockFileInstanceGuard::defaultLockPath() {
    // Only in a folder of the user's own: in a shared one another user could make the file
    // first and keep the workstation from starting. The runtime folder is private by standard;
    // without one the user's cache folder serves.
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty() || !ownFolder(QFileInfo(folder)))
        folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
                 QStringLiteral("/sorvantel");
    QDir().mkpath(folder);
    return QDir(folder).filePath(QStringLiteral("sorvantel.lock"));
}
