#pragma once

#include <QString>
#include <QStringList>
#include <optional>

class QIODevice;

// Exit statuses of sorvantel-records. When several apply, the first of Unusable, Mismatch,
// Damaged, NotVerified in that order is returned: a reader acting on the status sees the worst.
enum ExitStatus : int {
    kOk = 0,
    kNotVerified = 1, // verify: no signature, no header line, or a line that is no signature
    kNotFound = 1,    // search: no data file matched
    kUnusable = 2,    // wrong use, or a file that cannot be read or written
    kDamaged = 3,     // a line does not decipher
    kMismatch = 4,    // verify: the data file is not what a signature was made on
};

int worseStatus(int a, int b);

// The plain lines of each file, one a line, to out; damaged lines come out empty, so that line n
// of the output is line n of the file. Several files get a header each.
int printRecords(const QStringList& files, QIODevice& out, QIODevice& err);

// Every signature line (its line number, date, time, user id, full name and comment) confirmed or
// altered against the SHA-256 of the data file as it lies on
// disk. An empty sigFile means the one beside the data file.
int verifySignatures(const QString& dataFile, const QString& sigFile, QIODevice& out,
                     QIODevice& err);
QString defaultSignaturePath(const QString& dataFile);

// The plain lines as CSV with CR LF, a damaged line as an empty one, replacing the output as a
// whole. An empty csvFile means the input's name with ".csv" beside it. Nothing is written when
// the input cannot be read to its end.
int exportRecords(const QString& file, const QString& csvFile, bool force, QIODevice& out,
                  QIODevice& err);
QString defaultExportPath(const QString& file);

// The data files (.slg) of a folder, not below, by their first two lines: with a text, those
// holding it anywhere in them without regard to case, as the workstation's viewer searches; with
// a batch or lot number, those whose start line holds exactly that number in its batch or lot
// field (both when both are given). Hits go to out by full path in name order; files that could
// not be read are counted on err.
struct DataFileQuery {
    QString text;
    std::optional<qint32> batch;
    std::optional<qint32> lot;
};
int searchRecords(const QString& folder, const DataFileQuery& query, QIODevice& out,
                  QIODevice& err);
QString defaultLogFolder(); // "Log Files" in the current directory
// A batch or lot number as the workstation writes it: plain decimal digits, 0 to 2147483647.
std::optional<qint32> parseRecordNumber(const QString& text);
