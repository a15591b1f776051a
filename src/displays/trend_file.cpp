#include "trend_file.h"

#include "platform/file_io.h"

#include <QFile>
#include <QLocale>
#include <QStringList>
#include <cmath>
#include <limits>

namespace {
constexpr int kPensLine = 17;
constexpr int kFirstCodeLine = 18;

// A number in its print form: a blank in place of a plus sign, and a blank behind; plain
// decimal (other readers of the format take no exponent), with the fewest digits that read back
// to the same number.
QString printForm(double value) {
    QString text = QString::number(value, 'f', QLocale::FloatingPointShortest);
    if (!text.startsWith(u'-'))
        text.prepend(u' ');
    return text + u' ';
}

// The whole text as one number, blanks around it allowed.
std::optional<double> strictNumber(const QString& text) {
    bool ok = false;
    const double value = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// A number held in a whole-number target: rounded half to even, refused beyond its range.
template <typename Int> std::optional<Int> fitting(std::optional<double> value) {
    if (!value)
        return std::nullopt;
    const double whole = std::nearbyint(*value);
    if (whole < double(std::numeric_limits<Int>::min()) ||
        whole > double(std::numeric_limits<Int>::max()))
        return std::nullopt;
    return static_cast<Int>(whole);
}

bool fail(QString* why, const QString& text) {
    if (why)
        *why = text;
    return false;
}
} // namespace

double leadingNumber(const QString& text) {
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n && (text[i] == u' ' || text[i] == u'\t'))
        ++i;
    const qsizetype start = i;
    if (i < n && (text[i] == u'+' || text[i] == u'-'))
        ++i;
    qsizetype digits = 0;
    while (i < n && text[i].isDigit() && text[i].unicode() < 128) {
        ++i;
        ++digits;
    }
    if (i < n && text[i] == u'.') {
        ++i;
        while (i < n && text[i].isDigit() && text[i].unicode() < 128) {
            ++i;
            ++digits;
        }
    }
    if (digits == 0)
        return 0.0;
    qsizetype end = i;
    if (i < n && (text[i] == u'e' || text[i] == u'E')) {
        qsizetype j = i + 1;
        if (j < n && (text[j] == u'+' || text[j] == u'-'))
            ++j;
        const qsizetype exponentStart = j;
        while (j < n && text[j].isDigit() && text[j].unicode() < 128)
            ++j;
        if (j > exponentStart)
            end = j;
    }
    const double value = text.mid(start, end - start).toDouble();
    return std::isfinite(value) ? value : 0.0;
}

