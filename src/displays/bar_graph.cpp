#include "bar_graph.h"

#include "plant/plant_store.h"
#include "platform/bar_display.h"
#include "platform/placement.h"
#include "platform/settings_store.h"
#include "platform/window_parts.h"

#include <QAction>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMdiArea>
#include <QStatusBar>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

namespace {
constexpr qint32 kRed = 255;
constexpr qint32 kGreen = 65280;
const QString kPrompt = QStringLiteral("Click on bar to display current tag and value:");

// "BarGraphs\Bar 0": the blank is where the number's sign would stand, and part of the name.
QString sectionOf(qint16 first) {
    return QStringLiteral("BarGraphs\\Bar ") + QString::number(first);
}

double settingNumber(const QString& section, const QString& key, double fallback) {
    bool ok = false;
    const double value = getSetting(section, key, QString::number(fallback)).toDouble(&ok);
    return ok ? value : fallback;
}

QDoubleSpinBox* limitEntry(const QString& name, QWidget* parent) {
    auto* entry = new QDoubleSpinBox(parent);
    entry->setObjectName(name);
    entry->setRange(-1e9, 1e9);
    entry->setDecimals(2);
    entry->setAlignment(Qt::AlignRight);
    return entry;
}
} // namespace

FrmBarGraph::FrmBarGraph(qint16 firstController, QWidget* parent)
    : ChildWindow(Life::Display, sectionOf(firstController), parent), barNumber(firstController),
      cToMonitor(firstController) {
    setAttribute(Qt::WA_DeleteOnClose);
    keepPositionOnly();
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("frmBarGraph"),
                       QStringLiteral("PV/SP Compare Bar Graph with Peak (Controls %1 To %2)")
                           .arg(firstController + 1)
                           .arg(firstController + kControllers));
    QWidget* body = widget();
    Toolbar1 = makeToolbar(body, Qt::ToolButtonIconOnly);
    connect(addToolButton(Toolbar1, QStyle::SP_BrowserReload, QStringLiteral("Clear Bar"),
                          QStringLiteral("Reset Bar Peak")),
            &QAction::triggered, this, &FrmBarGraph::clearPeaks);
    layout->addWidget(Toolbar1);

    auto* middle = new QHBoxLayout;
    middle->setContentsMargins(6, 6, 6, 6);
    Bar1X1 = new BarDisplay(body);
    Bar1X1->setObjectName(QStringLiteral("Bar1X1"));
    Bar1X1->setBarCount(2 * kControllers);
    Bar1X1->clearPeaks();
    connect(Bar1X1, &BarDisplay::barsClicked, this, &FrmBarGraph::barsClicked);
    // As wide as its bars: a click is read from the bars' left edge.
    Bar1X1->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
    middle->addWidget(Bar1X1);
    auto* limits = new QFormLayout;
    BarUpper = limitEntry(QStringLiteral("BarUpper"), body);
    BarLower = limitEntry(QStringLiteral("BarLower"), body);
    limits->addRow(QStringLiteral("Bar Upper Limit"), BarUpper);
    limits->addRow(QStringLiteral("Bar Lower Limit"), BarLower);
    middle->addLayout(limits);
    layout->addLayout(middle, 1);
    connect(BarLower, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        barScaleLower = value;
        Bar1X1->setScale(value, Bar1X1->maximum());
    });
    connect(BarUpper, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        barScaleUpper = value;
        Bar1X1->setScale(Bar1X1->minimum(), value);
    });

    StatusBar1 = new QStatusBar(body);
    StatusBar1->setSizeGripEnabled(false);
    m_panel = new QLabel(kPrompt, StatusBar1);
    StatusBar1->addWidget(m_panel, 1);
    layout->addWidget(StatusBar1);

    const QString section = sectionOf(firstController);
    barScaleLower = settingNumber(section, QStringLiteral("BarScaleLower"), 0);
    barScaleUpper = settingNumber(section, QStringLiteral("BarScaleUpper"), 100);
    Bar1X1->setScale(barScaleLower, barScaleUpper);
    // The entries take their own values; each change passes on to the scale as it is made.
    BarLower->setValue(settingNumber(section, QStringLiteral("BarLowerSet"), 0));
    BarUpper->setValue(settingNumber(section, QStringLiteral("BarUpperSet"), 100));

    Timer1 = new QTimer(this);
    Timer1->setObjectName(QStringLiteral("Timer1"));
    Timer1->setInterval(2000);
    connect(Timer1, &QTimer::timeout, this, &FrmBarGraph::timer1Tick);
    Timer1->start();
}

