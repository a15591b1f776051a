#include "seal_core.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <memory>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <unordered_map>

namespace seal {
namespace {
constexpr size_t kKeyBytes = 32;
constexpr size_t kSignatureBytes = 64;
constexpr size_t kHashBytes = 32;
constexpr size_t kSiteBytes = 16;
// Past this many findings a file is reported as "and more": a file altered throughout says so
// in a screen, not in 86,400 lines.
constexpr size_t kMostFindings = 100;
// How far the check looks ahead for a removed or an added line.
constexpr int64_t kLookAhead = 1000;

struct PkeyDeleter {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
};
struct MdContextDeleter {
    void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyDeleter>;
using MdContextPtr = std::unique_ptr<EVP_MD_CTX, MdContextDeleter>;

const unsigned char* bytes(std::string_view s) {
    return reinterpret_cast<const unsigned char*>(s.data());
}

std::vector<std::string_view> fields(std::string_view line) {
    std::vector<std::string_view> out;
    size_t at = 0;
    while (at <= line.size()) {
        const size_t space = line.find(' ', at);
        out.push_back(
            line.substr(at, space == std::string_view::npos ? std::string_view::npos : space - at));
        if (space == std::string_view::npos)
            break;
        at = space + 1;
    }
    return out;
}

// A whole decimal number with no sign, no blank and no leading zero.
std::optional<int64_t> number(std::string_view text) {
    if (text.empty() || text.size() > 18 || (text.size() > 1 && text[0] == '0'))
        return std::nullopt;
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

bool isDate(std::string_view text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-')
        return false;
    for (const int i : {0, 1, 2, 3, 5, 6, 8, 9})
        if (text[size_t(i)] < '0' || text[size_t(i)] > '9')
            return false;
    return true;
}

bool isAccount(std::string_view text) {
    return !text.empty() && text.size() <= 64 && accountField(text) == text;
}

std::string field(int64_t value) {
    return std::to_string(value) + '\n';
}
} // namespace

std::string toHex(std::string_view data) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(data.size() * 2);
    for (const unsigned char c : data) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

std::optional<std::string> fromHex(std::string_view hex, size_t size) {
    if (hex.size() != size * 2)
        return std::nullopt;
    auto nibble = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        return -1;
    };
    std::string out(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        const int high = nibble(hex[2 * i]);
        const int low = nibble(hex[2 * i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        out[i] = static_cast<char>(high * 16 + low);
    }
    return out;
}

std::string sha256(std::string_view data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(data.data(), data.size(), digest, &size, EVP_sha256(), nullptr) != 1)
        return {};
    return std::string(reinterpret_cast<const char*>(digest), size);
}

// A key's raw 32 bytes, its secret or its public half.
static std::optional<std::string> rawKey(const EVP_PKEY* key, bool secret) {
    std::string raw(kKeyBytes, '\0');
    size_t size = raw.size();
    auto* out = reinterpret_cast<unsigned char*>(raw.data());
    const int got = secret ? EVP_PKEY_get_raw_private_key(key, out, &size)
                           : EVP_PKEY_get_raw_public_key(key, out, &size);
    if (got != 1 || size != kKeyBytes)
        return std::nullopt;
    return raw;
}

std::optional<KeyPair> keyPairFromSecret(std::string_view secret) {
    if (secret.size() != kKeyBytes)
        return std::nullopt;
    const PkeyPtr key(
        EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, bytes(secret), secret.size()));
    const std::optional<std::string> publicKey = key ? rawKey(key.get(), false) : std::nullopt;
    if (!publicKey)
        return std::nullopt;
    return KeyPair{std::string(secret), *publicKey};
}

std::optional<std::string> randomBytes(size_t size) {
    std::string out(size, '\0');
    if (size > 4096 || RAND_bytes(reinterpret_cast<unsigned char*>(out.data()), int(size)) != 1)
        return std::nullopt;
    return out;
}

std::optional<KeyPair> newKeyPair() {
    const PkeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    const std::optional<std::string> secret = key ? rawKey(key.get(), true) : std::nullopt;
    return secret ? keyPairFromSecret(*secret) : std::nullopt;
}

std::optional<std::string> sign(std::string_view secret, std::string_view message) {
    if (secret.size() != kKeyBytes)
        return std::nullopt;
    // The helper signs line after line with one day key: the key is set up once, which costs
    // as much as a signature.
    static std::string cachedSecret;
    static PkeyPtr cachedKey;
    if (!cachedKey || cachedSecret != secret) {
        cachedKey.reset(
            EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, bytes(secret), secret.size()));
        cachedSecret = std::string(secret);
    }
    const MdContextPtr context(EVP_MD_CTX_new());
    if (!cachedKey || !context ||
        EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, cachedKey.get()) != 1)
        return std::nullopt;
    std::string signature(kSignatureBytes, '\0');
    size_t size = signature.size();
    if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                       bytes(message), message.size()) != 1 ||
        size != kSignatureBytes)
        return std::nullopt;
    return signature;
}

