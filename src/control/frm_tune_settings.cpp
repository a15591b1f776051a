#include "frm_tune_settings.h"

#include "control/frm_alarm_settings.h"
#include "control/read_fields.h"
#include "displays/trend_file.h"
#include "plant/comm_errors.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "plant/register_codec.h"
#include "platform/bar_display.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/placement.h"
#include "platform/plot.h"
#include "platform/settings_store.h"
#include "platform/window_parts.h"
#include "records/file_cipher.h"
#include "records/plot_commands.h"
#include "records/record_file.h"
#include "records/record_paths.h"
#include "records/trend_setup.h"
#include "security/login.h"
#include "security/rights.h"

#include <QAction>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMdiArea>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>
#include <cmath>

namespace {
constexpr int kTuneLines = 11;
constexpr int kTuneTable = 12;
constexpr int kQuietCodes = -5;
constexpr int kFirstTuneRegister = 11;
constexpr int kRevisionRegister = 141;
constexpr int kCommandRegister = 143;
const QString kSection = QStringLiteral("Loop Tuning");
const QString kCaption = QStringLiteral("Loop Tuning");
const QString kWritten = QStringLiteral("Tuning values written to controller.");

QString tuningFolder() {
    return gAppPath + QStringLiteral("/Tuning Files");
}

double settingNumber(const QString& key, double fallback) {
    bool ok = false;
    const double value =
        getSetting(kSection, key, QString::number(fallback, 'g', 17)).toDouble(&ok);
    return ok && std::isfinite(value) ? value : fallback;
}

QDoubleSpinBox* entry(const QString& name, double high, int decimals, QWidget* parent) {
    auto* field = new QDoubleSpinBox(parent);
    field->setObjectName(name);
    field->setRange(0, high);
    field->setDecimals(decimals);
    field->setAlignment(Qt::AlignRight);
    return field;
}

} // namespace

QStringList tuneFileLines(const TuneSetup& s) {
    auto boolean = [](bool on) {
        return on ? QStringLiteral("True") : QStringLiteral("False");
    };
    return {signedText(s.propBand),  signedText(s.reset),    signedText(s.rate),
            signedText(s.coolBand),  signedText(s.deadBand), boolean(s.autoTuneOn),
            boolean(s.autoTuneOff),  signedText(s.ySpan),    signedText(s.xSpanDays),
            signedText(s.plotTrend), signedText(s.tickMs)};
}

std::optional<TuneSetup> parseTuneFile(const QStringList& lines) {
    if (lines.size() < kTuneLines || lines.size() > kTuneTable)
        return std::nullopt;
    bool whole = true;
    // A damaged line deciphers to empty text and reads as zero (or False); other text where a
    // value belongs makes it no tuning file.
    auto number = [&lines, &whole](int i) {
        const QString text = lines.at(i).trimmed();
        bool ok = text.isEmpty();
        const double value = ok ? 0.0 : text.toDouble(&ok);
        whole = whole && ok && std::isfinite(value);
        return whole ? value + 0.0 : 0.0;
    };
    auto boolean = [&lines, &whole](int i) {
        const QString text = lines.at(i).trimmed();
        const bool on = text.compare(QLatin1String("True"), Qt::CaseInsensitive) == 0;
        whole = whole && (on || text.isEmpty() ||
                          text.compare(QLatin1String("False"), Qt::CaseInsensitive) == 0);
        return on;
    };
    TuneSetup s;
    s.propBand = number(0);
    s.reset = number(1);
    s.rate = number(2);
    s.coolBand = number(3);
    s.deadBand = number(4);
    s.autoTuneOn = boolean(5);
    s.autoTuneOff = boolean(6);
    s.ySpan = number(7);
    s.xSpanDays = number(8);
    s.plotTrend = number(9);
    const double tick = number(10);
    if (!whole || tick < 0 || tick > 65535 || tick != std::floor(tick))
        return std::nullopt;
    s.tickMs = int(tick);
    return s;
}

int dbRevisionOf(quint16 revisionWord) {
    return QString::number(revisionWord).right(2).toInt() > 39 ? 40 : 39;
}

