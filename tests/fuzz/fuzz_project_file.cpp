// A project file from outside (.svt): a refused file leaves the store's controller columns and
// the options as they were, with the tag table holding what the file gave before its fault; a
// file that reads is written back to bytes that read the same, which written again do not change.

#include "displays/project_file.h"
#include "fuzz_support.h"
#include "plant/scan_controller.h"
#include "records/data_logger.h"

#include <QTimer>

namespace {
// The store's controller columns and the options, as they are when made.
struct Store {
    ControllerColumns columns;
    ProjectOptions options = currentProjectOptions();
    bool operator==(const Store&) const = default;
};

// A plant of both families and options away from their start values, so that a read that set
// nothing would show.
void knownPlant(ScanController& scan) {
    resetPlantStore();
    resetDataLogger();
    enableSamplePlant({0, 4, 63});
    tagTableFromStore();
    gSaveInterval = 9;
    gAutoLog = 1;
    gComBeep = true;
    scan.timer2()->setInterval(321);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ScanController scan;
    const QString& dir = scratchFolder();
    knownPlant(scan);
    const Store before;
    const QByteArray bytes = inputBytes(data, size).toByteArray();
    writeBytes(dir + QStringLiteral("/in.svt"), bytes);
    auto parsed = std::make_unique<TagTable>(gTagTable);
    const std::optional<Project> project = parseProjectText(bytes, *parsed);

    if (!loadProjectFile(dir + QStringLiteral("/in.svt"))) {
        require(!project, "the file and its text are refused alike");
        require(Store() == before, "a refused file leaves the controller columns and options");
        require(gTagTable == *parsed, "a refused file leaves in the table what it gave");
        return 0;
    }
    require(project.has_value(), "the file and its text are read alike");
    const Store first;
    require(first.options == project->options, "the options are the file's");
    const auto table = std::make_unique<TagTable>(gTagTable);
    require(writeProjectFile(dir + QStringLiteral("/once.svt")), "a project that read is written");
    knownPlant(scan);
    require(loadProjectFile(dir + QStringLiteral("/once.svt")), "what was written reads");
    require(Store() == first && gTagTable == *table, "written back, the file reads the same");
    require(writeProjectFile(dir + QStringLiteral("/twice.svt")), "a project that read is written");
    require(readBytes(dir + QStringLiteral("/once.svt")) ==
                readBytes(dir + QStringLiteral("/twice.svt")),
            "write(read(x)) is a fixed point");
    return 0;
}
