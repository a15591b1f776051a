#pragma once

#include "plant/child_window.h"

class BarDisplay;
class QDoubleSpinBox;
class QLabel;
class QMdiArea;
class QStatusBar;
class QTimer;
class QToolBar;

// "PV/SP Compare Bar Graph with Peak": sixteen controllers from barNumber on, a red bar of the
// process value and a green bar of the setpoint each, with peak markers, limits of the scale
// that the window keeps, and a status line naming the values of the controller last clicked.
class FrmBarGraph : public ChildWindow {
    Q_OBJECT
public:
    static constexpr int kControllers = 16;
    static constexpr int kPairWidth = 2 * 11; // pixels of one controller's two bars

    explicit FrmBarGraph(qint16 firstController, QWidget* parent = nullptr);

    qint16 barNumber = 0;
    qint16 cToMonitor = 0;
    // The scale's limits as the window keeps them beside the two entries.
    double barScaleLower = 0.0;
    double barScaleUpper = 100.0;

    BarDisplay* Bar1X1 = nullptr;
    QDoubleSpinBox* BarLower = nullptr;
    QDoubleSpinBox* BarUpper = nullptr;
    QStatusBar* StatusBar1 = nullptr;
    QToolBar* Toolbar1 = nullptr;
    QTimer* Timer1 = nullptr;

    QString statusText() const;
    void timer1Tick();
    // A press on the bars, x in pixels from the first bar.
    void barsClicked(int x);
    void clearPeaks();

protected:
    bool readyToClose() override;

private:
    void writeStatusLine();
    QLabel* m_panel = nullptr;
};

// Opens the window of the sixteen controllers from this index (0, 16, 32 or 48), placed and
// with its limits from its settings section.
FrmBarGraph* showBarGraph(QMdiArea* area, qint16 firstController);
