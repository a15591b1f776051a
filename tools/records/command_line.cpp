#include "command_line.h"

#include "record_commands.h"
#include "seal_commands.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QIODevice>

namespace {
const char* const kDescription =
    "Reads the record files of the Sorvantel workstation: data logs (.slg), signature files\n"
    "(.sif), audit trails (.atr), alarm logs (.alf), tuning files (.tun) and recipes (.rec,\n"
    ".spr).\n"
    "\n"
    "Commands:\n"
    "  print FILE...                  the plain lines of each file; a line that does not\n"
    "                                 decipher is named on stderr and printed empty, a last\n"
    "                                 line the file ends inside is named cut short\n"
    "  verify DATAFILE [SIGFILE]      checks every signature of the signature file (by default\n"
    "                                 the .sif beside DATAFILE) against the data file: each is\n"
    "                                 listed as confirmed or altered\n"
    "  export FILE [OUT.csv]          the plain lines as CSV with CR LF, by default beside FILE\n"
    "                                 with .csv; an existing output is replaced only with --force\n"
    "  search TEXT                    data files whose first two lines hold TEXT, without regard\n"
    "                                 to case (a tag, a date or a user name matches as well)\n"
    "  search --batch N [--lot M]     data files whose start line has exactly that batch number\n"
    "  search --lot M                 or lot number (both, when both are given)\n"
    "                                 search looks in --folder DIR, by default \"Log Files\" in\n"
    "                                 the current directory, not below; it lists the full path\n"
    "                                 of each hit on stdout in name order, and counts the files\n"
    "                                 that could not be read on stderr\n"
    "  verify-seal [--key FILE] PATH...\n"
    "                                 checks record files (.slg, .sif, .atr, .alf), or every\n"
    "                                 one below a folder, against the seals of the store given\n"
    "                                 with --store DIR (by default the installed helper's):\n"
    "                                 each is intact, with its lines and last seal, or the\n"
    "                                 lines altered, removed, swapped, added or not sealed are\n"
    "                                 named, with the account that asked for each seal; a file\n"
    "                                 the store knows but a folder given lacks is named deleted.\n"
    "                                 --key FILE: the verification key kept away from the\n"
    "                                 workstation (else the store's own copy is used)\n"
    "\n"
    "Exit status: 0 all well; 1 verify: no signature, no header line or a line that is no\n"
    "signature; search: no data file found; 2 wrong use, or a file or folder that cannot be\n"
    "read or written (for search: a data file whose first two lines cannot be read); 3 a line\n"
    "does not decipher; 4 verify: a signature does not match the data file (altered). For\n"
    "verify-seal: 1 lines written but not sealed (a gap, the last line of a crash, a file never\n"
    "sealed); 2 no usable store or key; 3 a seal file that cannot be read; 4 a file, or seals,\n"
    "not as they were sealed, or a file deleted. When several apply, the first of 2, 4, 3, 1\n"
    "is returned.";

int usageError(QIODevice& err, const QString& message) {
    err.write(QStringLiteral("sorvantel-records: %1\nTry 'sorvantel-records --help'.\n")
                  .arg(message)
                  .toUtf8());
    return kUnusable;
}
} // namespace

int runRecordsTool(const QStringList& arguments, QIODevice& out, QIODevice& err) {
    QCoreApplication::setApplicationName(QStringLiteral("sorvantel-records"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVANTEL_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption force(QStringLiteral("force"),
                                   QStringLiteral("export: replace an existing output file."));
    parser.addOption(force);
    const QCommandLineOption batch(QStringLiteral("batch"),
                                   QStringLiteral("search: the batch number, exactly."),
                                   QStringLiteral("N"));
    const QCommandLineOption lot(QStringLiteral("lot"),
                                 QStringLiteral("search: the lot number, exactly."),
                                 QStringLiteral("M"));
    const QCommandLineOption folder(
        QStringLiteral("folder"),
        QStringLiteral("search: the folder of the data files (default \"Log Files\")."),
        QStringLiteral("DIR"));
    const QCommandLineOption store(
        QStringLiteral("store"),
        QStringLiteral("verify-seal: the seal store, or a copy of it (default %1).")
            .arg(defaultSealStore()),
        QStringLiteral("DIR"));
    const QCommandLineOption key(
        QStringLiteral("key"),
        QStringLiteral("verify-seal: the file holding the verification key."),
        QStringLiteral("FILE"));
    parser.addOptions({batch, lot, folder, store, key});
    parser.addPositionalArgument(QStringLiteral("command"),
                                 QStringLiteral("print, verify, export, search or verify-seal."));
    parser.addPositionalArgument(
        QStringLiteral("files"),
        QStringLiteral("The files the command works on, or the text of search."),
        QStringLiteral("FILE..."));

    if (!parser.parse(arguments))
        return usageError(err, parser.errorText());
    // The texts QCommandLineParser::showHelp and showVersion print before they exit.
    if (parser.isSet(help)) {
        out.write(parser.helpText().toLocal8Bit());
        return kOk;
    }
    if (parser.isSet(version)) {
        out.write(
            QStringLiteral("%1 %2\n")
                .arg(QCoreApplication::applicationName(), QCoreApplication::applicationVersion())
                .toLocal8Bit());
        return kOk;
    }

    const QStringList args = parser.positionalArguments();
    if (args.isEmpty())
        return usageError(err, QStringLiteral("no command given"));
    const QString command = args.first();
    const QStringList files = args.mid(1);
    if (parser.isSet(force) && command != QLatin1String("export"))
        return usageError(err, QStringLiteral("--force belongs to export only"));
    for (const QCommandLineOption* option : {&batch, &lot, &folder}) {
        if (parser.isSet(*option) && command != QLatin1String("search"))
            return usageError(
                err,
                QStringLiteral("--%1 belongs to search only").arg(option->names().constFirst()));
    }

    for (const QCommandLineOption* option : {&store, &key}) {
        if (parser.isSet(*option) && command != QLatin1String("verify-seal"))
            return usageError(err, QStringLiteral("--%1 belongs to verify-seal only")
                                       .arg(option->names().constFirst()));
    }

    if (command == QLatin1String("verify-seal")) {
        if (files.isEmpty())
            return usageError(err, QStringLiteral("verify-seal needs a record file or folder"));
        return verifySeals(files, parser.isSet(store) ? parser.value(store) : defaultSealStore(),
                           parser.value(key), out, err);
    }
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
    if (command == QLatin1String("search")) {
        DataFileQuery query;
        for (auto [option, number] :
             {std::pair{&batch, &query.batch}, std::pair{&lot, &query.lot}}) {
            if (!parser.isSet(*option))
                continue;
            *number = parseRecordNumber(parser.value(*option));
            if (!*number)
                return usageError(err,
                                  QStringLiteral("--%1 takes a whole number from 0 to "
                                                 "2147483647, not '%2'")
                                      .arg(option->names().constFirst(), parser.value(*option)));
        }
        const bool byNumber = query.batch || query.lot;
        if (files.size() > 1 || (byNumber && !files.isEmpty()) || (!byNumber && files.isEmpty()))
            return usageError(err, QStringLiteral("search takes a text, or --batch and --lot, "
                                                  "and its folder with --folder"));
        query.text = files.value(0);
        if (!byNumber && query.text.isEmpty())
            return usageError(err, QStringLiteral("search needs a text that is not empty"));
        return searchRecords(parser.isSet(folder) ? parser.value(folder) : defaultLogFolder(),
                             query, out, err);
    }
    return usageError(err, QStringLiteral("unknown command '%1'").arg(command));
}
