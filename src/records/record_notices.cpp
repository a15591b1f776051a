#include "record_notices.h"

RecordNotices& recordNotices() {
    static RecordNotices notices;
    return notices;
}
