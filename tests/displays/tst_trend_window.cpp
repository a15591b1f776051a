// The real-time trend windows: sampling from the plant store, the sliders, the setup dialog and
// the views, the damaged-file path, and the picture and print of a trend.

#include "displays/trend_window.h"
#include "plant/plant_store.h"
#include "plant/value_history.h"
#include "platform/plot.h"
#include "records/trend_setup.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QMdiArea>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTest>
#include <QTimer>

namespace {
// A K40 at row 0 (its readings as text, as the K40 family keeps them) and a K20 at row 4 (as
// numbers), both enabled.
void k40AndK20() {
    for (const auto& [row, tag] : {std::pair{size_t(0), "TIC-101"}, {size_t(4), "DRYER-105"}}) {
        gControlEnabled[row] = true;
        gPvTag[row] = QString::fromLatin1(tag);
        gSpTag[row] = gPvTag[row] + ".SP";
        gOutTag[row] = gPvTag[row] + ".OUT";
    }
    gControlType[4] = K20RampProfiler;
    gPV[0] = QStringLiteral("181.6");
    gSP[0] = QStringLiteral("185.0");
    gPctOut[0] = 42.5f;
    gPV[4] = 39.2;
    gSP[4] = 40.0;
    gPctOut[4] = 12.0f;
    noteReadAnswered(0);
    noteReadAnswered(4);
}

// A sample every fifth tick, a span of one hour and 0 to 250, one "pen <code>" a code.
TrendConfig config(const QVector<qint16>& codes) {
    TrendConfig c;
    c.hours = 1;
    c.plotTrend = 4;
    c.tickMs = 1000;
    c.ySpan = 250;
    c.xSpanDays = 1.0 / 24;
    c.timeFormat = QStringLiteral("hh:nn:ss");
    c.codes = codes;
    for (const qint16 code : codes)
        c.channels.append({QStringLiteral("pen %1").arg(code), 255});
    return c;
}

void writeTrend(const TestEnv& env, int n, const TrendConfig& c) {
    QVERIFY(writeTrendConfig(env.path(QStringLiteral("Trend%1.trn").arg(n)), c));
}

// A QTimer of interval 0 fires on every pass of the event loop.
bool spins(const Ctrend1* trend) {
    return trend->Timer1->isActive() && trend->Timer1->interval() <= 0;
}

QList<double> values(const Plot* plot, int channel) {
    QList<double> out;
    for (const QPointF& p : plot->points(channel))
        out << p.y();
    return out;
}
} // namespace

class TstTrendWindow : public QObject {
    Q_OBJECT
private slots:
    void samplesZoomsPrintsAndKeepsItsSpans();
    void damagedOrMissingFileOpensEmptyAndCloseRepairs();
    void setupServesTheTrendItsCallerNames();
    void aViewSavedInOneTrendOpensInAnother();
};

