#pragma once

#include <QString>

class RecordGrid;
struct GridPrintJob;

// The commands the record viewers share.

// The save dialog for the file name in Export Data, then the grid with its column titles as
// comma-separated lines; a failure is the general error box with the word given.
void exportGridAsCsv(RecordGrid& grid, const QString& title, const QString& filter,
                     const QString& fileName, const QString& errorWord);

// False, after the box that says so, when the machine has no printer to print to.
bool defaultPrinterOrSay();

// The print dialog on the default printer, then the grid as many times as the copies asked; a
// failure is the general error box with the word given, a cancel says nothing.
void printGridCopies(RecordGrid& grid, const GridPrintJob& job, const QString& errorWord);

// A print job as the viewers print: the page number at the foot of each page.
GridPrintJob viewerPrintJob(const QString& jobName, const QString& header);