bool verify(std::string_view publicKey, std::string_view message, std::string_view signature) {
    if (publicKey.size() != kKeyBytes || signature.size() != kSignatureBytes)
        return false;
    const PkeyPtr key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytes(publicKey), publicKey.size()));
    const MdContextPtr context(EVP_MD_CTX_new());
    if (!key || !context ||
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1)
        return false;
    return EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(message),
                            message.size()) == 1;
}

std::string dayMessage(std::string_view site, const DayEntry& day) {
    return "sorvantel day key 1\n" + toHex(site) + '\n' + field(day.index) + day.date + '\n' +
           toHex(day.publicKey) + '\n';
}

std::string chainLink(std::string_view message, std::string_view signature) {
    return sha256(std::string(message) + std::string(signature));
}

std::string sealMessage(std::string_view site, std::string_view fileName, const SealEntry& entry,
                        std::string_view previousLink) {
    const bool gap = entry.kind == SealEntry::Kind::Gap;
    std::string m = gap ? "sorvantel gap 1\n" : "sorvantel seal 1\n";
    m += toHex(site) + '\n';
    m += std::string(fileName) + '\n';
    m += field(entry.first);
    if (gap)
        m += field(entry.last);
    m += field(entry.time);
    m += entry.account + '\n';
    if (!gap)
        m += toHex(entry.lineHash) + '\n';
    m += field(entry.day);
    m += (previousLink.empty() ? std::string("-") : toHex(previousLink)) + '\n';
    return m;
}

std::optional<std::string> signEntry(std::string_view site, std::string_view fileName,
                                     SealEntry& entry, std::string_view previousLink,
                                     std::string_view daySecret) {
    const std::string message = sealMessage(site, fileName, entry, previousLink);
    const std::optional<std::string> signature = sign(daySecret, message);
    if (!signature)
        return std::nullopt;
    entry.signature = *signature;
    return chainLink(message, *signature);
}

std::string formatDay(const DayEntry& day) {
    return "D " + std::to_string(day.index) + ' ' + day.date + ' ' + toHex(day.publicKey) + ' ' +
           toHex(day.signature);
}

std::optional<DayEntry> parseDay(std::string_view line) {
    const std::vector<std::string_view> f = fields(line);
    if (f.size() != 5 || f[0] != "D" || !isDate(f[2]))
        return std::nullopt;
    const auto index = number(f[1]);
    const auto publicKey = fromHex(f[3], kKeyBytes);
    const auto signature = fromHex(f[4], kSignatureBytes);
    if (!index || *index < 1 || *index > 1000000 || !publicKey || !signature)
        return std::nullopt;
    return DayEntry{int(*index), std::string(f[2]), *publicKey, *signature};
}

