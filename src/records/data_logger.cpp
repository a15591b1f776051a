#include "data_logger.h"

#include "audit_trail.h"
#include "daily_files.h"
#include "file_cipher.h"
#include "plant/plant_store.h"
#include "plant/tag_file.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "record_file.h"
#include "record_line.h"
#include "record_paths.h"
#include "security/session.h"
#include "signatures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QStringList>
#include <QTimer>

namespace {
QPointer<QTimer> gDataSaveTimer;
RecordAppender gDataFile;
// Set at the midnight start of a new file, cleared a minute later.
bool gMidnightLatch = false;

// The logged rows of the tag table, in table order: controller index and value kind.
QList<std::pair<int, int>> loggedRows() {
    QList<std::pair<int, int>> rows;
    for (const auto& row : gTagTable) {
        if (!isLoggedRow(row))
            continue;
        rows.append({row[0].trimmed().toInt(), row[3].trimmed().toInt()});
    }
    return rows;
}

// The values of the logged channels; a kind the logger does not know adds nothing.
QStringList loggedValues() {
    QStringList values;
    for (const auto& [index, kind] : loggedRows()) {
        if (!validRow(index))
            continue;
        if (kind == 0)
            values << gPV[static_cast<size_t>(index)].toText();
        else if (kind == 1)
            values << gSP[static_cast<size_t>(index)].toText();
        else if (kind == 2)
            values << QString::number(static_cast<double>(gPctOut[static_cast<size_t>(index)]));
    }
    return values;
}

// The mark of a data line some of whose values are held: the tags of the logged controllers
// that did not answer their last reads (or never have), after the operator's message. It rides
// in the message field so that the line keeps its fields; the brackets set it apart from what
// an operator types.
QString heldMark() {
    QStringList tags;
    for (const auto& [index, kind] : loggedRows()) {
        Q_UNUSED(kind);
        if (validRow(index) && !isFresh(index) && !tags.contains(gPvTag[size_t(index)]))
            tags << gPvTag[size_t(index)];
    }
    if (tags.isEmpty())
        return {};
    return (gOperatorMessage.isEmpty() ? QString() : QStringLiteral(" ")) +
           QStringLiteral("[not answering: ") + tags.join(QStringLiteral("; ")) + u']';
}

QString signedBy(const QString& verb) {
    return QStringLiteral("File %1 by").arg(verb) + gUserFullName + QStringLiteral(" (login as ") +
           gUserId + QStringLiteral(" )");
}

// Every field but the free text of the last is guarded against commas; the last is always the
// empty field behind the line's closing comma.
QString dataRecord(QStringList fields) {
    fields << QString();
    return recordLine(fields);
}

bool writeLine(RecordAppender& file, const QString& plain, QString* why) {
    return appendEncipheredLine(file, plain, why) == RecordWrite::Written;
}

// A data file has its signature file from its first moment: the header alone. Both are made new,
// never over a file that is there, so a start cannot cost an earlier file its signatures.
bool writeSignatureHeader(const QString& dataFile, QString* why) {
    RecordAppender sif;
    return sif.create(signatureFileOf(dataFile), why) && writeLine(sif, kSignatureHeader, why);
}

// Anything at the name counts, a link to nowhere too.
bool somethingAt(const QString& path) {
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

QString autoFileName(const QDateTime& at) {
    const QDate d = at.date();
    const QTime t = at.time();
    return logFilesFolder() + QStringLiteral("/%1-%2-%3_%4H_%5M_%6S.slg")
                                  .arg(d.month())
                                  .arg(d.day())
                                  .arg(d.year())
                                  .arg(t.hour())
                                  .arg(t.minute())
                                  .arg(t.second());
}

void endLogging() {
    if (gDataSaveTimer)
        gDataSaveTimer->stop();
    gLogging = false;
    gDataFile.close();
}

void showLoggerFailure(int number, const QString& description, const QString& middle) {
    msgBox(QStringLiteral("Error number %1. Description is %2.\n").arg(number).arg(description) +
               middle + QStringLiteral("\nreport this error to Brenlock."),
           MsgIcon::Critical);
}
} // namespace

QString logFilesFolder() {
    return gAppPath + QStringLiteral("/Log Files");
}

void installDataSaveTimer(QTimer* timer) {
    gDataSaveTimer = timer;
    if (timer)
        QObject::connect(timer, &QTimer::timeout, timer, &dataSaveTimerTick);
}

QString dataColumnsLine() {
    QStringList fields{QStringLiteral("Date"), QStringLiteral("Time"),
                       QStringLiteral("Operator Message"), QStringLiteral("Batch Number"),
                       QStringLiteral("Lot Number")};
    for (const auto& row : gTagTable) {
        if (isLoggedRow(row))
            fields << row[2];
    }
    return dataRecord(fields);
}

QString dataStartLine(const QString& date, const QString& time) {
    return dataRecord(QStringList{date, time, signedBy(QStringLiteral("started")),
                                  QString::number(gBatchNumber), QString::number(gLotNumber)} +
                      loggedValues());
}

QString dataValuesLine(const QString& date, const QString& time) {
    return dataRecord(QStringList{date, time, gOperatorMessage + heldMark() + u'.',
                                  QStringLiteral("."), QStringLiteral(".")} +
                      loggedValues());
}

QString dataFooterLine(const QString& date, const QString& time) {
    return dataRecord(QStringList{date, time, signedBy(QStringLiteral("stopped")),
                                  QStringLiteral("."), QStringLiteral(".")} +
                      loggedValues());
}

bool startDataFile() {
    const QDateTime now = currentDateTime();
    const QString date = regionalShortDate(now.date());
    const QString time = regionalLongTime(now.time());
    QString why;
    // A site that lost its Log Files folder gets it back rather than no log.
    QDir().mkpath(QFileInfo(gDataFileName).absolutePath());
    bool ok = writeSignatureHeader(gDataFileName, &why);
    if (ok) {
        gLogging = true;
        ok = gDataFile.create(gDataFileName, &why);
        // The signature file just made belongs to no data file now.
        if (!ok)
            QFile::remove(signatureFileOf(gDataFileName));
    }
    if (ok) {
        gDataLine = dataColumnsLine();
        ok = writeLine(gDataFile, gDataLine, &why);
    }
    if (ok) {
        gDataLine = dataStartLine(date, time);
        ok = writeLine(gDataFile, gDataLine, &why);
    }
    if (!ok) {
        endLogging();
        showLoggerFailure(lastFileErrorNumber(), why,
                          QStringLiteral("Error occured during start of logger, Please check "
                                         "disk space and"));
        return false;
    }
    gSaveTick = 0;
    if (gDataSaveTimer)
        gDataSaveTimer->start();
    return true;
}

void dataSaveTimerTick() {
    // A tick that was already on its way when the log stopped has no file to write to.
    if (!gLogging)
        return;
    const QDateTime now = currentDateTime();
    if (++gSaveTick != gSaveInterval)
        return;
    gDataLine = dataValuesLine(regionalShortDate(now.date()), regionalLongTime(now.time()));
    if (!writeLine(gDataFile, gDataLine, nullptr)) {
        endLogging();
        msgBox(QStringLiteral("Error during file save, Please check disk space and try again"),
               MsgIcon::Critical);
    }
    gOperatorMessage.clear();
    gSaveTick = 0;
}

void stopDataFile() {
    if (!gLogging)
        return;
    endLogging();
    const QDateTime now = currentDateTime();
    gDataLine = dataFooterLine(regionalShortDate(now.date()), regionalLongTime(now.time()));
}

bool dataFileNameTaken(const QString& path) {
    return fileExists(path) || somethingAt(path) || somethingAt(signatureFileOf(path));
}

void makeAutoFileName() {
    // A log stopped and started again within one second would have the name of the file before:
    // the name of the next free second serves instead. Nobody chose it, so nobody is asked.
    const QDateTime now = currentDateTime();
    constexpr int kSecondsAhead = 3600;
    for (int ahead = 0; ahead < kSecondsAhead; ++ahead) {
        gDataFileName = autoFileName(now.addSecs(ahead));
        if (!dataFileNameTaken(gDataFileName))
            return;
    }
    // An hour of names taken: the start refuses the last one with its failure box.
}

bool isCurrentDataFile(const QString& path) {
    return gLogging && path == gDataFileName;
}

void midnightRollover() {
    if (!gLogging)
        return;
    const QTime now = currentDateTime().time();
    const QString hm = QStringLiteral("%1:%2").arg(now.hour()).arg(now.minute());
    if (hm == QLatin1String("0:0") && gAutoLog == 1 && !gMidnightLatch) {
        const QString keptUser = gUserId;
        gUserId = kSystemUserId;
        stopDataFile();
        if (g21CFR)
            systemAuditLine(QStringLiteral("Data file stopped. ") + gDataFileName);
        makeAutoFileName();
        // A start that failed has said so in its box; the trail must not claim it.
        if (startDataFile() && g21CFR)
            systemAuditLine(QStringLiteral("Data file started. ") + gDataFileName);
        gMidnightLatch = true;
        gUserId = keptUser;
    } else if (hm == QLatin1String("0:1") && gMidnightLatch) {
        gMidnightLatch = false;
    }
}

void startLoggingAtStartup() {
    if (gLogOnStartup != 1)
        return;
    makeAutoFileName();
    if (startDataFile() && g21CFR)
        systemAuditLine(QStringLiteral("Data file started. ") + gDataFileName);
}

void resetDataLogger() {
    endLogging();
    gDataFileName.clear();
    gDataLine.clear();
    gSaveTick = 0;
    gSaveInterval = 0;
    gAutoLog = 0;
    gLogOnStartup = 0;
    gBatchNumber = 0;
    gLotNumber = 0;
    gOperatorMessage.clear();
    gMidnightLatch = false;
}
