// A plain text file loaded into the record grid (the data file viewer loads its plain copy so):
// whatever loads, exported in the same format and loaded again, gives the same grid.

#include "fuzz_support.h"
#include "platform/record_grid.h"

namespace {
// The viewer's own format first, then the other layouts the grid is given.
GridTextFormat formatOf(uint8_t choice) {
    GridTextFormat format;
    switch (choice % 4) {
    case 0:
        format.columnTitles = true;
        break;
    case 1:
        break;
    case 2:
        format.columnDelimiter = QStringLiteral("\t");
        format.rowDelimiter = QStringLiteral("\n");
        format.cellDelimiter = QStringLiteral("\"");
        break;
    default:
        format.columnDelimiter = QStringLiteral(";");
        format.cellDelimiter = QStringLiteral("\"");
        format.columnTitles = true;
        break;
    }
    return format;
}

bool sameGrid(const RecordGridModel& a, const RecordGridModel& b, bool titles) {
    if (a.rowCount() != b.rowCount() || a.columnCount() != b.columnCount())
        return false;
    for (int c = 0; c < a.columnCount(); ++c) {
        if (titles && a.columnTitle(c) != b.columnTitle(c))
            return false;
        for (int r = 0; r < a.rowCount(); ++r) {
            if (a.text(r, c) != b.text(r, c))
                return false;
        }
    }
    return true;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    const GridTextFormat format = formatOf(data[0]);
    const QString in = scratchFolder() + QStringLiteral("/in.txt");
    const QString out = scratchFolder() + QStringLiteral("/out.txt");
    writeBytes(in, inputBytes(data + 1, size - 1));
    RecordGridModel first;
    if (!first.loadText(in, format))
        return 0;
    require(first.exportText(out, format), "a grid that loaded is exported");
    RecordGridModel second;
    require(second.loadText(out, format), "an export loads");
    require(sameGrid(first, second, format.columnTitles), "loaded, exported and loaded again, "
                                                          "the grid is the same");
    return 0;
}
