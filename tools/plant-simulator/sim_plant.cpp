#include "sim_plant.h"

#include <QFile>
#include <QRegularExpression>
#include <QtSerialBus/QModbusServer>
#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

namespace sim {

namespace {

struct Range {
    int first;
    int last;
};

constexpr Range kK40Holding[] = {{1, 15}, {129, 143}};
constexpr Range kK40ReadOnly[] = {{129, 129}, {131, 133}, {141, 142}};
constexpr Range kProfHolding[] = {{3, 15}, {141, 143}, {1001, 1009}, {1057, 1082}};
constexpr Range kProfInput[] = {{1001, 1009}};
constexpr Range kProfReadOnly[] = {{141, 142}, {1001, 1002}, {1004, 1009}, {1081, 1081}};
constexpr int kImageSize = 1083;
constexpr int kOffset = 19999;
constexpr int kSegments = 8;
constexpr double kOutputBias = 35.0;
constexpr double kAutoTuneSeconds = 20.0;
constexpr double kAutoTunePeriod = 8.0;

bool covers(std::span<const Range> ranges, int first, int count) {
    for (int a = first; a < first + count; ++a) {
        const bool in = std::any_of(ranges.begin(), ranges.end(),
                                    [a](const Range& r) { return a >= r.first && a <= r.last; });
        if (!in)
            return false;
    }
    return true;
}

bool touches(std::span<const Range> ranges, int first, int count) {
    return std::any_of(ranges.begin(), ranges.end(), [first, count](const Range& r) {
        return first <= r.last && first + count - 1 >= r.first;
    });
}

bool isProfiler(Family family) {
    return family != Family::K40;
}

// Half-way values go to the even neighbour, as the workstation rounds when it writes.
long roundEven(double value) {
    return std::lrint(value);
}

quint16 toWord(long value) {
    return static_cast<quint16>(static_cast<qint16>(value));
}
int fromWord(quint16 word) {
    return static_cast<qint16>(word);
}

} // namespace

QString familyName(Family family) {
    static const char* const names[] = {"K40", "K8", "K20"};
    return QString::fromLatin1(names[static_cast<int>(family)]);
}

double engineeringStep(const NodeConfig& config) {
    if (isProfiler(config.family) || !config.scaled)
        return 0.1;
    return std::pow(10.0, -config.decimalCode);
}

// One controller: a transport-less Modbus server over a single register image, so that a
// profiler's input registers 1001..1009 are the same words as its holding registers.
class SimController : public QModbusServer {
public:
    SimController(const NodeConfig& config, QObject* parent)
        : QModbusServer(parent), config_(config), step_(engineeringStep(config)),
          image_(kImageSize, 0) {
        setServerAddress(config.node);
        pv_ = measured_ = config.pv.value_or(config.sp);
        noise_ = config.noise.value_or(1.5 * step_);
        image_[reg::Alarm1Set] = config.alarm1 ? encodeOffset(*config.alarm1) : 65535;
        image_[reg::Alarm1Dev] = encodeOffset(config.dev1);
        image_[reg::Alarm2Set] = config.alarm2 ? encodeOffset(*config.alarm2) : 0;
        image_[reg::Alarm2Dev] = encodeOffset(config.dev2);
        image_[reg::PropBand] = static_cast<quint16>(roundEven(config.pb / step_));
        image_[reg::Reset] = static_cast<quint16>(config.ti);
        image_[reg::Rate] = static_cast<quint16>(roundEven(config.td * 10.0));
        image_[reg::CoolPb] = static_cast<quint16>(config.coolPb);
        image_[reg::DeadBand] = encodeOffset(config.deadBand);
        image_[reg::Revision] = static_cast<quint16>(config.revision);
        if (profiler()) {
            for (int s = 0; s < config.profile.size(); ++s) {
                const ProfileSegment& seg = config.profile.at(s);
                image_[reg::ProfileBlock + s] = toWord(roundEven(seg.sp * 10.0));
                image_[reg::ProfileBlock + kSegments + 2 * s] = toWord(seg.rampMinutes);
                image_[reg::ProfileBlock + kSegments + 2 * s + 1] = toWord(seg.soakMinutes);
            }
        }
        setSp(config.sp);
        out_ = outputTarget();
        publish();
    }

