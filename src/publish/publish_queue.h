#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// A message waiting for the broker. Values (a controller's state, its tags, the station's status)
// are retained and only the newest of a topic matters; events (alarm rows, audit lines) each
// matter and are kept longest.
struct OutMessage {
    enum class Kind { Value, Event };
    Kind kind = Kind::Value;
    QString topic;
    QByteArray payload;
    bool retain = false;
};

// The messages waiting, bounded. A value replaces one of its topic still waiting; when full, the
// oldest value goes first, and an event only when nothing but events waits. Every message that
// leaves without being sent is counted as dropped.
class PublishQueue {
public:
    explicit PublishQueue(int capacity) : m_capacity(std::max(capacity, 1)) {}

    void push(OutMessage message);
    // Ahead of all that waits, in the order given (a fresh snapshot, events sent but not
    // confirmed when the connection went).
    void pushFront(const QList<OutMessage>& messages);
    OutMessage takeFirst();
    // Drops every waiting value: a fresh snapshot is about to replace them.
    void dropValues();

    bool isEmpty() const { return m_messages.isEmpty(); }
    int size() const { return int(m_messages.size()); }
    int capacity() const { return m_capacity; }
    quint64 dropped() const { return m_dropped; }
    const QList<OutMessage>& messages() const { return m_messages; }

private:
    void makeRoom();

    QList<OutMessage> m_messages;
    int m_capacity;
    quint64 m_dropped = 0;
};
