#include "record_commands.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <cstdio>

namespace {
const char* const kDescription =
    "Reads the record files of the Sorvantel workstation: data logs (.slg), signature files\n"
    "(.sif), audit trails (.atr), alarm logs (.alf), tuning files (.tun) and recipes (.rec,\n"
    ".spr).\n"
    "\n"
    "Commands:\n"
    "  print FILE...                  the plain lines of each file; a line that does not\n"
    "                                 decipher is named on stderr and printed empty\n"
    "  verify DATAFILE [SIGFILE]      checks every signature of the signature file (by default\n"
    "                                 the .sif beside DATAFILE) against the data file\n"
    "  export FILE [OUT.csv]          the plain lines as CSV, by default beside FILE with .csv;\n"
    "                                 an existing output is replaced only with --force\n"
    "\n"
    "Exit status: 0 all well; 1 verify: no signature, no header line or a line that is no\n"
    "signature; 2 wrong use, or a file that cannot be read or written; 3 a line does not\n"
    "decipher; 4 verify: a signature does not match the data file. When several apply, the\n"
    "first of 2, 4, 3, 1 is returned.";

int usageError(QIODevice& err, const QString& message) {
    err.write(QStringLiteral("sorvantel-records: %1\nTry 'sorvantel-records --help'.\n")
                  .arg(message)
                  .toUtf8());
    return kUnusable;
}
} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvantel-records"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVANTEL_VERSION));

    QFile out;
    QFile err;
    if (!out.open(stdout, QIODevice::WriteOnly) ||
        !err.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered))
        return kUnusable;

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption force(QStringLiteral("force"),
                                   QStringLiteral("export: replace an existing output file."));
    parser.addOption(force);
    parser.addPositionalArgument(QStringLiteral("command"),
                                 QStringLiteral("print, verify or export."));
    parser.addPositionalArgument(QStringLiteral("files"),
                                 QStringLiteral("The files the command works on."),
                                 QStringLiteral("FILE..."));

    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(err, parser.errorText());
    if (parser.isSet(help))
        parser.showHelp(kOk);
    if (parser.isSet(version))
        parser.showVersion();

    const QStringList args = parser.positionalArguments();
    if (args.isEmpty())
        return usageError(err, QStringLiteral("no command given"));
    const QString command = args.first();
    const QStringList files = args.mid(1);
    if (parser.isSet(force) && command != QLatin1String("export"))
        return usageError(err, QStringLiteral("--force belongs to export only"));

    if (command == QLatin1String("print")) {
        if (files.isEmpty())
            return usageError(err, QStringLiteral("print needs at least one file"));
        return printRecords(files, out, err);
    }
    if (command == QLatin1String("verify")) {
        if (files.isEmpty() || files.size() > 2)
            return usageError(err, QStringLiteral("verify takes a data file and, if it is not "
                                                  "beside it, its signature file"));
        return verifySignatures(files[0], files.value(1), out, err);
    }
    if (command == QLatin1String("export")) {
        if (files.isEmpty() || files.size() > 2)
            return usageError(err, QStringLiteral("export takes a file and, if wanted, the "
                                                  "name of the CSV file"));
        return exportRecords(files[0], files.value(1), parser.isSet(force), out, err);
    }
    return usageError(err, QStringLiteral("unknown command '%1'").arg(command));
}