FrmTuneSettings::FrmTuneSettings(QWidget* parent) : ChildWindow(Life::Closes, kSection, parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("frmTuneSettings"), kCaption);
    QWidget* body = widget();
    Toolbar1 = makeToolbar(body, Qt::ToolButtonIconOnly);
    ToolCommands button(Toolbar1, this);
    button(QStyle::SP_DialogOpenButton, "Open", "Open Tune File", [this] { openTuneFile(); });
    button(QStyle::SP_DialogSaveButton, "Save", "Save Setup", [this] { saveTuneFile(); });
    // The value axis to the data in view; the scale set up stays for the next setup.
    button(QStyle::SP_ToolBarVerticalExtensionButton, "Fit", "Fit Value Axis to Data",
           [this] { iPlotX->fitValueAxis(); });
    button(QStyle::SP_FileDialogDetailedView, "Setup", "Trend Setup", [this] { setupTrend(); });
    button(QStyle::SP_MediaPlay, "Resume", "Resume Trending",
           [this] { iPlotX->setTrackingEnabled(true); });
    button(QStyle::SP_DriveFDIcon, "Jpeg", "Save Trend as Jpeg",
           [this] { savePlotJpeg(*iPlotX, windowTitle() + QStringLiteral(".jpg")); });
    button(QStyle::SP_FileIcon, "Print", "Print Trend",
           [this] { printPlot(*iPlotX, windowTitle()); });
    button(QStyle::SP_ArrowUp, "Read", "Read values from control", [this] { readValues(); });
    button(QStyle::SP_ArrowDown, "Write", "Write values to control", [this] { writeValues(); });
    layout->addWidget(Toolbar1);

    auto* top = new QHBoxLayout;
    top->setContentsMargins(6, 4, 6, 4);
    top->addWidget(new QLabel(QStringLiteral("Select Controller"), body));
    ControlTuneSelect = new QComboBox(body);
    ControlTuneSelect->setObjectName(QStringLiteral("ControlTuneSelect"));
    for (int row = 0; row < kControllerCount; ++row) {
        if (gControlEnabled[size_t(row)])
            ControlTuneSelect->addItem(gPvTag[size_t(row)], row);
    }
    top->addWidget(ControlTuneSelect, 1);
    layout->addLayout(top);

    auto* middle = new QHBoxLayout;
    auto* values = new QFormLayout;
    PBValueX1 = entry(QStringLiteral("PBValueX1"), 5000, 1, body);
    // As wide as the registers' signed words: a value read is shown as it is, and one a
    // register cannot hold is refused at the write.
    ResetValueX1 = entry(QStringLiteral("ResetValueX1"), 32767, 0, body);
    ResetValueX1->setMinimum(-32768);
    RateValueX1 = entry(QStringLiteral("RateValueX1"), 3276.7, 1, body);
    RateValueX1->setMinimum(-3276.8);
    CoolPBX1 = entry(QStringLiteral("CoolPBX1"), 32767, 0, body);
    CoolPBX1->setMinimum(-32768);
    // The proportional band keeps its limits of 0 to 5000 in the controller's units: a value
    // read beyond them is marked, not clipped.
    m_readFields = new ReadFields(this);
    m_readFields->add(PBValueX1, QStringLiteral("Prop Band"));
    dbX1 = entry(QStringLiteral("dbX1"), 45536, 1, body);
    dbX1->setMinimum(-19999);
    values->addRow(QStringLiteral("Prop Band:"), PBValueX1);
    values->addRow(QStringLiteral("I (Reset):"), ResetValueX1);
    values->addRow(QStringLiteral("D (Rate):"), RateValueX1);
    values->addRow(QStringLiteral("Cool PB:"), CoolPBX1);
    values->addRow(QStringLiteral("Heat/Cool DB:"), dbX1);
    auto* options = new QHBoxLayout;
    Option1 = new QRadioButton(QStringLiteral("On"), body);
    Option1->setObjectName(QStringLiteral("Option1"));
    Option2 = new QRadioButton(QStringLiteral("Off"), body);
    Option2->setObjectName(QStringLiteral("Option2"));
    Option2->setChecked(true);
    options->addWidget(Option1);
    options->addWidget(Option2);
    values->addRow(QStringLiteral("Auto Tune Status:"), options);
    connect(Option1, &QRadioButton::toggled, this, [this](bool on) { showAutoTune(on); });
    middle->addLayout(values);
    levelBars = new BarDisplay(body);
    levelBars->setObjectName(QStringLiteral("PVbar"));
    levelBars->setBarCount(3);
    levelBars->setBarColor(0, 255);   // PV red
    levelBars->setBarColor(1, 65280); // SP lime
    levelBars->setBarColor(2, 65535); // output yellow
    levelBars->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
    middle->addWidget(levelBars);

    auto* plotGrid = new QGridLayout;
    iPlotX = new Plot(body);
    addTuningChannels();
    valSlide = new QSlider(Qt::Vertical, body);
    valSlide->setObjectName(QStringLiteral("valSlide"));
    valSlide->setToolTip(QStringLiteral("Value Expand/Compress"));
    dateSlide = new QSlider(Qt::Horizontal, body);
    dateSlide->setObjectName(QStringLiteral("dateSlide"));
    for (QSlider* slider : {valSlide, dateSlide})
        slider->setRange(0, 100);
    bindZoomSlider(dateSlide, iPlotX, true, [this] { return startXAxis; });
    bindZoomSlider(valSlide, iPlotX, false, [this] { return startYAxis; });
    plotGrid->addWidget(iPlotX, 0, 0);
    plotGrid->addWidget(valSlide, 0, 1);
    plotGrid->addWidget(dateSlide, 1, 0);
    middle->addLayout(plotGrid, 1);
    layout->addLayout(middle, 1);

    auto* statusBar = new QStatusBar(body);
    statusBar->setObjectName(QStringLiteral("tuneStatBar"));
    m_status = new QLabel(statusBar);
    statusBar->addWidget(m_status, 1);
    layout->addWidget(statusBar);

    // The plot as the settings keep it.
    iPlotX->setYMin(settingNumber(QStringLiteral("PlotYMin"), 0));
    iPlotX->setYSpan(settingNumber(QStringLiteral("PlotYSpan"), 100));
    iPlotX->setXSpan(settingNumber(QStringLiteral("PlotXSpan"), 1.0 / 144));
    iPlotX->setXColors(qint32(settingNumber(QStringLiteral("XFontColor"), 255)),
                       qint32(settingNumber(QStringLiteral("XScaleColor"), 255)));
    iPlotX->setYColors(qint32(settingNumber(QStringLiteral("YFontColor"), 16777215)),
                       qint32(settingNumber(QStringLiteral("YScaleColor"), 16777215)));
    iPlotX->setLegendColor(qint32(settingNumber(QStringLiteral("XLegendColor"), 16777215)));
    iPlotX->setMinorCounts(int(settingNumber(QStringLiteral("XMinorCount"), 3)),
                           int(settingNumber(QStringLiteral("YMinorCount"), 3)));
    iPlotX->setBackgroundColor(qint32(settingNumber(QStringLiteral("bgColor"), 0)));
    iPlotX->setDateTimeFormat(
        getSetting(kSection, QStringLiteral("TimeFormat"), QStringLiteral("m/d/yy h:nn:ss am/pm")));
    iPlotX->setTrackingEnabled(true);
    startYAxis = iPlotX->ySpan();
    startXAxis = iPlotX->xSpan();
    levelBars->setScale(0, startYAxis);
    m_outBarTop = startYAxis;

    Timer1 = new QTimer(this);
    Timer1->setObjectName(QStringLiteral("Timer1"));
    Timer1->setInterval(500);
    connect(Timer1, &QTimer::timeout, this, &FrmTuneSettings::timer1Tick);
    Timer1->start();

    ModTunRead1 =
        new PacedSequence(QStringLiteral("ModTunRead1"), QStringLiteral("readTimer1"), this);
    ModTunRead2 =
        new PacedSequence(QStringLiteral("ModTunRead2"), QStringLiteral("readTimer2"), this);
    ModTuneWrite =
        new PacedSequence(QStringLiteral("ModTuneWrite"), QStringLiteral("TwriteTimer"), this);
    connect(ModTunRead1, &PacedSequence::blockRead, this, [this](int, const QVector<quint16>& w) {
        // The controller asked, whatever has been selected since.
        const int row = m_readRow;
        const double scale = validRow(row) ? double(gScale[size_t(row)]) : 1.0;
        m_readFields->show(PBValueX1, signedWord(w.value(0)) * scale);
        ResetValueX1->setValue(signedWord(w.value(1)));
        RateValueX1->setValue(tenthsOf(w.value(2)));
        CoolPBX1->setValue(signedWord(w.value(3)));
        dbX1->setProperty("raw", int(w.value(4)));
        if (validRow(row))
            ModTunRead2->readBlock(row + 1, kRevisionRegister, 2);
        m_readFields->sayMarked();
    });
    connect(ModTunRead2, &PacedSequence::blockRead, this, [this](int, const QVector<quint16>& w) {
        dbRevision = dbRevisionOf(w.value(0));
        // A controller of the older revision has no dead band.
        dbX1->setValue(dbRevision == 40 ? offsetValue(quint16(dbX1->property("raw").toUInt()), 0.1)
                                        : 0.0);
        if (w.value(1) == 0)
            Option2->setChecked(true);
        else if (w.value(1) == 2)
            Option1->setChecked(true);
        setStatus(QStringLiteral("Controller tuning values read from controller."));
    });
    for (PacedSequence* read : {ModTunRead1, ModTunRead2}) {
        connect(read, &PacedSequence::failed, this, [](int code) {
            if (code > kQuietCodes)
                msgBox(QStringLiteral("Error during read of tune values.\nPlease check control "
                                      "and try again."),
                       MsgIcon::Critical);
        });
    }
    connect(ModTuneWrite, &PacedSequence::writesSent, this, [this] {
        // "inititated": the text has always been spelled so.
        setStatus(m_autoTuneSent ? QStringLiteral("Auto-tune inititated.") : kWritten);
    });
    connect(ModTuneWrite, &PacedSequence::failed, this, [this](int code) {
        if (code > kQuietCodes)
            msgBox(QStringLiteral("Error during write of tuning values.\n\nMake sure write values "
                                  "are within\ncontroller tuning value limits."),
                   MsgIcon::Critical);
        setStatus(QStringLiteral("Error during write to controller."));
    });
    connect(ControlTuneSelect, &QComboBox::currentIndexChanged, this,
            &FrmTuneSettings::selectionChanged);
    ControlTuneSelect->setCurrentIndex(ControlTuneSelect->count() > 0 ? 0 : -1);
    selectionChanged();
}

