// sorvantel-authcheck: tests one account's password through PAM for the workstation.
//
// pam_unix lets a process that is not root check only its own user's password. The workstation
// runs under the operator's account but must check the password of whoever signs an action, so
// this small program is installed setgid shadow and does that one check. It links nothing but
// libc and libpam, so that as little code as possible runs with the extra group.
//
// Input on standard input: the user name, a NUL, the password, a NUL. The password is never on
// the command line. Exit status: 0 accepted, 1 refused, 2 bad input, 3 the check could not run.
// `--service NAME` chooses another PAM service and `--groups-file PATH` another site groups
// file, both only for root (tests): a service or a file of a caller's choosing could accept
// anybody.
//
// Only members of the workstation's three groups are checked at all, and never root; anybody
// else is refused before PAM runs, so the helper cannot serve to probe other accounts.
//
// The caller may kill the helper at any time, so PAM's delay after a failure does not slow a
// password guesser down: a caller can stop waiting once a check takes longer than a success
// would. Checks are therefore paced, one a second for each calling account other than root,
// through a file of that account's own in a folder only the helper can enter. Each check takes
// its turn under a short lock and records it before it waits, so a killed check gains nothing;
// and whatever a caller does to its own helpers (stop one while it holds the lock, queue up
// turns and kill them) holds up only its own checks, never another account's.

#include "helper_input.h"
#include "site_groups.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#ifndef SORVANTEL_AUTHCHECK_PACE_DIR
#define SORVANTEL_AUTHCHECK_PACE_DIR "/var/lib/sorvantel"
#endif

#if defined(__SANITIZE_ADDRESS__)
// Sanitizer builds (tests only): the leak checker cannot inspect a process that is setgid or not
// dumpable, so it is switched off in the build itself, whatever the environment says.
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}
#endif

