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
QHash<QString, qint64> gLineCounts;
// A helper that has left lines unanswered this long is taken for hung.
constexpr qint64 kAnswerMs = 10000;

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
}

void SealClient::readAnswers() {
    while (m_process && m_process->canReadLine()) {
        const QByteArray answer = m_process->readLine().trimmed();
        if (answer == "READY") {
            m_ready = true;
            m_announced = true;
            emit sealingChanged(true, {});
        } else if (answer.startsWith("ER 0 ") && !m_ready) {
            stopped(QString::fromUtf8(answer.mid(5)));
            return;
        } else if (m_pending > 0) {
            // Each answer gives the helper its time again for the lines still waiting.
            if (--m_pending > 0)
                m_watch->start();
            else
                m_watch->stop();
        }
    }
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
    m_pending = 0;
    m_watch->stop();
    if (wasOn)
        emit sealingChanged(false, why);
    m_restart->start();
}

void SealClient::seal(const QString& name, qint64 n, const QByteArray& line) {
    // Not running: the helper records the line in a gap at its next seal. One still starting
    // takes the line into its pipe.
    if (!m_process || m_process->state() == QProcess::NotRunning)
        return;
    if (m_pending == 0)
        m_watch->start();
    // The helper seals the line's hash: the line itself need not cross the pipe.
    m_process->write("L " + QByteArray::number(n) + ' ' + name.toUtf8().toHex() + ' ' +
                     QCryptographicHash::hash(line, QCryptographicHash::Sha256).toHex() + '\n');
    ++m_pending;
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
    auto count = gLineCounts.find(path);
    if (count == gLineCounts.end())
        count = gLineCounts.insert(path, linesIn(path));
    else
        ++*count;
    const QString name = QDir(gAppPath).relativeFilePath(path);
    client->seal(name, *count, line);
}

void resetRecordSeals() {
    gLineCounts.clear();
}
