#pragma once

#include "plant/child_window.h"

class QLabel;
class QToolBar;
class RecordGrid;

// "Alarm Log Viewer": one day's alarm log file in a grid, with export and print. It only reads.
class AlmLogViewer : public ChildWindow {
    Q_OBJECT
public:
    explicit AlmLogViewer(QWidget* parent = nullptr);
    ~AlmLogViewer() override;

    RecordGrid* grid() const { return m_grid; }
    QToolBar* toolbar() const { return m_toolbar; }
    QString fileName() const { return m_fileName; }
    QString statusText() const;

    void openAlarmFile();
    // Rows from the first line of the file on, over those of an earlier file; an empty line
    // ends the file. A line that does not decipher is an empty row, and the status says how
    // many there were.
    void loadAlarmFile(const QString& path);

protected:
    bool readyToClose() override;

private:
    RecordGrid* m_grid;
    QToolBar* m_toolbar;
    QLabel* m_statusPanel;
    QString m_fileName;
    bool m_loading = false;
    bool m_closeAfterLoad = false;
};

AlmLogViewer* almLogViewer();
