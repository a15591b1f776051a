#include "accounts.h"

#include <lm.h>
#include <vector>
#include <windows.h>

namespace {
std::wstring wide(const QString& text) {
    return text.toStdWString();
}

QString fromWide(const wchar_t* text) {
    return text ? QString::fromWCharArray(text) : QString();
}
} // namespace

bool WindowsAccounts::checkPassword(const QString& user, const QString& password) {
    HANDLE token = nullptr;
    const std::wstring u = wide(user);
    std::wstring p = wide(password);
    const BOOL ok = LogonUserW(u.c_str(), nullptr, p.c_str(), LOGON32_LOGON_NETWORK,
                               LOGON32_PROVIDER_DEFAULT, &token);
    SecureZeroMemory(p.data(), p.size() * sizeof(wchar_t));
    if (token)
        CloseHandle(token);
    return ok != FALSE;
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
    // The DNS host name, not the fifteen-character NetBIOS name.
    DWORD size = 0;
    GetComputerNameExW(ComputerNamePhysicalDnsHostname, nullptr, &size);
    if (size == 0)
        return {};
    std::vector<wchar_t> name(size);
    if (!GetComputerNameExW(ComputerNamePhysicalDnsHostname, name.data(), &size))
        return {};
    return QString::fromWCharArray(name.data(), static_cast<qsizetype>(size));
}
