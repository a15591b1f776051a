#pragma once

#include <QString>

// A secret of the workstation (the broker's password) kept out of the plain settings file: in a
// file of its own beside it, readable by its owner only, replaced whole when it changes. On a
// machine shared by several accounts the others cannot read it; root and a copy of the disk can.
QString secretPath(const QString& name);
QString readSecret(const QString& name);
// An empty value removes the file.
bool writeSecret(const QString& name, const QString& value, QString* why);
