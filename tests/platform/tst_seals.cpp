// The seals of record files: the sealing helper's store, its chains and day keys, and the check
// of a record file against them, with every kind of damage an inspector must be told of; the
// documented bytes checked by an implementation of their own in Python.

#include "app/frm_main.h"
#include "plant/frm_logger.h"
#include "plant/plant_store.h"
#include "platform/file_io.h"
#include "platform/seal_core.h"
#include "records/audit_trail.h"
#include "records/record_line.h"
#include "records/record_seals.h"
#include "security/session.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <pwd.h>
#include <unistd.h>

namespace {
// Midday of 14 March 2026, UTC.
constexpr qint64 kDay1 = 1773489600;

std::vector<std::string> linesOf(const QString& path) {
    QFile f(path);
    std::vector<std::string> out;
    if (!f.open(QIODevice::ReadOnly))
        return out;
    // Record files end their lines with CR LF, the store with LF.
    for (QByteArray line : f.readAll().split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        if (!line.isEmpty())
            out.push_back(line.toStdString());
    }
    return out;
}

// A seal store in a folder of its own, and its helper, whose clock the test sets.
struct Sealer {
    QTemporaryDir dir;
    QString store = dir.filePath("seals");
    QString clockFile = dir.filePath("clock");
    QProcess helper;

    Sealer() {
        QDir().mkpath(store);
        setClock(kDay1);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("SORVANTEL_SEAL_STORE", store);
        env.insert("SORVANTEL_SEAL_CLOCK_FILE", clockFile);
        // A round for each line: each answer comes at once, after its line's signature.
        env.insert("SORVANTEL_SEAL_ROUND_MS", "0");
        helper.setProcessEnvironment(env);
    }
    ~Sealer() {
        helper.closeWriteChannel();
        helper.waitForFinished(3000);
    }
    void setClock(qint64 t) {
        QFile f(clockFile);
        if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            f.write(QByteArray::number(t));
    }
    QString run(const QString& command) {
        helper.start(QStringLiteral(SORVANTEL_SEALER_EXE), {command});
        if (command == "serve")
            return answer();
        helper.waitForFinished(10000);
        return QString::fromLatin1(helper.readAllStandardOutput());
    }
    QString answer() {
        QElapsedTimer t;
        t.start();
        while (!helper.canReadLine() && t.elapsed() < 5000)
            helper.waitForReadyRead(100);
        return QString::fromLatin1(helper.readLine()).trimmed();
    }
    // The helper's answer to one line of a file.
    QString seal(qint64 n, const QByteArray& name, const QByteArray& line) {
        helper.write("L " + QByteArray::number(n) + ' ' + name.toHex() + ' ' +
                     QCryptographicHash::hash(line, QCryptographicHash::Sha256).toHex() + '\n');
        return answer();
    }
    std::string site() const {
        return seal::fromHex(linesOf(store + "/site").at(1), 16).value_or("");
    }
    std::string verificationKey() const {
        return seal::fromHex(linesOf(store + "/site").at(2), 32).value_or("");
    }
    seal::DayChain days() const {
        return seal::checkDays(site(), verificationKey(), linesOf(store + "/days"));
    }
    std::vector<std::string> sealsOf(const std::string& name) const {
        return linesOf(store + "/files/" + QString::fromStdString(seal::sealFileName(name)));
    }
};

const std::string kName = "Log Files/batch7.slg";

std::vector<std::string> recordLines(int count) {
    std::vector<std::string> lines;
    for (int i = 1; i <= count; ++i)
        lines.push_back("4F2A" + std::to_string(i * 7919) + "C0FFEE" + std::to_string(i));
    return lines;
}
} // namespace

class TstSeals : public QObject {
    Q_OBJECT
private slots:
    void aSealedFileIsIntactAndEveryDamageIsNamed_data();
    void aSealedFileIsIntactAndEveryDamageIsNamed();
    void gapsTheAppendOnlyChainAndForwardSecurity();
    void anImplementationOfItsOwnChecksTheDocumentedBytes();
    void theWorkstationsLinesAreSealedAndAHelperDeathIsAGap();
    void aFullPipeEndsTheRound();
    void aQuietWorkstationHearsItsAnswersAndAMuteHelperIsHung();
};

