// The digital values grid and the bar graphs: what they show of the plant store, and the
// settings they keep.

#include "displays/bar_graph.h"
#include "displays/digital_values.h"
#include "plant/plant_store.h"
#include "platform/bar_display.h"
#include "platform/placement.h"
#include "platform/record_grid.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QDoubleSpinBox>
#include <QFile>
#include <QMdiArea>
#include <QTest>
#include <QTimer>

namespace {
// Rows 0 and 4 scanned: a K40 reading in text, a profiler reading in numbers.
void twoActive() {
    gActiveList = {1, 5, 0};
    gActiveCount = 2;
    gControlEnabled[0] = gControlEnabled[4] = true;
    gPvTag[0] = "TIC-101";
    gSpTag[0] = "TIC-101.SP";
    gPV[0] = QStringLiteral("181.6");
    gSP[0] = QStringLiteral("185.0");
    gPvTag[4] = "COLD-105";
    gSpTag[4] = "COLD-105.SP";
    gPV[4] = -17.4;
    gSP[4] = -18.0;
    gDecimal[4] = 1;
    noteReadAnswered(0);
    noteReadAnswered(4);
}
} // namespace

class TstDisplays : public QObject {
    Q_OBJECT
private slots:
    void digitalValuesFollowTheActiveListPrintAndComeBack();
    void barsStopAtTheFirstDisabledControllerAndClicksNameOne();
};

void TstDisplays::digitalValuesFollowTheActiveListPrintAndComeBack() {
    TestEnv env;
    twoActive();
    QMdiArea area;
    DigitalValues* window = showDigitalValues(&area);
    QCOMPARE(window->windowTitle(), QStringLiteral("System Digital Values"));
    QCOMPARE((QList<int>{window->Timer1->isActive(), window->Timer1->interval()}),
             (QList<int>{true, 1000}));
    // Each value with its controller's decimals; the quality beside them.
    QCOMPARE(rowOf(window->Grid1, 0),
             (QStringList{"TIC-101", "181.6", "TIC-101.SP", "185.0", "Good"}));
    QCOMPARE(rowOf(window->Grid1, 1),
             (QStringList{"COLD-105", "-17.4", "COLD-105.SP", "-18.0", "Good"}));
    // A reading that is no number leaves the cell as it was.
    gPV[0] = QStringLiteral("----");
    window->timer1Tick();
    QCOMPARE(window->Grid1->text(0, 1), QStringLiteral("181.6"));
    // A controller taken out of the scan: the rows close up.
    gActiveList = {5, 0};
    gActiveCount = 1;
    window->timer1Tick();
    QCOMPARE(window->Grid1->rowCount(), 1);
    QCOMPARE(window->Grid1->text(0, 0), QStringLiteral("COLD-105"));
    gActiveList = {0};
    gActiveCount = 0;
    window->timer1Tick();
    QCOMPARE(window->Grid1->rowCount(), 0);

    // Nothing scanned: the alarm log's words, as this window has always used them.
    window->printDigitalValues();
    QCOMPARE(env.dialogs->boxes.size(), 1);
    QCOMPARE((QStringList{env.dialogs->boxes[0].title, env.dialogs->boxes[0].text}),
             (QStringList{"Print Alarms", "There are no alarms to print!"}));
    QCOMPARE(env.dialogs->boxes[0].icon, MsgIcon::Question);

    twoActive();
    window->timer1Tick();
    env.printers->available = false;
    window->printDigitalValues();
    QCOMPARE(env.dialogs->texts().last(),
             QStringLiteral("There is no default printer! Please install or select a default "
                            "printer."));
    env.printers->available = true;
    env.printers->outputFolder = env.appPath();
    window->printDigitalValues(); // the print dialog is cancelled: nothing printed
    QVERIFY(!QFile::exists(env.printers->outputs.value(0)));
    env.printers->printDialogAnswered = true;
    window->printDigitalValues();
    QVERIFY(QFile::exists(env.printers->outputs.last()));
    const QString text = pdfText(env.printers->outputs.last());
    if (!text.isEmpty()) {
        QVERIFY(text.contains("Current System Digital Values on "));
        QVERIFY(text.contains("COLD-105.SP"));
        QVERIFY(text.contains("Page #1"));
    }

    // Opened again while minimized: the same window, back to normal.
    window->showMinimized();
    QCOMPARE(showDigitalValues(&area), window);
    QVERIFY(!window->isMinimized());
    QCOMPARE(area.subWindowList().size(), 1);
    // Shrunk, it stays at its smallest size of 4515 x 2865 twips.
    window->resize(50, 40);
    const double tpp = twipsPerPixel(window);
    QCOMPARE(window->size(), QSize(qRound(4515 / tpp), qRound(2865 / tpp)));
}

