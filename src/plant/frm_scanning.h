#pragma once

#include <QDialog>

class QLabel;
class QProgressBar;
class QTimer;

// "Scanning Active Controls": shown while the first pass over the active list runs. Its Timer1
// starts the poll half a second after it opens.
class FrmScanning : public QDialog {
    Q_OBJECT
public:
    explicit FrmScanning(QWidget* parent = nullptr);

    void setRange(int maximum);
    void setProgress(int value);
    int progress() const;
    void startTimer1();

signals:
    void timer1Fired();

private:
    QLabel* m_label;
    QProgressBar* m_bar;
    QTimer* m_timer1;
};
