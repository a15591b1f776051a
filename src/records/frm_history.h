#pragma once

#include "plant/child_window.h"

#include <QStringList>

class QAction;
class QLabel;
class QProgressBar;
class QStatusBar;
class QToolBar;
class RecordGrid;

// The full path of the data file the Data File Viewer shows; empty when it shows none.
inline QString gHistoryFileName;

// "Data File Viewer": one data file in a grid, deciphered through a scratch copy, with its
// signatures beside it. From here the supervisor signs and verifies, and anyone with the rights
// exports, prints and searches the data files for a batch or lot number.
class FrmHistory : public ChildWindow {
    Q_OBJECT
public:
    explicit FrmHistory(QWidget* parent = nullptr);
    ~FrmHistory() override;

    RecordGrid* dataGrid() const { return m_dataGrid; }
    RecordGrid* signatureGrid() const { return m_signatureGrid; }
    QToolBar* toolbar() const { return m_toolbar; }
    QString statusText() const;
    bool isLoading() const { return m_loading; }

    // The scratch files in Enc: the byte-exact copy of the data file and its plain text, which
    // lasts only until the grid has it. Both are the account's own (mode 0600), made new at each
    // open and never written through a link.
    static QString encryptedCopyPath();
    static QString plainCopyPath();

    void openHistoryFile();
    // Copy, decipher, grid, signatures; false when the file could not be shown, after the box
    // that says why (the window is empty then).
    bool showDataFile(const QString& path);
    void signDataFile();
    void verifySignature();
    void exportDataFile();
    void searchDataFiles();
    void printHistoryGrid();
    // Plot: the selected blocks into the historical plot. Cancel Plot stops a plot on its way.
    void plotHistory();
    void cancelPlot();
    // The progress of a plot, in percent, beside the status.
    void showPlotProgress(bool visible);
    void setPlotProgress(int percent);
    // True with a file on show, otherwise the box that asks for one.
    bool dataFileOpened();
    void clearHistoryGrids();

protected:
    bool readyToClose() override;

private:
    bool decryptDataFile();
    bool loadDataGrid();
    void loadSignatureGrid();
    bool copyAside(QString* why);
    void showProgress(qint64 maximum);
    void setProgress(qint64 value);
    void hideProgress();
    void setStatus(const QString& text);
    // "Current File is " and the path, with what the last open or search found amiss.
    QString fileStatus() const;
    void setLoading(bool loading);
    void enableSigning(bool enabled);

    RecordGrid* m_dataGrid;
    RecordGrid* m_signatureGrid;
    QToolBar* m_toolbar;
    QAction* m_sign;
    QAction* m_verify;
    QStatusBar* m_statusBar;
    QLabel* m_statusPanel;
    QLabel* m_dcryLabel;
    QProgressBar* m_progBar;
    int m_progressShift = 0; // the bar counts in units of 2^shift bytes, as it holds an int
    // The plain signature lines, row for row of the signature grid.
    QStringList m_signatureLines;
    QString m_signatureNote;
    QString m_searchNote;
    bool m_loading = false;
};

FrmHistory* frmHistory();
