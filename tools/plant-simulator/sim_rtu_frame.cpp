#include "sim_rtu_frame.h"

namespace sim {

namespace {

constexpr qsizetype kHead = 2; // address and function code
constexpr qsizetype kCrc = 2;

// Request data size of a function code: fixed, or a count byte at countAt (index in the data)
// plus the bytes ahead of it and the counted bytes.
struct DataSize {
    qsizetype fixed = -1;
    qsizetype countAt = -1;
};

DataSize requestData(quint8 functionCode) {
    switch (functionCode) {
    case 0x01: // read coils, discrete inputs, holding registers, input registers: first, count
    case 0x02:
    case 0x03:
    case 0x04:
    case 0x05: // write one coil or one register: address, value
    case 0x06:
    case 0x08: // diagnostics: sub-function, data
        return {4, -1};
    case 0x07: // exception status, event counter and log, server id: nothing
    case 0x0B:
    case 0x0C:
    case 0x11:
        return {0, -1};
    case 0x0F: // write coils or registers: first, count, byte count, values
    case 0x10:
        return {-1, 4};
    case 0x14: // file records: byte count, records
    case 0x15:
        return {-1, 0};
    case 0x16: // mask write: address, and mask, or mask
        return {6, -1};
    case 0x17: // read and write: read first, count, write first, count, byte count, values
        return {-1, 8};
    case 0x18: // FIFO queue: address
        return {2, -1};
    default:
        return {};
    }
}

} // namespace

quint16 rtuCrc(QByteArrayView bytes) {
    quint16 crc = 0xFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<quint8>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? static_cast<quint16>((crc >> 1) ^ 0xA001)
                                 : static_cast<quint16>(crc >> 1);
    }
    return crc;
}

QByteArray encodeRtuFrame(quint8 address, QByteArrayView pdu) {
    QByteArray bytes;
    bytes.reserve(pdu.size() + kHead + 1);
    bytes.append(static_cast<char>(address));
    bytes.append(pdu.data(), pdu.size());
    const quint16 crc = rtuCrc(bytes);
    bytes.append(static_cast<char>(crc & 0xFF));
    bytes.append(static_cast<char>(crc >> 8));
    return bytes;
}

QByteArray responsePdu(const QModbusResponse& response) {
    const int code = response.functionCode() | (response.isException() ? 0x80 : 0);
    return QByteArray(1, static_cast<char>(code)) + response.data();
}

qsizetype rtuRequestSize(QByteArrayView bytes) {
    if (bytes.isEmpty())
        return 0;
    if (static_cast<quint8>(bytes.at(0)) > RtuMaxAddress)
        return -1;
    if (bytes.size() < kHead)
        return 0;
    const DataSize data = requestData(static_cast<quint8>(bytes.at(1)));
    qsizetype size = data.fixed;
    if (data.countAt >= 0) {
        if (bytes.size() <= kHead + data.countAt)
            return 0;
        size = data.countAt + 1 + static_cast<quint8>(bytes.at(kHead + data.countAt));
    }
    if (size < 0 || kHead + size + kCrc > RtuMaxFrame)
        return -1;
    return kHead + size + kCrc;
}

RtuSplit splitRtuRequests(QByteArrayView bytes, bool quiet) {
    RtuSplit split;
    qsizetype at = 0;
    while (at < bytes.size()) {
        const QByteArrayView rest = bytes.sliced(at);
        const qsizetype size = rtuRequestSize(rest);
        const bool whole = size > 0 && size <= rest.size();
        if (whole && rtuCrc(rest.first(size)) == 0) {
            split.frames.append({static_cast<quint8>(rest.at(0)),
                                 rest.sliced(1, size - 1 - kCrc).toByteArray(), at});
            at += size;
            continue;
        }
        if (size >= 0 && !whole && !quiet)
            break; // the rest of this frame may still come
        ++at;
        ++split.dropped;
    }
    split.used = at;
    return split;
}

} // namespace sim
