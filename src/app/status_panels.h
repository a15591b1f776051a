#pragma once

#include <QObject>
#include <QString>

class ShrinkingPanel;
class QStatusBar;

// The main window's panels of what an operator checks all day, beside the status text: the
// controllers not answering, how long a round over the scanned controllers takes, the alarms not
// yet acknowledged, the data log being written, and who is logged on. Each reads the plant store,
// the alarm log or the session when told to refresh (once a second); none asks a controller
// anything.
class StatusPanels : public QObject {
    Q_OBJECT
public:
    explicit StatusPanels(QStatusBar* bar);

    void refresh();

    QString qualityText() const;
    QString roundText() const;
    QString alarmsText() const;
    QString loggingText() const;
    QString userText() const;
    // Whether a panel shows its warning colour.
    bool qualityWarns() const { return m_qualityWarns; }
    bool alarmsWarn() const { return m_alarmsWarn; }

private:
    ShrinkingPanel* m_quality;
    ShrinkingPanel* m_round;
    ShrinkingPanel* m_alarms;
    ShrinkingPanel* m_logging;
    ShrinkingPanel* m_user;
    bool m_qualityWarns = false;
    bool m_alarmsWarn = false;
};
