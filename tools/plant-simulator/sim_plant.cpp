#include "sim_plant.h"

#include <QFile>
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
constexpr Range kTuningWords[] = {{reg::PropBand, reg::DeadBand}};
constexpr Range kDeadBandWord[] = {{reg::DeadBand, reg::DeadBand}};
constexpr Range kProfileBlock[] = {
    {reg::ProfileBlock, reg::ProfileBlock + reg::ProfileBlockSize - 1}};
constexpr int kImageSize = 1083;
constexpr int kOffset = reg::OffsetZero;
constexpr int kSegments = reg::Segments;
constexpr double kOutputBias = 35.0;
// The loop is integrated in steps of at most this many seconds.
constexpr double kSubStep = 0.05;
constexpr int kMaxSubSteps = 100000;
constexpr double kIntegralLimit = 1000.0;

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

quint16 tuneWord(double value) {
    return static_cast<quint16>(std::clamp(roundEven(value), 0L, long{reg::TuneWordMax}));
}

// The registers and values of a write request, or nothing when the request is malformed.
struct WriteRequest {
    int address = 0;
    QList<quint16> values;
};

std::optional<WriteRequest> decodeWrite(const QModbusRequest& request) {
    const QByteArray data = request.data();
    auto word = [&data](qsizetype at) {
        return static_cast<quint16>((static_cast<quint8>(data.at(at)) << 8) |
                                    static_cast<quint8>(data.at(at + 1)));
    };
    if (request.functionCode() == QModbusPdu::WriteSingleRegister) {
        if (data.size() != 4)
            return std::nullopt;
        return WriteRequest{word(0), {word(2)}};
    }
    if (data.size() < 5)
        return std::nullopt;
    const int count = word(2);
    const int bytes = static_cast<quint8>(data.at(4));
    if (count < 1 || count > 123 || bytes != 2 * count || data.size() != 5 + bytes)
        return std::nullopt;
    WriteRequest write{word(0), {}};
    for (int i = 0; i < count; ++i)
        write.values.append(word(5 + 2 * i));
    return write;
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
//
// The loop: the controller's PID (derivative on PV) drives an integrating process, PV rising
// with the output above the bias that holds it steady. The process gain is chosen so that at the
// plant file's band the loop follows a setpoint change with time constant tau; the tuning words
// in force shape every response after that. The output word shows 0..100 %, but the process
// takes the whole of the PID's output, as if the final element had room to spare, so that a
// large setpoint change is followed as readily as a small one. The relay of the auto-tune and of
// an on/off controller (band 0) gives exactly 0 or 100 %.
class SimController : public QModbusServer {
public:
    SimController(const NodeConfig& config, QObject* parent)
        : QModbusServer(parent), config_(config), step_(engineeringStep(config)),
          image_(kImageSize, 0) {
        setServerAddress(config.node);
        pv_ = measured_ = config.pv.value_or(config.sp);
        noise_ = config.noise.value_or(1.5 * step_);
        const double pb = config.pb.value_or(100.0 * step_);
        naturalBand_ = pb > 0.0 ? pb : 100.0 * step_;
        gain_ = naturalBand_ / (100.0 * config.tau);
        deadBandExists_ = revisionHasDeadBand(config.revision);
        image_[reg::Alarm1Set] = config.alarm1 ? encodeOffset(*config.alarm1) : 65535;
        image_[reg::Alarm1Dev] = encodeOffset(config.dev1);
        image_[reg::Alarm2Set] = config.alarm2 ? encodeOffset(*config.alarm2) : 0;
        image_[reg::Alarm2Dev] = encodeOffset(config.dev2);
        image_[reg::PropBand] = tuneWord(pb / step_);
        image_[reg::Reset] = tuneWord(config.ti);
        image_[reg::Rate] = tuneWord(config.td * 10.0);
        image_[reg::CoolPb] = tuneWord(config.coolPb);
        image_[reg::DeadBand] = deadBandExists_ ? encodeOffset(config.deadBand) : 0;
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
        relayOn_ = pv_ < sp();
        out_ = image_[reg::PropBand] == 0
                   ? (relayOn_ ? 100.0 : 0.0)
                   : std::clamp(kOutputBias + 100.0 * (sp() - pv_) / band(), 0.0, 100.0);
        publish();
    }

    const NodeConfig& config() const { return config_; }

    QModbusResponse answer(const QModbusRequest& request) {
        const QModbusPdu::FunctionCode code = request.functionCode();
        switch (code) {
        case QModbusPdu::ReadHoldingRegisters:
        case QModbusPdu::ReadInputRegisters:
            return processRequest(request);
        case QModbusPdu::WriteSingleRegister:
        case QModbusPdu::WriteMultipleRegisters: {
            const auto write = decodeWrite(request);
            if (!write)
                return QModbusExceptionResponse(code, QModbusPdu::IllegalDataValue);
            if (const auto refused = refusal(code, *write))
                return QModbusExceptionResponse(code, *refused);
            return processRequest(request);
        }
        default:
            return QModbusExceptionResponse(code, QModbusPdu::IllegalFunction);
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
        if (!(dt > 0.0))
            return;
        if (profiler() && running() && !held_)
            advanceProfile(dt / std::max(profileMinute, 1e-3));

        const int n = static_cast<int>(
            std::clamp(std::ceil(dt / kSubStep), 1.0, static_cast<double>(kMaxSubSteps)));
        for (int i = 0; i < n; ++i)
            control(dt / n);
        if (autoTuning()) {
            autoTuneLeft_ -= dt;
            if (autoTuneLeft_ <= 0.0)
                finishAutoTune();
        }

        if (config_.wander > 0.0) {
            disturbance_ +=
                -disturbance_ * std::min(dt / 30.0, 1.0) +
                config_.wander * (2.0 * rng.generateDouble() - 1.0) * std::sqrt(dt) * 0.5;
            disturbance_ = std::clamp(disturbance_, -3.0 * config_.wander, 3.0 * config_.wander);
        }
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

    // What the controller says to a well-formed write before any word of it is taken.
    std::optional<QModbusPdu::ExceptionCode> refusal(QModbusPdu::FunctionCode code,
                                                     const WriteRequest& write) const {
        const int first = write.address;
        const int count = static_cast<int>(write.values.size());
        if (first + count > kImageSize || !covers(holding(), first, count) ||
            touches(readOnly(), first, count) ||
            (!deadBandExists_ && touches(kDeadBandWord, first, count)))
            return QModbusPdu::IllegalDataAddress;
        // The profile goes in whole, and never under a running profile.
        if (touches(kProfileBlock, first, count)) {
            if (code != QModbusPdu::WriteMultipleRegisters || first != reg::ProfileBlock ||
                count != reg::ProfileBlockSize)
                return QModbusPdu::IllegalDataAddress;
            if (running())
                return QModbusPdu::ServerDeviceBusy;
        }
        if (autoTuning() && touches(kTuningWords, first, count))
            return QModbusPdu::ServerDeviceBusy;
        for (int i = 0; i < count; ++i)
            if (!accepts(first + i, write.values.at(i)))
                return QModbusPdu::IllegalDataValue;
        return std::nullopt;
    }

    static bool accepts(int address, quint16 value) {
        switch (address) {
        case reg::PropBand:
        case reg::Reset:
        case reg::Rate:
        case reg::CoolPb:
            return value <= reg::TuneWordMax;
        case reg::DeadBand:
            return std::abs(static_cast<int>(value) - kOffset) <= reg::TuneWordMax;
        case reg::TuneCommand:
            return value == reg::TuneWritePrepare || value == reg::TuneAutoStart;
        default:
            // Segment times are minutes, never negative.
            if (address >= reg::ProfileBlock + kSegments &&
                address < reg::ProfileBlock + reg::ProfileBlockSize)
                return fromWord(value) >= 0;
            return true;
        }
    }

    int pvRegister() const { return profiler() ? reg::ProfPv : reg::K40Pv; }
    int outputRegister() const { return profiler() ? reg::ProfOutput : reg::K40Output; }
    int statusRegister() const { return profiler() ? reg::ProfStatus : reg::K40Status; }
    bool running() const { return profState_ >= 1 && profState_ < reg::StateFinished; }
    bool autoTuning() const { return image_[reg::AutoTuneState] == reg::AutoTuneRunning; }

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

    double band() const { return image_[reg::PropBand] * step_; }

    // One integration step of the loop. PV and the derivative are taken implicitly, so that a
    // tight band or a long step cannot make the arithmetic ring.
    void control(double h) {
        const double wsp = sp();
        const double load = disturbance_ / config_.tau;
        const double last = pv_;
        double next = 0.0;
        if (autoTuning() || image_[reg::PropBand] == 0) {
            // Relay: the auto-tune's swing around SP, or an on/off controller.
            const double hysteresis = autoTuning() ? 0.05 * naturalBand_ : 0.5 * step_;
            if (last < wsp - hysteresis)
                relayOn_ = true;
            else if (last > wsp + hysteresis)
                relayOn_ = false;
            out_ = relayOn_ ? 100.0 : 0.0;
            next = last + h * (gain_ * (out_ - kOutputBias) + load);
        } else {
            const double kc = 100.0 / band();
            const double td = image_[reg::Rate] * 0.1;
            next = (last + h * gain_ * (kc * wsp + integral_) + gain_ * kc * td * last + h * load) /
                   (1.0 + h * gain_ * kc + gain_ * kc * td);
            out_ = std::clamp(kOutputBias + kc * (wsp - next) + integral_ -
                                  kc * td * (next - last) / h,
                              0.0, 100.0);
            const int ti = image_[reg::Reset];
            // Reset acts only within the band, as in the controller, so that a large
            // setpoint change does not wind it up into an overshoot.
            if (ti > 0 && std::abs(wsp - next) < band())
                integral_ = std::clamp(integral_ + kc * h / ti * (wsp - next), -kIntegralLimit,
                                       kIntegralLimit);
        }
        pv_ = std::clamp(next, decodeProcess(profiler() ? 0x8000 : 0),
                         decodeProcess(profiler() ? 0x7FFF : 0xFFFF));
    }

    void applyWrite(int address) {
        if (!profiler() && (address == reg::K40Setpoint || address == reg::K40Sp)) {
            image_[reg::K40Setpoint] = image_[reg::K40Sp] = image_[address];
        } else if (profiler() && address == reg::ProfSp) {
            if (!running())
                image_[reg::ProfWorkingSp] = image_[reg::ProfSp];
        } else if (profiler() && address == reg::ProfileCommand) {
            profileCommand(image_[address]);
        } else if (address == reg::TuneCommand) {
            tuneCommand(image_[address]);
        }
    }

    void tuneCommand(quint16 command) {
        if (command == reg::TuneAutoStart && !autoTuning()) {
            autoTuneLeft_ = config_.tuneSeconds;
            image_[reg::AutoTuneState] = reg::AutoTuneRunning;
            relayOn_ = pv_ < sp();
        } else if (command == reg::TuneWritePrepare && autoTuning()) {
            // Manual values are about to come: the auto-tune ends and leaves the old ones.
            endAutoTune();
        }
    }

    void endAutoTune() {
        autoTuneLeft_ = 0.0;
        image_[reg::AutoTuneState] = 0;
        integral_ = 0.0;
    }

    // The tune has learnt the process: a band that closes the loop in half of tau, the reset
    // that makes that loop just not overshoot, and a little rate.
    void finishAutoTune() {
        endAutoTune();
        image_[reg::PropBand] = std::max<quint16>(1, tuneWord(0.5 * naturalBand_ / step_));
        image_[reg::Reset] = std::max<quint16>(1, tuneWord(2.0 * config_.tau));
        image_[reg::Rate] = tuneWord(config_.tau / 8.0 * 10.0);
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
    double naturalBand_ = 1.0;
    double gain_ = 0.0; // PV units per second for each percent of output above the bias
    double integral_ = 0.0;
    bool relayOn_ = false;
    bool deadBandExists_ = true;
    double autoTuneLeft_ = 0.0;
    bool alarm1_ = false;
    bool alarm2_ = false;
    int profState_ = 0;
    bool held_ = false;
    bool inRamp_ = true;
    double phase_ = 0.0;
    double rampFrom_ = 0.0;
};

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
    QString why = configProblem(config);
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
