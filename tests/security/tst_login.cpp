#include "app/frm_main.h"
#include "platform/site_groups.h"
#include "security/frm_login.h"
#include "security/login.h"
#include "security/network_info.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>

class TstLogin : public QObject {
    Q_OBJECT
private slots:
    void groupOrderDecidesTheLevel();
    void siteGroupNamesMapToTheSystemsNames();

    void menuLoginThreeFailures();
    void forgedNameNeverReachesAccountsOrRecords();
    void unavailableCheckIsNoFailedAttempt();
    void failureThenSuccessLogsOn();

    void securityOffAsksAndRecordsNothing();
    void signatureNeedsTheRightBeforeAndAfterAsking();
    void cancelLeavesNoTrace();
    void everySignatureAsksAndTakesNamesByTheLengthTest();

    void logOffTextsAndEmptyIdAfterwards();
};

namespace {
const QString kAuditFile = QStringLiteral("Audit/3-14-2026 Audit.atr");
const QString kBadPassword = QStringLiteral("Invalid UserID or Password, try again!");
const QString kBadGroup = QStringLiteral("Invalid Group Assignment, try again!");
const QString kThreeFailures = QStringLiteral(
    "3 login attempts failed. User written to audit trail.\n\n"
    "Please check with administrator for lockout\nif userID and password is not working!");

// User id, full name, comment and action of every audit line.
QList<QStringList> auditOf(const TestEnv& env) {
    QList<QStringList> out;
    for (const QString& line : plainLinesOf(env.path(kAuditFile)))
        out << line.split(u',').mid(2);
    return out;
}

// Security on, the session a supervisor "jdoe"; supervisors hold right 15, operators do not.
void signedPlant(TestEnv& env) {
    g21CFR = true;
    gSuRights[Right::SignDataFiles] = 1;
    gAdRights[Right::SignDataFiles] = 1;
    env.accounts->addUser("jdoe", "pw-jdoe", {"jdoe", "Sorvantel Supervisors"}, "Jane Doe",
                          "Line 1");
    env.accounts->addUser("mlee", "pw-mlee", {"Sorvantel Administrators"}, "Mary Lee", "QA");
    env.accounts->addUser("tom", "pw-tom", {"Sorvantel Operators"}, "Tom Field", "Night shift");
    gUserId = "jdoe";
    gUserFullName = "Jane Doe";
    gUserComment = "Line 1";
    gUserLevel = 1;
}

// Queues one press of OK per user/password pair.
void logins(TestEnv& env, const QList<QStringList>& pairs) {
    for (const QStringList& p : pairs)
        env.modals.login(p[0], p[1]);
}

// Id, full name, comment and level of the session.
QStringList session() {
    return {gUserId, gUserFullName, gUserComment, QString::number(gUserLevel)};
}
const QStringList kJdoe{"jdoe", "Jane Doe", "Line 1", "1"};

QStringList titles(const TestEnv& env) {
    QStringList out;
    for (const ShownBox& b : env.dialogs->boxes)
        out << b.title;
    return out;
}
} // namespace

void TstLogin::groupOrderDecidesTheLevel() {
    const QString ad = "Sorvantel Administrators", su = "Sorvantel Supervisors",
                  op = "Sorvantel Operators";
    const QList<QStringList> groups{{su, op, ad},
                                    {ad, op, ad},
                                    {ad, su},
                                    {"users", ad, "Sorvantel Guests", su, "wheel"},
                                    {"sorvantel administrators", " Sorvantel Operators"},
                                    {}};
    QList<int> levels; // negative where no group was found
    for (const QStringList& g : groups) {
        gUserLevel = 7; // stays when nothing is found
        levels << (resolveGroupLevel(g) ? gUserLevel : -gUserLevel);
    }
    // The last of the workstation's groups decides, others are skipped; names compare exactly.
    QCOMPARE(levels, (QList<int>{1, 2, 1, 1, -7, -7}));
}