void FrmTuneSettings::placeInArea(QMdiArea* area) {
    // The old first size (6930 x 4680 twips) is kept as the smallest; at first the window is
    // large enough for its fields, bars and plot side by side.
    constexpr int kWidthTwips = 13500;
    constexpr int kHeightTwips = 7800;
    const double minimumTpp = twipsPerPixel(this);
    setMinimumSize(qRound(6930 / minimumTpp), qRound(4680 / minimumTpp));
    const double tpp = twipsPerPixel(area);
    const QSize client = area->viewport()->size();
    restorePlacement({qRound((client.width() * tpp - kWidthTwips) / 2),
                      qRound((client.height() * tpp - kHeightTwips) / 2), kWidthTwips,
                      kHeightTwips});
}

void FrmTuneSettings::addTuningChannels() {
    // PV red, SP lime, output yellow, as the level bars.
    for (const qint32 colour : {255, 65280, 65535})
        iPlotX->setChannelColor(iPlotX->addChannel(), colour);
}

int FrmTuneSettings::selectedRow() const {
    return ControlTuneSelect->currentIndex() < 0 ? -1 : ControlTuneSelect->currentData().toInt();
}

QString FrmTuneSettings::statusText() const {
    return m_status->text();
}

void FrmTuneSettings::setStatus(const QString& text) {
    m_status->setText(text);
}

