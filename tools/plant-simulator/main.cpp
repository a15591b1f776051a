// plant-simulator: a Modbus TCP or RTU slave that plays the controllers of a plant file.

#include "sim_nodes.h"
#include "sim_plant.h"
#include "sim_rtu.h"
#include "sim_server.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHostAddress>
#include <QSocketNotifier>
#include <QStringList>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <functional>
#include <optional>

#ifdef Q_OS_UNIX
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

const char* const kUsage =
    R"(Answers Modbus TCP requests, or Modbus RTU requests on a serial device
(--rtu), for unit addresses 1..64 as the controllers of a plant file. Nodes that
the file does not list never answer. On RTU a write to address 0 (broadcast) is
carried out by every node that hears it, and answered by none.

Pacing: on RTU (unless --no-pace) each reply is written when the line would have
delivered it: (request characters + 3.5 characters of silence + reply characters)
times the character time (start, 8 data, parity and stop bits over the baud rate;
above 19200 baud the silence is 1750 us) after the request arrived. Over TCP,
--baud N paces the same way, as a gateway to an RS-485 line at that rate that
carries one exchange at a time: a request that comes while the line is busy waits.
The line check counts the requests, the overlaps (a request that came while the
previous exchange was still on the line) and the shortest silence from the end of
a reply to the next request; 'line' shows it, and it is printed at the end.

Plant file: one controller per line, '#' starts a comment, blank lines are allowed:
    <node> <K40|K8|K20> [key=value]...
  keys: decimal=0..3 scaled=0|1 (K40 only), sp= pv= alarm1= dev1= alarm2= dev2=
        tau= noise= wander=
        profile=SP:RAMP:SOAK[,SP:RAMP:SOAK]... (K8/K20 only, times in minutes)
  tuning keys:
        pb=       proportional band, 0 = on/off (default 100 digits, 10.0 at one decimal);
                  at this band the loop follows SP with time constant tau
        ti=       integral (reset) in whole seconds, 0 = none (default 120)
        td=       derivative (rate) in seconds, tenths kept (default 0)
        coolpb=   cool proportional band word (default 0)
        deadband= heat/cool dead band (default 0)
        rev=      revision word (default 1240); last two digits 39 or less: no dead band
                  register (it reads 0 and refuses writes)
        tunetime= seconds an auto-tune runs (default 30)
  e.g.  1 K40 decimal=1 scaled=1 sp=150 alarm1=180 pb=12.5 ti=90 rev=1239
        5 K8 sp=25 profile=120:10:20,250:15:30

Tuning registers 11..15 (band, reset, rate, cool band, dead band), revision 141,
auto-tune state 142 (0 off, 2 running), command 143: 26664 starts an auto-tune,
26661 prepares a tuning write and ends a running auto-tune. Tuning words above 9999
are refused, and so are writes to them while an auto-tune runs. The profile block
1057..1080 (eight setpoints in tenths, then ramp and soak minutes of each segment)
is written whole with one 24-register write; the next run command starts it; a
write while a profile runs or is held is refused with exception 6.

Commands on standard input while running:
  dead N | alive N | exception N CODE | delay N MS | cut N | garble N
  clear [N] | pv N VALUE | sp N VALUE | status | line | reset | help | quit
  (line: the line check; reset: the line check and the request counts start over))";

const char* const kCommands =
    "commands: dead N, alive N, exception N CODE, delay N MS, cut N, garble N, clear [N], "
    "pv N VALUE, sp N VALUE, status, line, reset, help, quit";