std::string formatSeal(const SealEntry& e) {
    if (e.kind == SealEntry::Kind::Gap)
        return "G " + std::to_string(e.first) + ' ' + std::to_string(e.last) + ' ' +
               std::to_string(e.time) + ' ' + e.account + ' ' + std::to_string(e.day) + ' ' +
               toHex(e.signature);
    return "S " + std::to_string(e.first) + ' ' + std::to_string(e.time) + ' ' + e.account + ' ' +
           toHex(e.lineHash) + ' ' + std::to_string(e.day) + ' ' + toHex(e.signature);
}

std::optional<SealEntry> parseSeal(std::string_view line) {
    const std::vector<std::string_view> f = fields(line);
    SealEntry e;
    std::optional<int64_t> first, last, time, day;
    std::optional<std::string> signature;
    if (f.size() == 7 && f[0] == "S") {
        first = last = number(f[1]);
        time = number(f[2]);
        e.account = std::string(f[3]);
        const auto hash = fromHex(f[4], kHashBytes);
        if (!hash)
            return std::nullopt;
        e.lineHash = *hash;
        day = number(f[5]);
        signature = fromHex(f[6], kSignatureBytes);
    } else if (f.size() == 7 && f[0] == "G") {
        e.kind = SealEntry::Kind::Gap;
        first = number(f[1]);
        last = number(f[2]);
        time = number(f[3]);
        e.account = std::string(f[4]);
        day = number(f[5]);
        signature = fromHex(f[6], kSignatureBytes);
    } else {
        return std::nullopt;
    }
    if (!first || !last || !time || !day || !signature || *first < 1 || *last < *first ||
        *day < 1 || *day > 1000000 || !isAccount(e.account))
        return std::nullopt;
    e.first = *first;
    e.last = *last;
    e.time = *time;
    e.day = int(*day);
    e.signature = *signature;
    return e;
}

std::string formatFileHeader(std::string_view site, std::string_view fileName) {
    return "F " + toHex(site) + ' ' + std::string(fileName);
}

std::optional<std::pair<std::string, std::string>> parseFileHeader(std::string_view line) {
    if (line.size() < 2 + 2 * kSiteBytes + 2 || line.substr(0, 2) != "F " ||
        line[2 + 2 * kSiteBytes] != ' ')
        return std::nullopt;
    const auto site = fromHex(line.substr(2, 2 * kSiteBytes), kSiteBytes);
    if (!site)
        return std::nullopt;
    return std::pair{*site, std::string(line.substr(3 + 2 * kSiteBytes))};
}

std::string utcDate(int64_t time) {
    const std::time_t t = static_cast<std::time_t>(time);
    std::tm parts{};
    if (!gmtime_r(&t, &parts) || parts.tm_year < -1900 || parts.tm_year > 9999 - 1900)
        return {};
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday);
    return text;
}

std::string sealFileName(std::string_view fileName) {
    return toHex(sha256(fileName)).substr(0, 32) + ".seal";
}

std::string accountField(std::string_view account) {
    std::string out(account.substr(0, 64));
    for (char& c : out) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
        if (!plain)
            c = '_';
    }
    return out.empty() ? std::string("_") : out;
}

DayChain checkDays(std::string_view site, std::string_view verificationKey,
                   const std::vector<std::string>& dayLines) {
    DayChain chain;
    std::string signer(verificationKey);
    std::string previousDate;
    for (size_t i = 0; i < dayLines.size(); ++i) {
        const std::string where = "day key entry " + std::to_string(i + 1);
        const std::optional<DayEntry> day = parseDay(dayLines[i]);
        if (!day) {
            chain.fault = where + " damaged";
            break;
        }
        if (day->index != int(i) + 1 || (!previousDate.empty() && day->date <= previousDate)) {
            chain.fault = where + " out of order";
            break;
        }
        if (!verify(signer, dayMessage(site, *day), day->signature)) {
            chain.fault = where + " not certified by the key before it";
            break;
        }
        chain.days.push_back(*day);
        signer = day->publicKey;
        previousDate = day->date;
    }
    return chain;
}

