// Logins, signatures and rights: the session's level from the groups, the login dialog's
// failures, the signed actions, and the rights of each level with their dialog.

#include "app/frm_main.h"
#include "app/startup.h"
#include "plant/frm_logger.h"
#include "security/frm_login.h"
#include "security/frm_passwords.h"
#include "security/login.h"
#include "security/network_info.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QTest>
#include <QTreeWidget>
#include <sys/stat.h>
#include <unistd.h>

class TstLogin : public QObject {
    Q_OBJECT
private slots:
    void groupOrderDecidesTheLevel();
    void siteGroupNamesMapToTheSystemsNames();
    void unreadableSiteGroupsAreSaidNotGuessed();
    void menuLoginFailuresCancelAndSuccess();
    void signatureFailures();
    void everySignatureAsksAndTakesNamesByTheLengthTest();
    void securityOffAndLogOff();

    void checkAccessByLevelAndEntry();
    void loadRightsReadsKeysWithTheirBlankAndNeedsAccounts();
    void rightsDialogAppliesOnAcceptAndWritesOnClose();
};

namespace {
const QString kAuditFile = QStringLiteral("Audit/3-14-2026 Audit.atr");
const QString kBadPassword = QStringLiteral("Login: Invalid UserID or Password, try again!");
const QString kBadGroup = QStringLiteral("Login: Invalid Group Assignment, try again!");
const QString kThreeFailures = QStringLiteral(
    "Login Failure: 3 login attempts failed. User written to audit trail.\n\n"
    "Please check with administrator for lockout\nif userID and password is not working!");
const QString kOpDenied = QStringLiteral("Sorvantel: Access denied to operator level security!");
const QString kSign = QStringLiteral("Digital Signature of file a.slg");

// User id, full name, comment and action of every audit line.
QList<QStringList> auditOf(const TestEnv& env) {
    QList<QStringList> out;
    for (const QString& line : plainLinesOf(env.path(kAuditFile)))
        out << line.split(u',').mid(2);
    return out;
}

// Title and text of every message box shown, and forgets them.
QStringList shown(TestEnv& env) {
    QStringList out;
    for (const ShownBox& b : std::exchange(env.dialogs->boxes, {}))
        out << b.title + ": " + b.text;
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
} // namespace

void TstLogin::groupOrderDecidesTheLevel() {
    const QString ad = "Sorvantel Administrators", su = "Sorvantel Supervisors",
                  op = "Sorvantel Operators";
    QList<int> levels; // negative where no group was found
    for (const QStringList& g : QList<QStringList>{{su, op, ad},
                                                   {ad, op, ad},
                                                   {"users", ad, "Sorvantel Guests", su, "wheel"},
                                                   {"sorvantel administrators", " " + op},
                                                   {}}) {
        gUserLevel = 7; // stays when nothing is found
        levels << (resolveGroupLevel(g) ? gUserLevel : -gUserLevel);
    }
    // The last of the workstation's groups decides, others are skipped; names compare exactly.
    QCOMPARE(levels, (QList<int>{1, 2, 1, -7, -7}));
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
    // The site's root-owned file can: its keys in any case, blanks around; comments, sections
    // and empty values name nothing.
    QVERIFY(writeBytes(site.filePath("accounts.conf"), "# site\n[accounts]\n SupervisorsGroup = "
                                                       "qa-leads \nadministratorsgroup= plant\n"
                                                       "operatorsgroup=\n"));
    if (geteuid() == 0) {
        QCOMPARE(net.GetUserGroups({}, "ann", true),
                 (QStringList{"ann", "sorvantel-supervisors", "Sorvantel Administrators",
                              "Sorvantel Operators", "sorvantel-administrators"}));
        // A file that others may write is no site's word.
        QFile conf(site.filePath("accounts.conf"));
        QVERIFY(conf.setPermissions(conf.permissions() | QFile::WriteOther));
    }
    QCOMPARE(net.GetUserGroups({}, "ann", true), defaults); // not root's alone
    // An unknown user, or one without groups, gives one empty element.
    QCOMPARE(net.GetUserGroups({}, "nobody-here", true), QStringList{QString()});
}

void TstLogin::unreadableSiteGroupsAreSaidNotGuessed() {
    if (geteuid() != 0)
        QSKIP("Only root makes a site file that is trusted yet unreadable to another account.");
    TestEnv env;
    signedPlant(env);
    env.accounts->addUser("ann", "pw-ann", {"ann", "qa-leads"});
    // Root's own file that no other account may read (a site may leave it to the password
    // helper's group alone), or in a folder that no other account may enter.
    QTemporaryDir site;
    const QString file = site.filePath("accounts.conf");
    QVERIFY(writeBytes(file, "supervisorsgroup = qa-leads\n"));
    useSiteGroupsFile(file);
    auto back = qScopeGuard([] { useSiteGroupsFile({}); });
    const QString why = "The user level could not be decided: the site's group names cannot be "
                        "read.\n" +
                        file + ": Permission denied";
    for (const auto& [folderMode, fileMode] : {std::pair{0755, 0600}, std::pair{0700, 0644}}) {
        QVERIFY(::chmod(QFile::encodeName(site.path()).constData(), mode_t(folderMode)) == 0 &&
                ::chmod(QFile::encodeName(file).constData(), mode_t(fileMode)) == 0);
        FrmLogger logger;
        env.modals.login("ann", "pw-ann");
        env.modals.cancelLogin();
        QCOMPARE(seteuid(65534), 0); // nobody
        const bool granted = checkAccessWithLogin(Right::SignDataFiles, kSign);
        QCOMPARE(seteuid(0), 0);
        // Neither a guess at the level nor a failed attempt: the box and the logger say why.
        QVERIFY(!granted);
        QCOMPARE(shown(env), QStringList{"Login: " + why + "\nPlease check with administrator."});
        QCOMPARE(logger.text().trimmed(), QString(why).replace(u'\n', u' '));
        QVERIFY(!QFile::exists(env.path(kAuditFile)));
        QCOMPARE(session(), kJdoe);
    }
}

// Three failures end the dialog, a right password without a group among them; the attempt is on
// the trail under the last typed name and the session is as it was. The count is per dialog, a
// cancel leaves no trace, and a failure followed by a success logs on.
void TstLogin::menuLoginFailuresCancelAndSuccess() {
    TestEnv env;
    auto* main = new FrmMain;
    signedPlant(env);
    env.accounts->addUser("guest", "pw", {"guest", "users"});
    logins(env, {{"mlee", "wrong-1"}, {"guest", "pw"}, {"mlee", "wrong-3"}});
    main->menuItem("mnuLogon")->trigger();
    QCOMPARE(env.modals.pending(), 0);
    QCOMPARE(shown(env), (QStringList{kBadPassword, kBadGroup, kBadPassword, kThreeFailures}));
    QCOMPARE(auditOf(env), (QList<QStringList>{{"mlee", "", "", "Login Failed"}}));
    QCOMPARE(session(), kJdoe);
    QVERIFY(!gLoggedOn);

    env.modals.login("mlee", "wrong-4");
    env.modals.cancelLogin();
    main->menuItem("mnuLogon")->trigger();
    QCOMPARE(shown(env), QStringList{kBadPassword});
    QVERIFY(gLoginCancelled && !gLoggedOn);
    QCOMPARE(auditOf(env).size(), 1);
    QCOMPARE(session(), kJdoe);

    env.modals.login("tom", "pw-mlee");
    env.modals.act([](QDialog* d) {
        QCOMPARE(qobject_cast<FrmLogin*>(d)->loginAttemptsFailed(), quint16(1));
        // The password, never shown, was dropped after its check; the name waits, selected.
        auto* password = d->findChild<QLineEdit*>("txtPassword");
        QCOMPARE(std::pair(password->echoMode(), password->text()),
                 std::pair(QLineEdit::Password, QString()));
        QCOMPARE(d->findChild<QLineEdit*>("UserName")->selectedText(), QStringLiteral("tom"));
        password->setText("pw-tom");
        d->findChild<QPushButton*>("cmdOK")->click();
    });
    main->menuItem("mnuLogon")->trigger();
    QCOMPARE(shown(env), QStringList{kBadPassword});
    QCOMPARE(session(), (QStringList{"tom", "Tom Field", "Night shift", "0"}));
    QCOMPARE(gComputerName, env.accounts->computer);
    QVERIFY(gLoggedOn && !gLoginCancelled);
    QCOMPARE(auditOf(env).last(), (QStringList{"tom", "Tom Field", "Night shift", "Login"}));
}

// A signature that fails comes back to the session as it was, each way it can fail.
void TstLogin::signatureFailures() {
    TestEnv env;
    signedPlant(env);
    // A password service that is down is no failed attempt: the dialog is still there after three.
    env.accounts->serviceDown = true;
    logins(env, {{"mlee", "pw-mlee"}, {"mlee", "pw-mlee"}, {"mlee", "pw-mlee"}});
    env.modals.cancelLogin();
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, kSign));
    QCOMPARE(shown(env), QStringList(3, "Login: The password could not be checked: the system's "
                                        "password service is not available.\nPlease check with "
                                        "administrator."));
    QCOMPARE(env.modals.pending(), 0);
    QVERIFY(!QFile::exists(env.path(kAuditFile)));
    QCOMPARE(session(), kJdoe);

    // A signer cancelled after a failure adds nothing and leaves the next one free.
    env.accounts->serviceDown = false;
    env.modals.login("mlee", "wrong");
    env.modals.cancelLogin();
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, "Clear Alarm Log"));
    QCOMPARE(shown(env), QStringList{kBadPassword});
    QVERIFY(!QFile::exists(env.path(kAuditFile)));
    QCOMPARE(session(), kJdoe);
    QVERIFY(!gLoginCancelled);

    // Forged names never reach the accounts; the trail shows the typed text, unable to fill a
    // field of its own.
    env.accounts->checkedUsers.clear();
    const QString forged = "mlee,Mary Lee,QA,Digital Signature of file /data/B42.slg";
    logins(env, {{forged, "pw-mlee"}, {"mlee\nMary Lee", "pw-mlee"}, {forged, "pw-mlee"}});
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, kSign));
    QCOMPARE(shown(env), (QStringList{kBadPassword, kBadPassword, kBadPassword, kThreeFailures}));
    QVERIFY(env.accounts->checkedUsers.isEmpty());
    QCOMPARE(session(), kJdoe);

    // The right is needed before asking (operators lack right 15) and of the signer after.
    gUserLevel = 0;
    const qsizetype asked = env.modals.seen.size();
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, kSign));
    QCOMPARE(shown(env), QStringList{kOpDenied});
    QCOMPARE(env.modals.seen.size(), asked);
    gUserLevel = 1;
    env.modals.login("tom", "pw-tom");
    QVERIFY(!checkAccessWithLogin(Right::SignDataFiles, kSign));
    QCOMPARE(shown(env), QStringList{kOpDenied});
    QCOMPARE(session(), kJdoe);
    QCOMPARE(auditOf(env),
             (QList<QStringList>{
                 {"mlee?Mary?Lee?QA?Digital?Signature?of?file??data?B42.slg", "", "",
                  "Login Failed during " + kSign},
                 {"tom", "Tom Field", "Night shift", "User access denied during " + kSign}}));
}

