#include "app/frm_main.h"
#include "app/startup.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/test_env.h"

#include <QAction>
#include <QTest>

class TstRights : public QObject {
    Q_OBJECT
private slots:
    void checkAccessByLevelAndEntry_data();
    void checkAccessByLevelAndEntry();
    void loadRightsReadsKeysWithTheirBlank();
    void withoutAccountsSecurityStaysOff();
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
    QTest::newRow("hand-edited -1 denies") << 1 << 9 << -1 << su;
    QTest::newRow("supervisor holds 15") << 1 << 15 << 1 << QString();
    QTest::newRow("administrator lacks 23") << 2 << 23 << 0 << ad;
    QTest::newRow("administrator keeps 13") << 2 << 13 << 0 << QString();
    QTest::newRow("only the administrator keeps 13") << 1 << 13 << 0 << su;
    QTest::newRow("the exception is 13 only") << 2 << 12 << 0 << ad;
    QTest::newRow("24 is denied unless set by hand") << 2 << 24 << 0 << ad;
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
        QCOMPARE(env.dialogs->boxes.size(), 1);
        QCOMPARE(env.dialogs->boxes[0].text, denial);
        QCOMPARE(env.dialogs->boxes[0].title, QStringLiteral("Sorvantel"));
        QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
        QCOMPARE(env.dialogs->boxes[0].buttons, MsgButtons::Ok);
    }
    // With security off the same entry passes, silently.
    g21CFR = false;
    env.dialogs->boxes.clear();
    QVERIFY(checkAccess(right));
    QVERIFY(env.dialogs->boxes.isEmpty());
}

void TstRights::loadRightsReadsKeysWithTheirBlank() {
    TestEnv env;
    env.settings->setValue("Levels\\op", "op 0", "1");
    env.settings->setValue("Levels\\op", "op0", "1"); // not the key: no blank
    env.settings->setValue("Levels\\op", "op 1", "2");
    env.settings->setValue("Levels\\su", "su 24", "1");
    env.settings->setValue("Levels\\ad", "ad 11", " 1 ");
    env.settings->setValue("Levels\\ad", "ad 12", "yes");
    env.settings->setValue("Levels\\ad", "ad 13", "65537"); // would wrap round to 1
    env.settings->setValue("Levels\\security", "21CFR", "True");
    gUserId = QStringLiteral("someone");
    gUserLevel = 2;
    QVERIFY(loadRights());
    QCOMPARE(gOpRights[0], qint16(1));
    QCOMPARE(gOpRights[1], qint16(2)); // loads as it stands
    QCOMPARE(gOpRights[2], qint16(0));
    QCOMPARE(gSuRights[24], qint16(1));
    QCOMPARE(gAdRights[11], qint16(1));
    QCOMPARE(gAdRights[12], qint16(0)); // unreadable text takes the default
    QCOMPARE(gAdRights[13], qint16(0));
    QVERIFY(g21CFR);
    QCOMPARE(gUserId, QStringLiteral("Sorvantel System"));
    QCOMPARE(gUserLevel, qint16(0));
    // A fresh store grants nothing and leaves security off.
    env.settings->values.clear();
    QVERIFY(loadRights());
    QVERIFY(!g21CFR);
    QCOMPARE(gOpRights[0], qint16(0));
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

QTEST_MAIN(TstRights)
#include "tst_rights.moc"
