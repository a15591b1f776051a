// sorvantel-authcheck: tests one account's password through PAM for the workstation.
//
// pam_unix lets a process that is not root check only its own user's password. The workstation
// runs under the operator's account but must check the password of whoever signs an action, so
// this small program is installed setgid shadow and does that one check. It links nothing but
// libc and libpam, so that as little code as possible runs with the extra group.
//
// Input on standard input: the user name, a NUL, the password, a NUL. The password is never on
// the command line. Exit status: 0 accepted, 1 refused, 2 bad input, 3 the check could not run.
// `--service NAME` chooses another PAM service, and only for root (tests), since a service of a
// caller's choosing could accept anybody.
//
// The caller may kill the helper at any time, so PAM's delay after a failure does not slow a
// password guesser down: a caller can stop waiting once a check takes longer than a success
// would. Checks for callers other than root are therefore paced machine-wide, one a second, with
// the pause before PAM runs and the attempt recorded first.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#ifndef SORVANTEL_AUTHCHECK_PACE_FILE
#define SORVANTEL_AUTHCHECK_PACE_FILE "/var/lib/sorvantel/authcheck.pace"
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
constexpr long long kPaceNs = 1'000'000'000;

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

// At most one check a second for callers other than root. The lock is held through the pause,
// so concurrent callers queue; the time is written before PAM runs.
bool pace() {
    if (getuid() == 0)
        return true;
    const int fd =
        open(SORVANTEL_AUTHCHECK_PACE_FILE, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0660);
    if (fd < 0)
        return false;
    // Whoever created it, every caller's helper must be able to write it.
    fchmod(fd, 0660);
    if (flock(fd, LOCK_EX) != 0) {
        close(fd);
        return false;
    }
    timespec last{};
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (pread(fd, &last, sizeof last, 0) == static_cast<ssize_t>(sizeof last)) {
        long long waitNs = (static_cast<long long>(last.tv_sec) - now.tv_sec) * 1'000'000'000 +
                           (last.tv_nsec - now.tv_nsec) + kPaceNs;
        if (waitNs > kPaceNs) // the clock went back
            waitNs = kPaceNs;
        if (waitNs > 0) {
            timespec pause{static_cast<time_t>(waitNs / 1'000'000'000), waitNs % 1'000'000'000};
            while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
            }
        }
        clock_gettime(CLOCK_REALTIME, &now);
    }
    const bool recorded = pwrite(fd, &now, sizeof now, 0) == static_cast<ssize_t>(sizeof now);
    close(fd);
    return recorded;
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
    return rc == PAM_SUCCESS ? kAccepted : kRefused;
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
    if (argc == 3 && strcmp(argv[1], "--service") == 0 && getuid() == 0)
        service = argv[2];
    else if (argc != 1)
        return kBadInput;

    const size_t length = readInput();
    gInput[length] = '\0';
    const char* user = gInput;
    const size_t userLength = strnlen(gInput, length);
    int result = kBadInput;
    if (userLength > 0 && userLength < length) {
        const char* password = gInput + userLength + 1;
        const size_t passwordLength = strnlen(password, length - userLength - 1);
        if (userLength + 1 + passwordLength < length)
            result = pace() ? check(service, user, password) : kNoPam;
    }
    explicit_bzero(gInput, sizeof gInput);
    return result;
}
