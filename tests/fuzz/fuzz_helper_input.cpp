// What the setgid password helper reads on its standard input, from whoever runs it. The input is
// taken exactly when it is a user name that is not empty, a NUL, a password and a NUL, and the
// parts found are those; nothing at or past the input's end is read (the bytes lie in a block of
// exactly that size, so AddressSanitizer sees any such read).

#include "fuzz_support.h"
#include "platform/helper_input.h"

#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto bytes = std::make_unique<char[]>(size);
    if (size > 0)
        std::memcpy(bytes.get(), data, size);
    const char* end = bytes.get() + size;
    const char* firstNul = static_cast<const char*>(std::memchr(bytes.get(), 0, size));
    const char* secondNul =
        firstNul
            ? static_cast<const char*>(std::memchr(firstNul + 1, 0, size_t(end - firstNul - 1)))
            : nullptr;
    const bool wellFormed = firstNul && firstNul != bytes.get() && firstNul + 1 < end && secondNul;

    HelperInput input;
    const bool taken = splitHelperInput(bytes.get(), size, &input);
    require(taken == wellFormed, "the input is taken exactly when it has its two parts");
    if (taken) {
        require(input.user == bytes.get() && input.password == firstNul + 1,
                "the parts are the name before the first NUL and the text after it");
    }
    return 0;
}
