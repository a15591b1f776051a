// The workstation as it starts, polling a plant simulator at the scan time stored in the
// settings, with all eight trend windows open: twelve pens each at a span of one minute (a
// sample every 200 ms), every ring of 2,000 points full before the measured window starts.
// With a third argument "banks", all sixteen bank windows are open too: the whole plant in view.
// Where the tree keeps a history of values, every controller's hour is full before the trends
// open, so that its memory counts as it will after an hour's running.
// Measures the process's CPU time and resident memory over the window, how long the plots
// spend redrawing, and every pen's samples: how many, and the longest gap between two.
#include "bench_workstation.h"
#include "displays/trend_window.h"
#include "plant/plant_store.h"
#include "platform/plot.h"
#include "records/trend_setup.h"

#if __has_include("plant/value_history.h")
#include "plant/value_history.h"
#define BENCH_HISTORY 1
#endif

#include <QAction>
#include <QMdiArea>
#include <qcustomplot.h>

namespace {

// Twelve pens of trend n: process values, setpoints and outputs across the plant.
TrendConfig benchTrend(int n) {
    TrendConfig c;
    c.minutes = 1;
    const TrendTick tick = trendTickRule(0, 0, 1);
    c.plotTrend = tick.plotTrend;
    c.tickMs = tick.intervalMs;
    c.yMin = 0;
    c.ySpan = 200;
    c.xSpanDays = 1.0 / 1440;
    c.xLabelColor = c.xScaleColor = 65280;
    c.yLabelColor = c.yScaleColor = c.legendColor = 16777215;
    c.xMinorTicks = c.yMinorTicks = 4;
    c.timeFormat = QStringLiteral("hh:nn:ss");
    for (int pen = 0; pen < 12; ++pen) {
        const auto row = qint16((n * 8 + pen) % kControllerCount);
        const auto code = qint16(row + 100 * (pen % 3));
        c.codes.append(code);
        c.channels.append({channelTitle(code), 255 * (pen + 1)});
    }
    return c;
}
} // namespace

int main(int argc, char* argv[]) {
    const bool withBanks = argc > 3 && QByteArray(argv[3]) == "banks";
    QList<Ctrend1*> trends;
    qint64 replotNs = 0;
    int replots = 0;
    double from = 0;
    return runWorkstationBench(
        argc, argv, 60,
        [&](FrmMain& main) {
#ifdef BENCH_HISTORY
            // The hour on the curve the rings below are filled with, as the trend's own samples
            // and the history are taken from the same reads.
            const QDateTime start = QDateTime::currentDateTime();
            for (int row = 0; row < kControllerCount; ++row)
                for (int i = ValueHistory::kCapacity; i > 0; --i) {
                    const qint64 back = i * ValueHistory::kSpacingMs;
                    const auto value = float(100 + (back / 30) % 50);
                    valueHistory().record(row, start.addMSecs(-back), value, value, value);
                }
#endif
            for (int bank = 1; withBanks && bank <= 16; ++bank)
                main.menuItem(QStringLiteral("mnuAddBank%1").arg(bank))->trigger();
            for (int n = 1; n <= 8; ++n) {
                if (!writeTrendConfig(QStringLiteral("%1/Trend%2.trn").arg(gAppPath).arg(n),
                                      benchTrend(n))) {
                    std::fprintf(stderr, "cannot write the trend files\n");
                    return false;
                }
                Ctrend1* trend = main.showTrend(QStringLiteral("Trend%1").arg(n), qint16(n));
                trends << trend;
                // Rings as the setup dialog sets them, filled with the minute before.
                const QDateTime now = QDateTime::currentDateTime();
                for (int i = 0; i < trend->iPlotX->channelCount(); ++i) {
                    trend->iPlotX->setRingBufferSize(i, TrendSetup::kPenRing);
                    for (int k = TrendSetup::kPenRing; k > 0; --k)
                        trend->iPlotX->addPoint(i, now.addMSecs(-30 * k), 100.0 + (k % 50));
                }
                QCustomPlot* plot = trend->iPlotX->customPlot();
                QObject::connect(plot, &QCustomPlot::afterReplot, plot, [&, plot] {
                    replotNs += qint64(plot->replotTime() * 1e6);
                    ++replots;
                });
            }
            main.mdiArea()->tileSubWindows();
            return true;
        },
        [&](FrmMain&) {
            replots = 0;
            replotNs = 0;
            from = Plot::toDays(QDateTime::currentDateTime());
        },
        [&](FrmMain& main, const BenchWindow& w) {
            // Every pen's samples in the window, and the longest step between two.
            int samples = 0;
            int pens = 0;
            double worstGapMs = 0;
            for (Ctrend1* trend : std::as_const(trends)) {
                for (int i = 0; i < trend->iPlotX->channelCount(); ++i) {
                    const QVector<QPointF> points = trend->iPlotX->points(i);
                    double previous = -1;
                    for (const QPointF& p : points) {
                        if (p.x() < from)
                            continue;
                        ++samples;
                        if (previous >= 0)
                            worstGapMs = std::max(worstGapMs, (p.x() - previous) * 86400e3);
                        previous = p.x();
                    }
                    ++pens;
                }
            }
            std::printf("controllers %d, scan time %d ms, trends %d with %d pens, bank windows "
                        "%d, %.1f s\n",
                        static_cast<int>(gActiveCount), main.scan().timer2()->interval(),
                        int(trends.size()), pens, withBanks ? 16 : 0, w.elapsed);
            std::printf("cpu %.2f s = %.2f %% of one core\n", w.cpu, 100.0 * w.cpu / w.elapsed);
            std::printf("resident %.1f MiB now, %.1f MiB peak\n", residentMiB(), peakMiB());
            std::printf("reads answered %d (%.1f/s), failed %d\n", w.reads, w.reads / w.elapsed,
                        w.errors);
            std::printf("replots %d, %.2f ms each on average, %.1f %% of one core\n", replots,
                        replots ? replotNs / 1e6 / replots : 0.0,
                        100.0 * replotNs / 1e9 / w.elapsed);
            std::printf("samples %d = %.2f per pen per second (5 due), longest gap %.0f ms "
                        "(200 due, a tick late is 300)\n",
                        samples, samples / double(std::max(pens, 1)) / w.elapsed, worstGapMs);
        });
}
