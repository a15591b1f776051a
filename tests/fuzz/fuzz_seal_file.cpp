// Seal files and record files from outside (an inspector's copy): a file sealed as the helper
// seals it is intact, and any single line of the record file or entry of the seal file changed,
// removed, duplicated or moved is not, and is named at its line. The input gives the lines, how
// many lines each signature closes, the kind of damage and where; the keys are fixed, so that
// every input replays alike.

#include "fuzz_support.h"
#include "platform/seal_core.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {
const std::string kSite(16, '\x5a');
const std::string kName = "Log Files/fuzz.slg";
constexpr int64_t kTime = 1773489600; // 2026-03-14 12:00 UTC

struct Sealed {
    seal::DayChain days;
    std::vector<std::string> record;
    std::vector<std::string> seals;
    // The record line each seal file line is about: its own, or a signature's last.
    std::vector<size_t> lineOf;
};

Sealed sealLines(std::vector<std::string> record, size_t round) {
    const auto verification = seal::keyPairFromSecret(seal::sha256("fuzz verification"));
    const auto day = seal::keyPairFromSecret(seal::sha256("fuzz day"));
    require(verification && day, "fixed keys are keys");
    seal::DayEntry entry{1, seal::utcDate(kTime), day->publicKey, {}};
    entry.signature = *seal::sign(verification->secret, seal::dayMessage(kSite, entry));
    Sealed out;
    out.days = seal::checkDays(kSite, verification->publicKey, {seal::formatDay(entry)});
    require(out.days.fault.empty(), "a day key made as the helper makes it follows");
    out.seals.push_back(seal::formatFileHeader(kSite, kName));
    out.lineOf.push_back(1);
    std::string link;
    for (size_t i = 0; i < record.size(); ++i) {
        const int64_t time = kTime + int64_t(i);
        seal::SealEntry e =
            seal::SealEntry::line(int64_t(i + 1), time, "fuzz", seal::sha256(record[i]));
        link = *seal::chainEntry(kSite, kName, e, link);
        out.seals.push_back(seal::formatSeal(e));
        out.lineOf.push_back(i + 1);
        if ((i + 1) % round == 0 || i + 1 == record.size()) {
            seal::SealEntry v = seal::SealEntry::signedBy(1, time);
            link = *seal::chainEntry(kSite, kName, v, link, day->secret);
            out.seals.push_back(seal::formatSeal(v));
            out.lineOf.push_back(i + 1);
        }
    }
    out.record = std::move(record);
    return out;
}

// Line p of a list changed, removed, duplicated or moved to q.
void damage(std::vector<std::string>& lines, int kind, size_t p, size_t q, uint8_t flip) {
    switch (kind) {
    case 0: {
        std::string& line = lines[p];
        const size_t at = flip % line.size();
        line[at] = line[at] == '0' ? '1' : '0';
        break;
    }
    case 1:
        lines.erase(lines.begin() + long(p));
        break;
    case 2:
        lines.insert(lines.begin() + long(p) + 1, lines[p]);
        break;
    default: {
        const std::string moved = lines[p];
        lines.erase(lines.begin() + long(p));
        lines.insert(lines.begin() + long(q), moved);
        break;
    }
    }
}

// Whether a finding names a line ("line N", "lines N..M" around it, "lines N and M") or, with
// word "entr", a seal entry ("seal entry N", "seal entries N..M").
bool names(const std::string& finding, size_t n, const std::string& word = "line") {
    for (size_t at = finding.find(word); at != std::string::npos; at = finding.find(word, at + 1)) {
        size_t i = at + word.size();
        while (i < finding.size() && finding[i] >= 'a' && finding[i] <= 'z')
            ++i;
        if (finding.compare(i, 6, " from ") == 0)
            i += 5;
        if (i >= finding.size() || finding[i] != ' ')
            continue;
        auto number = [&](size_t& k) {
            size_t value = 0;
            const size_t start = k;
            while (k < finding.size() && finding[k] >= '0' && finding[k] <= '9')
                value = value * 10 + size_t(finding[k++] - '0');
            return k > start ? value : 0;
        };
        const size_t first = number(++i);
        size_t last = first;
        if (finding.compare(i, 2, "..") == 0) {
            i += 2;
            last = number(i);
        } else if (finding.compare(i, 5, " and ") == 0) {
            i += 5;
            last = number(i);
        }
        if (first && n >= first && n <= last)
            return true;
    }
    return false;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5)
        return 0;
    // Lines from the rest of the input, cut at each 0 byte; each made unique by its number, so
    // that a moved or duplicated line is not the same as another.
    std::vector<std::string> record;
    std::string line;
    for (size_t i = 5; i < size && record.size() < 40; ++i) {
        if (data[i] == 0 || data[i] == '\n') {
            record.push_back(std::to_string(record.size() + 1) + ":" + line);
            line.clear();
        } else {
            line += char(data[i]);
        }
    }
    record.push_back(std::to_string(record.size() + 1) + ":" + line);
    Sealed sealed = sealLines(record, 1 + data[4] % 8);
    const seal::FileCheck whole =
        seal::checkFile(kSite, sealed.days, kName, sealed.record, sealed.seals);
    require(whole.intact && whole.findings.empty() && whole.lines == int64_t(record.size()),
            "a file sealed as the helper seals it is intact");

    const int kind = data[0] % 4;
    const bool inSeals = (data[0] & 4) != 0;
    std::vector<std::string>& target = inSeals ? sealed.seals : sealed.record;
    // A seal file's first line is its header.
    const size_t first = inSeals ? 1 : 0;
    const size_t count = target.size() - first;
    const size_t p = first + data[1] % count;
    const size_t q = first + data[2] % count;
    if (kind == 3 && (p == q || count < 2))
        return 0;
    damage(target, kind, p, q, data[3]);
    const seal::FileCheck check =
        seal::checkFile(kSite, sealed.days, kName, sealed.record, sealed.seals);
    require(!check.intact && !check.findings.empty(), "a damaged file or seal file is not intact");
    // The first finding names the first line that differs (or, for a seal entry taken away or
    // moved, the line after the gap it leaves).
    const size_t at = kind == 3 ? std::min(p, q) : p;
    const size_t line1 = inSeals ? sealed.lineOf[at] : at + 1;
    const std::string& finding = check.findings.front();
    // A seal entry changed within a round is found by the round's signature: the finding
    // names the entries that signature covers.
    const bool named = names(finding, line1) || names(finding, line1 + 1) ||
                       (kind == 1 && !inSeals && names(finding, line1 - 1)) ||
                       (inSeals && (names(finding, at, "entr") || names(finding, at - 1, "entr")));
    if (!named)
        std::fprintf(stderr, "damage %d%s at %zu (line %zu): %s\n", kind,
                     inSeals ? " in seals" : "", at, line1, finding.c_str());
    require(named, "the damage is named at its line");
    return 0;
}
