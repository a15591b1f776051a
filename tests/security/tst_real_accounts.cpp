// The password check: its handling of the helper program, with stand-in helpers, and the real
// helper's refusal of malformed input; then, as root, logins through PAM for real with
// throw-away accounts made for the run (skipped without root).

#include "platform/accounts.h"
#include "support/audit_files.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

class TstRealAccounts : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void onlyAHelperThatRanAndEndedWithZeroAccepts();
    void possibleAccountNames();
    void helperRefusesMalformedInput();

    void passwordsGroupsAndNamesFromTheSystem();
    void helperChecksOnlyWorkstationMembers();
    void nonRootWorkstationNeedsTheSetgidHelper();
    void installedHelperIsReachableOnlyByWorkstationUsers();
    void lockOutHoldsForTheHelpersChecks();

private:
    const QString m_alice = u"svtestalice"_s; // in the administrators' group, then the operators'
    const QString m_bob = u"svtestbob"_s;     // in the supervisors' group
    bool m_made = false;
};

namespace {
const QString kAlicePassword = u"Al1ce-pw-for-tests"_s;
const QString kBobPassword = u"B0b-pw, with comma"_s;
// The workstation's groups under their default names, which the installed helper knows without
// a site file. Made for the run where the machine lacks them, and removed again only then.
const QStringList kGroups{"sorvantel-administrators", "sorvantel-operators",
                          "sorvantel-supervisors"};
QStringList gMadeGroups;
const QString kFastService = u"svtest-nodelay"_s;
const QString kPermitService = u"svtest-permit"_s;
const QString kBrokenService = u"svtest-broken"_s;
const char kNeedsRoot[] = "Making throw-away OS accounts needs root, useradd and friends and "
                          "PAM's common-auth; run the tests as root to check PAM.";

int run(const QString& program, const QStringList& arguments, const QByteArray& input = {}) {
    QProcess p;
    p.start(program, arguments);
    if (!p.waitForStarted())
        return -1;
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(30000);
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

QByteArray helperInput(const QString& user, const QString& password) {
    return user.toUtf8() + '\0' + password.toUtf8() + '\0';
}

// A stand-in helper: a shell script with this body.
QString script(const QTemporaryDir& dir, const QString& name, const QByteArray& body,
               bool executable = true) {
    const QString path = dir.filePath(name);
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write("#!/bin/sh\n" + body + "\n");
    f.close();
    f.setPermissions(QFile::ReadOwner | QFile::WriteOwner |
                     (executable ? QFile::ExeOwner : QFile::Permissions()));
    return path;
}

// setpriv's arguments to run the rest as this user, with these supplementary groups.
QStringList asUser(const QString& user, const QString& groups) {
    const passwd* pw = getpwnam(user.toUtf8());
    if (!pw)
        return {};
    return {"--reuid=" + QString::number(pw->pw_uid), "--regid=" + QString::number(pw->pw_gid),
            groups};
}

// A folder only root writes but others may enter, as helpers are installed in.
bool openToOthers(const QTemporaryDir& dir) {
    return QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner |
                                                 QFile::ExeOwner | QFile::ReadOther |
                                                 QFile::ExeOther);
}

// A copy of the helper installed as it must be, root-owned and setgid shadow, in a folder that
// others may enter; empty when that cannot be made.
QString setgidHelperIn(const QTemporaryDir& dir) {
    const group* shadow = getgrnam("shadow");
    const QString setgid = dir.filePath("setgid-helper");
    if (!shadow || !openToOthers(dir) || !QFile::copy(QStringLiteral(AUTHCHECK_PATH), setgid) ||
        chown(setgid.toUtf8(), 0, shadow->gr_gid) != 0 || chmod(setgid.toUtf8(), 02755) != 0)
        return {};
    return setgid;
}

// The folder of lock-out records that the shipped PAM service names.
QString shippedFaillockDir() {
    const QRegularExpression dir(uR"(^[^#]*pam_faillock\.so.*\sdir=(\S+))"_s,
                                 QRegularExpression::MultilineOption);
    return dir
        .match(QString::fromUtf8(readBytes(QStringLiteral(SOURCE_DIR "/scripts/pam/sorvantel"))))
        .captured(1);
}

void removeAccounts() {
    for (const char* user : {"svtestalice", "svtestbob"}) {
        if (const QString records = shippedFaillockDir(); !records.isEmpty())
            QFile::remove(records + u'/' + QString::fromLatin1(user));
        if (const passwd* pw = getpwnam(user)) {
            QFile::remove(QStringLiteral(PACE_DIR "/pace-") + QString::number(pw->pw_uid));
            run("userdel", {QString::fromLatin1(user)});
        }
    }
    for (const QString& g : std::exchange(gMadeGroups, {}))
        run("groupdel", {g});
    for (const QString& service : {kFastService, kPermitService, kBrokenService})
        QFile::remove("/etc/pam.d/" + service);
}
} // namespace

