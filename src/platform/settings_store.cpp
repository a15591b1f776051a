#include "settings_store.h"

#include "facade_slot.h"

#include <QSettings>

SettingsStore& settingsStore() {
    return FacadeSlot<SettingsStore>::get([] { return std::make_unique<QtSettingsStore>(); });
}

void installSettingsStore(std::unique_ptr<SettingsStore> store) {
    FacadeSlot<SettingsStore>::install(std::move(store));
}

QString getSetting(const QString& section, const QString& key, const QString& defaultValue) {
    return settingsStore().value(section, key, defaultValue);
}

void saveSetting(const QString& section, const QString& key, const QString& value) {
    settingsStore().setValue(section, key, value);
}

bool settingToBool(const QString& text, bool* ok) {
    const QString t = text.trimmed();
    bool good = true;
    bool result = false;
    if (t.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0) {
        result = true;
    } else if (t.compare(QLatin1String("False"), Qt::CaseInsensitive) == 0) {
        result = false;
    } else {
        const double n = t.toDouble(&good);
        result = good && n != 0.0;
    }
    if (ok)
        *ok = good;
    return result;
}

QString boolToSetting(bool value) {
    return value ? QStringLiteral("True") : QStringLiteral("False");
}

struct QtSettingsStore::Impl {
    QSettings settings{QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Brenlock"),
                       QStringLiteral("Sorvantel")};
};

QtSettingsStore::QtSettingsStore() : d(std::make_unique<Impl>()) {}
QtSettingsStore::~QtSettingsStore() = default;

QString QtSettingsStore::foldedKey(const QString& section, const QString& key) {
    QString s = section.toLower();
    s.replace(QLatin1Char('\\'), QLatin1Char('/'));
    QString k = key.toLower();
    // A slash inside a key would open a new level in QSettings.
    k.replace(QLatin1Char('/'), QLatin1Char('_')).replace(QLatin1Char('\\'), QLatin1Char('_'));
    return s + QLatin1Char('/') + k;
}

// A site may edit the file by hand and write [Cstatus] or Port= in its own case. The folded
// spelling is the one this store writes, so it wins; otherwise any spelling of the name serves.
QString QtSettingsStore::value(const QString& section, const QString& key,
                               const QString& defaultValue) const {
    const QString folded = foldedKey(section, key);
    QVariant v = d->settings.value(folded);
    if (!v.isValid()) {
        for (const QString& stored : d->settings.allKeys()) {
            if (stored.toLower() == folded) {
                v = d->settings.value(stored);
                break;
            }
        }
    }
    return v.isValid() ? v.toString() : defaultValue;
}

void QtSettingsStore::setValue(const QString& section, const QString& key, const QString& value) {
    const QString folded = foldedKey(section, key);
    // One name, one value: a hand-written spelling would otherwise shadow nothing and linger.
    for (const QString& stored : d->settings.allKeys()) {
        if (stored != folded && stored.toLower() == folded)
            d->settings.remove(stored);
    }
    d->settings.setValue(folded, value);
    // Written through at once so that a crash keeps what the operator saved.
    d->settings.sync();
}
