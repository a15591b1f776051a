#include "record_grid.h"

#include <QComboBox>
#include <QHeaderView>
#include <QHelpEvent>
#include <QPainter>
#include <QPrinter>
#include <QStyledItemDelegate>
#include <QToolTip>
#include <algorithm>

// ---------------------------------------------------------------------------------------------
// Packed rows

namespace {
void setError(QString* error, const QString& text) {
    if (error)
        *error = text;
}

// Edits combo box cells with a drop-down of their items; other cells as the view would.
class GridDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override {
        const auto* model = qobject_cast<const RecordGridModel*>(index.model());
        if (!model || model->columnCellType(index.column()) != GridCellType::ComboBox)
            return QStyledItemDelegate::createEditor(parent, option, index);
        auto* box = new QComboBox(parent);
        box->addItems(model->comboItems(index.column()));
        // A choice is the whole edit; the cell should not wait for the focus to move on.
        auto* self = const_cast<GridDelegate*>(this);
        connect(box, &QComboBox::activated, self, [self, box] {
            emit self->commitData(box);
            emit self->closeEditor(box);
        });
        return box;
    }

    void setEditorData(QWidget* editor, const QModelIndex& index) const override {
        if (auto* box = qobject_cast<QComboBox*>(editor))
            box->setCurrentIndex(index.data(Qt::EditRole).toInt());
        else
            QStyledItemDelegate::setEditorData(editor, index);
    }

    void setModelData(QWidget* editor, QAbstractItemModel* model,
                      const QModelIndex& index) const override {
        if (auto* box = qobject_cast<QComboBox*>(editor)) {
            if (box->currentIndex() >= 0)
                model->setData(index, box->currentIndex(), Qt::EditRole);
        } else {
            QStyledItemDelegate::setModelData(editor, model, index);
        }
    }

    // A cell cut short by its column shows its whole text on hover (a long operator message
    // in a data file, a long tag); one that is shown whole needs no tip.
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override {
        if (event->type() != QEvent::ToolTip || !index.isValid())
            return QStyledItemDelegate::helpEvent(event, view, option, index);
        const QString text = index.data(Qt::DisplayRole).toString();
        if (sizeHint(option, index).width() > option.rect.width() && !text.isEmpty())
            QToolTip::showText(event->globalPos(), text, view, option.rect);
        else
            QToolTip::hideText();
        return true;
    }
};

} // namespace

RecordGrid::BulkLoad::BulkLoad(RecordGrid& grid) : m_model(grid.gridModel()) {
    m_model->beginBulkLoad();
}

RecordGrid::BulkLoad::~BulkLoad() {
    m_model->endBulkLoad();
}

RecordGrid::RecordGrid(QWidget* parent) : QTableView(parent), m_model(new RecordGridModel(this)) {
    setModel(m_model);
    setItemDelegate(new GridDelegate(this));
    // A hundred thousand rows stay quick only if the view never measures a row.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setMinimumSectionSize(1);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 6);
    setWordWrap(false);
    setSelectionMode(QAbstractItemView::ContiguousSelection);
    setSelectionBehavior(QAbstractItemView::SelectItems);
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                    QAbstractItemView::AnyKeyPressed);

    connect(m_model, &RecordGridModel::cellEdited, this, &RecordGrid::cellEdited);
    connect(this, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex& index) {
        emit cellDoubleClicked(index.row(), index.column());
    });
    // The header forgets its widths when the model resets; a reload must not undo them.
    connect(m_model, &QAbstractItemModel::modelReset, this, &RecordGrid::applyColumnWidths);
    connect(m_model, &QAbstractItemModel::columnsInserted, this, &RecordGrid::applyColumnWidths);
    connect(horizontalHeader(), &QHeaderView::sectionResized, this,
            [this](int column, int, int size) {
                if (horizontalHeader()->isSectionHidden(column))
                    return; // hiding is not a width to restore
                if (column >= m_columnWidths.size())
                    m_columnWidths.resize(column + 1, -1);
                m_columnWidths[column] = size;
            });
}

RecordGrid::~RecordGrid() = default;

void RecordGrid::applyColumnWidths() {
    const int count = static_cast<int>(std::min<qsizetype>(m_columnWidths.size(), columnCount()));
    for (int c = 0; c < count; ++c) {
        if (m_columnWidths.at(c) >= 0)
            setColumnWidth(c, m_columnWidths.at(c));
    }
}

void RecordGrid::setRowNumbersVisible(bool visible) {
    verticalHeader()->setVisible(visible);
}

void RecordGrid::setColumns(const QStringList& titles, const QList<double>& widths) {
    setColumnCount(int(titles.size()));
    setColumnTitles(titles);
    for (int c = 0; c < titles.size() && c < widths.size(); ++c)
        setColumnWidthUnits(c, widths[c]);
}

