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
    // Fetched once: EVP_sha256() alone makes OpenSSL look the digest up at every call, which
    // costs more than hashing a record line.
    static EVP_MD* const kSha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(data.data(), data.size(), digest, &size, kSha256 ? kSha256 : EVP_sha256(),
                   nullptr) != 1)
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
    std::string m;
    switch (entry.kind) {
    case SealEntry::Kind::Line:
        m = "sorvantel seal 2\n" + toHex(site) + '\n' + std::string(fileName) + '\n' +
            field(entry.first) + field(entry.time) + entry.account + '\n' + toHex(entry.lineHash) +
            '\n';
        break;
    case SealEntry::Kind::Gap:
        m = "sorvantel gap 2\n" + toHex(site) + '\n' + std::string(fileName) + '\n' +
            field(entry.first) + field(entry.last) + field(entry.time) + entry.account + '\n';
        break;
    case SealEntry::Kind::Signature:
        m = "sorvantel signature 2\n" + toHex(site) + '\n' + std::string(fileName) + '\n' +
            field(entry.time) + field(entry.day);
        break;
    }
    return m + (previousLink.empty() ? std::string("-") : toHex(previousLink)) + '\n';
}

std::optional<std::string> chainEntry(std::string_view site, std::string_view fileName,
                                      SealEntry& entry, std::string_view previousLink,
                                      std::string_view daySecret) {
    const std::string message = sealMessage(site, fileName, entry, previousLink);
    entry.signature.clear();
    if (entry.kind == SealEntry::Kind::Signature) {
        const std::optional<std::string> signature = sign(daySecret, message);
        if (!signature)
            return std::nullopt;
        entry.signature = *signature;
    }
    return chainLink(message, entry.signature);
}

