#include "platform/record_grid.h"

#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>
#include <QHeaderView>
#include <QLineEdit>
#include <QPrinter>
#include <QProcess>
#include <QProgressDialog>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

QString cellName(int row, int column) {
    return QStringLiteral("r%1c%2")
        .arg(row, 4, 10, QLatin1Char('0'))
        .arg(column, 2, 10, QLatin1Char('0'));
}

void fill(RecordGrid& grid, int rows, int columns) {
    grid.setColumnCount(columns);
    RecordGrid::BulkLoad bulk(grid);
    for (int r = 0; r < rows; ++r) {
        QStringList fields;
        for (int c = 0; c < columns; ++c)
            fields << cellName(r, c);
        grid.appendRow(fields);
    }
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The grid's cells row by row, fields joined with '|'.
QStringList cells(const RecordGrid& grid) {
    QStringList rows;
    for (int r = 0; r < grid.rowCount(); ++r) {
        QStringList fields;
        for (int c = 0; c < grid.columnCount(); ++c)
            fields << grid.text(r, c);
        rows << fields.join(u'|');
    }
    return rows;
}

// The text of each page of a PDF, or an empty list when it cannot be read.
QStringList pdfPages(const QString& path) {
    QProcess process;
    process.start(QStringLiteral("pdftotext"),
                  {QStringLiteral("-layout"), path, QStringLiteral("-")});
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return {};
    QStringList pages = QString::fromUtf8(process.readAllStandardOutput()).split(u'\f');
    if (!pages.isEmpty() && pages.last().trimmed().isEmpty())
        pages.removeLast();
    return pages;
}

void preparePdf(QPrinter& printer, const QString& path) {
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setPageSize(QPageSize(QPageSize::A4));
    printer.setPageOrientation(QPageLayout::Portrait);
    printer.setOutputFileName(path);
}

qint64 residentKb() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

} // namespace

class TstRecordGrid : public QObject {
    Q_OBJECT
private slots:
    void init();

    void textOutsideTheGrid_data();
    void textOutsideTheGrid();
    void rowFieldsStopAtTheLastColumn();
    void rowCountKeepsTheOtherRows();
    void fewerColumnsForgetTheirFields();
    void longRowsKeepTheirFields();

    void exportWritesTheFormat_data();
    void exportWritesTheFormat();
    void loadReadsTheFile_data();
    void loadReadsTheFile();
    void failedLoadLeavesTheGrid();
    void exportIntoAMissingFolderFails();

    void locksShowInTheFlags_data();
    void locksShowInTheFlags();
    void checkBoxCellsToggle();
    void comboCellsShowTheirItem();
    void onlyUserEditsAreReported();
    void editorsCommitTheUsersChoice();
    void doubleClickNamesTheCell();

    void selectedBlockBoundsTheSelection();
    void columnWidthsSurviveAReload();

    void footerCodes_data();
    void footerCodes();
    void printsPagesWithHeaderTitlesAndFooter();
    void printsOnlyTheSelectedBlock();
    void printsWideColumnsOnFurtherPages();
    void printStopsWhenCancelled();
    void printFailsWithoutAPrinter();

