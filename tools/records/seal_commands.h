#pragma once

#include <QString>
#include <QStringList>

class QIODevice;

// verify-seal: record files (.slg, .sif, .atr, .alf), or every one of them below folders,
// checked against a copy of the sealing helper's store. Each file is named intact, with its lines
// and the time of its last seal, or with what is wrong; a file the store has seals of but that is
// missing from a folder given is named deleted. keyFile holds the verification key kept away from
// the workstation; without it the store's own copy is used, and the output says so. The status is
// that of the worst file (record_commands.h): 1 lines not sealed, 3 a seal file that cannot be
// read, 4 a file or seals that are not what was sealed, 2 no usable store or key.
int verifySeals(const QStringList& paths, const QString& storeFolder, const QString& keyFile,
                QIODevice& out, QIODevice& err);
// The store the installed helper keeps.
QString defaultSealStore();
