// Loop tuning: the revision rule, the .tun file, reading and writing the tuning block against a
// controller, the auto-tune command, and the plot's rate.

#include "control/frm_tune_settings.h"
#include "plant/plant_store.h"
#include "plant/register_codec.h"
#include "platform/bar_display.h"
#include "platform/plot.h"
#include "records/record_file.h"
#include "support/test_env.h"

#include <QComboBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QRadioButton>
#include <QTest>

namespace {
// Node 1, a K40 in tenths, with a tuning block of revision 40, auto-tune off.
void controller(TestEnv& env) {
    gControlEnabled[0] = true;
    gActiveList = {1, 0};
    gActiveCount = 1;
    gPvTag[0] = QStringLiteral("TIC-101");
    gDecimal[0] = 1;
    gScale[0] = 0.1f;
    env.modbus->setRegisters(1, 3, 11, {125, 240, 45, 30, 19999 + 50});
    env.modbus->setRegisters(1, 3, 141, {1240, 0, 0});
    noteReadAnswered(0);
}
} // namespace

class TstTuneSettings : public QObject {
    Q_OBJECT
private slots:
    void revisionRuleAndTuneFile();
    void readAndWriteTheTuningBlockAndTheAutoTune();
    void tuneFilesKeepTheValuesAndRefuseDamage();
    void choicesChangedWhileTheLinkWorks();
    void signedWordsAndABandBeyondItsLimits();
};

void TstTuneSettings::revisionRuleAndTuneFile() {
    QCOMPARE(
        (QList<int>{dbRevisionOf(1239), dbRevisionOf(1240), dbRevisionOf(40), dbRevisionOf(5)}),
        (QList<int>{39, 40, 40, 39}));
    TuneSetup s;
    s.propBand = 12.5;
    s.deadBand = -3;
    s.autoTuneOn = true;
    s.autoTuneOff = false;
    s.plotTrend = 4;
    s.tickMs = 1000;
    QStringList lines = tuneFileLines(s);
    QCOMPARE(lines.size(), 11);
    QCOMPARE(lines.mid(4, 3), (QStringList{"-3", "True", "False"}));
    QCOMPARE(parseTuneFile(lines), std::optional<TuneSetup>(s));
    // A damaged line deciphers empty and reads as zero; a twelfth, empty line is the table's last.
    QStringList emptied = lines;
    emptied[0] = emptied[5] = QString();
    const std::optional<TuneSetup> read = parseTuneFile(emptied + QStringList{QString()});
    QVERIFY(read && read->propBand == 0 && !read->autoTuneOn && read->deadBand == -3);
    // No tuning file: text for a value, a switch that is no switch, a file cut short or too long.
    for (const auto& [row, text] : {std::pair{0, "12.5x"}, {4, "five"}, {5, "Yes"}, {10, "1e9"}}) {
        QStringList damaged = lines;
        damaged[row] = QString::fromLatin1(text);
        QVERIFY2(!parseTuneFile(damaged), text);
    }
    QVERIFY(!parseTuneFile(lines.mid(0, 10)) && !parseTuneFile(lines + QStringList{"1", "2"}));
}

