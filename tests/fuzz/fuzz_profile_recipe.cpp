// A profile recipe (.rec) as read after decipherment, one input line a file line: whatever the
// lines, a recipe read writes back to 40 lines that read as the same profile, and a profile whose
// values fit the controller's registers comes back from its register block as it went in, to the
// tenth and the minute.

#include "control/frm_profile.h"
#include "fuzz_support.h"

#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QStringList lines = inputText(data, size).split(u'\n');
    const std::optional<Profile> profile = parseProfileRecipe(lines);
    if (!profile)
        return 0;
    const QStringList written = profileRecipeLines(*profile);
    require(written.size() == 40, "a recipe is 40 lines");
    require(parseProfileRecipe(written) == profile, "written back it reads the same");
    if (const std::optional<QVector<quint16>> block = profileBlock(*profile)) {
        require(block->size() == kProfileRegisters, "a block is 24 registers");
        const Profile back = profileFromBlock(*block);
        require(profileBlock(back) == block, "a block read back writes the same block");
    }
    return 0;
}
