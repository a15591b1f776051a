#pragma once

// The password helper's input: the user name, a NUL, the password, a NUL. Plain C++ over libc,
// since the helper runs it with the shadow group.

#include <cstring>

struct HelperInput {
    const char* user = nullptr;     // points into the input, ended by its NUL
    const char* password = nullptr; // likewise
};

// Both parts found within the length bytes of input, the user name not empty; else false. Never
// reads at or past input + length.
inline bool splitHelperInput(const char* input, size_t length, HelperInput* out) {
    const size_t userLength = strnlen(input, length);
    if (userLength == 0 || userLength >= length)
        return false;
    const char* password = input + userLength + 1;
    const size_t passwordLength = strnlen(password, length - userLength - 1);
    if (userLength + 1 + passwordLength >= length)
        return false;
    *out = HelperInput{input, password};
    return true;
}
