#pragma once

#include <QString>
#include <optional>
#include <variant>

// A reading as the store keeps it: a number (profilers, simulation) or the text formatted to the
// controller's decimal code (K40 family). Every reader accepts both. A controller that has never
// answered holds the empty value, which reads as 0 and as empty text.
class PlantValue {
public:
    PlantValue() = default;
    PlantValue(double number) : m_value(number) {}
    PlantValue(const QString& text) : m_value(text) {}

    bool isText() const { return std::holds_alternative<QString>(m_value); }
    // Never set since the start.
    bool isEmpty() const { return std::holds_alternative<std::monostate>(m_value); }

    // Strict: text must be a number in plain decimal form, blanks around it allowed; nullopt
    // otherwise, and the reader skips the value.
    std::optional<double> asNumber() const;
    // The number in its shortest text form, or the text as stored.
    QString toText() const;

    bool operator==(const PlantValue& other) const = default;

private:
    std::variant<std::monostate, double, QString> m_value;
};