void FrmTuneSettings::selectionChanged() {
    const int row = selectedRow();
    if (!validRow(row))
        return;
    const double scale = double(gScale[size_t(row)]);
    PBValueX1->setDecimals(std::clamp(int(gDecimal[size_t(row)]), 0, 3));
    PBValueX1->setRange(0, 5000 * scale);
    iPlotX->setTitle(QStringLiteral("Tuning for ") + gPvTag[size_t(row)]);
    iPlotX->setChannelTitle(0, gPvTag[size_t(row)]);
    iPlotX->setChannelTitle(1, gSpTag[size_t(row)]);
    iPlotX->setChannelTitle(2, gOutTag[size_t(row)]);
}

void FrmTuneSettings::showAutoTune(bool on) {
    for (QDoubleSpinBox* field : {PBValueX1, ResetValueX1, RateValueX1})
        field->setEnabled(!on);
}

void FrmTuneSettings::timer1Tick() {
    if (gActiveList.value(0) <= 0) {
        ControlTuneSelect->setCurrentIndex(-1);
        return;
    }
    theCurrAddress = selectedRow();
    if (timerCounter >= plotTrend) {
        if (validRow(theCurrAddress)) {
            const auto c = size_t(theCurrAddress);
            const QDateTime now = currentDateTime();
            const double values[3] = {gPV[c].asNumber().value_or(0), gSP[c].asNumber().value_or(0),
                                      double(gPctOut[c])};
            // A controller that stopped answering breaks the lines, as on the trends; its bars
            // stay where its last values put them, hatched.
            const QString note = heldNote(theCurrAddress);
            const bool held = !note.isEmpty();
            for (int i = 0; i < 3; ++i) {
                iPlotX->setChannelNote(i, note);
                if (held)
                    iPlotX->addGap(i, now);
                else
                    iPlotX->addPoint(i, now, values[i]);
                levelBars->setBarHeld(i, held);
            }
            levelBars->setBarPosition(0, values[0]);
            levelBars->setBarPosition(1, values[1]);
            // The output bar keeps the scale it opened with, whatever a tuning file sets.
            levelBars->setBarPosition(2, values[2] * levelBars->maximum() / m_outBarTop);
        }
        timerCounter = 0;
    } else {
        ++timerCounter;
    }
}

