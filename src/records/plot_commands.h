#pragma once

#include <QString>
#include <functional>

class Plot;
class QSlider;

// The picture and the printout of a plot, as every plot window offers them.

// The right to save files, then the save dialog ("Save trend jpeg as?") proposing the name
// given, then the chart as a JPEG of quality 100, progressive. A failure says so in a box.
void savePlotJpeg(Plot& plot, const QString& proposedName,
                  const QString& title = QStringLiteral("Save trend jpeg as?"));
// The chart on the default printer, landscape, headed by the caption with the moment.
void printPlot(Plot& plot, const QString& caption);

// A zoom slider of a plot: at position p it shows (100 - p) hundredths of the span fullSpan
// gives, on the time axis or the value axis; 100 is held at 99 so that the span never reaches
// zero, and below 0 (the trends' sliders) it widens the span.
void bindZoomSlider(QSlider* slider, Plot* plot, bool timeAxis, std::function<double()> fullSpan);
