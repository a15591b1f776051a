#include "trend_setup.h"

#include "plant/plant_store.h"
#include "platform/dialogs.h"
#include "platform/plot.h"
#include "platform/window_parts.h"

#include <QApplication>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTimer>
#include <QVBoxLayout>

namespace {
constexpr qint32 kWhite = 16777215;
// The colour of a pen row until a channel or the user sets one: the first twelve pens apart.
constexpr qint32 kPenDefaults[TrendSetup::kPenRows] = {255,      65280,    16711680, 65535,
                                                       16711935, 16776960, 33023,    8388736,
                                                       8421376,  4227327,  12632256, kWhite};
constexpr double kSpanLimit = 1e9;

QSpinBox* wholeField(const QString& name, int low, int high, int value, QWidget* parent) {
    auto* field = new QSpinBox(parent);
    field->setObjectName(name);
    field->setRange(low, high);
    field->setValue(value);
    field->setAlignment(Qt::AlignRight);
    return field;
}

QDoubleSpinBox* numberField(const QString& name, double low, double high, QWidget* parent) {
    auto* field = new QDoubleSpinBox(parent);
    field->setObjectName(name);
    field->setRange(low, high);
    field->setDecimals(3);
    field->setAlignment(Qt::AlignRight);
    return field;
}

QLabel* swatch(const QString& name, qint32 color, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setObjectName(name);
    label->setAutoFillBackground(true);
    label->setFrameShape(QFrame::Box);
    label->setMinimumSize(32, 18);
    TrendSetup::setSwatchColor(label, color);
    return label;
}

QPushButton* pickButton(const QString& name, const QString& caption, QWidget* parent) {
    auto* button = new QPushButton(caption, parent);
    button->setObjectName(name);
    button->setAutoDefault(false);
    return button;
}
} // namespace

QString channelTitle(qint16 code) {
    if (code < 100)
        return validRow(code) ? gPvTag[size_t(code)] : QString();
    if (code < 200)
        return validRow(code - 100) ? gSpTag[size_t(code - 100)] : QString();
    return validRow(code - 200) ? gOutTag[size_t(code - 200)] : QString();
}

