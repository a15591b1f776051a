#pragma once

#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

// What the account database says of one user.
struct AccountRecord {
    QString logonName;
    QString fullName;
    QString comment;
    QString userComment;
};

// The outcome of a password check. A check that could not run (no helper, no password service,
// no turn in time) is not a wrong password: the operator must be told which it was.
enum class PasswordCheck { Accepted, Refused, Unavailable };

// Whether the text could be the logon name of an account of this platform at all. Text typed
// into a user name box reaches the session and the records only when it could: a comma, a line
// break or a control character there would forge the fields of a record line.
bool isPossibleAccountName(const QString& name);
// The typed text of a refused name as it may stand in a record: every character that no account
// name holds shown as "?", and no longer than the longest account name.
QString typedNameForRecord(const QString& name);

// The operating system's user accounts: the workstation keeps no user list of its own.
class Accounts {
public:
    virtual ~Accounts() = default;
    // Whether this build can check passwords against the machine's accounts at all.
    virtual bool present() const = 0;
    // Tests a user id and its password, without a domain. Waits for the answer with the event
    // loop running, so that timers go on while the account service takes its time. The password
    // is handed on and not kept.
    virtual PasswordCheck checkPassword(const QString& user, const QString& password) = 0;
    // The groups the user belongs to on this machine, in the account database's own stable
    // order (primary group first on Linux); empty when the user is unknown.
    virtual QStringList groupsOf(const QString& user) = 0;
    virtual std::optional<AccountRecord> account(const QString& user) = 0;
    virtual QString computerName() = 0;
};

Accounts& accounts();
void installAccounts(std::unique_ptr<Accounts> accounts);

#if defined(Q_OS_UNIX)
// Linux and other POSIX systems: passwords through PAM in the setgid helper program
// `sorvantel-authcheck`, groups through getgrouplist, names from the passwd entry. The helper
// checks only members of the workstation's three groups, at one check a second for the machine.
class PosixAccounts final : public Accounts {
public:
    // An empty helper path takes the installed helper, or the one beside the executable when
    // none is installed. `helperArguments` are for tests run as root (another PAM service).
    explicit PosixAccounts(QString helperPath = {}, QStringList helperArguments = {});
    bool present() const override { return true; }
    PasswordCheck checkPassword(const QString& user, const QString& password) override;
    QStringList groupsOf(const QString& user) override;
    std::optional<AccountRecord> account(const QString& user) override;
    QString computerName() override;

    static QString installedHelperPath();
    // How long the account service may take before the check counts as one that could not run.
    int timeoutMs = 30000;

private:
    QString m_helper;
    QStringList m_arguments;
};

// The passwd entry's comment field: full name first, the free "other" field fifth. Only the
// first four commas separate, so the fifth field may hold commas of its own.
AccountRecord recordFromPasswd(const QString& logonName, const QString& gecos);
#endif

#if defined(Q_OS_WIN)
// Windows: LogonUser for the password, the local groups and user information of the network
// management functions.
class WindowsAccounts final : public Accounts {
public:
    bool present() const override { return true; }
    PasswordCheck checkPassword(const QString& user, const QString& password) override;
    QStringList groupsOf(const QString& user) override;
    std::optional<AccountRecord> account(const QString& user) override;
    QString computerName() override;
};
#endif
