#pragma once

#include <QByteArray>
#include <QString>

class LineCipher;

// The one cipher of the process, made on first use; the splash keys it at start so that the key
// derivation is paid before the first record is written.
LineCipher& gCrypt();
void setCipherKey();

// One plain line to one line of upper-case hexadecimal and back. Text goes to the files as
// single-byte characters; a character with no single-byte form becomes "?". A line that was cut,
// damaged or altered deciphers to the empty text, without a message: each reader decides what
// an empty line means.
QString encryptText(const QString& text);
QString decryptText(const QString& hexLine);

// Two upper-case digits a byte, a leading zero kept.
QString bytesToHex(const QByteArray& bytes);
// Pairs of digits, either case; nothing at all for an odd count or any character that is no
// hexadecimal digit, so that a changed line can never pass as another (a non-digit read as zero
// would let "0x" stand for "00").
QByteArray hexToBytes(const QString& hex);

// 64 hexadecimal digits of the SHA-256 of the file as it lies on disk. On failure the stop box
// "Error during system signature of data file." and the empty text.
QString hashFileHex(const QString& path);
