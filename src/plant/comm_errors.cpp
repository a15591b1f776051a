#include "comm_errors.h"

#include "frm_logger.h"
#include "plant_notices.h"
#include "plant_store.h"
#include "platform/beep.h"
#include "platform/dialogs.h"
#include "platform/modctl.h"

namespace {
struct ErrorTexts {
    int code;
    const char* logger;
    const char* write;
};

constexpr ErrorTexts kErrorTexts[] = {
    {-4, ", Timeout value.", "Controller timeout problem."},
    {-3, ", Device did not respond in 1 sec.", "Device did not respond in 1 sec."},
    {-2, ", PLC Protocol Packet Problem.", "PLC protocol packet problem."},
    {-1, ", Adapter Invalid.", "Adapter is invalid."},
    {1, ", Illegal Function.", "Illegal write function."},
    {2, ", Illegal Data Address.", "Illegal Data Address."},
    {3, ", Illegal Data Value.", "Illegal Data Value written to control."},
    {16, ", Slave Busy.", "Slave device is busy."},
    {18, ", Invalid Node Address.", "Invalid node address."},
};

const ErrorTexts* findTexts(int code) {
    for (const auto& t : kErrorTexts)
        if (t.code == code)
            return &t;
    return nullptr;
}
} // namespace

QString commErrorLoggerText(int code) {
    const ErrorTexts* t = findTexts(code);
    return t ? QString::fromLatin1(t->logger) : QString();
}

QString commErrorWriteText(int code) {
    const ErrorTexts* t = findTexts(code);
    return t ? QString::fromLatin1(t->write) : QString();
}

QString commErrorLine(int code, int position) {
    // The number has a blank in place of its sign, so a blank stands after the "#".
    QString line = QStringLiteral("Control Address#") +
                   (position + 1 >= 0 ? QStringLiteral(" ") : QString()) +
                   QString::number(position + 1) + commErrorLoggerText(code);
    if (code == ModbusCode::IllegalValue)
        line += QLatin1Char(' ');
    else if (code == ModbusCode::SlaveBusy)
        line += QStringLiteral(" Add ");
    return line;
}

void reportCommError(int code) {
    if (gComBeep)
        beep();
    if (findTexts(code) == nullptr)
        return;
    emit plantNotices().statusText(kStatusCommError);
    if (FrmLogger* logger = frmLogger())
        logger->appendLine(commErrorLine(code, gPollIndex));
}

void reportWriteError(int code) {
    msgBox(QStringLiteral("Error during write to controller!\n") + commErrorWriteText(code),
           MsgIcon::Critical);
}

void reportError(const QString& procedureName, int number, const QString& description) {
    msgBox(QStringLiteral(
               "Error %1 = %2 in function %3 occurred.\nPlease contact Brenlock with this error.")
               .arg(number)
               .arg(description, procedureName));
}
