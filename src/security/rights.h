#pragma once

#include <QString>
#include <array>

// The rights of the three levels, one entry per right; a right is held only when its entry is
// exactly 1.
inline constexpr int kRightCount = 26;
using RightsTable = std::array<qint16, kRightCount>;
inline RightsTable gOpRights{};
inline RightsTable gSuRights{};
inline RightsTable gAdRights{};

// The right numbers, by the row of the rights table that grants them.
namespace Right {
inline constexpr int OpenProject = 0;
inline constexpr int CloseProject = 1;
inline constexpr int SaveProject = 2;
inline constexpr int ActivateControls = 3;
inline constexpr int DataLogging = 4;
inline constexpr int LoopTuning = 5;
inline constexpr int AlarmSetpoints = 6;
inline constexpr int ClearErrorLog = 7;
inline constexpr int Profiler = 8;
inline constexpr int DataViewer = 9;
inline constexpr int SimRealMode = 10;
inline constexpr int UserAccess = 11;
inline constexpr int OperatorMessage = 12;
inline constexpr int ChangeSetpoints = 13;
inline constexpr int TrendingSetup = 14;
inline constexpr int SignDataFiles = 15;
inline constexpr int VerifyDataFiles = 16;
inline constexpr int OpenSaveFiles = 17;
inline constexpr int ExportDataFiles = 18;
inline constexpr int AuditTrailViewer = 19;
inline constexpr int AcknowledgeAlarms = 20;
inline constexpr int ClearAlarms = 21;
inline constexpr int SingleSetpointRecipes = 22;
inline constexpr int QuitProgram = 23;
inline constexpr int CloseMainWindow = 24;
// Rights the workstation added later stand after 24, which keeps no row of its own.
inline constexpr int Publishing = 25;
} // namespace Right

// The table of a level, 0 to 2; null for any other number.
RightsTable* rightsOfLevel(int level);
// The settings key of a right: "op 5", "su 5", "ad 5".
QString rightKey(const QString& prefix, int index);

// True when the session's level holds the right or security is off; otherwise shows the
// level's access-denied box and returns false.
bool checkAccess(int right);

// Whether this platform has the real user accounts the security scheme rests on.
bool isNtFamily();

// Reads the three tables and the security switch; sets the session to the system user.
// Returns isNtFamily(), so the caller can disable the account menu items when false.
bool loadRights();

void resetRights();
