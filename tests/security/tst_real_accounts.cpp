// The password check: its handling of the helper program, with stand-in helpers, and the real
// helper's refusal of malformed input; then, as root, logins through PAM for real with
// throw-away accounts made for the run (skipped without root), and the sealing helper as such an
// account meets it.

#include "platform/accounts.h"
#include "platform/seal_core.h"
#include "records/file_cipher.h"
#include "support/audit_files.h"

#include <QElapsedTimer>
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
    void malformedNamesAndInputAreRefused();
    void passwordsGroupsAndMembersFromTheSystem();
    void installedHelperIsReachableOnlyByWorkstationUsers();
    void setgidHelperPacesEachCallerAndLocksOut();
    void anOperatorCanOnlyAskForSealsAndAForgedLineShows();
};

namespace {
const QString kAlice = u"svtestalice"_s; // in the administrators' group, then the operators'
const QString kBob = u"svtestbob"_s;     // in the supervisors' group
const QString kAlicePassword = u"Al1ce-pw-for-tests"_s;
const QString kBobPassword = u"B0b-pw, with comma"_s;
const QString kHelper = QStringLiteral(AUTHCHECK_PATH);
// The workstation's groups under their default names, which the installed helper knows without
// a site file. Made for the run where the machine lacks them, and removed again only then.
const QStringList kGroups{"sorvantel-administrators", "sorvantel-operators",
                          "sorvantel-supervisors"};
QStringList gMadeGroups;
bool gMade = false;
const QString kFastService = u"svtest-nodelay"_s;
const QString kPermitService = u"svtest-permit"_s;
const QString kBrokenService = u"svtest-broken"_s;

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
    writeBytes(path, "#!/bin/sh\n" + body + "\n");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner |
                                    (executable ? QFile::ExeOwner : QFile::Permissions()));
    return path;
}

// setpriv's arguments to run the rest as this user, with these supplementary groups.
QStringList asUser(const QString& user, const QString& groups) {
    const passwd* pw = getpwnam(user.toUtf8());
    return pw ? QStringList{"--reuid=" + QString::number(pw->pw_uid),
                            "--regid=" + QString::number(pw->pw_gid), groups}
              : QStringList{};
}

// Root with the throw-away accounts, setpriv and a shadow group: enough to act as a non-root
// workstation.
bool canActAsOthers() {
    return gMade && !QStandardPaths::findExecutable("setpriv").isEmpty() && getgrnam("shadow");
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
    gMade = true;
    // Made in this order, the groups stand in this order in the group database.
    for (const QString& g : kGroups) {
        if (!getgrnam(g.toUtf8())) {
            QCOMPARE(run("groupadd", {g}), 0);
            gMadeGroups << g;
        }
    }
    QCOMPARE(run("useradd", {"-M", "-U", "-G", "sorvantel-administrators,sorvantel-operators", "-c",
                             "Alice Tester,,,,Night shift, line 2", kAlice}),
             0);
    QCOMPARE(run("useradd", {"-M", "-U", "-G", "sorvantel-supervisors", "-c",
                             "Bob Builder,Room 4,555-1,555-2", kBob}),
             0);
    const QString passwords = kAlice + ":" + kAlicePassword + "\n" + kBob + ":" + kBobPassword;
    QCOMPARE(run("chpasswd", {}, passwords.toUtf8() + "\n"), 0);
    for (const auto& [service, module] : {std::pair{kFastService, "unix.so nodelay"},
                                          {kPermitService, "permit.so"},
                                          {kBrokenService, "svtest_gone.so"}})
        QVERIFY(writeBytes("/etc/pam.d/" + service, "auth required pam_" + QByteArray(module) +
                                                        "\naccount required pam_" + module + "\n"));
}

