// sorvantel-authcheck: tests one account's password through PAM for the workstation.
//
// pam_unix lets a process that is not root check only its own user's password. The workstation
// runs under the operator's account but must check the password of whoever signs an action, so
// this small program is installed setgid shadow and does that one check. It links nothing but
// libc and libpam, so that as little code as possible runs with the extra group.
//
// Input on standard input: the user name, a NUL, the password, a NUL. The password is never on
// the command line. Exit status: 0 accepted, 1 refused, 2 bad input, 3 PAM could not start.
// `--service NAME` chooses another PAM service, and only for root (tests), since a service of a
// caller's choosing could accept anybody.

#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <security/pam_appl.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
// Sanitizer builds: the leak checker cannot inspect a process that is setgid or not dumpable, and
// a setgid process ignores ASAN_OPTIONS, so the default has to be built in.
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
            result = check(service, user, password);
    }
    explicit_bzero(gInput, sizeof gInput);
    return result;
}
