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
    void errorTextsOfBothForms_data();
    void errorTextsOfBothForms();
    void unknownCodesHaveNoText();
    void reportWritesLineStatusAndBeep();
    void minimizingRestoresNormalStatusUntilNextReport();
    void closeRequestMinimizes();
    void saveAsRichText();
    void saveCancelledOrFailing();
    void clearAsksAndNeedsRight7();
    void writeAndGeneralErrorBoxes();
    void rtfEscapesBracesAndNonAscii();
};

void TstFrmLogger::errorTextsOfBothForms_data() {
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("write");
    QTest::newRow("-4") << -4 << "Control Address# 3, Timeout value."
                        << "Controller timeout problem.";
    QTest::newRow("-3") << -3 << "Control Address# 3, Device did not respond in 1 sec."
                        << "Device did not respond in 1 sec.";
    QTest::newRow("-2") << -2 << "Control Address# 3, PLC Protocol Packet Problem."
                        << "PLC protocol packet problem.";
    QTest::newRow("-1") << -1 << "Control Address# 3, Adapter Invalid."
                        << "Adapter is invalid.";
    QTest::newRow("1") << 1 << "Control Address# 3, Illegal Function."
                       << "Illegal write function.";
    QTest::newRow("2") << 2 << "Control Address# 3, Illegal Data Address."
                       << "Illegal Data Address.";
    QTest::newRow("3 keeps its trailing blank") << 3 << "Control Address# 3, Illegal Data Value. "
                                                << "Illegal Data Value written to control.";
    QTest::newRow("16 keeps its Add") << 16 << "Control Address# 3, Slave Busy. Add "
                                      << "Slave device is busy.";
    QTest::newRow("18") << 18 << "Control Address# 3, Invalid Node Address."
                        << "Invalid node address.";
    QTest::newRow("0 has no text") << 0 << "Control Address# 3"
                                   << "";
    QTest::newRow("4 has no text") << 4 << "Control Address# 3"
                                   << "";
}

void TstFrmLogger::errorTextsOfBothForms() {
    QFETCH(int, code);
    QFETCH(QString, line);
    QFETCH(QString, write);
    QCOMPARE(commErrorLine(code, 2), line);
    QCOMPARE(commErrorWriteText(code), write);
}

void TstFrmLogger::unknownCodesHaveNoText() {
    for (int code : {0, 4, 5, 17, -5})
        QVERIFY2(commErrorLoggerText(code).isEmpty() && commErrorWriteText(code).isEmpty(),
                 qPrintable(QString::number(code)));
}

void TstFrmLogger::reportWritesLineStatusAndBeep() {
    TestEnv env;
    auto* main = new FrmMain;
    FrmLogger logger;
    gComBeep = true;
    gPollIndex = 4;
    reportCommError(-3);
    QCOMPARE(env.beeper->count, 1);
    QCOMPARE(main->statusText(), kStatusCommError);
    QCOMPARE(logger.text(),
             QStringLiteral("\nControl Address# 5, Device did not respond in 1 sec."));
    gComBeep = false;
    reportCommError(2);
    QCOMPARE(env.beeper->count, 1);
    QVERIFY(logger.text().endsWith("\nControl Address# 5, Illegal Data Address."));
}

void TstFrmLogger::minimizingRestoresNormalStatusUntilNextReport() {
    TestEnv env;
    auto* main = new FrmMain;
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    reportCommError(-1);
    QCOMPARE(main->statusText(), kStatusCommError);
    logger->showNormal();
    QCOMPARE(main->statusText(), kStatusCommError); // restoring alone changes nothing
    logger->showMinimized();
    QCOMPARE(main->statusText(), kStatusNormal);
    reportCommError(-1);
    QCOMPARE(main->statusText(), kStatusCommError);
}

void TstFrmLogger::closeRequestMinimizes() {
    TestEnv env;
    auto* main = new FrmMain;
    auto* logger = new FrmLogger;
    main->mdiArea()->addSubWindow(logger);
    main->show();
    logger->show();
    logger->appendLine("kept");
    QVERIFY(!logger->close());
    QVERIFY(logger->isMinimized());
    QCOMPARE(main->mdiArea()->subWindowList().size(), 1);
    QVERIFY(logger->text().contains("kept"));
}

