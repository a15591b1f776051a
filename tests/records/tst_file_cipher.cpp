#include "platform/line_cipher.h"
#include "records/file_cipher.h"
#include "records/record_paths.h"
#include "support/test_env.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

class TstFileCipher : public QObject {
    Q_OBJECT
private slots:
    void roundTrip_data();
    void roundTrip();
    void eachLineHasItsOwnNonce();
    void damagedLinesDecipherToEmpty_data();
    void damagedLinesDecipherToEmpty();
    void damageStaysInItsOwnLine();
    void singleByteText();
    void hexConversion_data();
    void hexConversion();
    void keyDependsOnPhraseAndSize();
    void hashOfKnownContent();
    void hashFollowsTheFileOnDisk();
    void hashOfMissingFileShowsTheBox_data();
    void hashOfMissingFileShowsTheBox();
    void baseNameAndPathWithoutExtension_data();
    void baseNameAndPathWithoutExtension();
    void fileNameOnly_data();
    void fileNameOnly();
    void fileExistsFindsFilesOnly();
};

void TstFileCipher::roundTrip_data() {
    QTest::addColumn<QString>("plain");
    QTest::newRow("empty") << QString();
    QTest::newRow("only commas") << QStringLiteral(",,,,,");
    QTest::newRow("data line") << QStringLiteral(
        "3/14/26,10:00:00 AM,,0,0, 123.4, 56, 7.5,-12.25, 0, 1000,Start of batch");
    QTest::newRow("latin-1 text") << QStringLiteral("Temp\u00e9rature \u00b0C \u00c6\u00f8\u00e5");
    QTest::newRow("blanks kept") << QStringLiteral("  two  blanks  ");
    QTest::newRow("long line") << QString(4000, u'x');
    QTest::newRow("control bytes") << QString::fromLatin1("\x01\x02\x0f\x7f\xff", 5);
}

void TstFileCipher::roundTrip() {
    QFETCH(QString, plain);
    const QString line = encryptText(plain);
    // Nonce, one byte a character, tag; two digits a byte, upper case only.
    QCOMPARE(line.size(), 2 * (LineCipher::kNonceBytes + plain.size() + LineCipher::kTagBytes));
    QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]+$")).match(line).hasMatch());
    QCOMPARE(decryptText(line), plain);
}

void TstFileCipher::eachLineHasItsOwnNonce() {
    const QString a = encryptText(QStringLiteral("same line"));
    const QString b = encryptText(QStringLiteral("same line"));
    QVERIFY(a != b);
    QCOMPARE(decryptText(a), decryptText(b));
}

void TstFileCipher::damagedLinesDecipherToEmpty_data() {
    QTest::addColumn<QString>("line");
    const QString good = encryptText(QStringLiteral("Date,Time,jsmith,John Smith,,Login"));
    auto flipDigit = [&](qsizetype at) {
        QString s = good;
        s[at] = s[at] == u'0' ? u'1' : u'0';
        return s;
    };
    QTest::newRow("digit changed in the nonce") << flipDigit(3);
    QTest::newRow("digit changed in the text") << flipDigit(2 * LineCipher::kNonceBytes + 5);
    QTest::newRow("digit changed in the tag") << flipDigit(good.size() - 1);
    QTest::newRow("cut short") << good.left(good.size() - 2);
    QTest::newRow("cut to an odd length") << good.left(good.size() - 1);
    QTest::newRow("one digit too many") << good + u'7';
    QTest::newRow("not hexadecimal") << QString(good).replace(10, 2, QStringLiteral("ZZ"));
    QTest::newRow("shorter than nonce and tag") << good.left(40);
    QTest::newRow("empty line") << QString();
    QTest::newRow("plain text") << QStringLiteral("Date,Time,jsmith");
}

void TstFileCipher::damagedLinesDecipherToEmpty() {
    QFETCH(QString, line);
    QCOMPARE(decryptText(line), QString());
}

void TstFileCipher::damageStaysInItsOwnLine() {
    const QStringList plain{QStringLiteral("first"), QStringLiteral("second"),
                            QStringLiteral("third")};
    QStringList lines;
    for (const QString& p : plain)
        lines << encryptText(p);
    lines[1] = lines[1].left(lines[1].size() / 2);
    QCOMPARE(decryptText(lines[0]), plain[0]);
    QCOMPARE(decryptText(lines[1]), QString());
    QCOMPARE(decryptText(lines[2]), plain[2]);
}