QString FrmBarGraph::statusText() const {
    return m_panel->text();
}

void FrmBarGraph::writeStatusLine() {
    const auto c = size_t(cToMonitor);
    m_panel->setText(QStringLiteral("(Red) ") + gPvTag[c] + QStringLiteral(" : = ") +
                     readingText(cToMonitor, gPV[c]) + QStringLiteral("  --  ") +
                     QStringLiteral("(Green) ") + gSpTag[c] + QStringLiteral(" : = ") +
                     readingText(cToMonitor, gSP[c]));
}

void FrmBarGraph::timer1Tick() {
    // The controller index moves on past enabled controllers only, so the first disabled one
    // holds every pair after it at the lower limit.
    int c = barNumber;
    for (int i = 0; i < 2 * kControllers; i += 2) {
        if (validRow(c) && gControlEnabled[size_t(c)]) {
            Bar1X1->setBarHeld(i, !isFresh(c));
            Bar1X1->setBarHeld(i + 1, !isFresh(c));
            Bar1X1->setBarColor(i, kRed);
            // A reading that is no number leaves its bar where it stood.
            if (const std::optional<double> pv = gPV[size_t(c)].asNumber())
                Bar1X1->setBarPosition(i, *pv);
            Bar1X1->setBarColor(i + 1, kGreen);
            if (const std::optional<double> sp = gSP[size_t(c)].asNumber())
                Bar1X1->setBarPosition(i + 1, *sp);
            ++c;
        } else {
            Bar1X1->setBarHeld(i, false);
            Bar1X1->setBarHeld(i + 1, false);
            Bar1X1->setBarPosition(i, BarLower->value());
            Bar1X1->setBarPosition(i + 1, BarLower->value());
        }
    }
    if (validRow(cToMonitor) && gControlEnabled[size_t(cToMonitor)])
        writeStatusLine();
}

void FrmBarGraph::barsClicked(int x) {
    // Not bounded by this window's sixteen: a click right of them may name a later controller.
    const int c = barNumber + x / kPairWidth;
    if (c < barNumber || c >= kControllerCount) {
        cToMonitor = barNumber;
        return;
    }
    cToMonitor = qint16(c);
    if (!gControlEnabled[size_t(c)]) {
        m_panel->setText(kPrompt);
        cToMonitor = barNumber;
        return;
    }
    writeStatusLine();
}

void FrmBarGraph::clearPeaks() {
    Bar1X1->clearPeaks();
}

bool FrmBarGraph::readyToClose() {
    const QString section = sectionOf(barNumber);
    saveSetting(section, QStringLiteral("BarLowerSet"), QString::number(BarLower->value()));
    saveSetting(section, QStringLiteral("BarUpperSet"), QString::number(BarUpper->value()));
    saveSetting(section, QStringLiteral("BarScaleLower"), QString::number(barScaleLower));
    saveSetting(section, QStringLiteral("BarScaleUpper"), QString::number(barScaleUpper));
    return true;
}

FrmBarGraph* showBarGraph(QMdiArea* area, qint16 firstController) {
    auto* window = new FrmBarGraph(firstController);
    area->addSubWindow(window);
    window->adjustSize();
    const double tpp = twipsPerPixel(area);
    const QSize client = area->viewport()->size();
    window->restorePlacement({qRound((client.width() - window->width()) / 2 * tpp),
                              qRound((client.height() - window->height()) / 2 * tpp), 0, 0});
    window->show();
    return window;
}
