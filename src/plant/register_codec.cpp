#include "register_codec.h"

#include "plant_store.h"

#include <QLocale>
#include <cmath>

int highByte(qint32 value) {
    if (value < 0)
        value += 65536;
    return value / 256;
}

bool bitIsSet(qint32 value, int bit) {
    if (bit < 0 || bit > 30)
        return false;
    return (value & (qint32{1} << bit)) > 0;
}

qint32 wordToUnsigned(qint16 word) {
    return static_cast<quint16>(word);
}

qint16 decimalCode(qint32 statusWord) {
    const int high = highByte(statusWord);
    return static_cast<qint16>((bitIsSet(high, 0) ? 1 : 0) + (bitIsSet(high, 1) ? 2 : 0));
}

float scaleFactor(qint32 statusWord, qint16 code, int row) {
    const bool scaled = bitIsSet(highByte(statusWord), 4);
    if (validRow(row))
        gFixedTenth[row] = !scaled;
    if (!scaled)
        return 0.1F;
    switch (code) {
    case 0:
        return 1.0F;
    case 1:
        return 0.1F;
    case 2:
        return 0.01F;
    default:
        return 0.001F;
    }
}

QString decimalFormat(qint16 code) {
    switch (code) {
    case 0:
        return QStringLiteral("0");
    case 1:
        return QStringLiteral("0.0");
    case 2:
        return QStringLiteral("0.00");
    default:
        return QStringLiteral("0.000");
    }
}

QString formatValue(double value, qint16 code) {
    const int decimals = qBound<int>(0, code, 3);
    // Formatting rounds half away from zero, as a format mask does; a tiny nudge keeps binary
    // fractions such as 0.1 x 5 from rounding down.
    const double factor = std::pow(10.0, decimals);
    double rounded = std::round(value * factor * (1.0 + 1e-12)) / factor;
    if (rounded == 0.0)
        rounded = 0.0; // no "-0"
    return QLocale::c().toString(rounded, 'f', decimals);
}

int rawMultiplier(int row) {
    if (!validRow(row))
        return 0;
    const qint16 code = gDecimal[row];
    if (!gFixedTenth[row]) {
        switch (code) {
        case 0:
            return 1;
        case 1:
            return 10;
        case 2:
            return 100;
        case 3:
            return 1000;
        default:
            return 0;
        }
    }
    return (code == 0 || code == 1) ? 10 : 0;
}

double roundHalfEven(double value) {
    return std::nearbyint(value); // the default rounding mode is to nearest, ties to even
}

qint32 encodeK40(double value, float scale) {
    if (scale == 0.0F)
        return kValueOffset;
    const double raw = roundHalfEven(1.0 / static_cast<double>(scale) * value + 19999.0);
    return static_cast<qint32>(raw);
}

qint16 encodeTenths(double value) {
    return static_cast<qint16>(roundHalfEven(value * 10.0));
}

qint16 signedWord(quint16 word) {
    return static_cast<qint16>(word);
}

double tenthsOf(quint16 word) {
    return signedWord(word) * 0.1;
}

std::optional<quint16> wordOfSigned(double value) {
    const double raw = roundHalfEven(value);
    if (!std::isfinite(raw) || raw < -32768.0 || raw > 32767.0)
        return std::nullopt;
    return static_cast<quint16>(static_cast<qint16>(raw));
}

std::optional<quint16> wordOfTenths(double value) {
    return wordOfSigned(value * 10.0);
}

std::optional<quint16> offsetWord(double value, double multiplier) {
    const double raw = roundHalfEven(value * multiplier + kValueOffset);
    if (!std::isfinite(raw) || raw < 0.0 || raw > 65535.0)
        return std::nullopt;
    return static_cast<quint16>(raw);
}

double offsetValue(quint16 word, double scale) {
    return (static_cast<int>(word) - kValueOffset) * scale;
}

std::optional<double> offsetValue16(quint16 word, double scale) {
    if (word > 32767)
        return std::nullopt;
    return offsetValue(word, scale);
}

void decodeK40Block(int row, const qint16 data[5]) {
    if (!validRow(row))
        return;
    const qint32 status = data[4];
    gDecimal[row] = decimalCode(status);
    gScale[row] = scaleFactor(status, gDecimal[row], row);
    const double scale = gScale[row];
    gPV[row] = formatValue(offsetValue(quint16(data[0]), scale), gDecimal[row]);
    gSP[row] = formatValue(offsetValue(quint16(data[1]), scale), gDecimal[row]);
    gPctOut[row] = static_cast<float>(data[2] * 0.01);
    gAlarmState[row] = data[4];
}

void decodeProfilerBlock(int row, const qint16 data[9]) {
    if (!validRow(row))
        return;
    gScale[row] = 1;
    gFixedTenth[row] = true;
    gDecimal[row] = 1;
    gPV[row] = data[0] * 0.1;
    gSP[row] = data[1] * 0.1;
    gPctOut[row] = static_cast<float>(data[3] * 0.01);
    gAlarmState[row] = data[6];
    gProfState[row] = data[8];
}
