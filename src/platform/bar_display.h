#pragma once

#include <QVector>
#include <QWidget>

// Bars side by side on one scale, each in its own colour, each with a peak marker that holds the
// highest value the bar has shown until the peaks are cleared. The scale's labels stand in a
// margin on the left; bars start after it, kSlot pixels apart. Repaints only on a change.
class BarDisplay : public QWidget {
    Q_OBJECT
public:
    static constexpr int kBarWidth = 10;
    static constexpr int kSlot = 11; // a bar and the gap after it

    explicit BarDisplay(QWidget* parent = nullptr);

    void setBarCount(int count);
    int barCount() const { return int(m_bars.size()); }
    // Colours are the platform's values, red in the low byte.
    void setBarColor(int bar, qint32 color);
    qint32 barColor(int bar) const;
    // Held: the bar's value is an old one (its source stopped answering); it is drawn hatched.
    void setBarHeld(int bar, bool held);
    bool isBarHeld(int bar) const;
    void setBarPosition(int bar, double value);
    double barPosition(int bar) const;
    double peak(int bar) const;
    void clearPeaks();

    // Taken as given: a maximum below the minimum is not refused.
    void setScale(double minimum, double maximum);
    double minimum() const { return m_min; }
    double maximum() const { return m_max; }

    // Where the first bar starts, in the widget's pixels.
    int barsLeft() const;
    QSize sizeHint() const override;

signals:
    // A press on the bars, x counted from the left edge of the first bar.
    void barsClicked(int x);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;

private:
    struct Bar {
        qint32 color = 0;
        double value = 0.0;
        double peak = 0.0;
        bool peakSet = false;
        bool held = false;
    };
    // Where a value stands between the bottom (0) and the top (1) of the scale.
    double level(double value) const;
    QVector<Bar> m_bars;
    double m_min = 0.0;
    double m_max = 100.0;
};