void TstTrendWindow::samplesZoomsPrintsAndKeepsItsSpans() {
    TestEnv env;
    k40AndK20();
    // Each value of both controllers, then codes that name no controller; a fractional span.
    TrendConfig c = config({0, 100, 200, 4, 104, 204, 264, -1});
    c.ySpan = 12.6;
    c.xSpanDays = 0.5;
    writeTrend(env, 1, c);
    // The trend's own sampling alone: no past for it to start from.
    valueHistory().clear();
    QMdiArea area;
    area.resize(900, 600);
    Ctrend1* trend = showTrend(&area, QStringLiteral("Trend1"), 1);
    QCOMPARE(trend->windowTitle(), QStringLiteral("Trend 1"));
    // Built from a file, a pen has the plot's own ring until the setup sets it. The axis shows
    // the fraction; the slider's reference has lost it.
    QCOMPARE((QList<int>{trend->Timer1->isActive(), trend->Timer1->interval(),
                         trend->iPlotX->trackingEnabled(), trend->penCount(), trend->origYAxis,
                         trend->iPlotX->ringBufferSize(0)}),
             (QList<int>{true, 1000, true, 8, 13, Plot::kDefaultRing}));
    QCOMPARE(trend->iPlotX->ySpan(), 12.6);
    trend->Timer1->stop();

    // plotTrend 4: a sample at the fifth tick and at the tenth.
    QList<qsizetype> counts;
    for (int tick = 0; tick < 10; ++tick) {
        trend->timer1Tick();
        counts << trend->iPlotX->points(0).size();
    }
    QCOMPARE(counts, (QList<qsizetype>{0, 0, 0, 0, 1, 1, 1, 1, 1, 2}));
    const QList<QList<double>> expected{{181.6, 181.6}, {185.0, 185.0}, {42.5, 42.5}, {39.2, 39.2},
                                        {40.0, 40.0},   {12.0, 12.0},   {},           {}};
    for (int pen = 0; pen < 8; ++pen)
        QCOMPARE(values(trend->iPlotX, pen), expected[pen]);

    // A process value shown as text that is no number leaves a gap in its own pen only.
    gPV[0] = QStringLiteral("----");
    for (int tick = 0; tick < 5; ++tick)
        trend->timer1Tick();
    QCOMPARE(values(trend->iPlotX, 0).size(), 2);
    QCOMPARE(values(trend->iPlotX, 3).size(), 3);

    // The picture and the printout of what was sampled.
    env.dialogs->chooseFile(env.path("trend.jpg"));
    trend->saveTrendJPG();
    const FileDialogRequest request = env.dialogs->fileRequests.last();
    QCOMPARE((QStringList{request.title, request.fileName}),
             (QStringList{"Save trend jpeg as?", "Trend 1.jpg"}));
    QVERIFY(readBytes(env.path("trend.jpg")).startsWith("\xFF\xD8\xFF"));
    env.dialogs->chooseFile(env.path("No Such Folder/trend.jpg"));
    trend->saveTrendJPG();
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Jpeg file can not be saved. Check filename or disk space"});
    env.printers->outputFolder = env.appPath();
    trend->printTrend();
    QCOMPARE(env.printers->outputs.size(), 1);
    env.printers->available = false;
    trend->printTrend();
    QCOMPARE(env.printers->outputs.size(), 1);
    QVERIFY(env.dialogs->texts().last().startsWith("There is no default printer!"));

    // The sliders zoom from the configured spans; the time slider stops short of 100.
    trend->RTDateSlider->setValue(100);
    QCOMPARE(trend->RTDateSlider->value(), 99);
    QCOMPARE(trend->iPlotX->xSpan(), 0.01 * 0.5);
    trend->RTDateSlider->setValue(-100);
    QCOMPARE(trend->iPlotX->xSpan(), 1.0);
    trend->YRTSlider->setValue(50);
    QCOMPARE((QList<double>{trend->iPlotX->ySpan(), trend->iPlotX->yMin()}),
             (QList<double>{6.5, 0}));
    // A hand move stops the time axis; letting go of the value slider resumes it.
    trend->iPlotX->setTrackingEnabled(false);
    emit trend->YRTSlider->sliderReleased();
    QVERIFY(trend->iPlotX->trackingEnabled());
    // The zoom is not configuration: the file keeps the spans, the value span as a whole number.
    QVERIFY(trend->close());
    const std::optional<TrendConfig> written = readTrendConfig(env.path("Trend1.trn"));
    QVERIFY(written);
    QCOMPARE((QList<double>{written->xSpanDays, written->ySpan}), (QList<double>{0.5, 13}));
    QCOMPARE(written->codes, c.codes);

    const QString text = pdfText(env.printers->outputs[0]);
    if (text.isEmpty())
        QSKIP("pdftotext is not installed");
    QVERIFY(text.contains("Trend 1 on "));
    QVERIFY(text.contains("pen 104"));
}