void TstFileCipher::singleByteText() {
    // One byte a character on disk: characters with no single-byte form become "?".
    const QString line = encryptText(QStringLiteral("\u20ac5 \u00b0C"));
    QCOMPARE(line.size(), 2 * (LineCipher::kNonceBytes + 5 + LineCipher::kTagBytes));
    QCOMPARE(decryptText(line), QStringLiteral("?5 \u00b0C"));
}

void TstFileCipher::hexConversion_data() {
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("hex");
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("leading zeros kept")
        << QByteArray("\x00\x05\x0f", 3) << QStringLiteral("00050F");
    QTest::newRow("upper case") << QByteArray("\xab\xff\x10", 3) << QStringLiteral("ABFF10");
}

void TstFileCipher::hexConversion() {
    QFETCH(QByteArray, bytes);
    QFETCH(QString, hex);
    QCOMPARE(bytesToHex(bytes), hex);
    QCOMPARE(hexToBytes(hex), bytes);
    QCOMPARE(hexToBytes(hex.toLower()), bytes);
    // An odd last digit is read alone, as one more byte.
    QCOMPARE(hexToBytes(hex + u'A'), bytes + QByteArray(1, '\x0a'));
}

void TstFileCipher::keyDependsOnPhraseAndSize() {
    LineCipher a;
    LineCipher b;
    QVERIFY(!a.hasKey());
    QVERIFY(a.encrypt("x").isEmpty());
    QVERIFY(!a.setSecretKeyFromPassPhrase("amber", 100));
    QVERIFY(a.setSecretKeyFromPassPhrase("amber", 128));
    QVERIFY(b.setSecretKeyFromPassPhrase("amber", 128));
    // The same phrase gives the same key in every cipher object, so any workstation reads it.
    QCOMPARE(b.decrypt(a.encrypt("line")).value_or("none"), QByteArray("line"));
    QVERIFY(b.setSecretKeyFromPassPhrase("amber!", 128));
    QVERIFY(!b.decrypt(a.encrypt("line")));
    QVERIFY(b.setSecretKeyFromPassPhrase("amber", 256));
    QVERIFY(!b.decrypt(a.encrypt("line")));
    // The process-wide cipher reads what a separately keyed one wrote.
    QCOMPARE(decryptText(bytesToHex(a.encrypt("from another object"))),
             QStringLiteral("from another object"));
}

