#include "startup.h"

#include "app/frm_main.h"
#include "plant/plant_store.h"
#include "plant/scan_controller.h"
#include "plant/tag_file.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "platform/single_instance.h"
#include "records/audit_trail.h"
#include "records/daily_files.h"
#include "records/data_logger.h"
#include "security/rights.h"
#include "security/session.h"

#include <QDir>
#include <QTimer>
#include <limits>

namespace {
// A stored text that does not convert, or does not fit the variable, leaves it as it was.
template <typename T>
void readNumber(const QString& section, const QString& key, const QString& def, T& target) {
    bool ok = false;
    const double v = getSetting(section, key, def).trimmed().toDouble(&ok);
    if (ok && v >= static_cast<double>(std::numeric_limits<T>::min()) &&
        v <= static_cast<double>(std::numeric_limits<T>::max()))
        target = static_cast<T>(v);
}

void readBool(const QString& section, const QString& key, const QString& def, bool& target) {
    bool ok = false;
    const bool v = settingToBool(getSetting(section, key, def), &ok);
    if (ok)
        target = v;
}
} // namespace

bool checkPrevInstance() {
    if (instanceGuard().acquire())
        return true;
    msgBox(QStringLiteral("Sorvantel is already running! Please check the\ntaskbar or background "
                          "window for active version."));
    return false;
}

void loadSettings(FrmMain& main) {
    readNumber(Sections::DataSave, Keys::SaveInterval, QStringLiteral("1"), gSaveInterval);
    readNumber(Sections::DataSave, Keys::AutoLog, QStringLiteral("0"), gAutoLog);
    readNumber(Sections::DataSave, Keys::LogOnStartup, QStringLiteral("0"), gLogOnStartup);
    readBool(Sections::CStatus, Keys::AlmLogging, QStringLiteral("0"), gAlmLogging);
    readBool(Sections::CStatus, Keys::ComBeep, QStringLiteral("0"), gComBeep);
    readBool(Sections::CStatus, Keys::BeepOnAlarm, QStringLiteral("False"), gBeepOnAlarm);
    readBool(Sections::CStatus, Keys::BeepUntilAck, QStringLiteral("False"), gBeepUntilAck);
    int interval = 0;
    readNumber(Sections::Cstatus, Keys::CupdateTime, QStringLiteral("500"), interval);
    // A timer with no interval would never poll; such a value is skipped like any bad text.
    if (interval >= 1 && interval <= 65535)
        main.scan().timer2()->setInterval(interval);
    const StoredLinePacing pacing = storedLinePacing();
    main.scan().setLinePacing(pacing.paced, pacing.guardMs);
    if (!loadRights()) {
        for (const char* name : {"mnuPasswords", "mnuLogOff", "mnuLogon", "mnuAudit"})
            main.menuItem(QString::fromLatin1(name))->setEnabled(false);
    }
}

bool loadSystemFiles(QString* error) {
    gAppPath = QDir::currentPath();
    gHelpFile = gAppPath + QStringLiteral("/Sorvantel help.hlp");
    if (!readTagFile(gAppPath + QStringLiteral("/tags.tgn"), error))
        return false;
    if (g21CFR)
        systemAuditLine(QStringLiteral("System Started"));
    // Today's alarm log exists from the start of the day's first run.
    const QString alarmFile = todaysAlarmLogPath();
    QString why;
    if (!ensureFileExists(alarmFile, &why)) {
        if (error)
            *error = alarmFile + QStringLiteral(": ") + why;
        return false;
    }
    return true;
}

void initLogArray() {
    int marked = 0;
    for (const auto& row : gTagTable) {
        if (isLoggedRow(row) && ++marked >= 2)
            break;
    }
    if (marked == 0) {
        // For this run only; the stored setting stays as it is.
        gLogOnStartup = 0;
    }
}

void showStartupFailure() {
    msgBox(QStringLiteral("Sorvantel has encountered and error while initializing data.\n"
                          "This is probably due to a file that is missing.\n"
                          "Please re-install Sorvantel from the CD or orig source."),
           MsgIcon::Critical);
}
