#include "rights.h"

#include "platform/dialogs.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "session.h"

namespace {
const RightsTable* tableOfLevel(int level) {
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
    // The key holds a blank: the two letters, then the number's print form with its sign blank.
    const QString key = prefix + QLatin1Char(' ') + QString::number(index);
    bool ok = false;
    const int v = getSetting(section, key, QStringLiteral("0")).trimmed().toInt(&ok);
    return ok ? static_cast<qint16>(v) : qint16{0};
}
} // namespace

bool checkAccess(int right) {
    if (!g21CFR)
        return true;
    if (right >= 0 && right < kRightCount) {
        if (const RightsTable* table = tableOfLevel(gUserLevel); table && (*table)[right] == 1)
            return true;
    }
    // "Change Setpoints" can never be taken from an administrator.
    if (gUserLevel == 2 && right == Right::ChangeSetpoints)
        return true;
    msgBox(deniedText(gUserLevel), MsgIcon::Critical);
    return false;
}

bool isNtFamily() {
    // Every platform the workstation builds for has real accounts with groups.
    return true;
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