void TstLogin::siteGroupNamesMapToTheSystemsNames() {
    TestEnv env;
    QTemporaryDir site;
    useSiteGroupsFile(site.filePath("accounts.conf"));
    auto back = qScopeGuard([] { useSiteGroupsFile({}); });
    env.accounts->addUser("ann", "x",
                          {"ann", "sorvantel-supervisors", "plant", "sorvantel-operators",
                           "sorvantel-administrators"});
    NetworkInfo net;
    const QStringList defaults{"ann", "Sorvantel Supervisors", "plant", "Sorvantel Operators",
                               "Sorvantel Administrators"};
    QCOMPARE(net.GetUserGroups("ignored", "ann", true), defaults);
    // The operator's own settings cannot make a group the administrators.
    env.settings->setValue("Accounts", "AdministratorsGroup", "plant");
    QCOMPARE(net.GetUserGroups({}, "ann", true), defaults);
    // The site's root-owned file can. Its keys in any case; comments, however long, sections and
    // empty values name nothing.
    const SiteGroups parsed =
        parseSiteGroups("# c\n[accounts]\n SupervisorsGroup = qa \n#" + std::string(510, ' ') +
                        "administratorsgroup=evil\noperatorsgroup=\n");
    QCOMPARE((QList<std::string>{parsed.operators, parsed.supervisors, parsed.administrators}),
             (QList<std::string>{"sorvantel-operators", "qa", "sorvantel-administrators"}));
    QFile conf(site.filePath("accounts.conf"));
    QVERIFY(conf.open(QIODevice::WriteOnly));
    conf.write(
        "# site groups\n[accounts]\nSupervisorsGroup = qa-leads\nadministratorsgroup=plant\n");
    conf.close();
    const QStringList mapped{"ann", "sorvantel-supervisors", "Sorvantel Administrators",
                             "Sorvantel Operators", "sorvantel-administrators"};
    if (geteuid() == 0) {
        QCOMPARE(net.GetUserGroups({}, "ann", true), mapped);
        // A file that others may write is no site's word.
        QVERIFY(conf.setPermissions(conf.permissions() | QFile::WriteOther));
        QCOMPARE(net.GetUserGroups({}, "ann", true), defaults);
    } else {
        QCOMPARE(net.GetUserGroups({}, "ann", true), defaults); // not owned by root
    }
    // An unknown user, or one without groups, gives one empty element.
    QCOMPARE(net.GetUserGroups({}, "nobody-here", true), QStringList{QString()});
}

void TstLogin::menuLoginThreeFailures() {
    TestEnv env;
    auto* main = new FrmMain;
    signedPlant(env);
    env.accounts->addUser("guest", "pw", {"guest", "users"});
    // A right password without a group counts as a failure as well.
    logins(env, {{"mlee", "wrong-1"}, {"guest", "pw"}, {"mlee", "wrong-3"}});
    main->menuItem("mnuLogon")->trigger();
    QCOMPARE(env.modals.pending(), 0);
    QCOMPARE(env.dialogs->texts(),
             (QStringList{kBadPassword, kBadGroup, kBadPassword, kThreeFailures}));
    QCOMPARE(titles(env), (QStringList{"Login", "Login", "Login", "Login Failure"}));
    // The attempt is on the trail under the last typed name; the session is as it was.
    QCOMPARE(auditOf(env), (QList<QStringList>{{"mlee", "", "", "Login Failed"}}));
    QCOMPARE(session(), kJdoe);
    QVERIFY(!gLoggedOn);
    // The count is per dialog: a new one starts at nothing.
    env.modals.login("mlee", "wrong-4");
    env.modals.cancelLogin();
    main->menuItem("mnuLogon")->trigger();
    QCOMPARE(env.dialogs->texts().size(), 5);
    QCOMPARE(auditOf(env).size(), 1);
}

