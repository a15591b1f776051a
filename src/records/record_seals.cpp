#include "record_seals.h"

#include "plant/plant_store.h"
#include "platform/seal_core.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QPointer>
#include <QProcess>
#include <QSocketNotifier>
#include <QTimer>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {
QPointer<SealClient> gSealClient;
// Each record file seen: its name as the store knows it, in the request's hex, and the number
// of its last line.
struct SealedFile {
    QByteArray nameHex;
    qint64 lines = 0;
};
QHash<QString, SealedFile> gFiles;
// A helper that has left lines unanswered this long is taken for hung; it answers each round of
// lines thirty seconds after its first.
constexpr qint64 kAnswerMs = 60000;
// Past this many unanswered lines new ones are not handed over and become a gap: a helper that
// takes lines and never answers must not grow the workstation without end.
constexpr qsizetype kMostUnanswered = 100000;
// A workstation that writes lines reads the helper's answers after so many; reading the clock
// for each line instead would cost as much as handing it over.
constexpr int kReadAnswersEvery = 32;
// Longer lines go as their hash: the helper takes requests of up to 64 KB.
constexpr qsizetype kLongestWholeLine = 16384;
#ifdef Q_OS_UNIX
// A round's lines at a hundred a second (150 bytes each), as much as an account may give a pipe.
constexpr int kPipeBytes = 1 << 20;
#endif

qint64 linesIn(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    qint64 lines = 0;
    QByteArray block(1 << 16, Qt::Uninitialized);
    for (qint64 n; (n = f.read(block.data(), block.size())) > 0;)
        lines += block.left(n).count('\n');
    return lines;
}
} // namespace

SealClient::SealClient(QString helper, QObject* parent)
    : QObject(parent), m_helper(std::move(helper)), m_restart(new QTimer(this)),
      m_watch(new QTimer(this)) {
#ifdef Q_OS_UNIX
    // A helper gone while a line is written to its pipe is noticed by its process, not by a
    // signal that would end the workstation.
    std::signal(SIGPIPE, SIG_IGN);
#endif
    m_restart->setSingleShot(true);
    m_restart->setInterval(kRestartMs);
    connect(m_restart, &QTimer::timeout, this, &SealClient::start);
    // Hung: lines handed over and no answer for this long. Armed only while lines wait.
    m_watch->setSingleShot(true);
    m_watch->setInterval(kAnswerMs);
    connect(m_watch, &QTimer::timeout, this, [this] {
        // Answers are read as lines are handed over; a workstation that writes no more reads
        // them here.
        readAnswers();
        if (!m_watch->isActive() && !m_unanswered.isEmpty())
            stopped(QStringLiteral("the sealing helper does not answer"));
    });
    start();
}

SealClient::~SealClient() {
    if (m_process) {
        m_process->disconnect(this);
        closeLine();
        m_process->closeWriteChannel();
#ifdef Q_OS_UNIX
        // Woken from its round, the helper signs what it took and ends.
        if (const qint64 pid = m_process->processId())
            ::kill(pid_t(pid), SIGTERM);
#endif
        if (!m_process->waitForFinished(3000))
            m_process->kill();
    }
}

qint64 SealClient::helperPid() const {
    return m_process ? m_process->processId() : 0;
}

void SealClient::setRestartMs(int ms) {
    m_restart->setInterval(ms);
}

void SealClient::setAnswerMs(int ms) {
    m_watch->setInterval(ms);
}

void SealClient::start() {
    m_process = new QProcess(this);
    m_process->setProgram(m_helper);
    m_process->setArguments({QStringLiteral("serve")});
    m_incoming.clear();
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            stopped(QStringLiteral("no sealing helper at ") + m_helper);
    });
    connect(m_process, &QProcess::finished, this,
            [this] { stopped(QStringLiteral("the sealing helper stopped")); });
