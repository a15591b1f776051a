// The workstation as it starts, polling the plant simulator on the link and with the pacing its
// settings name (the fixed tick, or as fast as the line allows). After a warm-up the line's and
// the poll's counts start again; over the measured seconds it prints the rounds against the wire
// time of a round, the reads answered, the process's CPU time per read, and the most requests
// that were ever on the line at once.
// Usage: bench_line seconds warm-up
#include "bench_workstation.h"
#include "plant/plant_store.h"
#include "platform/modbus_line.h"

int main(int argc, char* argv[]) {
    return runWorkstationBench(
        argc, argv, 30, {},
        [](FrmMain& main) {
            modbusLine().resetCounters();
            main.scan().poll().resetRounds();
        },
        [](FrmMain& main, const BenchWindow& w) {
            const PollCycle::Rounds r = main.scan().poll().rounds();
            const double wire = wireRoundMicros();
            const ModbusLine& line = modbusLine();
            std::printf(
                "controllers %d, %s, %.1f s measured\n", static_cast<int>(gActiveCount),
                main.scan().linePaced()
                    ? "as fast as the line allows"
                    : qPrintable(
                          QStringLiteral("fixed tick %1 ms").arg(main.scan().timer2()->interval())),
                w.elapsed);
            std::printf("rounds %lld: mean %.3f s, last %.3f s, worst %.3f s", r.count,
                        r.meanMicros() / 1e6, r.lastMicros / 1e6, r.worstMicros / 1e6);
            if (wire > 0)
                std::printf("; wire time %.3f s, mean/wire %.3f", wire / 1e6,
                            r.meanMicros() / wire);
            std::printf("\nreads answered %d (%.1f/s), failed %d, requests %lld, most on the line "
                        "at once %d\n",
                        w.reads, w.reads / w.elapsed, w.errors, line.requests(),
                        line.mostInFlight());
            std::printf("cpu %.3f s = %.2f %% of one core, %.1f us per read answered\n", w.cpu,
                        100.0 * w.cpu / w.elapsed, w.reads > 0 ? 1e6 * w.cpu / w.reads : 0.0);
        });
}
