#pragma once

#include <QIcon>

// The workstation's own icon, drawn so that it needs no image files at run time.
QIcon appIcon();
