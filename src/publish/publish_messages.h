#pragma once

#include "records/record_notices.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <optional>

// The topics and messages of publishing: what a subscriber reads, documented in the README.
// Every message is one JSON object; times are UTC with milliseconds.

QString topicRoot(const QString& site, const QString& station); // sorvantel/<site>/<station>
QString controllerTopic(const QString& root, int row, const QString& leaf); // <root>/<node>/<leaf>

// One controller as the plant store holds it now, in the form it is published in.
struct ControllerValues {
    int row = -1;
    std::optional<double> pv, sp; // empty where the controller gave no number
    QString pvText, spText;       // the reading as the displays show it
    double out = 0;
    int alarmBits = 0;
    int controlType = 0;
    int profState = 0;
    QString quality;

    // A change a subscriber must hear of at once: any status, quality or text change, or a
    // number that moved by more than the dead band.
    bool differsFrom(const ControllerValues& before, double deadBand) const;
};

ControllerValues readControllerValues(int row);
// "good", or why the values are held: "no reply", "bad frame", "exception N", "no connection",
// "not answering", "no reading yet"; "simulated" in simulation mode.
QString controllerQuality(int row);

QByteArray valuesMessage(const ControllerValues& values, const QDateTime& at);
QByteArray infoMessage(int row);
QByteArray statusMessage(bool online, const QDateTime& at);
QByteArray alarmMessage(const AlarmNotice& notice, const QString& station);
QByteArray auditMessage(const AuditNotice& notice, const QString& station);
