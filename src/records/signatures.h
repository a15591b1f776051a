#pragma once

#include <QString>

// Digital signatures of data files: a line in the file's ".sif" saying who looked at the finished
// file, when, and the SHA-256 of the file as it then lay on disk. There is no key pair: the line
// is enciphered like every record, and it is made only after a fresh login with the right to sign.
// The window that offers signing (FrmHistory) shows the grid; the rules stand here.

// The signature file of a data file: beside it, named up to the first dot, with ".sif".
QString signatureFileOf(const QString& dataFile);

// The plain line of a signature by the session's user at the clock's time: date, time, user id,
// full name, description, "Signed", the comment ("None" when empty) and the hash.
QString signatureLine(const QString& comment, const QString& hash);

// The gate before signing: right 15 with a fresh login and its audit line, then the refusal of
// the file the logger is still writing to. False after the box that says why (or silently, when
// the login said no).
bool maySignDataFile(const QString& dataFile);

// The comment of a new signature from the input box; a cancel gives the empty text, which does
// not stop the signing.
QString askSignatureComment();

// Hashes the data file as it lies on disk now and appends the signature line to its signature
// file, which is made when it was lost. A failing hash has already said so (hashFileHex) and the
// line goes out with an empty hash. False, with the reason, when the line was not written.
bool appendSignature(const QString& dataFile, const QString& comment, QString* error = nullptr);

// The hash a plain signature line holds: taken from the end of the line, so that a comma in a
// comment cannot move it; the eighth field when the line is no signature line at all.
QString storedHashOf(const QString& plainLine);

// Hashes the data file again and compares, as text, with the stored hash; shows "confirmed" or
// "failed". A file that cannot be hashed counts as altered.
bool verifyDataFileHash(const QString& dataFile, const QString& storedHash);