void TstTrendWindow::damagedOrMissingFileOpensEmptyAndCloseRepairs() {
    TestEnv env;
    k40AndK20();
    QMdiArea area;
    // Missing, more than 101 lines, and a value span that no whole number holds.
    TrendConfig huge = config({0});
    huge.ySpan = 1e12;
    for (const QByteArray& damage :
         {QByteArray(), QByteArray(" 0 \r\n").repeated(102), trendConfigText(huge)}) {
        QFile::remove(env.path("Trend3.trn"));
        QVERIFY(damage.isNull() || writeBytes(env.path("Trend3.trn"), damage));
        env.dialogs->boxes.clear();
        Ctrend1* trend = showTrend(&area, QStringLiteral("Trend3"), 3);
        QCOMPARE(
            env.dialogs->texts(),
            QStringList{"Error while loading defaults file! The trend file\nis either "
                        "damaged or missing. Use the trend setup\nicon on the toolbar to "
                        "setup the trend and then\nclose the window to fix the damaged file."});
        QCOMPARE(trend->windowTitle(), QStringLiteral("Trend 3"));
        QCOMPARE((QList<int>{trend->iPlotX->channelCount(), trend->penCount(),
                             trend->Timer1->isActive()}),
                 (QList<int>{0, 0, false}));
        // Without pens a tick does nothing, and the counter stays where it was.
        trend->timerCounter = 3;
        trend->timer1Tick();
        QCOMPARE(trend->timerCounter, 3);
        // The close writes a fresh file, which opens without a word and with a tick it runs at.
        QVERIFY(trend->close());
        env.dialogs->boxes.clear();
        Ctrend1* again = showTrend(&area, QStringLiteral("Trend3"), 3);
        QVERIFY(again->Timer1->isActive() && !spins(again));
        QVERIFY(again->close());
        QCOMPARE(env.dialogs->texts(), QStringList());
    }
    // A tick of 0 in a file stops the trend, and nothing starts it at 0: not a cancelled setup,
    // not a cancelled view.
    TrendConfig stopped = config({0});
    stopped.tickMs = 0;
    writeTrend(env, 3, stopped);
    Ctrend1* still = showTrend(&area, QStringLiteral("Trend3"), 3);
    env.modals.act([](QDialog* d) { qobject_cast<TrendSetup*>(d)->CancelButton->click(); });
    still->setupTrend();
    QVERIFY(!spins(still));
    still->openTrendView();
    QVERIFY(!spins(still) && env.modals.pending() == 0);
    QVERIFY(still->close());

    // A close that cannot write says so and still closes.
    writeTrend(env, 4, config({0}));
    Ctrend1* trend = showTrend(&area, QStringLiteral("Trend4"), 4);
    QFile::remove(env.path("Trend4.trn"));
    QVERIFY(QDir().mkdir(env.path("Trend4.trn")));
    env.dialogs->boxes.clear();
    QVERIFY(trend->close());
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QVERIFY(env.dialogs->boxes[0].text.startsWith("Error 75. "));
    QVERIFY(env.dialogs->boxes[0].text.endsWith(". Trend defaults can not be saved."));
}

