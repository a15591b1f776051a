#include "csv_text.h"
#include "record_grid.h"

#include <QFile>
#include <QSaveFile>
#include <QStringEncoder>
#include <QVarLengthArray>
#include <algorithm>
#include <cstring>
#include <limits>

namespace {
// Reused for every row a load packs, so that packing costs one allocation per row.
class RowPacker {
public:
    void clear() {
        m_text.truncate(0);
        m_ends.clear();
    }
    void addUtf8(QByteArrayView field) {
        m_text.append(field);
        m_ends.append(static_cast<quint32>(m_text.size()));
    }
    void addString(QStringView field) {
        const qsizetype start = m_text.size();
        m_text.resize(start + m_encoder.requiredSpace(field.size()));
        const char* end = m_encoder.appendToBuffer(m_text.data() + start, field);
        m_text.truncate(end - m_text.constData());
        m_ends.append(static_cast<quint32>(m_text.size()));
    }
    void addLatin1(QByteArrayView field) {
        const auto high = std::count_if(field.begin(), field.end(),
                                        [](char ch) { return static_cast<uchar>(ch) >= 0x80; });
        const qsizetype start = m_text.size();
        m_text.resize(start + field.size() + high);
        char* out = m_text.data() + start;
        if (high == 0) {
            if (!field.isEmpty())
                std::memcpy(out, field.data(), static_cast<size_t>(field.size()));
        } else {
            for (const char ch : field) {
                const auto byte = static_cast<uchar>(ch);
                if (byte < 0x80) {
                    *out++ = ch;
                } else {
                    *out++ = static_cast<char>(0xC0 | (byte >> 6));
                    *out++ = static_cast<char>(0x80 | (byte & 0x3F));
                }
            }
        }
        m_ends.append(static_cast<quint32>(m_text.size()));
    }
    PackedRow pack() const { return PackedRow(m_text, std::span(m_ends.data(), m_ends.size())); }

private:
    QByteArray m_text;
    QVarLengthArray<quint32, 64> m_ends;
    QStringEncoder m_encoder{QStringConverter::Utf8, QStringConverter::Flag::Stateless};
};

RowPacker& packer() {
    static thread_local RowPacker instance;
    return instance;
}

} // namespace

PackedRow::PackedRow(QByteArrayView text, std::span<const quint32> ends) {
    size_t count = std::min(ends.size(), kMaxFields);
    while (count > 0 && ends[count - 1] == (count > 1 ? ends[count - 2] : 0))
        --count;
    if (count == 0)
        return;
    // Offsets that run backwards or past the text would later read outside the row.
    for (size_t i = 0; i < count; ++i) {
        if (ends[i] < (i > 0 ? ends[i - 1] : 0) || ends[i] > static_cast<size_t>(text.size()))
            return;
    }
    const quint32 textSize = ends[count - 1];
    const bool wide = textSize > 0xFFFF;
    const size_t offsetSize = wide ? sizeof(quint32) : sizeof(quint16);
    const auto headerSize = static_cast<qsizetype>(sizeof(quint16) + count * offsetSize);
    m_bytes = QByteArray(headerSize + textSize, Qt::Uninitialized);
    char* out = m_bytes.data();
    const auto head = static_cast<quint16>(count | (wide ? kWideOffsets : 0));
    std::memcpy(out, &head, sizeof head);
    out += sizeof head;
    if (wide) {
        std::memcpy(out, ends.data(), count * sizeof(quint32));
    } else {
        for (size_t i = 0; i < count; ++i, out += sizeof(quint16)) {
            const auto end = static_cast<quint16>(ends[i]);
            std::memcpy(out, &end, sizeof end);
        }
    }
    std::memcpy(m_bytes.data() + headerSize, text.data(), textSize);
}

quint16 PackedRow::head() const {
    quint16 value = 0;
    if (!m_bytes.isEmpty())
        std::memcpy(&value, m_bytes.constData(), sizeof value);
    return value;
}

int PackedRow::fieldCount() const {
    return head() & ~kWideOffsets;
}

