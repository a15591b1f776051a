#include "file_io.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
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

bool copyFileOver(const QString& from, const QString& to, QString* error) {
    QFile source(from);
    if (!source.open(QIODevice::ReadOnly)) {
        if (error)
            *error = source.errorString();
        return false;
    }
    const QByteArray bytes = source.readAll();
    // A read cut short must not become a short copy.
    if (source.error() != QFileDevice::NoError) {
        if (error)
            *error = source.errorString();
        return false;
    }
    return writeFileAtomically(to, bytes, error);
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
int gLastErrno = 0;

bool fail(QString* error, const QString& what) {
    gLastErrno = errno;
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
// One line as one write, then synced. A line the disk took only in part is cut off again, so that
// the next line does not run on from a torn one.
bool writeLineSynced(int fd, const QByteArray& line) {
    const off_t before = ::lseek(fd, 0, SEEK_END);
    const char* p = line.constData();
    qsizetype left = line.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = ENOSPC;
            const int saved = errno;
            if (before >= 0 && left < line.size() && ::ftruncate(fd, before) == 0)
                ::fdatasync(fd);
            errno = gLastErrno = saved;
            return false;
        }
        p += n;
        left -= n;
    }
    if (::fdatasync(fd) != 0) {
        gLastErrno = errno;
        return false;
    }
    return true;
}
} // namespace

int lastFileErrorNumber() {
    return gLastErrno == ENOSPC ? 61 : 75;
}

RecordAppender::~RecordAppender() {
    close();
}

bool RecordAppender::create(const QString& path, QString* error) {
    close();
    m_path = path;
    m_fd = ::open(QFile::encodeName(path).constData(),
                  O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (m_fd < 0)
        return fail(error, path);
    syncFolderOf(path);
    return true;
}

bool RecordAppender::append(const QByteArray& line, QString* error) {
    if (m_fd < 0) {
        errno = EBADF;
        return fail(error, QStringLiteral("data file"));
    }
    return writeLineSynced(m_fd, line) || fail(error, QStringLiteral("data file"));
}

void RecordAppender::close() {
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

bool RecordAppender::isOpen() const {
    return m_fd >= 0;
}

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
    if (!writeLineSynced(fd, line)) {
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
bool openPrivateScratch(QFile& file, QString* error) {
    const QString path = file.fileName();
    const QByteArray name = QFile::encodeName(path);
    struct stat there {};
    if (::lstat(name.constData(), &there) == 0) {
        if (!S_ISREG(there.st_mode)) {
            errno = EEXIST;
            gLastErrno = errno;
            if (error)
                *error = path + QStringLiteral(": a link or no plain file stands at this name; it "
                                               "is left as it is");
            return false;
        }
        if (::unlink(name.constData()) != 0)
            return fail(error, path);
    } else if (errno != ENOENT) {
        return fail(error, path);
    }
    const int fd =
        ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return fail(error, path);
    if (!file.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        if (error)
            *error = file.errorString();
        return false;
    }
    return true;
}
#else
bool openPrivateScratch(QFile& file, QString* error) {
    QFile::remove(file.fileName());
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        if (error)
            *error = file.errorString();
        return false;
    }
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return true;
}

int lastFileErrorNumber() {
    return 75;
}

RecordAppender::~RecordAppender() {
    close();
}

bool RecordAppender::create(const QString& path, QString* error) {
    close();
    m_path = path;
    m_file = new QFile(path);
    if (!m_file->open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        if (error)
            *error = m_file->errorString();
        close();
        return false;
    }
    return true;
}

bool RecordAppender::append(const QByteArray& line, QString* error) {
    bool ok = m_file && m_file->write(line) == line.size() && m_file->flush();
#ifdef Q_OS_WIN
    ok = ok && ::_commit(m_file->handle()) == 0;
#endif
    if (!ok && error)
        *error = m_file ? m_file->errorString() : QStringLiteral("data file");
    return ok;
}

void RecordAppender::close() {
    delete m_file;
    m_file = nullptr;
}

bool RecordAppender::isOpen() const {
    return m_file != nullptr;
}

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
