#pragma once

#include "page_print.h"

#include <QAbstractTableModel>
#include <QByteArray>
#include <QColor>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTableView>
#include <functional>
#include <span>
#include <vector>

class QPrinter;

// The record grid: the one table every window of the workstation shows its rows in, from the
// audit trail to a data file of a hundred thousand records. Rows are kept packed, one buffer per
// row, so that the grid holds such a file in a few tens of megabytes.

enum class GridCellType { Text, CheckBox, ComboBox };

// A rectangle of cells, inclusive at both ends; -1 everywhere when nothing is selected.
struct GridBlock {
    int row1 = -1;
    int col1 = -1;
    int row2 = -1;
    int col2 = -1;
    bool isValid() const { return row1 >= 0 && col1 >= 0 && row2 >= row1 && col2 >= col1; }
    int rowCount() const { return isValid() ? row2 - row1 + 1 : 0; }
    int columnCount() const { return isValid() ? col2 - col1 + 1 : 0; }
};

// How rows are laid out in a text file. There is no quoting: a column delimiter inside a field
// always splits it.
struct GridTextFormat {
    QString columnDelimiter = QStringLiteral(",");
    QString rowDelimiter = QStringLiteral("\r\n");
    QString cellDelimiter;     // wraps each field on export and is stripped on load; empty for none
    bool columnTitles = false; // the first line holds the column titles
};

struct GridPrintJob : PrintJob {
    bool selectedBlockOnly = false;
};

// The fields of one row packed into a single allocation: a count, the end offset of each field,
// then the UTF-8 text of the fields back to back. The offsets take two bytes each unless the
// text is longer than 64 KiB. Trailing empty fields are not stored, so an empty row costs no
// allocation at all.
class PackedRow {
public:
    static constexpr size_t kMaxFields = 0x7FFF;

    PackedRow() = default;
    // From UTF-8 text with the end offset of each field in it; fields past kMaxFields are dropped.
    PackedRow(QByteArrayView text, std::span<const quint32> ends);

    int fieldCount() const;
    QByteArrayView field(int index) const; // UTF-8; empty past the last stored field
    qsizetype byteSize() const { return m_bytes.capacity(); }

private:
    static constexpr quint16 kWideOffsets = 0x8000; // in the count: four-byte offsets follow
    quint16 head() const;

    QByteArray m_bytes;
};

// The data behind a RecordGrid. Calls made by the program never emit cellEdited; edits through
// setData(), which is how the view and its editors change a cell, do.
class RecordGridModel : public QAbstractTableModel {
    Q_OBJECT
public:
    // Beyond these the grid refuses to grow; a file that needs more is refused whole.
    static constexpr int kMaxRows = 2'000'000;
    static constexpr int kMaxColumns = 4096;

    explicit RecordGridModel(QObject* parent = nullptr);
    ~RecordGridModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    // False, and nothing changes, for a negative count or one above the limit.
    bool setRowCount(int rows);
    bool setColumnCount(int columns);

    QString text(int row, int column) const;
    void setText(int row, int column, const QString& text);
    // Replaces a whole row, growing the grid to reach it; fields past the last column are
    // dropped. False only for a row the grid cannot hold.
    bool setRowFields(int row, const QStringList& fields);
    bool appendRow(const QStringList& fields);
    // Takes one row out; the rows below move up with their colours and locks.
    bool removeRow(int row);
    void clearRows();
    void clearText();

    // Between these two calls rows change without a signal each; the views are reset once at
    // the end. Calls nest.
    void beginBulkLoad();
    void endBulkLoad();

    QString columnTitle(int column) const;
    // Titles the first columns, adding columns when there are more titles than columns.
    void setColumnTitles(const QStringList& titles);
    void setColumnTitle(int column, const QString& title);

    // A cell is locked when the grid, its column, its row or the cell itself is.
    void setLocked(bool locked);
    bool isLocked() const { return m_locked; }
    void setColumnLocked(int column, bool locked);
    void setColumnAlignment(int column, Qt::Alignment alignment);
    void setRowLocked(int row, bool locked);
    void setCellLocked(int row, int column, bool locked);
    bool isCellLocked(int row, int column) const;

    // An invalid colour leaves the view's own.
    void setRowColors(int row, const QColor& background, const QColor& foreground);

    // Check box cells hold "1" or "0"; combo box cells hold the index of their item.
    void setColumnCellType(int column, GridCellType type, const QStringList& comboItems = {},
                           const QString& checkText = {});
    GridCellType columnCellType(int column) const;
    QStringList comboItems(int column) const;

    // Reads a whole Latin-1 file into the grid, which takes its row count from the lines and its
    // column count from the widest one. Row colours and locks go with the old rows. On failure
    // the grid is left as it was.
    bool loadText(const QString& path, const GridTextFormat& format, QString* error = nullptr);
    // Writes every row in Latin-1, replacing the file whole.
    bool exportText(const QString& path, const GridTextFormat& format,
                    QString* error = nullptr) const;
    // Writes every row as the workstation's exports are written (csv_text.h), replacing the file
    // whole; the column titles first when asked for.
    bool exportCsv(const QString& path, bool columnTitles, QString* error = nullptr) const;

    // Heap bytes taken by the rows, for the record of what a large file costs.
    qsizetype rowBytes() const;

signals:
    void cellEdited(int row, int column);

private:
    struct Column {
        QString title;
        bool titled = false; // untitled columns show their number
        bool locked = false;
        GridCellType type = GridCellType::Text;
        Qt::Alignment alignment;
        QStringList comboItems;
        QString checkText;
    };
    struct RowStyle {
        QColor background;
        QColor foreground;
        bool locked = false;
    };

