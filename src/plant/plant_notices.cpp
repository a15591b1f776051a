#include "plant_notices.h"

PlantNotices& plantNotices() {
    static PlantNotices notices;
    return notices;
}
