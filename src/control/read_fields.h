#pragma once

#include <QObject>
#include <QSet>
#include <QString>
#include <optional>

class QDoubleSpinBox;

// Entry fields that a read of controller registers fills. A field's limits are fixed when the
// window opens, so a value read from another controller may lie beyond them; a spin box would
// clip it without a word, and a write would then send the clipped value. Here such a field keeps
// what it showed, is marked, and counts as holding nothing until the operator types a value; a
// write must not take a value from it.
class ReadFields : public QObject {
    Q_OBJECT
public:
    explicit ReadFields(QObject* parent = nullptr);

    // caption names the field in what the operator is told.
    void add(QDoubleSpinBox* field, const QString& caption);
    // Shows a value read; nothing (a word the read cannot take) or a value beyond the field's
    // limits marks the field instead. False when it was marked.
    bool show(QDoubleSpinBox* field, std::optional<double> value);
    // The box for the fields marked by the last reads, if any; true when it was shown.
    bool sayMarked();
    // Refuses a write while a field is marked: the box, and false.
    bool allReadOrTyped();

private:
    void mark(QDoubleSpinBox* field, const QString& why);
    void unmark(QDoubleSpinBox* field);

    QList<const QDoubleSpinBox*> m_fields;
    QHash<const QDoubleSpinBox*, QString> m_captions;
    QHash<const QDoubleSpinBox*, QString> m_marked;
    QStringList m_toSay;
};
