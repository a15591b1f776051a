// The profiler: the register block and the recipe file of a profile, the transfers to and from
// a K8, the running-profile rule, and the profile plot.

#include "control/frm_profile.h"
#include "plant/plant_store.h"
#include "platform/plot.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTest>

class TstProfile : public QObject {
    Q_OBJECT
private slots:
    void blockAndRecipeOfAProfile();
    void uploadDownloadAndTheRunningRule();
    void plotOfTheProfile();
};

void TstProfile::blockAndRecipeOfAProfile() {
    Profile p;
    p.setPoints = {100.5, 250, 0, 0, 0, 0, 0, 0};
    p.segTimes[2] = 1; // soak of segment 1: 1 h 30
    p.segTimes[3] = 30;
    p.segTimes[4] = 0.5; // ramp of segment 2: half an hour and 0.4 minutes, rounded as a whole
    p.segTimes[5] = 0.4;
    const std::optional<QVector<quint16>> block = profileBlock(p);
    QVERIFY(block);
    QCOMPARE(block->size(), kProfileRegisters);
    QCOMPARE(block->mid(0, 2), (QVector<quint16>{1005, 2500}));
    QCOMPARE(block->mid(8, 4), (QVector<quint16>{0, 90, 30, 0}));
    const Profile back = profileFromBlock(*block);
    QCOMPARE(back.segTimes[2], 1.0);
    QCOMPARE(back.segTimes[3], 30.0);
    QCOMPARE(back.setPoints[0], 100.5);
    // A value its register cannot hold: nothing to write.
    Profile bad = p;
    bad.setPoints[7] = -1;
    QVERIFY(!profileBlock(bad));
    bad = p;
    bad.segTimes[30] = 1093; // hours: more minutes than a register holds
    QVERIFY(!profileBlock(bad));

    // The recipe: 40 lines, a line that is no number reads as 0; fewer than 40 is no recipe.
    QStringList lines = profileRecipeLines(p);
    QCOMPARE(lines.size(), 40);
    QCOMPARE(lines.mid(0, 2), (QStringList{" 100.5", " 250"}));
    QCOMPARE(parseProfileRecipe(lines), std::optional<Profile>(p));
    lines[1] = QStringLiteral("garbage");
    QCOMPARE(parseProfileRecipe(lines)->setPoints[1], 0.0);
    QVERIFY(!parseProfileRecipe(lines.mid(0, 39)));
    QVERIFY(!parseProfileRecipe(lines + QStringList(17, " 0")));
}

void TstProfile::uploadDownloadAndTheRunningRule() {
    TestEnv env;
    gControlEnabled[5] = gControlEnabled[0] = true;
    gControlType[5] = K8RampProfiler;
    gPvTag[5] = QStringLiteral("KILN-106");
    QVector<quint16> stored(kProfileRegisters, 0);
    stored[0] = 1500;
    stored[9] = 90; // soak of segment 1
    env.modbus->setRegisters(6, 3, kProfileFirstRegister,
                             QList<quint16>(stored.begin(), stored.end()));
    FrmProfile window;
    // Only profilers are listed, and nothing is chosen at first.
    QCOMPARE(window.ProfileCSelect->count(), 1);
    window.uploadProfile();
    QCOMPARE(env.dialogs->texts(), QStringList{"Please select profiler from dropdown list"});

    window.ProfileCSelect->setCurrentIndex(0);
    env.dialogs->answerNext(MsgAnswer::Yes);
    window.uploadProfile();
    QCOMPARE(env.dialogs->boxes.last().title, QStringLiteral("Upload Profile?"));
    QTRY_COMPARE(window.icurFile->text(),
                 QStringLiteral("Profile upload from controller completed!"));
    QCOMPARE(window.pSetPoint[0]->value(), 150.0);
    QCOMPARE(window.segTime[2]->value(), 1);
    QCOMPARE(window.segTime[3]->value(), 30);
    QCOMPARE(window.windowTitle(), QStringLiteral("Profiler - Uploaded from controller"));
    QVERIFY(window.recipeFile.isEmpty());

    // Running a segment: refused. At the end of the profile (17) or stopped: written whole.
    window.pSetPoint[1]->setValue(222.2);
    for (const qint16 running : {qint16(3), qint16(18)}) {
        gProfState[5] = running;
        env.dialogs->answerNext(MsgAnswer::Yes);
        window.downloadProfile();
        QCOMPARE(env.dialogs->texts().last(),
                 QStringLiteral("Profiler # 6 is running. Profile download\nis not allowed while "
                                "profile is active."));
    }
    QCOMPARE(env.modbus->nodes[6].holding.value(kProfileFirstRegister + 1), quint16(0));
    gProfState[5] = 17;
    env.dialogs->answerNext(MsgAnswer::Yes);
    window.downloadProfile();
    QTRY_COMPARE(window.icurFile->text(), QStringLiteral("Profile download completed!"));
    QCOMPARE(env.modbus->nodes[6].holding.value(kProfileFirstRegister + 1), quint16(2222));
    QCOMPARE(env.modbus->nodes[6].holding.value(kProfileFirstRegister + 9), quint16(90));
    QCOMPARE(env.modbus->requests.last().count, kProfileRegisters);

    // A controller that fails: the box, and the fields as they were.
    env.modbus->nodes[6].dead = true;
    env.dialogs->answerNext(MsgAnswer::Yes);
    window.uploadProfile();
    QTRY_COMPARE(env.dialogs->texts().last(),
                 QStringLiteral("Error during read of profile data.\nPlease check control and try "
                                "again."));
    QCOMPARE(window.pSetPoint[1]->value(), 222.2);
}

void TstProfile::plotOfTheProfile() {
    TestEnv env;
    FrmProfile window;
    // A new recipe: every point at the first instant, a step to 32, a span of nothing.
    Plot* plot = window.ProfPlotx1;
    QVector<QPointF> points = plot->points(0);
    QCOMPARE(points.size(), 17);
    QCOMPARE(points[0].y(), 0.0);
    QCOMPARE(points[16], QPointF(points[0].x(), 32));
    QCOMPARE(window.keptXSpan, 0.0);
    QCOMPARE(plot->title(), QStringLiteral("Profile Plot (No Name)"));

    // One hour of ramp and half an hour of soak: 90 minutes and the margin of five percent.
    window.segTime[0]->setValue(1);
    window.segTime[3]->setValue(30);
    window.rebuildPlot();
    points = plot->points(0);
    auto seconds = [](double days) {
        return qRound64(days * 86400);
    };
    QCOMPARE(seconds(points[1].x() - points[0].x()), 3600);
    QCOMPARE(seconds(points[2].x() - points[0].x()), 5400);
    QCOMPARE(seconds(window.keptXSpan), 5670);
    window.DateSlider->setValue(99);
    QCOMPARE(plot->xSpan(), 0.01 * window.keptXSpan);

    // The colours go to the plot at once and are kept at the close.
    env.dialogs->colours = {QColor(0, 255, 0)};
    window.iLineColor->click();
    QCOMPARE(plot->channelColor(0), 65280);
    QVERIFY(window.close());
    QCOMPARE(env.settings->value("Profiler", "TlineColor", ""), QStringLiteral("65280"));
}

QTEST_MAIN(TstProfile)
#include "tst_profile.moc"
