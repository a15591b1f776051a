#include "record_file.h"

#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/line_cipher.h"
#include "records/file_cipher.h"

#include <QFile>
#include <QLocale>
#include <algorithm>

std::optional<QString> decipherRecordLine(const QByteArray& hexLine) {
    setCipherKey();
    const auto plain = gCrypt().decrypt(hexToBytes(QString::fromLatin1(hexLine)));
    if (!plain)
        return std::nullopt;
    return QString::fromLatin1(*plain);
}

namespace {
bool fail(QString* error, const QString& why) {
    if (error)
        *error = why;
    return false;
}
} // namespace

bool readRecordFile(const QString& path, const std::function<void(const RecordLine&)>& onLine,
                    QString* error, qint64 maxLines) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(error, file.errorString());
    // One buffer for every line. A fresh one of this size for each line costs a mapping and an
    // unmapping of the memory whenever the allocator serves such sizes by mmap, which is several
    // times the deciphering of the line.
    QByteArray buffer(kMaxRecordLineBytes + 1, Qt::Uninitialized);
    for (qint64 number = 1; maxLines < 0 || number <= maxLines; ++number) {
        const qint64 read = file.readLine(buffer.data(), buffer.size());
        if (read <= 0) {
            if (file.error() != QFileDevice::NoError)
                return fail(error, file.errorString());
            return true;
        }
        qsizetype size = read;
        const bool unended = buffer[size - 1] != '\n';
        // No record line comes near this: what does is no record file (or a device without end),
        // and reading on would only fill the memory.
        if (size >= kMaxRecordLineBytes && unended)
            return fail(error, QStringLiteral("line %1 is longer than any record line; the file "
                                              "is damaged")
                                   .arg(number));
        if (!unended)
            --size;
        // Blanks after the digits (a hand-edited file) do not make a line damaged.
        while (size > 0 &&
               (buffer[size - 1] == '\r' || buffer[size - 1] == ' ' || buffer[size - 1] == '\t'))
            --size;
        const QByteArray raw = QByteArray::fromRawData(buffer.constData(), size);
        const bool blank = std::all_of(raw.cbegin(), raw.cend(), [](char c) {
            return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
        });
        onLine(RecordLine{number, blank ? std::nullopt : decipherRecordLine(raw), file.pos(), blank,
                          unended});
    }
    return true;
}

std::optional<Signature> parseSignatureLine(const QString& plain, qint64 line) {
    const QStringList f = plain.split(u',');
    if (f.size() < 8 || f[5] != QLatin1String("Signed"))
        return std::nullopt;
    return Signature{line,    f[0], f[1], f[2], f[3], f[4], f.mid(6, f.size() - 7).join(u','),
                     f.last()};
}

bool readSignatureFile(const QString& path, SignatureFile* out, QString* error) {
    SignatureFile file;
    const bool read = readRecordFile(
        path,
        [&file](const RecordLine& line) {
            using P = SignatureFile::Problem;
            ++file.lineCount;
            if (!line.plain) {
                file.findings.append({line.number, P::Damaged});
                return;
            }
            if (line.number == 1 && *line.plain == kSignatureHeader)
                return;
            // A signature file that was lost and signed again starts with a signature.
            const auto signature = parseSignatureLine(*line.plain, line.number);
            if (line.number == 1)
                file.findings.append({1, P::NoHeader});
            if (signature)
                file.signatures.append(*signature);
            else if (line.number > 1)
                file.findings.append({line.number, P::NotASignature});
        },
        error);
    *out = file;
    return read;
}

bool isWellFormedHash(const QString& hash) {
    if (hash.size() != 64)
        return false;
    for (QChar c : hash) {
        if (!(c >= u'0' && c <= u'9') && !(c >= u'A' && c <= u'F'))
            return false;
    }
    return true;
}

std::optional<QStringList> readPlainLines(const QString& path, qint64 maxLines, QString* error,
                                          int* damaged) {
    QStringList lines;
    int bad = 0;
    const bool read = readRecordFile(
        path,
        [&](const RecordLine& line) {
            if (!line.plain)
                ++bad;
            lines << line.plain.value_or(QString());
        },
        error, maxLines);
    if (damaged)
        *damaged = bad;
    if (!read)
        return std::nullopt;
    return lines;
}

bool takePlainFile(const QString& path, qint64 maxLines, const QString& kind,
                   const std::function<bool(const QStringList&)>& take) {
    QString why;
    const std::optional<QStringList> lines = readPlainLines(path, maxLines, &why);
    if (lines && take(*lines))
        return true;
    msgBox(kind +
               QStringLiteral(" file is not compatible or damaged. Please select another file.") +
               (why.isEmpty() ? QString() : QStringLiteral("\nReason: ") + why),
           MsgIcon::Critical);
    return false;
}

QString signedText(double value) {
    const QString text = QString::number(value, 'f', QLocale::FloatingPointShortest);
    return value < 0 ? text : u' ' + text;
}

bool writeEncipheredLines(const QString& path, const QStringList& lines, QString* error) {
    QByteArray bytes;
    for (const QString& line : lines) {
        const QString hex = encryptText(line);
        if (hex.isEmpty()) {
            if (error)
                *error = QStringLiteral("A line could not be enciphered.");
            return false;
        }
        bytes += hex.toLatin1() + "\r\n";
    }
    return writeFileAtomically(path, bytes, error);
}