void TstSeals::aSealedFileIsIntactAndEveryDamageIsNamed_data() {
    QTest::addColumn<QString>("damage");
    QTest::addColumn<QString>("finding"); // empty: intact
    const std::pair<const char*, const char*> rows[] = {
        {"none", ""},
        {"alter 3", "line 3 altered (sealed by "},
        {"remove 3", "line 3 removed (sealed by "},
        {"swap 3", "lines 3 and 4 swapped (sealed by "},
        {"add 3", "line 3 added"},
        {"cut 4", "file cut short after line 4: lines 5..6 sealed but not in the file"},
        {"append", "line 7 never sealed (the last line"},
        {"append two", "seals missing: lines 7..8 not sealed"},
        {"alter seal 3", "seal entries 5..6 (line 3) altered, removed or moved"},
        {"damaged seal 3", "seal entry 5 damaged: seals of lines from 3 on cannot be checked"},
        {"torn last seal", "seal entry 12 cut short (written as sealing stopped)"},
        {"remove seal 3", "seals missing: line 3 without a seal entry"},
        {"swap seals 3", "seals missing: line 3 without a seal entry"},
        {"repeat seal 3", "seal entry 7 (line 3) repeats or goes back in the chain"},
        {"unsigned", "line 6 sealed but not yet signed"},
        {"foreign day", "seal of line 6 signed by a day key the store has not certified"},
        {"other site", "sealed by another installation"},
        {"other file", "its seal file is that of another file (Log Files/batch7.slg)"},
        {"no seals", "seals missing: the store has no seals of this file"},
    };
    for (const auto& [damage, finding] : rows)
        QTest::newRow(damage) << QString::fromLatin1(damage) << QString::fromLatin1(finding);
}

void TstSeals::aSealedFileIsIntactAndEveryDamageIsNamed() {
    QFETCH(QString, damage);
    QFETCH(QString, finding);
    Sealer sealer;
    QVERIFY(sealer.run("init").contains("verification key"));
    QCOMPARE(sealer.run("serve"), QStringLiteral("READY"));
    std::vector<std::string> record = recordLines(6);
    for (int n = 1; n <= 6; ++n)
        QCOMPARE(sealer.seal(n, QByteArray::fromStdString(kName),
                             QByteArray::fromStdString(record[size_t(n - 1)])),
                 QStringLiteral("OK %1").arg(n));
    // Each line and its signature: seals[2n - 1] seals line n.
    std::vector<std::string> seals = sealer.sealsOf(kName);
    QCOMPARE(seals.size(), size_t(13));
    std::string name = kName;

    if (damage == "alter 3")
        record[2] += "0";
    else if (damage == "remove 3")
        record.erase(record.begin() + 2);
    else if (damage == "swap 3")
        std::swap(record[2], record[3]);
    else if (damage == "add 3")
        record.insert(record.begin() + 2, "FORGED");
    else if (damage == "cut 4")
        record.resize(4);
    else if (damage == "append")
        record.push_back("LAST");
    else if (damage == "append two")
        record.insert(record.end(), {"ONE", "TWO"});
    else if (damage == "alter seal 3")
        seals[5] = seal::formatSeal([&] { // another line's hash, the signatures kept
            seal::SealEntry e = *seal::parseSeal(seals[5]);
            e.lineHash = seal::sha256("FORGED");
            return e;
        }());
    else if (damage == "damaged seal 3")
        seals[5].resize(20);
    else if (damage == "torn last seal")
        seals[12].resize(30);
    else if (damage == "remove seal 3")
        seals.erase(seals.begin() + 5);
    else if (damage == "swap seals 3")
        std::swap(seals[5], seals[7]);
    else if (damage == "repeat seal 3")
        seals.insert(seals.begin() + 7, seals[5]);
    else if (damage == "unsigned")
        seals.pop_back();
    else if (damage == "foreign day") // the last line signed as if by a key of tomorrow
        seals[12] = seal::formatSeal([&] {
            seal::SealEntry e = *seal::parseSeal(seals[12]);
            e.day = 2;
            return e;
        }());
    else if (damage == "other site")
        seals[0][2] = seals[0][2] == 'a' ? 'b' : 'a';
    else if (damage == "other file")
        name = "Log Files/batch8.slg";
    else if (damage == "no seals")
        seals.clear();

    const seal::FileCheck check =
        seal::checkFile(sealer.site(), sealer.days(), name, record, seals);
    QCOMPARE(check.intact, finding.isEmpty());
    if (finding.isEmpty()) {
        QCOMPARE(check.lines, qint64(6));
        QCOMPARE(check.lastSeal, kDay1);
    } else {
        QVERIFY2(!check.findings.empty() &&
                     QString::fromStdString(check.findings[0]).startsWith(finding),
                 check.findings.empty() ? "no finding" : check.findings[0].c_str());
    }
}

