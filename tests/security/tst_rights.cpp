#include "app/frm_main.h"
#include "app/startup.h"
#include "security/frm_passwords.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

class TstRights : public QObject {
    Q_OBJECT
private slots:
    void checkAccessByLevelAndEntry_data();
    void checkAccessByLevelAndEntry();
    void loadRightsReadsKeysWithTheirBlank();
    void withoutAccountsSecurityStaysOff();

    void ticksCountOnlyOnAccept();
    void closeWritesEveryKeyAndTheSwitch();
    void menuAsksSignedAccessFirst();
};

void TstRights::checkAccessByLevelAndEntry_data() {
    QTest::addColumn<int>("level");
    QTest::addColumn<int>("right");
    QTest::addColumn<int>("entry");
    QTest::addColumn<QString>("denial"); // empty: passes

    const QString op = QStringLiteral("Access denied to operator level security!");
    const QString su = QStringLiteral("Access denied to supervisor level security!");
    const QString ad = QStringLiteral("Access denied to administrator level security!");
    QTest::newRow("operator holds 4") << 0 << 4 << 1 << QString();
    QTest::newRow("operator lacks 4") << 0 << 4 << 0 << op;
    QTest::newRow("hand-edited 2 denies") << 0 << 4 << 2 << op;
    QTest::newRow("supervisor holds 15") << 1 << 15 << 1 << QString();
    QTest::newRow("administrator lacks 23") << 2 << 23 << 0 << ad;
    QTest::newRow("administrator keeps 13") << 2 << 13 << 0 << QString();
    QTest::newRow("only the administrator keeps 13") << 1 << 13 << 0 << su;
    QTest::newRow("24 set by hand") << 2 << 24 << 1 << QString();
    QTest::newRow("right beyond the table") << 2 << 25 << 1 << ad;
    QTest::newRow("negative right") << 0 << -1 << 1 << op;
}

void TstRights::checkAccessByLevelAndEntry() {
    QFETCH(int, level);
    QFETCH(int, right);
    QFETCH(int, entry);
    QFETCH(QString, denial);
    TestEnv env;
    g21CFR = true;
    gUserLevel = static_cast<qint16>(level);
    // Every other right of every level is granted: only the entry under test may decide.
    for (RightsTable* t : {&gOpRights, &gSuRights, &gAdRights})
        t->fill(1);
    if (right >= 0 && right < kRightCount)
        (*rightsOfLevel(level))[right] = static_cast<qint16>(entry);
    QCOMPARE(checkAccess(right), denial.isEmpty());
    if (denial.isEmpty()) {
        QVERIFY(env.dialogs->boxes.isEmpty());
    } else {
        QCOMPARE(env.dialogs->texts(), QStringList{denial});
        const ShownBox& box = env.dialogs->boxes[0];
        QCOMPARE(std::tuple(box.title, box.icon, box.buttons),
                 std::tuple(QStringLiteral("Sorvantel"), MsgIcon::Critical, MsgButtons::Ok));
    }
    // With security off the same entry passes, silently.
    g21CFR = false;
    env.dialogs->boxes.clear();
    QVERIFY(checkAccess(right));
    QVERIFY(env.dialogs->boxes.isEmpty());
}

void TstRights::loadRightsReadsKeysWithTheirBlank() {
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
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));
    QCOMPARE(gUserLevel, qint16(0));
}

void TstRights::withoutAccountsSecurityStaysOff() {
    TestEnv env;
    env.accounts->backendPresent = false;
    env.settings->setValue("Levels\\security", "21CFR", "True");
    env.settings->setValue("Levels\\op", "op 3", "1");
    g21CFR = true;
    gUserId = QStringLiteral("someone");
    QVERIFY(!isNtFamily());
    auto* main = new FrmMain;
    loadSettings(*main);
    for (const char* item : {"mnuAudit", "mnuPasswords", "mnuLogOff", "mnuLogon"})
        QVERIFY2(!main->menuItem(QString::fromLatin1(item))->isEnabled(), item);
    QVERIFY(!g21CFR);
    QCOMPARE(gOpRights[3], qint16(0)); // never read
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));
}

namespace {
bool ticked(FrmPasswords& d, int row) {
    return d.rightsList()->topLevelItem(row)->checkState(0) == Qt::Checked;
}

void tick(FrmPasswords& d, int row, bool on) {
    d.rightsList()->topLevelItem(row)->setCheckState(0, on ? Qt::Checked : Qt::Unchecked);
}

void chooseLevel(FrmPasswords& d, int level) {
    d.userLevel()->setCurrentIndex(level);
}

QPushButton* buttonOf(QDialog& d, const char* name) {
    return d.findChild<QPushButton*>(QString::fromLatin1(name));
}
} // namespace

