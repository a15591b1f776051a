#pragma once

#include <QColor>
#include <QDateTime>
#include <QPointF>
#include <QString>
#include <QVector>
#include <QWidget>

class QCustomPlot;
class QCPGraph;
class QCPRange;
class QCPItemStraightLine;
class QCPItemText;
class QCPTextElement;
class QPrinter;
struct PrintJob;

// The one plot of the workstation (real-time trends, and the historical, tuning and profile
// plots to come), over QCustomPlot. It keeps the points of its channels itself, so that tests
// read them without a screen, and redraws at most once an event-loop turn. The time axis counts
// in days, as the configuration files do; colours are the platform's 32-bit values with red in
// the low byte (255 red, 16777215 white).
class Plot : public QWidget {
    Q_OBJECT
public:
    // The ring a channel keeps when nobody set one.
    static constexpr int kDefaultRing = 1000;

    explicit Plot(QWidget* parent = nullptr);

    // Channels, numbered from 0 in the order they were added.
    int addChannel();
    void removeAllChannels();
    int channelCount() const;
    QString channelTitle(int i) const;
    void setChannelTitle(int i, const QString& title);
    qint32 channelColor(int i) const;
    void setChannelColor(int i, qint32 color);
    // Dots of this colour on the channel's points.
    void setChannelDots(int i, qint32 color);
    int traceLineWidth(int i) const;
    void setTraceLineWidth(int i, int width);
    int ringBufferSize(int i) const;
    // Older points beyond the ring are dropped.
    void setRingBufferSize(int i, int points);
    // A point at the moment given (its X is that moment in days).
    void addPoint(int i, const QDateTime& at, double value);
    QVector<QPointF> points(int i) const;
    // A break in the channel's line at the moment given: its source gave no value it could stand
    // by. One break stands for a run of them.
    void addGap(int i, const QDateTime& at);
    // A note the legend shows after the channel's title ("not answering"); none when empty. The
    // title itself stays as set.
    void setChannelNote(int i, const QString& note);
    QString channelNote(int i) const;
    // Many points at once, their X in days, in any order; the ring applies as to single points.
    void addPoints(int i, const QVector<double>& days, const QVector<double>& values);

    // A title above the chart; none when empty.
    void setTitle(const QString& title);
    QString title() const;

    // The spans are kept as set, a span of zero too; the axes show the nearest range they can.
    double xMin() const;
    double xSpan() const;
    void setXSpan(double days);
    void setXMin(double days);
    double yMin() const;
    double ySpan() const;
    void setYMin(double value);
    void setYSpan(double span);
    // The value axis from the lowest to the highest point shown on the time axis, with a margin;
    // false (and the axis as it was) when no point is shown.
    bool fitValueAxis();

    qint32 xLabelColor() const { return m_xLabelColor; }
    qint32 xScaleColor() const { return m_xScaleColor; }
    qint32 yLabelColor() const { return m_yLabelColor; }
    qint32 yScaleColor() const { return m_yScaleColor; }
    qint32 legendColor() const { return m_legendColor; }
    qint32 backgroundColor() const { return m_backgroundColor; }
    int xMinorCount() const { return m_xMinor; }
    int yMinorCount() const { return m_yMinor; }
    QString dateTimeFormat() const { return m_dateTimeFormat; }
    void setXColors(qint32 labels, qint32 scaleLines);
    void setYColors(qint32 labels, qint32 scaleLines);
    void setLegendColor(qint32 color);
    void setBackgroundColor(qint32 color);
    void setMinorCounts(int x, int y);
    // The system's time format ("hh:nn:ss", "m/d/yy h:nn:ss am/pm"...), kept as given.
    void setDateTimeFormat(const QString& format);

    // Tracking: the time axis follows the newest point. Moving the axis by hand stops it.
    bool trackingEnabled() const { return m_tracking; }
    void setTrackingEnabled(bool on);

    // The data cursor: a line at a moment and the value of every pen there (its newest point
    // at or before the moment). It follows the mouse.
    bool dataCursorVisible() const;
    void setDataCursorVisible(bool visible);
    void setDataCursorKey(double days);
    double dataCursorKey() const { return m_cursorKey; }
    // The moment in the time format, then "title: value" a pen ("-" before its first point).
    QString dataCursorText() const;

    // The chart as a JPEG of the quality given, progressive. False with the reason in *error.
    bool saveJpeg(const QString& path, int quality, QString* error = nullptr);

    // One page: the job's header, the chart as large as the page's width allows at its shape on
    // screen, and the footer. False with the reason in *error.
    bool print(QPrinter& printer, const PrintJob& job, QString* error = nullptr);

    QCustomPlot* customPlot() const { return m_plot; }

    // The platform's colour value (red in the low byte) as a colour, and back.
    static QColor toColor(qint32 value);
    static qint32 fromColor(const QColor& color);
    // "hh:nn:ss" style (nn minutes, am/pm) into Qt's date-time format.
    static QString qtDateTimeFormat(const QString& format);
    static double toDays(const QDateTime& at);

signals:
    void trackingStopped();

private:
    QCPGraph* graph(int i) const;
    void follow();
    void replotSoon();
    static QCPRange shownRange(double lower, double span);
    void showXRange(double lower);
    void showYRange();
    void fitTimeLabels();

    QCustomPlot* m_plot;
    QCPTextElement* m_title = nullptr;
    QCPItemStraightLine* m_cursorLine;
    QCPItemText* m_cursorText;
    double m_cursorKey = 0.0;
    QVector<int> m_rings;
    QVector<QString> m_notes;
    qint32 m_xLabelColor = 0;
    qint32 m_xScaleColor = 0;
    qint32 m_yLabelColor = 0;
    qint32 m_yScaleColor = 0;
    qint32 m_legendColor = 0;
    qint32 m_backgroundColor = 16777215;
    int m_xMinor = 0;
    int m_yMinor = 0;
    QString m_dateTimeFormat;
    double m_xSpan = 1.0 / 24;
    double m_yMin = 0.0;
    double m_ySpan = 100.0;
    bool m_tracking = false;
    bool m_settingRange = false;
};
