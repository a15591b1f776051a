#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <deque>
#include <functional>

class QDialog;

// Answers the modal dialogs of our own (login, user access) that a test runs into, those run with
// exec(): each step acts on the next dialog that is open and idle. A dialog no step was left for is
// cancelled and counted, so that a test can never hang on one.
class ModalScript : public QObject {
    Q_OBJECT
public:
    ModalScript();

    // One press of OK in the login dialog with this user and password.
    void login(const QString& user, const QString& password);
    // Cancel in the login dialog.
    void cancelLogin();
    // Anything else done to the open dialog (which may be a login dialog too).
    void act(std::function<void(QDialog*)> step) { m_steps.push_back(std::move(step)); }

    int pending() const { return static_cast<int>(m_steps.size()); }
    // Titles of the dialogs met, in order, one entry per step taken or dialog cancelled.
    QStringList seen;
    int unscripted = 0;

private:
    void poll();
    QTimer m_timer;
    std::deque<std::function<void(QDialog*)>> m_steps;
};
