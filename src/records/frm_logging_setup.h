#pragma once

#include <QDialog>

class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QSpinBox;
class RecordGrid;

// "Data Logger Setup": the channels to log, the interval, the batch and lot of the next file,
// whether files are named from the clock and whether logging starts with the program; and the
// start and stop of a log. However it closes, the choice of channels goes to tags.tgn and the
// options to the settings.
class FrmLoggingSetup : public QDialog {
    Q_OBJECT
public:
    explicit FrmLoggingSetup(QWidget* parent = nullptr);

    // Grid columns.
    enum Column { Address = 0, WriteOnOff, Tagname };

    RecordGrid* grid() const { return m_grid; }

    void startLog();
    void stopLog();
    // Select All and De-Select All: every row of a controller in use.
    void selectAll(bool on);
    // The dtCheck and SLCheck clicks: logging at start-up needs names from the clock.
    void dtCheckClicked();
    void slCheckClicked();

    void done(int result) override;

private:
    void loadGrid();
    // The grid's choice into the log flags of the tag table; the number of channels chosen.
    int storeChoice();
    void showActiveState();
    void showInactiveState();
    // The box of a change refused while logging; true when it was shown.
    bool refusedWhileLogging();

    RecordGrid* m_grid;
    QSpinBox* m_saveInterval;
    QDoubleSpinBox* m_batchNum;
    QDoubleSpinBox* m_lotNum;
    QCheckBox* m_dtCheck;
    QCheckBox* m_slCheck;
    QLabel* m_label4;
    QLabel* m_label5;
    bool m_closed = false;
};

// mnuDataSave, once its right is granted.
void showLoggingSetup(QWidget* parent);