// The signature's path; the menu's takes the same typed name and restores the session as
// menuLoginThreeFailures shows.
void TstLogin::forgedNameNeverReachesAccountsOrRecords() {
    TestEnv env;
    signedPlant(env);
    const QString forged = "mlee,Mary Lee,QA,Digital Signature of file /data/B42.slg";
    logins(env, {{forged, "pw-mlee"}, {"mlee\nMary Lee", "pw-mlee"}, {forged, "pw-mlee"}});
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, "Digital Signature of file a.slg"));
    QCOMPARE(env.dialogs->texts(),
             (QStringList{kBadPassword, kBadPassword, kBadPassword, kThreeFailures}));
    QVERIFY(env.accounts->checkedUsers.isEmpty());
    // The failure is on the trail, the typed text shown but unable to fill a field of its own.
    QCOMPARE(auditOf(env),
             (QList<QStringList>{{"mlee?Mary?Lee?QA?Digital?Signature?of?file??data?B42.slg", "",
                                  "", "Login Failed during Digital Signature of file a.slg"}}));
    QCOMPARE(session(), kJdoe);
}

void TstLogin::unavailableCheckIsNoFailedAttempt() {
    TestEnv env;
    signedPlant(env);
    env.accounts->serviceDown = true;
    logins(env, {{"mlee", "pw-mlee"}, {"mlee", "pw-mlee"}, {"mlee", "pw-mlee"}});
    env.modals.cancelLogin(); // the dialog is still there after three
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, "Digital Signature of file a.slg"));
    const QString unavailable =
        "The password could not be checked: the system's password service is not "
        "available.\nPlease check with administrator.";
    QCOMPARE(env.dialogs->texts(), (QStringList{unavailable, unavailable, unavailable}));
    QCOMPARE(env.modals.pending(), 0);
    QVERIFY(!QFile::exists(env.path(kAuditFile)));
    QCOMPARE(session(), kJdoe);
}

void TstLogin::failureThenSuccessLogsOn() {
    TestEnv env;
    auto* main = new FrmMain;
    signedPlant(env);
    env.modals.login("tom", "pw-mlee");
    env.modals.act([](QDialog* d) {
        auto* login = qobject_cast<FrmLogin*>(d);
        QVERIFY(login);
        QCOMPARE(login->loginAttemptsFailed(), quint16(1));
        // The password, never shown, was dropped after its check; the name waits, selected.
        auto* name = d->findChild<QLineEdit*>("UserName");
        QCOMPARE(d->findChild<QLineEdit*>("txtPassword")->echoMode(), QLineEdit::Password);
        QCOMPARE(d->findChild<QLineEdit*>("txtPassword")->text(), QString());
        QCOMPARE(name->selectedText(), QStringLiteral("tom"));
        d->findChild<QLineEdit*>("txtPassword")->setText("pw-tom");
        d->findChild<QPushButton*>("cmdOK")->click();
    });
    main->menuItem("mnuLogon")->trigger();
    QCOMPARE(env.dialogs->texts(), QStringList{kBadPassword});
    QCOMPARE(session(), (QStringList{"tom", "Tom Field", "Night shift", "0"}));
    QCOMPARE(gComputerName, env.accounts->computer);
    QVERIFY(gLoggedOn);
    QCOMPARE(auditOf(env), (QList<QStringList>{{"tom", "Tom Field", "Night shift", "Login"}}));
}

void TstLogin::securityOffAsksAndRecordsNothing() {
    TestEnv env;
    auto* main = new FrmMain;
    g21CFR = false;
    QVERIFY(checkAccessWithLogin(Right::SignDataFiles, "Digital Signature of file x.slg"));
    QVERIFY(env.dialogs->boxes.isEmpty());
    main->menuItem("mnuLogon")->trigger();
    main->menuItem("mnuLogOff")->trigger();
    QCOMPARE(env.dialogs->texts(),
             (QStringList{"System security is not enabled!\n", "System security is not enabled!"}));
    QCoreApplication::processEvents();
    QVERIFY(env.modals.seen.isEmpty());
    QVERIFY(!QDir(env.path("Audit")).exists());
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));
}

void TstLogin::signatureNeedsTheRightBeforeAndAfterAsking() {
    TestEnv env;
    signedPlant(env);
    gUserLevel = 0; // operators lack right 15
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, "Digital Signature of file x.slg"));
    QCoreApplication::processEvents();
    QVERIFY(env.modals.seen.isEmpty());
    QVERIFY(auditOf(env).isEmpty());
    // A signer without the right is denied and the session comes back whole.
    gUserLevel = 1;
    env.modals.login("tom", "pw-tom");
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, "Digital Signature of file a.slg"));
    const QString denied = "Access denied to operator level security!";
    QCOMPARE(env.dialogs->texts(), (QStringList{denied, denied}));
    QCOMPARE(auditOf(env),
             (QList<QStringList>{{"tom", "Tom Field", "Night shift",
                                  "User access denied during Digital Signature of file a.slg"}}));
    QCOMPARE(session(), kJdoe);
}