namespace {
// The sealed lines of a chain: the hash of each line from 1, empty for a line of a gap.
struct Sealed {
    std::vector<std::string> hashes;
    std::vector<std::string> accounts;
    int64_t lastSeal = 0;
};

void note(FileCheck& check, FileCheck::Severity severity, std::string finding) {
    check.worst = std::max(check.worst, severity);
    if (check.findings.size() < kMostFindings)
        check.findings.push_back(std::move(finding));
    else if (check.findings.size() == kMostFindings)
        check.findings.push_back("and more");
}

std::string lines(int64_t first, int64_t last) {
    return first == last ? "line " + std::to_string(first)
                         : "lines " + std::to_string(first) + ".." + std::to_string(last);
}

// Walks the chain; a finding stops it, since no entry after a broken one can be trusted. Each
// entry's message holds the link of the one before it, so the signature of the last entry a day
// key made vouches for every entry up to it: only those are checked, and the entries one by one
// only when one of them fails, to name the entry.
Sealed walkChain(std::string_view site, const DayChain& days, std::string_view fileName,
                 const std::vector<std::string>& sealLines, FileCheck& check) {
    struct Walked {
        SealEntry entry;
        std::string message;
    };
    std::vector<Walked> walked;
    std::string link;
    for (size_t i = 1; i < sealLines.size(); ++i) {
        const int64_t next = walked.empty() ? 1 : walked.back().entry.last + 1;
        const std::optional<SealEntry> e = parseSeal(sealLines[i]);
        if (!e) {
            note(check, FileCheck::Damaged,
                 "seal entry " + std::to_string(i) + " damaged: seals of lines from " +
                     std::to_string(next) + " on cannot be checked");
            break;
        }
        if (e->day > int(days.days.size())) {
            note(check, FileCheck::Mismatch,
                 "seal of " + lines(e->first, e->last) +
                     " by a day key the store has not certified");
            break;
        }
        const DayEntry& day = days.days[size_t(e->day - 1)];
        if (utcDate(e->time) != day.date) {
            note(check, FileCheck::Mismatch,
                 "seal of " + lines(e->first, e->last) + " dated " + utcDate(e->time) +
                     " by the key of " + day.date);
            break;
        }
        if (e->first > next) {
            note(check, FileCheck::Mismatch,
                 "seals missing: " + lines(next, e->first - 1) + " without a seal entry");
            break;
        }
        if (e->first < next) {
            note(check, FileCheck::Mismatch,
                 "seal entry " + std::to_string(i) + " (" + lines(e->first, e->last) +
                     ") repeats or goes back in the chain");
            break;
        }
        std::string message = sealMessage(site, fileName, *e, link);
        link = chainLink(message, e->signature);
        walked.push_back({*e, std::move(message)});
    }
    auto good = [&](size_t k) {
        const Walked& w = walked[k];
        return verify(days.days[size_t(w.entry.day - 1)].publicKey, w.message, w.entry.signature);
    };
    size_t trusted = walked.size();
    size_t segmentStart = 0;
    for (size_t k = 0; k < walked.size(); ++k) {
        const bool endsItsDay =
            k + 1 == walked.size() || walked[k + 1].entry.day != walked[k].entry.day;
        if (!endsItsDay)
            continue;
        if (good(k)) {
            segmentStart = k + 1;
            continue;
        }
        // Each entry's message holds the link of the one before, so from the first entry that
        // was changed on, no signature holds: the first that fails is found by halving.
        size_t bad = segmentStart;
        for (size_t last = k; bad < last;) {
            const size_t mid = bad + (last - bad) / 2;
            if (good(mid))
                bad = mid + 1;
            else
                last = mid;
        }
        note(check, FileCheck::Mismatch,
             "seal entry " + std::to_string(bad + 1) + " (" +
                 lines(walked[bad].entry.first, walked[bad].entry.last) +
                 ") altered, removed or moved: seals from there on cannot be checked");
        trusted = bad;
        break;
    }
    Sealed sealed;
    for (size_t k = 0; k < trusted; ++k) {
        const SealEntry& e = walked[k].entry;
        for (int64_t n = e.first; n <= e.last; ++n) {
            sealed.hashes.push_back(e.kind == SealEntry::Kind::Line ? e.lineHash : std::string());
            sealed.accounts.push_back(e.account);
        }
        if (e.kind == SealEntry::Kind::Gap)
            note(check, FileCheck::Incomplete,
                 lines(e.first, e.last) + " written while sealing was away (a gap " +
                     "recorded by " + e.account + ", not a forgery)");
        sealed.lastSeal = e.time;
    }
    return sealed;
}
} // namespace

