// Record files from outside, through the one record reader and the signature file reader on top
// of it. A line called whole must be exactly what the cipher makes of its plain text with its own
// nonce, and the line cipher's tag must catch any change to a line.

#include "fuzz_support.h"

#include <cstring>
#include <vector>

namespace {
// The bytes of the line as the reader took them: no line end and no blanks behind the digits.
QByteArrayView lineText(QByteArrayView file, qint64 from, qint64 to) {
    QByteArrayView line = file.sliced(from, to - from);
    if (line.endsWith('\n'))
        line.chop(1);
    while (!line.isEmpty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
        line.chop(1);
    return line;
}

QString encipheredWithNonce(const QByteArray& plain, const QByteArray& nonce) {
    gCrypt().setRandomSource([&nonce](unsigned char* out, int size) {
        std::memcpy(out, nonce.constData(), static_cast<size_t>(size));
        return size == nonce.size();
    });
    const QString hex = bytesToHex(gCrypt().encrypt(plain));
    gCrypt().setRandomSource({});
    return hex;
}

void checkFile(QByteArrayView file) {
    const QString path = scratchFolder() + QStringLiteral("/in.slg");
    writeBytes(path, file);
    std::vector<RecordLine> lines;
    const bool read = readRecordFile(path, [&lines](const RecordLine& l) { lines.push_back(l); });

    qint64 from = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const RecordLine& line = lines[i];
        require(line.number == qint64(i + 1), "lines are numbered 1, 2, 3...");
        require(line.end > from && line.end <= file.size(), "each line ends further on");
        require(!line.unended || i + 1 == lines.size(), "only the last line is unended");
        const QByteArrayView text = lineText(file, from, line.end);
        from = line.end;
        if (line.blank || !line.plain) {
            require(!line.plain, "a blank line has no plain text");
            continue;
        }
        const QByteArray hex(text.data(), text.size());
        require(hex.size() >= 2 * (LineCipher::kNonceBytes + LineCipher::kTagBytes),
                "a whole line holds a nonce and a tag");
        const QByteArray nonce = hexToBytes(QString::fromLatin1(hex.left(24)));
        require(encipheredWithNonce(line.plain->toLatin1(), nonce)
                        .compare(QString::fromLatin1(hex), Qt::CaseInsensitive) == 0,
                "a whole line enciphers back to itself");
    }
    if (read) {
        require(from == file.size(), "the last line ends with the file");
        require(lines.empty() || lines.back().unended == !file.endsWith('\n'),
                "the last line is unended exactly when the file lacks its line end");
    }

    SignatureFile signatures;
    require(readSignatureFile(path, &signatures) == read, "both readers read the file or neither");
    require(signatures.lineCount == qint64(lines.size()), "both readers count the same lines");
    for (const Signature& s : signatures.signatures)
        require(s.line >= 1 && s.line <= signatures.lineCount && lines[size_t(s.line - 1)].plain,
                "a signature stands on a line that deciphered");
    for (const SignatureFile::Finding& f : signatures.findings)
        require(f.problem != SignatureFile::Problem::Damaged || !lines[size_t(f.line - 1)].plain,
                "a line called damaged did not decipher");
}

// The input as plain text enciphered with a nonce it gives, then one character of the line
// changed at a place it gives: the tag must refuse the line. A digit put in other case is no
// change, since the reader takes lower-case digits.
void checkChangedLine(QByteArrayView input) {
    if (input.size() < LineCipher::kNonceBytes + 3)
        return;
    const QByteArray nonce = input.first(LineCipher::kNonceBytes).toByteArray();
    const auto at = static_cast<uchar>(input[12]) * 256 + static_cast<uchar>(input[13]);
    char replacement = input[14];
    const QByteArray plain =
        input.sliced(15).first(std::min<qsizetype>(input.size() - 15, 512)).toByteArray();
    QByteArray hex = encipheredWithNonce(plain, nonce).toLatin1();
    require(decipherRecordLine(hex) == QString::fromLatin1(plain),
            "an enciphered line deciphers to its plain text");
    const qsizetype i = at % hex.size();
    if (QChar::toUpper(uchar(replacement)) == uchar(hex[i]))
        replacement = hex[i] == 'F' ? '0' : hex[i] == '9' ? 'A' : char(hex[i] + 1);
    hex[i] = replacement;
    require(!decipherRecordLine(hex), "a changed line does not decipher");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setCipherKey();
    checkFile(inputBytes(data, size));
    checkChangedLine(inputBytes(data, size));
    return 0;
}
