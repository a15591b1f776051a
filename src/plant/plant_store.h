#pragma once

// The plant store: the one process-wide body of state through which every part of the
// workstation meets. Row i of each controller column is the controller at Modbus node i + 1.
// Only the poll cycle and the simulation write the readings; everything else reads them directly.

#include "plant_value.h"

#include <QString>
#include <QVector>
#include <array>

inline constexpr int kControllerCount = 64;
inline constexpr int kTagRows = 3 * kControllerCount;
inline constexpr int kTagColumns = 6;

template <typename T> using ControllerColumn = std::array<T, kControllerCount>;

enum ControlType : qint16 { K40Series = 0, K8RampProfiler = 1, K20RampProfiler = 2 };

// Identity.
inline ControllerColumn<QString> gPvTag;
inline ControllerColumn<QString> gSpTag;
inline ControllerColumn<QString> gOutTag;
inline ControllerColumn<qint16> gControlType{};
inline ControllerColumn<bool> gControlEnabled{};
inline ControllerColumn<qint16> gLogChannel{};

// Readings.
inline ControllerColumn<PlantValue> gPV;
inline ControllerColumn<PlantValue> gSP;
inline ControllerColumn<float> gPctOut{};
inline ControllerColumn<qint16> gAlarmState{};
inline ControllerColumn<qint16> gDecimal{};
inline ControllerColumn<float> gScale{};
inline ControllerColumn<bool> gFixedTenth{};
inline ControllerColumn<qint16> gProfState{};
// Consecutive failed reads, indexed by position in the active list, not by row.
inline ControllerColumn<qint16> gComErrCount{};

// Whether a controller's readings are fresh, for the quality marks of the displays and records:
// its failed reads in a row, by row (the count above is by position and starts again at each
// report), and whether it has answered since the workstation started. Its readings stay as they
// were whatever these say.
inline ControllerColumn<qint16> gFailedReads{};
inline ControllerColumn<bool> gAnswered{};
// The link's code of each controller's last failed read (the logger's codes), 0 before any.
inline ControllerColumn<int> gLastReadError{};
// Failed reads in a row from which a controller counts as not answering: one more than a single
// lost reply, as the logger window reports them.
inline constexpr int kNotAnsweringAfter = 2;

// Node addresses of the enabled controllers, ascending, with one empty (0) element at the end.
inline QVector<qint16> gActiveList{0};
inline qint16 gActiveCount = 0;

inline qint16 gPollIndex = 0;
inline qint16 gPollTick = 0;
inline bool gSimMode = false;
inline bool gBankUpdating = false;

// Image of tags.tgn: three rows per controller (PV, SP, % Out), six columns of text.
inline std::array<std::array<QString, kTagColumns>, kTagRows> gTagTable;

inline bool gComBeep = false;
inline bool gBeepOnAlarm = false;
inline bool gBeepUntilAck = false;
inline bool gAlmLogging = false;

// Current directory at start, no trailing separator; every file of the system lies below it.
inline QString gAppPath;

inline bool validRow(int row) {
    return row >= 0 && row < kControllerCount;
}

// Row of the controller at a position of the active list, or -1 where the list has none.
int rowAtPosition(int position);

void buildActiveList();
// After a project load: the list again, and polling restarted without the first-scan dialog.
void rebuildActiveList();

// A controller whose last reads failed: its readings are held, not measured.
inline bool isNotAnswering(int row) {
    return validRow(row) && gFailedReads[row] >= kNotAnsweringAfter;
}
// Readings measured and not held: the controller answered once and answers still.
inline bool isFresh(int row) {
    return validRow(row) && gAnswered[row] && !isNotAnswering(row);
}
// The poll's bookkeeping of each read, by row.
void noteReadAnswered(int row);
void noteReadFailed(int row, int code = 0);
// A reading as the controller has it: a number with the controller's own decimals, a text (an
// error display) as it stands.
QString readingText(int row, const PlantValue& value);
// Why a controller's readings are held, for the marks beside them: "not answering", "no reading
// yet"; empty while they are fresh.
QString heldNote(int row);
// The quality of its readings in a word or two: "Good", or the held note.
QString qualityText(int row);
// The enabled controllers not answering, and the tag of the first of them.
int notAnsweringCount(QString* firstTag = nullptr);

// Puts the whole store back to its start values.
void resetPlantStore();
