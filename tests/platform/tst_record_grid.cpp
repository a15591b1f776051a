#include "platform/record_grid.h"
#include "support/audit_files.h"
#include "support/fakes.h"

#include <QComboBox>
#include <QHelpEvent>
#include <QPrinter>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QToolTip>

namespace {

QString cellName(int row, int column) {
    return QString::asprintf("r%04dc%02d", row, column);
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

// The grid's cells row by row, fields joined with '|'.
QStringList cells(const RecordGrid& grid) {
    QStringList rows;
    for (int r = 0; r < grid.rowCount(); ++r)
        rows << rowOf(&grid, r).join(u'|');
    return rows;
}

void select(RecordGrid& grid, int row1, int col1, int row2, int col2) {
    const RecordGridModel* m = grid.gridModel();
    grid.selectionModel()->select(QItemSelection(m->index(row1, col1), m->index(row2, col2)),
                                  QItemSelectionModel::Select);
}

// Prints the grid to an A4 PDF and returns the text of each page, or nothing when it cannot.
QStringList printedPages(RecordGrid& grid, const GridPrintJob& job, const QString& path) {
    QPrinter printer;
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setPageSize(QPageSize(QPageSize::A4));
    printer.setOutputFileName(path);
    return grid.print(printer, job) ? pdfText(path).split(u'\f', Qt::SkipEmptyParts)
                                    : QStringList();
}

} // namespace

class TstRecordGrid : public QObject {
    Q_OBJECT
private slots:
    void init() { QVERIFY(m_dir.emplace().isValid()); }

    void shapeBoundsAndLongRows();
    void loadReadsTheFile_data();
    void loadReadsTheFile();
    void exportAndFailedFileOperations();

