#include "file_cipher.h"

#include "platform/dialogs.h"
#include "platform/line_cipher.h"

namespace {
// The only secret of the record files; it hides them from a casual reader. Their integrity rests
// on access control, the audit trail and the signature hashes.
const QByteArray kPassPhrase = QByteArrayLiteral("amber");
constexpr int kKeyBits = 128;

int hexDigit(QChar c) {
    const char16_t u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    if (u >= 'A' && u <= 'F')
        return u - 'A' + 10;
    if (u >= 'a' && u <= 'f')
        return u - 'a' + 10;
    return -1;
}
} // namespace

LineCipher& gCrypt() {
    static LineCipher cipher;
    return cipher;
}

void setCipherKey() {
    gCrypt().setSecretKeyFromPassPhrase(kPassPhrase, kKeyBits);
}

QString encryptText(const QString& text) {
    setCipherKey();
    return bytesToHex(gCrypt().encrypt(text.toLatin1()));
}

QString decryptText(const QString& hexLine) {
    setCipherKey();
    const auto plain = gCrypt().decrypt(hexToBytes(hexLine));
    return plain ? QString::fromLatin1(*plain) : QString();
}

QString bytesToHex(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toHex().toUpper());
}

QByteArray hexToBytes(const QString& hex) {
    if (hex.size() % 2 != 0)
        return {};
    QByteArray out;
    out.reserve(hex.size() / 2);
    for (qsizetype i = 0; i < hex.size(); i += 2) {
        const int high = hexDigit(hex[i]);
        const int low = hexDigit(hex[i + 1]);
        if (high < 0 || low < 0)
            return {};
        out.append(char(high * 16 + low));
    }
    return out;
}

QString hashFileHex(const QString& path) {
    const auto digest = sha256OfFile(path);
    if (!digest || digest->size() != 32) {
        msgBox(QStringLiteral("Error during system signature of data file.\n"
                              "Data file on disk could be corrupted."),
               MsgIcon::Critical);
        return {};
    }
    return bytesToHex(*digest);
}
