#include "trend_window.h"

#include "plant/plant_store.h"
#include "plant/value_history.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/placement.h"
#include "platform/plot.h"
#include "platform/window_parts.h"
#include "records/plot_commands.h"
#include "records/record_paths.h"
#include "records/trend_setup.h"
#include "security/rights.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QFileInfo>
#include <QGridLayout>
#include <QMdiArea>
#include <QPointer>
#include <QSlider>
#include <QSpinBox>
#include <QTimer>
#include <QToolBar>
#include <cmath>
#include <limits>

namespace {
constexpr int kDefaultWidthTwips = 7380;
constexpr int kDefaultHeightTwips = 3930;
// A file's interval below this is taken as this: the fastest rate a span gives.
constexpr int kFastestTickMs = 100;
constexpr int kSlowTickMs = 1000;
// The file's number for a file that cannot be written: path or file access error.
constexpr int kFileAccessError = 75;

const QString kDamagedTrendFile =
    QStringLiteral("Error while loading defaults file! The trend file\nis either damaged or "
                   "missing. Use the trend setup\nicon on the toolbar to setup the trend and "
                   "then\nclose the window to fix the damaged file.");

QString trendCaption(qint16 number) {
    return QStringLiteral("Trend ") + QString::number(number);
}

// The folder the user chose in a dialog, then the base name of the choice with the view's
// extension: "a.b.trv" is read and written as "a.trv", as views always have been.
QString viewPath(const QString& chosen) {
    return QFileInfo(chosen).absolutePath() + u'/' + fileBaseName(chosen) + QStringLiteral(".trv");
}

// A value span held as a whole number, half to even; nothing beyond the range.
std::optional<qint32> wholeSpan(double span) {
    const double whole = std::nearbyint(span);
    if (!std::isfinite(whole) || whole < double(std::numeric_limits<qint32>::min()) ||
        whole > double(std::numeric_limits<qint32>::max()))
        return std::nullopt;
    return qint32(whole);
}
} // namespace

Ctrend1::Ctrend1(qint16 number, QWidget* parent)
    : ChildWindow(Life::Display, QStringLiteral("Trends\\Ctrend") + QString::number(number),
                  parent),
      formNumber(number) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("Ctrend1"), trendCaption(number));
    QWidget* body = widget();

    Toolbar1 = makeToolbar(body, Qt::ToolButtonIconOnly);
    ToolCommands button(Toolbar1, this);
    button(QStyle::SP_DialogOpenButton, "Open", "Open Trend View", &Ctrend1::openTrendView);
    button(QStyle::SP_DialogSaveButton, "Save", "Save Trend View", &Ctrend1::saveTrendView);
    button(QStyle::SP_FileDialogDetailedView, "Setup", "Setup Trend", &Ctrend1::setupTrend);
    button(QStyle::SP_FileDialogContentsView, "Cursor", "Show/Hide Data Cursor",
           &Ctrend1::toggleDataCursor);
    button(QStyle::SP_MediaPlay, "Resume", "Resume Trending", &Ctrend1::resumeTrending);
    // The value axis to the data in view; the scale set up stays for the next setup.
    button(QStyle::SP_ToolBarVerticalExtensionButton, "Fit", "Fit Value Axis to Data",
           [this] { iPlotX->fitValueAxis(); });
    button(QStyle::SP_DriveFDIcon, "Jpeg", "Save as Jpeg..", &Ctrend1::saveTrendJPG);
    button(QStyle::SP_FileIcon, "Print", "Print Trend", &Ctrend1::printTrend);
    layout->addWidget(Toolbar1);

    auto* grid = new QGridLayout;
    grid->setContentsMargins(4, 4, 4, 4);
    iPlotX = new Plot(body);
    YRTSlider = new QSlider(Qt::Vertical, body);
    YRTSlider->setObjectName(QStringLiteral("YRTSlider"));
    RTDateSlider = new QSlider(Qt::Horizontal, body);
    RTDateSlider->setObjectName(QStringLiteral("RTDateSlider"));
    for (QSlider* slider : {YRTSlider, RTDateSlider}) {
        slider->setRange(-kSliderLimit, kSliderLimit);
        slider->setValue(0);
        // Letting go of either slider resumes the time axis.
        connect(slider, &QSlider::sliderReleased, this,
                [this] { iPlotX->setTrackingEnabled(true); });
    }
    bindZoomSlider(RTDateSlider, iPlotX, true, [this] { return origXAxis; });
    bindZoomSlider(YRTSlider, iPlotX, false, [this] { return double(origYAxis); });
    grid->addWidget(iPlotX, 0, 0);
    grid->addWidget(YRTSlider, 0, 1);
    grid->addWidget(RTDateSlider, 1, 0);
    layout->addLayout(grid, 1);

    Timer1 = new QTimer(this);
    Timer1->setObjectName(QStringLiteral("Timer1"));
    // The slow rate of the span rule until a file or the setup sets one: a trend closed before
    // either writes a tick its next opening can run with.
    Timer1->setInterval(kSlowTickMs);
    connect(Timer1, &QTimer::timeout, this, &Ctrend1::timer1Tick);

    // Smaller than its first size the window does not go.
    const double tpp = twipsPerPixel(this);
    setMinimumSize(qRound(kDefaultWidthTwips / tpp), qRound(kDefaultHeightTwips / tpp));
}