namespace {
constexpr int kAccepted = 0;
constexpr int kRefused = 1;
constexpr int kBadInput = 2;
constexpr int kNoPam = 3;
constexpr size_t kMaxInput = 4096;
constexpr long long kSecondNs = 1'000'000'000;
constexpr long long kPaceNs = kSecondNs;
// No check waits longer than this for its turn; a queue beyond it is refused as "could not run".
constexpr long long kLongestQueueNs = 10 * kSecondNs;
// The lock guards a read and a write only; whoever holds it longer is stuck or stopped.
constexpr int kLockTries = 200;
constexpr long kLockRetryNs = 10'000'000;

char gInput[kMaxInput + 1];

struct Credentials {
    const char* user;
    const char* password;
};

void freeReplies(pam_response* replies, int count) {
    for (int i = 0; i < count; ++i) {
        if (replies[i].resp) {
            explicit_bzero(replies[i].resp, strlen(replies[i].resp));
            free(replies[i].resp);
        }
    }
    free(replies);
}

// Answers PAM's password prompt; any other question ends the check.
int converse(int count, const pam_message** messages, pam_response** responses, void* data) {
    if (count <= 0 || count > PAM_MAX_NUM_MSG)
        return PAM_CONV_ERR;
    const auto* credentials = static_cast<const Credentials*>(data);
    auto* replies =
        static_cast<pam_response*>(calloc(static_cast<size_t>(count), sizeof(pam_response)));
    if (!replies)
        return PAM_BUF_ERR;
    for (int i = 0; i < count; ++i) {
        switch (messages[i]->msg_style) {
        case PAM_PROMPT_ECHO_OFF:
            replies[i].resp = strdup(credentials->password);
            if (!replies[i].resp) {
                freeReplies(replies, count);
                return PAM_BUF_ERR;
            }
            break;
        case PAM_ERROR_MSG:
        case PAM_TEXT_INFO:
            break;
        default:
            freeReplies(replies, count);
            return PAM_CONV_ERR;
        }
    }
    *responses = replies;
    return PAM_SUCCESS;
}

size_t readInput() {
    size_t used = 0;
    while (used < kMaxInput) {
        const ssize_t n = read(STDIN_FILENO, gInput + used, kMaxInput - used);
        if (n < 0)
            return 0;
        if (n == 0)
            break;
        used += static_cast<size_t>(n);
    }
    return used;
}

long long nanoseconds(const timespec& t) {
    return static_cast<long long>(t.tv_sec) * kSecondNs + t.tv_nsec;
}

timespec fromNanoseconds(long long ns) {
    return timespec{static_cast<time_t>(ns / kSecondNs), static_cast<long>(ns % kSecondNs)};
}

// At most one check a second for each caller other than root. The turn is taken and written
// under the lock, which is then let go; the wait comes after. False when no turn can be had in
// time. The monotonic clock: setting the time of day neither frees nor blocks a turn.
bool pace() {
    const uid_t caller = getuid();
    if (caller == 0)
        return true;
    char path[256];
    snprintf(path, sizeof path, "%s/pace-%lu", SORVANTEL_AUTHCHECK_PACE_DIR,
             static_cast<unsigned long>(caller));
    const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return false;
    // Whatever the caller's umask, its own helpers must be able to open it again.
    fchmod(fd, 0600);
    bool locked = false;
    for (int i = 0; i < kLockTries && !locked; ++i) {
        locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (!locked) {
            const timespec retry = fromNanoseconds(kLockRetryNs);
            nanosleep(&retry, nullptr);
        }
    }
    if (!locked) {
        close(fd);
        return false;
    }
    timespec clock{};
    clock_gettime(CLOCK_MONOTONIC, &clock);
    const long long now = nanoseconds(clock);
    long long turn = now;
    timespec last{};
    if (pread(fd, &last, sizeof last, 0) == static_cast<ssize_t>(sizeof last) && last.tv_sec >= 0 &&
        last.tv_sec < (1LL << 40) && last.tv_nsec >= 0 && last.tv_nsec < kSecondNs) {
        const long long next = nanoseconds(last) + kPaceNs;
        // A last turn further ahead than any queue can reach is from before a restart.
        if (next > turn && next - now <= kLongestQueueNs + kPaceNs)
            turn = next;
    }
    const timespec mine = fromNanoseconds(turn);
    const bool recorded = turn - now <= kLongestQueueNs &&
                          pwrite(fd, &mine, sizeof mine, 0) == static_cast<ssize_t>(sizeof mine);
    close(fd); // lets the lock go
    if (!recorded)
        return false;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &mine, nullptr) == EINTR) {
    }
    return true;
}

// Calls a reentrant lookup with a buffer that grows until it fits: its status, 0 when it ran.
template <typename Lookup> int lookUp(std::vector<char>& buffer, Lookup&& lookup) {
    for (buffer.resize(16384);; buffer.resize(buffer.size() * 2)) {
        const int rc = lookup(buffer.data(), buffer.size());
        if (rc != ERANGE || buffer.size() >= (1u << 24))
            return rc;
    }
}

enum class Membership { Member, Other, Unknown };

// Whether the user belongs to one of the workstation's three groups by the site groups file.
// Unknown when the account database could not answer: no password was wrong then.
Membership workstationMembership(const char* user, const char* groupsFile) {
    const SiteGroups site = readSiteGroups(groupsFile);
    std::vector<char> buffer;
    passwd entry{};
    passwd* found = nullptr;
    if (lookUp(buffer, [&](char* b, size_t n) { return getpwnam_r(user, &entry, b, n, &found); }))
        return Membership::Unknown;
    if (!found || entry.pw_uid == 0)
        return Membership::Other;
    const gid_t primary = entry.pw_gid;
    std::vector<gid_t> wanted;
    for (const std::string* name : {&site.operators, &site.supervisors, &site.administrators}) {
        group g{};
        group* gf = nullptr;
        if (lookUp(buffer,
                   [&](char* b, size_t n) { return getgrnam_r(name->c_str(), &g, b, n, &gf); }))
            return Membership::Unknown;
        if (gf)
            wanted.push_back(g.gr_gid);
    }
    int count = 64;
    std::vector<gid_t> gids(static_cast<size_t>(count));
    if (getgrouplist(user, primary, gids.data(), &count) == -1) {
        if (count <= 0 || count > 65536)
            return Membership::Unknown;
        gids.resize(static_cast<size_t>(count));
        if (getgrouplist(user, primary, gids.data(), &count) == -1)
            return Membership::Unknown;
    }
    for (int i = 0; i < count; ++i) {
        for (gid_t w : wanted) {
            if (gids[static_cast<size_t>(i)] == w)
                return Membership::Member;
        }
    }
    return Membership::Other;
}

