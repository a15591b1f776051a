#pragma once

#include "plant_store.h"

#include <QString>

// tags.tgn: single-byte text (Latin-1, so that every byte reads back as it was), 192 rows of six
// lines, three rows per controller, CRLF line ends, numbers in their print form (" 5 "). No header,
// no version mark.

// The print form of a number: a blank in place of the sign when positive, and a blank after.
QString numberPrintForm(long long value);

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
