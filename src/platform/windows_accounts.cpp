#include "accounts.h"

// windows.h first: the network management headers need its types.
// clang-format off
#include <windows.h>
#include <lm.h>
// clang-format on

namespace {
std::wstring wide(const QString& text) {
    return text.toStdWString();
}

QString fromWide(const wchar_t* text) {
    return text ? QString::fromWCharArray(text) : QString();
}
} // namespace

PasswordCheck WindowsAccounts::checkPassword(const QString& user, const QString& password) {
    HANDLE token = nullptr;
    const std::wstring u = wide(user);
    std::wstring p = wide(password);
    const BOOL ok = LogonUserW(u.c_str(), nullptr, p.c_str(), LOGON32_LOGON_NETWORK,
                               LOGON32_PROVIDER_DEFAULT, &token);
    SecureZeroMemory(p.data(), p.size() * sizeof(wchar_t));
    const DWORD why = ok ? ERROR_SUCCESS : GetLastError();
    if (token)
        CloseHandle(token);
    if (ok)
        return PasswordCheck::Accepted;
    // No domain controller or logon service to ask: nobody's password was wrong.
    return why == ERROR_NO_LOGON_SERVERS || why == ERROR_NO_SUCH_DOMAIN ||
                   why == RPC_S_SERVER_UNAVAILABLE
               ? PasswordCheck::Unavailable
               : PasswordCheck::Refused;
}

QStringList WindowsAccounts::groupsOf(const QString& user) {
    QStringList names;
    LPBYTE buffer = nullptr;
    DWORD read = 0;
    DWORD total = 0;
    const std::wstring u = wide(user);
    const NET_API_STATUS status = NetUserGetLocalGroups(nullptr, u.c_str(), 0, 0, &buffer,
                                                        MAX_PREFERRED_LENGTH, &read, &total);
    if (status == NERR_Success && buffer) {
        const auto* entries = reinterpret_cast<const LOCALGROUP_USERS_INFO_0*>(buffer);
        for (DWORD i = 0; i < read; ++i)
            names << fromWide(entries[i].lgrui0_name);
    }
    if (buffer)
        NetApiBufferFree(buffer);
    return names;
}

std::optional<AccountRecord> WindowsAccounts::account(const QString& user) {
    LPBYTE buffer = nullptr;
    const std::wstring u = wide(user);
    if (NetUserGetInfo(nullptr, u.c_str(), 10, &buffer) != NERR_Success || !buffer)
        return std::nullopt;
    const auto* info = reinterpret_cast<const USER_INFO_10*>(buffer);
    AccountRecord record{fromWide(info->usri10_name), fromWide(info->usri10_full_name),
                         fromWide(info->usri10_comment), fromWide(info->usri10_usr_comment)};
    NetApiBufferFree(buffer);
    return record;
}

QString WindowsAccounts::computerName() {
    // The NetBIOS name, as the login's length test has always seen it.
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
    if (!GetComputerNameW(name, &size))
        return {};
    return QString::fromWCharArray(name, static_cast<qsizetype>(size));
}
