#pragma once

#include "child_window.h"

#include <array>
#include <utility>

class LedRectangle;
class QDoubleSpinBox;
class QFrame;
class QLabel;
class SevenSegmentDisplay;

// "Controls - Bank n": four consecutive controllers side by side, their process value and
// setpoint on seven-segment displays, the alarm light and, for profilers, the segment and the
// run, hold and stop lights. Everything it shows comes from the plant store at each Timer3 tick.
// A click on a setpoint opens its entry; the profile lights are buttons.
class FrmMainDisplay : public ChildWindow {
    Q_OBJECT
public:
    FrmMainDisplay(int firstRow, const QString& bankText, QWidget* parent = nullptr);

    // Row of the bank's first controller: 0, 4 .. 60.
    const qint16 controllerBank;

    // The Timer3 walk.
    void refresh() override;
    void updateBankValues();
    void updateBankAlarms();
    void updateBankProfile();

    // A click on the setpoint display of a position, and the entry's accepted value.
    void beginSetpointEntry(int index);
    void acceptSetpoint(int index);
    enum class ProfileCommand { Stop = 0, Run = 1, Hold = 2 };
    void profileCommand(int index, ProfileCommand command);
    // The profile lights are shown for profilers only, as the window is activated.
    void showProfileControls();

    // The section its placement lives in: "ControlBanks\Bank" and the row in signed text form.
    static QString placementSection(int firstRow);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    struct Position {
        QFrame* Cface;
        QLabel* Clabel;
        SevenSegmentDisplay* CPV;
        SevenSegmentDisplay* CSP;
        QDoubleSpinBox* SPwrite;
        LedRectangle* AlarmLEDX1;
        QLabel* segCaption;
        QLabel* currSeg;
        LedRectangle* ProfStop;
        LedRectangle* ProfHold;
        LedRectangle* ProfRun;
        // The range last given to the entry, as asked (the spin box keeps it rounded).
        std::pair<double, double> entryRange;
    };
    void setReading(SevenSegmentDisplay* display, int row, bool pv);

    std::array<Position, 4> m_pos{};
    qint32 m_oldSetpoint = 0;
};
