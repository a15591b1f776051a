// What the sealing helper reads from the workstation that started it, one request a line. Any
// input read as a request names a line from 1, a file name that fits a seal entry, and 32 bytes of
// hash: for a whole line, the hash of exactly the bytes after the name. And the input also read as
// the three parts it carries: the request made of them, in either form, reads back to them.

#include "fuzz_support.h"
#include "platform/seal_core.h"

#include <string>
#include <string_view>

namespace {
// "T <n> <name hex> <line>" or "L <n> <name hex> <hash hex>" of the given parts.
std::string request(bool whole, int64_t n, std::string_view name, std::string_view line) {
    return std::string(whole ? "T " : "L ") + std::to_string(n) + ' ' + seal::toHex(name) + ' ' +
           (whole ? std::string(line) : seal::toHex(seal::sha256(line)));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto r = seal::parseRequest(text)) {
        require(r->n >= 1 && r->n < 1000000000000000, "a line number from 1, of 15 digits at most");
        require(!r->fileName.empty() && r->fileName.size() <= seal::kLongestName &&
                    r->fileName.find('\n') == std::string::npos,
                "a file name that fits a seal entry");
        require(r->lineHash.size() == 32, "32 bytes of hash");
        if (text[0] == 'T') {
            const size_t b = text.find(' ', text.find(' ', 2) + 1);
            require(r->lineHash == seal::sha256(text.substr(b + 1)),
                    "a whole line's hash is that of the bytes after its name");
        }
    }
    // The input as parts: a number, a name and a line, cut at its first two NULs.
    const size_t a = text.find('\0');
    const size_t b = a == std::string_view::npos ? a : text.find('\0', a + 1);
    if (b == std::string_view::npos || a == 0 || a > 15)
        return 0;
    int64_t n = 0;
    for (const char c : text.substr(0, a))
        n = n * 10 + (static_cast<unsigned char>(c) % 10);
    const std::string_view name = text.substr(a + 1, b - a - 1);
    const std::string_view line = text.substr(b + 1);
    if (n < 1 || name.empty() || name.size() > seal::kLongestName ||
        name.find('\n') != std::string_view::npos || line.find('\n') != std::string_view::npos)
        return 0;
    for (const bool whole : {true, false}) {
        const auto r = seal::parseRequest(request(whole, n, name, line));
        require(r && r->n == n && r->fileName == name && r->lineHash == seal::sha256(line),
                "a request of its parts reads back to them");
    }
    return 0;
}