void TstSeals::gapsTheAppendOnlyChainAndForwardSecurity() {
    Sealer sealer;
    // A second init keeps the store and its key.
    const QString first = sealer.run("init");
    const QString key = first.split('\n').value(1);
    QVERIFY(sealer.run("init").contains("is kept") && sealer.run("init").contains(key));
    QCOMPARE(sealer.run("serve"), QStringLiteral("READY"));
    const QByteArray name = QByteArray::fromStdString(kName);
    const std::vector<std::string> record = recordLines(6);
    auto line = [&](int n) {
        return QByteArray::fromStdString(record[size_t(n - 1)]);
    };
    QCOMPARE(sealer.seal(1, name, line(1)), QStringLiteral("OK 1"));
    QCOMPARE(sealer.seal(2, name, line(2)), QStringLiteral("OK 2"));
    // Never started again, whatever it is asked; nor does garbage reach the store.
    QCOMPARE(sealer.seal(1, name, "FORGED"), QStringLiteral("ER 1 line already sealed"));
    // A name that is no hex, a hash of the wrong length.
    sealer.helper.write("L 3 zz 00\nL 3 " + name.toHex() + " 00\n");
    QCOMPARE(sealer.answer(), QStringLiteral("ER 0 request not understood"));
    QCOMPARE(sealer.answer(), QStringLiteral("ER 0 request not understood"));
    QCOMPARE(sealer.seal(3, name, line(3)), QStringLiteral("OK 3"));
    // Lines 4 and 5 written while the helper was away: a gap, then line 6.
    const std::string yesterdaysKey = linesOf(sealer.store + "/key").at(0);
    sealer.setClock(kDay1 + 86400);
    QCOMPARE(sealer.seal(6, name, line(6)), QStringLiteral("OK 6"));

    const seal::DayChain days = sealer.days();
    QVERIFY(days.fault.empty());
    QCOMPARE(days.days.size(), size_t(2));
    QCOMPARE(days.days[1].date, std::string("2026-03-15"));
    seal::FileCheck check =
        seal::checkFile(sealer.site(), days, kName, record, sealer.sealsOf(kName));
    // The account is the helper's caller's, whatever the caller might say.
    const std::string account = seal::accountField(getpwuid(getuid())->pw_name);
    QCOMPARE(check.findings, (std::vector<std::string>{"lines 4..5 written while sealing was "
                                                       "away (a gap recorded by " +
                                                       account + ", not a forgery)"}));

    // Yesterday's secret is gone from the store: no file there holds it.
    const std::string secretHex = yesterdaysKey.substr(yesterdaysKey.rfind(' ') + 1);
    QDirIterator it(sealer.store, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile f(it.next());
        QVERIFY(f.open(QIODevice::ReadOnly));
        QVERIFY2(!f.readAll().contains(QByteArray::fromStdString(secretHex)),
                 qPrintable(f.fileName()));
    }
    // Today's key cannot seal yesterday's line again: under yesterday's key number its signature
    // fails, under today's the date does not match the key.
    const std::string todaysKey = linesOf(sealer.store + "/key").at(0);
    const auto today = seal::fromHex(todaysKey.substr(todaysKey.rfind(' ') + 1), 32);
    QVERIFY(today);
    for (const int day : {1, 2}) {
        std::vector<std::string> seals = sealer.sealsOf(kName);
        seal::SealEntry forged = *seal::parseSeal(seals[1]);
        forged.lineHash = seal::sha256("FORGED");
        seal::SealEntry signature = *seal::parseSeal(seals[2]);
        signature.day = day;
        const auto link = seal::chainEntry(sealer.site(), kName, forged, {});
        QVERIFY(link && seal::chainEntry(sealer.site(), kName, signature, *link, *today));
        seals[1] = seal::formatSeal(forged);
        seals[2] = seal::formatSeal(signature);
        std::vector<std::string> altered = record;
        altered[0] = "FORGED";
        check = seal::checkFile(sealer.site(), days, kName, altered, seals);
        QVERIFY(!check.intact);
        QVERIFY2(QString::fromStdString(check.findings[0]).startsWith("seal entries 1..2") ||
                     QString::fromStdString(check.findings[0]).startsWith("seal of line 1 dated"),
                 check.findings[0].c_str());
    }

    // A helper killed in the middle of a round leaves lines it never signed nor answered, the
    // last of them perhaps torn: its next run drops them, and the line they were for becomes a
    // gap unless the workstation hands it over again.
    sealer.helper.closeWriteChannel();
    QVERIFY(sealer.helper.waitForFinished(5000));
    QFile torn(sealer.store + "/files/" + QString::fromStdString(seal::sealFileName(kName)));
    QVERIFY(torn.open(QIODevice::Append));
    torn.write("S 7 1773576000 root " + QByteArray(64, 'a') + "\nV 1773576000 2 3f0a");
    torn.close();
    QCOMPARE(sealer.run("serve"), QStringLiteral("READY"));
    QCOMPARE(sealer.seal(8, name, "EIGHT"), QStringLiteral("OK 8"));
    QVERIFY(torn.open(QIODevice::ReadOnly));
    QVERIFY(!torn.readAll().contains("S 7 "));
    std::vector<std::string> longer = record;
    longer.insert(longer.end(), {"SEVEN", "EIGHT"});
    check = seal::checkFile(sealer.site(), days, kName, longer, sealer.sealsOf(kName));
    QCOMPARE(check.findings.size(), size_t(2));
    QVERIFY(check.findings[1].rfind("line 7 written while sealing was away", 0) == 0);
}

