#pragma once

#include "modbus_backend.h"

#include <QObject>
#include <QPointer>
#include <QVector>
#include <array>

// The link control: set node, data area, first register, count and direction, fill the buffer
// for a write, start; the outcome comes as readComplete, writeComplete or error(code). One
// transaction at a time. A start while a read runs: the same read joins the running one (one
// outcome for both, so a controller that is not there is reported as not responding, never as
// busy); another request abandons the running read, whose answer is then dropped, so that a late
// answer can never be taken for another controller's. A start while a write runs is refused with
// error 16, and the write still reports how it went.
class Modctl : public QObject {
    Q_OBJECT
public:
    static constexpr int kMaxWords = 125;

    explicit Modctl(QObject* parent = nullptr);

    int node = 1;
    int dataArea = 3;
    int firstRegister = 0;
    int count = 1;
    int direction = 0;

    // Word i of the buffer as a signed 16-bit number.
    qint16 data(int i) const;
    void setData(int i, qint16 value);
    // Word i as a 32-bit number: 0..65535 for a word read, or what was set for a write.
    qint32 longData(int i) const;
    void setLongData(int i, qint32 value);

    // Sets the five fields of a transaction at once.
    void prepare(int nodeAddress, int area, int first, int words, int dir) {
        node = nodeAddress;
        dataArea = area;
        firstRegister = first;
        count = words;
        direction = dir;
    }

    bool busy() const { return m_busy; }
    void start();

signals:
    void readComplete();
    void writeComplete();
    void error(int code);

private:
    void finish(quint64 transaction, const ModbusResult& result, int expectedCount, int dir);
    void failLater(int code);

    std::array<qint32, kMaxWords> m_buffer{};
    bool m_busy = false;
    bool m_busyWriting = false;
    ModbusRequest m_running;
    quint64 m_transaction = 0;
};
