#include "frm_publishing.h"

#include "platform/dialogs.h"
#include "publisher.h"
#include "security/login.h"
#include "security/rights.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTimer>
#include <QVBoxLayout>

namespace {
template <typename W> W* named(W* widget, const char* name) {
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}
} // namespace

QString publishingAuditText(const PublishConfig& before, const PublishConfig& after) {
    const QString target = QStringLiteral("%1:%2%3")
                               .arg(after.host)
                               .arg(after.port)
                               .arg(after.tls ? QStringLiteral(" (TLS)") : QString());
    if (before.enabled != after.enabled)
        return after.enabled ? QStringLiteral("Publishing switched on to ") + target
                             : QStringLiteral("Publishing switched off");
    if (!before.sameTarget(after) || before.site != after.site || before.station != after.station)
        return QStringLiteral("Publishing target changed to ") + target + u' ' + after.site + u'/' +
               after.station;
    if (before != after)
        return QStringLiteral("Publishing settings changed");
    return {};
}

FrmPublishing::FrmPublishing(Publisher& publisher, QWidget* parent)
    : QDialog(parent), m_publisher(publisher), m_before(publisher.config()) {
    setObjectName(QStringLiteral("frmPublishing"));
    setWindowTitle(QStringLiteral("Publishing"));
    setModal(true);
    const PublishConfig& c = m_before;
    m_enabled = named(new QCheckBox(tr("Publish the plant to an MQTT broker"), this), "enabled");
    m_enabled->setChecked(c.enabled);
    m_host = named(new QLineEdit(c.host, this), "host");
    m_port = named(new QSpinBox(this), "port");
    m_port->setRange(1, 65535);
    m_port->setValue(c.port);
    m_tls = named(new QCheckBox(tr("TLS, the broker's certificate checked against:"), this), "tls");
    m_tls->setChecked(c.tls);
    m_caFile = named(new QLineEdit(c.caFile, this), "caFile");
    auto* browse = named(new QPushButton(tr("Browse..."), this), "browseCaFile");
    m_user = named(new QLineEdit(c.user, this), "user");
    m_password = named(new QLineEdit(c.password, this), "password");
    m_password->setEchoMode(QLineEdit::Password);
    m_site = named(new QLineEdit(c.site, this), "site");
    m_station = named(new QLineEdit(c.station, this), "station");
    m_deadBand = named(new QDoubleSpinBox(this), "deadBand");
    m_deadBand->setRange(0, 1e6);
    m_deadBand->setDecimals(3);
    m_deadBand->setValue(c.deadBand);
    m_maxInterval = named(new QSpinBox(this), "maxInterval");
    m_maxInterval->setRange(1, kMaxIntervalLimitS);
    m_maxInterval->setSuffix(tr(" s"));
    m_maxInterval->setValue(c.maxIntervalS);
    m_audit =
        named(new QCheckBox(tr("Publish audit lines too (they name people)"), this), "auditEvents");
    m_audit->setChecked(c.auditEvents);
    m_state = named(new QLabel(this), "stateLine");
    m_state->setWordWrap(true);
    m_counts = named(new QLabel(this), "countsLine");

    auto* form = new QFormLayout;
    form->addRow(m_enabled);
    form->addRow(tr("Broker host:"), m_host);
    form->addRow(tr("Port:"), m_port);
    auto* ca = new QHBoxLayout;
    ca->addWidget(m_caFile, 1);
    ca->addWidget(browse);
    form->addRow(m_tls);
    form->addRow(tr("CA file:"), ca);
    form->addRow(tr("User name:"), m_user);
    form->addRow(tr("Password:"), m_password);
    form->addRow(tr("Site:"), m_site);
    form->addRow(tr("Station:"), m_station);
    form->addRow(tr("Value dead band:"), m_deadBand);
    form->addRow(tr("Maximum interval:"), m_maxInterval);
    form->addRow(m_audit);
    form->addRow(tr("State:"), m_state);
    form->addRow(QString(), m_counts);

    auto* ok = named(new QPushButton(tr("OK"), this), "OKButton");
    ok->setDefault(true);
    auto* cancel = named(new QPushButton(tr("Cancel"), this), "CancelButton");
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(ok);
    buttons->addWidget(cancel);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addLayout(buttons);
    setMinimumWidth(460);

    connect(ok, &QPushButton::clicked, this, &FrmPublishing::okClicked);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(browse, &QPushButton::clicked, this, &FrmPublishing::browseCaFile);
    connect(&publisher, &Publisher::stateChanged, this, &FrmPublishing::refreshState);
    m_refresh = new QTimer(this);
    m_refresh->setInterval(1000);
    connect(m_refresh, &QTimer::timeout, this, &FrmPublishing::refreshState);
    m_refresh->start();
    refreshState();
}

PublishConfig FrmPublishing::enteredConfig() const {
    PublishConfig c;
    c.enabled = m_enabled->isChecked();
    c.host = m_host->text().trimmed();
    c.port = m_port->value();
    c.tls = m_tls->isChecked();
    c.caFile = m_caFile->text().trimmed();
    c.user = m_user->text();
    c.password = m_password->text();
    c.site = m_site->text();
    c.station = m_station->text();
    c.deadBand = m_deadBand->value();
    c.maxIntervalS = m_maxInterval->value();
    c.auditEvents = m_audit->isChecked();
    return c;
}

void FrmPublishing::okClicked() {
    const PublishConfig after = enteredConfig();
    if (const QString problem = publishConfigProblem(after); !problem.isEmpty()) {
        msgBox(problem, MsgIcon::Information, MsgButtons::Ok, QStringLiteral("Publishing"));
        return;
    }
    const QString action = publishingAuditText(m_before, after);
    if (action.isEmpty()) {
        accept();
        return;
    }
    if (!checkAccessWithLogin(Right::Publishing, action))
        return;
    QString why;
    if (!savePublishConfig(after, &why)) {
        msgBox(QStringLiteral("The publishing settings cannot be kept: ") + why, MsgIcon::Critical,
               MsgButtons::Ok, QStringLiteral("Publishing"));
        return;
    }
    m_publisher.apply(after);
    accept();
}

void FrmPublishing::browseCaFile() {
    FileDialogRequest request;
    request.title = tr("CA file of the broker");
    request.filter = QStringLiteral("Certificates (*.pem;*.crt)|*.pem;*.crt|All Files (*.*)|*.*");
    request.fileName = m_caFile->text();
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    if (!chosen.cancelled)
        m_caFile->setText(chosen.path);
}

void FrmPublishing::refreshState() {
    m_state->setText(m_publisher.stateText());
    m_counts->setText(tr("Sent %1, dropped %2, queued %3")
                          .arg(m_publisher.sent())
                          .arg(m_publisher.dropped())
                          .arg(m_publisher.queued()));
}

void showPublishing(Publisher& publisher, QWidget* parent) {
    FrmPublishing dialog(publisher, parent);
    dialog.exec();
}