void TstSeals::anImplementationOfItsOwnChecksTheDocumentedBytes() {
    const QString python = QStandardPaths::findExecutable("python3");
    QProcess probe;
    probe.start(python, {"-c", "import cryptography"});
    if (python.isEmpty() || !probe.waitForFinished(10000) || probe.exitCode() != 0)
        QSKIP("python3 with the cryptography package is not installed");
    Sealer sealer;
    sealer.run("init");
    QCOMPARE(sealer.run("serve"), QStringLiteral("READY"));
    const std::vector<std::string> record = recordLines(5);
    const QString recordFile = sealer.dir.filePath("batch7.slg");
    QFile out(recordFile);
    QVERIFY(out.open(QIODevice::WriteOnly));
    for (int n = 1; n <= 5; ++n) {
        if (n == 4)
            sealer.setClock(kDay1 + 86400); // the chain crosses a day
        if (n != 3)                         // and has a gap
            QCOMPARE(sealer.seal(n, QByteArray::fromStdString(kName),
                                 QByteArray::fromStdString(record[size_t(n - 1)])),
                     QStringLiteral("OK %1").arg(n));
        out.write(QByteArray::fromStdString(record[size_t(n - 1)]) + "\r\n");
    }
    out.close();
    QProcess check;
    check.start(python, {QStringLiteral(SORVANTEL_SEAL_CHECK_PY), sealer.store,
                         QString::fromStdString(kName), recordFile});
    QVERIFY(check.waitForFinished(30000));
    QCOMPARE(QString::fromLatin1(check.readAllStandardOutput()).trimmed(),
             QStringLiteral("days 2, lines 5, sealed 4, gap 3..3"));
    QCOMPARE(check.exitCode(), 0);
}

