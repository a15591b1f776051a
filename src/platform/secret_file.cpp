#include "secret_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <filesystem>
#include <system_error>

QString secretPath(const QString& name) {
    // Beside the settings file, wherever the platform keeps it.
    const QSettings settings{QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Brenlock"),
                             QStringLiteral("Sorvantel")};
    return QFileInfo(settings.fileName()).absolutePath() + u'/' + name;
}

QString readSecret(const QString& name) {
    QFile file(secretPath(name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

bool writeSecret(const QString& name, const QString& value, QString* why) {
    const QString path = secretPath(name);
    if (value.isEmpty()) {
        if (QFile::exists(path) && !QFile::remove(path)) {
            *why = QStringLiteral("%1 cannot be removed").arg(path);
            return false;
        }
        return true;
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    // Made for the owner alone before a byte is in it, then put in place in one step.
    const QString fresh = path + QStringLiteral(".new");
    QFile::remove(fresh);
    QFile file(fresh);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly,
                   QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        file.write(value.toUtf8()) != value.toUtf8().size() || !file.flush()) {
        *why = QStringLiteral("%1 cannot be written: %2").arg(fresh, file.errorString());
        file.close();
        QFile::remove(fresh);
        return false;
    }
    file.close();
    std::error_code error;
    std::filesystem::rename(fresh.toStdString(), path.toStdString(), error);
    if (error) {
        *why = QStringLiteral("%1 cannot be put in place: %2")
                   .arg(path, QString::fromStdString(error.message()));
        QFile::remove(fresh);
        return false;
    }
    return true;
}
