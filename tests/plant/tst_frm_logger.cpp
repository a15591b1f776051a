#include "app/frm_main.h"
#include "plant/comm_errors.h"
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "security/rights.h"
#include "security/session.h"
#include "support/test_env.h"

#include <QFile>
#include <QMdiArea>
#include <QTest>

class TstFrmLogger : public QObject {
    Q_OBJECT
private slots:
    void errorTextsOfBothForms();
    void reportsStatusAndClose();
    void saveAsRichText();
    void clearAsksAndNeedsRight7();
};

// The line names the controller by its list position plus one; two codes keep a tail of their
// own, and codes without a text give the bare address and no write text.
void TstFrmLogger::errorTextsOfBothForms() {
    const std::tuple<int, QString, QString> rows[]{
        {3, "Control Address# 3, Illegal Data Value. ", "Illegal Data Value written to control."},
        {16, "Control Address# 3, Slave Busy. Add ", "Slave device is busy."},
        {0, "Control Address# 3", ""},
        {4, "Control Address# 3", ""},
        {-5, "Control Address# 3", ""}};
    for (const auto& [code, line, write] : rows) {
        QCOMPARE(commErrorLine(code, 2), line);
        QCOMPARE(commErrorWriteText(code), write);
    }
    TestEnv env;
    reportWriteError(3);
    QCOMPARE(
        env.dialogs->texts(),
        QStringList{"Error during write to controller!\nIllegal Data Value written to control."});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
}

// A report beeps when asked to, and writes the line by list position and the status; a code
// without a text only beeps. Minimizing the logger restores the status until the next report.
void TstFrmLogger::reportsStatusAndClose() {
    TestEnv env;
    auto* main = new FrmMain;
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    gComBeep = true;
    gPollIndex = 4;
    reportCommError(-3);
    QCOMPARE(env.beeper->count, 1);
    QCOMPARE(main->statusText(), kStatusCommError);
    QCOMPARE(logger->text(),
             QStringLiteral("\nControl Address# 5, Device did not respond in 1 sec."));
    main->setStatusText(kStatusNormal);
    reportCommError(4);
    QCOMPARE(env.beeper->count, 2);
    QCOMPARE(main->statusText(), kStatusNormal);
    gComBeep = false;
    reportCommError(-1);
    QCOMPARE(env.beeper->count, 2);
    QCOMPARE(logger->text(), QStringLiteral("\nControl Address# 5, Device did not respond in 1 sec."
                                            "\nControl Address# 5, Adapter Invalid."));
    QCOMPARE(main->statusText(), kStatusCommError);
    logger->showNormal();
    QCOMPARE(main->statusText(), kStatusCommError); // restoring alone changes nothing
    logger->showMinimized();
    QCOMPARE(main->statusText(), kStatusNormal);
    reportCommError(-1);
    QCOMPARE(main->statusText(), kStatusCommError);

    // A close request minimizes it, with its lines.
    logger->showNormal();
    QVERIFY(!logger->close());
    QVERIFY(logger->isMinimized());
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);
    QVERIFY(logger->text().contains("Adapter Invalid."));
}

void TstFrmLogger::saveAsRichText() {
    TestEnv env;
    FrmLogger logger;
    logger.appendLine("Control Address# 1, Adapter Invalid.");
    logger.appendLine("Control Address# 2, Slave Busy. Add {x}\\c \u00b0C \u4e2d");
    logger.saveLoggerFile(); // no scripted file: cancelled
    QVERIFY(env.dialogs->boxes.isEmpty());
    env.dialogs->chooseFile(env.path("no such folder/logger.rtf"));
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Logger file can not be saved. Check filename or disk space"});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    env.dialogs->boxes.clear();

    env.dialogs->chooseFile(env.path("logger.rtf"));
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 3);
    const FileDialogRequest& r = env.dialogs->fileRequests[2];
    QVERIFY(r.overwritePrompt && r.initialDirectory == env.appPath());
    QFile f(env.path("logger.rtf"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray rtf = f.readAll();
    QVERIFY(rtf.contains("\\par\r\nControl Address# 1, Adapter Invalid.\\par\r\nControl Address# "
                         "2, Slave Busy. Add \\{x\\}\\\\c \\u176?C \\u20013?"));
    QVERIFY(rtf.startsWith("{\\rtf1") && rtf.trimmed().endsWith('}'));
    QVERIFY(env.dialogs->boxes.isEmpty());

    // Security on without right 19: nothing, not even the dialog.
    g21CFR = true;
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 3);
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
}

void TstFrmLogger::clearAsksAndNeedsRight7() {
    TestEnv env;
    FrmLogger logger;
    logger.appendLine("a");
    env.dialogs->answerNext(MsgAnswer::No);
    logger.clearLogger();
    QCOMPARE(env.dialogs->boxes[0].buttons, MsgButtons::YesNo);
    QVERIFY(!logger.text().isEmpty());
    logger.clearLogger();
    QVERIFY(logger.text().isEmpty());
    logger.appendLine("b");
    g21CFR = true;
    gOpRights[Right::ClearErrorLog] = 1;
    logger.clearLogger();
    QVERIFY(logger.text().isEmpty());
    logger.appendLine("c");
    gOpRights[Right::ClearErrorLog] = 0;
    env.dialogs->boxes.clear();
    logger.clearLogger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
    QCOMPARE(logger.text(), QStringLiteral("\nc"));
}

QTEST_MAIN(TstFrmLogger)
#include "tst_frm_logger.moc"