void TstRealAccounts::initTestCase() {
    if (geteuid() != 0 || !QFile::exists(QStringLiteral("/etc/pam.d/common-auth")))
        return;
    for (const char* tool : {"useradd", "userdel", "groupadd", "groupdel", "chpasswd"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            return;
    removeAccounts();
    m_made = true;
    // Made in this order, the groups stand in this order in the group database.
    for (const QString& g : kGroups) {
        if (!getgrnam(g.toUtf8())) {
            QCOMPARE(run("groupadd", {g}), 0);
            gMadeGroups << g;
        }
    }
    QCOMPARE(run("useradd", {"-M", "-U", "-G", "sorvantel-administrators,sorvantel-operators", "-c",
                             "Alice Tester,,,,Night shift, line 2", m_alice}),
             0);
    QCOMPARE(run("useradd", {"-M", "-U", "-G", "sorvantel-supervisors", "-c",
                             "Bob Builder,Room 4,555-1,555-2", m_bob}),
             0);
    const QString passwords = m_alice + ":" + kAlicePassword + "\n" + m_bob + ":" + kBobPassword;
    QCOMPARE(run("chpasswd", {}, passwords.toUtf8() + "\n"), 0);
    for (const auto& [service, modules] :
         {std::pair{kFastService, QByteArray("unix.so nodelay")},
          std::pair{kPermitService, QByteArray("permit.so")},
          std::pair{kBrokenService, QByteArray("svtest_gone.so")}}) {
        QFile f("/etc/pam.d/" + service);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("auth required pam_" + modules + "\naccount required pam_" + modules + "\n");
    }
}

void TstRealAccounts::cleanupTestCase() {
    if (m_made)
        removeAccounts();
}

void TstRealAccounts::onlyAHelperThatRanAndEndedWithZeroAccepts() {
    using C = PasswordCheck;
    QTemporaryDir dir;
    // Script name (none: missing), body, executable, outcome.
    const std::tuple<QString, QByteArray, bool, C> rows[]{
        {"ok.sh", "cat >/dev/null; exit 0", true, C::Accepted},
        {"no.sh", "cat >/dev/null; exit 1", true, C::Refused},
        {"bad.sh", "cat >/dev/null; exit 2", true, C::Refused},
        // PAM, the pace file or the groups file could not serve: nobody's password was wrong.
        {"nopam.sh", "exit 3", true, C::Unavailable},
        {"killed.sh", "kill -9 $$", true, C::Unavailable},
        // Qt leaves the exit code at 0 when a program cannot start: that must not accept.
        {"noexec.sh", "exit 0", false, C::Unavailable},
        {"", "", false, C::Unavailable}};
    // A helper that cannot start answers at once, not after the time-out.
    QElapsedTimer clock;
    clock.start();
    for (const auto& [name, body, executable, outcome] : rows) {
        PosixAccounts accounts(name.isEmpty() ? dir.filePath("not-there")
                                              : script(dir, name, body, executable));
        QCOMPARE((std::pair{name, accounts.checkPassword("alice", "secret")}),
                 (std::pair{name, outcome}));
    }
    QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));

    // With no descriptor left for its pipes, QProcess fails before any program runs and leaves
    // the exit code at 0 as well.
    PosixAccounts yes(dir.filePath("ok.sh"));
    rlimit saved{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &saved), 0);
    int highest = 0;
    for (int fd = 0; fd < 4096; ++fd)
        if (fcntl(fd, F_GETFD) != -1)
            highest = fd;
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(highest + 1);
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::vector<int> fillers;
    for (int fd; (fd = open("/dev/null", O_RDONLY)) >= 0;)
        fillers.push_back(fd);
    const PasswordCheck starved = yes.checkPassword("alice", "secret");
    for (int fd : fillers)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
    QCOMPARE(starved, PasswordCheck::Unavailable);

    // The password goes on standard input only, never on the command line.
    const QString seen = dir.filePath("seen");
    PosixAccounts recording(
        script(dir, "record.sh",
               QStringLiteral("echo \"$#:$*\" > '%1.args'; cat > '%1'; exit 0").arg(seen).toUtf8()),
        {"--service", "svc"});
    QCOMPARE(recording.checkPassword("alice", u"pä ss,word"_s), PasswordCheck::Accepted);
    QCOMPARE(readBytes(seen), QByteArray("alice\0p\xc3\xa4 ss,word\0", 18));
    QCOMPARE(readBytes(seen + ".args"), QByteArray("2:--service svc\n"));

    // Text that cannot be an account, or a password with a NUL, never reaches the helper.
    const QString marker = dir.filePath("ran");
    PosixAccounts marking(
        script(dir, "mark.sh", QStringLiteral("touch '%1'; exit 0").arg(marker).toUtf8()));
    for (const auto& [user, password] : {std::pair{QString(), u"secret"_s},
                                         {QString::fromLatin1("al\0ice", 6), u"secret"_s},
                                         {u"alice"_s, QString::fromLatin1("se\0cret", 7)}})
        QCOMPARE(marking.checkPassword(user, password), PasswordCheck::Refused);
    QVERIFY(!QFile::exists(marker));
    QVERIFY(marking.groupsOf(QString()).isEmpty() && !marking.account(QString()));

    // The workstation's timers keep running while it waits; a helper that takes too long is
    // stopped and the check could not run.
    PosixAccounts slow(script(dir, "slow.sh", "sleep 20; exit 0"));
    slow.timeoutMs = 600;
    int ticks = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, [&ticks] { ++ticks; });
    timer.start(50);
    clock.restart();
    QCOMPARE(slow.checkPassword("alice", "secret"), PasswordCheck::Unavailable);
    QVERIFY(clock.elapsed() < 5000);
    QVERIFY2(ticks >= 5, qPrintable(QString::number(ticks)));
}

