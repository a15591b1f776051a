// tags.tgn from outside: a refused file leaves the plant as it was, and a file that reads is
// written back to bytes that read the same, which written again do not change.

#include "fuzz_support.h"
#include "plant/tag_file.h"

namespace {
// The plant as it is when made.
struct Plant {
    decltype(gTagTable) table = gTagTable;
    ControllerColumns columns;
    bool operator==(const Plant&) const = default;
};

// What the workstation reads from the table: the identity columns, every tag and which channels
// are logged. Number cells are written in their print form, so their text may change.
bool readsTheSame(const Plant& a, const Plant& b) {
    for (int r = 0; r < kTagRows; ++r) {
        if (a.table[r][2] != b.table[r][2] || isLoggedRow(a.table[r]) != isLoggedRow(b.table[r]))
            return false;
    }
    return a.columns == b.columns;
}

// A plant of both families with logged channels, as the controller setup writes it and the
// reader reads it: where every input starts.
void readKnownPlant() {
    const QString path = scratchFolder() + QStringLiteral("/known.tgn");
    static const bool written = [&path] {
        resetPlantStore();
        enableSamplePlant({0, 1, 5, 63});
        tagTableFromStore();
        gTagTable[0][5] = numberPrintForm(1);
        return writeTagFile(path);
    }();
    resetPlantStore();
    require(written && readTagFile(path), "the known plant is written and reads");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString& dir = scratchFolder();
    readKnownPlant();
    const Plant before;
    writeBytes(dir + QStringLiteral("/in.tgn"), inputBytes(data, size));
    if (!readTagFile(dir + QStringLiteral("/in.tgn"))) {
        require(Plant() == before, "a refused file leaves the store as it was");
        return 0;
    }
    const Plant first;
    require(writeTagFile(dir + QStringLiteral("/once.tgn")), "a plant that read is written");
    require(readTagFile(dir + QStringLiteral("/once.tgn")), "what was written reads");
    require(readsTheSame(first, Plant()), "written back, the file reads the same");
    require(writeTagFile(dir + QStringLiteral("/twice.tgn")), "a plant that read is written");
    require(readBytes(dir + QStringLiteral("/once.tgn")) ==
                readBytes(dir + QStringLiteral("/twice.tgn")),
            "write(read(x)) is a fixed point");
    return 0;
}
