#include "data_logger.h"

void resetDataLogger() {
    gLogging = false;
    gDataFileName.clear();
    gSaveInterval = 0;
    gAutoLog = 0;
    gLogOnStartup = 0;
    gBatchNumber.clear();
    gLotNumber.clear();
    gOperatorMessage.clear();
}
