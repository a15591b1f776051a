#include "record_seals.h"

#include "plant/plant_store.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QPointer>
#include <QProcess>
#include <QTimer>

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
// lines ten seconds after its first.
constexpr qint64 kAnswerMs = 30000;
// Past this many unanswered lines the oldest are left to become a gap: a helper that takes
// lines and never answers must not grow the workstation without end.
constexpr qsizetype kMostUnanswered = 100000;

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
        m_process->closeWriteChannel();
        if (!m_process->waitForFinished(1000))
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
    m_process->start();
    // What the helper before it never answered goes first, in the order it was written; the
    // helper reads it once it is ready.
    for (const QByteArray& request : std::as_const(m_unanswered))
        m_process->write(request);
    if (!m_unanswered.isEmpty())
        m_watch->start();
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
    if (m_unanswered.size() >= kMostUnanswered)
        m_unanswered.removeFirst();
    m_unanswered.append(request);
    if (m_unanswered.size() == 1)
        m_watch->start();
    m_process->write(request);
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
