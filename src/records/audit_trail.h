#pragma once

#include <QDateTime>
#include <QString>

// The daily audit trail: one enciphered line an event, "Date,Time,User ID,Full Name,Comment,
// Action", in gAppPath/Audit/m-d-yyyy Audit.atr. The date is read at every write, so a line
// after midnight goes to the next day's file by itself. Writers never report a failure: a line
// that cannot be written is lost and the action goes on.

QString auditFolder();
QString auditFilePath(const QDate& date);

// In the name of the present session.
void auditLine(const QString& action);
// In the name of the system itself.
void systemAuditLine(const QString& action);

// The plain line, before encipherment.
QString auditPlainLine(const QDateTime& now, const QString& userId, const QString& fullName,
                       const QString& comment, const QString& action);