QString Ctrend1::tag() const {
    return property("Tag").toString();
}

void Ctrend1::setTag(const QString& tag) {
    setProperty("Tag", tag);
}

QString Ctrend1::trendFilePath() const {
    return gAppPath + QStringLiteral("/Trend") + QString::number(formNumber) +
           QStringLiteral(".trn");
}

void Ctrend1::assignTrendArray(const QVector<qint16>& passArray) {
    const qsizetype upper = std::max<qsizetype>(passArray.size() - 1, 0);
    trendArray = passArray.mid(0, upper);
    trendArray.append(0);
}

void Ctrend1::plotArray() {
    for (int i = 0; i < penCount(); ++i) {
        const int code = trendArray.at(i);
        const int row = code % 100;
        // A controller that stopped answering breaks its pens' lines: the values it holds are
        // not measurements.
        if (code >= 0 && code < 300 && validRow(row) && !isFresh(row)) {
            iPlotX->addGap(i, currentDateTime());
            iPlotX->setChannelNote(i, heldNote(row));
            continue;
        }
        iPlotX->setChannelNote(i, {});
        std::optional<double> value;
        if (code >= 200) {
            if (validRow(code - 200))
                value = double(gPctOut[size_t(code - 200)]);
        } else if (code >= 100) {
            if (validRow(code - 100))
                value = gSP[size_t(code - 100)].asNumber();
        } else if (validRow(code)) {
            value = gPV[size_t(code)].asNumber();
        }
        // A value that is no number (a controller's error display) leaves a gap in this pen only.
        if (value)
            iPlotX->addPoint(i, currentDateTime(), *value);
    }
}

void Ctrend1::fillFromHistory() {
    const QDateTime now = currentDateTime();
    const double spanMs = std::min(iPlotX->xSpan() * 86'400'000.0, double(ValueHistory::kKeepMs));
    const QDateTime from = now.addMSecs(-qint64(spanMs));
    for (int i = 0; i < penCount(); ++i) {
        const int code = trendArray.at(i);
        if (code < 0 || code >= 300 || !validRow(code % 100))
            continue;
        QVector<double> days, values;
        for (const ValueHistory::Point& p : valueHistory().since(code % 100, from)) {
            days.append(double(p.ms) / 86'400'000.0);
            values.append(code >= 200 ? p.out : code >= 100 ? p.sp : p.pv);
        }
        if (!days.isEmpty())
            iPlotX->addPoints(i, days, values);
    }
}

void Ctrend1::timer1Tick() {
    if (iPlotX->channelCount() == 0)
        return;
    QPointer<Ctrend1> alive(this);
    QCoreApplication::processEvents();
    if (!alive)
        return;
    // A sample every plotTrend + 1 ticks: about a thousand points fill the span.
    if (timerCounter >= plotTrend) {
        plotArray();
        timerCounter = 0;
    } else {
        ++timerCounter;
    }
}

void Ctrend1::setTickInterval(int ms) {
    // A timer of interval 0 does not run; any other runs no faster than the fastest span.
    Timer1->setInterval(ms <= 0 ? 0 : std::max(ms, kFastestTickMs));
    if (ms <= 0)
        Timer1->stop();
}

TrendConfig Ctrend1::currentConfig() const {
    TrendConfig c;
    c.days = TDays;
    c.hours = Thours;
    c.minutes = Tmins;
    c.plotTrend = plotTrend;
    c.tickMs = Timer1->interval();
    c.yMin = iPlotX->yMin();
    c.ySpan = iPlotX->ySpan();
    c.xSpanDays = iPlotX->xSpan();
    c.xLabelColor = iPlotX->xLabelColor();
    c.xScaleColor = iPlotX->xScaleColor();
    c.xMinorTicks = iPlotX->xMinorCount();
    c.yLabelColor = iPlotX->yLabelColor();
    c.yScaleColor = iPlotX->yScaleColor();
    c.legendColor = iPlotX->legendColor();
    c.yMinorTicks = iPlotX->yMinorCount();
    c.backgroundColor = iPlotX->backgroundColor();
    c.timeFormat = iPlotX->dateTimeFormat();
    c.codes = trendArray.mid(0, penCount());
    for (int i = 0; i < iPlotX->channelCount(); ++i)
        c.channels.append({iPlotX->channelTitle(i), iPlotX->channelColor(i)});
    return c;
}

