#include "daily_files.h"

#include "plant/plant_store.h"
#include "platform/clock.h"

#include <QLocale>

QString dailyFileStem(const QDate& date) {
    return QStringLiteral("%1-%2-%3").arg(date.month()).arg(date.day()).arg(date.year());
}

QString todaysAlarmLogPath() {
    return gAppPath + QStringLiteral("/Alarm Logs/") + dailyFileStem(currentDateTime().date()) +
           QStringLiteral(" AlmLog.alf");
}

QString regionalShortDate(const QDate& date) {
    return QLocale::system().toString(date, QLocale::ShortFormat);
}

QString regionalLongTime(const QTime& time) {
    static const QString format = [] {
        const QString full = QLocale::system().timeFormat(QLocale::LongFormat);
        QString f;
        bool quoted = false;
        for (QChar c : full) {
            if (c == u'\'')
                quoted = !quoted;
            if (quoted || c != u't')
                f += c;
        }
        return f.trimmed();
    }();
    return QLocale::system().toString(time, format);
}
