// Simulated plant: the controllers that answer on the Modbus link of the demo and of the
// integration tests.
//
// Plant file: plain text, one controller per line, '#' starts a comment, blank lines are allowed.
//
//     <node> <family> [key=value]...
//
//   node     Modbus unit address, 1..64, each at most once.
//   family   K40, K8 or K20 (any case).
//
// Keys (values in engineering units unless told otherwise):
//   decimal=0..3     K40 only: decimal code reported in the status word (default 1)
//   scaled=0|1       K40 only: 1 = range scaled by the decimal code, 0 = fixed tenths (default 1)
//   sp=V             setpoint (default 100)
//   pv=V             process value at start (default: the setpoint)
//   alarm1=V         alarm 1 setpoint, a high alarm (default: off)
//   dev1=V           alarm 1 deviation, active when PV is above SP by more than V (default 0 = off)
//   alarm2=V         alarm 2 setpoint, a low alarm (default: off)
//   dev2=V           alarm 2 deviation, active when PV is below SP by more than V (default 0 = off)
//   tau=S            time constant of the process in seconds (default 30)
//   noise=V          amplitude of the measurement noise (default: one and a half digits)
//   wander=V         size of a slow random load disturbance (default 0)
//   pb=V             proportional band; 0 makes an on/off controller (default: 100 digits, so
//                    10.0 with one decimal). With the plant's tau it also sets the process
//                    gain: at this band the loop closes with time constant tau.
//   ti=N             integral (reset) time, whole seconds, 0 = none (default 120)
//   td=V             derivative (rate) time in seconds, tenths kept (default 0)
//   coolpb=N         cool proportional band register value (default 0)
//   deadband=V       heat/cool dead band (default 0)
//   rev=N            revision word; last two digits 39 or less: a controller without the dead
//                    band register, which then reads 0 and refuses writes (default 1240)
//   tunetime=S       seconds an auto-tune runs (default 30)
//   profile=SP:RAMP:SOAK[,SP:RAMP:SOAK]...   K8/K20 only: up to 8 segments, times in minutes
//
// Tuning words 11..15 are written one by one or as a block. A band, reset, rate or cool band
// above 9999, a dead band more than 9999 digits from its zero, or a command word other than the
// two below is refused (exception 3). Command word 143: 26664 starts an auto-tune (state word
// 142 reads 2 while it runs, then 0, with a new band, reset and rate); 26661 prepares a write of
// tuning values, and so ends a running auto-tune with the old values. The tuning words refuse
// writes while an auto-tune runs (exception 6). The profile block 1057..1080 is written whole,
// by one write of 24 registers (any other write into it: exception 2); it is the profile that
// the next run command starts. A write while a profile runs or is held is refused (exception
// 6), so a read always gives the profile in force.
//
// Example:
//     1 K40 decimal=1 scaled=1 sp=150 alarm1=180 dev1=15
//     5 K8 sp=25 profile=120:10:20,250:15:30   # a kiln
#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QRandomGenerator>
#include <QString>
#include <QTimer>
#include <QtSerialBus/QModbusPdu>
#include <optional>

