#pragma once

#include <QString>

// How and where the workstation publishes the plant: kept in the settings section "Publishing",
// the password apart (secret_file.h).
struct PublishConfig {
    bool enabled = false;
    QString host = QStringLiteral("127.0.0.1");
    int port = 1883;
    bool tls = false;
    QString caFile;
    QString user;
    QString password;
    QString site = QStringLiteral("plant");
    QString station = QStringLiteral("station1");
    double deadBand = 0.0;    // in the value's own units: a smaller change waits for the interval
    int maxIntervalS = 60;    // every controller's values at least this often
    bool auditEvents = false; // audit lines name people: off unless the site says so

    bool operator==(const PublishConfig&) const = default;
    // Host, port, TLS, its authority and the login: a change of these is a change of target.
    bool sameTarget(const PublishConfig& other) const;
};

PublishConfig loadPublishConfig();
// Writes the settings and the password; false, with the reason, when the password cannot be kept.
bool savePublishConfig(const PublishConfig& config, QString* why);

// Why a site or station name cannot stand in a topic, or empty when it can: a level of its own,
// with no "/", "+", "#", control character or leading "$", at most 64 characters.
QString topicNameProblem(const QString& what, const QString& name);
// Why a configuration cannot be used, or empty.
QString publishConfigProblem(const PublishConfig& config);

inline constexpr int kMaxIntervalLimitS = 86400;