    void bulkLoadOfAHundredThousandRows();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TstRecordGrid::init() {
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TstRecordGrid::textOutsideTheGrid_data() {
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<bool>("inside");
    QTest::newRow("first") << 0 << 0 << true;
    QTest::newRow("last") << 2 << 3 << true;
    QTest::newRow("row -1") << -1 << 0 << false;
    QTest::newRow("row = count") << 3 << 0 << false;
    QTest::newRow("column -1") << 0 << -1 << false;
    QTest::newRow("column = count") << 0 << 4 << false;
    QTest::newRow("far away") << 1000000 << 1000000 << false;
}

void TstRecordGrid::textOutsideTheGrid() {
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(bool, inside);
    RecordGrid grid;
    grid.setColumnCount(4);
    grid.setRowCount(3);
    const QStringList before = cells(grid);
    grid.setText(row, column, QStringLiteral("x é"));
    QCOMPARE(grid.text(row, column), inside ? QStringLiteral("x é") : QString());
    QCOMPARE(grid.rowCount(), 3);
    QCOMPARE(grid.columnCount(), 4);
    if (!inside)
        QCOMPARE(cells(grid), before);
    grid.setText(row, column, QString());
    QCOMPARE(cells(grid), before);
}

void TstRecordGrid::rowFieldsStopAtTheLastColumn() {
    RecordGrid grid;
    grid.setColumnCount(3);
    QVERIFY(grid.setRowFields(4, {"a", "b", "c", "d", "e"}));
    QCOMPARE(grid.rowCount(), 5);
    QCOMPARE(grid.columnCount(), 3);
    QCOMPARE(cells(grid).at(4), QStringLiteral("a|b|c"));
    QCOMPARE(cells(grid).at(3), QStringLiteral("||"));
    grid.setColumnCount(5);
    QCOMPARE(grid.text(4, 3), QString()); // dropped, not hidden
    QVERIFY(grid.setRowFields(4, {"x"}));
    QCOMPARE(cells(grid).at(4), QStringLiteral("x||||"));
    QVERIFY(!grid.setRowFields(-1, {"x"}));
    QVERIFY(!grid.setRowFields(RecordGridModel::kMaxRows, {"x"}));
    QCOMPARE(grid.rowCount(), 5);
}

void TstRecordGrid::rowCountKeepsTheOtherRows() {
    RecordGrid grid;
    fill(grid, 5, 2);
    grid.setRowColors(4, Qt::blue, Qt::white);
    grid.setRowLocked(4, true);
    QVERIFY(grid.setRowCount(3));
    QCOMPARE(cells(grid), QStringList({cellName(0, 0) + "|" + cellName(0, 1),
                                       cellName(1, 0) + "|" + cellName(1, 1),
                                       cellName(2, 0) + "|" + cellName(2, 1)}));
    QVERIFY(grid.setRowCount(6));
    QCOMPARE(cells(grid).mid(2),
             QStringList({cellName(2, 0) + "|" + cellName(2, 1), "|", "|", "|"}));
    // The removed row's colour and lock do not come back with the new one.
    const QModelIndex returned = grid.gridModel()->index(4, 0);
    QVERIFY(!returned.data(Qt::BackgroundRole).isValid());
    QVERIFY(!grid.isCellLocked(4, 0));
    QVERIFY(!grid.setRowCount(-1));
    QVERIFY(!grid.setRowCount(RecordGridModel::kMaxRows + 1));
    QCOMPARE(grid.rowCount(), 6);
    grid.clearText();
    QCOMPARE(cells(grid), QStringList(6, "|"));
    grid.clearRows();
    QCOMPARE(grid.rowCount(), 0);
    QCOMPARE(grid.columnCount(), 2);
}

void TstRecordGrid::fewerColumnsForgetTheirFields() {
    RecordGrid grid;
    fill(grid, 2, 4);
    QVERIFY(grid.setColumnCount(2));
    QVERIFY(grid.setColumnCount(4));
    QCOMPARE(cells(grid).at(1), cellName(1, 0) + "|" + cellName(1, 1) + "||");
    QVERIFY(!grid.setColumnCount(RecordGridModel::kMaxColumns + 1));
}

void TstRecordGrid::longRowsKeepTheirFields() {
    RecordGrid grid;
    grid.setColumnCount(4);
    const QString longAscii(70000, u'x');
    const QString longLatin(40000, u'\u00e9'); // two bytes each in the row
    QVERIFY(grid.setRowFields(0, {"a", longAscii, "\u00fc", ""}));
    QVERIFY(grid.setRowFields(1, {longLatin, "b", longLatin}));
    QCOMPARE(grid.text(0, 0), QStringLiteral("a"));
    QCOMPARE(grid.text(0, 1), longAscii);
    QCOMPARE(grid.text(0, 2), QStringLiteral("\u00fc"));
    QCOMPARE(grid.text(1, 1), QStringLiteral("b"));
    QCOMPARE(grid.text(1, 2), longLatin);
    grid.setText(0, 1, "short"); // the row packs small again
    QCOMPARE(cells(grid).at(0), QStringLiteral("a|short|\u00fc|"));
    grid.setText(1, 0, "");
    QCOMPARE(grid.text(1, 2), longLatin);
    QCOMPARE(grid.text(1, 0), QString());
}

void TstRecordGrid::exportWritesTheFormat_data() {
    QTest::addColumn<QString>("columnDelimiter");
    QTest::addColumn<QString>("rowDelimiter");
    QTest::addColumn<QString>("cellDelimiter");
    QTest::addColumn<bool>("titles");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("comma, CRLF") << ","
                                 << "\r\n"
                                 << "" << false << QByteArray("a,,c\r\n,\xE9\xB0,\r\n");
    QTest::newRow("tab, LF, titles")
        << "\t"
        << "\n"
        << "" << true << QByteArray("T1\tT\xFC\tT3\na\t\tc\n\t\xE9\xB0\t\n");
    QTest::newRow("quoted") << ","
                            << "\r\n"
                            << "\"" << false
                            << QByteArray("\"a\",\"\",\"c\"\r\n\"\",\"\xE9\xB0\",\"\"\r\n");
    QTest::newRow("quoted, titles, long delimiters")
        << ";;"
        << "<EOL>"
        << "'" << true
        << QByteArray("'T1';;'T\xFC';;'T3'<EOL>'a';;'';;'c'<EOL>'';;'\xE9\xB0';;''<EOL>");
}

void TstRecordGrid::exportWritesTheFormat() {
    QFETCH(QString, columnDelimiter);
    QFETCH(QString, rowDelimiter);
    QFETCH(QString, cellDelimiter);
    QFETCH(bool, titles);
    QFETCH(QByteArray, expected);
    const GridTextFormat format{columnDelimiter, rowDelimiter, cellDelimiter, titles};
    RecordGrid grid;
    grid.setColumnTitles({"T1", "Tü", "T3"});
    grid.appendRow({"a", "", "c"});
    grid.appendRow({"", "é°"});
    const QString path = m_dir->filePath("out.txt");
    QString error;
    QVERIFY2(grid.exportText(path, format, &error), qPrintable(error));
    QCOMPARE(readFile(path), expected);

    RecordGrid back;
    QVERIFY2(back.loadText(path, format, &error), qPrintable(error));
    QCOMPARE(cells(back), cells(grid));
    if (titles)
        QCOMPARE(back.columnTitle(1), QStringLiteral("Tü"));
}

void TstRecordGrid::loadReadsTheFile_data() {
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("cellDelimiter");
    QTest::addColumn<bool>("titles");
    QTest::addColumn<QStringList>("rows");
    QTest::addColumn<QString>("secondTitle");
    QTest::newRow("final delimiter")
        << QByteArray("1,2\r\n3,4\r\n") << "" << false << QStringList{"1|2", "3|4"} << "";
    QTest::newRow("no final delimiter")
        << QByteArray("1,2\r\n3,4") << "" << false << QStringList{"1|2", "3|4"} << "";
    QTest::newRow("empty file") << QByteArray() << "" << false << QStringList() << "";
    QTest::newRow("blank line inside")
        << QByteArray("1\r\n\r\n2\r\n") << "" << false << QStringList{"1", "", "2"} << "";
    QTest::newRow("ragged lines") << QByteArray("1\r\n1,2,3\r\n1,2\r\n") << "" << false
                                  << QStringList{"1||", "1|2|3", "1|2|"} << "";
    QTest::newRow("lone LF stays in the field")
        << QByteArray("a\nb,c\r\n") << "" << false << QStringList{"a\nb|c"} << "";
    QTest::newRow("Latin-1 bytes") << QByteArray("\xB0"
                                                 "C,\xE9t\xE9\r\n")
                                   << "" << false << QStringList{"°C|été"} << "";
    QTest::newRow("cell delimiter stripped")
        << QByteArray("\"a\",\"\",b,\"\r\n") << "\"" << false << QStringList{"a||b|\""} << "";
    QTest::newRow("titles line") << QByteArray("\"Time\",\"T\xFC\"\r\n\"1\",\"2\"\r\n") << "\""
                                 << true << QStringList{"1|2"} << "Tü";
    QTest::newRow("only titles") << QByteArray("Time,Value") << "" << true << QStringList()
                                 << "Value";
}

void TstRecordGrid::loadReadsTheFile() {
    QFETCH(QByteArray, file);
    QFETCH(QString, cellDelimiter);
    QFETCH(bool, titles);
    QFETCH(QStringList, rows);
    QFETCH(QString, secondTitle);
    const QString path = m_dir->filePath("in.txt");
    QVERIFY(writeFile(path, file));
    RecordGrid grid;
    fill(grid, 7, 9); // everything of this goes
    grid.setRowColors(1, Qt::blue, {});
    GridTextFormat format;
    format.cellDelimiter = cellDelimiter;
    format.columnTitles = titles;
    QString error;
    QVERIFY2(grid.loadText(path, format, &error), qPrintable(error));
    QCOMPARE(cells(grid), rows);
    QCOMPARE(grid.rowCount(), rows.size());
    if (titles)
        QCOMPARE(grid.columnTitle(1), secondTitle);
    if (grid.rowCount() > 1)
        QVERIFY(!grid.gridModel()->index(1, 0).data(Qt::BackgroundRole).isValid());
}

void TstRecordGrid::failedLoadLeavesTheGrid() {
    RecordGrid grid;
    fill(grid, 3, 2);
    const QStringList before = cells(grid);
    QString error;
    QVERIFY(!grid.loadText(m_dir->filePath("missing.txt"), {}, &error));
    QVERIFY(error.contains("missing.txt"));
    QCOMPARE(cells(grid), before);

    const QString path = m_dir->filePath("in.txt");
    QVERIFY(writeFile(path, "a,b\r\n"));
    GridTextFormat noRows;
    noRows.rowDelimiter.clear();
    error.clear();
    QVERIFY(!grid.loadText(path, noRows, &error));
    QVERIFY(!error.isEmpty());
    QVERIFY(!grid.loadText(m_dir->path(), {}, &error)); // a folder, not a file
    QCOMPARE(cells(grid), before);
}

void TstRecordGrid::exportIntoAMissingFolderFails() {
    RecordGrid grid;
    fill(grid, 2, 2);
    QString error;
    QVERIFY(!grid.exportText(m_dir->filePath("no/such/folder/out.txt"), {}, &error));
    QVERIFY(!error.isEmpty());
    // A failed export leaves the old file as it was.
    const QString path = m_dir->filePath("kept.txt");
    QVERIFY(writeFile(path, "old"));
    GridTextFormat noRows;
    noRows.rowDelimiter.clear();
    QVERIFY(!grid.exportText(path, noRows, &error));
    QCOMPARE(readFile(path), QByteArray("old"));
}

void TstRecordGrid::locksShowInTheFlags_data() {
    QTest::addColumn<QString>("lock");
    QTest::addColumn<QList<bool>>("editable"); // cells (0,0) (0,1) (1,0) (1,1)
    QTest::newRow("none") << "none" << QList<bool>{true, true, true, true};
    QTest::newRow("grid") << "grid" << QList<bool>{false, false, false, false};
    QTest::newRow("column 1") << "column" << QList<bool>{true, false, true, false};
    QTest::newRow("row 1") << "row" << QList<bool>{true, true, false, false};
    QTest::newRow("cell 1,0") << "cell" << QList<bool>{true, true, false, true};
    QTest::newRow("locked then unlocked") << "undone" << QList<bool>{true, true, true, true};
}

void TstRecordGrid::locksShowInTheFlags() {
    QFETCH(QString, lock);
    QFETCH(QList<bool>, editable);
    RecordGrid grid;
    fill(grid, 2, 2);
    if (lock == "grid")
        grid.setLocked(true);
    else if (lock == "column")
        grid.setColumnLocked(1, true);
    else if (lock == "row")
        grid.setRowLocked(1, true);
    else if (lock == "cell")
        grid.setCellLocked(1, 0, true);
    else if (lock == "undone") {
        grid.setLocked(true);
        grid.setColumnLocked(1, true);
        grid.setRowLocked(1, true);
        grid.setCellLocked(0, 0, true);
        grid.setLocked(false);
        grid.setColumnLocked(1, false);
        grid.setRowLocked(1, false);
        grid.setCellLocked(0, 0, false);
    }
    RecordGridModel* model = grid.gridModel();
    for (int i = 0; i < 4; ++i) {
        const QModelIndex cell = model->index(i / 2, i % 2);
        QCOMPARE(model->flags(cell).testFlag(Qt::ItemIsEditable), editable.at(i));
        QCOMPARE(grid.isCellLocked(i / 2, i % 2), !editable.at(i));
        QCOMPARE(model->setData(cell, "new"), editable.at(i));
        QCOMPARE(grid.text(i / 2, i % 2),
                 editable.at(i) ? QStringLiteral("new") : cellName(i / 2, i % 2));
    }
}

void TstRecordGrid::checkBoxCellsToggle() {
    RecordGrid grid;
    grid.setColumnCount(2);
    grid.setRowCount(2);
    grid.setColumnCellType(0, GridCellType::CheckBox, {}, "On/Off");
    grid.setRowLocked(1, true);
    RecordGridModel* model = grid.gridModel();
    const QModelIndex free = model->index(0, 0);
    const QModelIndex locked = model->index(1, 0);
    QSignalSpy edits(&grid, &RecordGrid::cellEdited);
    QCOMPARE(free.data().toString(), QStringLiteral("On/Off"));
    QCOMPARE(free.data(Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
    QVERIFY(model->flags(free).testFlag(Qt::ItemIsUserCheckable));
    QVERIFY(!model->flags(free).testFlag(Qt::ItemIsEditable));

    QVERIFY(model->setData(free, Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(grid.text(0, 0), QStringLiteral("1"));
    QCOMPARE(free.data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
    QVERIFY(model->setData(free, QVariant::fromValue(Qt::Unchecked), Qt::CheckStateRole));
    QCOMPARE(grid.text(0, 0), QStringLiteral("0"));
    QCOMPARE(edits.size(), 2);
    QCOMPARE(edits.at(0), QVariantList({0, 0}));

    QVERIFY(!model->setData(free, "text", Qt::EditRole));
    QVERIFY(!model->setData(free, "nonsense", Qt::CheckStateRole));
    QVERIFY(!model->flags(locked).testFlag(Qt::ItemIsUserCheckable));
    QVERIFY(!model->setData(locked, Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(grid.text(1, 0), QString());
    QCOMPARE(edits.size(), 2);

    grid.setText(1, 0, "1"); // the program may still set it
    QCOMPARE(locked.data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
}

void TstRecordGrid::comboCellsShowTheirItem() {
    RecordGrid grid;
    grid.setColumnCount(2);
    grid.setRowCount(3);
    grid.setColumnCellType(1, GridCellType::ComboBox, {"Off", "PID", "On/Off"});
    grid.setText(0, 1, "2");
    grid.setText(1, 1, "7");
    RecordGridModel* model = grid.gridModel();
    QCOMPARE(model->index(0, 1).data().toString(), QStringLiteral("On/Off"));
    QCOMPARE(model->index(0, 1).data(Qt::EditRole).toInt(), 2);
    QCOMPARE(model->index(1, 1).data().toString(), QStringLiteral("7")); // no such item
    QCOMPARE(model->index(2, 1).data().toString(), QString());

    QSignalSpy edits(&grid, &RecordGrid::cellEdited);
    QVERIFY(model->setData(model->index(2, 1), 1));
    QCOMPARE(grid.text(2, 1), QStringLiteral("1"));
    QCOMPARE(model->index(2, 1).data().toString(), QStringLiteral("PID"));
    QVERIFY(!model->setData(model->index(2, 1), 3));
    QVERIFY(!model->setData(model->index(2, 1), -1));
    QVERIFY(!model->setData(model->index(2, 1), "PID"));
    grid.setCellLocked(2, 1, true);
    QVERIFY(!model->setData(model->index(2, 1), 0));
    QCOMPARE(grid.text(2, 1), QStringLiteral("1"));
    QCOMPARE(edits.size(), 1);
}

void TstRecordGrid::onlyUserEditsAreReported() {
    RecordGrid grid;
    fill(grid, 2, 3);
    QSignalSpy edits(&grid, &RecordGrid::cellEdited);
    grid.setText(0, 0, "program");
    grid.setRowFields(1, {"a", "b", "c"});
    QCOMPARE(edits.size(), 0);
    QVERIFY(grid.gridModel()->setData(grid.gridModel()->index(1, 2), "typed"));
    QCOMPARE(edits.size(), 1);
    QCOMPARE(edits.at(0), QVariantList({1, 2}));
    QCOMPARE(grid.text(1, 2), QStringLiteral("typed"));
    QVERIFY(grid.gridModel()->setData(grid.gridModel()->index(1, 2), "typed"));
    QCOMPARE(edits.size(), 1); // unchanged
}

void TstRecordGrid::editorsCommitTheUsersChoice() {
    RecordGrid grid;
    fill(grid, 3, 2);
    grid.setColumnCellType(1, GridCellType::ComboBox, {"Off", "PID", "On/Off"});
    grid.setText(0, 1, "2");
    grid.show();
    QVERIFY(QTest::qWaitForWindowExposed(&grid));
    QSignalSpy edits(&grid, &RecordGrid::cellEdited);

    grid.setCurrentIndex(grid.gridModel()->index(0, 1));
    grid.edit(grid.currentIndex());
    auto* box = grid.viewport()->findChild<QComboBox*>();
    QVERIFY(box);
    QCOMPARE(box->currentText(), QStringLiteral("On/Off"));
    QTest::keyClick(box, Qt::Key_Up); // the choice alone ends the edit
    QCOMPARE(grid.text(0, 1), QStringLiteral("1"));
    QCOMPARE(edits.size(), 1);
    QTRY_VERIFY(!grid.viewport()->findChild<QComboBox*>() ||
                !grid.viewport()->findChild<QComboBox*>()->isVisible());

    grid.setCurrentIndex(grid.gridModel()->index(1, 0));
    grid.edit(grid.currentIndex());
    auto* line = grid.viewport()->findChild<QLineEdit*>();
    QVERIFY(line);
    line->selectAll();
    QTest::keyClicks(line, "typed");
    QTest::keyClick(line, Qt::Key_Return); // committed once the view gets back to it
    QTRY_COMPARE(grid.text(1, 0), QStringLiteral("typed"));
    QCOMPARE(edits.size(), 2);
    QCOMPARE(edits.last(), QVariantList({1, 0}));
}

void TstRecordGrid::doubleClickNamesTheCell() {
    RecordGrid grid;
    fill(grid, 5, 4);
    grid.setLocked(true);
    grid.resize(600, 300);
    grid.show();
    QVERIFY(QTest::qWaitForWindowExposed(&grid));
    QSignalSpy clicks(&grid, &RecordGrid::cellDoubleClicked);
    const QRect cell = grid.visualRect(grid.gridModel()->index(2, 1));
    // A double click arrives after the press and release of its first click.
    QTest::mouseClick(grid.viewport(), Qt::LeftButton, {}, cell.center());
    QTest::mouseDClick(grid.viewport(), Qt::LeftButton, {}, cell.center());
    QCOMPARE(clicks.size(), 1);
    QCOMPARE(clicks.at(0), QVariantList({2, 1}));
}

void TstRecordGrid::selectedBlockBoundsTheSelection() {
    RecordGrid grid;
    fill(grid, 10, 5);
    QVERIFY(!grid.selectedBlock().isValid());
    QCOMPARE(grid.activeRow(), -1);
    RecordGridModel* model = grid.gridModel();
    QItemSelection selection(model->index(2, 1), model->index(4, 3));
    grid.selectionModel()->select(selection, QItemSelectionModel::Select);
    GridBlock block = grid.selectedBlock();
    QCOMPARE(block.row1, 2);
    QCOMPARE(block.col1, 1);
    QCOMPARE(block.row2, 4);
    QCOMPARE(block.col2, 3);
    QCOMPARE(block.rowCount(), 3);
    QCOMPARE(block.columnCount(), 3);
    // Two separate pieces are bounded together.
    grid.selectionModel()->select(model->index(7, 0), QItemSelectionModel::Select);
    block = grid.selectedBlock();
    QCOMPARE(block.row1, 2);
    QCOMPARE(block.col1, 0);
    QCOMPARE(block.row2, 7);
    QCOMPARE(block.col2, 3);

    grid.clearSelection();
    grid.setWholeRowSelection(true);
    grid.selectRow(6);
    block = grid.selectedBlock();
    QCOMPARE(block.row1, 6);
    QCOMPARE(block.row2, 6);
    QCOMPARE(block.col1, 0);
    QCOMPARE(block.col2, 4);
    QCOMPARE(grid.activeRow(), 6);

    QVERIFY(grid.setActiveCell(8, 2));
    QCOMPARE(grid.activeRow(), 8);
    QVERIFY(!grid.setActiveCell(10, 0));
    QVERIFY(!grid.setActiveCell(0, -1));
    QCOMPARE(grid.activeRow(), 8);
}

void TstRecordGrid::columnWidthsSurviveAReload() {
    RecordGrid grid;
    grid.setColumnWidthUnits(1, 20); // before the column exists
    grid.setColumnCount(3);
    grid.setColumnWidthUnits(0, 4.5);
    // A unit is a digit's width; the padding of the cell comes on top.
    const int digit = grid.fontMetrics().horizontalAdvance(QLatin1Char('0'));
    auto width = [digit](double units) {
        return qRound(units * digit) + 6;
    };
    QCOMPARE(grid.columnWidth(0), width(4.5));
    QCOMPARE(grid.columnWidth(1), width(20));
    QVERIFY(grid.fontMetrics().horizontalAdvance(QStringLiteral("0000")) <= grid.columnWidth(0));
    grid.horizontalHeader()->resizeSection(2, 77); // as the user drags it
    fill(grid, 3, 3);
    const QString path = m_dir->filePath("in.txt");
    QVERIFY(writeFile(path, "a,b,c\r\n"));
    QVERIFY(grid.loadText(path, {}));
    QCOMPARE(grid.columnWidth(0), width(4.5));
    QCOMPARE(grid.columnWidth(1), width(20));
    QCOMPARE(grid.columnWidth(2), 77);

    grid.setRowHeightUnits(18);
    QCOMPARE(grid.verticalHeader()->defaultSectionSize(), qRound(18 * grid.logicalDpiY() / 72.0));
    QCOMPARE(grid.rowHeight(0), grid.verticalHeader()->defaultSectionSize());
}

void TstRecordGrid::footerCodes_data() {
    QTest::addColumn<QString>("footer");
    QTest::addColumn<int>("page");
    QTest::addColumn<QStringList>("lines"); // left|centre|right per line
    QTest::newRow("page at the right") << "/c/rPage #/p" << 2 << QStringList{"||Page #2"};
    QTest::newRow("plain text") << "Batch 7" << 1 << QStringList{"Batch 7||"};
    QTest::newRow("three sections") << "/lLeft/cMid/rP/p" << 13 << QStringList{"Left|Mid|P13"};
    QTest::newRow("new line") << "/cTop/nBottom/r/p" << 4 << QStringList{"|Top|", "|Bottom|4"};
    QTest::newRow("slashes") << "a//b/x/" << 1 << QStringList{"a/b/x/||"};
    QTest::newRow("capitals are text") << "/P/C" << 1 << QStringList{"/P/C||"};
    QTest::newRow("empty") << "" << 1 << QStringList{"||"};
}

void TstRecordGrid::footerCodes() {
    QFETCH(QString, footer);
    QFETCH(int, page);
    QFETCH(QStringList, lines);
    QStringList got;
    for (const GridFooterLine& line : expandFooterCodes(footer, page))
        got << line.left + "|" + line.centre + "|" + line.right;
    QCOMPARE(got, lines);
}

void TstRecordGrid::printsPagesWithHeaderTitlesAndFooter() {
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        QSKIP("pdftotext is not installed");
    RecordGrid grid;
    grid.setColumnTitles({"Time", "Event", "User"});
    fill(grid, 120, 3);
    QPrinter printer(QPrinter::HighResolution);
    const QString path = m_dir->filePath("grid.pdf");
    preparePdf(printer, path);
    const GridPrintJob job{"Audit", "/data/Audit/2024-05-01.aud", "/c/rPage #/p", "Printing",
                           false};
    QString error;
    QVERIFY2(grid.print(printer, job, &error), qPrintable(error));

    const QStringList pages = pdfPages(path);
    QVERIFY(pages.size() >= 2);
    for (int i = 0; i < pages.size(); ++i) {
        const QString& page = pages.at(i);
        QVERIFY2(page.contains("/data/Audit/2024-05-01.aud"), qPrintable(page));
        QVERIFY(page.contains("Time"));
        QVERIFY(page.contains("Event"));
        QVERIFY(page.contains("User"));
        QVERIFY(page.contains(QStringLiteral("Page #%1").arg(i + 1)));
    }
    QVERIFY(pages.first().contains(cellName(0, 0)));
    QVERIFY(pages.first().contains(cellName(0, 2)));
    QVERIFY(!pages.first().contains(cellName(119, 0)));
    QVERIFY(pages.last().contains(cellName(119, 2)));
    // Every row is printed once.
    const QString all = pages.join(u'\n');
    for (int r = 0; r < 120; ++r)
        QCOMPARE(all.count(cellName(r, 1)), 1);
}

void TstRecordGrid::printsOnlyTheSelectedBlock() {
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        QSKIP("pdftotext is not installed");
    RecordGrid grid;
    fill(grid, 30, 4);
    RecordGridModel* model = grid.gridModel();
    grid.selectionModel()->select(QItemSelection(model->index(10, 1), model->index(12, 2)),
                                  QItemSelectionModel::Select);
    QPrinter printer;
    const QString path = m_dir->filePath("block.pdf");
    preparePdf(printer, path);
    GridPrintJob job;
    job.footer = "Page /p";
    job.selectedBlockOnly = true;
    QVERIFY(grid.print(printer, job));
    const QStringList pages = pdfPages(path);
    QCOMPARE(pages.size(), 1);
    const QString& page = pages.first();
    for (int r = 10; r <= 12; ++r) {
        QVERIFY2(page.contains(cellName(r, 1)), qPrintable(page));
        QVERIFY(page.contains(cellName(r, 2)));
        QVERIFY(!page.contains(cellName(r, 0)));
        QVERIFY(!page.contains(cellName(r, 3)));
    }
    QVERIFY(!page.contains(cellName(9, 1)));
    QVERIFY(!page.contains(cellName(13, 1)));
    QVERIFY(page.contains("Page 1"));

    // Without the flag the whole grid prints.
    job.selectedBlockOnly = false;
    QVERIFY(grid.print(printer, job));
    QVERIFY(pdfPages(path).join(u'\n').contains(cellName(29, 3)));
}

void TstRecordGrid::printsWideColumnsOnFurtherPages() {
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        QSKIP("pdftotext is not installed");
    RecordGrid grid;
    QStringList titles;
    for (int c = 0; c < 12; ++c)
        titles << QStringLiteral("Title%1").arg(c, 2, 10, QLatin1Char('0'));
    grid.setColumnTitles(titles);
    fill(grid, 3, 12);
    for (int c = 0; c < 12; ++c)
        grid.setColumnWidthUnits(c, 15);
    grid.setColumnWidthUnits(5, 500); // wider than the page: printed alone, cut at the edge
    QPrinter printer;
    const QString path = m_dir->filePath("wide.pdf");
    preparePdf(printer, path);
    QVERIFY(grid.print(printer, {"Wide", "Header", "/rPage #/p", {}, false}));
    const QStringList pages = pdfPages(path);
    QVERIFY2(pages.size() >= 3, qPrintable(QString::number(pages.size())));
    QStringList seen;
    for (int i = 0; i < pages.size(); ++i) {
        QVERIFY(pages.at(i).contains("Header"));
        QVERIFY(pages.at(i).contains(QStringLiteral("Page #%1").arg(i + 1)));
        for (int c = 0; c < 12; ++c) {
            if (pages.at(i).contains(titles.at(c))) {
                seen << titles.at(c);
                QVERIFY(pages.at(i).contains(cellName(2, c)));
            }
        }
    }
    QCOMPARE(seen, titles); // each column once, in order
    QVERIFY(!pages.first().contains(titles.last()));
}

void TstRecordGrid::printStopsWhenCancelled() {
    RecordGrid grid;
    fill(grid, 400, 3);
    QPrinter printer;
    preparePdf(printer, m_dir->filePath("cancelled.pdf"));
    int pagesBeforeCancel = 0;
    QTimer::singleShot(0, &grid, [&] {
        auto* progress = grid.findChild<QProgressDialog*>();
        if (progress) {
            pagesBeforeCancel = progress->value();
            QCOMPARE(progress->windowTitle(), QStringLiteral("Job 9"));
            QCOMPARE(progress->labelText(), QStringLiteral("Cancel to stop"));
            progress->cancel();
        }
    });
    QString error;
    QVERIFY(!grid.print(printer, {"Job 9", "h", "f", "Cancel to stop", false}, &error));
    QCOMPARE(pagesBeforeCancel, 1);
    QVERIFY(!error.isEmpty());
}

void TstRecordGrid::printFailsWithoutAPrinter() {
    RecordGrid grid;
    fill(grid, 3, 3);
    QPrinter printer;
    preparePdf(printer, m_dir->filePath("no/such/folder/out.pdf"));
    QString error;
    QTest::ignoreMessage(QtWarningMsg, "QPainter::begin(): Returned false");
    QVERIFY(!grid.print(printer, {}, &error));
    QVERIFY(!error.isEmpty());
}

void TstRecordGrid::bulkLoadOfAHundredThousandRows() {
    constexpr int kRows = 100000;
    constexpr int kColumns = 40;
    QList<QStringList> source(kRows);
    for (int r = 0; r < kRows; ++r) {
        source[r].reserve(kColumns);
        for (int c = 0; c < kColumns; ++c)
            source[r] << QStringLiteral("%1.%2").arg(r % 100000, 5, 10, QLatin1Char('0')).arg(c, 2);
    }
    RecordGrid grid;
    grid.setColumnCount(kColumns);
    grid.resize(800, 600);
    grid.show();
    QSignalSpy inserted(grid.gridModel(), &QAbstractItemModel::rowsInserted);
    QSignalSpy resets(grid.gridModel(), &QAbstractItemModel::modelReset);
    const qint64 before = residentKb();
    QElapsedTimer timer;
    timer.start();
    {
        RecordGrid::BulkLoad bulk(grid);
        for (const QStringList& fields : std::as_const(source))
            grid.appendRow(fields);
    }
    const qint64 loadMs = timer.elapsed();
    const qint64 after = residentKb();
    qInfo("appended %d rows x %d fields in %lld ms; rows hold %.1f MB, resident grew %.1f MB",
          kRows, kColumns, loadMs, grid.gridModel()->rowBytes() / 1048576.0,
          (after - before) / 1024.0);
    QCOMPARE(inserted.size(), 0);
    QCOMPARE(resets.size(), 1);
    QCOMPARE(grid.rowCount(), kRows);
    QCOMPARE(grid.text(0, 0), source[0][0]);
    QCOMPARE(grid.text(kRows - 1, kColumns - 1), source[kRows - 1][kColumns - 1]);
    QCOMPARE(grid.text(54321, 17), source[54321][17]);

    timer.restart();
    grid.scrollToBottom();
    QCoreApplication::processEvents();
    qInfo("scrolled to the last row in %lld ms", timer.elapsed());

    const QString path = m_dir->filePath("big.csv");
    timer.restart();
    QVERIFY(grid.exportText(path, {}));
    const qint64 exportMs = timer.elapsed();
    RecordGrid loaded;
    timer.restart();
    QVERIFY(loaded.loadText(path, {}));
    qInfo("exported in %lld ms, loaded back in %lld ms", exportMs, timer.elapsed());
    QCOMPARE(loaded.rowCount(), kRows);
    QCOMPARE(loaded.columnCount(), kColumns);
    QCOMPARE(loaded.text(54321, 17), source[54321][17]);
}

QTEST_MAIN(TstRecordGrid)
#include "tst_record_grid.moc"
