// The profiler: the register block and the recipe file of a profile, the transfers to and from
// a K8, the running-profile rule, and the profile plot.

#include "control/frm_profile.h"
#include "plant/plant_store.h"
#include "platform/placement.h"
#include "platform/plot.h"
#include "records/record_file.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
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
    void plotUploadDownloadAndTheRunningRule();
    void enterStepsThroughTheSegments();
    void signedWordsComeBackAsTheyWere();
};

void TstProfile::blockAndRecipeOfAProfile() {
    Profile p;
    p.setPoints = {100.5, 250, 0, 0, 0, 0, 0, 0};
    p.segTimes[2] = 1; // soak of segment 1: 1 h 30
    p.segTimes[3] = 30;
    p.segTimes[4] = 0.5; // ramp of segment 2: half an hour and 0.4 minutes, rounded as a whole
    p.segTimes[5] = 0.4;
    const std::optional<QVector<quint16>> block = profileBlock(p);
    QCOMPARE(block, (QVector<quint16>{1005, 2500, 0, 0, 0, 0, 0, 0, 0, 90, 30, 0,
                                      0,    0,    0, 0, 0, 0, 0, 0, 0, 0,  0,  0}));
    const Profile back = profileFromBlock(*block);
    QCOMPARE(
        (QList<double>{back.segTimes[2], back.segTimes[3], back.segTimes[4], back.setPoints[0]}),
        (QList<double>{1, 30, 0, 100.5}));
    // A value its signed register cannot hold: nothing to write.
    Profile bad = p;
    bad.setPoints[7] = 3276.8;
    QVERIFY(!profileBlock(bad));
    bad.setPoints[7] = -3276.9;
    QVERIFY(!profileBlock(bad));
    bad = p;
    bad.segTimes[30] = 546; // hours: 546 h 8 min is one minute more than a register holds
    bad.segTimes[31] = 8;
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

void TstProfile::plotUploadDownloadAndTheRunningRule() {
    TestEnv env;
    gControlEnabled[5] = gControlEnabled[0] = true;
    gControlType[5] = K8RampProfiler;
    gPvTag[5] = QStringLiteral("KILN-106");
    // A first setpoint of 150.0 and a soak of 1 h 30 in segment 1; the rest of the block 0.
    env.modbus->setRegisters(6, 3, kProfileFirstRegister, {1500, 0, 0, 0, 0, 0, 0, 0, 0, 90, 0, 0,
                                                           0,    0, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0});
    FrmProfile window;
    // A new recipe: every point at the first instant, a step to 32, a span of nothing.
    Plot* plot = window.ProfPlotx1;
    QVector<QPointF> points = plot->points(0);
    QCOMPARE((QList<double>{double(points.size()), points[0].y(), points[16].x() - points[0].x(),
                            points[16].y(), window.keptXSpan}),
             (QList<double>{17, 0, 0, 32, 0}));
    QCOMPARE(plot->title(), QStringLiteral("Profile Plot (No Name)"));

    // One hour of ramp and half an hour of soak: 90 minutes and the margin of five percent.
    window.segTime[0]->setValue(1);
    window.segTime[3]->setValue(30);
    window.rebuildPlot();
    points = plot->points(0);
    QCOMPARE((QList<qint64>{qRound64((points[1].x() - points[0].x()) * 86400),
                            qRound64((points[2].x() - points[0].x()) * 86400),
                            qRound64(window.keptXSpan * 86400)}),
             (QList<qint64>{3600, 5400, 5670}));
    window.DateSlider->setValue(99);
    QCOMPARE(plot->xSpan(), 0.01 * window.keptXSpan);

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
    QCOMPARE((QList<double>{window.pSetPoint[0]->value(), double(window.segTime[2]->value()),
                            double(window.segTime[3]->value())}),
             (QList<double>{150, 1, 30}));
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
    const auto& holding = env.modbus->nodes[6].holding;
    QCOMPARE(
        (QList<int>{holding.value(kProfileFirstRegister + 1),
                    holding.value(kProfileFirstRegister + 9), env.modbus->requests.last().count}),
        (QList<int>{2222, 90, 24}));

    // A controller that fails: the box, and the fields as they were.
    env.modbus->nodes[6].dead = true;
    env.dialogs->answerNext(MsgAnswer::Yes);
    window.uploadProfile();
    QTRY_COMPARE(env.dialogs->texts().last(),
                 QStringLiteral("Error during read of profile data.\nPlease check control and try "
                                "again."));
    QCOMPARE(window.pSetPoint[1]->value(), 222.2);

    // The colours go to the plot at once and are kept at the close.
    env.dialogs->colours = {QColor(0, 255, 0)};
    window.iLineColor->click();
    QCOMPARE(plot->channelColor(0), 65280);
    QVERIFY(window.close());
    QCOMPARE(env.settings->value("Profiler", "TlineColor", ""), QStringLiteral("65280"));
}

void TstProfile::enterStepsThroughTheSegments() {
    TestEnv env;
    FrmProfile window;
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    auto enter = [](QWidget* field) {
        field->setFocus();
        QTest::keyClick(field, Qt::Key_Return);
        return QApplication::focusWidget();
    };
    // From a segment's soak minutes to its setpoint, taken as typed, then to the next segment.
    QCOMPARE(enter(window.segTime[3]), window.pSetPoint[0]);
    window.pSetPoint[0]->selectAll();
    QTest::keyClicks(window.pSetPoint[0], "150");
    QCOMPARE(enter(window.pSetPoint[0]), window.segTime[4]);
    QCOMPARE(window.pSetPoint[0]->value(), 150.0);
    // Elsewhere, and after the last setpoint, Enter leaves the focus where it is.
    QCOMPARE(enter(window.segTime[1]), window.segTime[1]);
    QCOMPARE(enter(window.pSetPoint[7]), window.pSetPoint[7]);
    // Minutes past the hour stand as entered: the controller takes the count whole.
    window.segTime[1]->setValue(90);
    QCOMPARE(profileBlock(window.profile())->value(8), quint16(90));

    // The window keeps its place in its own section.
    auto* other = new FrmProfile;
    other->move(40, 30);
    const double tpp = twipsPerPixel(other);
    other->close();
    QCOMPARE(env.settings->value("Profiler", "MainLeft", ""), QString::number(qRound(40 * tpp)));
}

void TstProfile::signedWordsComeBackAsTheyWere() {
    TestEnv env;
    gControlEnabled[5] = true;
    gControlType[5] = K8RampProfiler;
    // Negative tenths and counts, both ends of a signed word, counts past the hour.
    const QVector<quint16> block{65511, 32768, 32767, 0,     1,     65535, 1005, 50000,
                                 65511, 32768, 32767, 90,    0,     65535, 61,   59,
                                 1,     3600,  32708, 32709, 40000, 65476, 7,    65000};
    env.modbus->setRegisters(6, 3, kProfileFirstRegister, block);
    FrmProfile window;
    window.ProfileCSelect->setCurrentIndex(0);
    env.dialogs->answerNext(MsgAnswer::Yes);
    window.uploadProfile();
    QTRY_COMPARE(window.icurFile->text(),
                 QStringLiteral("Profile upload from controller completed!"));
    // The signed word -25 is -2.5, and -25 minutes stand as 0 h and -25 min.
    QCOMPARE(
        (QList<double>{window.pSetPoint[0]->value(), window.pSetPoint[1]->value(),
                       double(window.segTime[0]->value()), double(window.segTime[1]->value())}),
        (QList<double>{-2.5, -3276.8, 0, -25}));
    QCOMPARE(profileBlock(window.profile()), std::optional(block));

    // Kept in a recipe as the signed value, opened again as it was.
    QDir().mkpath(gAppPath + QStringLiteral("/Recipes"));
    env.dialogs->chooseFile(gAppPath + QStringLiteral("/Recipes/neg.rec"));
    window.saveRecipe();
    QCOMPARE(profileRecipeLines(window.profile()).value(0), QStringLiteral("-2.5"));
    window.newRecipe();
    env.dialogs->chooseFile(gAppPath + QStringLiteral("/Recipes/neg.rec"));
    window.openRecipe();
    QCOMPARE(profileBlock(window.profile()), std::optional(block));

    // Downloaded, every word goes back unchanged.
    env.modbus->setRegisters(6, 3, kProfileFirstRegister, QVector<quint16>(24, 0));
    gProfState[5] = 0;
    env.dialogs->answerNext(MsgAnswer::Yes);
    window.downloadProfile();
    QTRY_COMPARE(window.icurFile->text(), QStringLiteral("Profile download completed!"));
    QVector<quint16> written;
    for (int i = 0; i < 24; ++i)
        written << env.modbus->nodes[6].holding.value(kProfileFirstRegister + i);
    QCOMPARE(written, block);

    // A recipe whose value no field can show is refused whole, not clipped.
    QStringList lines = profileRecipeLines(window.profile());
    lines[2] = QStringLiteral(" 5000");
    QVERIFY(writeEncipheredLines(gAppPath + QStringLiteral("/Recipes/big.rec"), lines));
    env.dialogs->chooseFile(gAppPath + QStringLiteral("/Recipes/big.rec"));
    window.openRecipe();
    QVERIFY(env.dialogs->texts().last().startsWith(
        QStringLiteral("Recipe file is not compatible or damaged.")));
    QCOMPARE(window.pSetPoint[2]->value(), 3276.7);
}

QTEST_MAIN(TstProfile)
#include "tst_profile.moc"
