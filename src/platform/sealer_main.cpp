// sorvantel-sealer: seals record lines for the workstation. Installed set-user-id to an account
// of its own, so that it alone writes the seal store and reads the day key; the accounts that
// run the workstation can ask for seals and nothing else. Plain C++ over libc and libcrypto.
//
//   sorvantel-sealer init    makes the store and prints the verification key, once
//   sorvantel-sealer serve   seals the lines asked for on standard input until it closes
//
// It takes nothing from its caller but the lines to seal: the store, the clock and the keys are
// its own, and the account named in each seal is the caller's real user.

#include "seal_core.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <optional>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {
constexpr size_t kSiteBytes = 16;
// A request: "L <line number> <file name in hex> <SHA-256 of the line in hex>".
constexpr size_t kLongestRequest = 1u << 16;
constexpr size_t kLongestName = 1024;

std::string storePath() {
#ifdef SORVANTEL_SEAL_TEST
    // The test build's store and clock come from its environment; the installed helper's never.
    if (const char* store = std::getenv("SORVANTEL_SEAL_STORE"))
        return store;
#endif
    return SORVANTEL_SEAL_STORE;
}

int64_t now() {
#ifdef SORVANTEL_SEAL_TEST
    if (const char* clockFile = std::getenv("SORVANTEL_SEAL_CLOCK_FILE")) {
        if (FILE* f = std::fopen(clockFile, "r")) {
            long long t = 0;
            const int read = std::fscanf(f, "%lld", &t);
            std::fclose(f);
            if (read == 1)
                return t;
        }
    }
#endif
    return static_cast<int64_t>(std::time(nullptr));
}

std::optional<std::string> readFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    std::string out;
    char buffer[65536];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            close(fd);
            if (n < 0)
                return std::nullopt;
            return out;
        }
        out.append(buffer, size_t(n));
    }
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t at = 0;
    while (at < text.size()) {
        const size_t end = text.find('\n', at);
        if (end == std::string::npos) {
            lines.push_back(text.substr(at));
            break;
        }
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

bool writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += size_t(n);
    }
    return true;
}

bool syncFolder(const std::string& folder) {
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = fsync(fd) == 0;
    close(fd);
    return ok;
}

// Replaces a file whole: a crash leaves the old one or the new one, never half of either.
bool replaceFile(const std::string& folder, const std::string& name, const std::string& bytes) {
    const std::string temporary = folder + "/." + name + ".new";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    const bool written = writeAll(fd, bytes) && fsync(fd) == 0;
    close(fd);
    return written && rename(temporary.c_str(), (folder + "/" + name).c_str()) == 0 &&
           syncFolder(folder);
}

// One line onto the end of a file, on the disk before it returns.
bool appendLine(const std::string& path, const std::string& line) {
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = writeAll(fd, line + "\n") && fdatasync(fd) == 0;
    close(fd);
    return ok;
}

// The same onto a file kept open.
bool appendLine(int fd, const std::string& line) {
    return writeAll(fd, line + "\n") && fdatasync(fd) == 0;
}

struct DayKey {
    int index = 0;
    std::string date;
    std::string secret;
};

std::optional<DayKey> parseKey(const std::string& text) {
    char date[16] = {};
    char hex[80] = {};
    int index = 0;
    if (std::sscanf(text.c_str(), "K %d %10s %64s", &index, date, hex) != 3 || index < 1)
        return std::nullopt;
    const auto secret = seal::fromHex(hex, 32);
    if (!secret)
        return std::nullopt;
    return DayKey{index, date, *secret};
}

std::string formatKey(const DayKey& key) {
    return "K " + std::to_string(key.index) + ' ' + key.date + ' ' + seal::toHex(key.secret) + "\n";
}

// A record file's chain as the helper left it: where the next line goes, the link it takes, and
// its seal file, kept open for the next seal.
struct Chain {
    int64_t next = 1;
    std::string link;
    int fd = -1;
};

class Store {
public:
    explicit Store(std::string folder) : m_folder(std::move(folder)) {}

    bool open(std::string* why) {
        const auto site = readFile(m_folder + "/site");
        const auto key = readFile(m_folder + "/key");
        const std::vector<std::string> lines =
            site ? splitLines(*site) : std::vector<std::string>{};
        if (lines.size() < 3 || lines[0] != "SORVANTEL-SEALS 1") {
            *why = "no seal store at " + m_folder;
            return false;
        }
        const auto id = seal::fromHex(lines[1], kSiteBytes);
        const auto parsedKey = key ? parseKey(*key) : std::nullopt;
        if (!id || !parsedKey) {
            *why = "the seal store at " + m_folder + " is damaged";
            return false;
        }
        m_site = *id;
        m_key = *parsedKey;
        return true;
    }