void TstTrendWindow::setupServesTheTrendItsCallerNames() {
    TestEnv env;
    k40AndK20();
    TrendConfig c = config({0});
    c.channels = {{QStringLiteral("TIC-101"), 65280}};
    c.yMin = 100;
    c.ySpan = 400;
    writeTrend(env, 2, c);
    writeTrend(env, 5, config({4}));
    QMdiArea area;
    Ctrend1* two = showTrend(&area, QStringLiteral("Trend2"), 2);
    Ctrend1* five = showTrend(&area, QStringLiteral("Trend5"), 5);

    // The dialog shows zero, span and hours; pens by their titles, each list with three rows of
    // each enabled controller.
    QStringList lists;
    QColor rowColour;
    env.dialogs->colours = {QColor(0, 0, 255), QColor(255, 0, 0)};
    env.modals.act([&](QDialog* d) {
        auto* setup = qobject_cast<TrendSetup*>(d);
        QCOMPARE(setup->windowTitle(), QStringLiteral("Trend Scaling Setup"));
        QCOMPARE((QList<double>{setup->TrendZeroAnalog->value(), setup->TrendSpanAnalog->value(),
                                double(setup->TrendHoursAnalog->value()),
                                double(TrendSetup::swatchColor(setup->PenClr[0]))}),
                 (QList<double>{100, 400, 1, 65280}));
        QCOMPARE(setup->PenAssign[0]->currentText(), QStringLiteral("TIC-101"));
        for (int i = 0; i < setup->PenAssign[0]->count(); ++i)
            lists << setup->PenAssign[0]->itemText(i);
        // Row 0 emptied, row 3 on the setpoint of the K20 in blue, two wide; ten minutes.
        setup->PenAssign[0]->setCurrentIndex(-1);
        setup->PenAssign[3]->setCurrentIndex(setup->PenAssign[3]->findData(104));
        rowColour = Plot::toColor(TrendSetup::swatchColor(setup->PenClr[3]));
        setup->PenClrBtn[3]->click();
        setup->PWidth[3]->setValue(2);
        // The X frame's button serves the X swatch; a cancelled dialog leaves the Y swatch.
        setup->YscaleColor->click();
        setup->Xscalecolor->click();
        setup->TrendHoursAnalog->setValue(0);
        setup->TrendMinutesAnalog->setValue(10);
        setup->TrendSpanAnalog->setValue(500);
        setup->OKButton->click();
    });
    two->timerCounter = 3;
    two->setupTrend();
    QCOMPARE(lists, (QStringList{"TIC-101", "TIC-101.SP", "TIC-101.OUT", "DRYER-105",
                                 "DRYER-105.SP", "DRYER-105.OUT"}));
    // The swatch's dialog opened on the row's own colour.
    QCOMPARE(env.dialogs->colourSeeds.value(0), rowColour);
    QCOMPARE(gTrendSetupCaller, QStringLiteral("Trend2"));
    // Zero 100 and top 500: a span of 400. Ten minutes: t = 0.6, a divisor of 1 at 1000 ms. The
    // pen is blue (red in the low byte), two wide, with the setup's ring.
    const Plot* plot = two->iPlotX;
    QCOMPARE((QList<double>{plot->ySpan(), two->plotTrend, plot->xSpan()}),
             (QList<double>{400, 1, 10.0 / 1440}));
    QCOMPARE(
        (QList<int>{env.modals.pending(), two->timerCounter, int(env.dialogs->colourSeeds.size()),
                    two->origYAxis, two->Timer1->interval(), two->Timer1->isActive(),
                    plot->channelColor(0), plot->traceLineWidth(0), plot->ringBufferSize(0),
                    plot->xScaleColor(), plot->xLabelColor(), plot->yScaleColor()}),
        (QList<int>{0, 0, 3, 400, 1000, true, 16711680, 2, TrendSetup::kPenRing, 255, 255, 0}));
    QCOMPARE(two->trendArray, (QVector<qint16>{104, 0}));
    QCOMPARE(plot->channelTitle(0), QStringLiteral("DRYER-105.SP"));
    // On disk at once, and the other trend untouched.
    const std::optional<TrendConfig> onDisk = readTrendConfig(env.path("Trend2.trn"));
    QVERIFY(onDisk);
    QCOMPARE(onDisk->codes, QVector<qint16>{104});
    QCOMPARE(onDisk->minutes, 10.0);
    QCOMPARE(five->trendArray, (QVector<qint16>{4, 0}));

    // The pen comes up in row 0 now. The span field shows the span, so OK untouched narrows the
    // scale by the zero each time; a scale that would end at its zero is refused.
    QList<double> spans;
    env.modals.act([&](QDialog* d) {
        auto* setup = qobject_cast<TrendSetup*>(d);
        QCOMPARE(setup->PenAssign[0]->currentData().toInt(), 104);
        QCOMPARE(setup->PWidth[0]->value(), 2);
        setup->OKButton->click();
    });
    two->setupTrend();
    spans << two->iPlotX->ySpan();
    env.modals.act([&](QDialog* d) {
        auto* setup = qobject_cast<TrendSetup*>(d);
        setup->TrendSpanAnalog->setValue(100);
        setup->OKButton->click(); // refused: the dialog stays
        QVERIFY(setup->isVisible());
        setup->CancelButton->click();
    });
    two->setupTrend();
    spans << two->iPlotX->ySpan();
    QCOMPARE(spans, (QList<double>{300.0, 300.0}));
    QCOMPARE(env.dialogs->texts().last(),
             QStringLiteral("The Trend Span is taken as the top of the scale: it must be above the "
                            "Trend Zero."));

    // Cancel starts the timer of the trend being set up, and of no other.
    two->Timer1->stop();
    env.modals.act([five](QDialog* d) {
        auto* setup = qobject_cast<TrendSetup*>(d);
        QCOMPARE(setup->ctrendObj, five);
        QVERIFY(!five->Timer1->isActive());
        setup->PenAssign[0]->setCurrentIndex(-1);
        setup->CancelButton->click();
    });
    five->setupTrend();
    QVERIFY(five->Timer1->isActive());
    QVERIFY(!two->Timer1->isActive());
    QCOMPARE(five->trendArray, (QVector<qint16>{4, 0}));
}

