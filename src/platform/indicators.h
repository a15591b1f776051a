#pragma once

#include <QColor>
#include <QString>
#include <QWidget>

// A small instrument of the panels: painted by its own class, it reports a click, so that a
// display or a light can serve as a button.
class Indicator : public QWidget {
    Q_OBJECT
public:
    using QWidget::QWidget;

signals:
    void clicked();

protected:
    void mousePressEvent(QMouseEvent* event) override;
};

// A value on seven-segment digits, as a panel instrument shows it: a fixed number of digit
// places, a decimal point that takes no place of its own, and a dark state in which nothing is
// lit. It repaints only when what it shows changes, so a caller may set it on every tick.
class SevenSegmentDisplay : public Indicator {
    Q_OBJECT
public:
    explicit SevenSegmentDisplay(QWidget* parent = nullptr);

    void setValue(double value);
    // Text that is a number in plain form shows as that number; anything else as dashes.
    void setValueText(const QString& text);
    double value() const { return m_value; }
    void setPrecision(int decimals);
    int precision() const { return m_precision; }
    void setDigitCount(int digits);
    // Off: the display goes dark.
    void setOn(bool on);
    bool isOn() const { return m_on; }
    // Held: the value is an old one (its source stopped answering); the digits dim, so that an
    // operator tells it from a measured one at a glance.
    void setHeld(bool held);
    bool isHeld() const { return m_held; }
    void setColours(const QColor& lit, const QColor& unlit, const QColor& background);

    // What the digits show, one character a place ('.' joins the place before it); empty when
    // dark. A value too wide for the places shows as dashes.
    QString shownText() const { return m_shown; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();

    double m_value = 0;
    int m_precision = 0;
    int m_digits = 6;
    bool m_on = true;
    bool m_held = false;
    QString m_shown;
    QColor m_lit{255, 40, 30};
    QColor m_unlit{60, 10, 8};
    QColor m_background{Qt::black};
};

// A rectangular light with a label on it: lit when active, dim when not. Repaints only when its
// state or label changes.
class LedRectangle : public Indicator {
    Q_OBJECT
public:
    explicit LedRectangle(const QString& label = {}, QWidget* parent = nullptr);

    void setLabel(const QString& label);
    QString label() const { return m_label; }
    void setActive(bool active);
    bool isActive() const { return m_active; }
    void setColours(const QColor& active, const QColor& inactive);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_label;
    bool m_active = false;
    QColor m_activeColour{Qt::red};
    QColor m_inactiveColour{90, 0, 0};
};
