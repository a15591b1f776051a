#pragma once

#include <QDialog>
#include <QString>
#include <array>
#include <functional>

class Plot;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QSpinBox;

// Which plot the setup dialog serves: the tag of a trend window ("Trend1" to "Trend8"), or
// "History Plot", or "Loop Tuning".
inline QString gTrendSetupCaller;
inline const QString kHistoryPlotCaller = QStringLiteral("History Plot");
inline const QString kLoopTuningCaller = QStringLiteral("Loop Tuning");

class TrendSetup;

// A real-time trend as the setup dialog sees it: the plot its scales go to, and the window that
// takes the time span and pens chosen.
class RealTimeTrend {
public:
    virtual ~RealTimeTrend() = default;
    virtual Plot& trendPlot() = 0;
    // After the scales went to the plot: sampling, spans and pens from the dialog's fields.
    virtual void takeSetup(const TrendSetup& setup) = 0;
};

// "Trend Scaling Setup": spans, scales, colours and pens of every plot of the workstation. The
// caller fills it and shows it; OK hands the values to the plot that gTrendSetupCaller names.
class TrendSetup : public QDialog {
    Q_OBJECT
public:
    static constexpr int kPenRows = 12;
    // The ring of a pen set up here: twice the thousand points a span is sampled into.
    static constexpr int kPenRing = 2000;

    explicit TrendSetup(QWidget* parent = nullptr);

    // X Axis Setup
    QSpinBox* TrendDaysAnalog;
    QSpinBox* TrendHoursAnalog;
    QSpinBox* TrendMinutesAnalog;
    QSpinBox* XminorTicks;
    QComboBox* XscaleFormat;
    QLabel* XcolorLabel;
    QPushButton* YscaleColor; // stands in the X frame and serves XcolorLabel: crossed on purpose
    QLabel* BgColorLabel;
    QPushButton* trendBgColor;
    // Y Axis Setup
    QDoubleSpinBox* TrendZeroAnalog;
    QDoubleSpinBox* TrendSpanAnalog;
    QSpinBox* YminorTicks;
    QLabel* YcolorLabel;
    QPushButton* Xscalecolor; // stands in the Y frame and serves YcolorLabel
    // Trend Pen Setup
    std::array<QComboBox*, kPenRows> PenAssign{};
    std::array<QLabel*, kPenRows> PenClr{};
    std::array<QPushButton*, kPenRows> PenClrBtn{};
    std::array<QSpinBox*, kPenRows> PWidth{};
    QPushButton* OKButton;
    QPushButton* CancelButton;

    // The plot being set up and, for a trend, its window.
    qint16 frmNumberPassed = 0;
    RealTimeTrend* ctrendObj = nullptr;
    Plot* histPlotobj = nullptr;
    Plot* tunPlotObj = nullptr;
    // The tuning window takes the time span itself: days, hours, minutes.
    std::function<void(double, double, double)> tuneSpanChosen;

    // A swatch's colour, the platform's value (red in the low byte).
    static qint32 swatchColor(const QLabel* swatch);
    static void setSwatchColor(QLabel* swatch, qint32 color);

    // The scale fields from a plot: zero and span, colours, minor ticks, time format, background.
    void fillFromPlot(const Plot& plot);
    // Every pen row lists the three values of each enabled controller; each row of a channel of
    // the plot takes its colour and width and selects the entry of the channel's title.
    void assignChannels(const Plot& plot);

    void OKButton_Click();
    void CancelButton_Click();
    void setupRTPlot();
    void setupHistoryPlot();
    void setupLoopTuning();
    // Cancel, Escape and the close box: the caller's Timer1 runs again, nothing else changes.
    void reject() override;

private:
    // Zero, span and colours from the fields to a plot; false (with a box) when the span would
    // not be above zero.
    bool transferScales(Plot& plot);
    void pickColour(QLabel* swatch);
};

// The channel code's title: the process value, setpoint or output tag of its controller.
QString channelTitle(qint16 code);
