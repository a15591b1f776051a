#include "publish_messages.h"

#include "plant/plant_store.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>

namespace {
QString utc(const QDateTime& at) {
    return at.toUTC().toString(Qt::ISODateWithMs);
}

// Registers hold at most three decimals (outputs two): a scaled reading is rounded back to them,
// so that 39.900000000000006 goes out as 39.9.
double registerRounded(double value, int decimals) {
    const double scale = std::pow(10.0, decimals);
    return std::round(value * scale) / scale;
}

QJsonValue number(const std::optional<double>& value, const QString& text) {
    if (value && std::isfinite(*value))
        return registerRounded(*value, 4);
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QByteArray compact(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

bool moved(const std::optional<double>& now, const std::optional<double>& before, double band) {
    if (now.has_value() != before.has_value())
        return true;
    if (!now)
        return false;
    // A change the width of the band is due; one within it waits for the interval.
    return std::abs(*now - *before) >= std::max(band, 1e-12);
}
} // namespace

QString topicRoot(const QString& site, const QString& station) {
    return QStringLiteral("sorvantel/") + site + u'/' + station;
}

QString controllerTopic(const QString& root, int row, const QString& leaf) {
    return root + u'/' + QString::number(row + 1) + u'/' + leaf;
}

bool ControllerValues::differsFrom(const ControllerValues& before, double deadBand) const {
    return alarmBits != before.alarmBits || profState != before.profState ||
           quality != before.quality || controlType != before.controlType ||
           (!pv && pvText != before.pvText) || (!sp && spText != before.spText) ||
           moved(pv, before.pv, deadBand) || moved(sp, before.sp, deadBand) ||
           moved(out, before.out, deadBand);
}

QString controllerQuality(int row) {
    if (!validRow(row))
        return QStringLiteral("no reading yet");
    if (gSimMode)
        return QStringLiteral("simulated");
    if (isFresh(row))
        return QStringLiteral("good");
    if (!gAnswered[row])
        return QStringLiteral("no reading yet");
    const int code = gLastReadError[row];
    switch (code) {
    case -4:
    case -3:
        return QStringLiteral("no reply");
    case -2:
        return QStringLiteral("bad frame");
    case -1:
        return QStringLiteral("no connection");
    default:
        return code > 0 ? QStringLiteral("exception %1").arg(code)
                        : QStringLiteral("not answering");
    }
}

ControllerValues readControllerValues(int row) {
    ControllerValues v;
    if (!validRow(row))
        return v;
    v.row = row;
    // A K40 reading is text formatted to its decimals: it goes out as the number it says.
    v.pv = gPV[row].asNumber();
    v.sp = gSP[row].asNumber();
    v.pvText = readingText(row, gPV[row]);
    v.spText = readingText(row, gSP[row]);
    v.out = double(gPctOut[row]);
    v.alarmBits = gAlarmState[row] & 3;
    v.controlType = gControlType[row];
    v.profState = gControlType[row] == 0 ? 0 : gProfState[row];
    v.quality = controllerQuality(row);
    return v;
}

QByteArray valuesMessage(const ControllerValues& v, const QDateTime& at) {
    QJsonObject o{{QStringLiteral("time"), utc(at)},
                  {QStringLiteral("pv"), number(v.pv, v.pvText)},
                  {QStringLiteral("sp"), number(v.sp, v.spText)},
                  {QStringLiteral("out"),
                   std::isfinite(v.out) ? QJsonValue(registerRounded(v.out, 2)) : QJsonValue()},
                  {QStringLiteral("alarm1"), bool(v.alarmBits & 1)},
                  {QStringLiteral("alarm2"), bool(v.alarmBits & 2)},
                  {QStringLiteral("quality"), v.quality}};
    if (v.controlType == 1 || v.controlType == 2) {
        const int s = v.profState;
        o.insert(QStringLiteral("profile"), s == 0              ? QStringLiteral("stopped")
                                            : s == 17           ? QStringLiteral("finished")
                                            : s >= 1 && s <= 16 ? QStringLiteral("running")
                                                                : QStringLiteral("unknown"));
        if (s >= 1 && s <= 16)
            o.insert(QStringLiteral("segment"), s);
    }
    return compact(o);
}

QByteArray infoMessage(int row) {
    if (!validRow(row))
        return {};
    static const QString families[] = {QStringLiteral("K40 Series Controls"),
                                       QStringLiteral("K8 Ramp Profiler"),
                                       QStringLiteral("K20 Ramp Profiler")};
    const int type = gControlType[row];
    return compact({{QStringLiteral("node"), row + 1},
                    {QStringLiteral("type"), type},
                    {QStringLiteral("family"), type >= 0 && type <= 2 ? families[type] : QString()},
                    {QStringLiteral("pvTag"), gPvTag[row]},
                    {QStringLiteral("spTag"), gSpTag[row]},
                    {QStringLiteral("outTag"), gOutTag[row]},
                    {QStringLiteral("decimals"), int(gDecimal[row])}});
}

QByteArray statusMessage(bool online, const QDateTime& at) {
    QJsonObject o{
        {QStringLiteral("state"), online ? QStringLiteral("online") : QStringLiteral("offline")}};
    if (at.isValid())
        o.insert(QStringLiteral("since"), utc(at));
    return compact(o);
}

QByteArray alarmMessage(const AlarmNotice& n, const QString& station) {
    static const QString kinds[] = {QStringLiteral("raised"), QStringLiteral("acknowledged"),
                                    QStringLiteral("cleared"), QStringLiteral("all cleared")};
    QJsonObject o{{QStringLiteral("time"), utc(n.at)},
                  {QStringLiteral("station"), station},
                  {QStringLiteral("event"), kinds[int(n.kind)]},
                  {QStringLiteral("tagname"), n.tagname}};
    if (n.controller >= 0)
        o.insert(QStringLiteral("node"), n.controller + 1);
    if (n.alarmNumber > 0)
        o.insert(QStringLiteral("alarm"), n.alarmNumber);
    if (n.kind == AlarmNotice::Kind::Raised)
        o.insert(QStringLiteral("pv"), n.pv);
    else
        o.insert(QStringLiteral("user"), n.userId);
    return compact(o);
}

QByteArray auditMessage(const AuditNotice& n, const QString& station) {
    return compact({{QStringLiteral("time"), utc(n.at)},
                    {QStringLiteral("station"), station},
                    {QStringLiteral("user"), n.userId},
                    {QStringLiteral("fullName"), n.fullName},
                    {QStringLiteral("comment"), n.comment},
                    {QStringLiteral("action"), n.action}});
}
