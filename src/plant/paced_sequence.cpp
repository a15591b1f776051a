#include "paced_sequence.h"

#include "platform/modctl.h"

#include <QTimer>

namespace {} // namespace

PacedSequence::PacedSequence(const QString& modctlName, const QString& timerName, QObject* parent)
    : QObject(parent), m_modctl(new Modctl(this)), m_timer(new QTimer(this)) {
    m_modctl->setObjectName(modctlName);
    m_timer->setObjectName(timerName);
    m_timer->setInterval(kTickMs);
    connect(m_timer, &QTimer::timeout, this, &PacedSequence::tick);
    connect(m_modctl, &Modctl::writeComplete, this, [this] {
        if (running())
            m_writePending = true;
        emit writeComplete();
    });
    connect(m_modctl, &Modctl::readComplete, this, [this] {
        QVector<quint16> words(m_modctl->count);
        for (int i = 0; i < m_modctl->count; ++i)
            words[i] = static_cast<quint16>(m_modctl->longData(i));
        emit blockRead(m_modctl->firstRegister, words);
    });
    connect(m_modctl, &Modctl::error, this, [this](int code) {
        m_timer->stop();
        m_stage = m_stageCount;
        m_writePending = false;
        emit failed(code);
    });
}

void PacedSequence::startWrites(int stageCount, StageWrite stageWrite) {
    m_stageWrite = std::move(stageWrite);
    m_stage = 0;
    m_stageCount = stageCount;
    m_writePending = true;
    m_timer->start();
}

void PacedSequence::tick() {
    if (!m_writePending || !running())
        return;
    m_writePending = false;
    const std::optional<RegisterWrite> write = m_stageWrite(m_stage);
    if (!write) {
        finishWrites();
        return;
    }
    m_modctl->prepare(write->node, ModbusArea::Holding, write->registerNumber, 1, 1);
    m_modctl->setLongData(0, write->raw);
    m_modctl->start();
    ++m_stage;
    if (write->last || !running())
        finishWrites();
}

void PacedSequence::finishWrites() {
    m_stage = m_stageCount;
    m_timer->stop();
    emit writesSent();
}

void PacedSequence::readBlock(int node, int firstRegister, int count) {
    m_modctl->prepare(node, ModbusArea::Holding, firstRegister, count, 0);
    m_modctl->start();
}

void PacedSequence::writeBlock(int node, int firstRegister, const QVector<quint16>& words) {
    m_modctl->prepare(node, ModbusArea::Holding, firstRegister, static_cast<int>(words.size()), 1);
    for (int i = 0; i < words.size(); ++i)
        m_modctl->setLongData(i, words[i]);
    m_modctl->start();
}