void TstRealAccounts::cleanupTestCase() {
    if (gMade)
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
    rlimit saved{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit tight = saved;
    for (int fd = 0; fd < 4096; ++fd)
        if (fcntl(fd, F_GETFD) != -1)
            tight.rlim_cur = static_cast<rlim_t>(fd + 1);
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::vector<int> fillers;
    for (int fd; (fd = open("/dev/null", O_RDONLY)) >= 0;)
        fillers.push_back(fd);
    const C starved = PosixAccounts(dir.filePath("ok.sh")).checkPassword("alice", "secret");
    for (int fd : fillers)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
    QCOMPARE(starved, C::Unavailable);

    // The password goes on standard input only, never on the command line.
    const QString seen = dir.filePath("seen");
    PosixAccounts recording(
        script(dir, "record.sh",
               QStringLiteral("echo \"$#:$*\" > '%1.args'; cat > '%1'; exit 0").arg(seen).toUtf8()),
        {"--service", "svc"});
    QCOMPARE(recording.checkPassword("alice", u"pä ss,word"_s), C::Accepted);
    QCOMPARE(readBytes(seen), QByteArray("alice\0p\xc3\xa4 ss,word\0", 18));
    QCOMPARE(readBytes(seen + ".args"), QByteArray("2:--service svc\n"));

    // Text that cannot be an account, or a password with a NUL, never reaches the helper.
    QVERIFY(QFile::remove(seen));
    for (const auto& [user, password] : {std::pair{QString(), u"secret"_s},
                                         {QString::fromLatin1("al\0ice", 6), u"secret"_s},
                                         {u"alice"_s, QString::fromLatin1("se\0cret", 7)}})
        QCOMPARE(recording.checkPassword(user, password), C::Refused);
    QVERIFY(!QFile::exists(seen));

    // The workstation's timers keep running while it waits; a helper that takes too long is
    // stopped and the check could not run.
    PosixAccounts slow(script(dir, "slow.sh", "sleep 20; exit 0"));
    slow.timeoutMs = 600;
    int ticks = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, [&ticks] { ++ticks; });
    timer.start(50);
    clock.restart();
    QCOMPARE(slow.checkPassword("alice", "secret"), C::Unavailable);
    QVERIFY2(clock.elapsed() < 5000 && ticks >= 5, qPrintable(QString::number(ticks)));
}

void TstRealAccounts::malformedNamesAndInputAreRefused() {
    for (const char* name : {"jdoe", "j.doe_2", "svc-line1", "jdoe@plant.example", "host$"})
        QVERIFY2(isPossibleAccountName(QString::fromLatin1(name)), name);
    for (const char* name : {"", "mlee,Mary Lee", "a b", "tab\tname", "line\nbreak", "-rf", "..",
                             "a$b", "semi;colon", "quote\"d"})
        QVERIFY2(!isPossibleAccountName(QString::fromLatin1(name)), name);
    QVERIFY(!isPossibleAccountName(QString(257, u'a')) && !isPossibleAccountName(u"jos\u00e9"_s));
    QCOMPARE(typedNameForRecord(QString(300, u',')).size(), 256);

    // The helper: no separator, no end of password, empty user, nothing, unknown option, too long.
    const std::pair<QStringList, QByteArray> rows[]{{{}, QByteArray("alice")},
                                                    {{}, QByteArray("alice\0secret", 12)},
                                                    {{}, QByteArray("\0secret\0", 8)},
                                                    {{}, QByteArray()},
                                                    {{"--verbose"}, QByteArray("a\0b\0", 4)},
                                                    {{}, QByteArray(5000, 'a')}};
    for (const auto& [arguments, input] : rows)
        QCOMPARE(run(kHelper, arguments, input), 2);
}

