#include "file_io.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#endif
#ifdef Q_OS_WIN
#include <io.h>
#endif

bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        if (error)
            *error = file.errorString();
        return false;
    }
    return true;
}

bool ensureFileExists(const QString& path, QString* error) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::Append)) {
        if (error)
            *error = file.errorString();
        return false;
    }
    return true;
}

#ifdef Q_OS_UNIX
namespace {
bool fail(QString* error, const QString& what) {
    if (error)
        *error = what + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
    return false;
}

void syncFolderOf(const QString& path) {
    const QByteArray dir = QFile::encodeName(QFileInfo(path).absolutePath());
    const int fd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}
} // namespace

bool appendRecordLine(const QString& path, const QByteArray& line, QString* error) {
    const QByteArray name = QFile::encodeName(path);
    bool created = false;
    int fd = ::open(name.constData(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
        fd = ::open(name.constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
        created = fd >= 0;
    }
    if (fd < 0)
        return fail(error, path);
    const char* p = line.constData();
    qsizetype left = line.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            const int saved = errno;
            ::close(fd);
            errno = saved;
            return fail(error, path);
        }
        p += n;
        left -= n;
    }
    if (::fdatasync(fd) != 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        return fail(error, path);
    }
    if (::close(fd) != 0)
        return fail(error, path);
    if (created)
        syncFolderOf(path);
    return true;
}
#else
bool appendRecordLine(const QString& path, const QByteArray& line, QString* error) {
    QFile file(path);
    bool ok = file.open(QIODevice::WriteOnly | QIODevice::Append) &&
              file.write(line) == line.size() && file.flush();
#ifdef Q_OS_WIN
    ok = ok && ::_commit(file.handle()) == 0;
#endif
    if (!ok && error)
        *error = file.errorString();
    return ok;
}
#endif
