#pragma once

#include "displays/trend_file.h"
#include "plant/child_window.h"
#include "records/trend_setup.h"

#include <QVector>

class Plot;
class QAction;
class QMdiArea;
class QSlider;
class QTimer;
class QToolBar;

// "Trend 1" to "Trend 8": up to twelve pens, each following the process value, setpoint or
// output of one controller in the plant store, sampled at the rate the time span sets. The
// window talks to no controller; what it keeps from one run to the next is its configuration
// file Trend<n>.trn and its placement.
class Ctrend1 : public ChildWindow, public RealTimeTrend {
    Q_OBJECT
public:
    // The sliders' range; the value each stands at is the configured span.
    static constexpr int kSliderLimit = 100;

    explicit Ctrend1(qint16 number, QWidget* parent = nullptr);

    // Written by the setup dialog.
    qint16 formNumber = 0;
    double TDays = 0.0;
    double Thours = 0.0;
    double Tmins = 0.0;
    qint32 timerCounter = 0;
    double plotTrend = 1.0;
    // The configured spans, the references of the sliders. The value span is a whole number on
    // purpose: a fractional span loses its fraction here and at the next close.
    double origXAxis = 0.0;
    qint32 origYAxis = 0;
    // One channel code a pen, and one element more that is never plotted.
    QVector<qint16> trendArray{0};

    Plot* iPlotX = nullptr;
    QTimer* Timer1 = nullptr;
    QToolBar* Toolbar1 = nullptr;
    QSlider* RTDateSlider = nullptr;
    QSlider* YRTSlider = nullptr;

    // "Trend1" to "Trend8": how the setup dialog finds the window again.
    QString tag() const;
    void setTag(const QString& tag);
    int penCount() const { return int(trendArray.size()) - 1; }

    // Takes elements 0 to upper bound - 1 of the table; its last element is dropped.
    void assignTrendArray(const QVector<qint16>& passArray);
    // The pens' recent past from the controllers' history, as far back as the time span shows.
    void fillFromHistory();
    // One sample of every pen.
    void plotArray();
    void timer1Tick();

    // Reads Trend<formNumber>.trn into the window; on failure the window stays empty with the
    // damaged-file box.
    void loadTrendFile();
    // The window's configuration as the file holds it, and the other way round.
    TrendConfig currentConfig() const;
    // False when a value cannot be held by the window (a value span beyond a whole number).
    bool applyConfig(const TrendConfig& config);
    // Writes the configuration; a failure gets its box and false.
    bool writeArrayData(const QString& filePath);

    void openTrendView();
    void saveTrendView();
    void setupTrend();
    void assignChannelsForUser(TrendSetup& setup);
    Plot& trendPlot() override;
    void takeSetup(const TrendSetup& setup) override;
    void toggleDataCursor();
    void resumeTrending();
    void saveTrendJPG();
    void printTrend();

    QString trendFilePath() const;

protected:
    bool readyToClose() override;

private:
    void setTickInterval(int ms);
};

// Creates, places, fills and starts trend window number n in the area, tagged with the name.
Ctrend1* showTrend(QMdiArea* area, const QString& name, qint16 trendNumber);

inline const QString kTrendLoadingCaption = QStringLiteral("Loading trend data, Please Wait....");
