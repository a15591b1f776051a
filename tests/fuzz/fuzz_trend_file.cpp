// The trend configuration file (Trend<n>.trn, .trv views, project copies): whatever the bytes,
// what reads is within what the file can hold (at most 101 lines, so at most 83 pens), and written
// back it reads as the same configuration and writes the same bytes again.

#include "displays/trend_file.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::optional<TrendConfig> read = parseTrendConfig(inputBytes(data, size).toByteArray());
    if (!read)
        return 0;
    require(read->codes.size() <= kMaxTrendFileLines - 18 &&
                read->channels.size() <= (kMaxTrendFileLines - 19) / 2,
            "no more pens than the lines can hold");
    const QByteArray written = trendConfigText(*read);
    const std::optional<TrendConfig> again = parseTrendConfig(written);
    require(again.has_value(), "what was read writes a file that reads");
    require(trendConfigText(*again) == written, "written again it is the same bytes");
    require(again->codes == read->codes && again->channels.size() == read->channels.size() &&
                again->tickMs == read->tickMs && again->ySpan == read->ySpan,
            "the pens, the tick and the scale read back as they were");
    return 0;
}
