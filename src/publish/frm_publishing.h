#pragma once

#include "publish_config.h"

#include <QDialog>

class Publisher;
class QCheckBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QSpinBox;
class QTimer;

// "Publishing": where the workstation publishes the plant, and how it goes. A change is signed
// like the other setup windows and, with security on, leaves its audit line; the password never
// appears in a line.
class FrmPublishing : public QDialog {
    Q_OBJECT
public:
    FrmPublishing(Publisher& publisher, QWidget* parent = nullptr);

    PublishConfig enteredConfig() const;
    void okClicked();
    void browseCaFile();
    void refreshState();

private:
    Publisher& m_publisher;
    PublishConfig m_before;
    QCheckBox* m_enabled;
    QLineEdit* m_host;
    QSpinBox* m_port;
    QCheckBox* m_tls;
    QLineEdit* m_caFile;
    QLineEdit* m_user;
    QLineEdit* m_password;
    QLineEdit* m_site;
    QLineEdit* m_station;
    QDoubleSpinBox* m_deadBand;
    QSpinBox* m_maxInterval;
    QCheckBox* m_audit;
    QLabel* m_state;
    QLabel* m_counts;
    QTimer* m_refresh;
};

// Setup -> Publishing; the menu has asked for the right.
void showPublishing(Publisher& publisher, QWidget* parent);
// The audit text of a change, or empty when nothing that the trail records changed.
QString publishingAuditText(const PublishConfig& before, const PublishConfig& after);
