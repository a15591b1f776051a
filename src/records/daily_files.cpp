#include "daily_files.h"

#include "plant/plant_store.h"
#include "platform/clock.h"

QString dailyFileStem(const QDate& date) {
    return QStringLiteral("%1-%2-%3").arg(date.month()).arg(date.day()).arg(date.year());
}

QString todaysAlarmLogPath() {
    return gAppPath + QStringLiteral("/Alarm Logs/") + dailyFileStem(currentDateTime().date()) +
           QStringLiteral(" AlmLog.alf");
}
