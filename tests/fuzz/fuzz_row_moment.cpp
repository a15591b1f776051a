// The moment of a data row read for the historical plot from its date and time texts (the
// input's first line and the rest): whatever the texts, a moment read is a whole second, and
// written back in the logger's forms it reads as the same moment.

#include "fuzz_support.h"
#include "records/frm_history_plot.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = inputText(data, size);
    const qsizetype cut = text.indexOf(u'\n');
    const QString date = cut < 0 ? text : text.left(cut);
    const QString time = cut < 0 ? QString() : text.mid(cut + 1);
    const std::optional<QDateTime> moment = rowMoment(date, time);
    if (!moment)
        return 0;
    require(moment->isValid() && moment->time().msec() == 0, "a moment is a whole second");
    const std::optional<QDateTime> again =
        rowMoment(moment->date().toString("M/d/yyyy"), moment->time().toString("h:mm:ss AP"));
    require(again == moment, "written back in the logger's forms it reads the same");
    return 0;
}