    // The store of a new installation: its site, the first day key certified by a verification
    // key whose secret never reaches the disk, and that key's public half. Nothing when the
    // store cannot be made.
    std::optional<std::string> create(int64_t time) {
        const auto verification = seal::newKeyPair();
        const auto first = seal::newKeyPair();
        const auto random = seal::randomBytes(kSiteBytes);
        if (!verification || !first || !random)
            return std::nullopt;
        const std::string site = *random;
        seal::DayEntry day{1, seal::utcDate(time), first->publicKey, {}};
        const auto signature = seal::sign(verification->secret, seal::dayMessage(site, day));
        if (!signature)
            return std::nullopt;
        day.signature = *signature;
        mkdir((m_folder + "/files").c_str(), 0700);
        if (!replaceFile(m_folder, "days", seal::formatDay(day) + "\n") ||
            !replaceFile(m_folder, "key", formatKey({1, day.date, first->secret})) ||
            !replaceFile(m_folder, "site",
                         "SORVANTEL-SEALS 1\n" + seal::toHex(site) + "\n" +
                             seal::toHex(verification->publicKey) + "\n"))
            return std::nullopt;
        return seal::toHex(verification->publicKey);
    }

    // Seals line n of a file by its hash, recording first a gap for the lines it never heard of.
    std::string seal(const std::string& fileName, int64_t n, const std::string& lineHash,
                     const std::string& account) {
        const int64_t time = now();
        const std::string date = seal::utcDate(time);
        if (date < m_key.date)
            return "the clock stands before the day of the key";
        if (date > m_key.date && !nextDay(date))
            return "no key for the new day";
        Chain* chain = chainOf(fileName);
        if (!chain)
            return "the seal file cannot be read or made";
        if (n < chain->next)
            return "line already sealed";
        std::string lines;
        std::string link = chain->link;
        if (n > chain->next) {
            seal::SealEntry gap{
                seal::SealEntry::Kind::Gap, chain->next, n - 1, time, account, {}, m_key.index, {}};
            const auto next = seal::signEntry(m_site, fileName, gap, link, m_key.secret);
            if (!next)
                return "the day key cannot sign";
            link = *next;
            lines += seal::formatSeal(gap) + "\n";
        }
        seal::SealEntry entry{
            seal::SealEntry::Kind::Line, n, n, time, account, lineHash, m_key.index, {}};
        const auto next = seal::signEntry(m_site, fileName, entry, link, m_key.secret);
        if (!next)
            return "the day key cannot sign";
        lines += seal::formatSeal(entry);
        if (!appendLine(chain->fd, lines))
            return "the seal cannot be written";
        chain->next = n + 1;
        chain->link = *next;
        return {};
    }

private:
    // The first seal of a new day: its key, certified by the key of the day before, whose secret
    // is then gone from the store.
    bool nextDay(const std::string& date) {
        const auto fresh = seal::newKeyPair();
        if (!fresh)
            return false;
        seal::DayEntry day{m_key.index + 1, date, fresh->publicKey, {}};
        const auto signature = seal::sign(m_key.secret, seal::dayMessage(m_site, day));
        if (!signature)
            return false;
        day.signature = *signature;
        const DayKey key{day.index, date, fresh->secret};
        if (!appendLine(m_folder + "/days", seal::formatDay(day)) ||
            !replaceFile(m_folder, "key", formatKey(key)))
            return false;
        m_key = key;
        return true;
    }

    Chain* chainOf(const std::string& fileName) {
        if (auto it = m_chains.find(fileName); it != m_chains.end())
            return &it->second;
        const std::string path = m_folder + "/files/" + seal::sealFileName(fileName);
        Chain chain;
        if (const auto text = readFile(path)) {
            // A last entry cut by a crash was never answered: it goes, and the line it would
            // have sealed is sealed again or recorded as a gap.
            const size_t whole = text->rfind('\n');
            if (whole + 1 != text->size() &&
                truncate(path.c_str(), off_t(whole == std::string::npos ? 0 : whole + 1)) != 0)
                return nullptr;
            const std::vector<std::string> lines =
                splitLines(text->substr(0, whole == std::string::npos ? 0 : whole + 1));
            if (lines.empty()) {
                if (!startFile(path, fileName))
                    return nullptr;
            } else {
                const auto header = seal::parseFileHeader(lines[0]);
                if (!header || header->first != m_site || header->second != fileName)
                    return nullptr;
                for (size_t i = 1; i < lines.size(); ++i) {
                    const auto e = seal::parseSeal(lines[i]);
                    if (!e)
                        return nullptr;
                    chain.link = seal::chainLink(
                        seal::sealMessage(m_site, fileName, *e, chain.link), e->signature);
                    chain.next = e->last + 1;
                }
            }
        } else if (errno != ENOENT || !startFile(path, fileName)) {
            return nullptr;
        }
        chain.fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (chain.fd < 0)
            return nullptr;
        return &m_chains.emplace(fileName, chain).first->second;
    }

