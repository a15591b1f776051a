// A tuning file (.tun) as read after decipherment, one input line a file line: whatever the
// lines, a setup read writes back to 11 lines that read as the same setup.

#include "control/frm_tune_settings.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QStringList lines = inputText(data, size).split(u'\n');
    const std::optional<TuneSetup> setup = parseTuneFile(lines);
    if (!setup)
        return 0;
    require(lines.size() <= 12, "no more than 12 lines read");
    require(setup->tickMs >= 0 && setup->tickMs <= 65535, "an interval a timer takes");
    const QStringList written = tuneFileLines(*setup);
    require(written.size() == 11, "a tuning file is 11 lines");
    require(parseTuneFile(written) == setup, "written back it reads the same");
    return 0;
}