QByteArrayView PackedRow::field(int index) const {
    const quint16 word = head();
    const int count = word & ~kWideOffsets;
    if (index < 0 || index >= count)
        return {};
    const bool wide = (word & kWideOffsets) != 0;
    const char* ends = m_bytes.constData() + sizeof word;
    const auto endAt = [ends, wide](int i) -> quint32 {
        if (wide) {
            quint32 end;
            std::memcpy(&end, ends + i * sizeof end, sizeof end);
            return end;
        }
        quint16 end;
        std::memcpy(&end, ends + i * sizeof end, sizeof end);
        return end;
    };
    const char* text = ends + count * (wide ? sizeof(quint32) : sizeof(quint16));
    const quint32 begin = index == 0 ? 0 : endAt(index - 1);
    return QByteArrayView(text + begin, endAt(index) - begin);
}

// ---------------------------------------------------------------------------------------------
// Model

namespace {
quint64 cellKey(int row, int column) {
    return (static_cast<quint64>(static_cast<quint32>(row)) << 32) | static_cast<quint32>(column);
}

// Calls piece() for each part of text between delimiters; an empty delimiter gives the whole
// text as one piece. Stops when piece() returns false.
template <typename Piece>
bool forEachPiece(QByteArrayView text, QByteArrayView delimiter, Piece&& piece) {
    qsizetype from = 0;
    for (;;) {
        qsizetype at = -1;
        if (delimiter.size() == 1)
            at = text.indexOf(delimiter.front(), from);
        else if (!delimiter.isEmpty())
            at = text.indexOf(delimiter, from);
        if (at < 0)
            return piece(text.sliced(from));
        if (!piece(text.sliced(from, at - from)))
            return false;
        from = at + delimiter.size();
    }
}

QByteArrayView unwrapField(QByteArrayView field, QByteArrayView wrapper) {
    if (wrapper.isEmpty() || field.size() < 2 * wrapper.size() || !field.startsWith(wrapper) ||
        !field.endsWith(wrapper))
        return field;
    return field.sliced(wrapper.size(), field.size() - 2 * wrapper.size());
}

bool isAscii(QByteArrayView bytes) {
    return std::none_of(bytes.begin(), bytes.end(),
                        [](char ch) { return static_cast<uchar>(ch) >= 0x80; });
}

void appendLatin1(QByteArray& out, QByteArrayView utf8) {
    if (isAscii(utf8))
        out.append(utf8);
    else
        out.append(QString::fromUtf8(utf8).toLatin1());
}

void setError(QString* error, const QString& text) {
    if (error)
        *error = text;
}

} // namespace

RecordGridModel::RecordGridModel(QObject* parent) : QAbstractTableModel(parent) {}

RecordGridModel::~RecordGridModel() = default;

int RecordGridModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int RecordGridModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_columns.size());
}

bool RecordGridModel::contains(int row, int column) const {
    return row >= 0 && column >= 0 && row < rowCount() && column < columnCount();
}

QVariant RecordGridModel::data(const QModelIndex& index, int role) const {
    const int row = index.row();
    const int column = index.column();
    if (!index.isValid() || !contains(row, column))
        return {};
    const Column& info = m_columns.at(column);
    switch (role) {
    case Qt::DisplayRole:
        if (info.type == GridCellType::CheckBox)
            return info.checkText;
        if (info.type == GridCellType::ComboBox) {
            bool ok = false;
            const int item = m_rows[row].field(column).toInt(&ok);
            if (ok && item >= 0 && item < info.comboItems.size())
                return info.comboItems.at(item);
        }
        return text(row, column);
    case Qt::EditRole:
        if (info.type == GridCellType::ComboBox) {
            bool ok = false;
            const int item = m_rows[row].field(column).toInt(&ok);
            return ok ? item : -1;
        }
        if (info.type == GridCellType::CheckBox)
            return {};
        return text(row, column);
    case Qt::CheckStateRole:
        if (info.type != GridCellType::CheckBox)
            return {};
        return m_rows[row].field(column) == "1" ? Qt::Checked : Qt::Unchecked;
    case Qt::TextAlignmentRole:
        return info.alignment ? QVariant(int(info.alignment | Qt::AlignVCenter)) : QVariant();
    case Qt::BackgroundRole:
    case Qt::ForegroundRole: {
        const auto style = m_rowStyles.constFind(row);
        if (style == m_rowStyles.cend())
            return {};
        const QColor& colour = role == Qt::BackgroundRole ? style->background : style->foreground;
        return colour.isValid() ? QVariant(colour) : QVariant();
    }
    default:
        return {};
    }
}