void TstFrmLogger::saveAsRichText() {
    TestEnv env;
    FrmLogger logger;
    logger.appendLine("Control Address# 1, Adapter Invalid.");
    logger.appendLine("Control Address# 2, Slave Busy. Add ");
    env.dialogs->chooseFile(env.path("logger.rtf"));
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 1);
    const FileDialogRequest& r = env.dialogs->fileRequests[0];
    QCOMPARE(r.title, QStringLiteral("Save .rtf Recipe file as?"));
    QCOMPARE(r.filter, QStringLiteral("Logger Files(*.rtf)|*.rtf"));
    QCOMPARE(r.fileName, QStringLiteral("logger.rtf"));
    QCOMPARE(r.defaultExtension, QStringLiteral(".rtf"));
    QCOMPARE(r.initialDirectory, env.appPath());
    QVERIFY(r.overwritePrompt);
    QFile f(env.path("logger.rtf"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray rtf = f.readAll();
    QVERIFY(rtf.startsWith("{\\rtf1"));
    QVERIFY(rtf.contains("\\par\r\nControl Address# 1, Adapter Invalid.\\par\r\nControl Address# "
                         "2, Slave Busy. Add "));
    QVERIFY(rtf.trimmed().endsWith('}'));
    QVERIFY(env.dialogs->boxes.isEmpty());
}

void TstFrmLogger::saveCancelledOrFailing() {
    TestEnv env;
    FrmLogger logger;
    logger.appendLine("line");
    logger.saveLoggerFile(); // no scripted file: cancelled
    QVERIFY(env.dialogs->boxes.isEmpty());
    env.dialogs->chooseFile(env.path("no such folder/logger.rtf"));
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Logger file can not be saved. Check filename or disk space"});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    QCOMPARE(logger.text(), QStringLiteral("\nline"));
    // Security on without right 19: nothing, not even the dialog.
    g21CFR = true;
    env.dialogs->boxes.clear();
    logger.saveLoggerFile();
    QCOMPARE(env.dialogs->fileRequests.size(), 2);
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
}

void TstFrmLogger::clearAsksAndNeedsRight7() {
    TestEnv env;
    FrmLogger logger;
    logger.appendLine("a");
    env.dialogs->answerNext(MsgAnswer::No);
    logger.clearLogger();
    QCOMPARE(env.dialogs->boxes[0].title, QStringLiteral("Clear Logger?"));
    QCOMPARE(env.dialogs->boxes[0].text,
             QStringLiteral("Are you sure you want to clear the logger?"));
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
    gOpRights[Right::ClearErrorLog] = 2; // only exactly 1 grants
    env.dialogs->boxes.clear();
    logger.clearLogger();
    QCOMPARE(env.dialogs->texts(), QStringList{"Access denied to operator level security!"});
    QCOMPARE(logger.text(), QStringLiteral("\nc"));
}

void TstFrmLogger::writeAndGeneralErrorBoxes() {
    TestEnv env;
    reportWriteError(3);
    QCOMPARE(env.dialogs->boxes[0].text,
             QStringLiteral(
                 "Error during write to controller!\nIllegal Data Value written to control."));
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    QCOMPARE(env.dialogs->boxes[0].title, QStringLiteral("Sorvantel"));
    reportError("getgControllerValuesFakeProcedure", 9, "Subscript out of range");
    QCOMPARE(env.dialogs->boxes[1].text,
             QStringLiteral(
                 "Error 9 = Subscript out of range in function getgControllerValuesFakeProcedure "
                 "occurred.\nPlease contact Brenlock with this error."));
    QCOMPARE(env.dialogs->boxes[1].buttons, MsgButtons::Ok);
}

void TstFrmLogger::rtfEscapesBracesAndNonAscii() {
    const QByteArray rtf = plainTextToRtf(QStringLiteral("a{b}\\c\n\u00b0C \u4e2d"));
    QVERIFY(rtf.contains("a\\{b\\}\\\\c\\par\r\n\\u176?C \\u20013?"));
}

QTEST_MAIN(TstFrmLogger)
#include "tst_frm_logger.moc"
