#pragma once

#include <QDate>
#include <QString>
#include <QTime>

// "m-d-yyyy": month, day and year of a date, without leading zeros, as daily files are named.
QString dailyFileStem(const QDate& date);
// Today's alarm log: gAppPath/Alarm Logs/m-d-yyyy AlmLog.alf.
QString todaysAlarmLogPath();
// Date and time as the records stamp them: the region's short date and long time. The time zone
// some regions put into the long time is left out: it would only repeat itself on every line.
QString regionalShortDate(const QDate& date);
QString regionalLongTime(const QTime& time);