    const NodeConfig& config() const { return config_; }

    QModbusResponse answer(const QModbusRequest& request) {
        switch (request.functionCode()) {
        case QModbusPdu::ReadHoldingRegisters:
        case QModbusPdu::ReadInputRegisters:
            return processRequest(request);
        case QModbusPdu::WriteSingleRegister:
        case QModbusPdu::WriteMultipleRegisters: {
            quint16 address = 0;
            quint16 count = 1;
            if (request.functionCode() == QModbusPdu::WriteSingleRegister) {
                if (request.dataSize() < 2)
                    return processRequest(request);
                request.decodeData(&address);
            } else {
                if (request.dataSize() < 4)
                    return processRequest(request);
                request.decodeData(&address, &count);
                if (count < 1 || count > 123)
                    return processRequest(request);
            }
            // Measured values and the controller's own state words refuse writes.
            if (touches(readOnly(), address, count))
                return QModbusExceptionResponse(request.functionCode(),
                                                QModbusPdu::IllegalDataAddress);
            return processRequest(request);
        }
        default:
            return QModbusExceptionResponse(request.functionCode(), QModbusPdu::IllegalFunction);
        }
    }

    bool hasRegister(int address) const { return covers(holding(), address, 1); }
    quint16 reg(int address) const { return hasRegister(address) ? image_[address] : 0; }

    void setRegDirect(int address, quint16 value) {
        if (!hasRegister(address))
            return;
        image_[address] = value;
        if (address == pvRegister())
            pv_ = measured_ = decodeProcess(value);
        else if (address == outputRegister())
            out_ = fromWord(value) * 0.01;
        else if (profiler() && address == reg::ProfState)
            forceProfileState(value);
        else
            applyWrite(address);
        // A status word set by hand stands until the next step recomputes it.
        if (address != statusRegister())
            publish();
    }

    double pv() const { return measured_; }
    double output() const { return out_; }
    int profileState() const { return profState_; }
    double sp() const {
        return decodeProcess(image_[profiler() ? reg::ProfWorkingSp : reg::K40Setpoint]);
    }

    void setPv(double value) {
        pv_ = measured_ = value;
        publish();
    }

    void setSp(double value) {
        const quint16 raw = encodeProcess(value);
        if (profiler()) {
            image_[reg::ProfSp] = raw;
            applyWrite(reg::ProfSp);
        } else {
            image_[reg::K40Setpoint] = raw;
            applyWrite(reg::K40Setpoint);
        }
        publish();
    }

    void step(double dt, double profileMinute, QRandomGenerator& rng) {
        if (dt <= 0.0)
            return;
        if (profiler() && running() && !held_)
            advanceProfile(dt / std::max(profileMinute, 1e-3));

        const double wsp = sp();
        double target = wsp + disturbance_;
        if (autoTuneLeft_ > 0.0) {
            autoTuneLeft_ -= dt;
            const bool heating =
                std::fmod(std::max(autoTuneLeft_, 0.0), kAutoTunePeriod) >= kAutoTunePeriod / 2;
            out_ = heating ? 100.0 : 0.0;
            target += (heating ? 1.0 : -1.0) * 0.02 * std::max(std::abs(wsp), 50.0 * step_);
            if (autoTuneLeft_ <= 0.0)
                finishAutoTune();
        }
        pv_ += (target - pv_) * (1.0 - std::exp(-dt / std::max(config_.tau, 0.01)));

        if (config_.wander > 0.0) {
            disturbance_ +=
                -disturbance_ * std::min(dt / 30.0, 1.0) +
                config_.wander * (2.0 * rng.generateDouble() - 1.0) * std::sqrt(dt) * 0.5;
            disturbance_ = std::clamp(disturbance_, -3.0 * config_.wander, 3.0 * config_.wander);
        }
        if (autoTuneLeft_ <= 0.0)
            out_ += (outputTarget() - out_) * std::min(dt / 2.0, 1.0);
        measured_ = pv_ + noise_ * (2.0 * rng.generateDouble() - 1.0);
        publish();
    }

protected:
    bool open() override { return true; }
    void close() override {}

