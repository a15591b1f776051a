#include "record_seals.h"

#include "plant/plant_store.h"

#include <QCryptographicHash>
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
    connect(m_watch, &QTimer::timeout, this,
            [this] { stopped(QStringLiteral("the sealing helper does not answer")); });
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

void SealClient::start() {
    m_process = new QProcess(this);
    m_process->setProgram(m_helper);
    m_process->setArguments({QStringLiteral("serve")});
    connect(m_process, &QProcess::readyReadStandardOutput, this, &SealClient::readAnswers);
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            stopped(QStringLiteral("no sealing helper at ") + m_helper);
    });
    connect(m_process, &QProcess::finished, this,
            [this] { stopped(QStringLiteral("the sealing helper stopped")); });
#ifdef Q_OS_UNIX
    // Lines go down a pipe of our own, one call each: through QProcess's buffer every line would
    // cost a turn of the event loop more than its seal. The pipe holds a long round's lines.
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) == 0) {
        const int theirs = pipe[0];
        m_process->setStandardInputFile(QProcess::nullDevice());
        m_process->setChildProcessModifier([theirs] { ::dup2(theirs, STDIN_FILENO); });
        m_line = pipe[1];
        ::fcntl(m_line, F_SETFL, O_NONBLOCK);
        ::fcntl(m_line, F_SETPIPE_SZ, kPipeBytes);
        m_lineFree = new QSocketNotifier(m_line, QSocketNotifier::Write, this);
        m_lineFree->setEnabled(false);
        connect(m_lineFree, &QSocketNotifier::activated, this, [this] { send({}); });
        m_process->start();
        ::close(theirs);
    } else {
        m_process->start();
    }
#else
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
                else if (const qint64 pid = m_process ? m_process->processId() : 0)
                    ::kill(pid_t(pid), SIGUSR1);
                break;
            }
            m_outgoing.remove(0, n);
        }
        m_lineFree->setEnabled(!m_outgoing.isEmpty());
        return;
    }
#endif
    m_process->write(request);
}

void SealClient::closeLine() {
#ifdef Q_OS_UNIX
    delete m_lineFree;
    m_lineFree = nullptr;
    if (m_line >= 0)
        ::close(m_line);
    m_line = -1;
    m_outgoing.clear();
#endif
}

void SealClient::readAnswers() {
    bool answered = false;
    while (m_process && m_process->canReadLine()) {
        const QByteArray answer = m_process->readLine().trimmed();
        if (answer == "READY") {
            m_ready = true;
            m_announced = true;
            emit sealingChanged(true, {});
        } else if (answer.startsWith("ER 0 ") && !m_ready) {
            stopped(QString::fromUtf8(answer.mid(5)));
            return;
        } else if (!m_unanswered.isEmpty()) {
            m_unanswered.removeFirst();
            answered = true;
        }
    }
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
    // The helper seals the line's hash: the line itself need not cross the pipe.
    const QByteArray request = "L " + QByteArray::number(n) + ' ' + nameHex + ' ' +
                               QCryptographicHash::hash(line, QCryptographicHash::Sha256).toHex() +
                               '\n';
    // Dropping an older request instead would put the helper's answers out of step with it.
    if (m_unanswered.size() >= kMostUnanswered)
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