TrendSetup::TrendSetup(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("TrendSetup"));
    setWindowTitle(QStringLiteral("Trend Scaling Setup"));
    auto* layout = new QVBoxLayout(this);
    auto* frames = new QHBoxLayout;
    layout->addLayout(frames);

    auto* xFrame = new QGroupBox(QStringLiteral("X Axis Setup"), this);
    auto* xForm = new QFormLayout(xFrame);
    TrendDaysAnalog = wholeField(QStringLiteral("TrendDaysAnalog"), 0, 7, 0, xFrame);
    TrendHoursAnalog = wholeField(QStringLiteral("TrendHoursAnalog"), 0, 23, 0, xFrame);
    TrendMinutesAnalog = wholeField(QStringLiteral("TrendMinutesAnalog"), 0, 59, 1, xFrame);
    XminorTicks = wholeField(QStringLiteral("XminorTicks"), 0, 30, 0, xFrame);
    XscaleFormat = new QComboBox(xFrame);
    XscaleFormat->setObjectName(QStringLiteral("XscaleFormat"));
    XscaleFormat->setEditable(true); // a format typed by hand is kept as typed
    XscaleFormat->addItems({QStringLiteral("hh:nn:ss"), QStringLiteral("hh:nn:ss.zzz"),
                            QStringLiteral("m/d hh:nn:ss"), QStringLiteral("d mmm h:nn:ss am/pm"),
                            QStringLiteral("m/d/yy h:nn:ss am/pm"),
                            QStringLiteral("m/d/yyy h:nn:ss am/pm")});
    XcolorLabel = swatch(QStringLiteral("XcolorLabel"), 0, xFrame);
    YscaleColor = pickButton(QStringLiteral("YscaleColor"), QStringLiteral("..."), xFrame);
    BgColorLabel = swatch(QStringLiteral("BgColorLabel"), kWhite, xFrame);
    trendBgColor = pickButton(QStringLiteral("trendBgColor"), QStringLiteral("..."), xFrame);
    auto withButton = [](QWidget* left, QWidget* right) {
        auto* row = new QHBoxLayout;
        row->addWidget(left, 1);
        row->addWidget(right);
        return row;
    };
    xForm->addRow(QStringLiteral("Trend Days"), TrendDaysAnalog);
    xForm->addRow(QStringLiteral("Trend Hours"), TrendHoursAnalog);
    xForm->addRow(QStringLiteral("Trend Minutes"), TrendMinutesAnalog);
    xForm->addRow(QStringLiteral("Minor Ticks"), XminorTicks);
    xForm->addRow(QStringLiteral("Scale Format"), XscaleFormat);
    xForm->addRow(QStringLiteral("Scale Color"), withButton(XcolorLabel, YscaleColor));
    xForm->addRow(QStringLiteral("Background"), withButton(BgColorLabel, trendBgColor));
    frames->addWidget(xFrame);

    auto* yFrame = new QGroupBox(QStringLiteral("Y Axis Setup"), this);
    auto* yForm = new QFormLayout(yFrame);
    TrendZeroAnalog = numberField(QStringLiteral("TrendZeroAnalog"), -10000, 10000, yFrame);
    TrendSpanAnalog =
        numberField(QStringLiteral("TrendSpanAnalog"), -kSpanLimit, kSpanLimit, yFrame);
    TrendSpanAnalog->setValue(100);
    YminorTicks = wholeField(QStringLiteral("YminorTicks"), 0, 30, 0, yFrame);
    YcolorLabel = swatch(QStringLiteral("YcolorLabel"), 0, yFrame);
    Xscalecolor = pickButton(QStringLiteral("Xscalecolor"), QStringLiteral("..."), yFrame);
    yForm->addRow(QStringLiteral("Trend Zero"), TrendZeroAnalog);
    yForm->addRow(QStringLiteral("Trend Span"), TrendSpanAnalog);
    yForm->addRow(QStringLiteral("Minor Ticks"), YminorTicks);
    yForm->addRow(QStringLiteral("Scale Color"), withButton(YcolorLabel, Xscalecolor));
    frames->addWidget(yFrame);

    auto* penFrame = new QGroupBox(QStringLiteral("Trend Pen Setup"), this);
    auto* pens = new QGridLayout(penFrame);
    for (int i = 0; i < kPenRows; ++i) {
        const QString index = QStringLiteral("(%1)").arg(i);
        PenAssign[i] = new QComboBox(penFrame);
        PenAssign[i]->setObjectName(QStringLiteral("PenAssign") + index);
        PenAssign[i]->setPlaceholderText(QStringLiteral("Select Controller"));
        PenAssign[i]->setMinimumContentsLength(14);
        PenClr[i] = swatch(QStringLiteral("PenClr") + index, kPenDefaults[i], penFrame);
        PenClrBtn[i] =
            pickButton(QStringLiteral("PenClrBtn") + index, QStringLiteral("..."), penFrame);
        PWidth[i] = wholeField(QStringLiteral("PWidth") + index, 1, 5, 1, penFrame);
        // Two columns of six pens.
        const int row = i % 6;
        const int column = (i / 6) * 4;
        pens->addWidget(PenAssign[i], row, column);
        pens->addWidget(PenClr[i], row, column + 1);
        pens->addWidget(PenClrBtn[i], row, column + 2);
        pens->addWidget(PWidth[i], row, column + 3);
        QLabel* target = PenClr[i];
        connect(PenClrBtn[i], &QPushButton::clicked, this, [this, target] { pickColour(target); });
    }
    layout->addWidget(penFrame);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    OKButton = new QPushButton(QStringLiteral("OK"), this);
    OKButton->setObjectName(QStringLiteral("OKButton"));
    OKButton->setDefault(true);
    CancelButton = new QPushButton(QStringLiteral("Cancel"), this);
    CancelButton->setObjectName(QStringLiteral("CancelButton"));
    buttons->addWidget(OKButton);
    buttons->addWidget(CancelButton);
    layout->addLayout(buttons);

    connect(YscaleColor, &QPushButton::clicked, this, [this] { pickColour(XcolorLabel); });
    connect(Xscalecolor, &QPushButton::clicked, this, [this] { pickColour(YcolorLabel); });
    connect(trendBgColor, &QPushButton::clicked, this, [this] { pickColour(BgColorLabel); });
    connect(OKButton, &QPushButton::clicked, this, &TrendSetup::OKButton_Click);
    connect(CancelButton, &QPushButton::clicked, this, &TrendSetup::CancelButton_Click);
}

qint32 TrendSetup::swatchColor(const QLabel* swatch) {
    return swatch->property("color").toInt();
}

void TrendSetup::setSwatchColor(QLabel* swatch, qint32 color) {
    swatch->setProperty("color", color);
    QPalette palette = swatch->palette();
    palette.setColor(QPalette::Window, Plot::toColor(color));
    swatch->setPalette(palette);
}

void TrendSetup::pickColour(QLabel* swatch) {
    // A cancel leaves the swatch as it was.
    if (const std::optional<QColor> chosen =
            dialogs().chooseColour(Plot::toColor(swatchColor(swatch))))
        setSwatchColor(swatch, Plot::fromColor(*chosen));
}