#ifdef Q_OS_UNIX
    // Lines go down a pipe of our own, one call each: through QProcess's buffer every line would
    // cost a turn of the event loop more than its seal. The pipe holds a long round's lines.
    // Answers come back up a second one, read as lines are handed over: a wake of the workstation
    // for each round's answers would cost more than sealing a round of lines at one a second.
    int lines[2];
    int answers[2];
    if (::pipe2(lines, O_CLOEXEC) == 0) {
        if (::pipe2(answers, O_CLOEXEC) != 0) {
            ::close(lines[0]);
            ::close(lines[1]);
            stopped(QStringLiteral("no pipe for the sealing helper"));
            return;
        }
        const int theirs = lines[0];
        const int theirAnswers = answers[1];
        m_process->setStandardInputFile(QProcess::nullDevice());
        m_process->setStandardOutputFile(QProcess::nullDevice());
        m_process->setChildProcessModifier([theirs, theirAnswers] {
            ::dup2(theirs, STDIN_FILENO);
            ::dup2(theirAnswers, STDOUT_FILENO);
        });
        m_line = lines[1];
        ::fcntl(m_line, F_SETFL, O_NONBLOCK);
        ::fcntl(m_line, F_SETPIPE_SZ, kPipeBytes);
        m_lineFree = new QSocketNotifier(m_line, QSocketNotifier::Write, this);
        m_lineFree->setEnabled(false);
        connect(m_lineFree, &QSocketNotifier::activated, this, [this] { send({}); });
        m_answers = answers[0];
        ::fcntl(m_answers, F_SETFL, O_NONBLOCK);
        ::fcntl(m_answers, F_SETPIPE_SZ, kPipeBytes);
        // Until the helper says it is ready; then answers are read when lines are handed over.
        m_answered = new QSocketNotifier(m_answers, QSocketNotifier::Read, this);
        connect(m_answered, &QSocketNotifier::activated, this, &SealClient::readAnswers);
        m_process->start();
        ::close(theirs);
        ::close(theirAnswers);
    } else {
        stopped(QStringLiteral("no pipe for the sealing helper"));
        return;
    }
#else
    connect(m_process, &QProcess::readyReadStandardOutput, this, &SealClient::readAnswers);
    m_process->start();
#endif
    // What the helper before it never answered goes first, in the order it was written; the
    // helper reads it once it is ready.
    for (const QByteArray& request : std::as_const(m_unanswered))
        send(request);
    if (!m_unanswered.isEmpty())
        m_watch->start();
}

void SealClient::send(const QByteArray& request) {
#ifdef Q_OS_UNIX
    if (m_line >= 0) {
        m_outgoing += request;
        while (!m_outgoing.isEmpty()) {
            const ssize_t n = ::write(m_line, m_outgoing.constData(), size_t(m_outgoing.size()));
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                // Full: the helper is asked to end its round and read; the rest goes then. Gone:
                // its end is noticed by its process.
                if (errno != EAGAIN && errno != EWOULDBLOCK)
                    m_outgoing.clear();
                else
                    m_flooded = endRound();
                break;
            }
            m_outgoing.remove(0, n);
        }
        // The rest of a flood is in the pipe: sealed now, not at the end of the next round.
        if (m_outgoing.isEmpty() && m_flooded)
            m_flooded = !endRound();
        if (m_lineFree->isEnabled() == m_outgoing.isEmpty())
            m_lineFree->setEnabled(!m_outgoing.isEmpty());
        return;
    }
#endif
    m_process->write(request);
}

bool SealClient::endRound() {
#ifdef Q_OS_UNIX
    const qint64 pid = m_process ? m_process->processId() : 0;
    return pid > 0 && ::kill(pid_t(pid), SIGUSR1) == 0;
#else
    return false;
#endif
}

void SealClient::closeLine() {
#ifdef Q_OS_UNIX
    delete m_lineFree;
    m_lineFree = nullptr;
    delete m_answered;
    m_answered = nullptr;
    for (int* fd : {&m_line, &m_answers}) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
    m_outgoing.clear();
    m_flooded = false;
#endif
}

int SealClient::pending() {
    readAnswers();
    return int(m_unanswered.size());
}

