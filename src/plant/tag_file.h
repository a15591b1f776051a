#pragma once

#include "plant_store.h"

#include <QStringList>
#include <optional>

// tags.tgn: single-byte text (Latin-1, so that every byte reads back as it was), 192 rows of six
// lines, three rows per controller, CRLF line ends, numbers in their print form (" 5 "). No header,
// no version mark. The project files hold the same table in the same form.

using TagTable = std::array<std::array<QString, kTagColumns>, kTagRows>;
inline constexpr int kTagLines = kTagRows * kTagColumns;
inline constexpr int kTagColumnText = 2;

// The print form of a number: a blank in place of the sign when positive, and a blank after.
QString numberPrintForm(long long value);

// The lines of a single-byte text file. CR LF or a bare LF (a file edited elsewhere) ends a line;
// every CR is dropped, since the writers drop it from a cell and a cell read with one would not
// read back. A last line without its line end counts.
QStringList textFileLines(const QByteArray& bytes);
// The cell as one line of a file, its line end included: a line break inside it would shift every
// later line, so none is kept.
QByteArray cellLine(QString text);

// Why a cell is not the number asked for.
enum class NumberFault { None, NotANumber, OutOfRange };
// The number a cell holds as a numeric conversion reads it: " 1 ", "1" and "1.0" are all 1, and a
// fraction rounds half to even. Nothing for text that is no number or a number beyond the range.
std::optional<int> wholeNumber(const QString& text, int min = -32768, int max = 32767,
                               NumberFault* fault = nullptr);

// Copies the lines in order into the table, row by row, as far as they go; returns the number of
// cells filled.
int fillTagTable(TagTable& table, const QStringList& lines);

// Who each controller is, as the PV row of its three gives it: the enable flag (column 1 equals
// 1), the family (column 4), the log channel (column 5). The other rows' copies do not count.
struct ControllerIdentity {
    ControllerColumn<bool> enabled{};
    ControllerColumn<qint16> type{};
    ControllerColumn<qint16> logChannel{};
};
struct CellFault {
    int row = 0;
    int column = 0;
    NumberFault kind = NumberFault::None;
};
// Nothing, with the first cell at fault, when a flag is no number or a family or log channel will
// not fit 16 bits.
std::optional<ControllerIdentity> controllerIdentity(const TagTable& table,
                                                     CellFault* fault = nullptr);
// The store's identity columns and tags from the table.
void applyControllerIdentity(const TagTable& table, const ControllerIdentity& identity);

// Reads the file into gTagTable and fills the identity columns of the plant store from the PV
// row of each controller. False, with the store's tag table unchanged, for a missing or short file
// or a flag that is not a number.
bool readTagFile(const QString& path, QString* error = nullptr);

// Writes gTagTable; the number columns in their print form, the tag text as it stands. The file is
// replaced whole, so a crash while writing leaves the previous file.
bool writeTagFile(const QString& path, QString* error = nullptr);

// Fills gTagTable from the identity columns of the store (tags, enable flag, type), keeping the
// log flags already in the table for enabled controllers and clearing those of the others.
void tagTableFromStore();

// The row's channel is one the data logger writes (its sixth column holds 1, in any number form
// the reader takes: " 1 ", "1.0").
bool isLoggedRow(const std::array<QString, kTagColumns>& row);
