#include "rights.h"

#include "platform/accounts.h"
#include "platform/dialogs.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "session.h"

RightsTable* rightsOfLevel(int level) {
    switch (level) {
    case 0:
        return &gOpRights;
    case 1:
        return &gSuRights;
    case 2:
        return &gAdRights;
    default:
        return nullptr;
    }
}

QString rightKey(const QString& prefix, int index) {
    // The two letters, then the number's print form with the blank of its sign.
    return prefix + QLatin1Char(' ') + QString::number(index);
}

namespace {

QString deniedText(int level) {
    switch (level) {
    case 1:
        return QStringLiteral("Access denied to supervisor level security!");
    case 2:
        return QStringLiteral("Access denied to administrator level security!");
    default:
        return QStringLiteral("Access denied to operator level security!");
    }
}

qint16 readRight(const QString& section, const QString& prefix, int index) {
    bool ok = false;
    // Text beyond the 16-bit range takes the default rather than wrapping round to 1.
    const qint16 v =
        getSetting(section, rightKey(prefix, index), QStringLiteral("0")).trimmed().toShort(&ok);
    return ok ? v : qint16{0};
}
} // namespace

bool checkAccess(int right) {
    if (!g21CFR)
        return true;
    if (right >= 0 && right < kRightCount) {
        if (const RightsTable* table = rightsOfLevel(gUserLevel); table && (*table)[right] == 1)
            return true;
    }
    // "Change Setpoints" can never be taken from an administrator.
    if (gUserLevel == 2 && right == Right::ChangeSetpoints)
        return true;
    msgBox(deniedText(gUserLevel), MsgIcon::Critical);
    return false;
}

bool isNtFamily() {
    // What counts is whether the machine's accounts can sign actions: true wherever this build
    // has an account backend (PAM on Linux, the account functions on Windows).
    return accounts().present();
}

bool loadRights() {
    if (!isNtFamily()) {
        g21CFR = false;
        gUserId = kSystemUserId;
        return false;
    }
    for (int i = 0; i < kRightCount; ++i) {
        gOpRights[i] = readRight(Sections::LevelsOp, QStringLiteral("op"), i);
        gSuRights[i] = readRight(Sections::LevelsSu, QStringLiteral("su"), i);
        gAdRights[i] = readRight(Sections::LevelsAd, QStringLiteral("ad"), i);
    }
    g21CFR = settingToBool(
        getSetting(Sections::LevelsSecurity, Keys::Security21CFR, QStringLiteral("0")));
    gUserLevel = 0;
    gUserId = kSystemUserId;
    return true;
}

void resetRights() {
    gOpRights.fill(0);
    gSuRights.fill(0);
    gAdRights.fill(0);
}
