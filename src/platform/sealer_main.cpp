// sorvantel-sealer: seals record lines for the workstation. Installed set-user-id to an account
// of its own, so that it alone writes the seal store and reads the day key; the accounts that
// run the workstation can ask for seals and nothing else. Plain C++ over libc and libcrypto.
//
//   sorvantel-sealer init    makes the store and prints the verification key, once
//   sorvantel-sealer serve   seals the lines asked for on standard input until it closes
//
// It takes nothing from its caller but the lines to seal: the store, the clock and the keys are
// its own, and the account named in each seal is the caller's real user.
//
// A signature costs more than logging the line it seals, so the helper seals in rounds: it takes
// the lines that come within a round, chains them by hash and signs each file's chain once at
// the round's end, then answers. Nothing is answered before it is signed and written; the
// workstation hands lines that were never answered to the next helper it starts.

#include "seal_core.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <optional>
#include <poll.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {
constexpr size_t kSiteBytes = 16;
// The longest request taken (seal::parseRequest says what one holds); longer input ends the helper.
constexpr size_t kLongestRequest = 1u << 16;
// How long lines gather before they are signed: at one line a second a signature for each line
// would cost more than the logging. A workstation that closes wakes the helper (SIGTERM), which
// then signs what it took and ends.
constexpr int kRoundMs = 30000;
volatile std::sig_atomic_t gEnding = 0;
// A workstation whose pipe is full asks for the round to end now (SIGUSR1).
volatile std::sig_atomic_t gFull = 0;

int roundMs() {
#ifdef SORVANTEL_SEAL_TEST
    if (const char* ms = std::getenv("SORVANTEL_SEAL_ROUND_MS"))
        return std::atoi(ms);
#endif
    return kRoundMs;
}

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

// A record file's chain: where the next line goes and the link it takes, the entries taken in
// this round and not yet written, and what is signed on the disk, to fall back to when the
// round cannot be written. Its seal file is kept open.
struct Chain {
    int64_t next = 1;
    std::string link;
    std::string taken;
    int64_t lastTaken = 0; // the time of the last entry taken
    int64_t signedNext = 1;
    std::string signedLink;
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

    // Takes line n of a file by its hash into the round, after a gap for the lines it never
    // heard of. The first line of a new day ends the round of the day before: that day's key
    // signs it and then goes.
    std::string take(const std::string& fileName, int64_t n, const std::string& lineHash,
                     const std::string& account) {
        const int64_t time = now();
        const std::string date = seal::utcDate(time);
        if (date < m_key.date)
            return "the clock stands before the day of the key";
        if (date > m_key.date && !(signAll() && nextDay(date)))
            return "no key for the new day";
        Chain* chain = chainOf(fileName);
        if (!chain)
            return "the seal file cannot be read or made";
        if (n < chain->next)
            return "line already sealed";
        if (n > chain->next) {
            seal::SealEntry gap = seal::SealEntry::gap(chain->next, n - 1, time, account);
            chain->link = *seal::chainEntry(m_site, fileName, gap, chain->link);
            chain->taken += seal::formatSeal(gap) + "\n";
        }
        seal::SealEntry entry = seal::SealEntry::line(n, time, account, lineHash);
        chain->link = *seal::chainEntry(m_site, fileName, entry, chain->link);
        chain->taken += seal::formatSeal(entry) + "\n";
        chain->next = n + 1;
        chain->lastTaken = time;
        return {};
    }

    // Ends the round of every file: a signature after its lines, on the disk. A file whose
    // round could not be written is back where it was signed; its lines were not sealed.
    bool signAll() {
        bool all = true;
        for (auto& [name, chain] : m_chains)
            all = signRound(name, chain) && all;
        return all;
    }

    // On the disk before the helper ends.
    void syncAll() {
        for (auto& entry : m_chains)
            fdatasync(entry.second.fd);
    }

    // Whether line n of a file is signed on the disk, since the last forget().
    bool isSigned(const std::string& fileName, int64_t n) const {
        const auto chain = m_chains.find(fileName);
        if (chain == m_chains.end() || n >= chain->second.signedNext)
            return false;
        const auto lost = m_lost.find(fileName);
        return lost == m_lost.end() ||
               std::none_of(lost->second.begin(), lost->second.end(),
                            [n](const auto& r) { return n >= r.first && n <= r.second; });
    }
    void forget() { m_lost.clear(); }

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

    bool signRound(const std::string& fileName, Chain& chain) {
        if (chain.taken.empty())
            return true;
        // Dated as its last line, so that a round is signed by the key of its own day.
        seal::SealEntry signature = seal::SealEntry::signedBy(m_key.index, chain.lastTaken);
        const auto link = seal::chainEntry(m_site, fileName, signature, chain.link, m_key.secret);
        const off_t before = lseek(chain.fd, 0, SEEK_END);
        // Not synced: a round survives a crash of any process as the record lines do, and a
        // failure of the machine costs at most the seals the system had not yet written back,
        // whose lines a check then names not sealed. A sync a round would cost more than the
        // logging at one line a second.
        const bool written = link && before >= 0 &&
                             writeAll(chain.fd, chain.taken + seal::formatSeal(signature) + "\n");
        chain.taken.clear();
        if (!written) {
            m_lost[fileName].emplace_back(chain.signedNext, chain.next - 1);
            if (before >= 0 && ftruncate(chain.fd, before) == 0)
                fdatasync(chain.fd);
            chain.next = chain.signedNext;
            chain.link = chain.signedLink;
            return false;
        }
        chain.link = chain.signedLink = *link;
        chain.signedNext = chain.next;
        return true;
    }