namespace sim {

enum class Family { K40, K8, K20 };

struct ProfileSegment {
    double sp = 0.0;
    int rampMinutes = 0;
    int soakMinutes = 0;
};

struct NodeConfig {
    int node = 0;
    Family family = Family::K40;
    int decimalCode = 1;
    bool scaled = true;
    double sp = 100.0;
    std::optional<double> pv{};
    std::optional<double> alarm1{};
    double dev1 = 0.0;
    std::optional<double> alarm2{};
    double dev2 = 0.0;
    double tau = 30.0;
    std::optional<double> noise{};
    double wander = 0.0;
    std::optional<double> pb{};
    int ti = 120;
    double td = 0.0;
    int coolPb = 0;
    double deadBand = 0.0;
    int revision = 1240;
    double tuneSeconds = 30.0;
    QList<ProfileSegment> profile{};
};

QString familyName(Family family);

// Engineering value of one step of the node's registers: 10^-decimal for a scaled K40, 0.1 for a
// fixed-tenths K40 and for the profilers.
double engineeringStep(const NodeConfig& config);

// Why the node cannot be simulated; empty when it can.
QString configProblem(const NodeConfig& config);

// The workstation takes the last two characters of the revision word's signed decimal text:
// above 39 the controller has the heat/cool dead band register.
bool revisionHasDeadBand(int revisionWord);

// Register numbers shared by the plant, the server and the tests.
namespace reg {
inline constexpr int K40Setpoint = 1;
inline constexpr int Alarm1Set = 3;
inline constexpr int Alarm1Dev = 4;
inline constexpr int Alarm2Set = 5;
inline constexpr int Alarm2Dev = 6;
inline constexpr int PropBand = 11;
inline constexpr int Reset = 12;
inline constexpr int Rate = 13;
inline constexpr int CoolPb = 14;
inline constexpr int DeadBand = 15;
inline constexpr int K40Pv = 129;
inline constexpr int K40Sp = 130;
inline constexpr int K40Output = 131;
inline constexpr int K40Status = 133;
inline constexpr int Revision = 141;
inline constexpr int AutoTuneState = 142;
inline constexpr int TuneCommand = 143;
inline constexpr int ProfPv = 1001;
inline constexpr int ProfWorkingSp = 1002;
inline constexpr int ProfSp = 1003;
inline constexpr int ProfOutput = 1004;
inline constexpr int ProfStatus = 1007;
inline constexpr int ProfState = 1009;
inline constexpr int ProfileBlock = 1057;
inline constexpr int ProfileBlockSize = 24;
inline constexpr int ProfileCommand = 1082;
inline constexpr int Segments = 8;

// Zero of an offset number: alarm values, the dead band and the K40 process values.
inline constexpr int OffsetZero = 19999;
// Largest tuning word, and largest distance of the dead band from its zero.
inline constexpr int TuneWordMax = 9999;

inline constexpr quint16 TuneWritePrepare = 26661;
inline constexpr quint16 TuneAutoStart = 26664;
inline constexpr quint16 AutoTuneRunning = 2;
inline constexpr int StateFinished = 17;
inline constexpr quint16 StatusScaledBit = 0x1000;
} // namespace reg

class SimController;

class SimPlant : public QObject {
    Q_OBJECT

public:
    explicit SimPlant(QObject* parent = nullptr);
    ~SimPlant() override;

    // Replace the plant by the file's (or text's) nodes. On failure the plant is unchanged and
    // *error names the line at fault.
    bool load(const QString& path, QString* error);
    bool loadText(const QString& text, QString* error);
    static std::optional<QList<NodeConfig>> parse(const QString& text, QString* error);

    bool addNode(const NodeConfig& config, QString* error = nullptr);
    void clear();

    // Dynamics on a timer of the event loop; step() advances them by hand.
    void start(int periodMs = 250);
    void stop();
    bool isRunning() const { return timer_.isActive(); }
    void step(double seconds);

    // Real seconds that one minute of a profile segment lasts (default 1).
    void setProfileMinute(double seconds);
    double profileMinute() const { return profileMinute_; }

    bool hasNode(int node) const;
    QList<int> nodes() const;
    std::optional<NodeConfig> config(int node) const;

    // Direct access to the register image, bypassing the link's write rules. A write here acts
    // on the model as if the controller had taken the value itself (PV, SP, profile state...).
    // Addresses outside the image read 0 and are not written.
    bool hasRegister(int node, int address) const;
    quint16 reg(int node, int address) const;
    void setReg(int node, int address, quint16 value);

    double pv(int node) const;
    double sp(int node) const;
    double output(int node) const;
    int profileState(int node) const;
    void setPv(int node, double value);
    void setSp(int node, double value);

    // Answers one request PDU addressed to the node, as the controller would.
    QModbusResponse process(int node, const QModbusRequest& request);

signals:
    // A register block was written through the link.
    void registersWritten(int node, int address, int count);

private:
    SimController* find(int node) const;
    void tick();

    QHash<int, SimController*> controllers_;
    QTimer timer_;
    QElapsedTimer lastTick_;
    QRandomGenerator random_{20240611u};
    double profileMinute_ = 1.0;
};

} // namespace sim
