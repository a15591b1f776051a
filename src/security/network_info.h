#pragma once

#include <QString>
#include <QStringList>

// The account calls the login needs, over the machine's accounts: the password test, the user's
// groups under the system's own names, the account's names, and this computer's name.
class NetworkInfo {
public:
    // True when the account accepts the password (no domain).
    bool Login(const QString& xi_strUserID, const QString& xi_strPassword);
    // The last Login could not check at all (no password service): no password was wrong.
    bool checkUnavailable() const { return m_checkUnavailable; }
    // The user's groups in the platform's order. A site group that stands for one of the
    // system's three groups comes back under the system's name ("Sorvantel Operators"...).
    // A lookup that fails or finds no group gives one empty element. The account database of
    // this machine answers for both kinds of group.
    QStringList GetUserGroups(const QString& ServerName, const QString& UserName,
                              bool bLocalGroups);
    // Why the last GetUserGroups could not read the site's names of the groups (the site file is
    // there but this account may not read it); empty when it could. No level can be given then.
    QString siteGroupsUnreadable() const { return m_siteGroupsUnreadable; }
    QString rgbGetComputerName();
    // Copies logon name, full name, comment and user comment of the account into the session;
    // see the length test in the definition.
    void getUserData(const QString& loginName);

private:
    struct UserInfo10 {
        QString name;
        QString fullName;
        QString comment;
        QString userComment;
    };
    UserInfo10 readUserInfo10(const QString& serverName, const QString& userName);
    bool m_checkUnavailable = false;
    QString m_siteGroupsUnreadable;
};

// The system's names of groups of this machine ("Sorvantel Operators"...), the others as they are.
// On POSIX systems the site's own group names stand for the system's three, read from the
// root-owned site file (see platform/site_groups.h), never from the operator's own settings.
// With *unreadable, why a site file that is there could not be read (the names then stay the
// defaults, which may not be the site's).
QStringList systemGroupNames(QStringList groups, QString* unreadable = nullptr);
// Another site file, for tests; an empty path goes back to the installed one.
void useSiteGroupsFile(const QString& path);
