// The command line of sorvantel-records from outside, run in a folder of real record files: any
// arguments end in a known status, a usage error is explained, and no record file is ever
// changed or removed. The only file the tool may write is a CSV export, replacing one only when
// told to with --force.

#include "command_line.h"
#include "fuzz_support.h"
#include "platform/line_cipher.h"
#include "records/file_cipher.h"
#include "records/record_file.h"
#include "records/record_line.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QMap>

namespace {
using Files = QMap<QString, QByteArray>; // path under the folder, contents

Files filesBelow(const QString& folder) {
    Files files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        files.insert(path.mid(folder.size() + 1), readBytes(path));
    }
    return files;
}

// A data file with its signature, one cut short in its last line, an audit trail and an
// earlier export, written as the workstation writes them.
const Files& recordFolder(const QString& folder) {
    static const Files files = [&folder] {
        require(QDir().mkpath(folder + QStringLiteral("/Log Files")), "the folder is made");
        const QStringList data = {
            QStringLiteral(
                "Date,Time,Operator Message,Batch Number,Lot Number,TIC-101,TIC-101.SP,"),
            QStringLiteral("3/14/26,10:00:00 AM,File started byJohn Smith (login as jsmith ),42,7,"
                           " 123.4, 120,"),
            QStringLiteral("3/14/26,10:00:05 AM,.,.,.,123.5,120,")};
        const QString run = folder + QStringLiteral("/Log Files/run.slg");
        for (const QString& line : data)
            require(appendEncipheredLine(run, line) == RecordWrite::Written, "a line is written");
        const auto hash = sha256OfFile(run);
        require(hash.has_value(), "the data file hashes");
        for (const QString& line :
             {kSignatureHeader, recordLine({"3/14/26", "11:00:00 AM", "anna", "Anna Berg", "QA",
                                            "Signed", "None", bytesToHex(*hash)})})
            appendEncipheredLine(folder + QStringLiteral("/Log Files/run.sif"), line);
        writeBytes(folder + QStringLiteral("/Log Files/cut.slg"),
                   readBytes(run) + encryptText(data[2]).left(40).toLatin1());
        for (const QString& line : {QStringLiteral("3/14/26,10:00:00 AM,jsmith,John Smith,"
                                                   "Operator,Logged In,None"),
                                    QStringLiteral("3/14/26,10:01:00 AM,jsmith,John Smith,"
                                                   "Operator,Data Logger Started,None")})
            appendEncipheredLine(folder + QStringLiteral("/trail.atr"), line);
        writeBytes(folder + QStringLiteral("/old.csv"), "old\r\n");
        return filesBelow(folder);
    }();
    return files;
}

// Relative names stay in the folder: no absolute path and no way up.
QString keptInFolder(QString argument) {
    argument.replace(QStringLiteral(".."), QStringLiteral("__"));
    const qsizetype value = argument.startsWith(u'-') ? argument.indexOf(u'=') + 1 : 0;
    if (argument.mid(value).startsWith(u'/'))
        argument.insert(value, u'.');
    return argument;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static int argc = 1;
    static char name[] = "sorvantel-records";
    static char* argv[] = {name, nullptr};
    static const QCoreApplication app(argc, argv);
    const QString folder = scratchFolder() + QStringLiteral("/records");
    const Files& before = recordFolder(folder);

    QStringList arguments{QStringLiteral("sorvantel-records")};
    bool force = false;
    if (size > 0) {
        for (const QByteArray& piece :
             QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)).split('\0')) {
            arguments << keptInFolder(QString::fromUtf8(piece));
            force = force || arguments.last() == QLatin1String("--force");
        }
    }
    QBuffer out;
    QBuffer err;
    out.open(QIODevice::WriteOnly);
    err.open(QIODevice::WriteOnly);
    const QString home = QDir::currentPath();
    QDir::setCurrent(folder);
    const int status = runRecordsTool(arguments, out, err);
    QDir::setCurrent(home);

    require(status >= 0 && status <= 4, "the status is one of 0..4");
    require(status != 2 || !err.data().isEmpty(), "a wrong use is explained on stderr");
    const Files after = filesBelow(folder);
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        require(after.contains(it.key()), "no file is removed");
        if (after.value(it.key()) == it.value())
            continue;
        require(force && it.key().endsWith(QLatin1String(".csv"), Qt::CaseInsensitive),
                "only an export (.csv) is replaced, and only with --force");
        writeBytes(folder + u'/' + it.key(), it.value());
    }
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        if (before.contains(it.key()))
            continue;
        require(it.key().endsWith(QLatin1String(".csv"), Qt::CaseInsensitive),
                "only an export (.csv) is added");
        QFile::remove(folder + u'/' + it.key());
    }
    return 0;
}
