#pragma once

#include <QByteArray>
#include <QString>

// Replaces a file whole: written beside it, synced to the disk, then renamed over it, so that a
// crash leaves either the old file or the new one.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error = nullptr);
