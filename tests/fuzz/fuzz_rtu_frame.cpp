// Bytes a serial line delivers to the plant simulator's RTU front: every frame taken has a good
// CRC and encodes back to exactly the bytes it was taken from, in order and without overlap; the
// splitter accounts for every byte it uses and never more than it was given; the reads that cut
// the stream, and a silence at its end, change no frame; two frames it took, sent back to back,
// come out as those two again.

#include "fuzz_support.h"
#include "sim_rtu_frame.h"

using namespace sim;

namespace {

QByteArray encoded(const RtuFrame& frame) {
    return encodeRtuFrame(frame.address, frame.pdu);
}

QByteArrayList encodedAll(const RtuSplit& split) {
    QByteArrayList frames;
    for (const RtuFrame& frame : split.frames)
        frames << encoded(frame);
    return frames;
}

void checkSplit(QByteArrayView bytes, const RtuSplit& split, bool quiet) {
    require(split.used >= 0 && split.used <= bytes.size(), "no more bytes used than given");
    require(!quiet || split.used == bytes.size(), "after a silence every byte is used");
    qsizetype end = 0;
    qsizetype inFrames = 0;
    for (const RtuFrame& frame : split.frames) {
        const QByteArray bytesOut = encoded(frame);
        require(rtuCrc(bytesOut) == 0, "a frame taken has a good CRC");
        require(frame.at >= end && frame.at + bytesOut.size() <= split.used,
                "frames lie in order within the bytes used");
        require(bytes.sliced(frame.at, bytesOut.size()) == bytesOut,
                "a frame encodes back to the bytes it came from");
        require(rtuRequestSize(bytesOut) == bytesOut.size(), "a frame is as long as it says");
        end = frame.at + bytesOut.size();
        inFrames += bytesOut.size();
    }
    require(inFrames + split.dropped == split.used, "each byte used is a frame's or dropped");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArrayView bytes = inputBytes(data, size);
    const RtuSplit waiting = splitRtuRequests(bytes);
    const RtuSplit quiet = splitRtuRequests(bytes, true);
    checkSplit(bytes, waiting, false);
    checkSplit(bytes, quiet, true);
    const QByteArrayList frames = encodedAll(waiting);
    require(encodedAll(quiet).mid(0, frames.size()) == frames,
            "a silence only adds frames after those already taken");

    // The same bytes in three reads, the unused rest of each kept for the next.
    QByteArray buffer;
    QByteArrayList pieced;
    qsizetype from = 0;
    for (const qsizetype cut : {bytes.size() / 3, 2 * bytes.size() / 3, bytes.size()}) {
        buffer += bytes.sliced(from, cut - from);
        from = cut;
        const RtuSplit split = splitRtuRequests(buffer);
        pieced += encodedAll(split);
        buffer.remove(0, split.used);
    }
    require(pieced == frames && buffer == bytes.sliced(waiting.used),
            "the reads that cut the stream change no frame and keep the same rest");

    if (!frames.isEmpty()) {
        const QByteArray pair = frames.first() + frames.last();
        const RtuSplit again = splitRtuRequests(pair);
        require(encodedAll(again) == QByteArrayList{frames.first(), frames.last()} &&
                    again.used == pair.size() && again.dropped == 0,
                "two frames back to back come out as the same two");
    }
    return 0;
}