// The workstation's own writers through its client of the helper: the audit trail and a data
// file as the logger keeps it open, the status bar and the audit lines of sealing, and a helper
// killed part-way: the lines it had not answered go to the next one, those written while none
// ran are a gap, not a forgery.
void TstSeals::theWorkstationsLinesAreSealedAndAHelperDeathIsAGap() {
    TestEnv env;
    Sealer sealer;
    sealer.run("init");
    qputenv("SORVANTEL_SEAL_STORE", sealer.store.toLocal8Bit());
    qputenv("SORVANTEL_SEAL_CLOCK_FILE", sealer.clockFile.toLocal8Bit());
    qputenv("SORVANTEL_SEAL_ROUND_MS", "300");
    g21CFR = true;
    FrmMain main;
    FrmLogger logger;
    auto owned = std::make_unique<SealClient>(QStringLiteral(SORVANTEL_SEALER_EXE));
    SealClient& client = *owned;
    client.setRestartMs(200);
    installSealClient(&client);
    main.watchSealing(&client);
    QTRY_VERIFY(client.sealing());
    QCOMPARE(main.sealText(), QStringLiteral("Records sealed"));

    const QString audit = auditFilePath(env.clock->time.date());
    RecordAppender data;
    QVERIFY(QDir().mkpath(env.path("Log Files")));
    QVERIFY(data.create(env.path("Log Files/run.slg")));
    for (int i = 0; i < 2; ++i) {
        if (i == 1)
            QTRY_COMPARE(client.pending(), 0);
        systemAuditLine(QStringLiteral("line %1").arg(i));
        QCOMPARE(appendEncipheredLine(data, QStringLiteral("data %1").arg(i)),
                 RecordWrite::Written);
    }
    QCOMPARE(client.pending(), 2);
    ::kill(pid_t(client.helperPid()), SIGKILL);
    QTRY_VERIFY(!client.sealing());
    QCOMPARE(main.sealText(), QStringLiteral("Records not sealed"));
    QVERIFY(logger.text().endsWith("Record sealing stopped: the sealing helper stopped"));
    QCOMPARE(appendEncipheredLine(data, QStringLiteral("data 2")), RecordWrite::Written);
    // The next helper takes long rounds: the workstation that closes in the middle of one has
    // it signed all the same.
    qputenv("SORVANTEL_SEAL_ROUND_MS", "60000");
    QTRY_VERIFY_WITH_TIMEOUT(client.sealing(), 5000);
    QCOMPARE(appendEncipheredLine(data, QStringLiteral("data 3")), RecordWrite::Written);
    systemAuditLine(QStringLiteral("last"));
    QVERIFY(client.pending() > 0);
    installSealClient(nullptr);
    QElapsedTimer closing;
    closing.start();
    owned.reset();
    QVERIFY(closing.elapsed() < 2000);
    qunsetenv("SORVANTEL_SEAL_STORE");
    qunsetenv("SORVANTEL_SEAL_CLOCK_FILE");
    qunsetenv("SORVANTEL_SEAL_ROUND_MS");

    const auto check = [&](const QString& path) {
        return seal::checkFile(sealer.site(), sealer.days(),
                               QDir(gAppPath).relativeFilePath(path).toStdString(), linesOf(path),
                               sealer.sealsOf(QDir(gAppPath).relativeFilePath(path).toStdString()));
    };
    const seal::FileCheck dataCheck = check(env.path("Log Files/run.slg"));
    QCOMPARE(dataCheck.lines, qint64(4));
    QCOMPARE(dataCheck.findings.size(), size_t(1));
    QVERIFY(QString::fromStdString(dataCheck.findings[0])
                .startsWith("line 3 written while "
                            "sealing was away"));
    // The audit trail: the lines of the run, the line that sealing started, the one that it
    // stopped (written while it was away, so in the gap) and the one that it started again.
    const seal::FileCheck auditCheck = check(audit);
    QCOMPARE(actionsOf(audit), (QStringList{"Record sealing started", "line 0", "line 1",
                                            "Record sealing stopped: the sealing helper stopped",
                                            "Record sealing started", "last"}));
    QCOMPARE(auditCheck.findings,
             (std::vector<std::string>{"line 4 written while sealing was away (a gap recorded by " +
                                       seal::accountField(getpwuid(getuid())->pw_name) +
                                       ", not a forgery)"}));
}