    bool readData(QModbusDataUnit* unit) const override {
        if (!unit || unit->startAddress() < 0 || !valid(*unit))
            return false;
        QList<quint16> values;
        values.reserve(unit->valueCount());
        for (qsizetype i = 0; i < unit->valueCount(); ++i)
            values.append(image_[unit->startAddress() + i]);
        unit->setValues(values);
        return true;
    }

    bool writeData(const QModbusDataUnit& unit) override {
        if (unit.registerType() != QModbusDataUnit::HoldingRegisters || !valid(unit))
            return false;
        for (qsizetype i = 0; i < unit.valueCount(); ++i) {
            image_[unit.startAddress() + i] = unit.value(i);
            applyWrite(unit.startAddress() + static_cast<int>(i));
        }
        publish();
        emit dataWritten(unit.registerType(), unit.startAddress(),
                         static_cast<int>(unit.valueCount()));
        return true;
    }

private:
    bool profiler() const { return isProfiler(config_.family); }
    std::span<const Range> holding() const {
        return profiler() ? std::span<const Range>(kProfHolding)
                          : std::span<const Range>(kK40Holding);
    }
    std::span<const Range> readOnly() const {
        return profiler() ? std::span<const Range>(kProfReadOnly)
                          : std::span<const Range>(kK40ReadOnly);
    }
    bool valid(const QModbusDataUnit& unit) const {
        const int first = unit.startAddress();
        const int count = static_cast<int>(unit.valueCount());
        if (count < 1 || first + count > kImageSize)
            return false;
        switch (unit.registerType()) {
        case QModbusDataUnit::HoldingRegisters:
            return covers(holding(), first, count);
        case QModbusDataUnit::InputRegisters:
            return profiler() && covers(kProfInput, first, count);
        default:
            return false;
        }
    }

    int pvRegister() const { return profiler() ? reg::ProfPv : reg::K40Pv; }
    int outputRegister() const { return profiler() ? reg::ProfOutput : reg::K40Output; }
    int statusRegister() const { return profiler() ? reg::ProfStatus : reg::K40Status; }
    bool running() const { return profState_ >= 1 && profState_ < reg::StateFinished; }

    // Process values: offset numbers for the K40, plain signed tenths for the profilers.
    quint16 encodeProcess(double value) const {
        if (profiler())
            return toWord(std::clamp(roundEven(value * 10.0), -32768L, 32767L));
        return encodeOffset(value);
    }
    double decodeProcess(quint16 word) const {
        return profiler() ? fromWord(word) * 0.1 : decodeOffset(word);
    }
    // Alarm values and the dead band are offset numbers in every family.
    quint16 encodeOffset(double value) const {
        return static_cast<quint16>(std::clamp(roundEven(value / step_) + kOffset, 0L, 65535L));
    }
    double decodeOffset(quint16 word) const { return (static_cast<int>(word) - kOffset) * step_; }

    double outputTarget() const {
        const double band = std::max(image_[reg::PropBand] * step_, step_);
        return std::clamp(kOutputBias + 100.0 * (sp() - pv_) / band, 0.0, 100.0);
    }

    void applyWrite(int address) {
        if (!profiler() && (address == reg::K40Setpoint || address == reg::K40Sp)) {
            image_[reg::K40Setpoint] = image_[reg::K40Sp] = image_[address];
        } else if (profiler() && address == reg::ProfSp) {
            if (!running())
                image_[reg::ProfWorkingSp] = image_[reg::ProfSp];
        } else if (profiler() && address == reg::ProfileCommand) {
            profileCommand(image_[address]);
        } else if (address == reg::TuneCommand && image_[address] == reg::TuneAutoStart) {
            autoTuneLeft_ = kAutoTuneSeconds;
            image_[reg::AutoTuneState] = 2;
        }
    }

