#pragma once

#include "network_info.h"
#include "session.h"

#include <QDialog>

class QLineEdit;
class QPushButton;

// securityLevel of a login started from the Users menu: only then does the dialog write
// "Login" and "Login Failed" itself.
inline constexpr qint16 kLoginFromMenu = 9000;

// "Login": user name and password, tested against the machine's accounts; the level comes from
// the user's groups. Three failed attempts end the dialog.
class FrmLogin : public QDialog {
    Q_OBJECT
public:
    explicit FrmLogin(QWidget* owner);
    ~FrmLogin() override;

    qint16 securityLevel = 0;

    void cmdOK_Click();
    void cmdCancel_Click();
    // A password check is under way; the dialog takes no input meanwhile.
    bool isChecking() const { return m_checking; }
    quint16 loginAttemptsFailed() const { return m_loginAttemptsFailed; }

protected:
    // Esc and the close box cancel, as the Cancel button does.
    void reject() override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void countFailedAttempt();
    void failAttempt(const QString& text);
    void setChecking(bool checking);

    QLineEdit* m_userName = nullptr;
    QLineEdit* m_password = nullptr;
    QPushButton* m_ok = nullptr;
    QPushButton* m_cancel = nullptr;
    NetworkInfo m_network;
    SessionSnapshot m_saved;
    quint16 m_loginAttemptsFailed = 0;
    bool m_checking = false;
};

// Sets gUserLevel from the user's groups, walked in the platform's order: the level ends as
// the lower of the first and the last of the system's groups met. False when none is met.
bool resolveGroupLevel(const QStringList& groups);
