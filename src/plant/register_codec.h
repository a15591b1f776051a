#pragma once

#include <QString>
#include <QtGlobal>
#include <optional>

// Register words of the two controller families and the engineering values they stand for.
// K40: unsigned offset numbers (raw 19999 is zero) scaled by a decimal code the controller
// reports in its status word. K8/K20: plain signed tenths.

inline constexpr int kValueOffset = 19999;

// The byte above the low byte of a 16-bit word given as a 32-bit value, negatives allowed.
int highByte(qint32 value);
bool bitIsSet(qint32 value, int bit);
// 0..65535.
qint32 wordToUnsigned(qint16 word);
// Bits 8 and 9 of the status word: 0..3.
qint16 decimalCode(qint32 statusWord);
// Factor from (raw - 19999) to engineering units; also sets gFixedTenth[row] (bit 12 clear).
float scaleFactor(qint32 statusWord, qint16 code, int row);
// "0", "0.0", "0.00", "0.000".
QString decimalFormat(qint16 code);
// A value in the display form of the decimal code.
QString formatValue(double value, qint16 code);
// Multiplier of an engineering value written to a decimal-scaled register; 0 for a fixed-tenths
// controller with a code above 1, which the alarm and tuning dialogs rely on.
int rawMultiplier(int row);

// Rounds to the nearest whole number, a half to the even neighbour.
double roundHalfEven(double value);
// The raw word to write for a setpoint of a K40 controller (may exceed 32767).
qint32 encodeK40(double value, float scale);
// The raw word to write for a K8/K20 setpoint.
qint16 encodeTenths(double value);

// Words of a block transaction. Every word on the link is a signed 16-bit integer: a profiler's
// tenths, a time in minutes and a tuning value read negative when their top bit is set. Only the
// K40's offset numbers (raw 19999 is zero) are unsigned. The encoders give nothing for a value
// its register cannot hold, so a caller refuses it before anything is written.
qint16 signedWord(quint16 word);
double tenthsOf(quint16 word);
std::optional<quint16> wordOfSigned(double value);
std::optional<quint16> wordOfTenths(double value);
// The engineering value of a K40 offset word as the poll and the tuning read take it: the word
// unsigned, less 19999, times the scale.
double offsetValue(quint16 word, double scale);
// value x multiplier + 19999, rounded half to even, within 0..65535.
std::optional<quint16> offsetWord(double value, double multiplier);
// The engineering value of an offset word as a read of the alarm block takes it: the subtraction
// in signed 16-bit arithmetic, so a word of 32768 or more gives nothing.
std::optional<double> offsetValue16(quint16 word, double scale);

// Decoding of the two poll blocks into a row of the store.
void decodeK40Block(int row, const qint16 data[5]);
void decodeProfilerBlock(int row, const qint16 data[9]);