void TrendSetup::fillFromPlot(const Plot& plot) {
    TrendZeroAnalog->setValue(plot.yMin());
    // The span itself, though OK takes this field as the top of the scale.
    TrendSpanAnalog->setValue(plot.ySpan());
    setSwatchColor(XcolorLabel, plot.xScaleColor());
    XminorTicks->setValue(plot.xMinorCount());
    XscaleFormat->setEditText(plot.dateTimeFormat());
    setSwatchColor(YcolorLabel, plot.yScaleColor());
    YminorTicks->setValue(plot.yMinorCount());
    setSwatchColor(BgColorLabel, plot.backgroundColor());
}

void TrendSetup::assignChannels(const Plot& plot) {
    for (QComboBox* list : PenAssign) {
        list->clear();
        for (int c = 0; c < kControllerCount; ++c) {
            if (!gControlEnabled[size_t(c)])
                continue;
            list->addItem(gPvTag[size_t(c)], c);
            list->addItem(gSpTag[size_t(c)], 100 + c);
            list->addItem(gOutTag[size_t(c)], 200 + c);
        }
        list->setCurrentIndex(-1);
    }
    // By title: a pen whose tag was renamed or whose controller is disabled comes up unselected,
    // and two controllers of one tag resolve to the upper.
    for (int i = 0; i < std::min(plot.channelCount(), kPenRows); ++i) {
        setSwatchColor(PenClr[size_t(i)], plot.channelColor(i));
        PWidth[size_t(i)]->setValue(plot.traceLineWidth(i));
        PenAssign[size_t(i)]->setCurrentIndex(
            PenAssign[size_t(i)]->findText(plot.channelTitle(i), Qt::MatchExactly));
    }
}

void TrendSetup::OKButton_Click() {
    if (gTrendSetupCaller == kHistoryPlotCaller)
        setupHistoryPlot();
    else if (gTrendSetupCaller == kLoopTuningCaller)
        setupLoopTuning();
    else
        setupRTPlot();
}

void TrendSetup::CancelButton_Click() {
    reject();
}

void TrendSetup::reject() {
    // The plot that was set up samples again; nothing else changes.
    for (QWidget* w : QApplication::allWidgets()) {
        if (w->property("Tag").toString() != gTrendSetupCaller || gTrendSetupCaller.isEmpty())
            continue;
        if (auto* timer = w->findChild<QTimer*>(QStringLiteral("Timer1")))
            startTickTimer(timer);
    }
    QDialog::reject();
}

bool TrendSetup::transferScales(Plot& plot) {
    const double zero = TrendZeroAnalog->value();
    // The field called the span is the top of the scale.
    const double span = TrendSpanAnalog->value() - zero;
    if (span <= 0) {
        msgBox(QStringLiteral("The Trend Span is taken as the top of the scale: it must be above "
                              "the Trend Zero."),
               MsgIcon::Information);
        return false;
    }
    plot.setYMin(zero);
    plot.setYSpan(span);
    plot.setXColors(swatchColor(XcolorLabel), swatchColor(XcolorLabel));
    plot.setYColors(swatchColor(YcolorLabel), swatchColor(YcolorLabel));
    plot.setLegendColor(swatchColor(YcolorLabel));
    plot.setMinorCounts(XminorTicks->value(), YminorTicks->value());
    plot.setDateTimeFormat(XscaleFormat->currentText());
    plot.setBackgroundColor(swatchColor(BgColorLabel));
    return true;
}

void TrendSetup::setupRTPlot() {
    if (!ctrendObj || !transferScales(ctrendObj->trendPlot()))
        return;
    hide();
    ctrendObj->takeSetup(*this);
    accept();
}

void TrendSetup::setupHistoryPlot() {
    if (histPlotobj) {
        if (!transferScales(*histPlotobj))
            return;
        for (int i = 0; i < histPlotobj->channelCount(); ++i)
            histPlotobj->setTraceLineWidth(i, i < kPenRows ? PWidth[size_t(i)]->value() : 1);
    }
    accept();
}

void TrendSetup::setupLoopTuning() {
    if (tunPlotObj) {
        if (!transferScales(*tunPlotObj))
            return;
        const double days = TrendDaysAnalog->value();
        const double hours = TrendHoursAnalog->value();
        const double minutes = TrendMinutesAnalog->value();
        tunPlotObj->setXSpan(days + hours / 24 + minutes / 1440);
        if (tuneSpanChosen)
            tuneSpanChosen(days, hours, minutes);
    }
    accept();
}