QByteArray trendConfigText(const TrendConfig& c) {
    QStringList lines{printForm(c.days),
                      printForm(c.hours),
                      printForm(c.minutes),
                      printForm(c.plotTrend),
                      printForm(c.tickMs),
                      printForm(c.yMin),
                      printForm(c.ySpan),
                      printForm(c.xSpanDays),
                      printForm(c.xLabelColor),
                      printForm(c.xScaleColor),
                      printForm(c.xMinorTicks),
                      printForm(c.yLabelColor),
                      printForm(c.yScaleColor),
                      printForm(c.legendColor),
                      printForm(c.yMinorTicks),
                      printForm(c.backgroundColor),
                      c.timeFormat,
                      printForm(double(c.codes.size()))};
    for (const qint16 code : c.codes)
        lines << printForm(code);
    lines << printForm(double(c.channels.size()));
    for (const TrendPen& pen : c.channels)
        lines << pen.title << printForm(pen.color);
    // A line break inside a text would shift every line after it.
    for (QString& line : lines)
        line.replace(u'\r', u' ').replace(u'\n', u' ');
    return (lines.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n")).toLatin1();
}

std::optional<TrendConfig> parseTrendConfig(const QByteArray& text, QString* why) {
    QStringList lines = QString::fromLatin1(text).split(u'\n');
    if (text.endsWith('\n'))
        lines.removeLast();
    for (QString& line : lines) {
        if (line.endsWith(u'\r'))
            line.chop(1);
    }
    if (lines.size() > kMaxTrendFileLines) {
        fail(why, QStringLiteral("more than %1 lines").arg(kMaxTrendFileLines));
        return std::nullopt;
    }
    auto line = [&lines](int index) {
        return lines.value(index);
    };
    auto lenient = [&](int index) {
        return leadingNumber(line(index));
    };
    auto lenientInt = [&](int index) {
        return fitting<qint32>(lenient(index));
    };

    TrendConfig c;
    c.days = lenient(0);
    c.hours = lenient(1);
    c.minutes = lenient(2);
    c.plotTrend = lenient(3);
    c.yMin = lenient(5);
    c.ySpan = lenient(6);
    c.xSpanDays = lenient(7);
    const std::optional<qint32> ints[] = {lenientInt(4),  lenientInt(8),  lenientInt(9),
                                          lenientInt(10), lenientInt(11), lenientInt(12),
                                          lenientInt(13), lenientInt(14), lenientInt(15)};
    for (size_t i = 0; i < std::size(ints); ++i) {
        if (!ints[i]) {
            fail(why, QStringLiteral("line %1 holds a number too large").arg(i == 0 ? 4 : i + 7));
            return std::nullopt;
        }
    }
    // A timer runs from 0 to 65535 ms.
    if (*ints[0] < 0 || *ints[0] > 65535) {
        fail(why, QStringLiteral("line 4 holds no tick interval"));
        return std::nullopt;
    }
    c.tickMs = *ints[0];
    c.xLabelColor = *ints[1];
    c.xScaleColor = *ints[2];
    c.xMinorTicks = *ints[3];
    c.yLabelColor = *ints[4];
    c.yScaleColor = *ints[5];
    c.legendColor = *ints[6];
    c.yMinorTicks = *ints[7];
    c.backgroundColor = *ints[8];
    c.timeFormat = line(16);

    const std::optional<qint16> pens =
        kPensLine < lines.size() ? fitting<qint16>(strictNumber(line(kPensLine))) : std::nullopt;
    if (!pens || *pens < 0 || kFirstCodeLine + *pens >= lines.size()) {
        fail(why,
             QStringLiteral("line %1 holds no pen count that the file can hold").arg(kPensLine));
        return std::nullopt;
    }
    for (int i = 0; i < *pens; ++i) {
        const std::optional<qint16> code = fitting<qint16>(lenient(kFirstCodeLine + i));
        if (!code) {
            fail(why, QStringLiteral("line %1 holds no channel code").arg(kFirstCodeLine + i));
            return std::nullopt;
        }
        c.codes.append(*code);
    }
    // The channel count stands behind the codes, wherever its own value says they end.
    const int channelsLine = kFirstCodeLine + *pens;
    const std::optional<qint32> channels = fitting<qint32>(strictNumber(line(channelsLine)));
    if (!channels || *channels < 0 || channelsLine + 2 * qint64(*channels) >= lines.size()) {
        fail(why, QStringLiteral("line %1 holds no channel count that the file can hold")
                      .arg(channelsLine));
        return std::nullopt;
    }
    for (int i = 0; i < *channels; ++i) {
        const int at = channelsLine + 1 + 2 * i;
        const std::optional<qint32> color = fitting<qint32>(strictNumber(line(at + 1)));
        if (!color) {
            fail(why, QStringLiteral("line %1 holds no pen colour").arg(at + 1));
            return std::nullopt;
        }
        c.channels.append(TrendPen{line(at), *color});
    }
    return c;
}

std::optional<TrendConfig> readTrendConfig(const QString& path, QString* why) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(why, file.errorString());
        return std::nullopt;
    }
    // Far more than any file of 101 lines the system writes; a larger one is refused unread.
    constexpr qint64 kMaxBytes = 1 << 20;
    const QByteArray text = file.read(kMaxBytes + 1);
    if (text.size() > kMaxBytes) {
        fail(why, QStringLiteral("the file is far larger than a trend file"));
        return std::nullopt;
    }
    return parseTrendConfig(text, why);
}

bool writeTrendConfig(const QString& path, const TrendConfig& config, QString* why) {
    return writeFileAtomically(path, trendConfigText(config), why);
}

TrendTick trendTickRule(double days, double hours, double minutes) {
    const double t = (days * 86400.0 + hours * 3600.0 + minutes * 60.0) / 1000.0;
    if (t < -1.0)
        return {1.0, 1000};
    if (t <= 0.06)
        return {1.0, 100};
    return {std::nearbyint(t), 1000};
}