bool Ctrend1::applyConfig(const TrendConfig& c) {
    const std::optional<qint32> ySpan = wholeSpan(c.ySpan);
    if (!ySpan)
        return false;
    TDays = c.days;
    Thours = c.hours;
    Tmins = c.minutes;
    plotTrend = c.plotTrend;
    setTickInterval(c.tickMs);
    iPlotX->setYMin(c.yMin);
    iPlotX->setYSpan(c.ySpan);
    iPlotX->setXSpan(c.xSpanDays);
    iPlotX->setXColors(c.xLabelColor, c.xScaleColor);
    iPlotX->setYColors(c.yLabelColor, c.yScaleColor);
    iPlotX->setLegendColor(c.legendColor);
    iPlotX->setMinorCounts(c.xMinorTicks, c.yMinorTicks);
    iPlotX->setBackgroundColor(c.backgroundColor);
    iPlotX->setDateTimeFormat(c.timeFormat);
    origXAxis = c.xSpanDays;
    origYAxis = *ySpan;
    // A channel from a file has its title and colour only: the width and ring stay the plot's
    // own until the setup dialog sets them.
    iPlotX->removeAllChannels();
    for (const TrendPen& pen : c.channels) {
        const int i = iPlotX->addChannel();
        iPlotX->setChannelTitle(i, pen.title);
        iPlotX->setChannelColor(i, pen.color);
    }
    QVector<qint16> pass = c.codes;
    pass.append(qint16(c.channels.size()));
    assignTrendArray(pass);
    // New pens start with the recent past of what they follow.
    fillFromHistory();
    return true;
}

void Ctrend1::loadTrendFile() {
    setWindowTitle(kTrendLoadingCaption);
    QString why;
    const std::optional<TrendConfig> config = readTrendConfig(trendFilePath(), &why);
    if (!config || !applyConfig(*config)) {
        setWindowTitle(trendCaption(formNumber));
        iPlotX->removeAllChannels();
        assignTrendArray({0});
        Timer1->stop();
        msgBox(kDamagedTrendFile, MsgIcon::Information);
        return;
    }
    startTickTimer(Timer1);
    iPlotX->setTrackingEnabled(true);
    setWindowTitle(trendCaption(formNumber));
}

bool Ctrend1::writeArrayData(const QString& filePath) {
    QString why;
    if (writeTrendConfig(filePath, currentConfig(), &why))
        return true;
    msgBox(QStringLiteral("Error ") + QString::number(kFileAccessError) + QStringLiteral(". ") +
               why + QStringLiteral(". Trend defaults can not be saved."),
           MsgIcon::Critical);
    return false;
}

void Ctrend1::toggleDataCursor() {
    iPlotX->setDataCursorVisible(!iPlotX->dataCursorVisible());
}

void Ctrend1::resumeTrending() {
    iPlotX->setTrackingEnabled(true);
}

void Ctrend1::openTrendView() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    Timer1->stop();
    FileDialogRequest request;
    request.title = QStringLiteral("Open Trend View file (.trv)");
    request.filter = QStringLiteral("Trend View Files(*.trv)|*.trv");
    request.initialDirectory = gAppPath + QStringLiteral("/Trend Views");
    request.fileName = request.initialDirectory + QStringLiteral("/Default.trv");
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    if (chosen.cancelled) {
        startTickTimer(Timer1);
        return;
    }
    // A view that cannot be read leaves the trend as it was.
    const std::optional<TrendConfig> config = readTrendConfig(viewPath(chosen.path));
    if (!config || !applyConfig(*config)) {
        msgBox(QStringLiteral("Trend view file is not compatible or damaged. Please select "
                              "another file."),
               MsgIcon::Critical);
        startTickTimer(Timer1);
        return;
    }
    startTickTimer(Timer1);
    iPlotX->setTrackingEnabled(true);
    setWindowTitle(fileNameOnly(chosen.path));
}