// Every signed action asks again, also of the same user. The level follows the groups; the names
// only when the lengths of user and computer name share a bit: 8 on 7 do not, 3 on 7 do.
void TstLogin::everySignatureAsksAndTakesNamesByTheLengthTest() {
    for (const QString& user : {QStringLiteral("operator"), QStringLiteral("op1")}) {
        TestEnv env;
        signedPlant(env);
        env.accounts->computer = "PLANT01";
        env.accounts->addUser(user, "pw", {"Sorvantel Administrators"}, "New Person", "New");
        logins(env, {{user, "pw"}, {user, "pw"}});
        QVERIFY(checkAccessWithLogin(Right::SignDataFiles, kSign));
        QVERIFY(checkAccessWithLogin(Right::SignDataFiles, "Verify"));
        QCOMPARE(env.modals.seen, (QStringList{"Login", "Login"}));
        const QStringList who = user.size() == 3 ? QStringList{user, "New Person", "New"}
                                                 : QStringList{"jdoe", "Jane Doe", "Line 1"};
        QCOMPARE(session(), who + QStringList{"2"});
        QCOMPARE(auditOf(env),
                 (QList<QStringList>{who + QStringList{kSign}, who + QStringList{"Verify"}}));
    }
}

void TstLogin::securityOffAndLogOff() {
    TestEnv env;
    auto* main = new FrmMain;
    QVERIFY(checkAccessWithLogin(Right::SignDataFiles, kSign)); // asks and records nothing
    main->menuItem("mnuLogon")->trigger();
    main->menuItem("mnuLogOff")->trigger();
    QCOMPARE(shown(env), (QStringList{"Sorvantel: System security is not enabled!\n",
                                      "Sorvantel: System security is not enabled!"}));
    QCoreApplication::processEvents();
    QVERIFY(env.modals.seen.isEmpty());
    QVERIFY(!QDir(env.path("Audit")).exists());
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));

    g21CFR = true;
    gUserLevel = 2;
    env.dialogs->answerNext(MsgAnswer::Cancel);
    main->menuItem("mnuLogOff")->trigger();
    QCOMPARE(gUserLevel, qint16(2)); // cancelled: nothing changes
    QVERIFY(!QFile::exists(env.path(kAuditFile)));
    main->menuItem("mnuLogOff")->trigger();
    QCOMPARE(env.dialogs->boxes[1].buttons, MsgButtons::OkCancel);
    // The line still carries the old name; the session has no id until the next login.
    QCOMPARE(auditOf(env), (QList<QStringList>{{"Sorvantel System", "", "", "Logged Off"}}));
    QCOMPARE((std::pair{gUserId, int(gUserLevel)}), (std::pair{QString(), 0}));
    main->menuItem("mnuLogOff")->trigger();
    const QString ask = "Log off: Log off Sorvantel System . Are you sure?";
    QCOMPARE(shown(env), (QStringList{ask, ask,
                                      "Log Off:  has been logged off successfully!\n"
                                      "System will default to operator level security.",
                                      "Log Off: There are no users logged on!"}));
    QCOMPARE(auditOf(env).size(), 1);
}