void TstRealAccounts::possibleAccountNames() {
    for (const char* name : {"jdoe", "j.doe_2", "svc-line1", "jdoe@plant.example", "host$"})
        QVERIFY2(isPossibleAccountName(QString::fromLatin1(name)), name);
    for (const char* name : {"", "mlee,Mary Lee", "a b", "tab\tname", "line\nbreak", "-rf", "..",
                             "a$b", "semi;colon", "quote\"d"})
        QVERIFY2(!isPossibleAccountName(QString::fromLatin1(name)), name);
    QVERIFY(!isPossibleAccountName(QString(257, u'a')) && !isPossibleAccountName(u"jos\u00e9"_s));
    QCOMPARE(typedNameForRecord(QString(300, u',')).size(), 256);
}

void TstRealAccounts::helperRefusesMalformedInput() {
    // No separator, no end of password, empty user, nothing, unknown option, too long.
    const std::pair<QStringList, QByteArray> rows[]{{{}, QByteArray("alice")},
                                                    {{}, QByteArray("alice\0secret", 12)},
                                                    {{}, QByteArray("\0secret\0", 8)},
                                                    {{}, QByteArray()},
                                                    {{"--verbose"}, QByteArray("a\0b\0", 4)},
                                                    {{}, QByteArray(5000, 'a')}};
    for (const auto& [arguments, input] : rows)
        QCOMPARE(run(QStringLiteral(AUTHCHECK_PATH), arguments, input), 2);
}

