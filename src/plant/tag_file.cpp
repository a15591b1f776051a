#include "tag_file.h"

#include "plant_store.h"
#include "platform/file_io.h"

#include <QFile>
#include <QLocale>
#include <cmath>

namespace {
// Blanks around the number allowed, as the readers have always taken the print form.
std::optional<double> cellNumber(const QString& text) {
    bool ok = false;
    const double v = QLocale::c().toDouble(text.trimmed(), &ok);
    if (!ok || !std::isfinite(v))
        return std::nullopt;
    return v;
}

// A fraction stays as it stands when written: its print form would round, and the enable flag,
// read as it stands, would change (0.8 is no 1, " 1 " is).
std::optional<int> exactWholeNumber(const QString& text) {
    const auto v = cellNumber(text);
    const auto n = wholeNumber(text);
    if (!n || *v != *n)
        return std::nullopt;
    return n;
}
} // namespace

QString numberPrintForm(long long value) {
    return (value >= 0 ? QStringLiteral(" ") : QString()) + QString::number(value) +
           QStringLiteral(" ");
}

QStringList textFileLines(const QByteArray& bytes) {
    QStringList lines = QString::fromLatin1(bytes).split(u'\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    for (QString& line : lines)
        line.remove(u'\r');
    return lines;
}

QByteArray cellLine(QString text) {
    return text.remove(u'\r').remove(u'\n').toLatin1() + "\r\n";
}

std::optional<int> wholeNumber(const QString& text, int min, int max, NumberFault* fault) {
    const auto v = cellNumber(text);
    const double rounded = v ? std::nearbyint(*v) : 0.0;
    const NumberFault found = !v                               ? NumberFault::NotANumber
                              : rounded < min || rounded > max ? NumberFault::OutOfRange
                                                               : NumberFault::None;
    if (fault)
        *fault = found;
    if (found != NumberFault::None)
        return std::nullopt;
    return static_cast<int>(rounded);
}

int fillTagTable(TagTable& table, const QStringList& lines) {
    const int cells = static_cast<int>(std::min<qsizetype>(lines.size(), kTagLines));
    for (int i = 0; i < cells; ++i)
        table[i / kTagColumns][i % kTagColumns] = lines[i];
    return cells;
}

std::optional<ControllerIdentity> controllerIdentity(const TagTable& table, CellFault* fault) {
    ControllerIdentity id;
    for (int c = 0; c < kControllerCount; ++c) {
        const int row = 3 * c;
        const auto& pvRow = table[row];
        NumberFault familyFault = NumberFault::None;
        NumberFault logFault = NumberFault::None;
        const auto flag = cellNumber(pvRow[1]);
        const auto family = wholeNumber(pvRow[4], -32768, 32767, &familyFault);
        const auto log = wholeNumber(pvRow[5], -32768, 32767, &logFault);
        if (!flag || !family || !log) {
            if (fault)
                *fault = !flag     ? CellFault{row, 1, NumberFault::NotANumber}
                         : !family ? CellFault{row, 4, familyFault}
                                   : CellFault{row, 5, logFault};
            return std::nullopt;
        }
        id.enabled[c] = *flag == 1.0;
        id.type[c] = static_cast<qint16>(*family);
        id.logChannel[c] = static_cast<qint16>(*log);
    }
    return id;
}

void applyControllerIdentity(const TagTable& table, const ControllerIdentity& identity) {
    for (int c = 0; c < kControllerCount; ++c) {
        const int r = 3 * c;
        gPvTag[c] = table[r][kTagColumnText];
        gSpTag[c] = table[r + 1][kTagColumnText];
        gOutTag[c] = table[r + 2][kTagColumnText];
    }
    gControlEnabled = identity.enabled;
    gControlType = identity.type;
    gLogChannel = identity.logChannel;
}

bool readTagFile(const QString& path, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return false;
    }
    const QStringList lines = textFileLines(file.readAll());
    if (lines.size() < kTagLines) {
        if (error)
            *error = QStringLiteral("%1 holds %2 lines, %3 needed")
                         .arg(path)
                         .arg(lines.size())
                         .arg(kTagLines);
        return false;
    }
    auto table = std::make_unique<TagTable>();
    fillTagTable(*table, lines);
    CellFault fault;
    const std::optional<ControllerIdentity> identity = controllerIdentity(*table, &fault);
    if (!identity) {
        if (error)
            *error = QStringLiteral("%1: controller %2 has a flag that is not a number")
                         .arg(path)
                         .arg(fault.row / 3 + 1);
        return false;
    }
    gTagTable = *table;
    applyControllerIdentity(gTagTable, *identity);
    return true;
}

bool writeTagFile(const QString& path, QString* error) {
    QByteArray out;
    out.reserve(kTagLines * 12);
    for (int r = 0; r < kTagRows; ++r) {
        for (int c = 0; c < kTagColumns; ++c) {
            const QString& cell = gTagTable[r][c];
            const auto n = c != kTagColumnText ? exactWholeNumber(cell) : std::nullopt;
            out += cellLine(n ? numberPrintForm(*n) : cell);
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
