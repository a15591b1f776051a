#pragma once

#include <QString>
#include <optional>
#include <variant>

// A reading as the store keeps it: a number (profilers, simulation) or the text formatted to the
// controller's decimal code (K40 family). Every reader accepts both.
class PlantValue {
public:
    PlantValue() = default;
    PlantValue(double number) : m_value(number) {}
    PlantValue(const QString& text) : m_value(text) {}

    bool isText() const { return std::holds_alternative<QString>(m_value); }
    bool isEmpty() const { return isText() && std::get<QString>(m_value).isEmpty(); }

    // Strict: text must be a whole number in plain decimal form, blanks around it allowed.
    std::optional<double> asNumber() const;
    // The number in its shortest text form, or the text as stored.
    QString toText() const;

    bool operator==(const PlantValue& other) const = default;

private:
    std::variant<QString, double> m_value;
};
