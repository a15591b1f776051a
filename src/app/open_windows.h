#pragma once

#include <QStringList>

class FrmMain;
class QMdiArea;

// The plant in view at start: the display windows open at the last exit (banks, trends, bar
// graphs, digital values) open again, each where its own section put it; at a first start, with
// no such record, the first bank with a scanned controller opens.

// The display windows open in the area, as the names of the menu items that open them, the
// window on top last.
QStringList openDisplayWindows(QMdiArea* area);
// Keeps them for the next start.
void saveOpenWindows(QMdiArea* area);
void reopenWindows(FrmMain& main);