void TstLogin::checkAccessByLevelAndEntry() {
    // Level, right, that level's entry for it, and whether it passes: a hand-edited 2 denies; 13
    // stays the administrator's; 24, set by hand, counts though it has no row; 25 is
    // "Publishing"; past it, nothing passes.
    const int rows[][4]{{0, 4, 1, 1},  {0, 4, 0, 0},  {0, 4, 2, 0},  {1, 15, 1, 1},
                        {2, 23, 0, 0}, {2, 13, 0, 1}, {1, 13, 0, 0}, {2, 24, 1, 1},
                        {1, 25, 0, 0}, {2, 25, 1, 1}, {2, 26, 1, 0}, {0, -1, 1, 0}};
    const char* const levels[]{"operator", "supervisor", "administrator"};
    for (const auto& [level, right, entry, passes] : rows) {
        TestEnv env;
        g21CFR = true;
        gUserLevel = static_cast<qint16>(level);
        // Every other right of every level is granted: only the entry under test may decide.
        for (RightsTable* t : {&gOpRights, &gSuRights, &gAdRights})
            t->fill(1);
        if (right >= 0 && right < kRightCount)
            (*rightsOfLevel(level))[right] = static_cast<qint16>(entry);
        const QString row = QStringLiteral("%1 %2 %3").arg(level).arg(right).arg(entry);
        QCOMPARE((std::pair{row, checkAccess(right)}), (std::pair{row, passes == 1}));
        for (const ShownBox& box : env.dialogs->boxes) // a denial is critical, with OK alone
            QCOMPARE(std::pair(box.icon, box.buttons),
                     std::pair(MsgIcon::Critical, MsgButtons::Ok));
        const QString denial = QString("Sorvantel: Access denied to %1 level security!");
        QCOMPARE(shown(env), passes ? QStringList() : QStringList{denial.arg(levels[level])});
        // With security off the same entry passes, silently.
        g21CFR = false;
        QVERIFY(checkAccess(right) && env.dialogs->boxes.isEmpty());
    }
}