    void finishAutoTune() {
        autoTuneLeft_ = 0.0;
        image_[reg::AutoTuneState] = 0;
        image_[reg::PropBand] =
            static_cast<quint16>(std::max(1L, roundEven(image_[reg::PropBand] * 0.85)));
        image_[reg::Reset] =
            static_cast<quint16>(std::min(65535L, roundEven(image_[reg::Reset] * 1.1 + 1)));
        image_[reg::Rate] = static_cast<quint16>(roundEven(image_[reg::Rate] * 0.9));
    }

    double segmentSp(int s) const { return fromWord(image_[reg::ProfileBlock + s]) * 0.1; }
    int segmentMinutes(int s, bool soak) const {
        return std::max(0,
                        fromWord(image_[reg::ProfileBlock + kSegments + 2 * s + (soak ? 1 : 0)]));
    }

    void setWorkingSp(double value) { image_[reg::ProfWorkingSp] = encodeProcess(value); }

    void profileCommand(quint16 command) {
        switch (command) {
        case 0:
            profState_ = 0;
            held_ = false;
            image_[reg::ProfWorkingSp] = image_[reg::ProfSp];
            break;
        case 1:
            if (running()) {
                held_ = false;
                break;
            }
            profState_ = 1;
            held_ = false;
            inRamp_ = true;
            phase_ = 0.0;
            rampFrom_ = pv_;
            setWorkingSp(rampFrom_);
            advanceProfile(0.0);
            break;
        case 2:
            if (running())
                held_ = true;
            break;
        default:
            break;
        }
    }

    // A segment with no ramp and no soak time marks the end of the profile.
    void advanceProfile(double minutes) {
        while (running()) {
            const int s = profState_ - 1;
            const int ramp = segmentMinutes(s, false);
            const int soak = segmentMinutes(s, true);
            if (ramp == 0 && soak == 0) {
                profState_ = reg::StateFinished;
                return;
            }
            const double target = segmentSp(s);
            if (inRamp_) {
                if (phase_ + minutes < ramp) {
                    phase_ += minutes;
                    setWorkingSp(rampFrom_ + (target - rampFrom_) * phase_ / ramp);
                    return;
                }
                minutes -= ramp - phase_;
                phase_ = 0.0;
                inRamp_ = false;
            }
            setWorkingSp(target);
            if (phase_ + minutes < soak) {
                phase_ += minutes;
                return;
            }
            minutes -= soak - phase_;
            phase_ = 0.0;
            inRamp_ = true;
            rampFrom_ = target;
            profState_ = profState_ >= kSegments ? reg::StateFinished : profState_ + 1;
        }
    }

    void forceProfileState(quint16 state) {
        held_ = false;
        phase_ = 0.0;
        inRamp_ = false;
        rampFrom_ = pv_;
        profState_ = state <= kSegments || state == reg::StateFinished ? state : 0;
    }

    void publish() {
        const double band = std::max(noise_, step_);
        const double wsp = sp();
        const double a1 = decodeOffset(image_[reg::Alarm1Set]);
        const double d1 = decodeOffset(image_[reg::Alarm1Dev]);
        const double a2 = decodeOffset(image_[reg::Alarm2Set]);
        const double d2 = decodeOffset(image_[reg::Alarm2Dev]);
        // Once on, an alarm holds until PV is back by the noise band, so noise does not chatter.
        const double h1 = alarm1_ ? band : 0.0;
        const double h2 = alarm2_ ? band : 0.0;
        alarm1_ = measured_ > a1 - h1 || (d1 > 0.0 && measured_ - wsp > d1 - h1);
        alarm2_ = measured_ < a2 + h2 || (d2 > 0.0 && wsp - measured_ > d2 - h2);
        quint16 status = (alarm1_ ? 0x0001 : 0) | (alarm2_ ? 0x0002 : 0);
        if (!profiler()) {
            status |= static_cast<quint16>((config_.decimalCode & 3) << 8);
            if (config_.scaled)
                status |= reg::StatusScaledBit;
        }
        image_[pvRegister()] = encodeProcess(measured_);
        image_[outputRegister()] = toWord(roundEven(out_ * 100.0));
        image_[statusRegister()] = status;
        if (profiler())
            image_[reg::ProfState] = static_cast<quint16>(profState_);
    }