void TstRealAccounts::passwordsGroupsAndNamesFromTheSystem() {
    if (!m_made)
        QSKIP(kNeedsRoot);
    using C = PasswordCheck;
    PosixAccounts pam(QStringLiteral(AUTHCHECK_PATH), {"--service", kFastService});
    QCOMPARE((QList<C>{pam.checkPassword(m_alice, kAlicePassword),
                       pam.checkPassword(m_bob, kBobPassword),
                       pam.checkPassword(m_alice, kAlicePassword + "x"),
                       pam.checkPassword(m_alice, QString()),
                       pam.checkPassword("svtest-nobody", kAlicePassword),
                       pam.checkPassword(QString(), kAlicePassword)}),
             (QList<C>{C::Accepted, C::Accepted, C::Refused, C::Refused, C::Refused, C::Refused}));
    // Groups and names come from the account itself; the comment is the fifth field, split off at
    // the first four commas only.
    QCOMPARE((QList<QStringList>{pam.groupsOf(m_alice), pam.groupsOf(m_bob)}),
             (QList<QStringList>{{m_alice, "sorvantel-administrators", "sorvantel-operators"},
                                 {m_bob, "sorvantel-supervisors"}}));
    QCOMPARE((QStringList{pam.account(m_alice)->logonName, pam.account(m_alice)->fullName,
                          pam.account(m_alice)->comment, pam.account(m_bob)->comment}),
             (QStringList{m_alice, "Alice Tester", "Night shift, line 2", ""}));
    QVERIFY(!pam.account("svtest-nobody") && pam.groupsOf("svtest-nobody").isEmpty());
    QCOMPARE(pam.computerName(), QSysInfo::machineHostName());
}

void TstRealAccounts::helperChecksOnlyWorkstationMembers() {
    if (!m_made)
        QSKIP(kNeedsRoot);
    // A service that lets everybody in shows that a refusal came before PAM was asked. The site
    // groups file lies as root leaves it, in a folder of its own.
    QTemporaryDir dir;
    const QString file = dir.filePath("accounts.conf");
    auto check = [&](const QString& user, const QByteArray& groups,
                     const QString& service = kPermitService) {
        if (!writeBytes(file, groups))
            return -1;
        return run(QStringLiteral(AUTHCHECK_PATH), {"--service", service, "--groups-file", file},
                   helperInput(user, "anything"));
    };
    QCOMPARE(check(m_alice, ""), 0);
    QCOMPARE(check("root", "administratorsgroup=root\n"), 1); // never root
    QCOMPARE(check(m_bob, "supervisorsgroup=svtest-none\n"), 1);
    // The site's file names the groups: Bob's own group stands for the administrators.
    QCOMPARE(check(m_bob, "AdministratorsGroup = " + m_bob.toUtf8() + "\n"), 0);
    QCOMPARE(check(m_alice, "administratorsgroup=x\noperatorsgroup=y\n"), 1);
    // A password service that cannot work could not run the check: no password was wrong.
    QCOMPARE(check(m_alice, "", kBrokenService), 3);
}