void TstTrendWindow::aViewSavedInOneTrendOpensInAnother() {
    TestEnv env;
    k40AndK20();
    QDir().mkpath(env.path("Trend Views"));
    TrendConfig c = config({0, 204});
    c.yMin = -5;
    c.ySpan = 75;
    c.backgroundColor = 0;
    c.timeFormat = QStringLiteral("m/d/yyy h:nn:ss am/pm");
    writeTrend(env, 2, c);
    writeTrend(env, 5, config({4}));
    QMdiArea area;
    Ctrend1* two = showTrend(&area, QStringLiteral("Trend2"), 2);
    Ctrend1* five = showTrend(&area, QStringLiteral("Trend5"), 5);

    // The view is written under the base name of the choice: "zones.a.trv" is "zones.trv".
    env.dialogs->chooseFile(env.path("Trend Views/zones.a.trv"));
    two->saveTrendView();
    const FileDialogRequest save = env.dialogs->fileRequests.last();
    QCOMPARE((QStringList{save.title, save.fileName, two->windowTitle()}),
             (QStringList{"Save .trv Trend View as?", "Trend 2.trv", "zones.a.trv"}));
    QVERIFY(save.overwritePrompt);
    QCOMPARE(readBytes(env.path("Trend Views/zones.trv")), trendConfigText(c));

    env.dialogs->chooseFile(env.path("Trend Views/zones.trv"));
    five->openTrendView();
    QCOMPARE((QStringList{env.dialogs->fileRequests.last().title, five->windowTitle()}),
             (QStringList{"Open Trend View file (.trv)", "zones.trv"}));
    QVERIFY(five->Timer1->isActive());
    // Closed, trend 5 keeps the view as its own configuration.
    QVERIFY(five->close());
    QCOMPARE(readBytes(env.path("Trend5.trn")), trendConfigText(c));

    // A damaged view is refused and the trend stays as it was; a cancel only restarts the timer.
    QVERIFY(writeBytes(env.path("Trend Views/bad.trv"), " 0 \r\n 1 \r\n"));
    env.dialogs->chooseFile(env.path("Trend Views/bad.trv"));
    two->openTrendView();
    QCOMPARE(env.dialogs->texts().last(),
             QStringLiteral("Trend view file is not compatible or damaged. Please select another "
                            "file."));
    QCOMPARE(two->trendArray, (QVector<qint16>{0, 204, 0}));
    QVERIFY(two->Timer1->isActive());
    two->Timer1->stop();
    two->openTrendView();
    QVERIFY(two->Timer1->isActive());

    // A view that cannot be written: number, reason and advice run together.
    env.dialogs->chooseFile(env.path("No Such Folder/x.trv"));
    two->saveTrendView();
    QVERIFY(env.dialogs->texts().last().startsWith("75"));
    QVERIFY(env.dialogs->texts().last().endsWith(
        "Trend View can not be saved. Check filename or disk space"));
    QCOMPARE(two->windowTitle(), QStringLiteral("zones.a.trv"));
}

QTEST_MAIN(TstTrendWindow)
#include "tst_trend_window.moc"
