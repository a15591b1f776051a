#include "record_commands.h"

#include "platform/file_io.h"
#include "platform/line_cipher.h"
#include "records/record_file.h"
#include "records/file_cipher.h"
#include "records/record_paths.h"

#include <QFileInfo>
#include <QIODevice>

namespace {
void say(QIODevice& device, const QString& text) {
    device.write(text.toUtf8() + '\n');
}

QString notDeciphering(const QString& file, qint64 line) {
    return QStringLiteral("%1: line %2 does not decipher").arg(file, QString::number(line));
}
} // namespace

int worseStatus(int a, int b) {
    auto rank = [](int status) {
        switch (status) {
        case kOk:
            return 0;
        case kNotVerified:
            return 1;
        case kDamaged:
            return 2;
        case kMismatch:
            return 3;
        default:
            return 4;
        }
    };
    return rank(a) >= rank(b) ? a : b;
}

int printRecords(const QStringList& files, QIODevice& out, QIODevice& err) {
    int status = kOk;
    for (qsizetype i = 0; i < files.size(); ++i) {
        const QString& file = files[i];
        if (files.size() > 1)
            say(out, (i > 0 ? QStringLiteral("\n==> ") : QStringLiteral("==> ")) + file +
                         QStringLiteral(" <=="));
        QString why;
        const bool read = readRecordFile(
            file,
            [&](const RecordLine& line) {
                if (!line.plain) {
                    say(err, notDeciphering(file, line.number));
                    status = worseStatus(status, kDamaged);
                }
                say(out, line.plain.value_or(QString()));
            },
            &why);
        if (!read) {
            say(err, QStringLiteral("%1: cannot be read: %2").arg(file, why));
            status = worseStatus(status, kUnusable);
        }
    }
    return status;
}

QString defaultSignaturePath(const QString& dataFile) {
    return pathWithoutExtension(dataFile) + QStringLiteral(".sif");
}

int verifySignatures(const QString& dataFile, const QString& sigFile, QIODevice& out,
                     QIODevice& err) {
    const QString sigPath = sigFile.isEmpty() ? defaultSignaturePath(dataFile) : sigFile;
    QString why;
    const auto digest = sha256OfFile(dataFile, &why);
    if (!digest) {
        say(err, QStringLiteral("%1: cannot be read: %2").arg(dataFile, why));
        return kUnusable;
    }
    SignatureFile signatures;
    if (!readSignatureFile(sigPath, &signatures, &why)) {
        say(err, QStringLiteral("%1: cannot be read: %2").arg(sigPath, why));
        return kUnusable;
    }
    const QString hash = bytesToHex(*digest);
    say(out, QStringLiteral("Data file:      %1").arg(dataFile));
    say(out, QStringLiteral("SHA-256 now:    %1").arg(hash));
    say(out, QStringLiteral("Signature file: %1").arg(sigPath));

    int status = kOk;
    for (const SignatureFile::Finding& finding : signatures.findings) {
        switch (finding.problem) {
        case SignatureFile::Problem::Damaged:
            say(err, notDeciphering(sigPath, finding.line));
            status = worseStatus(status, kDamaged);
            break;
        case SignatureFile::Problem::NoHeader:
            say(err, QStringLiteral("%1: line 1 is not the header line").arg(sigPath));
            status = worseStatus(status, kNotVerified);
            break;
        case SignatureFile::Problem::NotASignature:
            say(err, QStringLiteral("%1: line %2 is not a signature line")
                         .arg(sigPath, QString::number(finding.line)));
            status = worseStatus(status, kNotVerified);
            break;
        }
    }

    qsizetype matching = 0;
    for (const Signature& s : signatures.signatures) {
        QString verdict = QStringLiteral("valid");
        if (s.hash == hash)
            ++matching;
        else if (isWellFormedHash(s.hash))
            verdict = QStringLiteral("does not match (the file changed after this signature)");
        else
            verdict = QStringLiteral("does not match (the signature holds no valid hash)");
        say(out, QStringLiteral("line %1: signed %2 %3 by %4 (%5), comment \"%6\": %7")
                     .arg(QString::number(s.line), s.date, s.time, s.userId, s.fullName, s.comment,
                          verdict));
    }
    const qsizetype total = signatures.signatures.size();
    if (total == 0) {
        say(err, QStringLiteral("%1: holds no signature").arg(sigPath));
        status = worseStatus(status, kNotVerified);
    } else {
        say(out, QStringLiteral("Signatures: %1, valid: %2, not matching: %3")
                     .arg(total)
                     .arg(matching)
                     .arg(total - matching));
    }
    if (matching < total)
        status = worseStatus(status, kMismatch);
    return status;
}

QString defaultExportPath(const QString& file) {
    return pathWithoutExtension(file) + QStringLiteral(".csv");
}

int exportRecords(const QString& file, const QString& csvFile, bool force, QIODevice& out,
                  QIODevice& err) {
    const QString csvPath = csvFile.isEmpty() ? defaultExportPath(file) : csvFile;
    QByteArray csv;
    qint64 lines = 0;
    int status = kOk;
    QString why;
    const bool read = readRecordFile(
        file,
        [&](const RecordLine& line) {
            if (!line.plain) {
                say(err, notDeciphering(file, line.number));
                status = kDamaged;
            }
            csv += line.plain.value_or(QString()).toUtf8() + "\r\n";
            ++lines;
        },
        &why);
    if (!read) {
        say(err, QStringLiteral("%1: cannot be read: %2").arg(file, why));
        return kUnusable;
    }
    const QFileInfo target(csvPath);
    if (target.exists()) {
        // A record file named .csv, or a link to it, would otherwise be replaced by its own
        // plain text.
        if (target.canonicalFilePath() == QFileInfo(file).canonicalFilePath()) {
            say(err,
                QStringLiteral("%1: is the record file itself; name another output").arg(csvPath));
            return kUnusable;
        }
        if (!force) {
            say(err, QStringLiteral("%1: already exists; --force replaces it").arg(csvPath));
            return kUnusable;
        }
    }
    if (!writeFileAtomically(csvPath, csv, &why)) {
        say(err, QStringLiteral("%1: cannot be written: %2").arg(csvPath, why));
        return kUnusable;
    }
    say(out,
        QStringLiteral("%1: %2 lines exported to %3").arg(file, QString::number(lines), csvPath));
    return status;
}
