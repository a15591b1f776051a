#pragma once

#include "plant/child_window.h"

class QLabel;
class QStatusBar;
class QToolBar;
class RecordGrid;

// "Audit Trail Viewer": one day's audit trail file in a grid, with open, export and print. It
// only reads; the file of today is shown when the window opens.
class FrmAuditView : public ChildWindow {
    Q_OBJECT
public:
    explicit FrmAuditView(QWidget* parent = nullptr);
    ~FrmAuditView() override;

    RecordGrid* grid() const { return m_vaGrid; }
    QToolBar* toolbar() const { return m_toolbar; }
    QString fileName() const { return m_fileName; }
    QString statusText() const;

    // Fills the grid from an audit file; a file that is not there yet is made empty, so today's
    // trail can be viewed before its first line.
    void loadAuditGrid(const QString& path);
    void openAuditFile();
    void exportAuditFile();
    void printAuditGrid();

protected:
    bool readyToClose() override;

private:
    void setStatus(const QString& text);

    RecordGrid* m_vaGrid;
    QToolBar* m_toolbar;
    QStatusBar* m_statusBar;
    QLabel* m_statusPanel;
    QLabel* m_label1;
    QString m_fileName;
    bool m_loading = false;
    bool m_closeAfterLoad = false;
};

FrmAuditView* frmAuditView();