void RecordGrid::setColumnWidthUnits(int column, double characters) {
    if (column < 0 || column >= RecordGridModel::kMaxColumns || !(characters >= 0.0) ||
        characters > 10000.0)
        return;
    // A unit is the width of a digit, which is what record grids mostly hold, and the cell keeps
    // its padding on top of that.
    const int pixels = qRound(characters * fontMetrics().horizontalAdvance(QLatin1Char('0'))) + 6;
    if (column >= m_columnWidths.size())
        m_columnWidths.resize(column + 1, -1);
    m_columnWidths[column] = pixels;
    if (column < columnCount())
        setColumnWidth(column, pixels);
}

void RecordGrid::fitColumnToText(int column, const QString& text) {
    if (column < 0 || column >= columnCount())
        return;
    // Measured as the view measures a cell, with the style's margins.
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    option.features |= QStyleOptionViewItem::HasDisplay;
    option.text = text;
    const int needed =
        style()->sizeFromContents(QStyle::CT_ItemViewItem, &option, {}, this).width() +
        (showGrid() ? 1 : 0);
    if (needed <= columnWidth(column))
        return;
    if (column >= m_columnWidths.size())
        m_columnWidths.resize(column + 1, -1);
    m_columnWidths[column] = needed;
    setColumnWidth(column, needed);
}

int RecordGrid::widthForColumns() const {
    int width = 2 * frameWidth() + style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, this);
    // Room for row numbers of four digits, however few rows there are yet.
    if (const QHeaderView* rows = verticalHeader(); !rows->isHidden()) {
        const int margin = rows->style()->pixelMetric(QStyle::PM_HeaderMargin, nullptr, rows);
        width += std::max(rows->sizeHint().width(),
                          rows->fontMetrics().horizontalAdvance(QStringLiteral("0000")) +
                              2 * margin + 2);
    }
    for (int c = 0; c < columnCount(); ++c)
        width += columnWidth(c);
    return width;
}

void RecordGrid::setRowHeightUnits(double points) {
    if (!(points > 0.0) || points > 1000.0)
        return;
    const int pixels = std::max(1, qRound(points * logicalDpiY() / 72.0));
    verticalHeader()->setDefaultSectionSize(pixels);
}

void RecordGrid::setWholeRowSelection(bool wholeRows) {
    setSelectionBehavior(wholeRows ? QAbstractItemView::SelectRows
                                   : QAbstractItemView::SelectItems);
}

GridBlock RecordGrid::selectedBlock() const {
    GridBlock block;
    if (!selectionModel())
        return block;
    const QItemSelection selection = selectionModel()->selection();
    for (const QItemSelectionRange& range : selection) {
        if (!range.isValid())
            continue;
        if (!block.isValid()) {
            block = {range.top(), range.left(), range.bottom(), range.right()};
            continue;
        }
        block.row1 = std::min(block.row1, range.top());
        block.col1 = std::min(block.col1, range.left());
        block.row2 = std::max(block.row2, range.bottom());
        block.col2 = std::max(block.col2, range.right());
    }
    return block;
}

QList<GridBlock> RecordGrid::selectedBlocks() const {
    QList<GridBlock> blocks;
    if (!selectionModel())
        return blocks;
    for (const QItemSelectionRange& range : selectionModel()->selection()) {
        if (range.isValid())
            blocks.append({range.top(), range.left(), range.bottom(), range.right()});
    }
    return blocks;
}

int RecordGrid::activeRow() const {
    const QModelIndex current = currentIndex();
    return current.isValid() ? current.row() : -1;
}

bool RecordGrid::setActiveCell(int row, int column) {
    const QModelIndex cell = m_model->index(row, column);
    if (!cell.isValid())
        return false;
    setCurrentIndex(cell);
    return true;
}

// ---------------------------------------------------------------------------------------------
// Printing