    void locksCellTypesAndUserEdits();
    void selectedBlockAndComboEditor();
    void footerCodesAndPrintedPages();
    void aCutCellShowsItsWholeTextOnHover();

private:
    std::optional<QTemporaryDir> m_dir;
};

void TstRecordGrid::shapeBoundsAndLongRows() {
    RecordGrid grid;
    grid.setColumnCount(3);
    grid.setRowCount(2);
    // Cells outside the grid are neither set nor read, nor do they grow it.
    for (const auto& [row, column] : {std::pair{0, -1}, {2, 0}, {-1, 0}, {0, 3}, {99999, 99999}}) {
        grid.setText(row, column, QStringLiteral("x"));
        QCOMPARE(grid.text(row, column), QString());
        QCOMPARE(cells(grid), QStringList(2, "||"));
    }
    QVERIFY(grid.setRowFields(4, {"a", "b", "c", "d", "e"})); // grows the grid to reach it
    QCOMPARE(cells(grid), QStringList({"||", "||", "||", "||", "a|b|c"}));
    grid.setColumnCount(5);
    QCOMPARE(grid.text(4, 3), QString()); // dropped, not hidden
    QVERIFY(grid.setRowFields(4, {"x"}));
    QCOMPARE(cells(grid).at(4), QStringLiteral("x||||"));
    QVERIFY(!grid.setRowFields(-1, {"x"}) && !grid.setRowFields(RecordGridModel::kMaxRows, {"x"}));
    QCOMPARE(grid.rowCount(), 5);

    grid.clearRows();
    // A bulk load tells the views once, by a reset, not row by row.
    QSignalSpy inserted(grid.gridModel(), &QAbstractItemModel::rowsInserted);
    QSignalSpy resets(grid.gridModel(), &QAbstractItemModel::modelReset);
    fill(grid, 5, 4);
    QCOMPARE(std::pair(inserted.size(), resets.size()), std::pair(qsizetype(0), qsizetype(1)));
    const QStringList full = cells(grid);
    grid.setRowColors(4, Qt::blue, Qt::white);
    grid.setRowLocked(4, true);
    QVERIFY(grid.setRowCount(3) && grid.setRowCount(6));
    QCOMPARE(cells(grid), full.mid(0, 3) + QStringList(3, "|||"));
    // The removed row's colour and lock do not come back with the new one.
    QVERIFY(!grid.gridModel()->index(4, 0).data(Qt::BackgroundRole).isValid() &&
            !grid.isCellLocked(4, 0));
    QVERIFY(!grid.setRowCount(-1) && !grid.setRowCount(RecordGridModel::kMaxRows + 1));
    QCOMPARE(grid.rowCount(), 6);
    // Fewer columns forget their fields.
    QVERIFY(grid.setColumnCount(2) && grid.setColumnCount(4));
    QCOMPARE(cells(grid).at(1), cellName(1, 0) + "|" + cellName(1, 1) + "||");
    QVERIFY(!grid.setColumnCount(RecordGridModel::kMaxColumns + 1));
    grid.clearText();
    QCOMPARE(cells(grid), QStringList(6, "|||"));

    // Rows beyond 64 KiB of text keep their fields, and pack small again.
    const QString longAscii(70000, u'x');
    const QString longLatin(40000, u'\u00e9'); // two bytes each in the row
    QVERIFY(grid.setRowFields(0, {"a", longAscii, "\u00fc", ""}));
    QVERIFY(grid.setRowFields(1, {longLatin, "b", longLatin}));
    QCOMPARE(cells(grid).mid(0, 2),
             QStringList({"a|" + longAscii + "|\u00fc|", longLatin + "|b|" + longLatin + "|"}));
    grid.setText(0, 1, "short");
    grid.setText(1, 0, "");
    QCOMPARE(cells(grid).mid(0, 2), QStringList({"a|short|\u00fc|", "|b|" + longLatin + "|"}));
    grid.clearRows();
    QCOMPARE(std::pair(grid.rowCount(), grid.columnCount()), std::pair(0, 4));
}

// Rows as the grid holds them, fields joined with '|'; a first row starting with '#' is the
// titles line, read as the column titles.
void TstRecordGrid::loadReadsTheFile_data() {
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("cellDelimiter");
    QTest::addColumn<QStringList>("rows");
    auto row = [](const char* name, const QByteArray& file, const QStringList& rows,
                  const QString& cellDelimiter = {}) {
        QTest::newRow(name) << file << cellDelimiter << rows;
    };
    row("final delimiter", "1,2\r\n3,4\r\n", {"1|2", "3|4"});
    row("no final delimiter", "1,2\r\n3,4", {"1|2", "3|4"});
    row("empty file", "", {});
    row("blank line inside", "1\r\n\r\n2\r\n", {"1", "", "2"});
    row("ragged lines", "1\r\n1,2,3\r\n1,2\r\n", {"1||", "1|2|3", "1|2|"});
    row("lone LF stays in the field", "a\nb,c\r\n", {"a\nb|c"});
    row("cell delimiter stripped", "\"a\",\"\",b,\"\r\n", {"a||b|\""}, "\"");
    row("titles line", "\"Time\",\"T\xFC\"\r\n\"1\",\"2\"\r\n", {"#Time|Tü", "1|2"}, "\"");
    row("only titles", "Time,Value", {"#Time|Value"});
}

void TstRecordGrid::loadReadsTheFile() {
    QFETCH(QByteArray, file);
    QFETCH(QString, cellDelimiter);
    QFETCH(QStringList, rows);
    const QString path = m_dir->filePath("in.txt");
    QVERIFY(writeBytes(path, file));
    RecordGrid grid;
    fill(grid, 7, 9); // everything of this goes
    grid.setRowColors(1, Qt::blue, {});
    GridTextFormat format;
    format.cellDelimiter = cellDelimiter;
    format.columnTitles = !rows.isEmpty() && rows.first().startsWith(u'#');
    QString error;
    QVERIFY2(grid.loadText(path, format, &error), qPrintable(error));
    if (format.columnTitles) {
        QStringList titles;
        for (int c = 0; c < grid.columnCount(); ++c)
            titles << grid.columnTitle(c);
        QCOMPARE(u'#' + titles.join(u'|'), rows.takeFirst());
    }
    QCOMPARE(cells(grid), rows);
    if (grid.rowCount() > 1)
        QVERIFY(!grid.gridModel()->index(1, 0).data(Qt::BackgroundRole).isValid());
}

// The plain comma and CRLF, with titles, are in the data viewer's export; that an export loads
// back to the same cells is the property of the grid text fuzz target. A load or an export that
// fails changes neither the grid nor the file.
void TstRecordGrid::exportAndFailedFileOperations() {
    RecordGrid grid;
    grid.setColumnTitles({"T1", "Tü", "T3"});
    grid.appendRow({"a", "", "c"});
    grid.appendRow({"", "é°"});
    const QString path = m_dir->filePath("out.txt");
    QString error;
    QVERIFY2(grid.exportText(path, {";;", "<EOL>", "'", true}, &error), qPrintable(error));
    const QByteArray exported = readBytes(path);
    QCOMPARE(exported,
             QByteArray("'T1';;'T\xFC';;'T3'<EOL>'a';;'';;'c'<EOL>'';;'\xE9\xB0';;''<EOL>"));

    const QStringList before = cells(grid);
    QVERIFY(!grid.loadText(m_dir->filePath("missing.txt"), {}, &error));
    QVERIFY(error.contains("missing.txt"));
    GridTextFormat noRows;
    noRows.rowDelimiter.clear();
    error.clear();
    QVERIFY(!grid.loadText(path, noRows, &error) && !error.isEmpty());
    QVERIFY(!grid.loadText(m_dir->path(), {}, &error)); // a folder, not a file
    QCOMPARE(cells(grid), before);
    error.clear();
    QVERIFY(!grid.exportText(m_dir->filePath("no/such/folder/out.txt"), {}, &error) &&
            !error.isEmpty());
    QVERIFY(!grid.exportText(path, noRows, &error));
    QCOMPARE(readBytes(path), exported); // the old file stays whole
}

// A cell is locked when the grid, its column, its row or the cell itself is; the flags, the
// query and the user's edits all agree. Check box cells hold "1" or "0" and combo box cells the
// index of an item. The user's changes through the model are reported, the program's are not.
void TstRecordGrid::locksCellTypesAndUserEdits() {
    RecordGrid grid;
    fill(grid, 2, 2);
    RecordGridModel* model = grid.gridModel();
    // Cells (0,0) (0,1) (1,0) (1,1): 'e' editable, '-' locked, '?' where flags and query differ.
    auto editable = [&] {
        QString out;
        for (int i = 0; i < 4; ++i) {
            const bool open = model->flags(model->index(i / 2, i % 2)).testFlag(Qt::ItemIsEditable);
            out += open == grid.isCellLocked(i / 2, i % 2) ? u'?' : open ? u'e' : u'-';
        }
        return out;
    };
    grid.setColumnLocked(1, true);
    QCOMPARE(editable(), QStringLiteral("e-e-"));
    grid.setColumnLocked(1, false);
    grid.setRowLocked(1, true);
    QCOMPARE(editable(), QStringLiteral("ee--"));
    grid.setRowLocked(1, false);
    grid.setCellLocked(1, 0, true);
    QCOMPARE(editable(), QStringLiteral("ee-e"));
    grid.setLocked(true);
    QCOMPARE(editable(), QStringLiteral("----"));
    QVERIFY(!model->setData(model->index(0, 0), "new"));
    QCOMPARE(grid.text(0, 0), cellName(0, 0));
    grid.setLocked(false);
    grid.setCellLocked(1, 0, false);
    QCOMPARE(editable(), QStringLiteral("eeee"));
    QVERIFY(model->setData(model->index(1, 0), "new"));
    QCOMPARE(grid.text(1, 0), QStringLiteral("new"));

    RecordGrid typed;
    typed.setColumnCount(3);
    typed.setRowCount(3);
    typed.setColumnCellType(0, GridCellType::CheckBox, {}, "On/Off");
    typed.setColumnCellType(1, GridCellType::ComboBox, {"Off", "PID", "On/Off"});
    typed.setRowLocked(2, true);
    QSignalSpy edits(&typed, &RecordGrid::cellEdited);
    typed.setRowFields(0, {"", "2"});
    typed.setText(1, 1, "7");
    model = typed.gridModel();
    auto shown = [model](int row, int column, int role = Qt::DisplayRole) {
        const QVariant v = model->index(row, column).data(role);
        return role == Qt::CheckStateRole ? QString::number(v.toInt()) : v.toString();
    };
    // Item 2 shown, its index edited; 7 is no item; the check box shows its caption.
    QCOMPARE(QStringList({shown(0, 1), shown(0, 1, Qt::EditRole), shown(1, 1), shown(2, 1),
                          shown(0, 0), shown(0, 0, Qt::CheckStateRole)}),
             QStringList({"On/Off", "2", "7", "", "On/Off", "0"}));
    QCOMPARE(model->flags(model->index(0, 0)) & (Qt::ItemIsUserCheckable | Qt::ItemIsEditable),
             Qt::ItemIsUserCheckable);
    QVERIFY(!model->flags(model->index(2, 0)).testFlag(Qt::ItemIsUserCheckable));

    QVERIFY(model->setData(model->index(0, 0), Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(typed.text(0, 0) + shown(0, 0, Qt::CheckStateRole), QStringLiteral("12"));
    QVERIFY(
        model->setData(model->index(0, 0), QVariant::fromValue(Qt::Unchecked), Qt::CheckStateRole));
    QVERIFY(model->setData(model->index(1, 1), 1));
    QCOMPARE(shown(1, 1), QStringLiteral("PID"));
    QVERIFY(model->setData(model->index(1, 2), "typed"));
    QVERIFY(model->setData(model->index(1, 2), "typed")); // unchanged: not reported
    QVERIFY(!model->setData(model->index(0, 0), "text", Qt::EditRole));
    QVERIFY(!model->setData(model->index(0, 0), "nonsense", Qt::CheckStateRole));
    for (const QVariant& wrong : {QVariant(3), QVariant(-1), QVariant("PID")})
        QVERIFY(!model->setData(model->index(1, 1), wrong));
    QVERIFY(!model->setData(model->index(2, 0), Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(cells(typed), QStringList({"0|2|", "|1|typed", "||"}));
    QCOMPARE(static_cast<const QList<QVariantList>&>(edits),
             (QList<QVariantList>{{0, 0}, {0, 0}, {1, 1}, {1, 2}}));
    typed.setText(2, 0, "1"); // the program may still set a locked cell
    QCOMPARE(shown(2, 0, Qt::CheckStateRole), QStringLiteral("2"));
}

// The selected block bounds every piece of the selection. The combo box the view opens commits
// the user's choice on the choice alone.
void TstRecordGrid::selectedBlockAndComboEditor() {
    RecordGrid grid;
    fill(grid, 10, 5);
    auto corners = [&grid] {
        const GridBlock b = grid.selectedBlock();
        return QList<int>{b.row1, b.col1, b.row2, b.col2, b.rowCount(), b.columnCount()};
    };
    QCOMPARE(corners(), (QList<int>{-1, -1, -1, -1, 0, 0}));
    QCOMPARE(grid.activeRow(), -1);
    select(grid, 2, 1, 4, 3);
    QCOMPARE(corners(), (QList<int>{2, 1, 4, 3, 3, 3}));
    select(grid, 7, 0, 7, 0); // a separate piece
    QCOMPARE(corners(), (QList<int>{2, 0, 7, 3, 6, 4}));
    QVERIFY(grid.setActiveCell(8, 2));
    QVERIFY(!grid.setActiveCell(10, 0) && !grid.setActiveCell(0, -1));
    QCOMPARE(grid.activeRow(), 8);

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
    QTest::keyClick(box, Qt::Key_Up);
    QCOMPARE(grid.text(0, 1), QStringLiteral("1"));
    QCOMPARE(edits.size(), 1);
    QTRY_VERIFY(!grid.viewport()->findChild<QComboBox*>() ||
                !grid.viewport()->findChild<QComboBox*>()->isVisible());
}

// The codes of a footer; then more rows than a page holds and more columns than its width: each
// page has the header, the titles of its columns and its footer, the further columns follow the
// page of the same rows, and every cell prints once.
void TstRecordGrid::footerCodesAndPrintedPages() {
    const std::tuple<QString, int, QStringList> footers[]{
        {"/lLeft/cMid/rP/p", 13, {"Left|Mid|P13"}},
        {"/cTop/nBottom/r/p", 4, {"|Top|", "|Bottom|4"}},
        {"a//b/x/", 1, {"a/b/x/||"}},
        {"/P/C", 1, {"/P/C||"}}}; // capitals are text
    for (const auto& [footer, page, lines] : footers) {
        QStringList got;
        for (const FooterLine& line : expandFooterCodes(footer, page))
            got << line.left + "|" + line.centre + "|" + line.right;
        QCOMPARE(got, lines);
    }

    RecordGrid grid;
    const QStringList titles =
        QString("Title0 Title1 Title2 Title3 Title4 Title5 Title6 Title7").split(u' ');
    grid.setColumnTitles(titles);
    fill(grid, 120, 8);
    // A printer that cannot start is a failure the caller hears of.
    QPrinter broken;
    broken.setOutputFormat(QPrinter::PdfFormat);
    broken.setOutputFileName(m_dir->filePath("no/such/folder/out.pdf"));
    QString error;
    QTest::ignoreMessage(QtWarningMsg, "QPainter::begin(): Returned false");
    QVERIFY(!grid.print(broken, {}, &error) && !error.isEmpty());
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        QSKIP("pdftotext is not installed");

    // Column 3 is wider than the page: printed alone, cut at the edge.
    for (int c = 0; c < 8; ++c)
        grid.setColumnWidthUnits(c, c == 3 ? 500 : 15);
    const GridPrintJob job{{"Audit", "/data/Audit/2024-05-01.aud", "/c/rPage #/p", {}}, false};
    const QStringList pages = printedPages(grid, job, m_dir->filePath("grid.pdf"));
    QVERIFY2(pages.size() >= 6, qPrintable(QString::number(pages.size())));
    for (int i = 0; i < pages.size(); ++i) {
        const QString& page = pages.at(i);
        QVERIFY2(page.contains("/data/Audit/2024-05-01.aud"), qPrintable(page));
        QVERIFY(page.contains(QStringLiteral("Page #%1").arg(i + 1)));
        for (int c = 0; c < 8; ++c)
            QCOMPARE(page.contains(titles.at(c)), page.contains(cellName(0, c).mid(5)));
    }
    QCOMPARE((QList<bool>{pages[0].contains(cellName(0, 0)), pages[0].contains(cellName(119, 0)),
                          pages[0].contains(cellName(0, 3)), pages[1].contains(cellName(0, 3)),
                          pages.last().contains(cellName(119, 7))}),
             (QList<bool>{true, false, false, true, true}));
    const QString all = pages.join(u'\n');
    for (int r = 0; r < 120; ++r) {
        for (int c = 0; c < 8; ++c)
            QCOMPARE(all.count(cellName(r, c)), 1);
    }

    // Only the selected block, when asked.
    select(grid, 10, 1, 12, 2);
    const GridPrintJob blockJob{{"Block", {}, "Page /p", {}}, true};
    const QStringList only = printedPages(grid, blockJob, m_dir->filePath("block.pdf"));
    QCOMPARE(only.size(), 1);
    QVERIFY(only.first().contains("Page 1"));
    for (int r = 9; r <= 13; ++r) {
        for (int c = 0; c < 4; ++c)
            QCOMPARE(only.first().contains(cellName(r, c)), r >= 10 && r <= 12 && c >= 1 && c <= 2);
    }
}

void TstRecordGrid::aCutCellShowsItsWholeTextOnHover() {
    RecordGrid grid;
    grid.setColumnCount(2);
    const QString mark = QStringLiteral("[not answering: TIC-102; PIC-103].");
    grid.appendRow({mark, QStringLiteral("7")});
    grid.setColumnWidth(0, 60);
    grid.setColumnWidth(1, 60);
    grid.resize(300, 200);
    grid.show();
    QVERIFY(QTest::qWaitForWindowExposed(&grid));
    auto hover = [&grid](int column) {
        const QRect cell = grid.visualRect(grid.gridModel()->index(0, column));
        QHelpEvent tip(QEvent::ToolTip, cell.center(), grid.viewport()->mapToGlobal(cell.center()));
        QCoreApplication::sendEvent(grid.viewport(), &tip);
    };
    hover(0);
    QVERIFY(QToolTip::isVisible());
    QCOMPARE(QToolTip::text(), mark);
    hover(1); // shown whole: no tip
    QTRY_VERIFY(!QToolTip::isVisible());
    grid.setColumnWidth(0, 600);
    hover(0);
    QTRY_VERIFY(!QToolTip::isVisible());
}

QTEST_MAIN(TstRecordGrid)
#include "tst_record_grid.moc"
