#include "record_commands.h"

#include "platform/csv_text.h"
#include "platform/file_io.h"
#include "platform/line_cipher.h"
#include "records/data_search.h"
#include "records/file_cipher.h"
#include "records/record_file.h"
#include "records/record_paths.h"

#include <QDir>
#include <QFileInfo>
#include <QIODevice>
#include <QRegularExpression>
#include <limits>

namespace {
void say(QIODevice& device, const QString& text) {
    device.write(text.toUtf8() + '\n');
}

QString notDeciphering(const QString& file, qint64 line) {
    return QStringLiteral("%1: line %2 does not decipher").arg(file, QString::number(line));
}

// A last line the file ends inside was cut while it was written (a crash, a full disk); saying so
// tells the reader that nothing behind it was lost.
QString damagedLine(const QString& file, const RecordLine& line) {
    return notDeciphering(file, line.number) +
           (line.unended ? QStringLiteral(": cut short, the file ends inside it") : QString());
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
                    say(err, damagedLine(file, line));
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
    const QFileInfo sigInfo(sigPath);
    if (!sigInfo.exists()) {
        say(err, QStringLiteral("%1: no such signature file; the data file cannot be verified "
                                "without it")
                     .arg(sigPath));
        return kUnusable;
    }
    // Named the other way round, a signature file would be hashed against its own lines.
    if (sigInfo.canonicalFilePath() == QFileInfo(dataFile).canonicalFilePath()) {
        say(err, QStringLiteral("%1: is the signature file itself; name the data file first")
                     .arg(dataFile));
        return kUnusable;
    }
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
        QString verdict = QStringLiteral("confirmed");
        if (s.hash == hash)
            ++matching;
        else if (isWellFormedHash(s.hash))
            verdict = QStringLiteral("altered (the file changed after this signature)");
        else
            verdict = QStringLiteral("altered (the signature holds no valid hash)");
        say(out, QStringLiteral("line %1: signed %2 %3 by %4 (%5), comment \"%6\": %7")
                     .arg(QString::number(s.line), s.date, s.time, s.userId, s.fullName, s.comment,
                          verdict));
    }
    const qsizetype total = signatures.signatures.size();
    if (total == 0) {
        say(err, QStringLiteral("%1: holds no signature").arg(sigPath));
        status = worseStatus(status, kNotVerified);
    } else {
        say(out, QStringLiteral("Signatures: %1, confirmed: %2, altered: %3")
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
    // Plain text under any other name could take the place of a record file (with --force, a
    // signature file or a trail), or pass for one beside them.
    const QFileInfo target(csvPath);
    const auto isCsv = [](const QString& path) {
        return path.endsWith(QLatin1String(".csv"), Qt::CaseInsensitive);
    };
    if (!isCsv(csvPath) || (target.exists() && !isCsv(target.canonicalFilePath()))) {
        say(err, QStringLiteral("%1: is no .csv file; the export writes only to one").arg(csvPath));
        return kUnusable;
    }
    // Each line split at its commas, as the viewers split it into their columns.
    QByteArray csv = kCsvByteOrderMark.toByteArray();
    qint64 lines = 0;
    int status = kOk;
    QString why;
    const bool read = readRecordFile(
        file,
        [&](const RecordLine& line) {
            if (!line.plain) {
                say(err, damagedLine(file, line));
                status = kDamaged;
            }
            appendCsvRow(csv, line.plain.value_or(QString()).split(u','));
            ++lines;
        },
        &why);
    if (!read) {
        say(err, QStringLiteral("%1: cannot be read: %2").arg(file, why));
        return kUnusable;
    }
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

QString defaultLogFolder() {
    return QDir::current().filePath(QStringLiteral("Log Files"));
}

std::optional<qint32> parseRecordNumber(const QString& text) {
    static const QRegularExpression digits(QStringLiteral("^[0-9]{1,10}$"));
    if (!digits.match(text).hasMatch())
        return std::nullopt;
    const qint64 value = text.toLongLong();
    if (value > std::numeric_limits<qint32>::max())
        return std::nullopt;
    return static_cast<qint32>(value);
}

namespace {
const QLatin1String kStartedBy("File started by");

// The batch and lot fields of a start line. The workstation turns a comma in a user's name into
// ";", but a file written before that guard may hold one: the numbers follow the field that
// closes the login.
std::pair<QString, QString> batchAndLot(const QString& startLine) {
    const QStringList f = startLine.split(u',');
    qsizetype at = 2;
    if (f.value(2).startsWith(kStartedBy)) {
        for (qsizetype i = 2; i < f.size(); ++i) {
            if (f[i].endsWith(QLatin1String(" )"))) {
                at = i;
                break;
            }
        }
    }
    return {f.value(at + 1), f.value(at + 2)};
}

QString queryText(const DataFileQuery& query) {
    QStringList parts;
    if (query.batch)
        parts << QStringLiteral("batch number %1").arg(*query.batch);
    if (query.lot)
        parts << QStringLiteral("lot number %1").arg(*query.lot);
    if (parts.isEmpty())
        return QStringLiteral("\"%1\" in its first two lines").arg(query.text);
    return parts.join(QStringLiteral(" and "));
}
} // namespace

int searchRecords(const QString& folder, const DataFileQuery& query, QIODevice& out,
                  QIODevice& err) {
    const QFileInfo info(folder);
    if (!info.isDir()) {
        say(err, QStringLiteral("%1: no such folder").arg(folder));
        return kUnusable;
    }
    // A folder that cannot be listed would otherwise look empty.
    if (!info.isReadable() || !info.isExecutable()) {
        say(err, QStringLiteral("%1: cannot be read: permission denied").arg(folder));
        return kUnusable;
    }
    // Only regular files are opened: a pipe or a device named .slg would block the reading.
    QStringList files;
    int unreadable = 0;
    for (const QString& entry : listFilesInFolder(folder, QStringLiteral("*.slg"))) {
        if (entry == QLatin1String("Directory") || entry.endsWith(u'/'))
            continue;
        if (QFileInfo(entry).isFile())
            files << entry;
        else
            ++unreadable;
    }

    const bool byNumber = query.batch || query.lot;
    const QString text = query.batch ? QString::number(*query.batch)
                         : query.lot ? QString::number(*query.lot)
                                     : query.text;
    const DataSearchResult found = searchDataFiles(files, text, false);
    unreadable += found.unreadable;
    QStringList hits;
    for (const QString& path : found.hits) {
        if (!byNumber) {
            hits << path;
            continue;
        }
        // The number as text also matches dates, times, tags and values: only the batch and lot
        // fields of the start line count.
        // A file cut before its start line has no numbers, and is no hit.
        std::optional<RecordLine> startLine;
        const bool read = readRecordFile(
            path,
            [&startLine](const RecordLine& line) {
                if (line.number == 2)
                    startLine = line;
            },
            nullptr, 2);
        if (!read || (startLine && !startLine->plain)) {
            ++unreadable;
            continue;
        }
        if (!startLine)
            continue;
        const auto [batch, lot] = batchAndLot(*startLine->plain);
        if ((!query.batch || batch == QString::number(*query.batch)) &&
            (!query.lot || lot == QString::number(*query.lot)))
            hits << path;
    }

    for (const QString& path : hits)
        say(out, QDir::toNativeSeparators(path));
    int status = kOk;
    if (unreadable > 0) {
        say(err, QStringLiteral("%1: %2 %3 could not be read")
                     .arg(folder, QString::number(unreadable),
                          unreadable == 1 ? QStringLiteral("file") : QStringLiteral("files")));
        status = kUnusable;
    }
    if (hits.isEmpty()) {
        say(err, files.isEmpty() && unreadable == 0
                     ? QStringLiteral("%1: holds no data files (.slg)").arg(folder)
                     : QStringLiteral("%1: no data file has %2").arg(folder, queryText(query)));
        status = worseStatus(status, kNotFound);
    }
    return status;
}