FileCheck checkFile(std::string_view site, const DayChain& days, std::string_view fileName,
                    const std::vector<std::string>& recordLines,
                    const std::vector<std::string>& sealLines) {
    FileCheck check;
    check.lines = int64_t(recordLines.size());
    if (sealLines.empty()) {
        note(check, FileCheck::Incomplete, "seals missing: the store has no seals of this file");
        return check;
    }
    const auto header = parseFileHeader(sealLines[0]);
    if (!header) {
        note(check, FileCheck::Damaged, "its seal file is damaged");
        return check;
    }
    if (header->first != site) {
        note(check, FileCheck::Mismatch, "sealed by another installation");
        return check;
    }
    if (header->second != fileName) {
        note(check, FileCheck::Mismatch,
             "its seal file is that of another file (" + header->second + ")");
        return check;
    }
    const Sealed sealed = walkChain(site, days, fileName, sealLines, check);
    check.lastSeal = sealed.lastSeal;

    std::vector<std::string> hashes;
    hashes.reserve(recordLines.size());
    for (const std::string& line : recordLines)
        hashes.push_back(sha256(line));
    const auto& h = sealed.hashes;
    const int64_t m = int64_t(hashes.size());
    const int64_t n = int64_t(h.size());
    auto by = [&](int64_t j) {
        return " (sealed by " + sealed.accounts[size_t(j)] + ")";
    };
    int64_t i = 0; // the record file's lines
    int64_t j = 0; // the sealed lines
    while (i < m && j < n) {
        if (h[size_t(j)].empty() || hashes[size_t(i)] == h[size_t(j)]) {
            ++i;
            ++j;
            continue;
        }
        if (i + 1 < m && j + 1 < n && hashes[size_t(i)] == h[size_t(j + 1)] &&
            hashes[size_t(i + 1)] == h[size_t(j)]) {
            note(check, FileCheck::Mismatch,
                 "lines " + std::to_string(j + 1) + " and " + std::to_string(j + 2) + " swapped" +
                     by(j));
            i += 2;
            j += 2;
            continue;
        }
        int64_t removed = 0;
        for (int64_t k = 1; k <= kLookAhead && j + k < n && !removed; ++k)
            if (hashes[size_t(i)] == h[size_t(j + k)])
                removed = k;
        if (removed) {
            note(check, FileCheck::Mismatch, lines(j + 1, j + removed) + " removed" + by(j));
            j += removed;
            continue;
        }
        int64_t added = 0;
        for (int64_t k = 1; k <= kLookAhead && i + k < m && !added; ++k)
            if (hashes[size_t(i + k)] == h[size_t(j)])
                added = k;
        if (added) {
            note(check, FileCheck::Mismatch, lines(i + 1, i + added) + " added");
            i += added;
            continue;
        }
        note(check, FileCheck::Mismatch, "line " + std::to_string(i + 1) + " altered" + by(j));
        ++i;
        ++j;
    }
    if (j < n)
        note(check, FileCheck::Mismatch,
             "file cut short after line " + std::to_string(m) + ": " + lines(j + 1, n) +
                 " sealed but not in the file");
    if (i < m) {
        if (i + 1 == m)
            note(check, FileCheck::Incomplete,
                 "line " + std::to_string(m) +
                     " never sealed (the last line, written as the workstation or its "
                     "sealing stopped)");
        else
            note(check, FileCheck::Incomplete, "seals missing: " + lines(i + 1, m) + " not sealed");
    }
    check.intact = check.findings.empty();
    return check;
}

} // namespace seal