void FrmTuneSettings::readValues() {
    if (gSimMode)
        return;
    const int row = selectedRow();
    if (!validRow(row))
        return;
    // A fresh plot for the values about to be read.
    iPlotX->removeAllChannels();
    addTuningChannels();
    selectionChanged();
    iPlotX->setTrackingEnabled(true);
    m_readRow = row;
    ModTunRead1->readBlock(row + 1, kFirstTuneRegister, 5);
}

std::optional<quint16> FrmTuneSettings::rawOf(int stage, int row) const {
    const double multiplier = rawMultiplier(row);
    switch (stage) {
    case 1:
        return wordOfSigned(PBValueX1->value() * multiplier);
    case 2:
        return wordOfSigned(ResetValueX1->value());
    case 3:
        return wordOfTenths(RateValueX1->value());
    case 4:
        return wordOfSigned(CoolPBX1->value());
    case 5:
        return offsetWord(dbX1->value(), multiplier);
    default:
        return quint16(kPrepareWrite);
    }
}

void FrmTuneSettings::writeValues() {
    if (gSimMode)
        return;
    if (!checkAccessWithLogin(Right::LoopTuning,
                              QStringLiteral("Tuning change made to ") +
                                  QString::number(ControlTuneSelect->currentIndex())))
        return;
    const int row = selectedRow();
    if (!validRow(row))
        return;
    // Every value is checked before the first word goes out.
    if (!Option1->isChecked()) {
        if (!m_readFields->allReadOrTyped())
            return;
        for (int stage = 1; stage <= (dbRevision == 40 ? 5 : 4); ++stage) {
            if (!rawOf(stage, row)) {
                msgBox(QStringLiteral("Error during write of tuning values.\n\nMake sure write "
                                      "values are within\ncontroller tuning value limits."),
                       MsgIcon::Critical);
                setStatus(QStringLiteral("Error during write to controller."));
                return;
            }
        }
    }
    m_autoTuneSent = false;
    setStatus(QStringLiteral("Writing tuning values to controller."));
    ModTuneWrite->startWrites(6, [this](int stage) -> std::optional<RegisterWrite> {
        // Node and values of the present selection: a change during the writes takes the rest.
        const int current = selectedRow();
        if (!validRow(current))
            return std::nullopt;
        // The auto-tune choice is looked at on every stage: turned On part way, the start
        // command goes out in place of the rest of the values.
        if (Option1->isChecked()) {
            m_autoTuneSent = true;
            return RegisterWrite{current + 1, kCommandRegister, quint16(kStartAutoTune), true};
        }
        if (stage == 5 && dbRevision != 40)
            return std::nullopt;
        const std::optional<quint16> raw = rawOf(stage, current);
        if (!raw)
            return std::nullopt;
        const int reg = stage == 0 ? kCommandRegister : kFirstTuneRegister + stage - 1;
        return RegisterWrite{current + 1, reg, *raw, false};
    });
}

TuneSetup FrmTuneSettings::currentSetup() const {
    TuneSetup s;
    s.propBand = PBValueX1->value();
    s.reset = ResetValueX1->value();
    s.rate = RateValueX1->value();
    s.coolBand = CoolPBX1->value();
    s.deadBand = dbX1->value();
    s.autoTuneOn = Option1->isChecked();
    s.autoTuneOff = Option2->isChecked();
    s.ySpan = iPlotX->ySpan();
    s.xSpanDays = iPlotX->xSpan();
    s.plotTrend = plotTrend;
    s.tickMs = Timer1->interval();
    return s;
}

