#include "audit_trail.h"

#include "daily_files.h"
#include "file_cipher.h"
#include "plant/plant_store.h"
#include "platform/clock.h"
#include "platform/file_io.h"
#include "security/session.h"

#include <QDir>

QString auditFolder() {
    return gAppPath + QStringLiteral("/Audit");
}

QString auditFilePath(const QDate& date) {
    return auditFolder() + u'/' + dailyFileStem(date) + QStringLiteral(" Audit.atr");
}

QString auditPlainLine(const QDateTime& now, const QString& userId, const QString& fullName,
                       const QString& comment, const QString& action) {
    return QStringList{regionalShortDate(now.date()),
                       regionalLongTime(now.time()),
                       userId,
                       fullName,
                       comment,
                       action}
        .join(u',');
}

namespace {
void writeAuditLine(const QString& userId, const QString& fullName, const QString& comment,
                    const QString& action) {
    // The moment in the line and the day of the file are one reading of the clock.
    const QDateTime now = currentDateTime();
    const QString plain = auditPlainLine(now, userId, fullName, comment, action);
    const QString path = auditFilePath(now.date());
    // A site that lost its Audit folder would otherwise lose every line without a word.
    QDir().mkpath(auditFolder());
    appendRecordLine(path, (encryptText(plain) + QStringLiteral("\r\n")).toLatin1());
}
} // namespace

void auditLine(const QString& action) {
    writeAuditLine(gUserId, gUserFullName, gUserComment, action);
}

void systemAuditLine(const QString& action) {
    writeAuditLine(QStringLiteral("System"), QStringLiteral("Sorvantel System"),
                   QStringLiteral("System Manager"), action);
}