void TstTuneSettings::readAndWriteTheTuningBlockAndTheAutoTune() {
    TestEnv env;
    controller(env);
    FrmTuneSettings window;
    window.readValues();
    QTRY_COMPARE(window.statusText(),
                 QStringLiteral("Controller tuning values read from controller."));
    QCOMPARE((QList<double>{window.PBValueX1->value(), window.ResetValueX1->value(),
                            window.RateValueX1->value(), window.CoolPBX1->value(),
                            window.dbX1->value()}),
             (QList<double>{12.5, 240, 4.5, 30, 5}));
    QVERIFY(window.Option2->isChecked() && window.dbRevision == 40);

    // Prepare, then registers 11 to 15 one at a time, the dead band with its offset.
    window.PBValueX1->setValue(15);
    env.modbus->requests.clear();
    window.writeValues();
    QTRY_COMPARE(window.statusText(), QStringLiteral("Tuning values written to controller."));
    const int m = rawMultiplier(0);
    QCOMPARE(env.modbus->writes(), (QList<QList<int>>{{1, 143, 26661},
                                                      {1, 11, 15 * m},
                                                      {1, 12, 240},
                                                      {1, 13, 45},
                                                      {1, 14, 30},
                                                      {1, 15, 5 * m + 19999}}));

    // A value its register cannot hold (a dead band of 50 in thousandths): refused before
    // anything is written.
    env.modbus->requests.clear();
    gDecimal[0] = 3;
    window.dbX1->setValue(50);
    window.writeValues();
    QTest::qWait(150);
    QVERIFY(env.modbus->writes().isEmpty());
    QVERIFY(env.dialogs->texts().last().startsWith("Error during write of tuning values."));
    gDecimal[0] = 1;

    // The plot takes a point every plotTrend + 1 ticks, on every tick at 0.
    gPV[0] = 181.5;
    window.Timer1->stop();
    window.timerCounter = 0;
    const qsizetype before = window.iPlotX->points(0).size();
    window.timer1Tick();
    window.timer1Tick();
    QCOMPARE(window.iPlotX->points(0).size(), before + 2);
    window.plotTrend = 2;
    for (int tick = 0; tick < 3; ++tick)
        window.timer1Tick();
    QCOMPARE(window.iPlotX->points(0).size(), before + 3);
    QCOMPARE(window.iPlotX->points(0).last().y(), 181.5);

    // The older revision with auto-tune running.
    env.modbus->setRegisters(1, 3, 141, {1239, 2, 0});
    window.readValues();
    QTRY_COMPARE(window.statusText(),
                 QStringLiteral("Controller tuning values read from controller."));
    // Revision 39: no dead band; auto-tune running: the PID fields locked.
    QCOMPARE((QList<double>{double(window.dbRevision), window.dbX1->value()}),
             (QList<double>{39, 0}));
    QVERIFY(window.Option1->isChecked() && !window.PBValueX1->isEnabled());

    // With auto-tune on, only the start command goes out.
    env.modbus->requests.clear();
    window.writeValues();
    QTRY_COMPARE(window.statusText(), QStringLiteral("Auto-tune inititated."));
    QCOMPARE(env.modbus->writes(), (QList<QList<int>>{{1, 143, 26664}}));

    // Off: the sequence ends after register 14 on this revision.
    window.Option2->setChecked(true);
    env.modbus->requests.clear();
    window.writeValues();
    QTRY_COMPARE(window.statusText(), QStringLiteral("Tuning values written to controller."));
    QCOMPARE(env.modbus->writes().size(), 5);
    QCOMPARE(env.modbus->writes().last()[1], 14);
}

void TstTuneSettings::tuneFilesKeepTheValuesAndRefuseDamage() {
    TestEnv env;
    controller(env);
    QDir().mkpath(env.path("Tuning Files"));
    FrmTuneSettings window;
    window.PBValueX1->setValue(22.5);
    window.ResetValueX1->setValue(300);
    const TuneSetup saved = window.currentSetup();
    env.dialogs->chooseFile(env.path("Tuning Files/zone.a.tun"));
    window.saveTuneFile();
    QCOMPARE(window.windowTitle(), QStringLiteral("Loop Tuning - zone"));

    // Spans far from 1 are kept in plain decimal, as other readers of the format take them.
    TuneSetup wide = saved;
    wide.ySpan = 1e5;
    wide.xSpanDays = 1e-5;
    QCOMPARE(tuneFileLines(wide).mid(7, 2), (QStringList{" 100000", " 0.00001"}));
    QCOMPARE(parseTuneFile(tuneFileLines(wide)), std::optional(wide));

    // Opened again, the file gives back what was saved; nothing goes to the controller.
    window.PBValueX1->setValue(1);
    env.dialogs->chooseFile(env.path("Tuning Files/zone.a.tun"));
    window.openTuneFile();
    QCOMPARE(window.currentSetup(), saved);
    QVERIFY(env.modbus->writes().isEmpty());

    // A value that is text, or a file cut short: one box, the window as it was.
    QStringList lines = tuneFileLines(saved);
    lines[1] = QStringLiteral("three hundred");
    for (const QStringList& bad : {lines, tuneFileLines(saved).mid(0, 6)}) {
        QVERIFY(writeEncipheredLines(env.path("Tuning Files/bad.tun"), bad));
        window.PBValueX1->setValue(7);
        env.dialogs->chooseFile(env.path("Tuning Files/bad.tun"));
        window.openTuneFile();
        QVERIFY(env.dialogs->texts().last().startsWith(
            "Tuning file is not compatible or damaged. Please select another file."));
        QCOMPARE((QList<double>{window.PBValueX1->value(), window.ResetValueX1->value()}),
                 (QList<double>{7, 300}));
        QCOMPARE(window.windowTitle(), QStringLiteral("Loop Tuning - zone"));
    }
}