    Chain* chainOf(const std::string& fileName) {
        if (auto it = m_chains.find(fileName); it != m_chains.end())
            return &it->second;
        const std::string path = m_folder + "/files/" + seal::sealFileName(fileName);
        Chain chain;
        if (const auto text = readFile(path)) {
            // What follows the last signature was never answered (a helper stopped mid-round, or
            // an entry cut by a crash): it goes, and the workstation hands its lines over again.
            const std::vector<std::string> lines = splitLines(*text);
            size_t keep = 0; // bytes up to the end of the last signature
            size_t at = 0;
            if (lines.empty()) {
                if (!startFile(path, fileName))
                    return nullptr;
            } else {
                const auto header = seal::parseFileHeader(lines[0]);
                if (!header || header->first != m_site || header->second != fileName)
                    return nullptr;
                at = keep = lines[0].size() + 1;
                std::string link;
                int64_t next = 1;
                for (size_t i = 1; i < lines.size(); ++i) {
                    at += lines[i].size() + 1;
                    if (at > text->size())
                        break; // cut short by a crash
                    const auto e = seal::parseSeal(lines[i]);
                    if (!e)
                        return nullptr;
                    link = seal::chainLink(seal::sealMessage(m_site, fileName, *e, link),
                                           e->signature);
                    if (e->kind != seal::SealEntry::Kind::Signature) {
                        next = e->last + 1;
                        continue;
                    }
                    keep = at;
                    chain.link = link;
                    chain.next = next;
                }
            }
            if (keep < text->size() && truncate(path.c_str(), off_t(keep)) != 0)
                return nullptr;
        } else if (errno != ENOENT || !startFile(path, fileName)) {
            return nullptr;
        }
        chain.signedLink = chain.link;
        chain.signedNext = chain.next;
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
    // Lines of each file taken in this round whose round could not be written.
    std::map<std::string, std::vector<std::pair<int64_t, int64_t>>> m_lost;
};

std::string callerAccount() {
    const passwd* pw = getpwuid(getuid());
    return seal::accountField(pw && pw->pw_name ? pw->pw_name : "uid" + std::to_string(getuid()));
}

bool reply(const std::string& text) {
    return writeAll(STDOUT_FILENO, text + "\n");
}

// Reads what standard input holds; false at its end or when it fails. With wait, blocks until
// something comes.
bool readInput(std::string& pending, bool wait) {
    char buffer[65536];
    for (;;) {
        pollfd in{STDIN_FILENO, POLLIN, 0};
        const int ready = poll(&in, 1, wait ? -1 : 0);
        if (ready < 0 && errno == EINTR && gEnding)
            return false;
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0)
            return true;
        const ssize_t got = ready < 0 ? -1 : read(STDIN_FILENO, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        pending.append(buffer, size_t(got));
        wait = false;
    }
}

void pauseMs(int ms) {
    timespec left{ms / 1000, long(ms % 1000) * 1000000L};
    while (!gEnding && !gFull && nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
    gFull = 0;
}

int serve(Store& store) {
    const std::string account = callerAccount();
    struct Request {
        int64_t n = 0;
        std::string name;
        std::string refused; // why it was not taken
    };
    std::vector<Request> round;
    std::string pending;
    auto takeAll = [&] {
        size_t at = 0;
        for (size_t end; (end = pending.find('\n', at)) != std::string::npos; at = end + 1) {
            Request r;
            const auto request = seal::parseRequest(std::string_view(pending).substr(at, end - at));
            if (!request)
                r = {0, {}, "request not understood"};
            else
                r = {request->n, request->fileName,
                     store.take(request->fileName, request->n, request->lineHash, account)};
            round.push_back(std::move(r));
        }
        pending.erase(0, at);
        return pending.size() <= kLongestRequest;
    };
    // Whether the round before took lines: while they keep coming the helper sleeps from round
    // to round and wakes once a round; an idle one waits for the next line.
    bool busy = false;
    for (bool open = true; open;) {
        bool sane = true;
        if (!busy || roundMs() <= 0) {
            open = readInput(pending, true);
            sane = takeAll();
        }
        // The round: what comes in the next while is signed together with these lines.
        if (open && sane && (busy || !round.empty()) && roundMs() > 0) {
            pauseMs(roundMs());
            open = readInput(pending, false);
            sane = takeAll();
        }
        busy = !round.empty();
        store.signAll();
        std::string answers;
        for (const Request& r : round) {
            const std::string n = std::to_string(r.n);
            if (r.refused.empty() && !store.isSigned(r.name, r.n))
                answers += "ER " + n + " the seal cannot be written\n";
            else
                answers +=
                    r.refused.empty() ? "OK " + n + "\n" : "ER " + n + ' ' + r.refused + "\n";
        }
        round.clear();
        store.forget();
        if (!sane) {
            reply(answers + "ER 0 request too long");
            return 2;
        }
        if ((!answers.empty() && !writeAll(STDOUT_FILENO, answers)) || gEnding)
            break;
    }
    store.syncAll();
    return 0;
}
} // namespace

int main(int argc, char** argv) {
    umask(077);
    // A workstation gone before its answers ends the helper's writes, not the helper: it still
    // signs and syncs what it took.
    std::signal(SIGPIPE, SIG_IGN);
    struct sigaction ending {};
    ending.sa_handler = [](int) {
        gEnding = 1;
    };
    sigaction(SIGTERM, &ending, nullptr);
    struct sigaction full {};
    full.sa_handler = [](int) {
        gFull = 1;
    };
    sigaction(SIGUSR1, &full, nullptr);
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
