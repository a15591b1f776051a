#pragma once

#include <QString>
#include <QStringList>

class QIODevice;

// Exit statuses of sorvantel-records. When several apply, the first of Unusable, Mismatch,
// Damaged, NotVerified in that order is returned: a reader acting on the status sees the worst.
enum ExitStatus : int {
    kOk = 0,
    kNotVerified = 1, // verify: no signature, no header line, or a line that is no signature
    kUnusable = 2,    // wrong use, or a file that cannot be read or written
    kDamaged = 3,     // a line does not decipher
    kMismatch = 4,    // verify: the data file is not what a signature was made on
};

int worseStatus(int a, int b);

// The plain lines of each file, one a line, to out; damaged lines come out empty, so that line n
// of the output is line n of the file. Several files get a header each.
int printRecords(const QStringList& files, QIODevice& out, QIODevice& err);

// Every signature line of the signature file against the SHA-256 of the data file as it lies on
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
