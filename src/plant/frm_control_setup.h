#pragma once

#include <QDialog>

class QCheckBox;
class QGridLayout;
class QSpinBox;
class RecordGrid;

// "Controller Labels\Enable Status": where the plant is defined. Which of the 64 controllers are
// scanned, their family and the tags of their three channels, the scan time and the beep
// options. Nothing is scanned while it is open. However it closes, the four options are applied
// and saved; only Done keeps the grid and the new scan time.
class FrmControlSetup : public QDialog {
    Q_OBJECT
public:
    explicit FrmControlSetup(QWidget* parent = nullptr);

    // Grid columns; the controller number is the row header.
    enum Column { Status = 0, PvTag, SpTag, OutTag, ControlType };

    RecordGrid* grid() const { return m_cdata; }
    QSpinBox* updateTime() const { return m_cupdateTime; }

    // "Done": a fresh login, then the plant of the grid goes into the store and tags.tgn, and
    // scanning starts over on it. The dialog stays open when the login is refused or the file
    // cannot be written.
    void assignChannelsControlSetup();

    void done(int result) override;

private:
    void loadGrid();
    void addLinePacing(QWidget* frame, QGridLayout* grid);
    void saveOptions();

    RecordGrid* m_cdata;
    QCheckBox* m_beepAckChk;
    QCheckBox* m_beepAlmChk;
    QCheckBox* m_check1;
    QCheckBox* m_check2;
    QSpinBox* m_cupdateTime;
    QCheckBox* m_linePaced = nullptr;
    QSpinBox* m_lineGuard = nullptr;
    bool m_closed = false;
};

// mnuClabels, once its right is granted: the dialog, modal, unless the data logger runs.
void showControlSetup(QWidget* parent);