    bool startFile(const std::string& path, const std::string& fileName) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0)
            return false;
        const bool ok =
            writeAll(fd, seal::formatFileHeader(m_site, fileName) + "\n") && fsync(fd) == 0;
        close(fd);
        return ok && syncFolder(m_folder + "/files");
    }

    std::string m_folder;
    std::string m_site;
    DayKey m_key;
    std::map<std::string, Chain> m_chains;
};

std::string callerAccount() {
    const passwd* pw = getpwuid(getuid());
    return seal::accountField(pw && pw->pw_name ? pw->pw_name : "uid" + std::to_string(getuid()));
}

bool reply(const std::string& text) {
    return writeAll(STDOUT_FILENO, text + "\n");
}

// "L <n> <name hex> <hash hex>": the line number from 1, the record file's name as the
// workstation names it (relative to its folder, "/" between parts) and the SHA-256 of the line's
// bytes without the line end.
bool parseRequest(const std::string& request, int64_t* n, std::string* name, std::string* hash) {
    const size_t a = request.find(' ', 2);
    const size_t b = a == std::string::npos ? a : request.find(' ', a + 1);
    if (request.size() < 6 || request.compare(0, 2, "L ") != 0 || b == std::string::npos)
        return false;
    const std::string number = request.substr(2, a - 2);
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(number.c_str(), &end, 10);
    if (number.empty() || number.size() > 15 || *end != '\0' || errno != 0 || value < 1 ||
        !std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    const std::string nameHex = request.substr(a + 1, b - a - 1);
    const std::string lineHex = request.substr(b + 1);
    const auto decodedName = seal::fromHex(nameHex, nameHex.size() / 2);
    const auto decodedHash = seal::fromHex(lineHex, 32);
    if (!decodedName || !decodedHash || decodedName->empty() ||
        decodedName->size() > kLongestName || decodedName->find('\n') != std::string::npos)
        return false;
    *n = value;
    *name = *decodedName;
    *hash = *decodedHash;
    return true;
}

int serve(Store& store) {
    const std::string account = callerAccount();
    std::string pending;
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return 0;
        pending.append(buffer, size_t(got));
        size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            const std::string request = pending.substr(0, end);
            pending.erase(0, end + 1);
            int64_t n = 0;
            std::string name, hash;
            if (!parseRequest(request, &n, &name, &hash)) {
                reply("ER 0 request not understood");
                continue;
            }
            const std::string why = store.seal(name, n, hash, account);
            reply(why.empty() ? "OK " + std::to_string(n) : "ER " + std::to_string(n) + ' ' + why);
        }
        if (pending.size() > kLongestRequest) {
            reply("ER 0 request too long");
            return 2;
        }
    }
}
} // namespace

int main(int argc, char** argv) {
    umask(077);
    const std::string command = argc == 2 ? argv[1] : "";
    Store store(storePath());
    std::string why;
    if (command == "init") {
        if (store.open(&why)) {
            const auto site = readFile(storePath() + "/site");
            const std::vector<std::string> lines = splitLines(site.value_or(""));
            std::printf("The seal store at %s is kept. Its verification key:\n%s\n",
                        storePath().c_str(), lines.size() > 2 ? lines[2].c_str() : "");
            return 0;
        }
        const auto key = store.create(now());
        if (!key) {
            std::fprintf(stderr, "sorvantel-sealer: the seal store at %s cannot be made: %s\n",
                         storePath().c_str(), std::strerror(errno));
            return 1;
        }
        std::printf("Seal store made at %s. The verification key, to keep away from this "
                    "machine:\n%s\n",
                    storePath().c_str(), key->c_str());
        return 0;
    }
    if (command == "serve") {
        if (!store.open(&why)) {
            reply("ER 0 " + why);
            return 3;
        }
        reply("READY");
        return serve(store);
    }
    std::fprintf(stderr, "usage: sorvantel-sealer init|serve\n");
    return 2;
}