void say(const QString& text) {
    std::fputs(qPrintable(text + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

void complain(const QString& text) {
    std::fputs(qPrintable(QStringLiteral("plant-simulator: ") + text + QLatin1Char('\n')), stderr);
    std::fflush(stderr);
}

// The plant and the one front that serves it.
struct Station {
    sim::SimPlant& plant;
    sim::SimNodes& nodes;
    sim::SimServer* tcp = nullptr;
    sim::SimRtuFront* rtu = nullptr;

    const sim::SimWire& wire() const { return rtu ? rtu->wire() : tcp->wire(); }

    QString where() const {
        if (rtu)
            return QStringLiteral("serving RTU on %1 at %2 (%3)")
                .arg(rtu->device(), rtu->format().text(),
                     rtu->isPacing() ? QStringLiteral("paced") : QStringLiteral("not paced"));
        QString text =
            QStringLiteral("listening on %1:%2").arg(tcp->address().toString()).arg(tcp->port());
        if (const auto& format = tcp->wire().pacing())
            text += QStringLiteral(" (paced as a gateway to a %1 line)").arg(format->text());
        return text;
    }

    QString lineText() const {
        QString text = wire().line().summary();
        if (rtu && rtu->droppedBytes() > 0)
            text += QStringLiteral(", %1 stray bytes dropped").arg(rtu->droppedBytes());
        return text;
    }

    void reset() {
        nodes.resetRequestCounts();
        if (rtu)
            rtu->resetLine();
        else
            tcp->wire().line().reset();
    }
};

std::optional<int> toNode(const QString& text) {
    bool ok = false;
    const int node = text.toInt(&ok);
    if (!ok || node < 1 || node > sim::SimServer::MaxNode)
        return std::nullopt;
    return node;
}

std::optional<int> toInt(const QString& text, int min, int max) {
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < min || value > max)
        return std::nullopt;
    return value;
}

QString faultText(const sim::NodeFaults& f) {
    QStringList parts;
    if (f.dead)
        parts << QStringLiteral("dead");
    if (f.exception != 0)
        parts << QStringLiteral("exception %1").arg(f.exception);
    if (f.delayMs != 0)
        parts << QStringLiteral("delay %1 ms").arg(f.delayMs);
    if (f.cut)
        parts << QStringLiteral("cut");
    if (f.garble)
        parts << QStringLiteral("garble");
    return parts.isEmpty() ? QStringLiteral("none") : parts.join(QStringLiteral(", "));
}

QString statusText(const Station& st) {
    const sim::SimPlant& plant = st.plant;
    QStringList lines;
    lines << (st.tcp
                  ? st.where() + QStringLiteral(", %1 connection(s)").arg(st.tcp->connectionCount())
                  : st.where());
    for (int node : plant.nodes()) {
        const sim::NodeConfig c = *plant.config(node);
        const bool k40 = c.family == sim::Family::K40;
        QString line = QStringLiteral("node %1 %2: pv %3 sp %4 out %5% status 0x%6")
                           .arg(node, 2)
                           .arg(sim::familyName(c.family), -3)
                           .arg(plant.pv(node), 0, 'f', 3)
                           .arg(plant.sp(node), 0, 'f', 3)
                           .arg(plant.output(node), 0, 'f', 1)
                           .arg(plant.reg(node, k40 ? sim::reg::K40Status : sim::reg::ProfStatus),
                                4, 16, QLatin1Char('0'));
        if (!k40)
            line += QStringLiteral(" profile %1").arg(plant.profileState(node));
        if (plant.reg(node, sim::reg::AutoTuneState) == sim::reg::AutoTuneRunning)
            line += QStringLiteral(" auto-tuning");
        line += QStringLiteral(" requests %1 faults %2")
                    .arg(st.nodes.requestCount(node))
                    .arg(faultText(st.nodes.faults(node)));
        lines << line;
    }
    return lines.join(QLatin1Char('\n'));
}

// Runs one console command; returns the answer to print.
QString runCommand(const QString& input, Station& st) {
    sim::SimPlant& plant = st.plant;
    sim::SimNodes& nodes = st.nodes;
    const QStringList w = input.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (w.isEmpty())
        return {};
    const QString cmd = w.at(0).toLower();
    const auto node = w.size() >= 2 ? toNode(w.at(1)) : std::nullopt;
    const QString badNode = QStringLiteral("%1: node address 1..64 expected").arg(cmd);
    auto done = [&] {
        return QStringLiteral("node %1: %2").arg(*node).arg(faultText(nodes.faults(*node)));
    };

    if (cmd == QLatin1String("quit") || cmd == QLatin1String("exit")) {
        QCoreApplication::quit();
        return QStringLiteral("bye");
    }
    if (cmd == QLatin1String("help"))
        return QString::fromLatin1(kCommands);
    if (cmd == QLatin1String("status"))
        return statusText(st);
    if (cmd == QLatin1String("line"))
        return st.lineText();
    if (cmd == QLatin1String("reset")) {
        st.reset();
        return QStringLiteral("line check and request counts reset");
    }
    if (cmd == QLatin1String("clear")) {
        if (w.size() == 1) {
            nodes.clearFaults();
            return QStringLiteral("all faults cleared");
        }
        if (!node)
            return badNode;
        nodes.setDead(*node, false);
        nodes.setException(*node, 0);
        nodes.setDelay(*node, 0);
        nodes.setCut(*node, false);
        nodes.setGarble(*node, false);
        return done();
    }
    const std::pair<const char*, std::function<void(int)>> flags[] = {{"dead",
                                                                       [&](int n) {
                                                                           nodes.setDead(n, true);
                                                                       }},
                                                                      {"alive",
                                                                       [&](int n) {
                                                                           nodes.setDead(n, false);
                                                                       }},
                                                                      {"cut",
                                                                       [&](int n) {
                                                                           nodes.setCut(n, true);
                                                                       }},
                                                                      {"garble", [&](int n) {
                                                                           nodes.setGarble(n, true);
                                                                       }}};
    for (const auto& [name, apply] : flags) {
        if (cmd == QLatin1String(name)) {
            if (w.size() != 2 || !node)
                return QStringLiteral("usage: %1 N (N = 1..64)").arg(cmd);
            apply(*node);
            return done();
        }
    }
    if (cmd == QLatin1String("exception") || cmd == QLatin1String("delay")) {
        const bool exception = cmd == QLatin1String("exception");
        const auto value =
            w.size() == 3 ? toInt(w.at(2), 0, exception ? 255 : 600000) : std::nullopt;
        if (!node || !value)
            return exception ? QStringLiteral("usage: exception N CODE (CODE 1..255, 0 = none)")
                             : QStringLiteral("usage: delay N MS (MS 0..600000)");
        if (exception)
            nodes.setException(*node, *value);
        else
            nodes.setDelay(*node, *value);
        return done();
    }
    if (cmd == QLatin1String("pv") || cmd == QLatin1String("sp")) {
        bool ok = false;
        const double value = w.size() == 3 ? w.at(2).toDouble(&ok) : 0.0;
        if (!node || !ok || !std::isfinite(value))
            return QStringLiteral("usage: %1 N VALUE").arg(cmd);
        if (!plant.hasNode(*node))
            return QStringLiteral("node %1 is not in the plant").arg(*node);
        if (cmd == QLatin1String("pv"))
            plant.setPv(*node, value);
        else
            plant.setSp(*node, value);
        return QStringLiteral("node %1: pv %2 sp %3")
            .arg(*node)
            .arg(plant.pv(*node))
            .arg(plant.sp(*node));
    }
    return QStringLiteral("unknown command \"%1\"; %2").arg(cmd, QLatin1String(kCommands));
}

// Adds faults given as N:VALUE on the command line; returns an error text.
QString applyPairs(const QStringList& items, const char* option, int max,
                   const std::function<void(int, int)>& apply) {
    for (const QString& item : items) {
        const QStringList parts = item.split(QLatin1Char(':'));
        const auto node = parts.size() == 2 ? toNode(parts.at(0)) : std::nullopt;
        const auto value = parts.size() == 2 ? toInt(parts.at(1), 0, max) : std::nullopt;
        if (!node || !value)
            return QStringLiteral("--%1 %2: expected N:VALUE with N 1..64 and VALUE 0..%3")
                .arg(QLatin1String(option), item)
                .arg(max);
        apply(*node, *value);
    }
    return {};
}

QString applyNodes(const QStringList& items, const char* option,
                   const std::function<void(int)>& apply) {
    for (const QString& item : items) {
        const auto node = toNode(item);
        if (!node)
            return QStringLiteral("--%1 %2: expected a node address 1..64")
                .arg(QLatin1String(option), item);
        apply(*node);
    }
    return {};
}

#ifdef Q_OS_UNIX
int gSignalFd[2] = {-1, -1};

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(gSignalFd[0], &byte, 1);
}

// SIGINT and SIGTERM end the event loop through a socket pair, the one safe way out of a handler.
void watchSignals(QCoreApplication& app) {
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, gSignalFd) != 0)
        return;
    auto* notifier = new QSocketNotifier(gSignalFd[1], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [notifier] {
        char byte = 0;
        [[maybe_unused]] const ssize_t n = ::read(gSignalFd[1], &byte, 1);
        notifier->setEnabled(false);
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// Commands from standard input. End of input only stops the reading: the simulator goes on
// serving, so that it can run under a script with no input at all.
void watchConsole(QCoreApplication& app, Station& st) {
    if (::fcntl(STDIN_FILENO, F_GETFL) == -1)
        return;
    auto* notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, &app);
    auto* pending = new QByteArray;
    QObject::connect(notifier, &QObject::destroyed, [pending] { delete pending; });
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [=, &st] {
        char chunk[4096];
        const ssize_t n = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            return;
        if (n <= 0) {
            notifier->setEnabled(false);
            return;
        }
        pending->append(chunk, n);
        qsizetype end = 0;
        while ((end = pending->indexOf('\n')) >= 0) {
            const QString line = QString::fromLocal8Bit(pending->left(end)).trimmed();
            pending->remove(0, end + 1);
            const QString answer = runCommand(line, st);
            if (!answer.isEmpty())
                say(answer);
        }
    });
}
#endif

