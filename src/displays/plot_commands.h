#pragma once

#include <QString>

class Plot;

// The picture and the printout of a plot, as every plot window offers them.

// The right to save files, then the save dialog ("Save trend jpeg as?") proposing the name
// given, then the chart as a JPEG of quality 100, progressive. A failure says so in a box.
void savePlotJpeg(Plot& plot, const QString& proposedName,
                  const QString& title = QStringLiteral("Save trend jpeg as?"));
// The chart on the default printer, landscape, headed by the caption with the moment.
void printPlot(Plot& plot, const QString& caption);