// Lines faster than a long round's pipe holds: the helper is asked to end its round, and every
// line is answered long before the round would have ended.
void TstSeals::aFullPipeEndsTheRound() {
    TestEnv env;
    Sealer sealer;
    sealer.run("init");
    qputenv("SORVANTEL_SEAL_STORE", sealer.store.toLocal8Bit());
    qputenv("SORVANTEL_SEAL_ROUND_MS", "60000");
    SealClient client(QStringLiteral(SORVANTEL_SEALER_EXE));
    installSealClient(&client);
    QTRY_VERIFY(client.sealing());
    // The lines are counted from what the file holds when its first is sealed: the first alone.
    const QString path = env.path("Log Files/flood.slg");
    QVERIFY(QDir().mkpath(env.path("Log Files")));
    QFile first(path);
    QVERIFY(first.open(QIODevice::WriteOnly) && first.write("line 1\r\n") == 8);
    first.close();
    for (int n = 1; n <= 20000; ++n)
        sealWrittenLine(path, "line " + QByteArray::number(n) + QByteArray(120, 'x'));
    QTRY_COMPARE_WITH_TIMEOUT(client.pending(), 0, 30000);
    installSealClient(nullptr);
    qunsetenv("SORVANTEL_SEAL_STORE");
    qunsetenv("SORVANTEL_SEAL_ROUND_MS");
    const std::vector<std::string> seals = sealer.sealsOf("Log Files/flood.slg");
    QVERIFY(seals.size() > 20000);
    QCOMPARE(seal::parseSeal(seals[seals.size() - 2])->last, qint64(20000));
}

// Answers are read as lines are handed over; a workstation that then writes nothing more still
// hears them before it would take its helper for hung. A helper that never answers is.
void TstSeals::aQuietWorkstationHearsItsAnswersAndAMuteHelperIsHung() {
    TestEnv env;
    Sealer sealer;
    sealer.run("init");
    qputenv("SORVANTEL_SEAL_STORE", sealer.store.toLocal8Bit());
    qputenv("SORVANTEL_SEAL_ROUND_MS", "100");
    const QString path = env.path("Log Files/quiet.slg");
    QVERIFY(QDir().mkpath(env.path("Log Files")));
    {
        SealClient client(QStringLiteral(SORVANTEL_SEALER_EXE));
        client.setAnswerMs(600);
        QSignalSpy changes(&client, &SealClient::sealingChanged);
        installSealClient(&client);
        QTRY_VERIFY(client.sealing());
        sealWrittenLine(path, "line 1");
        QTest::qWait(2000);
        QVERIFY(client.sealing());
        QCOMPARE(changes.size(), 1);
        QCOMPARE(client.pending(), 0);
        installSealClient(nullptr);
    }
    qunsetenv("SORVANTEL_SEAL_STORE");
    qunsetenv("SORVANTEL_SEAL_ROUND_MS");

    const QString mute = env.path("mute-sealer");
    QFile script(mute);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\necho READY\nexec sleep 30\n");
    script.close();
    QVERIFY(script.setPermissions(script.permissions() | QFile::ExeOwner));
    SealClient client(mute);
    client.setAnswerMs(300);
    client.setRestartMs(60000);
    QSignalSpy changes(&client, &SealClient::sealingChanged);
    QTRY_VERIFY(client.sealing());
    client.seal(QByteArray("x").toHex(), 1, "line 1");
    QTRY_VERIFY(!client.sealing());
    QCOMPARE(changes.last().at(1).toString(), QStringLiteral("the sealing helper does not answer"));
}

QTEST_MAIN(TstSeals)
#include "tst_seals.moc"
