#pragma once

// The seals of record files: the bytes that are hashed and signed, the text forms of the seal
// store, and the check of a record file against its seals. Plain C++ over libcrypto, with no
// Qt, so that the sealing helper (which runs with rights of its own) and the records tool share
// one definition of the format.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace seal {

// Ed25519 keys in their raw 32-byte forms.
struct KeyPair {
    std::string secret;
    std::string publicKey;
};

std::string toHex(std::string_view bytes);
// Lower-case hexadecimal of an exact length (bytes x 2); nothing for anything else.
std::optional<std::string> fromHex(std::string_view hex, size_t bytes);
std::string sha256(std::string_view bytes);

// Bytes of the system's random source; nothing when it fails.
std::optional<std::string> randomBytes(size_t size);
std::optional<KeyPair> newKeyPair();
std::optional<KeyPair> keyPairFromSecret(std::string_view secret);
std::optional<std::string> sign(std::string_view secret, std::string_view message);
bool verify(std::string_view publicKey, std::string_view message, std::string_view signature);

// A day key: the k-th key of the installation, for one UTC date, certified by key k - 1 (key 0
// is the verification key).
struct DayEntry {
    int index = 0;
    std::string date; // yyyy-mm-dd
    std::string publicKey;
    std::string signature;
    bool operator==(const DayEntry&) const = default;
};

// One entry of a record file's seal chain: a line sealed, a gap of lines that were written
// while no seal could be had, or the signature of every entry before it. Lines and gaps are
// chained by hash as they come; the helper signs the chain at most every few seconds, since a
// signature costs more than the line it would seal.
struct SealEntry {
    enum class Kind { Line, Gap, Signature };
    Kind kind = Kind::Line;
    int64_t first = 0; // the line sealed, or the first line of the gap (from 1)
    int64_t last = 0;  // the same line, or the last line of the gap
    int64_t time = 0;  // seconds since 1970-01-01 UTC
    std::string account;
    std::string lineHash; // raw SHA-256 of the line without its line end (a line's)
    int day = 0;          // the day key that signed (a signature's)
    std::string signature;
    bool operator==(const SealEntry&) const = default;

    static SealEntry line(int64_t n, int64_t time, std::string account, std::string lineHash) {
        return {Kind::Line, n, n, time, std::move(account), std::move(lineHash), 0, {}};
    }
    static SealEntry gap(int64_t first, int64_t last, int64_t time, std::string account) {
        return {Kind::Gap, first, last, time, std::move(account), {}, 0, {}};
    }
    static SealEntry signedBy(int day, int64_t time) {
        return {Kind::Signature, 0, 0, time, {}, {}, day, {}};
    }
};

// The exact bytes of an entry. Each holds the link of the entry before it (empty for the first):
// the SHA-256 of that entry's message followed by its signature, if it has one.
std::string dayMessage(std::string_view site, const DayEntry& day);
std::string sealMessage(std::string_view site, std::string_view fileName, const SealEntry& entry,
                        std::string_view previousLink);
std::string chainLink(std::string_view message, std::string_view signature);

// Takes an entry as the next of a chain whose last link is previousLink, signing it with the day
// key when it is a signature; returns the link the entry after it takes. Nothing when the key
// cannot sign.
std::optional<std::string> chainEntry(std::string_view site, std::string_view fileName,
                                      SealEntry& entry, std::string_view previousLink,
                                      std::string_view daySecret = {});

// The text lines of the store, without their line end.
std::string formatDay(const DayEntry& day);
std::optional<DayEntry> parseDay(std::string_view line);
std::string formatSeal(const SealEntry& entry);
std::optional<SealEntry> parseSeal(std::string_view line);
std::string formatFileHeader(std::string_view site, std::string_view fileName);
// Site and file name of a seal file's first line.
std::optional<std::pair<std::string, std::string>> parseFileHeader(std::string_view line);

// The UTC date of a moment, yyyy-mm-dd.
std::string utcDate(int64_t time);
// A record file's name in the store: what the seal file is called.
std::string sealFileName(std::string_view fileName);
// An account name as a seal entry keeps it: what is not a letter, digit, '.', '_' or '-'
// becomes '_', so that a name cannot break the entry's fields.
std::string accountField(std::string_view account);

// What a workstation asks of the helper, one request a line: line n (from 1) of a record file,
// named as the workstation names it (relative to its folder, "/" between parts), either as the
// line's own bytes, "T <n> <name hex> <line>", which the helper hashes, or as the SHA-256 of
// them, "L <n> <name hex> <hash hex>" (a line too long for the pipe, or one that holds a line
// end). Nothing when the request is not one of these.
struct Request {
    int64_t n = 0;
    std::string fileName;
    std::string lineHash;
};
std::optional<Request> parseRequest(std::string_view text);
// The longest file name a request may carry.
constexpr size_t kLongestName = 1024;

// The day keys of the store checked from the verification key: the public key of each day, in
// order; nothing past the first entry that does not follow.
struct DayChain {
    std::vector<DayEntry> days;
    std::string fault; // empty when every entry followed
};
DayChain checkDays(std::string_view site, std::string_view verificationKey,
                   const std::vector<std::string>& dayLines);

// What the check of one record file against its seal file found.
struct FileCheck {
    // How bad the worst finding is: lines written but not sealed (a gap, the last line of a
    // crash, a file never sealed); a seal file that cannot be read; a file that is not what was
    // sealed, or seals that are not what the helper wrote.
    enum Severity { Intact = 0, Incomplete = 1, Damaged = 3, Mismatch = 4 };
    Severity worst = Intact;
    bool intact = false;
    int64_t lines = 0;                 // lines of the record file
    int64_t lastSeal = 0;              // time of the last seal
    std::vector<std::string> findings; // each "line 4 altered (sealed by jdoe)" and the like
};
// recordLines are the file's lines without their line ends; sealLines the seal file's lines.
FileCheck checkFile(std::string_view site, const DayChain& days, std::string_view fileName,
                    const std::vector<std::string>& recordLines,
                    const std::vector<std::string>& sealLines);

} // namespace seal
