#pragma once

#include <QDate>
#include <QString>

// "m-d-yyyy": month, day and year of a date, without leading zeros, as daily files are named.
QString dailyFileStem(const QDate& date);
// Today's alarm log: gAppPath/Alarm Logs/m-d-yyyy AlmLog.alf.
QString todaysAlarmLogPath();