void TstLogin::loadRightsReadsKeysWithTheirBlankAndNeedsAccounts() {
    TestEnv env;
    // "op0" is not the key (no blank); 65537 would wrap round to 1.
    for (auto [section, key, value] : {std::tuple{"op", "op 0", "1"},
                                       {"op", "op0", "1"},
                                       {"op", "op 1", "2"},
                                       {"su", "su 24", "1"},
                                       {"ad", "ad 11", " 1 "},
                                       {"ad", "ad 12", "yes"},
                                       {"ad", "ad 13", "65537"},
                                       {"security", "21CFR", "True"}})
        env.settings->setValue(QStringLiteral("Levels\\") + section, key, value);
    gUserId = QStringLiteral("someone");
    gUserLevel = 2;
    QVERIFY(loadRights());
    // A 2 loads as it stands; unreadable text takes the default.
    QCOMPARE((QList<int>{gOpRights[0], gOpRights[1], gOpRights[2], gSuRights[24], gAdRights[11],
                         gAdRights[12], gAdRights[13]}),
             (QList<int>{1, 2, 0, 1, 1, 0, 0}));
    QVERIFY(g21CFR);
    QCOMPARE(std::pair(gUserId, gUserLevel),
             std::pair(QStringLiteral("Sorvantel System"), qint16(0)));

    // Without accounts nobody can sign: security stays off and its menus with it.
    resetRights();
    env.accounts->backendPresent = false;
    gUserId = QStringLiteral("someone");
    QVERIFY(!isNtFamily());
    auto* main = new FrmMain;
    loadSettings(*main);
    for (const char* item : {"mnuAudit", "mnuPasswords", "mnuLogOff", "mnuLogon"})
        QVERIFY2(!main->menuItem(QString::fromLatin1(item))->isEnabled(), item);
    QVERIFY(!g21CFR);
    QCOMPARE(gOpRights[0], qint16(0)); // never read
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));
}

