#include "frm_about.h"

#include "platform/dialogs.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

namespace {
// Tools that show the machine's hardware and software, in order of preference.
QString systemInfoTool() {
#ifdef Q_OS_WIN
    return QStandardPaths::findExecutable(QStringLiteral("msinfo32"));
#else
    for (const char* name :
         {"hardinfo", "gnome-system-monitor", "ksysguard", "xfce4-taskmanager"}) {
        const QString path = QStandardPaths::findExecutable(QString::fromLatin1(name));
        if (!path.isEmpty())
            return path;
    }
    return {};
#endif
}
} // namespace

QString FrmAbout::versionText() {
    return QStringLiteral("Version %1").arg(QStringLiteral(SORVANTEL_VERSION));
}

FrmAbout::FrmAbout(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmAbout"));
    setWindowTitle(QStringLiteral("About Sorvantel"));
    auto* layout = new QVBoxLayout(this);
    auto* title = new QLabel(QStringLiteral("<b>Brenlock Controls Sorvantel</b>"), this);
    auto* version = new QLabel(versionText(), this);
    version->setObjectName(QStringLiteral("lblVersion"));
    auto* description = new QLabel(
        QStringLiteral("Supervisory data acquisition and recording for up to 64 controllers."),
        this);
    layout->addWidget(title);
    layout->addWidget(version);
    layout->addWidget(description);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok, this);
    QPushButton* info =
        buttons->addButton(QStringLiteral("&System Info..."), QDialogButtonBox::ActionRole);
    info->setObjectName(QStringLiteral("cmdSysInfo"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(info, &QPushButton::clicked, this, [] {
        const QString tool = systemInfoTool();
        if (tool.isEmpty() || !QProcess::startDetached(tool, {}))
            msgBox(QStringLiteral("System Information Is Unavailable At This Time"),
                   MsgIcon::Information);
    });
    layout->addWidget(buttons);
}
