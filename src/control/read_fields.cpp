#include "read_fields.h"

#include "platform/dialogs.h"

#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QLocale>

namespace {
QString number(double value, int decimals) {
    return QLocale::c().toString(value, 'f', decimals);
}
} // namespace

ReadFields::ReadFields(QObject* parent) : QObject(parent) {}

void ReadFields::add(QDoubleSpinBox* field, const QString& caption) {
    m_fields.append(field);
    m_captions.insert(field, caption);
    // A value typed is the operator's own: the mark goes. Only typing counts: a change of the
    // limits or decimals that moves the value is no choice of the operator's.
    if (auto* edit = field->findChild<QLineEdit*>())
        connect(edit, &QLineEdit::textEdited, this, [this, field] { unmark(field); });
}

bool ReadFields::show(QDoubleSpinBox* field, std::optional<double> value) {
    const QString caption = m_captions.value(field);
    if (!value) {
        mark(field, caption + QStringLiteral(": the controller holds a word this window can not "
                                             "read."));
        return false;
    }
    if (*value < field->minimum() || *value > field->maximum()) {
        const int decimals = field->decimals();
        mark(field, caption + QStringLiteral(": the controller holds ") + number(*value, decimals) +
                        QStringLiteral(", beyond this field's limits (") +
                        number(field->minimum(), decimals) + QStringLiteral(" to ") +
                        number(field->maximum(), decimals) + QStringLiteral(")."));
        return false;
    }
    field->setValue(*value);
    unmark(field);
    return true;
}

bool ReadFields::sayMarked() {
    if (m_toSay.isEmpty())
        return false;
    msgBox(m_toSay.join(u'\n') +
               QStringLiteral("\n\nSuch a field keeps what it showed and is not written until "
                              "a value is typed into it."),
           MsgIcon::Warning);
    m_toSay.clear();
    return true;
}

bool ReadFields::allReadOrTyped() {
    QStringList marked;
    for (const QDoubleSpinBox* field : m_fields) {
        if (m_marked.contains(field))
            marked << m_captions.value(field);
    }
    if (marked.isEmpty())
        return true;
    msgBox(QStringLiteral("Nothing was written. These fields do not show what the controller "
                          "holds: ") +
               marked.join(QStringLiteral(", ")) +
               QStringLiteral(".\nType a value into each, or read again."),
           MsgIcon::Warning);
    return false;
}

void ReadFields::mark(QDoubleSpinBox* field, const QString& why) {
    m_marked.insert(field, why);
    m_toSay << why;
    field->setToolTip(why);
    // A pale red ground, seen at a glance; the tool tip says why.
    QPalette palette = field->palette();
    palette.setColor(QPalette::Base, QColor(255, 214, 214));
    field->setPalette(palette);
}

void ReadFields::unmark(QDoubleSpinBox* field) {
    if (!m_marked.remove(field))
        return;
    field->setToolTip(QString());
    field->setPalette(QPalette());
}