void TstRealAccounts::nonRootWorkstationNeedsTheSetgidHelper() {
    const group* shadow = getgrnam("shadow");
    if (!m_made || QStandardPaths::findExecutable("setpriv").isEmpty() || !shadow)
        QSKIP("Needs root, setpriv and a shadow group.");
    const QStringList bobArgs = asUser(m_bob, "--clear-groups");
    const QStringList aliceArgs = asUser(m_alice, "--clear-groups");
    QVERIFY(!bobArgs.isEmpty() && !aliceArgs.isEmpty());
    QTemporaryDir dir;
    const QString setgid = setgidHelperIn(dir);
    QVERIFY(!setgid.isEmpty());
    auto as = [&](const QStringList& caller, const QString& user, const QString& password,
                  const QStringList& extra = {}) {
        return run("setpriv", caller + QStringList{setgid} + extra, helperInput(user, password));
    };
    // The helper paces non-root callers through files of its own, one for each caller.
    const QString paceDir = QStringLiteral(PACE_DIR);
    QCOMPARE(run("install", {"-d", "-o", "root", "-g", "shadow", "-m", "770", paceDir}), 0);
    const QString bobPace = paceDir + "/pace-" + bobArgs[0].mid(8); // after "--reuid="
    const QString alicePace = paceDir + "/pace-" + aliceArgs[0].mid(8);

    // Bob's workstation checks Alice's signature only through the setgid helper.
    QCOMPARE(as(bobArgs, m_alice, kAlicePassword), 0);
    QCOMPARE(as(bobArgs, m_alice, "wrong"), 1);
    // Nobody but root picks the PAM service.
    QCOMPARE(as(bobArgs, m_alice, kAlicePassword, {"--service", kFastService}), 2);

    auto stamp = [](const QString& file) {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    // A wrong guess is under way once it has stamped its pace file and let the lock go.
    auto startGuess = [&](QProcess& p, const QStringList& caller, const QString& file) {
        const QByteArray before = stamp(file);
        p.start("setpriv", caller + QStringList{setgid});
        if (!p.waitForStarted())
            return false;
        p.write(helperInput(m_bob, "guess"));
        p.closeWriteChannel();
        return QTest::qWaitFor(
            [&] {
                const int fd = ::open(file.toUtf8(), O_RDWR);
                const bool free =
                    fd >= 0 && stamp(file) != before && flock(fd, LOCK_EX | LOCK_NB) == 0;
                if (fd >= 0)
                    ::close(fd);
                return free;
            },
            3000);
    };
    // A guesser who kills a check once it is slower than a success would be gains nothing: the
    // attempt was recorded before PAM ran, and the next check waits its turn.
    QProcess guess;
    QVERIFY(startGuess(guess, bobArgs, bobPace));
    guess.kill();
    guess.waitForFinished();
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(as(bobArgs, m_alice, kAlicePassword), 0);
    QVERIFY2(clock.elapsed() >= 800, qPrintable(QString::number(clock.elapsed())));

    // What one caller does to its own checks holds up no other caller: a check stopped while it
    // waits, and a lock that is never let go.
    QProcess stopped;
    QVERIFY(startGuess(stopped, aliceArgs, alicePace));
    QCOMPARE(::kill(pid_t(stopped.processId()), SIGSTOP), 0);
    auto killStopped = qScopeGuard([&] {
        stopped.kill();
        stopped.waitForFinished();
    });
    const int held = ::open(alicePace.toUtf8(), O_RDWR);
    QVERIFY(held >= 0);
    QCOMPARE(flock(held, LOCK_EX), 0);
    clock.restart();
    QCOMPARE(as(bobArgs, m_alice, kAlicePassword), 0);
    QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
    // For the caller itself such a lock is a check that could not run, soon; no wrong password.
    QCOMPARE(as(aliceArgs, m_bob, kBobPassword), 3);
    ::close(held);
    QVERIFY2(clock.elapsed() < 8000, qPrintable(QString::number(clock.elapsed())));

    // Turns queued further than ten seconds ahead: could not run. A turn further ahead than any
    // queue reaches is from before a restart: no wait.
    auto writeTurn = [&](long long secondsAhead) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        now.tv_sec += static_cast<time_t>(secondsAhead);
        QFile f(bobPace);
        return f.open(QIODevice::WriteOnly) &&
               f.write(reinterpret_cast<const char*>(&now), sizeof now) == sizeof now;
    };
    QVERIFY(writeTurn(10));
    QCOMPARE(as(bobArgs, m_alice, kAlicePassword), 3);
    QVERIFY(writeTurn(60));
    clock.restart();
    QCOMPARE(as(bobArgs, m_alice, kAlicePassword), 0);
    QVERIFY2(clock.elapsed() < 900, qPrintable(QString::number(clock.elapsed())));
}

void TstRealAccounts::installedHelperIsReachableOnlyByWorkstationUsers() {
    if (!m_made || QStandardPaths::findExecutable("setpriv").isEmpty() || !getgrnam("shadow"))
        QSKIP("Needs root, setpriv and a shadow group.");
    QTemporaryDir dir;
    QVERIFY(openToOthers(dir));
    const QString helperDir = dir.filePath("libexec");
    const QString buildDir = QFileInfo(QStringLiteral(AUTHCHECK_PATH)).dir().absolutePath() + "/..";
    QProcess install;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("SORVANTEL_HELPER_DIR", helperDir);
    env.remove("SUDO_USER");
    install.setProcessEnvironment(env);
    install.start("bash", {QStringLiteral(SOURCE_DIR "/scripts/install-accounts.sh"), buildDir});
    QVERIFY(install.waitForFinished(60000));
    if (install.readAllStandardError().contains("sanitizer build"))
        QSKIP("The install script refuses a sanitizer build's helper, as it should.");
    QCOMPARE(install.exitCode(), 0);

    const group* usersGroup = getgrnam("sorvantel");
    QVERIFY(usersGroup);
    const gid_t users = usersGroup->gr_gid; // getgrnam's answer is overwritten by the next call
    struct stat folder {};
    struct stat helper {};
    QCOMPARE(stat(helperDir.toUtf8(), &folder), 0);
    QCOMPARE(stat((helperDir + "/sorvantel-authcheck").toUtf8(), &helper), 0);
    QCOMPARE(
        (QList<uint>{folder.st_mode & 07777, folder.st_gid, helper.st_mode & 07777, helper.st_gid}),
        (QList<uint>{0750, users, 02755, getgrnam("shadow")->gr_gid}));

    // Bob reaches the helper only as a member of the workstation's users. Through a shell:
    // setpriv itself finds its program before it gives up root.
    auto asBob = [&](const QString& groups) {
        return run("setpriv",
                   asUser(m_bob, groups) +
                       QStringList{"sh", "-c", "exec \"$0\"", helperDir + "/sorvantel-authcheck"},
                   helperInput(m_alice, kAlicePassword));
    };
    QCOMPARE(asBob("--clear-groups"), 126);
    QCOMPARE(asBob("--groups=" + QString::number(users)), 0);
}

