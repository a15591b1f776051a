#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QStringList>

// The one writer of the workstation's exports (the data, audit and alarm grids, and
// sorvantel-records): comma-separated text as RFC 4180 has it, rows ended by CR LF, in UTF-8
// behind a byte order mark. Spreadsheets on Windows read a file without the mark in the
// machine's ANSI code page and garble every name with an accent; with it they, LibreOffice and
// Python's utf-8-sig all read UTF-8.
//
// Record lines are free text that anybody at the workstation can type (an operator message, a
// signature comment), so an export must never hand a spreadsheet a formula: a text cell that
// begins with "=", "+", "-", "@", a tab or a carriage return gets an apostrophe in front, which a
// spreadsheet shows as text. A number ("-2.5", "+3e-4") stays as it is. A field holding a double
// quote, a comma or a line break is quoted, its quotes doubled.

inline constexpr QByteArrayView kCsvByteOrderMark("\xEF\xBB\xBF");

// One field, from its UTF-8 text.
void appendCsvField(QByteArray& out, QByteArrayView utf8);
// The fields joined by commas, then CR LF.
void appendCsvRow(QByteArray& out, const QStringList& fields);
