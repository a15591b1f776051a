#pragma once

#include <QString>
#include <memory>

// The per-user settings store: text values under a section and a key, read with a default.
// Section names use `\` between levels, as the rest of the system writes them.
class SettingsStore {
public:
    virtual ~SettingsStore() = default;
    virtual QString value(const QString& section, const QString& key,
                          const QString& defaultValue) const = 0;
    virtual void setValue(const QString& section, const QString& key, const QString& value) = 0;
};

// The store in force; the real one is made on first use.
SettingsStore& settingsStore();
void installSettingsStore(std::unique_ptr<SettingsStore> store);

QString getSetting(const QString& section, const QString& key, const QString& defaultValue = {});
void saveSetting(const QString& section, const QString& key, const QString& value);

// Text-to-boolean as the store's readers use it: "True"/"False" and numbers (non-zero is true).
// Returns false in *ok for anything else.
bool settingToBool(const QString& text, bool* ok = nullptr);
QString boolToSetting(bool value);

// The real store over QSettings in INI form, on Windows too. Names are written folded to lower
// case and found in any case on reading, since the store the system was laid out for ignores
// case and sites edit the file by hand.
class QtSettingsStore final : public SettingsStore {
public:
    QtSettingsStore();
    ~QtSettingsStore() override;
    QString value(const QString& section, const QString& key,
                  const QString& defaultValue) const override;
    void setValue(const QString& section, const QString& key, const QString& value) override;

    static QString foldedKey(const QString& section, const QString& key);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