    NodeConfig config_;
    double step_;
    std::vector<quint16> image_;
    double pv_ = 0.0;
    double measured_ = 0.0;
    double out_ = 0.0;
    double noise_ = 0.0;
    double disturbance_ = 0.0;
    double autoTuneLeft_ = 0.0;
    bool alarm1_ = false;
    bool alarm2_ = false;
    int profState_ = 0;
    bool held_ = false;
    bool inRamp_ = true;
    double phase_ = 0.0;
    double rampFrom_ = 0.0;
};

// ---- plant file ----

namespace {

bool fitsProcess(const NodeConfig& c, double value) {
    if (isProfiler(c.family)) {
        const double raw = std::nearbyint(value * 10.0);
        return raw >= -32768 && raw <= 32767;
    }
    const double raw = std::nearbyint(value / engineeringStep(c)) + kOffset;
    return raw >= 0 && raw <= 65535;
}

bool fitsOffset(const NodeConfig& c, double value) {
    const double raw = std::nearbyint(value / engineeringStep(c)) + kOffset;
    return raw >= 0 && raw <= 65535;
}

QString checkConfig(const NodeConfig& c) {
    if (c.node < 1 || c.node > 64)
        return QStringLiteral("node address %1 is outside 1..64").arg(c.node);
    if (c.decimalCode < 0 || c.decimalCode > 3)
        return QStringLiteral("decimal code %1 is outside 0..3").arg(c.decimalCode);
    const QString range = isProfiler(c.family) ? QStringLiteral("-3276.8..3276.7")
                                               : QStringLiteral("%1..%2")
                                                     .arg(-kOffset * engineeringStep(c))
                                                     .arg((65535 - kOffset) * engineeringStep(c));
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
                                                      {"dev2", c.dev2},
                                                      {"deadband", c.deadBand}};
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
    if (c.pb <= 0.0 || c.pb / engineeringStep(c) > 65535)
        return QStringLiteral("pb must be above 0 and fit a 16-bit register");
    if (c.ti < 0 || c.ti > 65535 || c.coolPb < 0 || c.coolPb > 65535 || c.revision < 0 ||
        c.revision > 65535)
        return QStringLiteral("ti, coolpb and rev must be within 0..65535");
    if (c.td < 0.0 || c.td * 10.0 > 65535)
        return QStringLiteral("td must be within 0..6553.5");
    if (c.profile.size() > kSegments)
        return QStringLiteral("a profile has at most %1 segments").arg(kSegments);
    if (!c.profile.isEmpty() && !isProfiler(c.family))
        return QStringLiteral("only K8 and K20 controllers run profiles");
    for (const ProfileSegment& seg : c.profile) {
        if (!fitsProcess(c, seg.sp) || seg.rampMinutes < 0 || seg.rampMinutes > 32767 ||
            seg.soakMinutes < 0 || seg.soakMinutes > 32767)
            return QStringLiteral("profile segment out of range (setpoint -3276.8..3276.7, "
                                  "times 0..32767 minutes)");
    }
    return {};
}

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
    const bool k40 = !isProfiler(c.family);
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
    const std::pair<const char*, double*> numbers[] = {
        {"sp", &c.sp},         {"dev1", &c.dev1}, {"dev2", &c.dev2}, {"tau", &c.tau},
        {"wander", &c.wander}, {"pb", &c.pb},     {"td", &c.td},     {"deadband", &c.deadBand}};
    for (const auto& [name, target] : numbers) {
        if (key == QLatin1String(name)) {
            if (!number)
                return badNumber;
            *target = *number;
            return {};
        }
    }
    const std::pair<const char*, std::optional<double>*> optionals[] = {
        {"pv", &c.pv}, {"alarm1", &c.alarm1}, {"alarm2", &c.alarm2}, {"noise", &c.noise}};
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
        const QString why = checkConfig(c);
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

// ---- SimPlant ----

SimPlant::SimPlant(QObject* parent) : QObject(parent) {
    connect(&timer_, &QTimer::timeout, this, &SimPlant::tick);
}

SimPlant::~SimPlant() = default;

bool SimPlant::load(const QString& path, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        if (error)
            *error = QStringLiteral("%1: cannot read: %2").arg(path, file.errorString());
        return false;
    }
    QString why;
    if (!loadText(QString::fromUtf8(file.readAll()), &why)) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, why);
        return false;
    }
    return true;
}