void TstTuneSettings::choicesChangedWhileTheLinkWorks() {
    TestEnv env;
    controller(env);
    gControlEnabled[1] = true;
    gPvTag[1] = QStringLiteral("TIC-102");
    gDecimal[1] = 1;
    gScale[1] = 1.0f; // a scale of its own, that the first controller's values must not take
    env.modbus->setRegisters(2, 3, 11, {9, 60, 0, 0, 19999});
    FrmTuneSettings window;
    window.Timer1->stop();

    // A read finishes on the controller it began with, whatever is selected meanwhile.
    env.modbus->manual = true;
    window.readValues();
    window.ControlTuneSelect->setCurrentIndex(1);
    env.modbus->deliverAll();
    QTRY_COMPARE(env.modbus->requests.size(), 2);
    QCOMPARE(env.modbus->requests.last().node, 1);
    env.modbus->deliverAll();
    QTRY_COMPARE(window.statusText(),
                 QStringLiteral("Controller tuning values read from controller."));
    QCOMPARE(window.PBValueX1->value(), 12.5);

    // Auto-tune turned On part way through a write: the start command replaces the rest.
    env.modbus->requests.clear();
    window.writeValues();
    QTRY_COMPARE(env.modbus->requests.size(), 1);
    window.Option1->setChecked(true);
    while (env.modbus->deliverAll() > 0)
        QTest::qWait(60);
    QCOMPARE(env.modbus->writes(), (QList<QList<int>>{{2, 143, 26661}, {2, 143, 26664}}));
    QCOMPARE(window.statusText(), QStringLiteral("Auto-tune inititated."));

    // A tuning file's value span rescales the process value and setpoint bars, not the output.
    TuneSetup setup = window.currentSetup();
    setup.ySpan = 400;
    window.applySetup(setup);
    gPV[1] = 200;
    gPctOut[1] = 50;
    window.theCurrAddress = 1;
    window.plotTrend = 0;
    window.timer1Tick();
    const BarDisplay& bars = *window.levelBars;
    QCOMPARE(
        (QList<double>{bars.barPosition(0) / bars.maximum(), bars.barPosition(2) / bars.maximum()}),
        (QList<double>{0.5, 0.5}));
}

void TstTuneSettings::signedWordsAndABandBeyondItsLimits() {
    TestEnv env;
    controller(env);
    // A band of 600.0 where the field ends at 5000 x 0.1; a negative reset, rate and cool band.
    env.modbus->setRegisters(1, 3, 11, {6000, 65535, 65531, 65000, 19999 + 50});
    FrmTuneSettings window;
    window.PBValueX1->setValue(12);
    window.readValues();
    QTRY_COMPARE(window.statusText(),
                 QStringLiteral("Controller tuning values read from controller."));
    QCOMPARE((QList<double>{window.PBValueX1->value(), window.ResetValueX1->value(),
                            window.RateValueX1->value(), window.CoolPBX1->value()}),
             (QList<double>{12, -1, -0.5, -536}));
    QCOMPARE(env.dialogs->texts(),
             QStringList{"Prop Band: the controller holds 600.0, beyond this field's limits (0.0 "
                         "to 500.0).\n\nSuch a field keeps what it showed and is not written "
                         "until a value is typed into it."});

    // Not written until typed; then every signed word goes back as it was read.
    window.writeValues();
    QVERIFY(env.dialogs->texts().last().startsWith("Nothing was written."));
    QVERIFY(env.modbus->writes().isEmpty());
    window.PBValueX1->selectAll();
    QTest::keyClicks(window.PBValueX1, "25");
    window.writeValues();
    QTRY_COMPARE(window.statusText(), QStringLiteral("Tuning values written to controller."));
    QCOMPARE(env.modbus->writes(), (QList<QList<int>>{{1, 143, 26661},
                                                      {1, 11, 250},
                                                      {1, 12, 65535},
                                                      {1, 13, 65531},
                                                      {1, 14, 65000},
                                                      {1, 15, 19999 + 50}}));
}

QTEST_MAIN(TstTuneSettings)
#include "tst_tune_settings.moc"
