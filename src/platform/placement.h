#pragma once

#include <QRect>
#include <QString>

class QWidget;

// Window placement in twips, as the settings store keeps it: 1440 twips to the inch, so 15 to
// the pixel at 96 dots per inch.
struct PlacementTwips {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
};

double twipsPerPixel(const QWidget* widget);

// The rectangle in pixels that MainLeft, MainTop, MainWidth and MainHeight of a section give,
// each from its default when absent.
QRect placementRect(const QWidget* window, const QString& section, const PlacementTwips& defaults);
// Places a window from MainLeft, MainTop, MainWidth and MainHeight of a section; a top-level
// window that would land off every screen is centred on the primary one instead.
// Windows of a fixed size keep their position only (MainLeft and MainTop).
void restorePlacement(QWidget* window, const QString& section, const PlacementTwips& defaults,
                      bool withSize = true);
// Saves the placement, unless the window is minimized.
void savePlacement(const QWidget* window, const QString& section, bool withSize = true);
// Saves r as the placement of the window.
void savePlacement(const QWidget* window, const QString& section, const QRect& r,
                   bool withSize = true);
