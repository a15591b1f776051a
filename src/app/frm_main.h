#pragma once

#include <QMainWindow>
#include <functional>

class QAction;
class QLabel;
class StatusPanels;
class Publisher;
class ChildWindow;
class Ctrend1;
class FrmMainDisplay;
class QMdiSubWindow;
class QMdiArea;
class SealClient;
class QMenu;
class QTimer;
class ScanController;

// The multiple-document main window: menus, status bar, the poll timer Timer2 and the
// housekeeping timer Timer3. Every other window of the workstation opens inside it.
class FrmMain : public QMainWindow {
    Q_OBJECT
public:
    explicit FrmMain(QWidget* parent = nullptr);
    ~FrmMain() override;

    QMdiArea* mdiArea() const { return m_mdi; }
    ScanController& scan() const { return *m_scan; }
    // A menu item by its control name ("mnuOpenP").
    QAction* menuItem(const QString& name) const;

    void setStatusText(const QString& text);
    // The status bar says whether record lines are sealed; with security on, the audit trail
    // gets a line each time sealing starts or stops working.
    void watchSealing(SealClient* client);
    QString sealText() const;
    StatusPanels* panels() const { return m_panels; }
    Publisher& publisher() const { return *m_publisher; }
    QString statusText() const;
    void updateCaption();

    void mnuSimMode_Click();
    void mnuRtMode_Click();
    void mnuFileExit_Click();

    void showHelp();
    // The user guide at the section of the window being worked in (a dialog, a child window),
    // or at the start.
    void showGuideHere();
    void timer3Tick();
    void updateOpenProjectMenu();

    // Shows a window opened by a menu item: the item stays disabled while the window lives, so
    // that there is never a second one.
    // place, when given, puts the window where it opens; otherwise its own placement does.
    void showSingleWindow(const QString& menuItemName, ChildWindow* window,
                          const std::function<void()>& place = {});
    // Opens the bank of four controllers from this row, under its menu item.
    FrmMainDisplay* addControlBank(int firstRow, const QString& bankText);
    // Opens trend window n tagged with the name; its menu item stays disabled while it lives.
    Ctrend1* showTrend(const QString& name, qint16 trendNumber);

    // Cascade, tile one above the other, tile side by side.
    void arrangeCascade();
    void arrangeTileHorizontal();
    void arrangeTileVertical();

signals:
    // The close was accepted: the process is to end.
    void exitRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void rebuildWindowMenu();
    void updateClockPanels();
    // The bank items' tool tips: the tags of their scanned controllers.
    void updateBankTips();

    QMdiArea* m_mdi = nullptr;
    ScanController* m_scan = nullptr;
    QTimer* m_dataSaveTimer = nullptr;
    QTimer* m_clockTimer = nullptr;
    QLabel* m_statusPanel = nullptr;
    QLabel* m_datePanel = nullptr;
    QLabel* m_timePanel = nullptr;
    QLabel* m_sealPanel = nullptr;
    Publisher* m_publisher = nullptr;
    StatusPanels* m_panels = nullptr;
    QMenu* m_windowMenu = nullptr;
    bool m_closing = false;
};

// The main window while it is loaded.
FrmMain* frmMain();
// Help file of the application, set at start.
inline QString gHelpFile;
