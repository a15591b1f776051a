// A setpoint recipe (.spr) as read after decipherment, one input line a file line: whatever the
// lines, a recipe read has a value and a tick for each of the 64 controllers, and written back it
// reads as the same recipe.

#include "control/frm_single_sp.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QStringList lines = inputText(data, size).split(u'\n');
    const std::optional<SpRecipe> recipe = parseSpRecipe(lines);
    if (!recipe)
        return 0;
    require(recipe->values.size() == kControllerCount && recipe->ticked.size() == kControllerCount,
            "a value and a tick a controller");
    const std::optional<SpRecipe> again = parseSpRecipe(spRecipeLines(*recipe));
    require(again == recipe, "written back it reads the same");
    return 0;
}
