#include "frm_op_message.h"

#include "data_logger.h"
#include "platform/dialogs.h"
#include "security/login.h"
#include "security/rights.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

FrmOpMessage::FrmOpMessage(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmOpMessage"));
    setWindowTitle(QStringLiteral("Operator Message"));
    setModal(true);
    auto* frame = new QGroupBox(QStringLiteral("Enter Operator Message For Data File:"), this);
    frame->setObjectName(QStringLiteral("Frame1"));
    m_text = new QLineEdit(frame);
    m_text->setObjectName(QStringLiteral("operatorMessageToFile"));
    m_text->setMinimumWidth(360);
    (new QVBoxLayout(frame))->addWidget(m_text);
    auto* ok = new QPushButton(QStringLiteral("OK"), this);
    ok->setObjectName(QStringLiteral("OKButton"));
    ok->setDefault(true);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("CancelButton"));
    connect(ok, &QPushButton::clicked, this, &FrmOpMessage::okClicked);
    connect(cancel, &QPushButton::clicked, this, &FrmOpMessage::cancelClicked);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(ok);
    buttons->addWidget(cancel);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(frame);
    layout->addLayout(buttons);
}

void FrmOpMessage::okClicked() {
    // The trail records that a message was sent, not what it says.
    if (checkAccessWithLogin(Right::OperatorMessage,
                             QStringLiteral("Operator message to data file")))
        gOperatorMessage = m_text->text();
    accept();
}

void FrmOpMessage::cancelClicked() {
    gOperatorMessage.clear();
    reject();
}

void showOperatorMessage(QWidget* parent) {
    if (!gLogging) {
        msgBox(QStringLiteral("Data Logging must be active to write\noperator messages to file."),
               MsgIcon::Information);
        return;
    }
    FrmOpMessage dialog(parent);
    dialog.exec();
}