void TstDisplays::barsStopAtTheFirstDisabledControllerAndClicksNameOne() {
    TestEnv env;
    // Controllers 0, 1, 3 and 4 enabled, 2 not.
    for (int c : {0, 1, 3, 4}) {
        gControlEnabled[size_t(c)] = true;
        gPV[size_t(c)] = 10.0 * (c + 1);
        gSP[size_t(c)] = 10.0 * (c + 1) + 5;
    }
    gPV[1] = QStringLiteral("21.5");
    QMdiArea area;
    FrmBarGraph* window = showBarGraph(&area, 0);
    QCOMPARE(window->windowTitle(),
             QStringLiteral("PV/SP Compare Bar Graph with Peak (Controls 1 To 16)"));
    QCOMPARE(window->Timer1->interval(), 2000);
    window->BarLower->setValue(2);
    window->timer1Tick();
    BarDisplay* bars = window->Bar1X1;
    QList<double> positions;
    for (int i = 0; i < 10; ++i)
        positions << bars->barPosition(i);
    // Controller 2 is disabled, and 3 and 4 behind it stand at the lower limit too.
    QCOMPARE(positions, (QList<double>{10, 15, 21.5, 25, 2, 2, 2, 2, 2, 2}));
    QCOMPARE((QList<int>{bars->barColor(0), bars->barColor(1)}), (QList<int>{255, 65280}));

    // A reading that is no number keeps its bar; a fall keeps the peak until it is cleared.
    gPV[0] = QStringLiteral("----");
    gSP[0] = 7.0;
    window->timer1Tick();
    QCOMPARE((QList<double>{bars->barPosition(0), bars->barPosition(1), bars->peak(1)}),
             (QList<double>{10, 7, 15}));
    window->clearPeaks();
    QCOMPARE(bars->peak(1), 7.0);
    // A lower limit above a value: the bar keeps its value, the scale starts above it.
    window->BarLower->setValue(50);
    QCOMPARE((QList<double>{bars->minimum(), bars->barPosition(1)}), (QList<double>{50, 7}));

    // The window of controllers 17 to 32.
    for (int c : {16, 17, 19, 32}) {
        gControlEnabled[size_t(c)] = true;
        gPvTag[size_t(c)] = QStringLiteral("T%1").arg(c);
        gSpTag[size_t(c)] = QStringLiteral("T%1.SP").arg(c);
        gPV[size_t(c)] = QStringLiteral("12.5");
        gSP[size_t(c)] = 13.0;
    }
    env.settings->setValue("BarGraphs\\Bar 16", "BarUpperSet", "250");
    window = showBarGraph(&area, 16);
    QCOMPARE((QList<double>{window->BarUpper->value(), window->Bar1X1->maximum()}),
             (QList<double>{250, 250}));
    QCOMPARE(window->statusText(),
             QStringLiteral("Click on bar to display current tag and value:"));
    window->timer1Tick();
    const QString first = "(Red) T16 : = 12.5  --  (Green) T16.SP : = 13";
    QCOMPARE(window->statusText(), first);
    // Each controller's pair is 22 pixels wide. Right of the sixteen: a controller of the next
    // window; beyond 63: the first again, and the line names the last one clicked.
    for (const auto& [x, c] : {std::pair{22, 17}, {21, 16}, {16 * 22, 32}, {48 * 22, 16}}) {
        window->barsClicked(x);
        QCOMPARE(window->cToMonitor, qint16(c));
    }
    QCOMPARE(window->statusText(), QStringLiteral("(Red) T32 : = 12.5  --  (Green) T32.SP : = 13"));
    // A disabled controller: the prompt, and the next tick names the first one again.
    window->barsClicked(2 * 22);
    QCOMPARE(window->statusText(),
             QStringLiteral("Click on bar to display current tag and value:"));
    QCOMPARE(window->cToMonitor, qint16(16));
    window->timer1Tick();
    QCOMPARE(window->statusText(), first);

    // The close keeps the limits and the position, not the size; an upper limit below the lower
    // passes as it is.
    window->BarLower->setValue(300);
    QVERIFY(window->close());
    QCOMPARE(env.settings->value("BarGraphs\\Bar 16", "BarLowerSet", ""), QStringLiteral("300"));
    QCOMPARE(env.settings->value("BarGraphs\\Bar 16", "BarScaleUpper", ""), QStringLiteral("250"));
    QVERIFY(!env.settings->value("BarGraphs\\Bar 16", "MainLeft", "").isEmpty());
    QCOMPARE(env.settings->value("BarGraphs\\Bar 16", "MainWidth", "none"), QStringLiteral("none"));
    FrmBarGraph* again = showBarGraph(&area, 16);
    QCOMPARE((QList<double>{again->Bar1X1->minimum(), again->Bar1X1->maximum()}),
             (QList<double>{300, 250}));
}

QTEST_MAIN(TstDisplays)
#include "tst_displays.moc"
