#include "audit_trail.h"

#include "daily_files.h"
#include "plant/comm_errors.h"
#include "plant/plant_store.h"
#include "platform/clock.h"
#include "record_line.h"
#include "record_notices.h"
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
    return recordLine({regionalShortDate(now.date()), regionalLongTime(now.time()), userId,
                       fullName, comment, action});
}

namespace {
void writeAuditLine(const QString& userId, const QString& fullName, const QString& comment,
                    const QString& action) {
    // The moment in the line and the day of the file are one reading of the clock.
    const QDateTime now = currentDateTime();
    const QString plain = auditPlainLine(now, userId, fullName, comment, action);
    const QString path = auditFilePath(now.date());
    emit recordNotices().audit({now, userId, fullName, comment, action});
    // A site that lost its Audit folder would otherwise lose every line without a word.
    QDir().mkpath(auditFolder());
    // A line the disk refused is lost without a word, as the trail has always done; a line that
    // could not be enciphered means the cipher is broken, and every later line would be lost too.
    QString why;
    static bool reporting = false;
    if (appendEncipheredLine(path, plain, &why) == RecordWrite::NotEnciphered && !reporting) {
        // The box runs the event loop; lines failing meanwhile do not stack boxes on it.
        reporting = true;
        reportError(QStringLiteral("auditLine"), 5, why);
        reporting = false;
    }
}
} // namespace

void auditLine(const QString& action) {
    writeAuditLine(gUserId, gUserFullName, gUserComment, action);
}

void systemAuditLine(const QString& action) {
    writeAuditLine(QStringLiteral("System"), QStringLiteral("Sorvantel System"),
                   QStringLiteral("System Manager"), action);
}