void TstRealAccounts::passwordsGroupsAndMembersFromTheSystem() {
    if (!gMade)
        QSKIP("Making throw-away OS accounts needs root, useradd and friends and PAM's "
              "common-auth; run the tests as root to check PAM.");
    using C = PasswordCheck;
    PosixAccounts pam(kHelper, {"--service", kFastService});
    QCOMPARE(
        (QList<C>{pam.checkPassword(kAlice, kAlicePassword), pam.checkPassword(kBob, kBobPassword),
                  pam.checkPassword(kAlice, kAlicePassword + "x"),
                  pam.checkPassword(kAlice, QString()),
                  pam.checkPassword("svtest-nobody", kAlicePassword)}),
        (QList<C>{C::Accepted, C::Accepted, C::Refused, C::Refused, C::Refused}));
    // Groups and names come from the account itself; the comment is the fifth field, split off at
    // the first four commas only.
    QCOMPARE((QList<QStringList>{pam.groupsOf(kAlice), pam.groupsOf(kBob)}),
             (QList<QStringList>{{kAlice, "sorvantel-administrators", "sorvantel-operators"},
                                 {kBob, "sorvantel-supervisors"}}));
    QCOMPARE((QStringList{pam.account(kAlice)->logonName, pam.account(kAlice)->fullName,
                          pam.account(kAlice)->comment, pam.account(kBob)->comment}),
             (QStringList{kAlice, "Alice Tester", "Night shift, line 2", ""}));
    QVERIFY(!pam.account("svtest-nobody") && pam.groupsOf("svtest-nobody").isEmpty());
    QCOMPARE(pam.computerName(), QSysInfo::machineHostName());

    // The helper checks only the workstation's members, never root: a service that lets everybody
    // in shows that a refusal came before PAM was asked. The site file lies as root leaves it.
    QTemporaryDir dir;
    const QString file = dir.filePath("accounts.conf");
    auto check = [&](const QString& user, const QByteArray& groups,
                     const QString& service = kPermitService) {
        return writeBytes(file, groups)
                   ? run(kHelper, {"--service", service, "--groups-file", file},
                         helperInput(user, "anything"))
                   : -1;
    };
    QCOMPARE(check(kAlice, ""), 0);
    QCOMPARE(check("root", "administratorsgroup=root\n"), 1);
    QCOMPARE(check(kBob, "supervisorsgroup=svtest-none\n"), 1);
    // The site's file names the groups: Bob's own group stands for the administrators.
    QCOMPARE(check(kBob, "AdministratorsGroup = " + kBob.toUtf8() + "\n"), 0);
    QCOMPARE(check(kAlice, "administratorsgroup=x\noperatorsgroup=y\n"), 1);
    // A password service that cannot work could not run the check: no password was wrong.
    QCOMPARE(check(kAlice, "", kBrokenService), 3);
}

// Why the helpers cannot be installed and tried here as another account; empty when they can.
QString whyHelpersCannotBeInstalled() {
    if (!canActAsOthers())
        return u"Needs root, setpriv and a shadow group."_s;
    if (readBytes(kHelper).contains("__asan_init"))
        return u"The install script refuses a sanitizer build's helper, as it should."_s;
    return {};
}

// The helpers installed by the install script into a folder of dir's; the folder.
QString installHelpers(const QTemporaryDir& dir) {
    // Others may enter dir, as the folders helpers are installed in.
    if (chmod(dir.path().toUtf8(), 0755) != 0)
        return {};
    const QString helperDir = dir.filePath("libexec");
    return run("env", {"-u", "SUDO_USER", "SORVANTEL_HELPER_DIR=" + helperDir, "bash",
                       QStringLiteral(SOURCE_DIR "/scripts/install-accounts.sh"),
                       QFileInfo(kHelper).dir().absolutePath() + "/.."}) == 0
               ? helperDir
               : QString();
}

void TstRealAccounts::installedHelperIsReachableOnlyByWorkstationUsers() {
    if (const QString why = whyHelpersCannotBeInstalled(); !why.isEmpty())
        QSKIP(qPrintable(why));
    QTemporaryDir dir;
    const QString helperDir = installHelpers(dir);
    QVERIFY(!helperDir.isEmpty());

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
                   asUser(kBob, groups) +
                       QStringList{"sh", "-c", "exec \"$0\"", helperDir + "/sorvantel-authcheck"},
                   helperInput(kAlice, kAlicePassword));
    };
    QCOMPARE(asBob("--clear-groups"), 126);
    QCOMPARE(asBob("--groups=" + QString::number(users)), 0);
}

