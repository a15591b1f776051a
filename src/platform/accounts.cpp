#include "accounts.h"

#include "facade_slot.h"

namespace {
// A platform with no account backend: nobody can sign, so the security scheme stays off.
class NoAccounts final : public Accounts {
public:
    bool present() const override { return false; }
    PasswordCheck checkPassword(const QString&, const QString&) override {
        return PasswordCheck::Unavailable;
    }
    QStringList groupsOf(const QString&) override { return {}; }
    std::optional<AccountRecord> account(const QString&) override { return std::nullopt; }
    QString computerName() override { return {}; }
};

std::unique_ptr<Accounts> makeAccounts() {
#if defined(Q_OS_WIN)
    return std::make_unique<WindowsAccounts>();
#elif defined(Q_OS_UNIX)
    return std::make_unique<PosixAccounts>();
#else
    return std::make_unique<NoAccounts>();
#endif
}
} // namespace

namespace {
#if defined(Q_OS_WIN)
// The logon names of Windows accounts: none of " / \ [ ] : ; | = , + * ? < > nor a control
// character, not only dots and blanks, and up to 20 characters; or the "user@domain" form.
constexpr qsizetype kLongestName = 256;
constexpr qsizetype kLongestSamName = 20;
bool allowedInName(QChar c) {
    return c.unicode() >= 0x20 && c.unicode() != 0x7F &&
           !QStringLiteral("\"/\\[]:;|=,+*?<>").contains(c);
}
bool possibleAsWhole(const QString& name) {
    const qsizetype at = name.indexOf(u'@');
    if (at < 0 ? name.size() > kLongestSamName : at == 0 || name.indexOf(u'@', at + 1) >= 0)
        return false;
    for (QChar c : name) {
        if (c != u'.' && c != u' ')
            return true;
    }
    return false;
}
#else
// POSIX logon names, with the "@domain" of accounts from a directory service: letters and digits
// of ASCII, ".", "_", "-" and "@", a "$" at the end for machine accounts, no "-" in front.
constexpr qsizetype kLongestName = 256;
bool allowedInName(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '.' ||
           u == '_' || u == '-' || u == '@' || u == '$';
}
bool possibleAsWhole(const QString& name) {
    const qsizetype dollar = name.indexOf(u'$');
    return !name.startsWith(u'-') && name != QLatin1String(".") && name != QLatin1String("..") &&
           (dollar < 0 || dollar == name.size() - 1);
}
#endif
} // namespace

bool isPossibleAccountName(const QString& name) {
    if (name.isEmpty() || name.size() > kLongestName)
        return false;
    for (QChar c : name) {
        if (!allowedInName(c))
            return false;
    }
    return possibleAsWhole(name);
}

QString typedNameForRecord(const QString& name) {
    QString shown = name.left(kLongestName);
    for (QChar& c : shown) {
        if (!allowedInName(c))
            c = u'?';
    }
    return shown;
}

Accounts& accounts() {
    return FacadeSlot<Accounts>::get(makeAccounts);
}

void installAccounts(std::unique_ptr<Accounts> a) {
    FacadeSlot<Accounts>::install(std::move(a));
}
