#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

// The one reader of the workstation's record files, for its viewers, the signature check and
// sorvantel-records alike. Every kind (.slg, .sif, .atr, .alf, .tun, .rec, .spr) is one
// enciphered line per plain line, so only the signature file needs knowledge of its fields.

// The plain text of one line as it stands on disk without its line end; nothing when the line
// does not authenticate. Unlike decryptText this tells a damaged line from an empty plain one.
std::optional<QString> decipherRecordLine(const QByteArray& hexLine);

struct RecordLine {
    qint64 number = 0; // from 1
    std::optional<QString> plain;
    qint64 end = 0;       // bytes of the file up to and with this line's end, for progress
    bool blank = false;   // nothing but blanks stood on the line: no record was written there
    bool unended = false; // no line feed behind it: the file ends inside this line
};

// Longer than any line the workstation writes (a data line of 192 values and a long operator
// message enciphers to some tens of kilobytes).
inline constexpr qint64 kMaxRecordLineBytes = 1 << 20;

// Hands every line of the file to onLine, in order. CR LF and a bare LF both end a line, and the
// last line may lack its end: a line cut while it was written fails to decipher by itself. False,
// with the reason in *error, when the file cannot be opened or read, or a line is longer than
// kMaxRecordLineBytes; such a failure can come after some lines were handed on. A maxLines of
// zero or more stops the reading after that many lines, for a reader that needs only the head.
bool readRecordFile(const QString& path, const std::function<void(const RecordLine&)>& onLine,
                    QString* error = nullptr, qint64 maxLines = -1);

// The plain lines of a small record file (a recipe, a tuning file), at most maxLines of them
// (one more tells a file too long); a line that does not authenticate is an empty one and counts
// in *damaged. Nothing, with the reason in *error, when the file cannot be read.
std::optional<QStringList> readPlainLines(const QString& path, qint64 maxLines,
                                          QString* error = nullptr, int* damaged = nullptr);
// Opens a recipe or tuning file the operator chose: true when its lines read and `take` accepts
// them. Otherwise the box "<kind> file is not compatible or damaged. Please select another
// file." with the reason where there is one, and false.
bool takePlainFile(const QString& path, qint64 maxLines, const QString& kind,
                   const std::function<bool(const QStringList&)>& take);
// The lines enciphered one by one, the file replaced whole. False with the reason in *error.
bool writeEncipheredLines(const QString& path, const QStringList& lines, QString* error = nullptr);
// A number as those files keep it: a blank where a plus sign would stand, plain decimal with no
// exponent, and the fewest digits that read back to the same number.
QString signedText(double value);

inline const QString kSignatureHeader = QStringLiteral(
    "Date,Time,User ID,Full Name,User Description,User Action,User Comment,Hash Value");

struct Signature {
    qint64 line = 0;
    QString date;
    QString time;
    QString userId;
    QString fullName;
    QString description;
    QString comment;
    QString hash;
};

// At least eight fields with "Signed" as the sixth. Nothing in these files escapes a comma, so
// the hash is taken from the end and the comment is everything between.
std::optional<Signature> parseSignatureLine(const QString& plain, qint64 line);

struct SignatureFile {
    enum class Problem { Damaged, NoHeader, NotASignature };
    struct Finding {
        qint64 line;
        Problem problem;
    };
    qint64 lineCount = 0;
    QList<Signature> signatures;
    QList<Finding> findings; // in line order
};

bool readSignatureFile(const QString& path, SignatureFile* out, QString* error = nullptr);

// True when the hash field is what the workstation writes: 64 upper-case hexadecimal digits.
bool isWellFormedHash(const QString& hash);
