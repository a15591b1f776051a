// Single setpoint recipes: which rows can be written, the .spr file, and the paced download.

#include "control/frm_single_sp.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "platform/record_grid.h"
#include "support/audit_files.h"
#include "support/test_env.h"

#include <QTest>
#include <QTimer>

namespace {
// Nodes 1 and 2 scanned K40s in tenths, node 3 a scanned K8 profiler, node 4 not scanned.
void plant() {
    for (int c = 0; c < 4; ++c) {
        gTagTable[size_t(3 * c + 1)][2] = QStringLiteral("TIC-%1.SP").arg(c + 1);
        gControlEnabled[size_t(c)] = c != 3;
        gScale[size_t(c)] = 0.1f;
    }
    gControlType[2] = K8RampProfiler;
}

} // namespace

class TstSingleSp : public QObject {
    Q_OBJECT
private slots:
    void lockedRowsTheRecipeFileAndTheDownload();
};

void TstSingleSp::lockedRowsTheRecipeFileAndTheDownload() {
    TestEnv env;
    plant();
    QDir().mkpath(env.path("Recipes"));
    FrmSingleSP window;
    RecordGrid* grid = window.spDataGrid;
    QCOMPARE(grid->rowCount(), 64);
    QCOMPARE(rowOf(grid, 1), (QStringList{"2", "", "TIC-2.SP", ""}));
    QCOMPARE((QList<bool>{window.rowLocked(0), window.rowLocked(2), window.rowLocked(3)}),
             (QList<bool>{false, true, true}));
    QVERIFY(grid->isCellLocked(2, FrmSingleSP::ValueColumn));

    grid->setText(0, FrmSingleSP::ValueColumn, "185.5");
    grid->setText(0, FrmSingleSP::WriteColumn, "1");
    grid->setText(1, FrmSingleSP::ValueColumn, "-12");
    grid->setText(2, FrmSingleSP::ValueColumn, "99"); // a locked row's value means nothing
    grid->setText(2, FrmSingleSP::WriteColumn, "1");
    env.dialogs->chooseFile(env.path("Recipes/zones.spr"));
    window.saveRecipe(); // no file yet: Save As
    QCOMPARE((QStringList{env.dialogs->fileRequests.last().title, window.windowTitle()}),
             (QStringList{"Save .spr Recipe file as?", "Single Setpoint Recipes - zones"}));
    // Enciphered line by line: the 64 values, then the 64 ticks, in their signed text form.
    const QStringList plain = plainLinesOf(env.path("Recipes/zones.spr"));
    QCOMPARE(plain.size(), 128);
    QCOMPARE(plain.mid(0, 3), (QStringList{" 185.5", "-12", " 99"}));
    QCOMPARE(plain.mid(64, 4), (QStringList{" 1", " 0", " 1", " 0"}));

    // Read back into another window: a locked row's cells are cleared.
    FrmSingleSP other;
    env.dialogs->chooseFile(env.path("Recipes/zones.spr"));
    other.openRecipe();
    QCOMPARE(rowOf(other.spDataGrid, 0), (QStringList{"1", "1", "TIC-1.SP", "185.5"}));
    QCOMPARE(rowOf(other.spDataGrid, 2), (QStringList{"3", "0", "TIC-3.SP", ""}));
    QCOMPARE(other.recipeFile, env.path("Recipes/zones.spr"));

    // A damaged line leaves its cell empty and the rest of the recipe stands.
    QByteArray damaged = readBytes(env.path("Recipes/zones.spr"));
    damaged[10] = damaged[10] == 'A' ? 'B' : 'A';
    QVERIFY(writeBytes(env.path("Recipes/damaged.spr"), damaged));
    env.dialogs->boxes.clear();
    env.dialogs->chooseFile(env.path("Recipes/damaged.spr"));
    other.openRecipe();
    QVERIFY(env.dialogs->boxes.isEmpty());
    QCOMPARE((QStringList{other.spDataGrid->text(0, FrmSingleSP::ValueColumn),
                          other.spDataGrid->text(1, FrmSingleSP::ValueColumn)}),
             (QStringList{"", "-12"}));

    // A file cut short, or with text for a setpoint, is refused, the window as it was.
    QVERIFY(writeBytes(env.path("Recipes/cut.spr"), enciphered(plain.mid(0, 100))));
    QStringList text = plain;
    text[1] = QStringLiteral("twelve");
    QVERIFY(writeBytes(env.path("Recipes/text.spr"), enciphered(text)));
    for (const char* name : {"Recipes/cut.spr", "Recipes/text.spr"}) {
        env.dialogs->boxes.clear();
        other.spDataGrid->setText(0, FrmSingleSP::ValueColumn, "150");
        env.dialogs->chooseFile(env.path(name));
        other.openRecipe();
        QCOMPARE(env.dialogs->boxes.size(), 1);
        QVERIFY(env.dialogs->texts()[0].startsWith(
            "Setpoint recipe file is not compatible or damaged."));
        QCOMPARE(other.spDataGrid->text(0, FrmSingleSP::ValueColumn), QStringLiteral("150"));
    }

    // New asks first, and clears values and ticks.
    env.dialogs->answerNext(MsgAnswer::Yes);
    other.newRecipe();
    QCOMPARE((QStringList{env.dialogs->texts().last(), other.statusText()}),
             (QStringList{"Clear all recipe values?", "All fields cleared for new recipe."}));
    QCOMPARE(rowOf(other.spDataGrid, 0), (QStringList{"1", "", "TIC-1.SP", ""}));

    // The download writes each ticked controller in turn. Nothing ticked: the question, and
    // nothing written.
    for (int node : {1, 2, 3, 4})
        env.modbus->nodes[node].holding[1] = 0;
    grid = other.spDataGrid;
    env.dialogs->boxes.clear();
    env.dialogs->answerNext(MsgAnswer::Yes);
    other.downloadRecipe();
    QCOMPARE(env.dialogs->texts(), QStringList{"Download recipe to controllers?"});
    QTest::qWait(120);
    QVERIFY(env.modbus->writes().isEmpty());

    // Register 1 in the controller's scale: 185.5 at 0.1 a count is 1855; an empty value is 0.
    // A locked row is passed over though ticked.
    grid->setText(0, FrmSingleSP::ValueColumn, "185.5");
    for (int row : {0, 1, 2})
        grid->setText(row, FrmSingleSP::WriteColumn, "1");
    env.dialogs->answerNext(MsgAnswer::Yes);
    other.downloadRecipe();
    QCOMPARE(other.statusText(), QStringLiteral("Writing setpoints to controllers, please wait!"));
    QTRY_COMPARE(env.modbus->writes(), (QList<QList<int>>{{1, 1, 1855 + 19999}, {2, 1, 19999}}));
    QCOMPARE(other.statusText(),
             QStringLiteral("Setpoint written to all controllers successfully."));
    QCOMPARE(env.modbus->nodes[1].holding.value(1), 1855 + 19999);

    // A value the register cannot hold is refused before anything is written.
    env.modbus->requests.clear();
    grid->setText(1, FrmSingleSP::ValueColumn, "9999");
    env.dialogs->answerNext(MsgAnswer::Yes);
    other.downloadRecipe();
    QVERIFY(env.dialogs->texts().last().startsWith("The setpoint of TIC-2.SP can not be written"));
    QTest::qWait(120);
    QVERIFY(env.modbus->writes().isEmpty());

    // A controller that does not answer: one box, the earlier one written, the rest dropped.
    grid->setText(1, FrmSingleSP::ValueColumn, "50");
    env.modbus->nodes[2].dead = true;
    env.dialogs->boxes.clear();
    env.dialogs->answerNext(MsgAnswer::Yes);
    other.downloadRecipe();
    QTRY_COMPARE(other.statusText(), QStringLiteral("Error during setpoint writes!"));
    QCOMPARE(env.dialogs->texts().last(),
             QStringLiteral("Error during write of setpoint values.\n\nMake sure write value is "
                            "within\nupper/lower setpoint limits."));
    QCOMPARE(env.modbus->writes().value(0), (QList<int>{1, 1, 1855 + 19999}));
    QVERIFY(!other.ModSpRecipe->running());

    // In simulation nothing is asked and nothing is written.
    env.modbus->requests.clear();
    env.dialogs->boxes.clear();
    gSimMode = true;
    other.downloadRecipe();
    QVERIFY(env.dialogs->boxes.isEmpty());
    QVERIFY(env.modbus->writes().isEmpty());
}

QTEST_MAIN(TstSingleSp)
#include "tst_single_sp.moc"
