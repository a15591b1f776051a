// The password check's handling of its helper program, with stand-in helpers; and the real
// helper's refusal of malformed input. Real logins through PAM are in tst_real_accounts.

#include "platform/accounts.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

class TstAccounts : public QObject {
    Q_OBJECT
private slots:
    void onlyAHelperThatEndsWithZeroAccepts();
    void possibleAccountNames();
    void helperThatCannotBeStartedRefuses();
    void passwordGoesOnStandardInputOnly();
    void slowHelperIsStoppedWhileTimersRun();
    void namesThatCannotBeAccountsAreNotChecked();
    void helperRefusesMalformedInput();

private:
    QString script(const QString& name, const QByteArray& body, bool executable = true);
    QTemporaryDir m_dir;
};

QString TstAccounts::script(const QString& name, const QByteArray& body, bool executable) {
    const QString path = m_dir.filePath(name);
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write("#!/bin/sh\n" + body + "\n");
    f.close();
    f.setPermissions(QFile::ReadOwner | QFile::WriteOwner |
                     (executable ? QFile::ExeOwner : QFile::Permissions()));
    return path;
}

void TstAccounts::onlyAHelperThatEndsWithZeroAccepts() {
    using C = PasswordCheck;
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
    for (const auto& [name, body, executable, outcome] : rows) {
        PosixAccounts accounts(name.isEmpty() ? m_dir.filePath("not-there")
                                              : script(name, body, executable));
        QCOMPARE((std::pair{name, int(accounts.checkPassword("alice", "secret"))}),
                 (std::pair{name, int(outcome)}));
    }
}

void TstAccounts::possibleAccountNames() {
    for (const char* name : {"jdoe", "j.doe_2", "svc-line1", "jdoe@plant.example", "host$"})
        QVERIFY2(isPossibleAccountName(QString::fromLatin1(name)), name);
    for (const char* name : {"", "mlee,Mary Lee", "a b", "tab\tname", "line\nbreak", "-rf", "..",
                             "a$b", "semi;colon", "quote\"d"})
        QVERIFY2(!isPossibleAccountName(QString::fromLatin1(name)), name);
    QVERIFY(!isPossibleAccountName(QString(257, u'a')) && !isPossibleAccountName(u"jos\u00e9"_s));
    QCOMPARE(typedNameForRecord("mlee,Mary Lee\n"), QStringLiteral("mlee?Mary?Lee?"));
    QCOMPARE(typedNameForRecord(QString(300, u',')).size(), 256);
}

void TstAccounts::helperThatCannotBeStartedRefuses() {
    // With no descriptor left for its pipes, QProcess fails before any program runs and leaves
    // the exit code at 0, which must not read as an accepted password.
    PosixAccounts accounts(script("yes.sh", "cat >/dev/null; exit 0"));
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
    const PasswordCheck check = accounts.checkPassword("alice", "secret");
    for (int fd : fillers)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
    QCOMPARE(check, PasswordCheck::Unavailable);
    // And works again with descriptors.
    QCOMPARE(accounts.checkPassword("alice", "secret"), PasswordCheck::Accepted);
}

void TstAccounts::passwordGoesOnStandardInputOnly() {
    const QString seen = m_dir.filePath("seen");
    const QString helper =
        script("record.sh",
               QStringLiteral("echo \"$#:$*\" > '%1.args'; cat > '%1'; exit 0").arg(seen).toUtf8());
    PosixAccounts accounts(helper, {"--service", "svc"});
    QCOMPARE(accounts.checkPassword("alice", QStringLiteral("pä ss,word")),
             PasswordCheck::Accepted);
    QFile in(seen), args(seen + ".args");
    QVERIFY(in.open(QIODevice::ReadOnly) && args.open(QIODevice::ReadOnly));
    QCOMPARE(in.readAll(), QByteArray("alice\0p\xc3\xa4 ss,word\0", 18));
    QCOMPARE(args.readAll(), QByteArray("2:--service svc\n"));
}

// The workstation's timers keep running while it waits; a helper that takes too long is stopped
// and the check could not run.
void TstAccounts::slowHelperIsStoppedWhileTimersRun() {
    PosixAccounts accounts(script("slow.sh", "sleep 20; exit 0"));
    accounts.timeoutMs = 600;
    int ticks = 0;
    QTimer timer;
    timer.setInterval(50);
    connect(&timer, &QTimer::timeout, [&ticks] { ++ticks; });
    timer.start();
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(accounts.checkPassword("alice", "secret"), PasswordCheck::Unavailable);
    QVERIFY(clock.elapsed() < 5000);
    QVERIFY2(ticks >= 5, qPrintable(QString::number(ticks)));
}

void TstAccounts::namesThatCannotBeAccountsAreNotChecked() {
    const QString marker = m_dir.filePath("ran");
    PosixAccounts accounts(
        script("mark.sh", QStringLiteral("touch '%1'; exit 0").arg(marker).toUtf8()));
    for (const auto& [user, password] :
         {std::pair{QString(), QString("secret")},
          std::pair{QString::fromLatin1("al\0ice", 6), QString("secret")},
          std::pair{QString("alice"), QString::fromLatin1("se\0cret", 7)}})
        QCOMPARE(accounts.checkPassword(user, password), PasswordCheck::Refused);
    QVERIFY(!QFile::exists(marker));
    QVERIFY(accounts.groupsOf(QString()).isEmpty());
    QVERIFY(!accounts.account(QString()));
}

void TstAccounts::helperRefusesMalformedInput() {
    // No separator, no end of password, empty user, nothing, unknown option, too long.
    const std::pair<QStringList, QByteArray> rows[]{{{}, QByteArray("alice")},
                                                    {{}, QByteArray("alice\0secret", 12)},
                                                    {{}, QByteArray("\0secret\0", 8)},
                                                    {{}, QByteArray()},
                                                    {{"--verbose"}, QByteArray("a\0b\0", 4)},
                                                    {{}, QByteArray(5000, 'a')}};
    for (const auto& [arguments, input] : rows) {
        QProcess helper;
        helper.start(QStringLiteral(AUTHCHECK_PATH), arguments);
        QVERIFY(helper.waitForStarted());
        helper.write(input);
        helper.closeWriteChannel();
        QVERIFY(helper.waitForFinished(10000));
        QCOMPARE((std::pair{helper.exitStatus(), helper.exitCode()}),
                 (std::pair{QProcess::NormalExit, 2}));
    }
}

QTEST_MAIN(TstAccounts)
#include "tst_accounts.moc"