void SealClient::readAnswers() {
    m_sinceRead = 0;
#ifdef Q_OS_UNIX
    char buffer[65536];
    for (ssize_t n; m_answers >= 0;) {
        n = ::read(m_answers, buffer, sizeof buffer);
        if (n > 0)
            m_incoming.append(buffer, n);
        else if (n < 0 && errno == EINTR)
            continue;
        else if (n == 0 && m_answered) // the helper's end: its process says why
            m_answered->setEnabled(false);
        if (n <= 0)
            break;
    }
#else
    if (m_process)
        m_incoming += m_process->readAllStandardOutput();
#endif
    bool answered = false;
    qsizetype at = 0;
    for (qsizetype end; m_process && (end = m_incoming.indexOf('\n', at)) >= 0; at = end + 1) {
        const QByteArray answer = m_incoming.mid(at, end - at).trimmed();
        if (answer == "READY") {
            m_ready = true;
            m_announced = true;
#ifdef Q_OS_UNIX
            if (m_answered)
                m_answered->setEnabled(false);
#endif
            emit sealingChanged(true, {});
        } else if (answer.startsWith("ER 0 ") && !m_ready) {
            stopped(QString::fromUtf8(answer.mid(5)));
            return;
        } else if (!m_unanswered.isEmpty()) {
            m_unanswered.removeFirst();
            answered = true;
        }
    }
    m_incoming.remove(0, at);
    // Answers give the helper its time again for the lines still waiting.
    if (answered && !m_unanswered.isEmpty())
        m_watch->start();
    else if (answered)
        m_watch->stop();
}

void SealClient::stopped(const QString& why) {
    if (!m_process)
        return;
    QProcess* process = m_process;
    m_process = nullptr;
    process->disconnect(this);
    closeLine();
    process->kill();
    process->deleteLater();
    const bool wasOn = m_ready || !m_announced;
    m_ready = false;
    m_announced = true;
    m_watch->stop();
    if (wasOn)
        emit sealingChanged(false, why);
    m_restart->start();
}

void SealClient::seal(const QByteArray& nameHex, qint64 n, const QByteArray& line) {
    // Not running: the helper records the line in a gap at its next seal. One still starting
    // takes the line into its pipe.
    if (!m_process || m_process->state() == QProcess::NotRunning)
        return;
    // The line itself goes, and the helper hashes it with the rest of its round: hashing here
    // would cost the workstation's tick more than the write. A line the helper's request cannot
    // carry goes as its hash.
    QByteArray request;
    request.reserve(line.size() + nameHex.size() + 24);
    const bool whole = line.size() <= kLongestWholeLine && !line.contains('\n');
    request.append(whole ? "T " : "L ").append(QByteArray::number(n)).append(' ').append(nameHex);
    request.append(' ');
    if (whole) {
        request.append(line);
    } else {
        const std::string hash =
            seal::sha256(std::string_view(line.constData(), size_t(line.size())));
        request.append(QByteArray::fromRawData(hash.data(), qsizetype(hash.size())).toHex());
    }
    request.append('\n');
    if (++m_sinceRead >= kReadAnswersEvery)
        readAnswers();
    // Dropping an older request instead would put the helper's answers out of step with it.
    if (!m_process || m_unanswered.size() >= kMostUnanswered)
        return;
    m_unanswered.append(request);
    if (m_unanswered.size() == 1)
        m_watch->start();
    send(request);
}

void installSealClient(SealClient* client) {
    gSealClient = client;
}

SealClient* sealClient() {
    return gSealClient.data();
}

void sealWrittenLine(const QString& path, const QByteArray& line) {
    SealClient* client = gSealClient.data();
    if (!client)
        return;
    auto file = gFiles.find(path);
    if (file == gFiles.end())
        file = gFiles.insert(
            path, {QDir(gAppPath).relativeFilePath(path).toUtf8().toHex(), linesIn(path)});
    else
        ++file->lines;
    client->seal(file->nameHex, file->lines, line);
}

void resetRecordSeals() {
    gFiles.clear();
}
