// Plant file: reading and checking the controllers that a plant file lists.

#include "sim_plant.h"

#include <QRegularExpression>
#include <cmath>

namespace sim {

namespace {

bool profiler(const NodeConfig& c) {
    return c.family != Family::K40;
}

// Whole number of register digits that a value in engineering units makes.
double digits(const NodeConfig& c, double value) {
    return std::nearbyint(value / engineeringStep(c));
}

bool fitsOffset(const NodeConfig& c, double value) {
    const double raw = digits(c, value) + reg::OffsetZero;
    return raw >= 0 && raw <= 65535;
}

bool fitsProcess(const NodeConfig& c, double value) {
    if (profiler(c)) {
        const double raw = digits(c, value);
        return raw >= -32768 && raw <= 32767;
    }
    return fitsOffset(c, value);
}

} // namespace

bool revisionHasDeadBand(int revisionWord) {
    const QString text = QString::number(static_cast<qint16>(revisionWord));
    return text.right(2).toInt() > 39;
}

QString configProblem(const NodeConfig& c) {
    if (c.node < 1 || c.node > 64)
        return QStringLiteral("node address %1 is outside 1..64").arg(c.node);
    if (c.decimalCode < 0 || c.decimalCode > 3)
        return QStringLiteral("decimal code %1 is outside 0..3").arg(c.decimalCode);
    const QString range = profiler(c) ? QStringLiteral("-3276.8..3276.7")
                                      : QStringLiteral("%1..%2")
                                            .arg(-reg::OffsetZero * engineeringStep(c))
                                            .arg((65535 - reg::OffsetZero) * engineeringStep(c));
    for (const auto& [name, value] :
         {std::pair{"sp", c.sp}, std::pair{"pv", c.pv.value_or(c.sp)}}) {
        if (!fitsProcess(c, value))
            return QStringLiteral("%1=%2 does not fit the controller's range %3")
                .arg(QLatin1String(name))
                .arg(value)
                .arg(range);
    }
    const std::pair<const char*, double> offsets[] = {{"alarm1", c.alarm1.value_or(0.0)},
                                                      {"dev1", c.dev1},
                                                      {"alarm2", c.alarm2.value_or(0.0)},
                                                      {"dev2", c.dev2}};
    for (const auto& [name, value] : offsets) {
        if (!fitsOffset(c, value))
            return QStringLiteral("%1=%2 does not fit a 16-bit offset register")
                .arg(QLatin1String(name))
                .arg(value);
    }
    if (c.tau <= 0.0)
        return QStringLiteral("tau must be above 0");
    if (c.noise && *c.noise < 0.0)
        return QStringLiteral("noise must not be negative");
    if (c.wander < 0.0)
        return QStringLiteral("wander must not be negative");
    const double pb = c.pb.value_or(100.0 * engineeringStep(c));
    if (pb < 0.0 || digits(c, pb) > reg::TuneWordMax)
        return QStringLiteral("pb must be within 0..%1 digits").arg(reg::TuneWordMax);
    if (c.ti < 0 || c.ti > reg::TuneWordMax || c.coolPb < 0 || c.coolPb > reg::TuneWordMax)
        return QStringLiteral("ti and coolpb must be within 0..%1").arg(reg::TuneWordMax);
    if (c.td < 0.0 || std::nearbyint(c.td * 10.0) > reg::TuneWordMax)
        return QStringLiteral("td must be within 0..%1").arg(reg::TuneWordMax / 10.0);
    if (std::abs(digits(c, c.deadBand)) > reg::TuneWordMax)
        return QStringLiteral("deadband must be within %1 digits of 0").arg(reg::TuneWordMax);
    if (c.revision < 0 || c.revision > 65535)
        return QStringLiteral("rev must be within 0..65535");
    if (c.deadBand != 0.0 && !revisionHasDeadBand(c.revision))
        return QStringLiteral("rev=%1 has no dead band register, so deadband must stay 0")
            .arg(c.revision);
    if (!(c.tuneSeconds > 0.0) || c.tuneSeconds > 86400.0)
        return QStringLiteral("tunetime must be above 0 and at most 86400 seconds");
    if (c.profile.size() > reg::Segments)
        return QStringLiteral("a profile has at most %1 segments").arg(reg::Segments);
    if (!c.profile.isEmpty() && !profiler(c))
        return QStringLiteral("only K8 and K20 controllers run profiles");
    for (const ProfileSegment& seg : c.profile) {
        if (!fitsProcess(c, seg.sp) || seg.rampMinutes < 0 || seg.rampMinutes > 32767 ||
            seg.soakMinutes < 0 || seg.soakMinutes > 32767)
            return QStringLiteral("profile segment out of range (setpoint -3276.8..3276.7, "
                                  "times 0..32767 minutes)");
    }
    return {};
}

namespace {

std::optional<double> toNumber(const QString& text) {
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

std::optional<int> toInt(const QString& text) {
    bool ok = false;
    const int value = text.toInt(&ok);
    return ok ? std::optional<int>(value) : std::nullopt;
}

std::optional<QList<ProfileSegment>> toProfile(const QString& text) {
    QList<ProfileSegment> segments;
    for (const QString& part : text.split(QLatin1Char(','))) {
        const QStringList fields = part.split(QLatin1Char(':'));
        if (fields.size() != 3)
            return std::nullopt;
        const auto sp = toNumber(fields.at(0));
        const auto ramp = toInt(fields.at(1));
        const auto soak = toInt(fields.at(2));
        if (!sp || !ramp || !soak)
            return std::nullopt;
        segments.append({*sp, *ramp, *soak});
    }
    return segments;
}

// Applies one key=value; returns an error text, empty when it was taken.
QString applyKey(NodeConfig& c, const QString& key, const QString& value) {
    const auto number = toNumber(value);
    const auto whole = toInt(value);
    const bool k40 = !profiler(c);
    const QString badNumber = QStringLiteral("%1 wants a number, got \"%2\"").arg(key, value);
    const QString badWhole = QStringLiteral("%1 wants a whole number, got \"%2\"").arg(key, value);
    if (key == QLatin1String("decimal") || key == QLatin1String("scaled")) {
        if (!k40)
            return QStringLiteral("%1 applies to K40 controllers only").arg(key);
        if (!whole)
            return badWhole;
        if (key == QLatin1String("decimal"))
            c.decimalCode = *whole;
        else if (*whole == 0 || *whole == 1)
            c.scaled = *whole == 1;
        else
            return QStringLiteral("scaled wants 0 or 1, got \"%1\"").arg(value);
        return {};
    }
    if (key == QLatin1String("profile")) {
        const auto profile = toProfile(value);
        if (!profile)
            return QStringLiteral("profile wants SP:RAMP:SOAK[,SP:RAMP:SOAK]..., got \"%1\"")
                .arg(value);
        c.profile = *profile;
        return {};
    }
    const std::pair<const char*, int*> wholes[] = {
        {"ti", &c.ti}, {"coolpb", &c.coolPb}, {"rev", &c.revision}};
    for (const auto& [name, target] : wholes) {
        if (key == QLatin1String(name)) {
            if (!whole)
                return badWhole;
            *target = *whole;
            return {};
        }
    }
    const std::pair<const char*, double*> numbers[] = {{"sp", &c.sp},
                                                       {"dev1", &c.dev1},
                                                       {"dev2", &c.dev2},
                                                       {"tau", &c.tau},
                                                       {"wander", &c.wander},
                                                       {"td", &c.td},
                                                       {"deadband", &c.deadBand},
                                                       {"tunetime", &c.tuneSeconds}};
    for (const auto& [name, target] : numbers) {
        if (key == QLatin1String(name)) {
            if (!number)
                return badNumber;
            *target = *number;
            return {};
        }
    }
    const std::pair<const char*, std::optional<double>*> optionals[] = {{"pv", &c.pv},
                                                                        {"alarm1", &c.alarm1},
                                                                        {"alarm2", &c.alarm2},
                                                                        {"noise", &c.noise},
                                                                        {"pb", &c.pb}};
    for (const auto& [name, target] : optionals) {
        if (key == QLatin1String(name)) {
            if (!number)
                return badNumber;
            *target = *number;
            return {};
        }
    }
    return QStringLiteral("unknown key \"%1\"").arg(key);
}

} // namespace

std::optional<QList<NodeConfig>> SimPlant::parse(const QString& text, QString* error) {
    QList<NodeConfig> configs;
    QHash<int, int> seenOn;
    const QStringList lines = text.split(QRegularExpression(QStringLiteral("\r\n|\n|\r")));
    for (int i = 0; i < lines.size(); ++i) {
        const int lineNo = i + 1;
        auto fail = [&](const QString& why) {
            if (error)
                *error = QStringLiteral("line %1: %2").arg(lineNo).arg(why);
            return std::nullopt;
        };
        QString line = lines.at(i);
        const qsizetype hash = line.indexOf(QLatin1Char('#'));
        if (hash >= 0)
            line.truncate(hash);
        const QStringList tokens =
            line.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
        if (tokens.isEmpty())
            continue;
        if (tokens.size() < 2)
            return fail(QStringLiteral("expected \"<node> <family> [key=value]...\""));
        NodeConfig c;
        const auto node = toInt(tokens.at(0));
        if (!node || *node < 1 || *node > 64)
            return fail(
                QStringLiteral("node address \"%1\" is not a number in 1..64").arg(tokens.at(0)));
        c.node = *node;
        if (seenOn.contains(c.node))
            return fail(QStringLiteral("node %1 is already defined on line %2")
                            .arg(c.node)
                            .arg(seenOn.value(c.node)));
        const QString family = tokens.at(1).toUpper();
        if (family == QLatin1String("K40"))
            c.family = Family::K40;
        else if (family == QLatin1String("K8"))
            c.family = Family::K8;
        else if (family == QLatin1String("K20"))
            c.family = Family::K20;
        else
            return fail(QStringLiteral("unknown family \"%1\" (expected K40, K8 or K20)")
                            .arg(tokens.at(1)));
        for (qsizetype t = 2; t < tokens.size(); ++t) {
            const qsizetype eq = tokens.at(t).indexOf(QLatin1Char('='));
            if (eq <= 0)
                return fail(QStringLiteral("expected key=value, got \"%1\"").arg(tokens.at(t)));
            const QString why =
                applyKey(c, tokens.at(t).left(eq).toLower(), tokens.at(t).mid(eq + 1));
            if (!why.isEmpty())
                return fail(why);
        }
        const QString why = configProblem(c);
        if (!why.isEmpty())
            return fail(why);
        seenOn.insert(c.node, lineNo);
        configs.append(c);
    }
    if (configs.isEmpty()) {
        if (error)
            *error = QStringLiteral("no node is defined");
        return std::nullopt;
    }
    return configs;
}

} // namespace sim
