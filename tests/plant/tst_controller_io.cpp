#include "plant/controller_io.h"
#include "plant/plant_store.h"
#include "support/test_env.h"

#include <QTest>

class TstControllerIo : public QObject {
    Q_OBJECT
private slots:
    void setpointsEncodeByFamily();
    void writesGoOutOnTheirOwnControl();
};

void TstControllerIo::setpointsEncodeByFamily() {
    TestEnv env;
    gControlType[0] = K40Series;
    gControlType[1] = K8RampProfiler;
    gControlType[2] = K20RampProfiler;
    const auto write = [](int row, float scale, double value) {
        gScale[row] = scale;
        const SetpointWrite w = setpointWrite(row, value);
        return std::pair{w.registerNumber, w.raw};
    };
    QCOMPARE(write(0, 0.1F, 100.5), (std::pair{1, 21004}));
    QCOMPARE(write(0, 1.0F, 100), (std::pair{1, 20099}));
    QCOMPARE(write(0, 1.0F, 45536), (std::pair{1, 65535})); // above 32767: sent as 32 bits
    QCOMPARE(write(1, 1.0F, 75.5), (std::pair{1003, 755}));
    QCOMPARE(write(2, 1.0F, -12.5), (std::pair{1003, -125}));
}

void TstControllerIo::writesGoOutOnTheirOwnControl() {
    TestEnv env;
    gControlType[4] = K8RampProfiler;
    env.modbus->setRegisters(1, 3, 1, {0});
    env.modbus->setRegisters(5, 3, 1003, {0});
    ControllerIo io;
    io.writeToControllerProcedure(1, 1, 45000);
    QTRY_COMPARE(env.modbus->nodes[1].holding[1], quint16(45000));
    io.writeToControllerProcedure(5, 1003, -125);
    QTRY_COMPARE(env.modbus->nodes[5].holding[1003], quint16(65536 - 125));
    const ModbusRequest& r = env.modbus->requests.last();
    QCOMPARE((QList<int>{r.node, r.dataArea, r.firstRegister, r.count, r.direction}),
             (QList<int>{5, 3, 1003, 1, 1}));
    // In simulation nothing goes out at all.
    gSimMode = true;
    io.writeToControllerProcedure(1, 1, 20000);
    QTest::qWait(20);
    QCOMPARE(env.modbus->requests.size(), 2);
    // A failed write is the stop box, at once.
    gSimMode = false;
    env.modbus->nodes[7].dead = true;
    io.writeToControllerProcedure(7, 1, 20000);
    QTRY_COMPARE(
        env.dialogs->texts(),
        QStringList{"Error during write to controller!\nDevice did not respond in 1 sec."});
}

QTEST_MAIN(TstControllerIo)
#include "tst_controller_io.moc"
