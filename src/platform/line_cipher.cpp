#include "line_cipher.h"

#include <QFile>
#include <openssl/evp.h>
#include <openssl/rand.h>

const QByteArray LineCipher::kSalt = QByteArrayLiteral("Sorvantel/line/1");

namespace {
struct CipherDeleter {
    void operator()(EVP_CIPHER* c) const { EVP_CIPHER_free(c); }
};
struct ContextDeleter {
    void operator()(EVP_CIPHER_CTX* c) const { EVP_CIPHER_CTX_free(c); }
};
struct DigestContextDeleter {
    void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
using CipherPtr = std::unique_ptr<EVP_CIPHER, CipherDeleter>;
using ContextPtr = std::unique_ptr<EVP_CIPHER_CTX, ContextDeleter>;

const char* cipherName(int keyBits) {
    switch (keyBits) {
    case 128:
        return "AES-128-GCM";
    case 192:
        return "AES-192-GCM";
    case 256:
        return "AES-256-GCM";
    default:
        return nullptr;
    }
}

unsigned char* bytes(QByteArray& a) {
    return reinterpret_cast<unsigned char*>(a.data());
}
const unsigned char* bytes(const QByteArray& a) {
    return reinterpret_cast<const unsigned char*>(a.constData());
}
} // namespace

// One context each way, keyed once; a message only sets its nonce, so the key schedule is not
// rebuilt for every line.
struct LineCipher::State {
    QByteArray phrase;
    int bits = 0;
    bool keyed = false;
    CipherPtr cipher;
    ContextPtr enc{EVP_CIPHER_CTX_new()};
    ContextPtr dec{EVP_CIPHER_CTX_new()};
    LineCipher::RandomSource random;
};

LineCipher::LineCipher() : d(std::make_unique<State>()) {}
LineCipher::~LineCipher() = default;

void LineCipher::setRandomSource(RandomSource source) {
    d->random = std::move(source);
}

bool LineCipher::hasKey() const {
    return d->keyed;
}

bool LineCipher::setSecretKeyFromPassPhrase(const QByteArray& passPhrase, int keyBits) {
    if (d->keyed && d->phrase == passPhrase && d->bits == keyBits)
        return true;
    d->keyed = false;
    const char* name = cipherName(keyBits);
    if (!name || !d->enc || !d->dec)
        return false;
    CipherPtr cipher(EVP_CIPHER_fetch(nullptr, name, nullptr));
    if (!cipher)
        return false;
    QByteArray key(keyBits / 8, '\0');
    if (PKCS5_PBKDF2_HMAC(passPhrase.constData(), int(passPhrase.size()), bytes(kSalt),
                          int(kSalt.size()), kIterations, EVP_sha256(), int(key.size()),
                          bytes(key)) != 1)
        return false;
    const bool ok =
        EVP_EncryptInit_ex2(d->enc.get(), cipher.get(), bytes(key), nullptr, nullptr) == 1 &&
        EVP_DecryptInit_ex2(d->dec.get(), cipher.get(), bytes(key), nullptr, nullptr) == 1;
    OPENSSL_cleanse(key.data(), size_t(key.size()));
    if (!ok)
        return false;
    d->cipher = std::move(cipher);
    d->phrase = passPhrase;
    d->bits = keyBits;
    d->keyed = true;
    return true;
}

QByteArray LineCipher::encrypt(const QByteArray& plain) {
    if (!d->keyed)
        return {};
    QByteArray out(kNonceBytes + plain.size() + kTagBytes, '\0');
    unsigned char* nonce = bytes(out);
    if (d->random ? !d->random(nonce, kNonceBytes) : RAND_bytes(nonce, kNonceBytes) != 1)
        return {};
    EVP_CIPHER_CTX* ctx = d->enc.get();
    int len = 0;
    int finalLen = 0;
    if (EVP_EncryptInit_ex2(ctx, nullptr, nullptr, nonce, nullptr) != 1 ||
        EVP_EncryptUpdate(ctx, nonce + kNonceBytes, &len, bytes(plain), int(plain.size())) != 1 ||
        EVP_EncryptFinal_ex(ctx, nonce + kNonceBytes + len, &finalLen) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_GET_TAG, kTagBytes,
                            nonce + kNonceBytes + plain.size()) != 1)
        return {};
    return out;
}

std::optional<QByteArray> LineCipher::decrypt(const QByteArray& message) {
    if (!d->keyed || message.size() < kNonceBytes + kTagBytes)
        return std::nullopt;
    const qsizetype textSize = message.size() - kNonceBytes - kTagBytes;
    const unsigned char* nonce = bytes(message);
    QByteArray tag = message.right(kTagBytes);
    QByteArray plain(textSize, '\0');
    EVP_CIPHER_CTX* ctx = d->dec.get();
    int len = 0;
    int finalLen = 0;
    if (EVP_DecryptInit_ex2(ctx, nullptr, nullptr, nonce, nullptr) != 1 ||
        EVP_DecryptUpdate(ctx, bytes(plain), &len, nonce + kNonceBytes, int(textSize)) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_SET_TAG, kTagBytes, tag.data()) != 1)
        return std::nullopt;
    // The plain text is worthless until the tag has been checked.
    if (EVP_DecryptFinal_ex(ctx, bytes(plain) + len, &finalLen) != 1) {
        OPENSSL_cleanse(plain.data(), size_t(plain.size()));
        return std::nullopt;
    }
    return plain;
}

std::optional<QByteArray> sha256OfFile(const QString& path, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return std::nullopt;
    }
    std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> ctx(EVP_MD_CTX_new());
    if (!ctx || EVP_DigestInit_ex2(ctx.get(), EVP_sha256(), nullptr) != 1) {
        if (error)
            *error = QStringLiteral("SHA-256 is not available");
        return std::nullopt;
    }
    QByteArray block(1 << 16, '\0');
    for (;;) {
        const qint64 n = file.read(block.data(), block.size());
        if (n < 0) {
            if (error)
                *error = file.errorString();
            return std::nullopt;
        }
        if (n == 0)
            break;
        if (EVP_DigestUpdate(ctx.get(), block.constData(), size_t(n)) != 1) {
            if (error)
                *error = QStringLiteral("SHA-256 failed");
            return std::nullopt;
        }
    }
    QByteArray digest(EVP_MAX_MD_SIZE, '\0');
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(ctx.get(), bytes(digest), &size) != 1) {
        if (error)
            *error = QStringLiteral("SHA-256 failed");
        return std::nullopt;
    }
    digest.resize(size);
    return digest;
}