void TstRealAccounts::setgidHelperPacesEachCallerAndLocksOut() {
    if (!canActAsOthers())
        QSKIP("Needs root, setpriv and a shadow group.");
    const QStringList bobArgs = asUser(kBob, "--clear-groups");
    const QStringList aliceArgs = asUser(kAlice, "--clear-groups");
    // A copy of the helper installed as it must be: root's, setgid shadow, in a folder others
    // may enter.
    QTemporaryDir dir;
    const QString setgid = dir.filePath("setgid-helper");
    QVERIFY(!bobArgs.isEmpty() && !aliceArgs.isEmpty() && chmod(dir.path().toUtf8(), 0755) == 0);
    QCOMPARE(run("install", {"-o", "root", "-g", "shadow", "-m", "2755", kHelper, setgid}), 0);
    auto as = [&](const QStringList& caller, const QString& user, const QString& password,
                  const QStringList& extra = {}) {
        return run("setpriv", caller + QStringList{setgid} + extra, helperInput(user, password));
    };
    // The helper paces non-root callers through files of its own, one for each caller.
    const QString paceDir = QStringLiteral(PACE_DIR);
    QCOMPARE(run("install", {"-d", "-o", "root", "-g", "shadow", "-m", "770", paceDir}), 0);
    const QString bobPace = paceDir + "/pace-" + bobArgs[0].mid(8); // after "--reuid="
    const QString alicePace = paceDir + "/pace-" + aliceArgs[0].mid(8);

    // Nobody but root picks the PAM service.
    QCOMPARE(as(bobArgs, kAlice, kAlicePassword, {"--service", kFastService}), 2);

    // A wrong guess is under way once it has stamped its pace file and let the lock go.
    auto startGuess = [&](QProcess& p, const QStringList& caller, const QString& file) {
        const QByteArray before = readBytes(file);
        p.start("setpriv", caller + QStringList{setgid});
        p.write(helperInput(kBob, "guess"));
        p.closeWriteChannel();
        return QTest::qWaitFor(
            [&] {
                const int fd = ::open(file.toUtf8(), O_RDWR);
                const bool free =
                    fd >= 0 && readBytes(file) != before && flock(fd, LOCK_EX | LOCK_NB) == 0;
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
    QCOMPARE(as(bobArgs, kAlice, kAlicePassword), 0);
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
    QCOMPARE(as(bobArgs, kAlice, kAlicePassword), 0);
    QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
    // For the caller itself such a lock is a check that could not run, soon; no wrong password.
    QCOMPARE(as(aliceArgs, kBob, kBobPassword), 3);
    ::close(held);
    QVERIFY2(clock.elapsed() < 8000, qPrintable(QString::number(clock.elapsed())));

    // Turns queued further than ten seconds ahead: could not run. A turn further ahead than any
    // queue reaches is from before a restart: no wait.
    auto writeTurn = [&](long long secondsAhead) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        now.tv_sec += static_cast<time_t>(secondsAhead);
        return writeBytes(bobPace, QByteArray(reinterpret_cast<const char*>(&now), sizeof now));
    };
    QVERIFY(writeTurn(10));
    QCOMPARE(as(bobArgs, kAlice, kAlicePassword), 3);
    QVERIFY(writeTurn(60));
    clock.restart();
    QCOMPARE(as(bobArgs, kAlice, kAlicePassword), 0);
    QVERIFY2(clock.elapsed() < 900, qPrintable(QString::number(clock.elapsed())));

    // The lock-out of the service as shipped, installed as the workstation's own (a site's edited
    // one is theirs), with faillock.conf as Debian ships it, all commented: 3 failures lock.
    if (QStandardPaths::findExecutable("faillock").isEmpty() ||
        readBytes("/etc/pam.d/sorvantel") !=
            readBytes(QStringLiteral(SOURCE_DIR "/scripts/pam/sorvantel")) ||
        QString::fromUtf8(readBytes("/etc/security/faillock.conf"))
            .contains(QRegularExpression(u"^\\s*[^#\\s]"_s, QRegularExpression::MultilineOption)))
        QSKIP("Needs faillock, the shipped /etc/pam.d/sorvantel and Debian's faillock.conf.");
    const int deny = 3;
    // The records' folder as install-accounts.sh makes it; a check that could not write there
    // would let every guess through.
    const QString records = shippedFaillockDir();
    QVERIFY(!records.isEmpty());
    QCOMPARE(run("install", {"-d", "-o", "root", "-g", "shadow", "-m", "2770", records}), 0);
    // The failures faillock lists as counting, one line each ending in "V".
    auto faillock = [&](const QStringList& more) {
        QProcess p;
        p.start("faillock", QStringList{"--dir", records, "--user", kAlice} + more);
        p.waitForFinished(10000);
        return QString::fromUtf8(p.readAllStandardOutput())
            .count(QRegularExpression(u" V$"_s, QRegularExpression::MultilineOption));
    };
    faillock({"--reset"});
    // As the workstation does it: Bob's checks Alice's signatures.
    PosixAccounts bobs(u"setpriv"_s, bobArgs + QStringList{setgid});
    using C = PasswordCheck;
    // Failures short of the limit lock nothing; a right password clears them.
    for (int i = 1; i < deny; ++i)
        QCOMPARE(bobs.checkPassword(kAlice, u"guess"_s), C::Refused);
    QCOMPARE(bobs.checkPassword(kAlice, kAlicePassword), C::Accepted);
    QCOMPARE(faillock({}), 0);

    QList<C> checks;
    for (int i = 0; i < deny; ++i)
        checks << bobs.checkPassword(kAlice, u"guess"_s);
    checks << bobs.checkPassword(kAlice, kAlicePassword);
    QCOMPARE(checks, QList<C>(deny + 1, C::Refused));
    // Root sees the lock and lifts it.
    QCOMPARE(faillock({}), deny);
    faillock({"--reset"});
    QCOMPARE(bobs.checkPassword(kAlice, kAlicePassword), C::Accepted);
}

// An operator's account, as the installed sealing helper meets it: it cannot read the day key nor
// write the store, it can have lines sealed (each seal names it), and a record line it then
// forges with the workstation's own cipher is named altered.
void TstRealAccounts::anOperatorCanOnlyAskForSealsAndAForgedLineShows() {
    if (const QString why = whyHelpersCannotBeInstalled(); !why.isEmpty())
        QSKIP(qPrintable(why));
    QTemporaryDir dir;
    const QString helperDir = installHelpers(dir);
    QVERIFY(!helperDir.isEmpty());
    const QString store = QStringLiteral(SEAL_STORE);
    const QString users = QString::number(getgrnam("sorvantel")->gr_gid);
    auto asBob = [&](const QStringList& command) {
        return run("setpriv", asUser(kBob, "--groups=" + users) + command);
    };
    QVERIFY(asBob({"cat", store + "/key"}) != 0);
    QVERIFY(asBob({"sh", "-c", "echo forged >> \"$0\"", store + "/days"}) != 0);
    QVERIFY(asBob({"touch", store + "/files/forged.seal"}) != 0);
    QCOMPARE(asBob({"true"}), 0); // what failed was the store's rights, not setpriv

    setCipherKey();
    const QString name = "svtest-" + QString::number(getpid()) + "/run.slg";
    const QByteArray line = encryptText(u"3/14/2026,10:00:00 AM,.,.,.,21.5,"_s).toLatin1();
    QProcess helper;
    helper.start("setpriv",
                 asUser(kBob, "--groups=" + users) +
                     QStringList{"sh", "-c", "exec \"$0\" serve", helperDir + "/sorvantel-sealer"});
    QVERIFY(helper.waitForStarted());
    helper.write("L 1 " + name.toUtf8().toHex() + ' ' +
                 QByteArray::fromStdString(seal::toHex(seal::sha256(line.toStdString()))) + '\n');
    helper.closeWriteChannel();
    QVERIFY(helper.waitForFinished(30000));
    const QString sealFile =
        store + "/files/" + QString::fromStdString(seal::sealFileName(name.toStdString()));
    const auto cleanUp = qScopeGuard([&] { QFile::remove(sealFile); });
    QCOMPARE(helper.readAllStandardOutput(), QByteArray("READY\nOK 1\n"));

    auto linesOf = [](const QString& path) {
        std::vector<std::string> out;
        for (const QByteArray& l : readBytes(path).split('\n'))
            if (!l.isEmpty())
                out.push_back(l.toStdString());
        return out;
    };
    const std::vector<std::string> site = linesOf(store + "/site");
    QVERIFY(site.size() >= 3);
    const std::string siteId = seal::fromHex(site[1], 16).value_or("");
    const seal::DayChain days =
        seal::checkDays(siteId, seal::fromHex(site[2], 32).value_or(""), linesOf(store + "/days"));
    QVERIFY(days.fault.empty());
    const std::vector<std::string> seals = linesOf(sealFile);
    const auto check = [&](const QByteArray& recordLine) {
        return seal::checkFile(siteId, days, name.toStdString(), {recordLine.toStdString()}, seals);
    };
    QVERIFY(check(line).intact);
    const QByteArray forged =
        encryptText(decryptText(QString::fromLatin1(line)).replace("21.5", "25.0")).toLatin1();
    QCOMPARE(check(forged).findings,
             std::vector<std::string>{"line 1 altered (sealed by svtestbob)"});
}

QTEST_MAIN(TstRealAccounts)
#include "tst_real_accounts.moc"