void FrmTuneSettings::applySetup(const TuneSetup& s) {
    PBValueX1->setValue(s.propBand);
    ResetValueX1->setValue(s.reset);
    RateValueX1->setValue(s.rate);
    CoolPBX1->setValue(s.coolBand);
    dbX1->setValue(s.deadBand);
    if (s.autoTuneOn)
        Option1->setChecked(true);
    else if (s.autoTuneOff)
        Option2->setChecked(true);
    iPlotX->setYSpan(s.ySpan);
    levelBars->setScale(0, s.ySpan);
    iPlotX->setXSpan(s.xSpanDays);
    plotTrend = s.plotTrend;
    // A timer of interval 0 does not run; any other no faster than the fastest span.
    Timer1->setInterval(s.tickMs <= 0 ? 0 : std::max(s.tickMs, 100));
    startTickTimer(Timer1);
}

void FrmTuneSettings::setupTrend() {
    if (!checkAccess(Right::TrendingSetup))
        return;
    gTrendSetupCaller = kLoopTuningCaller;
    TrendSetup setup(window());
    const double span = iPlotX->xSpan();
    const double minutesTotal = std::max(0.0, std::round(span * 1440));
    setup.TrendDaysAnalog->setValue(int(minutesTotal / 1440));
    setup.TrendHoursAnalog->setValue(int(std::fmod(minutesTotal, 1440) / 60));
    setup.TrendMinutesAnalog->setValue(int(std::fmod(minutesTotal, 60)));
    setup.fillFromPlot(*iPlotX);
    setup.tunPlotObj = iPlotX;
    setup.tuneSpanChosen = [this](double days, double hours, double minutes) {
        const TrendTick tick = trendTickRule(days, hours, minutes);
        plotTrend = tick.plotTrend;
        Timer1->setInterval(tick.intervalMs);
        timerCounter = 0;
    };
    if (setup.exec() == QDialog::Accepted) {
        startYAxis = iPlotX->ySpan();
        startXAxis = iPlotX->xSpan();
    }
}

void FrmTuneSettings::openTuneFile() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Open Tune data file (.tun)");
    request.filter = QStringLiteral("Tune Files(*.tun)|*.tun");
    request.initialDirectory = tuningFolder();
    request.fileName = tuningFolder() + QStringLiteral("/Default.tun");
    request.fileMustExist = true;
    const FileDialogResult chosen = dialogs().openFile(request);
    if (chosen.cancelled)
        return;
    std::optional<TuneSetup> setup;
    if (!takePlainFile(chosen.path, kTuneTable + 1, QStringLiteral("Tuning"),
                       [&setup](const QStringList& lines) {
                           setup = parseTuneFile(lines);
                           return setup.has_value();
                       }))
        return;
    applySetup(*setup);
    setWindowTitle(kCaption + QStringLiteral(" - ") + fileBaseName(chosen.path));
}

void FrmTuneSettings::saveTuneFile() {
    if (!checkAccess(Right::OpenSaveFiles))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Save .tun Tuning file as?");
    request.filter = QStringLiteral("Tuning Files(*.tun)|*.tun");
    request.defaultExtension = QStringLiteral(".tun");
    request.initialDirectory = tuningFolder();
    request.fileName = QStringLiteral("Tunning File.tun");
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (chosen.cancelled)
        return;
    QString why;
    if (!writeEncipheredLines(chosen.path, tuneFileLines(currentSetup()), &why))
        return reportError(QStringLiteral("saveTuneFile"), 75, why);
    setWindowTitle(kCaption + QStringLiteral(" - ") + fileBaseName(chosen.path));
}

bool FrmTuneSettings::readyToClose() {
    if (!isMinimized() && !gBankUpdating) {
        auto save = [](const char* key, const QString& value) {
            saveSetting(kSection, QString::fromLatin1(key), value);
        };
        save("PlotYMin", QString::number(iPlotX->yMin(), 'g', 17));
        save("PlotYSpan", QString::number(iPlotX->ySpan(), 'g', 17));
        save("PlotXSpan", QString::number(iPlotX->xSpan(), 'g', 17));
        save("XFontColor", QString::number(iPlotX->xLabelColor()));
        save("XScaleColor", QString::number(iPlotX->xScaleColor()));
        save("XMinorCount", QString::number(iPlotX->xMinorCount()));
        save("YFontColor", QString::number(iPlotX->yLabelColor()));
        save("YScaleColor", QString::number(iPlotX->yScaleColor()));
        save("XLegendColor", QString::number(iPlotX->legendColor()));
        save("YMinorCount", QString::number(iPlotX->yMinorCount()));
        save("bgColor", QString::number(iPlotX->backgroundColor()));
        save("TimeFormat", iPlotX->dateTimeFormat());
    }
    return true;
}