void Ctrend1::saveTrendView() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Save .trv Trend View as?");
    request.filter = QStringLiteral("Trend Views(*.trv)|*.trv");
    request.defaultExtension = QStringLiteral(".trv");
    request.initialDirectory = gAppPath + QStringLiteral("/Trend Views");
    request.fileName =
        QStringLiteral("Trend ") + QString::number(formNumber) + QStringLiteral(".trv");
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (chosen.cancelled)
        return;
    QPointer<Ctrend1> alive(this);
    QCoreApplication::processEvents();
    if (!alive)
        return;
    QString why;
    if (!writeTrendConfig(viewPath(chosen.path), currentConfig(), &why)) {
        // Number, description and advice run together, as this box always has.
        msgBox(QString::number(kFileAccessError) + why +
                   QStringLiteral("Trend View can not be saved. Check filename or disk space"),
               MsgIcon::Critical);
        return;
    }
    setWindowTitle(fileNameOnly(chosen.path));
}

void Ctrend1::setupTrend() {
    if (!checkAccess(Right::TrendingSetup))
        return;
    Timer1->stop();
    gTrendSetupCaller = tag();
    TrendSetup setup(parentWidget() ? window() : nullptr);
    setup.TrendDaysAnalog->setValue(qRound(TDays));
    setup.TrendHoursAnalog->setValue(qRound(Thours));
    setup.TrendMinutesAnalog->setValue(qRound(Tmins));
    setup.fillFromPlot(*iPlotX);
    assignChannelsForUser(setup);
    setup.frmNumberPassed = formNumber;
    setup.ctrendObj = this;
    setup.exec();
}

Plot& Ctrend1::trendPlot() {
    return *iPlotX;
}

void Ctrend1::takeSetup(const TrendSetup& setup) {
    const double days = setup.TrendDaysAnalog->value();
    const double hours = setup.TrendHoursAnalog->value();
    const double minutes = setup.TrendMinutesAnalog->value();
    const TrendTick tick = trendTickRule(days, hours, minutes);
    plotTrend = tick.plotTrend;
    Timer1->setInterval(tick.intervalMs);

    Plot& plot = *iPlotX;
    origYAxis = qint32(std::nearbyint(plot.ySpan()));
    plot.setXSpan(days + hours / 24 + minutes / 1440);
    origXAxis = plot.xSpan();
    TDays = days;
    Thours = hours;
    Tmins = minutes;
    timerCounter = 0;
    // The samples go with the old pens.
    plot.removeAllChannels();
    RTDateSlider->setValue(0);
    YRTSlider->setValue(0);

    // Selected rows only: channel numbers close up over empty rows.
    QVector<qint16> table;
    for (int i = 0; i < TrendSetup::kPenRows; ++i) {
        const QComboBox* list = setup.PenAssign[size_t(i)];
        if (list->currentIndex() < 0)
            continue;
        const auto code = qint16(list->currentData().toInt());
        const int k = plot.addChannel();
        plot.setRingBufferSize(k, TrendSetup::kPenRing);
        table.append(code);
        plot.setChannelColor(k, TrendSetup::swatchColor(setup.PenClr[size_t(i)]));
        plot.setTraceLineWidth(k, setup.PWidth[size_t(i)]->value());
        plot.setChannelTitle(k, channelTitle(code));
    }
    table.append(0);
    assignTrendArray(table);
    // The pens start again from the controllers' recent past: those that stay keep what it holds.
    fillFromHistory();
    writeArrayData(QStringLiteral("%1/Trend%2.trn").arg(gAppPath).arg(setup.frmNumberPassed));
    startTickTimer(Timer1);
    plot.setTrackingEnabled(true);
}

void Ctrend1::assignChannelsForUser(TrendSetup& setup) {
    setup.assignChannels(*iPlotX);
}

void Ctrend1::saveTrendJPG() {
    savePlotJpeg(*iPlotX, windowTitle() + QStringLiteral(".jpg"));
}

void Ctrend1::printTrend() {
    printPlot(*iPlotX, windowTitle());
}

bool Ctrend1::readyToClose() {
    // A zoom with the sliders is not configuration.
    iPlotX->setXSpan(origXAxis);
    iPlotX->setYSpan(origYAxis);
    writeArrayData(trendFilePath());
    return true;
}

Ctrend1* showTrend(QMdiArea* area, const QString& name, qint16 trendNumber) {
    QCoreApplication::processEvents();
    auto* trend = new Ctrend1(trendNumber);
    trend->setTag(name);
    area->addSubWindow(trend);
    const double tpp = twipsPerPixel(area);
    const QSize client = area->viewport()->size();
    trend->restorePlacement({qRound((client.width() * tpp - kDefaultWidthTwips) / 2),
                             qRound((client.height() * tpp - kDefaultHeightTwips) / 2),
                             kDefaultWidthTwips, kDefaultHeightTwips});
    trend->show();
    trend->loadTrendFile();
    return trend;
}
