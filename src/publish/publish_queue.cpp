#include "publish_queue.h"

void PublishQueue::push(OutMessage message) {
    if (message.kind == OutMessage::Kind::Value) {
        for (qsizetype i = 0; i < m_messages.size(); ++i) {
            if (m_messages[i].kind == OutMessage::Kind::Value &&
                m_messages[i].topic == message.topic) {
                m_messages.removeAt(i);
                ++m_dropped;
                break;
            }
        }
    }
    makeRoom();
    m_messages.append(std::move(message));
}

void PublishQueue::pushFront(const QList<OutMessage>& messages) {
    m_messages = messages + m_messages;
    while (m_messages.size() > m_capacity) {
        // What was put in front stays while anything that waited behind it can go: the oldest
        // value first, then the oldest event.
        const qsizetype behind = std::min(messages.size(), m_messages.size() - 1);
        qsizetype victim = behind;
        for (qsizetype i = behind; i < m_messages.size(); ++i)
            if (m_messages[i].kind == OutMessage::Kind::Value) {
                victim = i;
                break;
            }
        m_messages.removeAt(victim);
        ++m_dropped;
    }
}

OutMessage PublishQueue::takeFirst() {
    return m_messages.takeFirst();
}

void PublishQueue::dropValues() {
    m_dropped += quint64(
        m_messages.removeIf([](const OutMessage& m) { return m.kind == OutMessage::Kind::Value; }));
}

void PublishQueue::makeRoom() {
    if (m_messages.size() < m_capacity)
        return;
    for (qsizetype i = 0; i < m_messages.size(); ++i) {
        if (m_messages[i].kind == OutMessage::Kind::Value) {
            m_messages.removeAt(i);
            ++m_dropped;
            return;
        }
    }
    m_messages.removeFirst();
    ++m_dropped;
}
