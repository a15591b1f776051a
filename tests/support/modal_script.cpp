#include "modal_script.h"

#include "security/frm_login.h"

#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QThread>

ModalScript::ModalScript() {
    // Often enough to answer at once, seldom enough not to spin a waiting test.
    m_timer.setInterval(5);
    connect(&m_timer, &QTimer::timeout, this, &ModalScript::poll);
    m_timer.start();
}

void ModalScript::login(const QString& user, const QString& password) {
    act([user, password](QDialog* d) {
        d->findChild<QLineEdit*>(QStringLiteral("UserName"))->setText(user);
        d->findChild<QLineEdit*>(QStringLiteral("txtPassword"))->setText(password);
        d->findChild<QPushButton*>(QStringLiteral("cmdOK"))->click();
    });
}

void ModalScript::cancelLogin() {
    act([](QDialog* d) { d->findChild<QPushButton*>(QStringLiteral("cmdCancel"))->click(); });
}

void ModalScript::poll() {
    // Only a dialog running its own event loop is one the code ran into. A modal dialog the test
    // shows itself is the test's to drive, and the test's own waits (qWait, QTRY) turn the loop
    // at level 0: answering there would close it under the test as soon as a wait fell due.
    if (QThread::currentThread()->loopLevel() == 0)
        return;
    // The top of the modal stack: a dialog opened from a modal dialog answers first.
    auto* open = qobject_cast<QDialog*>(QApplication::activeModalWidget());
    if (!open || !open->isVisible())
        return;
    if (auto* login = qobject_cast<FrmLogin*>(open); login && login->isChecking())
        return;
    seen << open->windowTitle();
    if (m_steps.empty()) {
        ++unscripted;
        open->reject();
        return;
    }
    const auto step = std::move(m_steps.front());
    m_steps.pop_front();
    step(open);
}