bool RecordGridModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    const int row = index.row();
    const int column = index.column();
    if (!index.isValid() || !contains(row, column) || isCellLocked(row, column))
        return false;
    const Column& info = m_columns.at(column);
    bool ok = false;
    switch (info.type) {
    case GridCellType::Text:
        if (role != Qt::EditRole)
            return false;
        return storeEdit(row, column, value.toString());
    case GridCellType::CheckBox: {
        if (role != Qt::CheckStateRole)
            return false;
        const int state = value.toInt(&ok);
        if (!ok || (state != Qt::Checked && state != Qt::Unchecked))
            return false;
        return storeEdit(row, column,
                         state == Qt::Checked ? QStringLiteral("1") : QStringLiteral("0"));
    }
    case GridCellType::ComboBox: {
        if (role != Qt::EditRole)
            return false;
        const int item = value.toInt(&ok);
        if (!ok || item < 0 || item >= info.comboItems.size())
            return false;
        return storeEdit(row, column, QString::number(item));
    }
    }
    return false;
}

bool RecordGridModel::storeEdit(int row, int column, const QString& text) {
    if (m_rows[row].field(column) == text.toUtf8())
        return true; // an editor closed on an unchanged value
    setText(row, column, text);
    emit cellEdited(row, column);
    return true;
}

Qt::ItemFlags RecordGridModel::flags(const QModelIndex& index) const {
    if (!index.isValid() || !contains(index.row(), index.column()))
        return Qt::NoItemFlags;
    const Qt::ItemFlags base = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    if (isCellLocked(index.row(), index.column()))
        return base;
    if (m_columns.at(index.column()).type == GridCellType::CheckBox)
        return base | Qt::ItemIsUserCheckable;
    return base | Qt::ItemIsEditable;
}

QVariant RecordGridModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole || section < 0)
        return {};
    if (orientation == Qt::Vertical)
        return section < rowCount() ? QVariant(section + 1) : QVariant();
    if (section >= columnCount())
        return {};
    const Column& info = m_columns.at(section);
    return info.titled ? info.title : QString::number(section + 1);
}

bool RecordGridModel::setRowCount(int rows) {
    if (rows < 0 || rows > kMaxRows)
        return false;
    const int old = rowCount();
    if (rows > old) {
        if (!quiet())
            beginInsertRows({}, old, rows - 1);
        m_rows.resize(static_cast<size_t>(rows));
        if (!quiet())
            endInsertRows();
    } else if (rows < old) {
        if (!quiet())
            beginRemoveRows({}, rows, old - 1);
        m_rows.resize(static_cast<size_t>(rows));
        dropRowAttributesFrom(rows);
        if (!quiet())
            endRemoveRows();
    }
    return true;
}

bool RecordGridModel::setColumnCount(int columns) {
    if (columns < 0 || columns > kMaxColumns)
        return false;
    const int old = columnCount();
    if (columns > old) {
        if (!quiet())
            beginInsertColumns({}, old, columns - 1);
        m_columns.resize(columns);
        if (!quiet())
            endInsertColumns();
    } else if (columns < old) {
        if (!quiet())
            beginRemoveColumns({}, columns, old - 1);
        m_columns.resize(columns);
        // Fields of the removed columns must not come back if the columns do.
        RowPacker& p = packer();
        for (PackedRow& row : m_rows) {
            if (row.fieldCount() <= columns)
                continue;
            p.clear();
            for (int c = 0; c < columns; ++c)
                p.addUtf8(row.field(c));
            row = p.pack();
        }
        m_lockedCells.removeIf(
            [columns](quint64 key) { return static_cast<int>(key & 0xFFFFFFFFu) >= columns; });
        if (!quiet())
            endRemoveColumns();
    }
    return true;
}

QString RecordGridModel::text(int row, int column) const {
    if (!contains(row, column))
        return {};
    return QString::fromUtf8(m_rows[row].field(column));
}

void RecordGridModel::setText(int row, int column, const QString& text) {
    if (!contains(row, column))
        return;
    const PackedRow& old = m_rows[row];
    RowPacker& p = packer();
    p.clear();
    const int fields = std::max(old.fieldCount(), column + 1);
    for (int c = 0; c < fields; ++c) {
        if (c == column)
            p.addString(text);
        else
            p.addUtf8(old.field(c));
    }
    m_rows[row] = p.pack();
    if (!quiet()) {
        const QModelIndex changed = index(row, column);
        emit dataChanged(changed, changed);
    }
}