void TstRealAccounts::lockOutHoldsForTheHelpersChecks() {
    if (!m_made || QStandardPaths::findExecutable("setpriv").isEmpty() ||
        QStandardPaths::findExecutable("faillock").isEmpty() || !getgrnam("shadow"))
        QSKIP("Needs root, setpriv, faillock and a shadow group.");
    // The service as shipped, installed as the workstation's own: a site's edited one is theirs.
    if (readBytes("/etc/pam.d/sorvantel") !=
        readBytes(QStringLiteral(SOURCE_DIR "/scripts/pam/sorvantel")))
        QSKIP("/etc/pam.d/sorvantel is not the shipped service.");
    // faillock.conf as Debian ships it, all commented: 3 failures lock.
    const int deny = 3;
    if (QString::fromUtf8(readBytes("/etc/security/faillock.conf"))
            .contains(QRegularExpression(u"^\\s*[^#\\s]"_s, QRegularExpression::MultilineOption)))
        QSKIP("The site's faillock.conf sets a lock-out policy of its own.");
    // The records' folder as install-accounts.sh makes it; a check that could not write there
    // would let every guess through.
    const QString records = shippedFaillockDir();
    QVERIFY(!records.isEmpty());
    QCOMPARE(run("install", {"-d", "-o", "root", "-g", "shadow", "-m", "2770", records}), 0);
    QCOMPARE(
        run("install", {"-d", "-o", "root", "-g", "shadow", "-m", "770", QStringLiteral(PACE_DIR)}),
        0);
    // The failures faillock lists as counting, one line each ending in "V".
    auto faillock = [&](const QStringList& more) {
        QProcess p;
        p.start("faillock", QStringList{"--dir", records, "--user", m_alice} + more);
        p.waitForFinished(10000);
        const QStringList lines = QString::fromUtf8(p.readAllStandardOutput()).split(u'\n');
        return std::count_if(lines.begin(), lines.end(),
                             [](const QString& line) { return line.endsWith(u" V"_s); });
    };
    faillock({"--reset"});

    // Bob's workstation checks Alice's signatures, as the workstation does it.
    QTemporaryDir dir;
    const QString setgid = setgidHelperIn(dir);
    QVERIFY(!setgid.isEmpty());
    PosixAccounts bobs(u"setpriv"_s, asUser(m_bob, u"--clear-groups"_s) + QStringList{setgid});
    using C = PasswordCheck;
    // Failures short of the limit lock nothing; a right password clears them.
    for (int i = 1; i < deny; ++i)
        QCOMPARE(bobs.checkPassword(m_alice, u"guess"_s), C::Refused);
    QCOMPARE(bobs.checkPassword(m_alice, kAlicePassword), C::Accepted);
    QCOMPARE(faillock({}), 0);

    QList<C> checks;
    for (int i = 0; i < deny; ++i)
        checks << bobs.checkPassword(m_alice, u"guess"_s);
    checks << bobs.checkPassword(m_alice, kAlicePassword);
    QCOMPARE(checks, QList<C>(deny + 1, C::Refused));
    // Root sees the lock and lifts it.
    QCOMPARE(faillock({}), deny);
    faillock({"--reset"});
    QCOMPARE(bobs.checkPassword(m_alice, kAlicePassword), C::Accepted);
}

QTEST_MAIN(TstRealAccounts)
#include "tst_real_accounts.moc"
