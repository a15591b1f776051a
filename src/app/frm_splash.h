#pragma once

#include <QPointer>
#include <QWidget>

class QTimer;
class FrmMain;

// The start form: brings the workstation up in its fixed order, then, one second after it
// appears, opens the resident windows and starts the scan.
class FrmSplash : public QWidget {
    Q_OBJECT
public:
    explicit FrmSplash(QWidget* parent = nullptr);
    ~FrmSplash() override;

    enum class LoadResult { Ok, AlreadyRunning, Failed };
    // Steps up to the caption of the main window. On failure the message has been shown.
    LoadResult load();
    void timer1Tick();

    FrmMain* mainWindow() const { return m_main; }
    qint16 splashTicks = 0;
    bool initFailed = false;

signals:
    // The resident windows are open and the scan has started.
    void startupComplete();

private:
    QTimer* m_timer1;
    QPointer<FrmMain> m_main;
};