bool RecordGridModel::setRowFields(int row, const QStringList& fields) {
    if (row < 0 || row >= kMaxRows)
        return false;
    RowPacker& p = packer();
    p.clear();
    const qsizetype count = std::min<qsizetype>(fields.size(), columnCount());
    for (qsizetype c = 0; c < count; ++c)
        p.addString(fields.at(c));
    storeRow(row, p.pack());
    return true;
}

bool RecordGridModel::appendRow(const QStringList& fields) {
    return setRowFields(rowCount(), fields);
}

void RecordGridModel::storeRow(int row, PackedRow packed) {
    const int old = rowCount();
    if (row >= old) {
        if (!quiet())
            beginInsertRows({}, old, row);
        m_rows.resize(static_cast<size_t>(row) + 1);
        m_rows[row] = std::move(packed);
        if (!quiet())
            endInsertRows();
        return;
    }
    m_rows[row] = std::move(packed);
    emitRowsChanged(row, row);
}

void RecordGridModel::emitRowsChanged(int firstRow, int lastRow) {
    if (quiet() || firstRow > lastRow || columnCount() == 0)
        return;
    emit dataChanged(index(firstRow, 0), index(lastRow, columnCount() - 1));
}

void RecordGridModel::dropRowAttributesFrom(int row) {
    m_rowStyles.removeIf([row](const auto& entry) { return entry.key() >= row; });
    m_lockedCells.removeIf([row](quint64 key) { return static_cast<int>(key >> 32) >= row; });
}

bool RecordGridModel::removeRow(int row) {
    if (row < 0 || row >= rowCount())
        return false;
    if (!quiet())
        beginRemoveRows({}, row, row);
    m_rows.erase(m_rows.begin() + row);
    // The styles and locks of the rows below move up with them.
    QHash<int, RowStyle> styles;
    for (auto it = m_rowStyles.cbegin(); it != m_rowStyles.cend(); ++it) {
        if (it.key() != row)
            styles.insert(it.key() > row ? it.key() - 1 : it.key(), it.value());
    }
    m_rowStyles.swap(styles);
    QSet<quint64> locks;
    for (const quint64 key : std::as_const(m_lockedCells)) {
        const int r = static_cast<int>(key >> 32);
        if (r != row)
            locks.insert(r > row ? key - (quint64(1) << 32) : key);
    }
    m_lockedCells.swap(locks);
    if (!quiet())
        endRemoveRows();
    return true;
}

void RecordGridModel::clearRows() {
    if (!quiet())
        beginResetModel();
    std::vector<PackedRow>().swap(m_rows);
    m_rowStyles.clear();
    m_lockedCells.clear();
    if (!quiet())
        endResetModel();
}

void RecordGridModel::clearText() {
    for (PackedRow& row : m_rows)
        row = PackedRow();
    emitRowsChanged(0, rowCount() - 1);
}

void RecordGridModel::beginBulkLoad() {
    if (m_bulkDepth++ == 0)
        beginResetModel();
}

void RecordGridModel::endBulkLoad() {
    if (m_bulkDepth == 0)
        return;
    if (--m_bulkDepth == 0)
        endResetModel();
}

QString RecordGridModel::columnTitle(int column) const {
    if (column < 0 || column >= columnCount())
        return {};
    return m_columns.at(column).title;
}

void RecordGridModel::setColumnTitles(const QStringList& titles) {
    const int count = static_cast<int>(std::min<qsizetype>(titles.size(), kMaxColumns));
    if (count > columnCount())
        setColumnCount(count);
    for (int c = 0; c < count; ++c) {
        m_columns[c].title = titles.at(c);
        m_columns[c].titled = true;
    }
    if (!quiet() && count > 0)
        emit headerDataChanged(Qt::Horizontal, 0, count - 1);
}

void RecordGridModel::setColumnTitle(int column, const QString& title) {
    if (column < 0 || column >= columnCount())
        return;
    m_columns[column].title = title;
    m_columns[column].titled = true;
    if (!quiet())
        emit headerDataChanged(Qt::Horizontal, column, column);
}

void RecordGridModel::setLocked(bool locked) {
    m_locked = locked;
    emitRowsChanged(0, rowCount() - 1);
}

