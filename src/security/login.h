#pragma once

#include <QString>

class QWidget;

// The gate of every signed action: the right for the present session, then a fresh login by
// whoever signs, then the audit line under that name. True means the action goes on; the
// signer stays logged on. With security off it passes at once and writes nothing.
bool checkAccessWithLogin(int right, const QString& actionText);

// The window the login of a signed action opens over; the main window sets itself at start.
void setSigningOwner(QWidget* owner);

// The Users menu's "Log on.." and "Log off..".
void logOnFromMenu(QWidget* owner);
void logOffFromMenu();
