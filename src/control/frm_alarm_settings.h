#pragma once

#include "plant/child_window.h"

#include <QVector>
#include <optional>

class PacedSequence;
class QComboBox;
class QDoubleSpinBox;
class QGroupBox;
class QLabel;
class QPushButton;
class ReadFields;

// "Alarm Settings": the four alarm values inside one controller (registers 3 to 6: alarm 1
// setpoint and deviation, alarm 2 setpoint and deviation), read as a block and written back one
// register at a time after a signed login, on link controls of the window's own beside the poll.
class FrmAlarmSettings : public ChildWindow {
    Q_OBJECT
public:
    // The fields in register order.
    enum Field { Alm1Set, Alm1Dev, Alm2Set, Alm2Dev };
    static constexpr int kFirstRegister = 3;

    explicit FrmAlarmSettings(QWidget* parent = nullptr);

    QComboBox* controlSelect() const { return m_select; }
    QDoubleSpinBox* field(Field f) const { return m_fields[f]; }
    QString statusText() const;
    PacedSequence* reader() const { return m_read; }
    PacedSequence* writer() const { return m_write; }

    void readValues();
    void writeValues();
    // Centred on the area it stands in, as the window has always opened.
    void centreInArea();

private:
    // Controller index of the present selection, -1 with none.
    int selectedRow() const;
    void setDecimals(int row);
    void showBlock(const QVector<quint16>& words);
    // The word a field's value is written as for a controller; nothing when its register
    // cannot hold it.
    std::optional<quint16> rawValue(Field f, int row) const;

    ReadFields* m_readFields;
    QComboBox* m_select;
    QDoubleSpinBox* m_fields[4];
    QLabel* m_status;
    PacedSequence* m_read;
    PacedSequence* m_write;
    // A register of the new choice of controller could not hold its value: the rest dropped.
    bool m_writeRefused = false;
};

// No controller enabled: the box that says so, and false.
bool controllersEnabledOrSay();
