#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>
#include <optional>

// What a real-time trend remembers: Trend<n>.trn in the application directory, the .trv views a
// user saves, and the copies beside a project are all this one text. Single-byte text (Latin-1),
// one value a line, CR LF line ends, numbers in their print form (" 5 ", "-2.5 "), colours as
// the platform's 32-bit values with red in the low byte.
//
//   0..2   days, hours, minutes of the span       9   X scale line colour    15  background colour
//   3      tick divisor (plotTrend)               10  X minor ticks          16  time label format
//   4      tick interval, ms                      11  Y label colour         17  U, number of pens
//   5, 6   start and span of the value axis       12  Y scale line colour    18.. U channel codes
//   7      span of the time axis, days            13  legend text colour     then C, the channels,
//   8      X label colour                         14  Y minor ticks          and C title/colour
//   pairs

struct TrendPen {
    QString title;
    qint32 color = 0;
    bool operator==(const TrendPen&) const = default;
};

struct TrendConfig {
    double days = 0.0;
    double hours = 0.0;
    double minutes = 0.0;
    double plotTrend = 0.0;
    int tickMs = 1000;
    double yMin = 0.0;
    double ySpan = 100.0;
    double xSpanDays = 0.0;
    qint32 xLabelColor = 0;
    qint32 xScaleColor = 0;
    int xMinorTicks = 0;
    qint32 yLabelColor = 0;
    qint32 yScaleColor = 0;
    qint32 legendColor = 0;
    int yMinorTicks = 0;
    qint32 backgroundColor = 0;
    QString timeFormat;
    // One channel code a pen (the process value c, the setpoint 100 + c, the output 200 + c).
    QVector<qint16> codes;
    // The plot's channels; as many as there are codes in every file the system writes.
    QVector<TrendPen> channels;
    bool operator==(const TrendConfig&) const = default;
};

// A file of more lines than this is refused whole.
inline constexpr int kMaxTrendFileLines = 101;

// The file's bytes as writeArrayData writes them.
QByteArray trendConfigText(const TrendConfig& config);

// Reads the text by the trend file's rules. The lines before the pens are read leniently: their
// leading number counts, and a text that is no number is 0. The pen count, the channel count and
// the pen colours are read strictly. Nothing, with the reason in *why, for a file of more than
// kMaxTrendFileLines lines, a strict line that is missing or no number, or a value too large for
// what it sets.
std::optional<TrendConfig> parseTrendConfig(const QByteArray& text, QString* why = nullptr);
std::optional<TrendConfig> readTrendConfig(const QString& path, QString* why = nullptr);
// Replaces the file whole, so that a crash leaves the old file or the new one.
bool writeTrendConfig(const QString& path, const TrendConfig& config, QString* why = nullptr);

// The leading number of a text as the lenient lines take it: blanks, a sign, digits with one
// point, an exponent; 0 when none stands there.
double leadingNumber(const QString& text);

// How often a trend samples for its span: the tick divisor (plotTrend) and the tick interval. A
// sample is taken every divisor + 1 ticks, so that about a thousand points fill the span; a
// minute or less samples every 200 ms.
struct TrendTick {
    double plotTrend = 1.0;
    int intervalMs = 1000;
    bool operator==(const TrendTick&) const = default;
};
TrendTick trendTickRule(double days, double hours, double minutes);