std::optional<Request> parseRequest(std::string_view text) {
    const size_t a = text.find(' ', 2);
    const size_t b = a == std::string_view::npos ? a : text.find(' ', a + 1);
    if (text.size() < 6 || (text.substr(0, 2) != "L " && text.substr(0, 2) != "T ") ||
        b == std::string_view::npos)
        return std::nullopt;
    const std::string_view digits = text.substr(2, a - 2);
    if (digits.empty() || digits.size() > 15 || digits[0] == '0' ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    Request r;
    for (const char c : digits)
        r.n = r.n * 10 + (c - '0');
    const std::string_view nameHex = text.substr(a + 1, b - a - 1);
    const std::string_view rest = text.substr(b + 1);
    const auto name = fromHex(nameHex, nameHex.size() / 2);
    if (!name || name->empty() || name->size() > kLongestName ||
        name->find('\n') != std::string::npos)
        return std::nullopt;
    r.fileName = *name;
    if (text[0] == 'T') {
        if (rest.find('\n') != std::string_view::npos)
            return std::nullopt;
        r.lineHash = sha256(rest);
    } else if (const auto hash = fromHex(rest, kHashBytes)) {
        r.lineHash = *hash;
    } else {
        return std::nullopt;
    }
    return r;
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
    switch (e.kind) {
    case SealEntry::Kind::Gap:
        return "G " + std::to_string(e.first) + ' ' + std::to_string(e.last) + ' ' +
               std::to_string(e.time) + ' ' + e.account;
    case SealEntry::Kind::Signature:
        return "V " + std::to_string(e.time) + ' ' + std::to_string(e.day) + ' ' +
               toHex(e.signature);
    case SealEntry::Kind::Line:
        break;
    }
    return "S " + std::to_string(e.first) + ' ' + std::to_string(e.time) + ' ' + e.account + ' ' +
           toHex(e.lineHash);
}

std::optional<SealEntry> parseSeal(std::string_view line) {
    const std::vector<std::string_view> f = fields(line);
    SealEntry e;
    std::optional<int64_t> first, last, time;
    if (f.size() == 5 && f[0] == "S") {
        first = last = number(f[1]);
        time = number(f[2]);
        e.account = std::string(f[3]);
        const auto hash = fromHex(f[4], kHashBytes);
        if (!hash)
            return std::nullopt;
        e.lineHash = *hash;
    } else if (f.size() == 5 && f[0] == "G") {
        e.kind = SealEntry::Kind::Gap;
        first = number(f[1]);
        last = number(f[2]);
        time = number(f[3]);
        e.account = std::string(f[4]);
    } else if (f.size() == 4 && f[0] == "V") {
        e.kind = SealEntry::Kind::Signature;
        time = number(f[1]);
        const auto day = number(f[2]);
        const auto signature = fromHex(f[3], kSignatureBytes);
        if (!time || !day || *day < 1 || *day > 1000000 || !signature)
            return std::nullopt;
        e.time = *time;
        e.day = int(*day);
        e.signature = *signature;
        return e;
    } else {
        return std::nullopt;
    }
    if (!first || !last || !time || *first < 1 || *last < *first || !isAccount(e.account))
        return std::nullopt;
    e.first = *first;
    e.last = *last;
    e.time = *time;
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
    // Lines chained after the last signature: sealed, but vouched for by nothing yet.
    int64_t unsignedFirst = 0;
    int64_t unsignedLast = 0;
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

struct Walked {
    SealEntry entry;
    std::string message;
};

// The lines that entries from..to (indexes of the walk) seal.
std::string linesOf(const std::vector<Walked>& walked, size_t from, size_t to) {
    int64_t first = 0;
    int64_t last = 0;
    for (size_t k = from; k <= to && k < walked.size(); ++k) {
        if (walked[k].entry.kind == SealEntry::Kind::Signature)
            continue;
        first = first ? first : walked[k].entry.first;
        last = walked[k].entry.last;
    }
    if (first)
        return lines(first, last);
    // Signatures alone: named by the line they follow.
    for (size_t k = std::min(from, walked.size()); k-- > 0;)
        if (walked[k].entry.kind != SealEntry::Kind::Signature)
            return "after line " + std::to_string(walked[k].entry.last);
    return "before line 1";
}

// Walks the chain; a finding stops it, since no entry after a broken one can be trusted. Each
// entry's message holds the link of the one before it, so a signature vouches for every entry
// up to it, and the last signature of each day key for the whole day: only those are checked,
// and the day's signatures one by one only when it fails, to find where the chain was changed.
Sealed walkChain(std::string_view site, const DayChain& days, std::string_view fileName,
                 const std::vector<std::string>& sealLines, FileCheck& check) {
    std::vector<Walked> walked;
    std::vector<size_t> signatures; // the walk's indexes of its signatures
    std::string link;
    int64_t next = 1;
    size_t run = 0; // the first entry after the last signature
    bool broken = false;
    for (size_t i = 1; i < sealLines.size() && !broken; ++i) {
        const std::optional<SealEntry> e = parseSeal(sealLines[i]);
        broken = true;
        if (!e && i + 1 == sealLines.size()) {
            // The last entry cut short by a crash of the helper or the machine: its lines were
            // never answered, and are not sealed.
            note(check, FileCheck::Incomplete,
                 "seal entry " + std::to_string(i) + " cut short (written as sealing stopped)");
            continue;
        } else if (!e) {
            note(check, FileCheck::Damaged,
                 "seal entry " + std::to_string(i) + " damaged: seals of lines from " +
                     std::to_string(next) + " on cannot be checked");
            continue;
        } else if (e->kind == SealEntry::Kind::Signature) {
            if (e->day > int(days.days.size())) {
                note(check, FileCheck::Mismatch,
                     "seal of " + linesOf(walked, run, walked.size()) +
                         " signed by a day key the store has not certified");
                continue;
            }
            const std::string& date = days.days[size_t(e->day - 1)].date;
            size_t stray = run; // the first entry it signs that is not of its key's day
            while (stray < walked.size() && utcDate(walked[stray].entry.time) == date)
                ++stray;
            if (stray < walked.size()) {
                note(check, FileCheck::Mismatch,
                     "seal of " + linesOf(walked, stray, stray) + " dated " +
                         utcDate(walked[stray].entry.time) + " by the key of " + date);
                continue;
            }
            if (utcDate(e->time) != date) {
                note(check, FileCheck::Mismatch,
                     "signature of " + linesOf(walked, run, walked.size()) + " dated " +
                         utcDate(e->time) + " by the key of " + date);
                continue;
            }
            signatures.push_back(walked.size());
        } else if (e->first > next) {
            note(check, FileCheck::Mismatch,
                 "seals missing: " + lines(next, e->first - 1) + " without a seal entry");
            continue;
        } else if (e->first < next) {
            note(check, FileCheck::Mismatch,
                 "seal entry " + std::to_string(i) + " (" + lines(e->first, e->last) +
                     ") repeats or goes back in the chain");
            continue;
        } else {
            next = e->last + 1;
        }
        broken = false;
        std::string message = sealMessage(site, fileName, *e, link);
        link = chainLink(message, e->signature);
        walked.push_back({*e, std::move(message)});
        if (e->kind == SealEntry::Kind::Signature)
            run = walked.size();
    }
    auto good = [&](size_t s) {
        const Walked& w = walked[signatures[s]];
        return verify(days.days[size_t(w.entry.day - 1)].publicKey, w.message, w.entry.signature);
    };
    size_t trusted = 0; // entries vouched for by a good signature
    size_t dayStart = 0;
    bool forged = false;
    for (size_t s = 0; s < signatures.size() && !forged; ++s) {
        const bool endsItsDay = s + 1 == signatures.size() || walked[signatures[s + 1]].entry.day !=
                                                                  walked[signatures[s]].entry.day;
        if (!endsItsDay)
            continue;
        if (good(s)) {
            dayStart = s + 1;
            trusted = signatures[s] + 1;
            continue;
        }
        // From the first entry that was changed on, no signature holds: the first that fails
        // is found by halving, and the change lies among the entries it signed.
        size_t bad = dayStart;
        for (size_t last = s; bad < last;) {
            const size_t mid = bad + (last - bad) / 2;
            if (good(mid))
                bad = mid + 1;
            else
                last = mid;
        }
        const size_t from = bad == 0 ? 0 : signatures[bad - 1] + 1;
        note(check, FileCheck::Mismatch,
             "seal entries " + std::to_string(from + 1) + ".." +
                 std::to_string(signatures[bad] + 1) + " (" +
                 linesOf(walked, from, signatures[bad]) +
                 ") altered, removed or moved: seals from there on cannot be checked");
        trusted = from;
        forged = true;
    }
    Sealed sealed;
    for (size_t k = 0; k < trusted; ++k) {
        const SealEntry& e = walked[k].entry;
        if (e.kind == SealEntry::Kind::Signature) {
            sealed.lastSeal = e.time;
            continue;
        }
        for (int64_t n = e.first; n <= e.last; ++n) {
            sealed.hashes.push_back(e.kind == SealEntry::Kind::Line ? e.lineHash : std::string());
            sealed.accounts.push_back(e.account);
        }
        if (e.kind == SealEntry::Kind::Gap)
            note(check, FileCheck::Incomplete,
                 lines(e.first, e.last) + " written while sealing was away (a gap " +
                     "recorded by " + e.account + ", not a forgery)");
    }
    if (!broken && !forged && trusted < walked.size()) {
        sealed.unsignedFirst = walked[trusted].entry.first;
        sealed.unsignedLast = walked.back().entry.last;
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
    int64_t from = i + 1; // the first line of the file no trusted seal covers
    if (from <= m && sealed.unsignedFirst == from) {
        const int64_t to = std::min(m, sealed.unsignedLast);
        note(check, FileCheck::Incomplete,
             lines(from, to) +
                 " sealed but not yet signed (the helper signs within seconds, unless it "
                 "stopped first)");
        from = to + 1;
    }
    if (from == m)
        note(check, FileCheck::Incomplete,
             "line " + std::to_string(m) +
                 " never sealed (the last line, written as the workstation or its "
                 "sealing stopped)");
    else if (from < m)
        note(check, FileCheck::Incomplete, "seals missing: " + lines(from, m) + " not sealed");
    check.intact = check.findings.empty();
    return check;
}

} // namespace seal
