#include "platform/line_cipher.h"
#include "records/file_cipher.h"
#include "records/record_paths.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QCryptographicHash>
#include <QRegularExpression>
#include <QTest>

class TstFileCipher : public QObject {
    Q_OBJECT
private slots:
    void linesRoundTrip();
    void keyDependsOnPhraseAndSize();
    void hashFollowsTheFileOnDisk();
    void pathParts();
};

void TstFileCipher::linesRoundTrip() {
    // One byte a character on disk: characters with no single-byte form become "?".
    const QString latin1 = QString::fromLatin1("Temp\xe9rature \xb0"
                                               "C\x01\x7f\xff");
    for (const auto& [plain, back] :
         {std::pair{latin1, latin1}, {QStringLiteral("\u20ac5 \u00b0C"), "?5 \u00b0C"}}) {
        const QString line = encryptText(plain);
        // Nonce, one byte a character, tag; two digits a byte, upper case only.
        QCOMPARE(line.size(), 2 * (LineCipher::kNonceBytes + plain.size() + LineCipher::kTagBytes));
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9A-F]+$")).match(line).hasMatch());
        QCOMPARE(decryptText(line), back);
        QCOMPARE(decryptText(line.toLower()), back); // lower-case digits read as well
        QVERIFY(encryptText(plain) != line);         // each line has its own nonce
    }
}

void TstFileCipher::keyDependsOnPhraseAndSize() {
    LineCipher a, b;
    QVERIFY(!a.hasKey() && a.encrypt("x").isEmpty());
    QVERIFY(!a.setSecretKeyFromPassPhrase("amber", 100));
    QVERIFY(a.setSecretKeyFromPassPhrase("amber", 128) &&
            b.setSecretKeyFromPassPhrase("amber", 128));
    // The same phrase gives the same key in every cipher object, so any workstation reads it.
    QCOMPARE(b.decrypt(a.encrypt("line")).value_or("none"), QByteArray("line"));
    QVERIFY(b.setSecretKeyFromPassPhrase("amber!", 128) && !b.decrypt(a.encrypt("line")));
    QVERIFY(b.setSecretKeyFromPassPhrase("amber", 256) && !b.decrypt(a.encrypt("line")));
    // The process-wide cipher reads what a separately keyed one wrote.
    QCOMPARE(decryptText(bytesToHex(a.encrypt("from another object"))),
             QStringLiteral("from another object"));
}

void TstFileCipher::hashFollowsTheFileOnDisk() {
    TestEnv env;
    const QString path = env.path("data.slg");
    QVERIFY(writeBytes(path, "abc"));
    QCOMPARE(hashFileHex(path),
             QStringLiteral("BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD"));
    // Larger than one read block, with a last block that is not full.
    QByteArray content;
    for (int i = 0; content.size() < 200000; ++i)
        content += QByteArray::number(i) + "\r\n";
    QVERIFY(writeBytes(path, content));
    QCOMPARE(hashFileHex(path),
             QString::fromLatin1(
                 QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex().toUpper()));
    QVERIFY(env.dialogs->boxes.isEmpty());
    QCOMPARE(hashFileHex(env.appPath()), QString()); // a folder is no file
    QCOMPARE(env.dialogs->texts(), QStringList{"Error during system signature of data file.\n"
                                               "Data file on disk could be corrupted."});
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Critical);
}

void TstFileCipher::pathParts() {
    // The path, its base name, without extension, and name only. Only the name alone is
    // trimmed, and only a leading "/" does not stop its stripping.
    const QList<QStringList> rows{
        {"/srv/x.y\\Data\\f.tar.gz", "f", "/srv/x.y\\Data\\f", "f.tar.gz"},
        {"Name.svt", "Name", "Name", "Name.svt"},
        {"Projects/a.svt", "a", "Projects/a", "a.svt"},
        {"/a/b/README", "README", "/a/b/README", "README"},
        {"/a/.slg", "", "/a/", ".slg"},
        {"/a.b/", "", "/a.b/", ""},
        {"", "", "", ""},
        {"  C:\\a\\b.trv  ", "b", "  C:\\a\\b", "b.trv"},
        {"\\a\\b", "b", "\\a\\b", "\\a\\b"},
        {"a\\\\b", "b", "a\\\\b", "\\b"},
        {"/b.trv", "b", "/b", "/b.trv"}};
    for (const QStringList& r : rows)
        QCOMPARE(
            (QStringList{r[0], fileBaseName(r[0]), pathWithoutExtension(r[0]), fileNameOnly(r[0])}),
            r);

    // fileExists takes either separator and wildcards, and finds files, not folders.
    TestEnv env;
    const QString audit = env.path("Audit/");
    QVERIFY(writeBytes(audit + "3-7-2026 Audit.atr", {}));
    QList<bool> found;
    for (const QString& path :
         {audit + "3-7-2026 Audit.atr", env.appPath() + "\\Audit\\3-7-2026 Audit.atr",
          audit + "*.atr", audit + "3-?-2026 Audit.atr", audit + "*.slg", env.path("Audit"),
          audit + "none.atr", QString()})
        found << fileExists(path);
    QCOMPARE(found, QList<bool>({true, true, true, true, false, false, false, false}));
}

QTEST_MAIN(TstFileCipher)
#include "tst_file_cipher.moc"
