#include "accounts.h"

#include "facade_slot.h"

namespace {
// A platform with no account backend: nobody can sign, so the security scheme stays off.
class NoAccounts final : public Accounts {
public:
    bool present() const override { return false; }
    bool checkPassword(const QString&, const QString&) override { return false; }
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

Accounts& accounts() {
    return FacadeSlot<Accounts>::get(makeAccounts);
}

void installAccounts(std::unique_ptr<Accounts> a) {
    FacadeSlot<Accounts>::install(std::move(a));
}