// Each level shows its own table; ticks count only on Accept, and then at once, but nothing is
// written before the close.
void TstRights::ticksCountOnlyOnAccept() {
    TestEnv env;
    gOpRights[2] = 1;
    gSuRights[5] = 1;
    gSuRights[7] = 2; // a hand-edited value shows as a tick
    FrmPasswords d(nullptr);
    QCOMPARE(d.userLevel()->currentIndex(), 0);
    QVERIFY(ticked(d, 2) && !ticked(d, 5));
    tick(d, 2, false);
    tick(d, 3, true);
    chooseLevel(d, 1);
    QVERIFY(!ticked(d, 2) && ticked(d, 5) && ticked(d, 7));
    chooseLevel(d, 0);
    QVERIFY(ticked(d, 2) && !ticked(d, 3));
    // Choosing the same level again also drops what was not accepted.
    tick(d, 3, true);
    emit d.userLevel()->activated(0);
    QVERIFY(!ticked(d, 3));
    // Select All and Remove All, first row to last, only touch the ticks.
    buttonOf(d, "Command3")->click();
    QVERIFY(ticked(d, 0) && ticked(d, 23));
    buttonOf(d, "Command4")->click();
    QVERIFY(!ticked(d, 0) && !ticked(d, 23));
    QCOMPARE(QList<int>({gOpRights[2], gOpRights[3]}), QList<int>({1, 0}));

    g21CFR = true;
    gUserLevel = 1;
    chooseLevel(d, 1);
    tick(d, 4, true);
    buttonOf(d, "Command2")->click();
    // In force for the running session before the dialog closes; the ticked 2 became 1.
    QCOMPARE(QList<int>({gSuRights[4], gSuRights[7]}), QList<int>({1, 1}));
    QVERIFY(checkAccess(4) && checkAccess(7));
    QVERIFY(env.dialogs->boxes.isEmpty());
    QVERIFY(!env.settings->values.contains(QtSettingsStore::foldedKey("Levels\\su", "su 4")));
}

void TstRights::closeWritesEveryKeyAndTheSwitch() {
    TestEnv env;
    gOpRights[1] = 1;
    gAdRights[23] = 1;
    gAdRights[24] = 1; // right 24 has no row and is never written
    {
        FrmPasswords d(nullptr);
        d.securityCheck()->setChecked(true);
        // The switch is not in force while the dialog is open.
        QVERIFY(!g21CFR);
        buttonOf(d, "Command1")->click();
        QVERIFY(!d.isVisible());
    }
    QVERIFY(g21CFR);
    const auto& v = env.settings->values;
    auto stored = [&](const char* section, const QString& key) {
        return v.value(QtSettingsStore::foldedKey(QString::fromLatin1(section), key),
                       QStringLiteral("absent"));
    };
    for (int i = 0; i < 24; ++i) {
        QVERIFY(stored("Levels\\op", QStringLiteral("op %1").arg(i)) != "absent");
        QVERIFY(stored("Levels\\su", QStringLiteral("su %1").arg(i)) != "absent");
        QVERIFY(stored("Levels\\ad", QStringLiteral("ad %1").arg(i)) != "absent");
    }
    QCOMPARE((QStringList{stored("Levels\\op", "op 1"), stored("Levels\\op", "op 2"),
                          stored("Levels\\ad", "ad 23"), stored("Levels\\ad", "ad 24"),
                          stored("Levels\\security", "21CFR")}),
             (QStringList{"1", "0", "1", "absent", "True"}));
    // What was written loads back as it was.
    resetRights();
    QVERIFY(loadRights());
    QVERIFY(gOpRights[1] == 1 && gAdRights[23] == 1 && g21CFR);

    FrmPasswords d(nullptr);
    d.show();
    d.securityCheck()->setChecked(false);
    QVERIFY(d.close()); // the close box: there is no cancel
    QVERIFY(!g21CFR);
    QCOMPARE(stored("Levels\\security", "21CFR"), QStringLiteral("False"));
}

// The denial without the right is in tst_frm_main, the login it skips in tst_login.
void TstRights::menuAsksSignedAccessFirst() {
    TestEnv env;
    auto* main = new FrmMain;
    g21CFR = true;
    gOpRights[11] = 1;
    gSuRights[11] = 1;
    env.accounts->addUser("mlee", "pw-mlee", {"Sorvantel Supervisors"}, "Mary Lee", "QA");
    env.modals.login("mlee", "pw-mlee");
    bool opened = false;
    env.modals.act([&opened](QDialog* d) {
        opened = d->objectName() == QLatin1String("frmPasswords");
        d->findChild<QPushButton*>("Command1")->click();
    });
    main->menuItem("mnuPasswords")->trigger();
    QVERIFY(opened);
    QCOMPARE(env.modals.seen, (QStringList{"Login", "Configure User Access"}));
    QCOMPARE(gUserId, QStringLiteral("mlee"));
    // One line, its date and time (as the locale writes them) aside.
    QCOMPARE(plainLinesOf(env.path("Audit/3-14-2026 Audit.atr")).join(u'\n').split(u',').mid(2),
             (QStringList{"mlee", "Mary Lee", "QA", "Configure users access"}));
}

QTEST_MAIN(TstRights)
#include "tst_rights.moc"
