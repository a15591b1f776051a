// The writer of every export: a row of any fields read back by a strict RFC 4180 reader (written
// here on its own) gives the same fields, except that a field a spreadsheet would run as a
// formula has an apostrophe in front; every field that still starts like a formula is a number,
// and no field got an apostrophe that did not need one. Fields are separated by 0x1F in the input.

#include "fuzz_support.h"
#include "platform/csv_text.h"

#include <QList>

namespace {
bool formulaStart(QByteArrayView field) {
    return !field.isEmpty() && QByteArrayView("=+-@\t\r").contains(field.front());
}

// One CRLF-ended record, strictly: quotes only around a whole field, doubled inside it.
bool readRecord(QByteArrayView text, QList<QByteArray>* fields) {
    qsizetype i = 0;
    for (;;) {
        QByteArray field;
        if (i < text.size() && text[i] == '"') {
            for (++i;; ++i) {
                if (i >= text.size())
                    return false;
                if (text[i] == '"') {
                    if (i + 1 < text.size() && text[i + 1] == '"')
                        ++i;
                    else
                        break;
                }
                field += text[i];
            }
            ++i;
        } else {
            for (; i < text.size() && text[i] != ',' && text[i] != '\r'; ++i) {
                if (text[i] == '"' || text[i] == '\n')
                    return false;
                field += text[i];
            }
        }
        fields->append(field);
        if (i < text.size() && text[i] == ',') {
            ++i;
            continue;
        }
        return text.sliced(i) == "\r\n";
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input = inputBytes(data, size).toByteArray();
    const QList<QByteArray> fields = input.split('\x1f');
    QByteArray row;
    for (qsizetype c = 0; c < fields.size(); ++c) {
        if (c > 0)
            row += ',';
        appendCsvField(row, fields.at(c));
    }
    row += "\r\n";
    QList<QByteArray> read;
    require(readRecord(row, &read), "the row is one strict RFC 4180 record");
    require(read.size() == fields.size(), "every field reads back as one field");
    for (qsizetype c = 0; c < fields.size(); ++c) {
        const QByteArray& field = fields.at(c);
        const QByteArray& back = read.at(c);
        const bool marked = back == '\'' + field;
        require(back == field || marked, "a field reads back as written, or behind an apostrophe");
        require(!marked || formulaStart(field),
                "only a field that starts like a formula is marked");
        bool number = false;
        field.trimmed().toDouble(&number);
        require(marked || !formulaStart(back) || number,
                "what starts like a formula unmarked is a number");
    }
    return 0;
}
