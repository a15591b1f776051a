#include "frm_login.h"

#include "plant/frm_logger.h"
#include "platform/accounts.h"
#include "platform/dialogs.h"
#include "records/audit_trail.h"

#include <QApplication>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace {
const QString kLoginTitle = QStringLiteral("Login");
const QString kInvalidPassword = QStringLiteral("Invalid UserID or Password, try again!");
const QString kInvalidGroup = QStringLiteral("Invalid Group Assignment, try again!");
const QString kCheckUnavailable =
    QStringLiteral("The password could not be checked: the system's password service is not "
                   "available.\nPlease check with administrator.");
const QString kGroupsUnreadable =
    QStringLiteral("The user level could not be decided: the site's group names cannot be "
                   "read.\n%1\nPlease check with administrator.");
} // namespace

bool resolveGroupLevel(const QStringList& groups) {
    QList<qint16> levels;
    for (const QString& g : groups) {
        if (g == QLatin1String("Sorvantel Administrators"))
            levels << 2;
        else if (g == QLatin1String("Sorvantel Supervisors"))
            levels << 1;
        else if (g == QLatin1String("Sorvantel Operators"))
            levels << 0;
    }
    if (levels.isEmpty())
        return false;
    // Each step compares with the first group, not with the running result, so the last group
    // met decides against the first. Sites have set up their groups around this rule; it is
    // not a minimum over all groups.
    const qint16 first = levels.first();
    for (qint16 level : levels)
        gUserLevel = level >= first ? first : level;
    return true;
}

FrmLogin::FrmLogin(QWidget* owner) : QDialog(owner) {
    setObjectName(QStringLiteral("frmLogin"));
    setWindowTitle(kLoginTitle);
    setModal(true);
    setWindowFlags(Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);

    auto* nameLabel = new QLabel(QStringLiteral("User Name"), this);
    nameLabel->setObjectName(QStringLiteral("lblLabels"));
    m_userName = new QLineEdit(this);
    m_userName->setObjectName(QStringLiteral("UserName"));
    auto* passwordLabel = new QLabel(QStringLiteral("&Password:"), this);
    passwordLabel->setObjectName(QStringLiteral("lblLabels"));
    m_password = new QLineEdit(this);
    m_password->setObjectName(QStringLiteral("txtPassword"));
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setStyleSheet(QStringLiteral("lineedit-password-character: 42"));
    passwordLabel->setBuddy(m_password);
    for (QLineEdit* box : {m_userName, m_password}) {
        box->setMinimumWidth(220);
        box->installEventFilter(this);
    }

    m_ok = new QPushButton(QStringLiteral("OK"), this);
    m_ok->setObjectName(QStringLiteral("cmdOK"));
    m_ok->setDefault(true);
    m_cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_cancel->setObjectName(QStringLiteral("cmdCancel"));
    connect(m_ok, &QPushButton::clicked, this, &FrmLogin::cmdOK_Click);
    connect(m_cancel, &QPushButton::clicked, this, &FrmLogin::cmdCancel_Click);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(nameLabel);
    layout->addWidget(m_userName);
    layout->addSpacing(6);
    layout->addWidget(passwordLabel);
    layout->addWidget(m_password);
    layout->addSpacing(10);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_ok);
    buttons->addWidget(m_cancel);
    layout->addLayout(buttons);
    setFixedSize(sizeHint());

    gLoggedOn = false;
    // A cancel of an earlier dialog must not pass for a cancel of this one: the failure of
    // this login would go unrecorded and the typed name would stay as the session's.
    gLoginCancelled = false;
    m_saved = saveSession();
}

FrmLogin::~FrmLogin() {
    m_password->clear();
}

bool FrmLogin::eventFilter(QObject* watched, QEvent* event) {
    // Entering a box selects its whole text; after the mouse press has placed the cursor.
    if (event->type() == QEvent::FocusIn) {
        if (auto* box = qobject_cast<QLineEdit*>(watched))
            QTimer::singleShot(0, box, &QLineEdit::selectAll);
    }
    return QDialog::eventFilter(watched, event);
}

