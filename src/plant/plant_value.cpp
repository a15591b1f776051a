#include "plant_value.h"

#include <QLocale>

std::optional<double> PlantValue::asNumber() const {
    if (isEmpty())
        return 0.0;
    if (const double* d = std::get_if<double>(&m_value))
        return *d;
    bool ok = false;
    const double d = QLocale::c().toDouble(std::get<QString>(m_value).trimmed(), &ok);
    if (!ok)
        return std::nullopt;
    return d;
}

QString PlantValue::toText() const {
    if (isEmpty())
        return {};
    if (const double* d = std::get_if<double>(&m_value))
        return QLocale::c().toString(*d, 'g', 15);
    return std::get<QString>(m_value);
}