// Each level shows its own table; ticks count only on Accept, and then at once, but nothing is
// written before the close, which writes every key and the switch.
void TstLogin::rightsDialogAppliesOnAcceptAndWritesOnClose() {
    TestEnv env;
    gOpRights[1] = 1;
    gOpRights[2] = 1;
    gSuRights[5] = 1;
    gSuRights[7] = 2; // a hand-edited value shows as a tick
    gAdRights[23] = 1;
    gAdRights[24] = 1; // right 24 has no row and is never written
    auto d = std::make_unique<FrmPasswords>(nullptr);
    // '1' for a tick, row by row, after choosing the level if one is given.
    auto ticks = [&](int level = -1) {
        if (level >= 0)
            d->userLevel()->setCurrentIndex(level);
        QString out;
        for (int row = 0; row < 24; ++row)
            out += d->rightsList()->topLevelItem(row)->checkState(0) == Qt::Checked ? '1' : '0';
        return out;
    };
    auto rows = [](const char* first) {
        return QString::fromLatin1(first).leftJustified(24, u'0');
    };
    auto tick = [&](int row, bool on) {
        d->rightsList()->topLevelItem(row)->setCheckState(0, on ? Qt::Checked : Qt::Unchecked);
    };
    auto click = [&](const char* button) {
        d->findChild<QPushButton*>(QString::fromLatin1(button))->click();
    };
    QCOMPARE(ticks(), rows("011"));
    tick(2, false);
    tick(3, true);
    QCOMPARE(ticks(1), rows("00000101"));
    QCOMPARE(ticks(0), rows("011"));
    // Choosing the same level again also drops what was not accepted.
    tick(3, true);
    emit d->userLevel()->activated(0);
    QCOMPARE(ticks(), rows("011"));
    // Select All and Remove All, first row to last, only touch the ticks.
    click("Command3");
    QCOMPARE(ticks(), QString(24, u'1'));
    click("Command4");
    QCOMPARE(ticks(), QString(24, u'0'));
    QCOMPARE(QList<int>({gOpRights[2], gOpRights[3]}), QList<int>({1, 0}));

    g21CFR = true;
    gUserLevel = 1;
    ticks(1);
    tick(4, true);
    tick(24, true); // "Publishing", the row after "Quit Program", grants right 25
    click("Command2");
    // In force for the running session before the dialog closes; the ticked 2 became 1.
    QCOMPARE(QList<int>({gSuRights[4], gSuRights[7], gSuRights[24], gSuRights[25]}),
             QList<int>({1, 1, 0, 1}));
    QVERIFY(checkAccess(4) && checkAccess(7));
    QVERIFY(env.dialogs->boxes.isEmpty() && env.settings->values.isEmpty());

    // The switch is not in force while the dialog is open.
    g21CFR = false;
    d->securityCheck()->setChecked(true);
    QVERIFY(!g21CFR);
    click("Command1");
    QVERIFY(!d->isVisible() && g21CFR);
    d.reset();
    auto stored = [&](const char* section, const QString& key) {
        return env.settings->value(QLatin1String("Levels\\") + section, key, "absent");
    };
    QCOMPARE(env.settings->values.size(), 3 * 25 + 1);
    QCOMPARE((QStringList{stored("op", "op 1"), stored("op", "op 3"), stored("su", "su 23"),
                          stored("ad", "ad 23"), stored("ad", "ad 24"), stored("su", "su 25"),
                          stored("security", "21CFR")}),
             (QStringList{"1", "0", "0", "1", "absent", "1", "True"}));

    d = std::make_unique<FrmPasswords>(nullptr);
    d->show();
    d->securityCheck()->setChecked(false);
    QVERIFY(d->close()); // the close box: there is no cancel
    QVERIFY(!g21CFR);
    QCOMPARE(stored("security", "21CFR"), QStringLiteral("False"));

    // From the menu the dialog asks for a signed access first (its denial is in tst_frm_main).
    auto* main = new FrmMain;
    g21CFR = true;
    gSuRights[11] = 1;
    env.accounts->addUser("mlee", "pw-mlee", {"Sorvantel Supervisors"}, "Mary Lee", "QA");
    env.modals.login("mlee", "pw-mlee");
    env.modals.act([](QDialog* dialog) { dialog->findChild<QPushButton*>("Command1")->click(); });
    main->menuItem("mnuPasswords")->trigger();
    QCOMPARE(env.modals.seen, (QStringList{"Login", "Configure User Access"}));
    QCOMPARE(gUserId, QStringLiteral("mlee"));
    QCOMPARE(auditOf(env),
             (QList<QStringList>{{"mlee", "Mary Lee", "QA", "Configure users access"}}));
}

QTEST_MAIN(TstLogin)
#include "tst_login.moc"
