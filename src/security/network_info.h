#pragma once

#include <QString>
#include <QStringList>

// The account calls the login needs, over the machine's accounts: the password test, the user's
// groups under the system's own names, the account's names, and this computer's name.
class NetworkInfo {
public:
    // True when the account accepts the password (no domain).
    bool Login(const QString& xi_strUserID, const QString& xi_strPassword);
    // The user's groups in the platform's order. A site group named in the settings as one of
    // the system's three groups comes back under the system's name ("Sorvantel Operators"...).
    // A lookup that fails or finds no group gives one empty element. The account database of
    // this machine answers for both kinds of group.
    QStringList GetUserGroups(const QString& ServerName, const QString& UserName,
                              bool bLocalGroups);
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
};

// The system's three group names and the site's group names standing for them: POSIX group
// names cannot hold blanks, so a site names its own groups in the settings.
struct GroupMapping {
    QString systemName;
    QString settingsKey;
    QString siteDefault;
};
const QList<GroupMapping>& groupMappings();
QString systemGroupName(const QString& siteGroupName);
