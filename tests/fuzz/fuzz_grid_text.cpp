// A plain text file loaded into the record grid (the data file viewer loads its plain copy so):
// whatever loads, exported in the same format and loaded again, gives the same grid.

#include "fuzz_support.h"
#include "platform/record_grid.h"

#include <array>

namespace {
// The viewer's own format (0) first, then the other layouts the grid is given.
GridTextFormat formatOf(uint8_t choice) {
    const std::array<GridTextFormat, 4> formats{
        {{",", "\r\n", "", true}, {}, {"\t", "\n", "\"", false}, {";", "\r\n", "\"", true}}};
    return formats[choice % 4];
}

bool sameGrid(const RecordGridModel& a, const RecordGridModel& b, bool titles) {
    bool same = a.rowCount() == b.rowCount() && a.columnCount() == b.columnCount();
    for (int c = 0; same && c < a.columnCount(); ++c) {
        same = !titles || a.columnTitle(c) == b.columnTitle(c);
        for (int r = 0; same && r < a.rowCount(); ++r)
            same = a.text(r, c) == b.text(r, c);
    }
    return same;
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