void FrmLogin::setChecking(bool checking) {
    m_checking = checking;
    for (QWidget* w : QList<QWidget*>{m_userName, m_password, m_ok, m_cancel})
        w->setEnabled(!checking);
    if (checking)
        QApplication::setOverrideCursor(Qt::WaitCursor);
    else
        QApplication::restoreOverrideCursor();
}

void FrmLogin::cmdOK_Click() {
    if (m_checking)
        return;
    const QString user = m_userName->text();
    // Text that no account could be named never reaches the account service, the session or a
    // record: it is a failed attempt like a wrong password.
    if (!isPossibleAccountName(user)) {
        gLoggedOn = false;
        m_password->clear();
        failAttempt(kInvalidPassword);
        return;
    }
    setChecking(true);
    const QPointer<FrmLogin> self(this);
    gLoggedOn = m_network.Login(user, m_password->text());
    // The event loop ran during the check; a dialog whose owner went meanwhile is gone too.
    if (!self) {
        QApplication::restoreOverrideCursor();
        gLoggedOn = false;
        return;
    }
    // The password has served its one purpose.
    m_password->clear();
    setChecking(false);
    if (!gLoggedOn && m_network.checkUnavailable()) {
        // Nobody typed a wrong password, so it is no failed attempt: three of them would put a
        // "Login Failed" line under the signer's name for a fault of the machine.
        msgBox(kCheckUnavailable, MsgIcon::Critical, MsgButtons::Ok, kLoginTitle);
        m_password->setFocus();
        return;
    }
    if (!gLoggedOn) {
        failAttempt(kInvalidPassword);
        return;
    }
    gComputerName = m_network.rgbGetComputerName();
    const QStringList groups = m_network.GetUserGroups(gComputerName, user, true);
    if (const QString why = m_network.siteGroupsUnreadable(); !why.isEmpty()) {
        // The defaults would be a guess at the level, where the password helper may go by the
        // site's own names. As with a password service that is down, nobody typed anything
        // wrong: no failed attempt.
        gLoggedOn = false;
        const QString text = kGroupsUnreadable.arg(why);
        if (FrmLogger* logger = frmLogger())
            logger->appendLine(text.section(u'\n', 0, 1).replace(u'\n', u' '));
        msgBox(text, MsgIcon::Critical, MsgButtons::Ok, kLoginTitle);
        m_password->setFocus();
        return;
    }
    if (groups.value(0).isEmpty() || !resolveGroupLevel(groups)) {
        failAttempt(kInvalidGroup);
        return;
    }
    m_network.getUserData(user);
    if (securityLevel == kLoginFromMenu)
        auditLine(QStringLiteral("Login"));
    securityLevel = 0;
    QDialog::done(QDialog::Accepted);
}

void FrmLogin::failAttempt(const QString& text) {
    msgBox(text, MsgIcon::Critical, MsgButtons::Ok, kLoginTitle);
    countFailedAttempt();
}

void FrmLogin::countFailedAttempt() {
    ++m_loginAttemptsFailed;
    if (m_loginAttemptsFailed != 3) {
        m_userName->setFocus();
        m_userName->selectAll();
        return;
    }
    gUserId = typedNameForRecord(m_userName->text());
    gUserFullName.clear();
    gUserComment.clear();
    gUserNote.clear();
    QDialog::done(QDialog::Rejected);
    QCoreApplication::processEvents();
    msgBox(QStringLiteral("3 login attempts failed. User written to audit trail.\n\n"
                          "Please check with administrator for lockout\n"
                          "if userID and password is not working!"),
           MsgIcon::Critical, MsgButtons::Ok, QStringLiteral("Login Failure"));
    if (securityLevel == kLoginFromMenu) {
        auditLine(QStringLiteral("Login Failed"));
        restoreSession(m_saved);
    }
    securityLevel = 0;
    gLoggedOn = false;
}

void FrmLogin::cmdCancel_Click() {
    if (m_checking)
        return;
    gLoginCancelled = true;
    gLoggedOn = false;
    securityLevel = 0;
    QDialog::done(QDialog::Rejected);
}

void FrmLogin::reject() {
    cmdCancel_Click();
}
