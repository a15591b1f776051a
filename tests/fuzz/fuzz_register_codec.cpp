// Poll replies from outside: any block of words a controller sends decodes to readings that read
// as numbers, in the ranges of the store, and where the reading carries every digit of the
// register, the encoders give the register word back. The words of the control windows' blocks
// (signed tenths, signed counts, offset numbers) come back from their encoders unchanged.

#include "fuzz_support.h"
#include "plant/plant_store.h"
#include "plant/register_codec.h"

#include <cstring>

namespace {
void checkK40(int row, const qint16 words[5]) {
    decodeK40Block(row, words);
    const qint16 code = gDecimal[row];
    require(code >= 0 && code <= 3, "the decimal code is 0..3");
    const bool scaled = (words[4] & 0x1000) != 0;
    require(gFixedTenth[row] == !scaled, "fixed tenths unless bit 12 of the status is set");
    const float scales[4] = {1.0F, 0.1F, 0.01F, 0.001F};
    require(gScale[row] == (scaled ? scales[code] : 0.1F), "the scale follows the status word");
    require(gAlarmState[row] == words[4] && gPctOut[row] == float(words[2] * 0.01),
            "the status and output words are kept");
    const int multiplier = rawMultiplier(row);
    require((multiplier == 0) == (!scaled && code > 1), "only fixed tenths above code 1 refuse");
    for (int k = 0; k < 2; ++k) {
        const PlantValue& value = k == 0 ? gPV[row] : gSP[row];
        const auto number = value.asNumber();
        require(value.isText() && number.has_value(), "a K40 reading reads as a number");
        require(value.toText().section(u'.', 1).size() == code,
                "a K40 reading has the digits of its code");
        // Fixed tenths shown with no decimal cut the tenth off; every other form is exact.
        const qint32 raw = wordToUnsigned(words[k]);
        if (!scaled && code == 0 && (raw - kValueOffset) % 10 != 0)
            continue;
        require(encodeK40(*number, gScale[row]) == raw, "a K40 reading encodes to its word");
        if (multiplier != 0)
            require(roundHalfEven(*number * multiplier) + kValueOffset == raw,
                    "the raw multiplier gives the word back");
    }
}

void checkProfiler(int row, const qint16 words[9]) {
    decodeProfilerBlock(row, words);
    require(gDecimal[row] == 1 && gScale[row] == 1.0F && gFixedTenth[row],
            "a profiler reads in fixed tenths");
    require(rawMultiplier(row) == 10, "a profiler value is written in tenths");
    require(gAlarmState[row] == words[6] && gProfState[row] == words[8] &&
                gPctOut[row] == float(words[3] * 0.01),
            "the status words are kept");
    for (int k = 0; k < 2; ++k) {
        const auto number = (k == 0 ? gPV[row] : gSP[row]).asNumber();
        require(number.has_value(), "a profiler reading reads as a number");
        require(encodeTenths(*number) == words[k], "a profiler reading encodes to its word");
    }
}
// Every word a control window reads: its value written back is the same word.
void checkBlockWord(quint16 word) {
    require(wordOfTenths(tenthsOf(word)) == word, "signed tenths come back as the word");
    require(wordOfSigned(signedWord(word)) == word, "a signed count comes back as the word");
    require(offsetWord(double(wordToUnsigned(qint16(word))) - kValueOffset, 1.0) == word,
            "an offset number comes back as the word");
    const std::optional<double> alarm = offsetValue16(word, 1.0);
    require(alarm.has_value() == (word <= 32767), "the 16-bit step takes words up to 32767");
    require(!alarm || offsetWord(*alarm, 1.0) == word, "an alarm value comes back as the word");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    resetPlantStore();
    const bool profiler = (data[0] & 1) != 0;
    const int row = (data[0] >> 1) % kControllerCount;
    qint16 words[9] = {};
    std::memcpy(words, data + 1, std::min(size - 1, sizeof words));
    for (const qint16 word : words)
        checkBlockWord(quint16(word));
    if (profiler)
        checkProfiler(row, words);
    else
        checkK40(row, words);
    for (int r = 0; r < kControllerCount; ++r)
        require(r == row || (gPV[r].isEmpty() && gSP[r].isEmpty()), "only its own row changes");
    return 0;
}
