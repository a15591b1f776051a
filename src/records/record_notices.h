#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

// An alarm row's life as the alarm log writes it: raised, acknowledged, cleared, or every row
// cleared at once (tagname "All Controllers", no controller).
struct AlarmNotice {
    enum class Kind { Raised, Acknowledged, Cleared, AllCleared };
    Kind kind = Kind::Raised;
    QString tagname;     // as the grid shows it: the tag, " Alm# " and the alarm number
    int controller = -1; // row of the plant store, where the tagname names one
    int alarmNumber = 0; // 1 or 2, where known
    QString pv;          // the process value at the alarm, for a raised one
    QDateTime at;
    QString userId; // who acknowledged or cleared
};

// One line of the audit trail, as it was written.
struct AuditNotice {
    QDateTime at;
    QString userId;
    QString fullName;
    QString comment;
    QString action;
};

// What the records tell whoever listens beyond them (publishing), as they happen: the records
// layer never reaches up to its listeners.
class RecordNotices : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

signals:
    void alarm(const AlarmNotice& notice);
    void audit(const AuditNotice& notice);
};

RecordNotices& recordNotices();
