// The workstation as it starts, polling the plant simulator at the scan time stored in the
// settings, with publishing off or on (to a broker on 127.0.0.1 at the port given). Measures the
// process's CPU time over a window of seconds after a warm-up, the reads answered, the longest
// gap between two poll ticks, and what publishing sent, dropped and holds.
// Usage: bench_publish seconds warm-up [broker port]
#include "bench_workstation.h"
#include "plant/plant_store.h"
#include "publish/publisher.h"

int main(int argc, char* argv[]) {
    const int port = argc > 3 ? QByteArray(argv[3]).toInt() : 0;
    qint64 lastTick = -1;
    qint64 worstGap = 0;
    QElapsedTimer ticks;
    return runWorkstationBench(
        argc, argv, 60,
        [&](FrmMain& main) {
            if (port > 0) {
                PublishConfig c;
                c.enabled = true;
                c.port = port;
                c.site = QStringLiteral("bench");
                c.station = QStringLiteral("station1");
                main.publisher().apply(c);
            }
            QObject::connect(main.scan().timer2(), &QTimer::timeout, [&] {
                if (ticks.isValid()) {
                    if (lastTick >= 0)
                        worstGap = std::max(worstGap, ticks.elapsed() - lastTick);
                    lastTick = ticks.elapsed();
                }
            });
            return true;
        },
        [&](FrmMain&) { ticks.start(); },
        [&](FrmMain& main, const BenchWindow& w) {
            const Publisher& p = main.publisher();
            std::printf("controllers %d, scan time %d ms, publishing %s, %.1f s measured\n",
                        static_cast<int>(gActiveCount), main.scan().timer2()->interval(),
                        port > 0 ? "on" : "off", w.elapsed);
            std::printf("cpu %.2f s = %.2f %% of one core\n", w.cpu, 100.0 * w.cpu / w.elapsed);
            std::printf("reads answered %d (%.1f/s), longest gap between poll ticks %lld ms\n",
                        w.reads, w.reads / w.elapsed, static_cast<long long>(worstGap));
            std::printf("published: sent %llu, dropped %llu, queued %d; %s\n",
                        static_cast<unsigned long long>(p.sent()),
                        static_cast<unsigned long long>(p.dropped()), p.queued(),
                        qPrintable(p.stateText()));
        });
}
