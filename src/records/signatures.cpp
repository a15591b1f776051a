#include "signatures.h"

#include "daily_files.h"
#include "data_logger.h"
#include "file_cipher.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "record_file.h"
#include "record_line.h"
#include "record_paths.h"
#include "security/login.h"
#include "security/rights.h"
#include "security/session.h"

#include <QFileInfo>

namespace {
// The logger names its file as the dialog or the clock gave it; the viewer may have been given
// another spelling of the same path, and signing a file still being written must not slip by.
bool isBeingLogged(const QString& dataFile) {
    if (isCurrentDataFile(dataFile))
        return true;
    if (!gLogging)
        return false;
    const QString mine = QFileInfo(dataFile).canonicalFilePath();
    return !mine.isEmpty() && mine == QFileInfo(gDataFileName).canonicalFilePath();
}
} // namespace

QString signatureFileOf(const QString& dataFile) {
    return pathWithoutExtension(dataFile) + QStringLiteral(".sif");
}

QString signatureLine(const QString& comment, const QString& hash) {
    const QDateTime now = currentDateTime();
    // The comment cannot move the hash: recordLine keeps commas out of every field but the last.
    return recordLine({regionalShortDate(now.date()), regionalLongTime(now.time()), gUserId,
                       gUserFullName, gUserComment, QStringLiteral("Signed"),
                       comment.isEmpty() ? QStringLiteral("None") : comment, hash});
}

bool maySignDataFile(const QString& dataFile) {
    if (!checkAccessWithLogin(Right::SignDataFiles,
                              QStringLiteral("Digital Signature of file ") + dataFile))
        return false;
    if (isBeingLogged(dataFile)) {
        msgBox(QStringLiteral("The data logger is still writing to the selected file.\n"
                              "Files can only be signed when completed."),
               MsgIcon::Critical);
        return false;
    }
    return true;
}

QString askSignatureComment() {
    return dialogs()
        .inputBox(QStringLiteral("Signature Comment"),
                  QStringLiteral("Enter comment for digital signature."), QString())
        .value_or(QString());
}

bool appendSignature(const QString& dataFile, const QString& comment, QString* error) {
    const QString line = signatureLine(comment, hashFileHex(dataFile));
    return appendEncipheredLine(signatureFileOf(dataFile), line, error) == RecordWrite::Written;
}

QString storedHashOf(const QString& plainLine) {
    if (const auto signature = parseSignatureLine(plainLine, 0))
        return signature->hash;
    return plainLine.section(u',', 7, 7);
}

bool verifyDataFileHash(const QString& dataFile, const QString& storedHash) {
    const QString now = hashFileHex(dataFile);
    if (now.isEmpty() || now != storedHash) {
        msgBox(QStringLiteral("Digital signature of file failed!\n"
                              "File has been altered since signature was stamped."),
               MsgIcon::Information);
        return false;
    }
    msgBox(QStringLiteral("Digital signature of file confirmed!"), MsgIcon::Information);
    return true;
}
