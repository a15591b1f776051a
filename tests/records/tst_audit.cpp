#include "app/frm_main.h"
#include "app/frm_splash.h"
#include "plant/plant_store.h"
#include "platform/line_cipher.h"
#include "records/audit_trail.h"
#include "records/daily_files.h"
#include "records/file_cipher.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

namespace {
// Starts the workstation as far as its main window, then closes it with a yes to the question.
void startAndClose(TestEnv& env, const std::function<void()>& whileRunning = {}) {
    env.writeTags({{1, 0, true}});
    env.modbus->manual = true;
    auto& splash = *new FrmSplash; // it deletes itself once started, so it lives on the heap
    QCOMPARE(splash.load(), FrmSplash::LoadResult::Ok);
    if (whileRunning)
        whileRunning();
    for (int i = 0; i < 10; ++i)
        splash.timer1Tick();
    env.dialogs->answerNext(MsgAnswer::Yes);
    frmMain()->close();
    delete frmMain();
}
} // namespace

class TstAuditTrail : public QObject {
    Q_OBJECT
private slots:
    void linesCarryTheSessionOrTheSystem();
    void fileLayoutIsOneHexLineAndCrLf();
    void midnightSplitsTheFiles();
    void typedTextCannotForgeAField();
    void failedEncipherWritesNothingAndSays();
    void startAndExitAreAuditedWithSecurityOn();
    void nothingIsWrittenWithSecurityOff();
};

void TstAuditTrail::linesCarryTheSessionOrTheSystem() {
    TestEnv env; // without an Audit folder: the first line makes it
    gUserId = QStringLiteral("jsmith");
    gUserFullName = QStringLiteral("John Smith");
    gUserComment = QStringLiteral("Shift B");
    auditLine(QStringLiteral("SP change TIC-1 from 100 to 120.5"));
    systemAuditLine(QStringLiteral("System Started"));
    const QStringList lines = plainLinesOf(env.path(QStringLiteral("Audit/3-14-2026 Audit.atr")));
    QCOMPARE(lines.size(), 2);
    const QDateTime now = env.clock->time;
    QCOMPARE(lines[0].split(u','),
             (QStringList{regionalShortDate(now.date()), regionalLongTime(now.time()), "jsmith",
                          "John Smith", "Shift B", "SP change TIC-1 from 100 to 120.5"}));
    QCOMPARE(lines[1].split(u',').mid(2),
             (QStringList{"System", "Sorvantel System", "System Manager", "System Started"}));
    // Both share the day's file; the session is untouched by a system line.
    QCOMPARE(gUserId, QStringLiteral("jsmith"));
}

void TstAuditTrail::fileLayoutIsOneHexLineAndCrLf() {
    TestEnv env;
    systemAuditLine(QStringLiteral("One, with a comma"));
    systemAuditLine(QString());
    QFile f(env.path(QStringLiteral("Audit/3-14-2026 Audit.atr")));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray bytes = f.readAll();
    QVERIFY(bytes.endsWith("\r\n"));
    const QList<QByteArray> lines = bytes.chopped(2).split('\n');
    QCOMPARE(lines.size(), 2);
    for (const QByteArray& line : lines)
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]+\r?$"))
                    .match(QString::fromLatin1(line))
                    .hasMatch());
    // Nothing escapes a comma: the action fills a seventh field.
    const QStringList first = plainLinesOf(f.fileName())[0].split(u',');
    QCOMPARE(first.mid(5), (QStringList{"One", " with a comma"}));
}

void TstAuditTrail::midnightSplitsTheFiles() {
    TestEnv env;
    const QList<std::tuple<QDateTime, QString, QString>> lines{
        {QDateTime(QDate(2026, 3, 7), QTime(23, 59, 59)), "3-7-2026", "before midnight"},
        {QDateTime(QDate(2026, 3, 8), QTime(0, 0, 1)), "3-8-2026", "after midnight"},
        {QDateTime(QDate(2026, 12, 31), QTime(12, 0)), "12-31-2026", "two digits"}};
    for (const auto& [time, day, action] : lines) {
        env.clock->time = time;
        systemAuditLine(action);
    }
    for (const auto& [time, day, action] : lines)
        QCOMPARE(actionsOf(env.path("Audit/" + day + " Audit.atr")), QStringList{action});
}

void TstAuditTrail::typedTextCannotForgeAField() {
    TestEnv env;
    // A comment of the account database may hold commas; text from anywhere may hold breaks.
    gUserId = QStringLiteral("jsmith");
    gUserFullName = QStringLiteral("John\r\nSmith");
    gUserComment = QStringLiteral("Night shift, line 2");
    auditLine(QStringLiteral("Acknowledge Alarm on TIC-1\r\n3/14/26,10:00:00 AM,mlee,forged"));
    const QStringList lines = plainLinesOf(auditFilePath(QDate(2026, 3, 14)));
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines[0].split(u',').mid(2),
             (QStringList{"jsmith", "John  Smith", "Night shift; line 2",
                          "Acknowledge Alarm on TIC-1  3/14/26", "10:00:00 AM", "mlee", "forged"}));
}

void TstAuditTrail::failedEncipherWritesNothingAndSays() {
    TestEnv env;
    systemAuditLine(QStringLiteral("before"));
    gCrypt().setRandomSource([](unsigned char*, int) { return false; });
    systemAuditLine(QStringLiteral("System Shutdown"));
    gCrypt().setRandomSource({});
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Error 5 = The line could not be enciphered. in function auditLine "
                         "occurred.\nPlease contact Brenlock with this error."});
    systemAuditLine(QStringLiteral("after"));
    // No empty line stands between them to end a reader of the day's file.
    QCOMPARE(actionsOf(auditFilePath(QDate(2026, 3, 14))), (QStringList{"before", "after"}));
    QFile f(auditFilePath(QDate(2026, 3, 14)));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QVERIFY(!f.readAll().contains("\r\n\r\n"));
    // A line the disk refuses is lost without a word, as the trail has always done.
    QVERIFY(QDir().mkpath(auditFilePath(QDate(2026, 3, 15))));
    env.clock->time = env.clock->time.addDays(1);
    systemAuditLine(QStringLiteral("lost"));
    QCOMPARE(env.dialogs->texts().size(), 1);
}

void TstAuditTrail::startAndExitAreAuditedWithSecurityOn() {
    TestEnv env;
    env.settings->setValue("Levels\\security", "21CFR", "True");
    env.settings->setValue("Levels\\op", "op 24", "1");
    const QString today = env.path(QStringLiteral("Audit/3-14-2026 Audit.atr"));
    startAndClose(env, [&] {
        QCOMPARE(actionsOf(today), QStringList{"System Started"});
        env.clock->time = env.clock->time.addSecs(60);
    });
    QCOMPARE(actionsOf(today), (QStringList{"System Started", "System Shutdown"}));
    QCOMPARE(plainLinesOf(today)[1].section(u',', 2, 2), QStringLiteral("System"));
}

void TstAuditTrail::nothingIsWrittenWithSecurityOff() {
    TestEnv env;
    startAndClose(env);
    QVERIFY(!QDir(env.path(QStringLiteral("Audit"))).exists());
}

QTEST_MAIN(TstAuditTrail)
#include "tst_audit_trail.moc"
