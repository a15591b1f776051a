// The workstation as it starts (splash, resident windows, first scan) with all sixteen bank
// windows open, polling a plant simulator at the scan time stored in the settings. Measures the
// process's CPU time and resident memory over a window of seconds after a warm-up, and counts
// the reads answered and failed in that window.
#include "bench_workstation.h"
#include "plant/plant_store.h"

#include <QAction>

int main(int argc, char* argv[]) {
    return runWorkstationBench(
        argc, argv, 60,
        [](FrmMain& main) {
            for (int bank = 1; bank <= 16; ++bank)
                main.menuItem(QStringLiteral("mnuAddBank%1").arg(bank))->trigger();
            return true;
        },
        {},
        [](FrmMain& main, const BenchWindow& w) {
            std::printf("controllers %d, scan time %d ms, bank windows 16, %.1f s measured\n",
                        static_cast<int>(gActiveCount), main.scan().timer2()->interval(),
                        w.elapsed);
            std::printf("cpu %.2f s = %.2f %% of one core\n", w.cpu, 100.0 * w.cpu / w.elapsed);
            std::printf("resident %.1f MiB now, %.1f MiB peak\n", residentMiB(), peakMiB());
            std::printf("reads answered %d (%.1f/s), failed %d\n", w.reads, w.reads / w.elapsed,
                        w.errors);
        });
}
