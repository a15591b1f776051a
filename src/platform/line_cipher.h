#pragma once

#include <QByteArray>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

// The symmetric cipher under every record line: AES-GCM with a key derived from a pass phrase by
// PBKDF2-HMAC-SHA256. Each message stands alone: a fresh random 96-bit nonce, then the cipher
// text, then the 128-bit tag. A message that was cut, damaged or altered fails its tag and gives
// nothing back.
class LineCipher {
public:
    LineCipher();
    ~LineCipher();
    LineCipher(const LineCipher&) = delete;
    LineCipher& operator=(const LineCipher&) = delete;

    // Key bits 128, 192 or 256. The derivation is costly on purpose, so it runs only when the
    // phrase or the size changes; setting the same key again costs nothing.
    bool setSecretKeyFromPassPhrase(const QByteArray& passPhrase, int keyBits);
    bool hasKey() const;

    // Where the nonces come from: the operating system's random source through OpenSSL unless
    // another is given (a test's failing one). False from the source fails the encryption.
    using RandomSource = std::function<bool(unsigned char* out, int size)>;
    void setRandomSource(RandomSource source);

    // Nonce, cipher text and tag; empty when no key is set, no nonce can be had or the cipher
    // fails.
    QByteArray encrypt(const QByteArray& plain);
    // The plain bytes, or nothing when the message does not authenticate.
    std::optional<QByteArray> decrypt(const QByteArray& message);

    static constexpr int kNonceBytes = 12;
    static constexpr int kTagBytes = 16;
    static constexpr int kIterations = 100000;
    // Fixed, so that the same phrase gives the same key on every machine.
    static const QByteArray kSalt;

private:
    struct State;
    std::unique_ptr<State> d;
};

// SHA-256 of a whole file, read in blocks. Nothing, with the reason in *error, when the file
// cannot be opened or read.
std::optional<QByteArray> sha256OfFile(const QString& path, QString* error = nullptr);