    bool quiet() const { return m_bulkDepth > 0; }
    bool contains(int row, int column) const;
    // Adds one row of UTF-8 fields to the text being written.
    using RowWriter = std::function<void(QByteArray& out, const QList<QByteArrayView>& fields)>;
    // The head, the titles when asked for, then every row, replacing the file whole.
    bool writeRows(const QString& path, QByteArrayView head, bool columnTitles,
                   const RowWriter& appendRow, QString* error) const;
    void storeRow(int row, PackedRow packed);
    void dropRowAttributesFrom(int row);
    void emitRowsChanged(int firstRow, int lastRow);
    bool storeEdit(int row, int column, const QString& text);

    std::vector<PackedRow> m_rows;
    QList<Column> m_columns;
    QHash<int, RowStyle> m_rowStyles;
    QSet<quint64> m_lockedCells;
    bool m_locked = false;
    int m_bulkDepth = 0;
};

// The grid widget: a table view over a RecordGridModel with the calls the windows use. It shows
// no message of its own; every failure goes back to the caller.
class RecordGrid : public QTableView {
    Q_OBJECT
public:
    // Holds the grid in a bulk load for its lifetime.
    class BulkLoad {
    public:
        explicit BulkLoad(RecordGrid& grid);
        ~BulkLoad();
        BulkLoad(const BulkLoad&) = delete;
        BulkLoad& operator=(const BulkLoad&) = delete;

    private:
        RecordGridModel* m_model;
    };

    explicit RecordGrid(QWidget* parent = nullptr);
    ~RecordGrid() override;

    RecordGridModel* gridModel() const { return m_model; }

    int rowCount() const { return m_model->rowCount(); }
    bool setRowCount(int rows) { return m_model->setRowCount(rows); }
    int columnCount() const { return m_model->columnCount(); }
    bool setColumnCount(int columns) { return m_model->setColumnCount(columns); }

    QString text(int row, int column) const { return m_model->text(row, column); }
    void setText(int row, int column, const QString& text) { m_model->setText(row, column, text); }
    bool setRowFields(int row, const QStringList& fields) {
        return m_model->setRowFields(row, fields);
    }
    bool appendRow(const QStringList& fields) { return m_model->appendRow(fields); }
    bool removeRow(int row) { return m_model->removeRow(row); }
    void clearRows() { m_model->clearRows(); }
    void clearText() { m_model->clearText(); }

    void setColumnTitles(const QStringList& titles) { m_model->setColumnTitles(titles); }
    void setColumnTitle(int column, const QString& title) {
        m_model->setColumnTitle(column, title);
    }
    QString columnTitle(int column) const { return m_model->columnTitle(column); }
    void setRowNumbersVisible(bool visible);

    // Widths in average characters of the grid's font, as the windows give them.
    void setColumnWidthUnits(int column, double characters);
    // As many columns as titles, each titled and given its width in characters.
    void setColumns(const QStringList& titles, const QList<double>& widths);
    // Widens a column, never narrows it, so that the text shows whole in its cells.
    void fitColumnToText(int column, const QString& text);
    // The width the grid needs to show every column whole beside row numbers of up to four
    // digits and a vertical scroll bar.
    int widthForColumns() const;
    // The height of every row, in points.
    void setRowHeightUnits(double points);

    void setLocked(bool locked) { m_model->setLocked(locked); }
    void setColumnLocked(int column, bool locked) { m_model->setColumnLocked(column, locked); }
    void setColumnAlignment(int column, Qt::Alignment alignment) {
        m_model->setColumnAlignment(column, alignment);
    }
    void setRowLocked(int row, bool locked) { m_model->setRowLocked(row, locked); }
    void setCellLocked(int row, int column, bool locked) {
        m_model->setCellLocked(row, column, locked);
    }
    bool isCellLocked(int row, int column) const { return m_model->isCellLocked(row, column); }

    void setRowColors(int row, const QColor& background, const QColor& foreground) {
        m_model->setRowColors(row, background, foreground);
    }
    void setColumnCellType(int column, GridCellType type, const QStringList& comboItems = {},
                           const QString& checkText = {}) {
        m_model->setColumnCellType(column, type, comboItems, checkText);
    }

    void setWholeRowSelection(bool wholeRows);
    // The smallest block holding every selected cell; invalid when nothing is selected.
    GridBlock selectedBlock() const;
    // Each selected block on its own, in the order they were made.
    QList<GridBlock> selectedBlocks() const;
    int activeRow() const;
    bool setActiveCell(int row, int column);

    bool loadText(const QString& path, const GridTextFormat& format, QString* error = nullptr) {
        return m_model->loadText(path, format, error);
    }
    bool exportText(const QString& path, const GridTextFormat& format,
                    QString* error = nullptr) const {
        return m_model->exportText(path, format, error);
    }
    bool exportCsv(const QString& path, bool columnTitles, QString* error = nullptr) const {
        return m_model->exportCsv(path, columnTitles, error);
    }

    // Prints page by page, each page with the header, the column titles and the footer. Columns
    // too wide for one page go on further pages, which follow the page of the same rows. With
    // selectedBlockOnly and a selection, only the selected block prints. False when the printer
    // cannot start, a page cannot be added or the user cancels.
    bool print(QPrinter& printer, const GridPrintJob& job, QString* error = nullptr);

signals:
    void cellEdited(int row, int column);
    void cellDoubleClicked(int row, int column);

private:
    void applyColumnWidths();

    RecordGridModel* m_model;
    QList<int> m_columnWidths; // pixels the program or the user gave, -1 for the default
};
