#include "login.h"

#include "frm_login.h"
#include "platform/dialogs.h"
#include "records/audit_trail.h"
#include "rights.h"
#include "session.h"

#include <QPointer>
#include <QWidget>

namespace {
QPointer<QWidget> gSigningOwner;
const QString kNotEnabled = QStringLiteral("System security is not enabled!");
const QString kLogOffTitle = QStringLiteral("Log Off");
} // namespace

void setSigningOwner(QWidget* owner) {
    gSigningOwner = owner;
}

bool checkAccessWithLogin(int right, const QString& actionText) {
    const SessionSnapshot saved = saveSession();
    if (!g21CFR)
        return true;
    if (!checkAccess(right))
        return false;
    {
        FrmLogin login(gSigningOwner);
        login.securityLevel = 0;
        login.exec();
    }
    if (gLoggedOn) {
        // Now for the one who has just signed.
        if (checkAccess(right)) {
            auditLine(actionText);
            return true;
        }
        auditLine(QStringLiteral("User access denied during ") + actionText);
        restoreSession(saved);
        return false;
    }
    if (!gLoginCancelled) {
        // Under the typed name, which the third failure left in the session.
        auditLine(QStringLiteral("Login Failed during ") + actionText);
        restoreSession(saved);
        return false;
    }
    gLoginCancelled = false;
    return false;
}

void logOnFromMenu(QWidget* owner) {
    if (!g21CFR) {
        msgBox(kNotEnabled + QLatin1Char('\n'), MsgIcon::Question);
        return;
    }
    FrmLogin login(owner);
    login.securityLevel = kLoginFromMenu;
    login.exec();
}

void logOffFromMenu() {
    if (!g21CFR) {
        msgBox(kNotEnabled, MsgIcon::Question);
        return;
    }
    if (gUserId.isEmpty()) {
        msgBox(QStringLiteral("There are no users logged on!"), MsgIcon::None, MsgButtons::Ok,
               kLogOffTitle);
        return;
    }
    if (msgBox(QStringLiteral("Log off ") + gUserId + QStringLiteral(" . Are you sure?"),
               MsgIcon::None, MsgButtons::OkCancel, QStringLiteral("Log off")) != MsgAnswer::Ok)
        return;
    auditLine(QStringLiteral("Logged Off"));
    gUserId.clear();
    gUserFullName.clear();
    gUserComment.clear();
    gUserNote.clear();
    gUserLevel = 0;
    gLoggedOn = false;
    // The id is empty by now, so the box opens with the literal's blank. The session stays
    // without an id until the next login; it does not fall back to the system user.
    msgBox(gUserId + QStringLiteral(" has been logged off successfully!\n"
                                    "System will default to operator level security."),
           MsgIcon::None, MsgButtons::Ok, kLogOffTitle);
}
