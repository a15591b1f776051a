#include "csv_text.h"

namespace {
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// A decimal number as a spreadsheet reads one: blanks around it, a sign, digits with one point,
// an exponent, and a value a double holds.
bool isNumber(QByteArrayView text) {
    qsizetype i = 0;
    qsizetype end = text.size();
    while (i < end && text[i] == ' ')
        ++i;
    while (end > i && text[end - 1] == ' ')
        --end;
    if (i < end && (text[i] == '+' || text[i] == '-'))
        ++i;
    qsizetype digits = 0;
    for (; i < end && isDigit(text[i]); ++i)
        ++digits;
    if (i < end && text[i] == '.') {
        for (++i; i < end && isDigit(text[i]); ++i)
            ++digits;
    }
    if (digits == 0)
        return false;
    if (i < end && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < end && (text[i] == '+' || text[i] == '-'))
            ++i;
        const qsizetype from = i;
        while (i < end && isDigit(text[i]))
            ++i;
        if (i == from)
            return false;
    }
    if (i != end)
        return false;
    // Beyond what a double holds, a spreadsheet takes it for text, or for a formula.
    bool fits = false;
    text.toByteArray().trimmed().toDouble(&fits);
    return fits;
}

bool startsAsFormula(QByteArrayView text) {
    if (text.isEmpty())
        return false;
    switch (text[0]) {
    case '=':
    case '+':
    case '-':
    case '@':
    case '\t':
    case '\r':
        return !isNumber(text);
    default:
        return false;
    }
}

bool needsQuotes(QByteArrayView text) {
    for (const char c : text) {
        if (c == '"' || c == ',' || c == '\r' || c == '\n')
            return true;
    }
    return false;
}
} // namespace

void appendCsvField(QByteArray& out, QByteArrayView utf8) {
    const bool quoted = needsQuotes(utf8);
    if (quoted)
        out += '"';
    if (startsAsFormula(utf8))
        out += '\'';
    if (!quoted) {
        out += utf8;
        return;
    }
    for (const char c : utf8) {
        if (c == '"')
            out += '"';
        out += c;
    }
    out += '"';
}

void appendCsvRow(QByteArray& out, const QStringList& fields) {
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i > 0)
            out += ',';
        appendCsvField(out, fields.at(i).toUtf8());
    }
    out += "\r\n";
}