// The serial format of --rtu or of a paced gateway from --baud, --parity and --stop-bits; an
// error text when one of them is wrong.
QString parseFormat(const QCommandLineParser& parser, sim::SerialFormat* format) {
    const auto baud = toInt(parser.value(QStringLiteral("baud")), 50, 4000000);
    if (!baud)
        return QStringLiteral("--baud %1: expected 50..4000000")
            .arg(parser.value(QStringLiteral("baud")));
    const QString parity = parser.value(QStringLiteral("parity")).toUpper();
    if (parity != QLatin1String("N") && parity != QLatin1String("E") &&
        parity != QLatin1String("O"))
        return QStringLiteral("--parity %1: expected N, E or O")
            .arg(parser.value(QStringLiteral("parity")));
    const auto stopBits = toInt(parser.value(QStringLiteral("stop-bits")), 1, 2);
    if (!stopBits)
        return QStringLiteral("--stop-bits %1: expected 1 or 2")
            .arg(parser.value(QStringLiteral("stop-bits")));
    format->baud = *baud;
    format->parity = parity.at(0).toLatin1();
    format->stopBits = *stopBits;
    return {};
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("plant-simulator"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kUsage));
    parser.addHelpOption();
    const QCommandLineOption plantOpt(QStringLiteral("plant"), QStringLiteral("Plant file."),
                                      QStringLiteral("FILE"));
    const QCommandLineOption hostOpt(QStringLiteral("host"),
                                     QStringLiteral("Address to listen on (default 127.0.0.1)."),
                                     QStringLiteral("ADDRESS"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption portOpt(QStringLiteral("port"),
                                     QStringLiteral("TCP port (default 5020, 0 = any free)."),
                                     QStringLiteral("PORT"), QStringLiteral("5020"));
    const QCommandLineOption rtuOpt(
        QStringLiteral("rtu"),
        QStringLiteral("Serve Modbus RTU on this serial device instead of TCP (8 data bits)."),
        QStringLiteral("DEVICE"));
    const QCommandLineOption baudOpt(
        QStringLiteral("baud"),
        QStringLiteral("Baud rate of the RTU line (default 19200); without --rtu, pace TCP "
                       "replies as a gateway to a line at this rate."),
        QStringLiteral("N"), QStringLiteral("19200"));
    const QCommandLineOption parityOpt(QStringLiteral("parity"),
                                       QStringLiteral("Parity of the line: N, E or O (default N)."),
                                       QStringLiteral("N|E|O"), QStringLiteral("N"));
    const QCommandLineOption stopOpt(QStringLiteral("stop-bits"),
                                     QStringLiteral("Stop bits of the line: 1 or 2 (default 1)."),
                                     QStringLiteral("1|2"), QStringLiteral("1"));
    const QCommandLineOption noPaceOpt(
        QStringLiteral("no-pace"),
        QStringLiteral("On RTU, write each reply as soon as it is made, not at the wire's pace."));
    const QCommandLineOption deadOpt(QStringLiteral("dead"),
                                     QStringLiteral("Node N never answers."), QStringLiteral("N"));
    const QCommandLineOption exceptionOpt(QStringLiteral("exception"),
                                          QStringLiteral("Node N answers every request with CODE."),
                                          QStringLiteral("N:CODE"));
    const QCommandLineOption delayOpt(QStringLiteral("delay"),
                                      QStringLiteral("Node N answers MS milliseconds late."),
                                      QStringLiteral("N:MS"));
    const QCommandLineOption cutOpt(QStringLiteral("cut"),
                                    QStringLiteral("Node N sends only part of each reply."),
                                    QStringLiteral("N"));
    const QCommandLineOption garbleOpt(QStringLiteral("garble"),
                                       QStringLiteral("Node N puts stray bytes before each reply."),
                                       QStringLiteral("N"));
    const QCommandLineOption periodOpt(QStringLiteral("period"),
                                       QStringLiteral("Step of the dynamics in ms (default 250)."),
                                       QStringLiteral("MS"), QStringLiteral("250"));
    const QCommandLineOption minuteOpt(
        QStringLiteral("profile-minute"),
        QStringLiteral("Seconds that one profile minute lasts (default 1)."),
        QStringLiteral("SECONDS"), QStringLiteral("1"));
    parser.addOptions({plantOpt, hostOpt, portOpt, rtuOpt, baudOpt, parityOpt, stopOpt, noPaceOpt,
                       deadOpt, exceptionOpt, delayOpt, cutOpt, garbleOpt, periodOpt, minuteOpt});

    if (!parser.parse(QCoreApplication::arguments())) {
        QString why = parser.errorText();
        if (why.endsWith(QLatin1Char('.')))
            why.chop(1);
        complain(why + QStringLiteral("; try --help"));
        return kExitUsage;
    }
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);
    if (!parser.positionalArguments().isEmpty()) {
        complain(QStringLiteral("unexpected argument \"%1\"; try --help")
                     .arg(parser.positionalArguments().constFirst()));
        return kExitUsage;
    }
    if (!parser.isSet(plantOpt)) {
        complain(QStringLiteral("--plant FILE is required; try --help"));
        return kExitUsage;
    }
    const bool rtu = parser.isSet(rtuOpt);
    const bool paced = rtu ? !parser.isSet(noPaceOpt) : parser.isSet(baudOpt);
    if (rtu && (parser.isSet(hostOpt) || parser.isSet(portOpt))) {
        complain(QStringLiteral("--rtu serves no TCP port: leave out --host and --port"));
        return kExitUsage;
    }
    if (!rtu && !paced && (parser.isSet(parityOpt) || parser.isSet(stopOpt))) {
        complain(QStringLiteral("--parity and --stop-bits need --rtu or --baud"));
        return kExitUsage;
    }
    if (!rtu && parser.isSet(noPaceOpt)) {
        complain(QStringLiteral("--no-pace needs --rtu: TCP is paced only with --baud"));
        return kExitUsage;
    }
    sim::SerialFormat format;
    if (const QString why = parseFormat(parser, &format); !why.isEmpty()) {
        complain(why);
        return kExitUsage;
    }
    const QHostAddress host(parser.value(hostOpt));
    if (host.isNull()) {
        complain(QStringLiteral("--host %1: not an IP address").arg(parser.value(hostOpt)));
        return kExitUsage;
    }
    const auto port = toInt(parser.value(portOpt), 0, 65535);
    if (!port) {
        complain(QStringLiteral("--port %1: expected 0..65535").arg(parser.value(portOpt)));
        return kExitUsage;
    }
    const auto period = toInt(parser.value(periodOpt), 10, 60000);
    if (!period) {
        complain(QStringLiteral("--period %1: expected 10..60000 ms").arg(parser.value(periodOpt)));
        return kExitUsage;
    }
    bool minuteOk = false;
    const double minute = parser.value(minuteOpt).toDouble(&minuteOk);
    if (!minuteOk || minute <= 0.0) {
        complain(QStringLiteral("--profile-minute %1: expected a number of seconds above 0")
                     .arg(parser.value(minuteOpt)));
        return kExitUsage;
    }

    sim::SimPlant plant;
    sim::SimNodes nodes(&plant);
    for (const QString& why :
         {applyNodes(parser.values(deadOpt), "dead", [&](int n) { nodes.setDead(n, true); }),
          applyNodes(parser.values(cutOpt), "cut", [&](int n) { nodes.setCut(n, true); }),
          applyNodes(parser.values(garbleOpt), "garble", [&](int n) { nodes.setGarble(n, true); }),
          applyPairs(parser.values(exceptionOpt), "exception", 255,
                     [&](int n, int v) { nodes.setException(n, v); }),
          applyPairs(parser.values(delayOpt), "delay", 600000,
                     [&](int n, int v) { nodes.setDelay(n, v); })}) {
        if (!why.isEmpty()) {
            complain(why);
            return kExitUsage;
        }
    }

    QString error;
    if (!plant.load(parser.value(plantOpt), &error)) {
        complain(error);
        return kExitFailure;
    }

    std::optional<sim::SimServer> server;
    std::optional<sim::SimRtuFront> rtuFront;
    Station st{plant, nodes};
    if (rtu) {
        rtuFront.emplace(&nodes);
        st.rtu = &*rtuFront;
        if (!rtuFront->open(parser.value(rtuOpt), format)) {
            complain(QStringLiteral("cannot open %1: %2")
                         .arg(parser.value(rtuOpt), rtuFront->errorString()));
            return kExitFailure;
        }
        if (!rtuFront->warning().isEmpty())
            complain(rtuFront->warning());
        rtuFront->setPacing(paced);
        QObject::connect(&*rtuFront, &sim::SimRtuFront::message,
                         [](const QString& text) { complain(text); });
    } else {
        server.emplace(&nodes);
        st.tcp = &*server;
        if (paced)
            server->setPacing(format);
        if (!server->listen(host, static_cast<quint16>(*port))) {
            complain(QStringLiteral("cannot listen on %1:%2: %3")
                         .arg(host.toString())
                         .arg(*port)
                         .arg(server->errorString()));
            return kExitFailure;
        }
        QObject::connect(&*server, &sim::SimServer::message,
                         [](const QString& text) { complain(text); });
    }
    plant.setProfileMinute(minute);
    plant.start(*period);

    QStringList list;
    for (int node : plant.nodes())
        list << QString::number(node);
    say(QStringLiteral("plant-simulator %1 for nodes %2").arg(st.where(), list.join(u',')));

#ifdef Q_OS_UNIX
    watchSignals(app);
    watchConsole(app, st);
#endif
    const int status = app.exec();
    say(st.lineText());
    if (server)
        server->close();
    if (rtuFront)
        rtuFront->close();
    return status;
}