void RecordGridModel::setColumnLocked(int column, bool locked) {
    if (column < 0 || column >= columnCount())
        return;
    m_columns[column].locked = locked;
    if (!quiet() && rowCount() > 0)
        emit dataChanged(index(0, column), index(rowCount() - 1, column));
}

void RecordGridModel::setColumnAlignment(int column, Qt::Alignment alignment) {
    if (column >= 0 && column < columnCount())
        m_columns[column].alignment = alignment;
}

void RecordGridModel::setRowLocked(int row, bool locked) {
    if (row < 0 || row >= rowCount())
        return;
    RowStyle& style = m_rowStyles[row];
    style.locked = locked;
    if (!style.locked && !style.background.isValid() && !style.foreground.isValid())
        m_rowStyles.remove(row);
    emitRowsChanged(row, row);
}

void RecordGridModel::setCellLocked(int row, int column, bool locked) {
    if (!contains(row, column))
        return;
    if (locked)
        m_lockedCells.insert(cellKey(row, column));
    else
        m_lockedCells.remove(cellKey(row, column));
    if (!quiet()) {
        const QModelIndex changed = index(row, column);
        emit dataChanged(changed, changed);
    }
}

bool RecordGridModel::isCellLocked(int row, int column) const {
    if (!contains(row, column))
        return true; // nothing there to edit
    if (m_locked || m_columns.at(column).locked)
        return true;
    const auto style = m_rowStyles.constFind(row);
    if (style != m_rowStyles.cend() && style->locked)
        return true;
    return !m_lockedCells.isEmpty() && m_lockedCells.contains(cellKey(row, column));
}

void RecordGridModel::setRowColors(int row, const QColor& background, const QColor& foreground) {
    if (row < 0 || row >= rowCount())
        return;
    RowStyle& style = m_rowStyles[row];
    style.background = background;
    style.foreground = foreground;
    if (!style.locked && !style.background.isValid() && !style.foreground.isValid())
        m_rowStyles.remove(row);
    emitRowsChanged(row, row);
}

void RecordGridModel::setColumnCellType(int column, GridCellType type,
                                        const QStringList& comboItems, const QString& checkText) {
    if (column < 0 || column >= columnCount())
        return;
    Column& info = m_columns[column];
    info.type = type;
    info.comboItems = type == GridCellType::ComboBox ? comboItems : QStringList();
    info.checkText = type == GridCellType::CheckBox ? checkText : QString();
    if (!quiet() && rowCount() > 0)
        emit dataChanged(index(0, column), index(rowCount() - 1, column));
}

GridCellType RecordGridModel::columnCellType(int column) const {
    if (column < 0 || column >= columnCount())
        return GridCellType::Text;
    return m_columns.at(column).type;
}

QStringList RecordGridModel::comboItems(int column) const {
    if (column < 0 || column >= columnCount())
        return {};
    return m_columns.at(column).comboItems;
}

bool RecordGridModel::loadText(const QString& path, const GridTextFormat& format, QString* error) {
    if (format.rowDelimiter.isEmpty()) {
        setError(error, tr("No row delimiter is set."));
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        setError(error, tr("Cannot open %1: %2").arg(path, file.errorString()));
        return false;
    }
    const QByteArray all = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        setError(error, tr("Cannot read %1: %2").arg(path, file.errorString()));
        return false;
    }
    const QByteArray rowDelimiter = format.rowDelimiter.toLatin1();
    const QByteArray columnDelimiter = format.columnDelimiter.toLatin1();
    const QByteArray cellDelimiter = format.cellDelimiter.toLatin1();

    QByteArrayView body(all);
    if (body.endsWith(rowDelimiter))
        body.chop(rowDelimiter.size());

    std::vector<PackedRow> rows;
    rows.reserve(static_cast<size_t>(std::min<qsizetype>(all.count(rowDelimiter), kMaxRows)) + 1);
    QStringList titles;
    bool titleLine = format.columnTitles;
    qsizetype widest = 0;
    bool tooLarge = false;
    RowPacker& p = packer();
    auto takeLine = [&](QByteArrayView line) {
        if (!titleLine && rows.size() >= static_cast<size_t>(kMaxRows)) {
            tooLarge = true;
            return false;
        }
        p.clear();
        qsizetype fields = 0;
        forEachPiece(line, columnDelimiter, [&](QByteArrayView field) {
            field = unwrapField(field, cellDelimiter);
            if (titleLine)
                titles.append(QString::fromLatin1(field));
            else
                p.addLatin1(field);
            return ++fields <= kMaxColumns;
        });
        if (fields > kMaxColumns) {
            tooLarge = true;
            return false;
        }
        widest = std::max(widest, fields);
        if (titleLine)
            titleLine = false;
        else
            rows.push_back(p.pack());
        return true;
    };
    if (!all.isEmpty())
        forEachPiece(body, rowDelimiter, takeLine);
    if (tooLarge) {
        setError(error, tr("%1 holds more than %2 rows or %3 columns.")
                            .arg(path)
                            .arg(kMaxRows)
                            .arg(kMaxColumns));
        return false;
    }

    if (!quiet())
        beginResetModel();
    m_rows.swap(rows);
    m_columns.resize(static_cast<int>(widest));
    if (format.columnTitles) {
        for (int c = 0; c < columnCount(); ++c) {
            m_columns[c].titled = c < titles.size();
            m_columns[c].title = m_columns[c].titled ? titles.at(c) : QString();
        }
    }
    m_rowStyles.clear();
    m_lockedCells.clear();
    if (!quiet())
        endResetModel();
    return true;
}