namespace {
// Where the cells go on a page, in printer pixels.
struct PageLayout {
    int width = 0;
    int rowHeight = 0;
    int padding = 0;
    int rowsPerPage = 1;
    QPen gridPen;
};

struct Band {
    QList<int> columns;
    QList<int> widths;
};

void drawCheckBox(QPainter& painter, const QRect& cell, int padding, bool checked) {
    const int side = std::max(3, cell.height() * 3 / 5);
    const QRect box(cell.left() + padding, cell.center().y() - side / 2, side, side);
    painter.drawRect(box);
    if (checked) {
        painter.drawLine(box.topLeft(), box.bottomRight());
        painter.drawLine(box.topRight(), box.bottomLeft());
    }
}

void paintCells(QPainter& painter, const RecordGridModel& model, const PageLayout& layout,
                const Band& band, int row, int top) {
    int x = 0;
    for (qsizetype i = 0; i < band.columns.size(); ++i) {
        const int column = band.columns.at(i);
        const QRect cell(x, top, band.widths.at(i), layout.rowHeight);
        x += cell.width();
        const QModelIndex index = model.index(row, column);
        const QVariant background = index.data(Qt::BackgroundRole);
        if (background.canConvert<QColor>() && background.value<QColor>().isValid())
            painter.fillRect(cell, background.value<QColor>());
        const QVariant foreground = index.data(Qt::ForegroundRole);
        const QColor ink = foreground.canConvert<QColor>() && foreground.value<QColor>().isValid()
                               ? foreground.value<QColor>()
                               : QColor(Qt::black);
        painter.setPen(layout.gridPen);
        painter.drawRect(cell);
        QRect textArea = cell.adjusted(layout.padding, 0, -layout.padding, 0);
        painter.setPen(ink);
        if (model.columnCellType(column) == GridCellType::CheckBox) {
            const bool checked = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
            drawCheckBox(painter, cell, layout.padding, checked);
            textArea.setLeft(textArea.left() + cell.height() * 3 / 5 + layout.padding);
        }
        painter.drawText(textArea, Qt::AlignLeft | Qt::AlignVCenter,
                         index.data(Qt::DisplayRole).toString());
    }
}

void paintTitles(QPainter& painter, const RecordGridModel& model, const PageLayout& layout,
                 const Band& band, int top) {
    painter.save();
    QFont bold = painter.font();
    bold.setBold(true);
    painter.setFont(bold);
    int x = 0;
    for (qsizetype i = 0; i < band.columns.size(); ++i) {
        const QRect cell(x, top, band.widths.at(i), layout.rowHeight);
        x += cell.width();
        painter.fillRect(cell, QColor(225, 225, 225));
        painter.setPen(layout.gridPen);
        painter.drawRect(cell);
        painter.setPen(Qt::black);
        painter.drawText(cell.adjusted(layout.padding, 0, -layout.padding, 0),
                         Qt::AlignLeft | Qt::AlignVCenter,
                         model.headerData(band.columns.at(i), Qt::Horizontal).toString());
    }
    painter.restore();
}

} // namespace

bool RecordGrid::print(QPrinter& printer, const GridPrintJob& job, QString* error) {
    int firstRow = 0;
    int lastRow = rowCount() - 1;
    int firstColumn = 0;
    int lastColumn = columnCount() - 1;
    if (job.selectedBlockOnly) {
        const GridBlock block = selectedBlock();
        if (block.isValid()) {
            firstRow = block.row1;
            lastRow = std::min(block.row2, lastRow);
            firstColumn = block.col1;
            lastColumn = std::min(block.col2, lastColumn);
        }
    }

    PagePrinter pages(printer, job, *this);
    if (!pages.begin(error))
        return false;
    QPainter& painter = pages.painter();
    const QFontMetrics& metrics = pages.metrics();
    const double scaleX = static_cast<double>(printer.logicalDpiX()) / logicalDpiX();
    const double scaleY = static_cast<double>(printer.logicalDpiY()) / logicalDpiY();

    PageLayout layout;
    layout.width = pages.pageWidth();
    layout.padding = std::max(1, metrics.averageCharWidth() / 2);
    layout.rowHeight = std::max(qRound(verticalHeader()->defaultSectionSize() * scaleY),
                                metrics.height() + layout.padding);
    layout.gridPen = QPen(QColor(128, 128, 128), std::max(1, printer.logicalDpiX() / 200));
    pages.setSpacing(layout.rowHeight / 2);
    // The column titles take the first row of each page's body.
    const int bodyHeight = pages.body().height() - layout.rowHeight;
    layout.rowsPerPage = std::max(1, bodyHeight / layout.rowHeight);

    // Columns that do not fit beside each other go on further pages.
    QList<Band> bands;
    int bandWidth = 0;
    for (int c = std::max(0, firstColumn); c <= lastColumn; ++c) {
        if (isColumnHidden(c) || columnWidth(c) <= 0)
            continue;
        const int width = std::clamp(qRound(columnWidth(c) * scaleX), 1, layout.width);
        if (bands.isEmpty() || bandWidth + width > layout.width) {
            bands.emplaceBack();
            bandWidth = 0;
        }
        bands.last().columns.append(c);
        bands.last().widths.append(width);
        bandWidth += width;
    }
    if (bands.isEmpty())
        bands.emplaceBack();

    firstRow = std::max(0, firstRow);
    const int rows = std::max(0, lastRow - firstRow + 1);
    const int rowPages = std::max(1, (rows + layout.rowsPerPage - 1) / layout.rowsPerPage);
    const qint64 pageCount = static_cast<qint64>(rowPages) * bands.size();
    if (pageCount > std::numeric_limits<int>::max()) {
        setError(error, tr("The grid needs more pages than can be printed."));
        return false;
    }
    pages.showProgress(static_cast<int>(pageCount));

    for (int rowPage = 0; rowPage < rowPages; ++rowPage) {
        const int pageFirst = firstRow + rowPage * layout.rowsPerPage;
        const int pageLast = std::min(firstRow + rows, pageFirst + layout.rowsPerPage) - 1;
        for (const Band& band : std::as_const(bands)) {
            if (!pages.beginPage(error))
                return false;
            int top = pages.body().top();
            paintTitles(painter, *m_model, layout, band, top);
            top += layout.rowHeight;
            for (int row = pageFirst; row <= pageLast; ++row) {
                paintCells(painter, *m_model, layout, band, row, top);
                top += layout.rowHeight;
            }
            if (!pages.endPage(error))
                return false;
        }
    }
    return true;
}