void TstLogin::cancelLeavesNoTrace() {
    TestEnv env;
    auto* main = new FrmMain;
    signedPlant(env);
    env.modals.login("tom", "nope");
    env.modals.cancelLogin();
    main->menuItem("mnuLogon")->trigger();
    QVERIFY(gLoginCancelled);
    QVERIFY(!gLoggedOn);
    QVERIFY(!QFile::exists(env.path(kAuditFile)));
    QCOMPARE(session(), kJdoe);
    // A signature cancelled after a failure adds nothing and leaves the next one free.
    env.modals.login("mlee", "wrong");
    env.modals.cancelLogin();
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, "Clear Alarm Log"));
    QCOMPARE(env.dialogs->texts(), (QStringList{kBadPassword, kBadPassword}));
    QVERIFY(!QFile::exists(env.path(kAuditFile)));
    QCOMPARE(session(), kJdoe);
    QVERIFY(!gLoginCancelled);
}

// Every signed action asks again, also of the same user. The level follows the groups; the names
// only when the lengths of user and computer name share a bit: 8 on 7 do not, 3 on 7 do.
void TstLogin::everySignatureAsksAndTakesNamesByTheLengthTest() {
    for (const QString& user : {QStringLiteral("operator"), QStringLiteral("op1")}) {
        TestEnv env;
        signedPlant(env);
        env.accounts->computer = "PLANT01";
        env.accounts->addUser(user, "pw", {"Sorvantel Administrators"}, "New Person", "New");
        env.modals.login(user, "pw");
        env.modals.login(user, "pw");
        QVERIFY(checkAccessWithLogin(Right::SignDataFiles, "Digital Signature of file a.slg"));
        QVERIFY(checkAccessWithLogin(Right::SignDataFiles, "Verify"));
        QCOMPARE(env.modals.seen, (QStringList{"Login", "Login"}));
        const QStringList who = user.size() == 3 ? QStringList{user, "New Person", "New"}
                                                 : QStringList{"jdoe", "Jane Doe", "Line 1"};
        QCOMPARE(session(), who + QStringList{"2"});
        QCOMPARE(auditOf(env),
                 (QList<QStringList>{who + QStringList{"Digital Signature of file a.slg"},
                                     who + QStringList{"Verify"}}));
    }
}

void TstLogin::logOffTextsAndEmptyIdAfterwards() {
    TestEnv env;
    auto* main = new FrmMain;
    g21CFR = true;
    gUserLevel = 2;
    env.dialogs->answerNext(MsgAnswer::Cancel);
    main->menuItem("mnuLogOff")->trigger();
    QCOMPARE(gUserLevel, qint16(2)); // cancelled: nothing changes
    QVERIFY(!QFile::exists(env.path(kAuditFile)));
    main->menuItem("mnuLogOff")->trigger();
    QCOMPARE(env.dialogs->boxes[1].buttons, MsgButtons::OkCancel);
    // The line still carries the old name.
    QCOMPARE(auditOf(env), (QList<QStringList>{{"Sorvantel System", "", "", "Logged Off"}}));
    QCOMPARE((std::pair{gUserId, int(gUserLevel)}), (std::pair{QString(), 0}));
    main->menuItem("mnuLogOff")->trigger();
    const QString ask = "Log off Sorvantel System . Are you sure?";
    QCOMPARE(env.dialogs->texts(), (QStringList{ask, ask,
                                                " has been logged off successfully!\n"
                                                "System will default to operator level security.",
                                                "There are no users logged on!"}));
    QCOMPARE(titles(env), (QStringList{"Log off", "Log off", "Log Off", "Log Off"}));
    QCOMPARE(auditOf(env).size(), 1);
}

QTEST_MAIN(TstLogin)
#include "tst_login.moc"
