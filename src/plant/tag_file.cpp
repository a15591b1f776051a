#include "tag_file.h"

#include "plant_store.h"
#include "platform/file_io.h"

#include <QFile>
#include <QLocale>
#include <cmath>

namespace {
constexpr int kTagColumn = 2;

// The number a cell holds, as a numeric conversion reads it: " 1 ", "1" and "1.0" are all 1, and
// a fraction rounds half to even. Nothing for text that is no number or will not fit 16 bits,
// nor, when exact, for a fraction.
std::optional<int> wholeNumber(const QString& text, bool exact = false) {
    bool ok = false;
    const double v = QLocale::c().toDouble(text.trimmed(), &ok);
    if (!ok || !std::isfinite(v))
        return std::nullopt;
    const double rounded = std::nearbyint(v);
    if (rounded < -32768 || rounded > 32767 || (exact && rounded != v))
        return std::nullopt;
    return static_cast<int>(rounded);
}
} // namespace

QString numberPrintForm(long long value) {
    return (value >= 0 ? QStringLiteral(" ") : QString()) + QString::number(value) +
           QStringLiteral(" ");
}

bool readTagFile(const QString& path, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return false;
    }
    const QByteArray bytes = file.readAll();
    // Lines end with CR LF; a file edited elsewhere may have bare LF.
    QList<QByteArray> lines = bytes.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    if (lines.size() < kTagRows * kTagColumns) {
        if (error)
            *error = QStringLiteral("%1 holds %2 lines, %3 needed")
                         .arg(path)
                         .arg(lines.size())
                         .arg(kTagRows * kTagColumns);
        return false;
    }
    auto table = std::make_unique<std::array<std::array<QString, kTagColumns>, kTagRows>>();
    for (int r = 0; r < kTagRows; ++r) {
        for (int c = 0; c < kTagColumns; ++c) {
            // Not only the CR of the line end: the writer drops every CR from a cell (another
            // editor takes one for a line end), so a cell read with one would not read back.
            const QByteArray line = QByteArray(lines[r * kTagColumns + c]).replace('\r', "");
            (*table)[r][c] = QString::fromLatin1(line);
        }
    }
    std::array<bool, kControllerCount> enabled{};
    std::array<qint16, kControllerCount> type{};
    std::array<qint16, kControllerCount> logChannel{};
    for (int c = 0; c < kControllerCount; ++c) {
        const auto& pvRow = (*table)[3 * c];
        bool flagIsNumber = false;
        const double flag = QLocale::c().toDouble(pvRow[1].trimmed(), &flagIsNumber);
        const auto family = wholeNumber(pvRow[4]);
        const auto log = wholeNumber(pvRow[5]);
        if (!flagIsNumber || !family || !log) {
            if (error)
                *error = QStringLiteral("%1: controller %2 has a flag that is not a number")
                             .arg(path)
                             .arg(c + 1);
            return false;
        }
        enabled[c] = flag == 1.0;
        type[c] = static_cast<qint16>(*family);
        logChannel[c] = static_cast<qint16>(*log);
    }
    gTagTable = *table;
    for (int c = 0; c < kControllerCount; ++c) {
        const int r = 3 * c;
        gPvTag[c] = gTagTable[r][kTagColumn];
        gSpTag[c] = gTagTable[r + 1][kTagColumn];
        gOutTag[c] = gTagTable[r + 2][kTagColumn];
        gControlEnabled[c] = enabled[c];
        gControlType[c] = type[c];
        gLogChannel[c] = logChannel[c];
    }
    return true;
}

bool writeTagFile(const QString& path, QString* error) {
    QByteArray out;
    out.reserve(kTagRows * kTagColumns * 12);
    for (int r = 0; r < kTagRows; ++r) {
        for (int c = 0; c < kTagColumns; ++c) {
            const QString& cell = gTagTable[r][c];
            QString line = cell;
            // A fraction stays as it stands: its print form would round, and the enable flag, read
            // as it stands, would change (0.8 is no 1, " 1 " is).
            if (c != kTagColumn) {
                if (const auto n = wholeNumber(cell, true))
                    line = numberPrintForm(*n);
            }
            // A line break inside a tag would shift every later line of the file.
            line.remove(QLatin1Char('\r')).remove(QLatin1Char('\n'));
            out += line.toLatin1();
            out += "\r\n";
        }
    }
    return writeFileAtomically(path, out, error);
}

bool isLoggedRow(const std::array<QString, kTagColumns>& row) {
    return wholeNumber(row[5]) == 1;
}

void tagTableFromStore() {
    for (int c = 0; c < kControllerCount; ++c) {
        const QString tags[3] = {gPvTag[c], gSpTag[c], gOutTag[c]};
        for (int k = 0; k < 3; ++k) {
            auto& row = gTagTable[3 * c + k];
            row[0] = numberPrintForm(c);
            row[1] = numberPrintForm(gControlEnabled[c] ? 1 : 0);
            row[2] = tags[k];
            row[3] = numberPrintForm(k);
            row[4] = numberPrintForm(gControlType[c]);
            // A controller taken out of the scan leaves the logger for good: enabled again, its
            // channels must be chosen again.
            if (!wholeNumber(row[5]) || !gControlEnabled[c])
                row[5] = numberPrintForm(0);
        }
    }
}
