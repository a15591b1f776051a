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
    void onlyAHelperThatEndsWithZeroAccepts_data();
    void onlyAHelperThatEndsWithZeroAccepts();
    void possibleAccountNames();
    void helperThatCannotBeStartedRefuses();
    void passwordGoesOnStandardInputOnly();
    void slowHelperIsStoppedAndCouldNotRun();
    void timersRunWhileTheHelperWorks();
    void namesThatCannotBeAccountsAreNotChecked();
    void helperRefusesMalformedInput_data();
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
    QFile::Permissions p = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        p |= QFile::ExeOwner;
    f.setPermissions(p);
    return path;
}

void TstAccounts::onlyAHelperThatEndsWithZeroAccepts_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("executable");
    QTest::addColumn<int>("outcome");
    using C = PasswordCheck;
    const auto row = [](const char* tag, const char* file, const char* body, bool exe, C c) {
        QTest::newRow(tag) << QString(file) << QByteArray(body) << exe << int(c);
    };
    row("accepts", "ok.sh", "cat >/dev/null; exit 0", true, C::Accepted);
    row("refuses", "no.sh", "cat >/dev/null; exit 1", true, C::Refused);
    row("bad input", "bad.sh", "exit 2", true, C::Refused);
    // PAM, the pace file or the groups file could not serve: nobody's password was wrong.
    row("could not run", "nopam.sh", "exit 3", true, C::Unavailable);
    row("killed", "killed.sh", "kill -9 $$", true, C::Unavailable);
    // Qt leaves the exit code at 0 when a program cannot start: that must not accept.
    row("cannot start", "noexec.sh", "exit 0", false, C::Unavailable);
    row("missing", "", "", false, C::Unavailable);
}

void TstAccounts::onlyAHelperThatEndsWithZeroAccepts() {
    QFETCH(QString, name);
    QFETCH(QByteArray, body);
    QFETCH(bool, executable);
    QFETCH(int, outcome);
    const QString helper =
        name.isEmpty() ? m_dir.filePath("not-there") : script(name, body, executable);
    PosixAccounts accounts(helper);
    QCOMPARE(int(accounts.checkPassword("alice", "secret")), outcome);
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

void TstAccounts::slowHelperIsStoppedAndCouldNotRun() {
    PosixAccounts accounts(script("slow.sh", "sleep 20; exit 0"));
    accounts.timeoutMs = 300;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(accounts.checkPassword("alice", "secret"), PasswordCheck::Unavailable);
    QVERIFY(clock.elapsed() < 5000);
}

void TstAccounts::timersRunWhileTheHelperWorks() {
    PosixAccounts accounts(script("pause.sh", "cat >/dev/null; sleep 0.6; exit 0"));
    int ticks = 0;
    QTimer timer;
    timer.setInterval(50);
    connect(&timer, &QTimer::timeout, [&ticks] { ++ticks; });
    timer.start();
    QCOMPARE(accounts.checkPassword("alice", "secret"), PasswordCheck::Accepted);
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

void TstAccounts::helperRefusesMalformedInput_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("input");
    QTest::newRow("no separator") << QStringList{} << QByteArray("alice");
    QTest::newRow("no end of password") << QStringList{} << QByteArray("alice\0secret", 12);
    QTest::newRow("empty user") << QStringList{} << QByteArray("\0secret\0", 8);
    QTest::newRow("nothing") << QStringList{} << QByteArray();
    QTest::newRow("unknown option") << QStringList{"--verbose"} << QByteArray("a\0b\0", 4);
    QTest::newRow("too long") << QStringList{} << QByteArray(5000, 'a');
}

void TstAccounts::helperRefusesMalformedInput() {
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, input);
    QProcess helper;
    helper.start(QStringLiteral(AUTHCHECK_PATH), arguments);
    QVERIFY(helper.waitForStarted());
    helper.write(input);
    helper.closeWriteChannel();
    QVERIFY(helper.waitForFinished(10000));
    QCOMPARE(helper.exitStatus(), QProcess::NormalExit);
    QCOMPARE(helper.exitCode(), 2);
}

QTEST_MAIN(TstAccounts)
#include "tst_accounts.moc"
