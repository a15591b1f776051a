#include "accounts.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTimer>
#include <cerrno>
#include <climits>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#ifndef SORVANTEL_AUTHCHECK_PATH
#define SORVANTEL_AUTHCHECK_PATH "/usr/local/libexec/sorvantel/sorvantel-authcheck"
#endif

namespace {
// Calls a reentrant lookup (getpwnam_r, getgrgid_r) with a buffer that grows until it fits.
template <typename Entry, typename Lookup>
bool lookUp(Entry& entry, std::vector<char>& buffer, Lookup&& lookup) {
    buffer.resize(4096);
    for (;;) {
        Entry* found = nullptr;
        const int rc = lookup(&entry, buffer.data(), buffer.size(), &found);
        if (rc == ERANGE && buffer.size() < (1u << 22)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        return rc == 0 && found != nullptr;
    }
}

bool passwdEntry(const QByteArray& name, passwd& entry, std::vector<char>& buffer) {
    return lookUp(entry, buffer, [&](passwd* e, char* b, size_t n, passwd** found) {
        return getpwnam_r(name.constData(), e, b, n, found);
    });
}

// The helper's exit statuses.
constexpr int kHelperAccepted = 0;
constexpr int kHelperRefused = 1;
constexpr int kHelperBadInput = 2;
} // namespace

AccountRecord recordFromPasswd(const QString& logonName, const QString& gecos) {
    AccountRecord record;
    record.logonName = logonName;
    QString rest = gecos;
    QStringList fields;
    for (int i = 0; i < 4; ++i) {
        const qsizetype comma = rest.indexOf(QLatin1Char(','));
        if (comma < 0)
            break;
        fields << rest.left(comma);
        rest = rest.mid(comma + 1);
    }
    fields << rest;
    record.fullName = fields.value(0);
    record.comment = fields.size() == 5 ? fields[4] : QString();
    return record;
}

PosixAccounts::PosixAccounts(QString helperPath, QStringList helperArguments)
    : m_helper(std::move(helperPath)), m_arguments(std::move(helperArguments)) {}

QString PosixAccounts::installedHelperPath() {
    return QStringLiteral(SORVANTEL_AUTHCHECK_PATH);
}

PasswordCheck PosixAccounts::checkPassword(const QString& user, const QString& password) {
    if (!isPossibleAccountName(user) || password.contains(QChar(0)))
        return PasswordCheck::Refused;
    QString helper = m_helper;
    if (helper.isEmpty()) {
        helper = installedHelperPath();
        // Only a machine without the installed helper takes the one beside the executable. One
        // that is installed but out of this account's reach (not in the workstation's users'
        // group) could not run: falling back would run whatever lies beside the executable.
        struct stat installed {};
        if (::stat(QFile::encodeName(helper).constData(), &installed) != 0) {
            if (errno != ENOENT)
                return PasswordCheck::Unavailable;
            helper =
                QCoreApplication::applicationDirPath() + QStringLiteral("/sorvantel-authcheck");
        }
    }

    QProcess process;
    process.setProgram(helper);
    process.setArguments(m_arguments);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    // Only a helper that ran and ended with status 0 accepts: a helper that could not start
    // leaves Qt's exit code at 0 too, and must not pass for an accepted password.
    bool finished = false;
    int exitCode = -1;
    QEventLoop wait;
    QObject::connect(&process, &QProcess::finished, &wait,
                     [&](int code, QProcess::ExitStatus status) {
                         finished = true;
                         exitCode = status == QProcess::NormalExit ? code : -1;
                         wait.quit();
                     });
    QObject::connect(&process, &QProcess::errorOccurred, &wait, [&wait](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart)
            wait.quit();
    });
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, &wait, &QEventLoop::quit);

    process.start(QIODevice::ReadWrite);
    // The password goes to the helper's standard input only: never on its command line, where
    // every user of the machine could read it.
    QByteArray input = user.toUtf8();
    input.append('\0');
    input.append(password.toUtf8());
    input.append('\0');
    process.write(input);
    input.fill('\0');
    process.closeWriteChannel();
    if (process.state() != QProcess::NotRunning && !finished) {
        limit.start(timeoutMs);
        wait.exec();
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(1000);
        return PasswordCheck::Unavailable;
    }
    // A helper that ended before taking its input (it refuses some callers at once) leaves a
    // write error behind; its exit status is still what it decided.
    if (!finished)
        return PasswordCheck::Unavailable;
    switch (exitCode) {
    case kHelperAccepted:
        return PasswordCheck::Accepted;
    case kHelperRefused:
    case kHelperBadInput:
        return PasswordCheck::Refused;
    default: // 3: PAM, the pace file or the group file could not serve; or a crash
        return PasswordCheck::Unavailable;
    }
}

QStringList PosixAccounts::groupsOf(const QString& user) {
    if (!isPossibleAccountName(user))
        return {};
    const QByteArray name = user.toUtf8();
    passwd entry{};
    std::vector<char> buffer;
    if (!passwdEntry(name, entry, buffer))
        return {};
    // The primary group comes first, the others in the order of the group database.
    int count = 32;
    std::vector<gid_t> gids(static_cast<size_t>(count));
    while (getgrouplist(name.constData(), entry.pw_gid, gids.data(), &count) == -1) {
        const int grown =
            count > static_cast<int>(gids.size()) ? count : static_cast<int>(gids.size()) * 2;
        if (grown > 65536)
            return {};
        gids.resize(static_cast<size_t>(grown));
        count = grown;
    }
    QStringList names;
    std::vector<char> groupBuffer;
    for (int i = 0; i < count; ++i) {
        group g{};
        const gid_t gid = gids[static_cast<size_t>(i)];
        const bool found = lookUp(g, groupBuffer, [gid](group* e, char* b, size_t n, group** f) {
            return getgrgid_r(gid, e, b, n, f);
        });
        if (found)
            names << QString::fromUtf8(g.gr_name);
    }
    return names;
}

std::optional<AccountRecord> PosixAccounts::account(const QString& user) {
    if (!isPossibleAccountName(user))
        return std::nullopt;
    passwd entry{};
    std::vector<char> buffer;
    if (!passwdEntry(user.toUtf8(), entry, buffer))
        return std::nullopt;
    return recordFromPasswd(QString::fromUtf8(entry.pw_name),
                            QString::fromUtf8(entry.pw_gecos ? entry.pw_gecos : ""));
}

QString PosixAccounts::computerName() {
    // The whole host name: a site's names are often longer than fifteen characters.
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return {};
    return QString::fromLocal8Bit(name);
}