// Standard descriptors the caller closed would be taken by PAM's own files.
void openStandardDescriptors() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF &&
            open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY) != fd)
            _exit(kNoPam);
    }
}

// A caller's file-size limit would let it break the writes of lock-out modules.
bool fileSizeUnlimited() {
    rlimit size{};
    if (getrlimit(RLIMIT_FSIZE, &size) != 0)
        return false;
    if (size.rlim_cur != RLIM_INFINITY) {
        size.rlim_cur = size.rlim_max;
        setrlimit(RLIMIT_FSIZE, &size);
    }
    return size.rlim_cur == RLIM_INFINITY;
}

int check(const char* service, const char* user, const char* password) {
    Credentials credentials{user, password};
    const pam_conv conversation{converse, &credentials};
    pam_handle_t* pam = nullptr;
    if (pam_start(service, user, &conversation, &pam) != PAM_SUCCESS)
        return kNoPam;
    // For the site's logs: who asked for the check.
    if (const passwd* caller = getpwuid(getuid()))
        pam_set_item(pam, PAM_RUSER, caller->pw_name);
    int rc = pam_authenticate(pam, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    if (rc == PAM_SUCCESS)
        rc = pam_acct_mgmt(pam, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
    // A module may not swap the account under test for another.
    const void* checked = nullptr;
    if (rc == PAM_SUCCESS && (pam_get_item(pam, PAM_USER, &checked) != PAM_SUCCESS || !checked ||
                              strcmp(static_cast<const char*>(checked), user) != 0))
        rc = PAM_AUTH_ERR;
    pam_end(pam, rc);
    switch (rc) {
    case PAM_SUCCESS:
        return kAccepted;
    // The password service itself failed (a directory service down, a module missing or
    // broken): nobody's password was wrong.
    case PAM_AUTHINFO_UNAVAIL:
    case PAM_SYSTEM_ERR:
    case PAM_BUF_ERR:
    case PAM_ABORT:
    case PAM_SERVICE_ERR:
    case PAM_MODULE_UNKNOWN:
    case PAM_SYMBOL_ERR:
        return kNoPam;
    default:
        return kRefused;
    }
}
} // namespace

int main(int argc, char** argv) {
    // No core file may hold the password.
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);

    openStandardDescriptors();
    if (!fileSizeUnlimited())
        return kNoPam;

    const char* service = "sorvantel";
    const char* groupsFile = SORVANTEL_SITE_GROUPS_FILE;
    for (int i = 1; i < argc; i += 2) {
        if (getuid() != 0 || i + 1 >= argc)
            return kBadInput;
        if (strcmp(argv[i], "--service") == 0)
            service = argv[i + 1];
        else if (strcmp(argv[i], "--groups-file") == 0)
            groupsFile = argv[i + 1];
        else
            return kBadInput;
    }

    const size_t length = readInput();
    HelperInput input;
    int result = kBadInput;
    if (splitHelperInput(gInput, length, &input)) {
        switch (workstationMembership(input.user, groupsFile)) {
        case Membership::Other:
            result = kRefused;
            break;
        case Membership::Unknown:
            result = kNoPam;
            break;
        case Membership::Member:
            result = pace() ? check(service, input.user, input.password) : kNoPam;
            break;
        }
    }
    explicit_bzero(gInput, sizeof gInput);
    return result;
}