bool RecordGridModel::exportText(const QString& path, const GridTextFormat& format,
                                 QString* error) const {
    if (format.rowDelimiter.isEmpty()) {
        setError(error, tr("No row delimiter is set."));
        return false;
    }
    const QByteArray rowDelimiter = format.rowDelimiter.toLatin1();
    const QByteArray columnDelimiter = format.columnDelimiter.toLatin1();
    const QByteArray cellDelimiter = format.cellDelimiter.toLatin1();
    return writeRows(
        path, {}, format.columnTitles,
        [&](QByteArray& out, const QList<QByteArrayView>& fields) {
            for (qsizetype c = 0; c < fields.size(); ++c) {
                if (c > 0)
                    out.append(columnDelimiter);
                out.append(cellDelimiter);
                appendLatin1(out, fields.at(c));
                out.append(cellDelimiter);
            }
            out.append(rowDelimiter);
        },
        error);
}

bool RecordGridModel::exportCsv(const QString& path, bool columnTitles, QString* error) const {
    return writeRows(
        path, kCsvByteOrderMark, columnTitles,
        [](QByteArray& out, const QList<QByteArrayView>& fields) {
            for (qsizetype c = 0; c < fields.size(); ++c) {
                if (c > 0)
                    out.append(',');
                appendCsvField(out, fields.at(c));
            }
            out.append("\r\n");
        },
        error);
}

bool RecordGridModel::writeRows(const QString& path, QByteArrayView head, bool columnTitles,
                                const RowWriter& appendRow, QString* error) const {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        setError(error, tr("Cannot write %1: %2").arg(path, file.errorString()));
        return false;
    }
    constexpr qsizetype kChunk = 256 * 1024;
    QByteArray buffer;
    buffer.reserve(kChunk + 4096);
    buffer.append(head);
    bool written = true;
    QList<QByteArrayView> fields(columnCount());
    auto add = [&] {
        appendRow(buffer, fields);
        if (buffer.size() >= kChunk) {
            written = written && file.write(buffer) == buffer.size();
            buffer.truncate(0);
        }
    };
    // A grid without columns has no titles: a blank title line would load back as one column.
    if (columnTitles && columnCount() > 0) {
        QList<QByteArray> titles;
        for (int c = 0; c < columnCount(); ++c)
            titles.append(m_columns.at(c).title.toUtf8());
        for (int c = 0; c < columnCount(); ++c)
            fields[c] = titles.at(c);
        add();
    }
    for (const PackedRow& row : m_rows) {
        for (int c = 0; c < columnCount(); ++c)
            fields[c] = row.field(c);
        add();
    }
    written = written && file.write(buffer) == buffer.size();
    if (!written || !file.commit()) {
        setError(error, tr("Cannot write %1: %2").arg(path, file.errorString()));
        return false;
    }
    return true;
}

qsizetype RecordGridModel::rowBytes() const {
    qsizetype bytes = static_cast<qsizetype>(m_rows.capacity() * sizeof(PackedRow));
    for (const PackedRow& row : m_rows)
        bytes += row.byteSize();
    return bytes;
}

// ---------------------------------------------------------------------------------------------
// Grid
