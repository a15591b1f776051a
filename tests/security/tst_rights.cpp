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

QTEST_MAIN(TstRights)
#include "tst_rights.moc"