bool SimPlant::loadText(const QString& text, QString* error) {
    const auto configs = parse(text, error);
    if (!configs)
        return false;
    clear();
    for (const NodeConfig& c : *configs)
        addNode(c);
    return true;
}

bool SimPlant::addNode(const NodeConfig& config, QString* error) {
    QString why = checkConfig(config);
    if (why.isEmpty() && controllers_.contains(config.node))
        why = QStringLiteral("node %1 is already defined").arg(config.node);
    if (!why.isEmpty()) {
        if (error)
            *error = why;
        return false;
    }
    auto* controller = new SimController(config, this);
    const int node = config.node;
    connect(controller, &QModbusServer::dataWritten, this,
            [this, node](QModbusDataUnit::RegisterType, int address, int size) {
                emit registersWritten(node, address, size);
            });
    controllers_.insert(node, controller);
    return true;
}

void SimPlant::clear() {
    qDeleteAll(controllers_);
    controllers_.clear();
}

void SimPlant::start(int periodMs) {
    timer_.start(std::max(periodMs, 1));
    lastTick_.start();
}

void SimPlant::stop() {
    timer_.stop();
}

void SimPlant::tick() {
    // A stalled event loop must not make the process jump by minutes in one step.
    const double dt = std::min(lastTick_.restart() / 1000.0, 2.0);
    step(dt);
}

void SimPlant::step(double seconds) {
    QList<int> order = controllers_.keys();
    std::sort(order.begin(), order.end());
    for (int node : order)
        controllers_.value(node)->step(seconds, profileMinute_, random_);
}

void SimPlant::setProfileMinute(double seconds) {
    profileMinute_ = std::max(seconds, 1e-3);
}

SimController* SimPlant::find(int node) const {
    return controllers_.value(node, nullptr);
}

bool SimPlant::hasNode(int node) const {
    return controllers_.contains(node);
}

QList<int> SimPlant::nodes() const {
    QList<int> list = controllers_.keys();
    std::sort(list.begin(), list.end());
    return list;
}

std::optional<NodeConfig> SimPlant::config(int node) const {
    if (const SimController* c = find(node))
        return c->config();
    return std::nullopt;
}

namespace {

template <typename R, typename F>
R ask(const QHash<int, SimController*>& controllers, int node, R none, F f) {
    const SimController* c = controllers.value(node, nullptr);
    return c ? f(*c) : none;
}

} // namespace

bool SimPlant::hasRegister(int node, int address) const {
    return ask(controllers_, node, false,
               [=](const SimController& c) { return c.hasRegister(address); });
}

quint16 SimPlant::reg(int node, int address) const {
    return ask(controllers_, node, quint16(0),
               [=](const SimController& c) { return c.reg(address); });
}

double SimPlant::pv(int node) const {
    return ask(controllers_, node, 0.0, [](const SimController& c) { return c.pv(); });
}

double SimPlant::sp(int node) const {
    return ask(controllers_, node, 0.0, [](const SimController& c) { return c.sp(); });
}

double SimPlant::output(int node) const {
    return ask(controllers_, node, 0.0, [](const SimController& c) { return c.output(); });
}

int SimPlant::profileState(int node) const {
    return ask(controllers_, node, 0, [](const SimController& c) { return c.profileState(); });
}

void SimPlant::setReg(int node, int address, quint16 value) {
    if (SimController* c = find(node))
        c->setRegDirect(address, value);
}

void SimPlant::setPv(int node, double value) {
    if (SimController* c = find(node))
        c->setPv(value);
}

void SimPlant::setSp(int node, double value) {
    if (SimController* c = find(node))
        c->setSp(value);
}

QModbusResponse SimPlant::process(int node, const QModbusRequest& request) {
    if (SimController* c = find(node))
        return c->answer(request);
    return QModbusExceptionResponse(request.functionCode(),
                                    QModbusPdu::GatewayTargetDeviceFailedToRespond);
}

} // namespace sim
