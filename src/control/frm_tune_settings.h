#pragma once

#include "plant/child_window.h"

#include <QStringList>
#include <optional>

class BarDisplay;
class PacedSequence;
class Plot;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QMdiArea;
class QRadioButton;
class QSlider;
class QTimer;
class QToolBar;

// What a .tun file keeps: the five tuning values, the auto-tune choice, and the plot's spans and
// rate. Eleven lines before encipherment.
struct TuneSetup {
    double propBand = 0.0;
    double reset = 0.0;
    double rate = 0.0;
    double coolBand = 0.0;
    double deadBand = 0.0;
    bool autoTuneOn = false;
    bool autoTuneOff = true;
    double ySpan = 100.0;
    double xSpanDays = 1.0 / 144;
    double plotTrend = 0.0;
    int tickMs = 500;
    bool operator==(const TuneSetup&) const = default;
};
QStringList tuneFileLines(const TuneSetup& setup);
// A damaged (empty) line reads as 0, or False. Nothing for a file that is no tuning file: fewer
// than 11 lines or more than 12, text where a value belongs, an auto-tune line neither True nor
// False, or an interval a timer cannot take.
std::optional<TuneSetup> parseTuneFile(const QStringList& lines);

// The revision rule of the tuning block: the last two digits of the revision word above 39 give
// a controller with the heat/cool dead band (40), any other one without (39).
int dbRevisionOf(quint16 revisionWord);

// "Loop Tuning": the PID values of one controller read, written after a signed login, its
// auto-tune started, and a live plot of its process value, setpoint and output.
class ReadFields;

class FrmTuneSettings : public ChildWindow {
    Q_OBJECT
public:
    static constexpr int kPrepareWrite = 26661;
    static constexpr int kStartAutoTune = 26664;

    explicit FrmTuneSettings(QWidget* parent = nullptr);

    QComboBox* ControlTuneSelect = nullptr;
    QDoubleSpinBox* PBValueX1 = nullptr;
    QDoubleSpinBox* ResetValueX1 = nullptr;
    QDoubleSpinBox* RateValueX1 = nullptr;
    QDoubleSpinBox* CoolPBX1 = nullptr;
    QDoubleSpinBox* dbX1 = nullptr;
    QRadioButton* Option1 = nullptr;
    QRadioButton* Option2 = nullptr;
    BarDisplay* levelBars = nullptr; // PVbar, SPbar and OutBar side by side
    Plot* iPlotX = nullptr;
    QSlider* valSlide = nullptr;
    QSlider* dateSlide = nullptr;
    QTimer* Timer1 = nullptr;
    QToolBar* Toolbar1 = nullptr;
    PacedSequence* ModTunRead1 = nullptr;
    PacedSequence* ModTunRead2 = nullptr;
    PacedSequence* ModTuneWrite = nullptr;

    int theCurrAddress = -1;
    int timerCounter = 0;
    double plotTrend = 0.0;
    double startYAxis = 100.0;
    double startXAxis = 1.0 / 144;
    int dbRevision = 40;

    QString statusText() const;
    TuneSetup currentSetup() const;
    void applySetup(const TuneSetup& setup);

    void readValues();
    void writeValues();
    void timer1Tick();
    void setupTrend();
    void openTuneFile();
    void saveTuneFile();
    // Placed from its section, centred at its first size by default.
    void placeInArea(QMdiArea* area);

protected:
    bool readyToClose() override;

private:
    int selectedRow() const;
    void addTuningChannels();
    void setStatus(const QString& text);
    void selectionChanged();
    void showAutoTune(bool on);
    // The word a stage writes; nothing when the value does not fit its register.
    std::optional<quint16> rawOf(int stage, int row) const;

    QLabel* m_status = nullptr;
    bool m_autoTuneSent = false;
    double m_outBarTop = 100.0;
    int m_readRow = -1;
    ReadFields* m_readFields = nullptr;
};
