// The command line of sorvantel-records from outside, run in a folder of real record files: any
// arguments end in a known status, a usage error is explained, and no record file is ever
// changed or removed. The only file the tool may write is a CSV export, replacing one only when
// told to with --force.

#include "command_line.h"
#include "fuzz_support.h"

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
        writeSampleRun(folder + QStringLiteral("/Log Files"));
        writeBytes(folder + QStringLiteral("/trail.atr"),
                   enciphered({"3/14/26,10:00:00 AM,jsmith,John Smith,Operator,Logged In,None",
                               "3/14/26,10:01:00 AM,jsmith,John Smith,Operator,Data Logger "
                               "Started,None"}));
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
        for (const QByteArray& piece : inputBytes(data, size).toByteArray().split('\0')) {
            arguments << keptInFolder(QString::fromUtf8(piece));
            force = force || arguments.last() == QLatin1String("--force");
        }
    }
    QBuffer out, err;
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