void TstFileCipher::hashOfKnownContent() {
    TestEnv env;
    const QString path = env.path(QStringLiteral("abc.slg"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("abc");
    f.close();
    QCOMPARE(hashFileHex(path),
             QStringLiteral("BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"));
    QVERIFY(env.dialogs->boxes.isEmpty());
}

void TstFileCipher::hashFollowsTheFileOnDisk() {
    // A file larger than one read block, with a last block that is not full.
    TestEnv env;
    const QString path = env.path(QStringLiteral("big.slg"));
    QByteArray content;
    for (int i = 0; content.size() < 200000; ++i)
        content += encryptText(QStringLiteral("line %1").arg(i)).toLatin1() + "\r\n";
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(content);
    f.close();
    const QString expected = QString::fromLatin1(
        QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex().toUpper());
    QCOMPARE(hashFileHex(path), expected);
    QVERIFY(f.open(QIODevice::Append));
    f.write("x");
    f.close();
    QVERIFY(hashFileHex(path) != expected);
}

void TstFileCipher::hashOfMissingFileShowsTheBox_data() {
    QTest::addColumn<QString>("relative");
    QTest::newRow("missing file") << QStringLiteral("nothing here.slg");
    QTest::newRow("a folder") << QStringLiteral("Audit");
}

void TstFileCipher::hashOfMissingFileShowsTheBox() {
    QFETCH(QString, relative);
    TestEnv env;
    QDir(env.appPath()).mkdir(QStringLiteral("Audit"));
    QCOMPARE(hashFileHex(env.path(relative)), QString());
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
    QCOMPARE(env.dialogs->boxes[0].title, QStringLiteral("Sorvantel"));
    QCOMPARE(env.dialogs->boxes[0].text,
             QStringLiteral("Error during system signature of data file.\n"
                            "Data file on disk could be corrupted."));
}

void TstFileCipher::baseNameAndPathWithoutExtension_data() {
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("withoutExtension");
    QTest::newRow("windows path, several dots")
        << QStringLiteral("C:\\a\\b.c.slg") << QStringLiteral("b") << QStringLiteral("C:\\a\\b");
    QTest::newRow("dots in folder names")
        << QStringLiteral("/srv/plant.v2/Log Files/3-7-2026 run.slg")
        << QStringLiteral("3-7-2026 run") << QStringLiteral("/srv/plant.v2/Log Files/3-7-2026 run");
    QTest::newRow("mixed separators") << QStringLiteral("/srv/x.y\\Data\\f.tar.gz")
                                      << QStringLiteral("f") << QStringLiteral("/srv/x.y\\Data\\f");
    QTest::newRow("no separator") << QStringLiteral("Name.svt") << QStringLiteral("Name")
                                  << QStringLiteral("Name");
    QTest::newRow("no dot") << QStringLiteral("/a/b/README") << QStringLiteral("README")
                            << QStringLiteral("/a/b/README");
    QTest::newRow("hidden file") << QStringLiteral("/a/.slg") << QString() << QStringLiteral("/a/");
    QTest::newRow("folder only") << QStringLiteral("/a.b/") << QString() << QStringLiteral("/a.b/");
    QTest::newRow("empty") << QString() << QString() << QString();
}

void TstFileCipher::baseNameAndPathWithoutExtension() {
    QFETCH(QString, path);
    QFETCH(QString, base);
    QFETCH(QString, withoutExtension);
    QCOMPARE(fileBaseName(path), base);
    QCOMPARE(pathWithoutExtension(path), withoutExtension);
}

void TstFileCipher::fileNameOnly_data() {
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::newRow("windows path") << QStringLiteral("C:\\a\\b\\Trend.trv")
                                  << QStringLiteral("Trend.trv");
    QTest::newRow("absolute path here")
        << QStringLiteral("/home/op/Projects/Line 2.svt") << QStringLiteral("Line 2.svt");
    QTest::newRow("relative path") << QStringLiteral("Projects/a.svt") << QStringLiteral("a.svt");
    QTest::newRow("trimmed") << QStringLiteral("  C:\\a\\b.trv  ") << QStringLiteral("b.trv");
    QTest::newRow("leading backslash stops")
        << QStringLiteral("\\a\\b") << QStringLiteral("\\a\\b");
    QTest::newRow("doubled backslash stops at the second")
        << QStringLiteral("a\\\\b") << QStringLiteral("\\b");
    QTest::newRow("name alone") << QStringLiteral("b.trv") << QStringLiteral("b.trv");
    QTest::newRow("root file") << QStringLiteral("/b.trv") << QStringLiteral("/b.trv");
    QTest::newRow("trailing separator") << QStringLiteral("/a/b/") << QString();
}

void TstFileCipher::fileNameOnly() {
    QFETCH(QString, path);
    QFETCH(QString, name);
    QCOMPARE(::fileNameOnly(path), name);
}

void TstFileCipher::fileExistsFindsFilesOnly() {
    TestEnv env;
    QDir(env.appPath()).mkdir(QStringLiteral("Audit"));
    QFile f(env.path(QStringLiteral("Audit/3-7-2026 Audit.atr")));
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.close();
    QVERIFY(fileExists(env.path(QStringLiteral("Audit/3-7-2026 Audit.atr"))));
    QVERIFY(fileExists(env.appPath() + QStringLiteral("\\Audit\\3-7-2026 Audit.atr")));
    QVERIFY(fileExists(env.path(QStringLiteral("Audit/*.atr"))));
    QVERIFY(fileExists(env.path(QStringLiteral("Audit/3-?-2026 Audit.atr"))));
    QVERIFY(!fileExists(env.path(QStringLiteral("Audit/*.slg"))));
    QVERIFY(!fileExists(env.path(QStringLiteral("Audit"))));
    QVERIFY(!fileExists(env.path(QStringLiteral("Audit/none.atr"))));
    QVERIFY(!fileExists(QString()));
}

QTEST_MAIN(TstFileCipher)
#include "tst_file_cipher.moc"
