// The Publishing section of the settings store, which a site may edit by hand: whatever it holds,
// a configuration the workstation accepts builds only topics a broker takes for publishing (no
// wildcard, valid UTF-8), each with the site and the station as exactly one level, and numbers in
// their ranges; one it refuses says why.

#include "fuzz_support.h"
#include "platform/settings_store.h"
#include "publish/publish_config.h"
#include "publish/publish_messages.h"

#include <QHash>
#include <cmath>
#include <mosquitto.h>

namespace {
class LineStore final : public SettingsStore {
public:
    QHash<QString, QString> values;
    QString value(const QString&, const QString& key, const QString& fallback) const override {
        return values.value(key.toLower(), fallback);
    }
    void setValue(const QString&, const QString& key, const QString& value) override {
        values.insert(key.toLower(), value);
    }
};

bool publishable(const QString& topic) {
    const QByteArray bytes = topic.toUtf8();
    return mosquitto_pub_topic_check2(bytes.constData(), size_t(bytes.size())) ==
               MOSQ_ERR_SUCCESS &&
           mosquitto_validate_utf8(bytes.constData(), int(bytes.size())) == MOSQ_ERR_SUCCESS;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto owned = std::make_unique<LineStore>();
    LineStore* store = owned.get();
    for (const QString& line :
         QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size)).split(u'\n')) {
        const qsizetype eq = line.indexOf(u'=');
        if (eq > 0)
            store->values.insert(line.left(eq).toLower(), line.mid(eq + 1));
    }
    installSettingsStore(std::move(owned));
    const PublishConfig config = loadPublishConfig();
    const QString problem = publishConfigProblem(config);
    if (!problem.isEmpty()) {
        require(problem.endsWith(u'.'), "a refusal is a sentence that says why");
        return 0;
    }
    const QString root = topicRoot(config.site, config.station);
    require(root.split(u'/') ==
                QStringList({QStringLiteral("sorvantel"), config.site, config.station}),
            "the site and the station are one level each");
    for (const QString& topic :
         {root + QStringLiteral("/status"), root + QStringLiteral("/alarms"),
          root + QStringLiteral("/audit"), controllerTopic(root, 63, QStringLiteral("values"))})
        require(publishable(topic), "an accepted configuration builds publishable topics");
    require(config.port >= 1 && config.port <= 65535 && config.maxIntervalS >= 1 &&
                config.maxIntervalS <= kMaxIntervalLimitS && std::isfinite(config.deadBand) &&
                config.deadBand >= 0,
            "accepted numbers lie in their ranges");
    return 0;
}
