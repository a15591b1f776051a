// The plant simulator's register image: the words the link tests take for granted. The same
// blocks over the wire, and the injected faults, show in the link and poll tests' own outcomes.

#include "sim_plant.h"

#include <QtTest>

using namespace sim;

class TstPlantSimulator : public QObject {
    Q_OBJECT

private slots:
    void pollBlocks();
    void profileRunsToTheEndState();
};

// The poll block of each family, word by word (-1: not pinned): the words the workstation
// decodes, pinned here so that the simulator and the decoder cannot agree on a wrong value.
// K40 blocks are holding registers from 129, the profilers' input registers from 1001.
void TstPlantSimulator::pollBlocks() {
    SimPlant plant;
    QString error;
    QVERIFY2(plant.loadText("1 K40 decimal=1 scaled=1 sp=150 pv=148.5 noise=0\n"
                            "2 K40 decimal=0 scaled=1 sp=200 pv=20 noise=0\n"
                            "4 K40 decimal=1 scaled=0 sp=-12.5 pv=80 noise=0\n" // fixed tenths
                            "5 K8 sp=75.5 pv=-5 noise=0\n"
                            "6 K20 sp=120\n"
                            "10 K40 decimal=3 sp=1.5 noise=0\n",
                            &error),
             qPrintable(error));
    const std::pair<int, QList<int>> blocks[]{{1, {21484, 21499, -1, 0, 0x1100}},
                                              {2, {20019, 20199, 10000, 0, 0x1000}},
                                              {4, {20799, 19874, 0, 0, 0x0100}},
                                              {10, {21499, 21499, -1, 0, 0x1300}},
                                              {5, {65536 - 50, 755, 755, 10000, -1, -1, 0, -1, 0}},
                                              {6, {-1, 1200, 1200, -1, -1, -1, 0, -1, 0}}};
    for (const auto& [node, words] : blocks) {
        const int first = words.size() == 5 ? reg::K40Pv : reg::ProfPv;
        for (int i = 0; i < words.size(); ++i)
            if (words.at(i) >= 0)
                QCOMPARE((std::pair{node, int(plant.reg(node, first + i))}),
                         (std::pair{node, words.at(i)}));
    }
}

// The bank overview stops a profile that reports 17: the simulator must get there by itself.
void TstPlantSimulator::profileRunsToTheEndState() {
    SimPlant plant;
    QVERIFY(plant.loadText("7 K20 sp=20 profile=40:1:1\n", nullptr));
    plant.setReg(7, 1082, 1); // run
    QCOMPARE(plant.profileState(7), 1);
    for (int i = 0; i < 40 && plant.profileState(7) != 17; ++i)
        plant.step(1.0); // a minute of the profile lasts a second
    QCOMPARE(plant.profileState(7), 17);
    plant.setReg(7, 1082, 0); // the workstation's stop
    QCOMPARE(plant.profileState(7), 0);
}

QTEST_GUILESS_MAIN(TstPlantSimulator)
#include "tst_plant_simulator.moc"
