#include "record_line.h"

#include "file_cipher.h"
#include "platform/file_io.h"
#include "record_seals.h"

namespace {
QString cleanField(QString field, bool commasAllowed) {
    for (QChar& c : field) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7F || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator || c.unicode() == 0x85)
            c = u' ';
        else if (c == u',' && !commasAllowed)
            c = u';';
    }
    return field;
}
} // namespace

QString recordLine(const QStringList& fields) {
    QStringList clean;
    clean.reserve(fields.size());
    for (qsizetype i = 0; i < fields.size(); ++i)
        clean << cleanField(fields[i], i == fields.size() - 1);
    return clean.join(u',');
}

namespace {
// The record line on disk: the cipher text and its line end; empty when the cipher failed.
QByteArray encipheredLine(const QString& plain, QString* error) {
    const QString cipher = encryptText(plain);
    if (cipher.isEmpty() && error)
        *error = QStringLiteral("The line could not be enciphered.");
    return cipher.isEmpty() ? QByteArray() : (cipher + QStringLiteral("\r\n")).toLatin1();
}
} // namespace

RecordWrite appendEncipheredLine(const QString& path, const QString& plain, QString* error) {
    const QByteArray line = encipheredLine(plain, error);
    if (line.isEmpty())
        return RecordWrite::NotEnciphered;
    if (!appendRecordLine(path, line, error))
        return RecordWrite::NotWritten;
    // On the disk first: a seal that never comes costs no record.
    sealWrittenLine(path, line.chopped(2));
    return RecordWrite::Written;
}

RecordWrite appendEncipheredLine(RecordAppender& file, const QString& plain, QString* error) {
    const QByteArray line = encipheredLine(plain, error);
    if (line.isEmpty())
        return RecordWrite::NotEnciphered;
    if (!file.append(line, error))
        return RecordWrite::NotWritten;
    sealWrittenLine(file.path(), line.chopped(2));
    return RecordWrite::Written;
}
