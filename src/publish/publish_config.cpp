#include "publish_config.h"

#include "platform/secret_file.h"
#include "platform/settings_store.h"

#include <cmath>

namespace {
const QString kSection = QStringLiteral("Publishing");
const QString kSecret = QStringLiteral("Sorvantel-broker.secret");

int intSetting(const QString& key, int fallback) {
    bool ok = false;
    const int value = getSetting(kSection, key, QString::number(fallback)).toInt(&ok);
    return ok ? value : fallback;
}
} // namespace

bool PublishConfig::sameTarget(const PublishConfig& other) const {
    return host == other.host && port == other.port && tls == other.tls && caFile == other.caFile &&
           user == other.user && password == other.password;
}

PublishConfig loadPublishConfig() {
    PublishConfig c;
    c.enabled =
        settingToBool(getSetting(kSection, QStringLiteral("Enabled"), QStringLiteral("False")));
    c.host = getSetting(kSection, QStringLiteral("Host"), c.host);
    c.port = intSetting(QStringLiteral("Port"), c.port);
    c.tls = settingToBool(getSetting(kSection, QStringLiteral("TLS"), QStringLiteral("False")));
    c.caFile = getSetting(kSection, QStringLiteral("CAFile"));
    c.user = getSetting(kSection, QStringLiteral("User"));
    c.password = readSecret(kSecret);
    c.site = getSetting(kSection, QStringLiteral("Site"), c.site);
    c.station = getSetting(kSection, QStringLiteral("Station"), c.station);
    bool ok = false;
    const double band =
        getSetting(kSection, QStringLiteral("DeadBand"), QStringLiteral("0")).toDouble(&ok);
    c.deadBand = ok && std::isfinite(band) && band >= 0 ? band : 0.0;
    c.maxIntervalS = intSetting(QStringLiteral("MaxInterval"), c.maxIntervalS);
    c.auditEvents =
        settingToBool(getSetting(kSection, QStringLiteral("AuditEvents"), QStringLiteral("False")));
    return c;
}

bool savePublishConfig(const PublishConfig& c, QString* why) {
    if (!writeSecret(kSecret, c.password, why))
        return false;
    saveSetting(kSection, QStringLiteral("Enabled"), boolToSetting(c.enabled));
    saveSetting(kSection, QStringLiteral("Host"), c.host);
    saveSetting(kSection, QStringLiteral("Port"), QString::number(c.port));
    saveSetting(kSection, QStringLiteral("TLS"), boolToSetting(c.tls));
    saveSetting(kSection, QStringLiteral("CAFile"), c.caFile);
    saveSetting(kSection, QStringLiteral("User"), c.user);
    saveSetting(kSection, QStringLiteral("Site"), c.site);
    saveSetting(kSection, QStringLiteral("Station"), c.station);
    saveSetting(kSection, QStringLiteral("DeadBand"), QString::number(c.deadBand));
    saveSetting(kSection, QStringLiteral("MaxInterval"), QString::number(c.maxIntervalS));
    saveSetting(kSection, QStringLiteral("AuditEvents"), boolToSetting(c.auditEvents));
    return true;
}

QString topicNameProblem(const QString& what, const QString& name) {
    if (name.isEmpty())
        return QStringLiteral("The %1 name is empty.").arg(what);
    if (name.size() > 64)
        return QStringLiteral("The %1 name is longer than 64 characters.").arg(what);
    if (name.startsWith(u'$'))
        return QStringLiteral("The %1 name must not begin with \"$\": brokers keep such topics "
                              "for themselves.")
            .arg(what);
    for (const QChar ch : name) {
        if (ch == u'/' || ch == u'+' || ch == u'#')
            return QStringLiteral("The %1 name must not hold \"%2\": it would change the "
                                  "topics.")
                .arg(what, QString(ch));
        if (ch.category() == QChar::Other_Control || ch.isSurrogate() || ch.isNonCharacter())
            return QStringLiteral("The %1 name must not hold control characters.").arg(what);
    }
    return {};
}

QString publishConfigProblem(const PublishConfig& c) {
    for (const auto& [what, name] : {std::pair{QStringLiteral("site"), c.site},
                                     std::pair{QStringLiteral("station"), c.station}})
        if (const QString problem = topicNameProblem(what, name); !problem.isEmpty())
            return problem;
    if (c.host.trimmed().isEmpty())
        return QStringLiteral("The broker's host is empty.");
    if (c.port < 1 || c.port > 65535)
        return QStringLiteral("The broker's port must lie between 1 and 65535.");
    if (c.tls && c.caFile.isEmpty())
        return QStringLiteral("TLS needs the CA file that signed the broker's certificate.");
    if (c.maxIntervalS < 1 || c.maxIntervalS > kMaxIntervalLimitS)
        return QStringLiteral("The maximum interval must lie between 1 and %1 seconds.")
            .arg(kMaxIntervalLimitS);
    if (!std::isfinite(c.deadBand) || c.deadBand < 0)
        return QStringLiteral("The dead band must be zero or more.");
    return {};
}
