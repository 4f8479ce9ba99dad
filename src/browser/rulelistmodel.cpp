#include "browser/rulelistmodel.h"

#include "browser/shorttext.h"
#include "resources/images.h"

#include <algorithm>
#include <stdexcept>

namespace qarvo {

RuleListModel::RuleListModel(QObject *parent) : QAbstractTableModel(parent) {}

void RuleListModel::insertColumnsInFront(const QList<Column> &columns)
{
    if (columns.isEmpty())
        return;
    beginInsertColumns(QModelIndex(), 0, int(columns.size()) - 1);
    m_columns = columns + m_columns;
    endInsertColumns();
}

RuleListModel::Text RuleListModel::Rows::text(const QString &text)
{
    if (text.size() > MaxShownText) {
        m_long.append(text);
        return {m_long.size() - 1, -1};
    }
    return {m_chars.add(reinterpret_cast<const char16_t *>(text.constData()), text.size()), text.size()};
}

RuleListModel::Text RuleListModel::Rows::text(QByteArrayView utf8)
{
    // ASCII bytes are its characters one for one; anything else is Qt's to decode.
    if (utf8.size() <= MaxShownText
        && std::all_of(utf8.begin(), utf8.end(), [](char c) { return (c & 0x80) == 0; }))
        return {m_chars.add(utf8.data(), utf8.size()), utf8.size()};
    return text(QString::fromUtf8(utf8));
}

RuleListModel::Row &RuleListModel::RowBlocks::add()
{
    if (m_size == m_blocks.size() * PerBlock)
        m_blocks.push_back(std::make_unique_for_overwrite<Row[]>(PerBlock));
    Row &row = (*this)[m_size++];
    row = Row();
    return row;
}

const RuleListModel::Row &RuleListModel::RowBlocks::at(size_t i) const
{
    if (i >= m_size)
        throw std::out_of_range("rule list row");
    return (*this)[i];
}

void RuleListModel::RowBlocks::erase(size_t i)
{
    for (; i + 1 < m_size; ++i)
        (*this)[i] = (*this)[i + 1];
    --m_size;
}

void RuleListModel::clearRows()
{
    if (m_rows.empty())
        return;
    // A reset rather than a removal: with a hundred thousand rows the view would otherwise
    // walk its whole layout to move the removed rows out.
    beginResetModel();
    m_rows.clear();
    m_chars.clear();
    m_long.clear();
    endResetModel();
}

RuleListModel::Rows RuleListModel::takeRowStorage()
{
    Rows storage;
    if (m_rows.empty()) {
        std::swap(storage.m_rows, m_rows);
        std::swap(storage.m_chars, m_chars);
        storage.m_chars.clear();
        m_long.clear();
    }
    return storage;
}

void RuleListModel::appendRows(Rows rows)
{
    if (rows.m_rows.empty())
        return;
    const int first = int(m_rows.size());
    beginInsertRows(QModelIndex(), first, first + int(rows.m_rows.size()) - 1);
    if (m_rows.empty()) {
        m_rows = std::move(rows.m_rows);
        m_chars = std::move(rows.m_chars);
        m_long = std::move(rows.m_long);
    } else {
        const qsizetype shift = m_chars.append(std::move(rows.m_chars));
        const qsizetype longShift = m_long.size();
        m_long += rows.m_long;
        for (size_t i = 0; i < rows.m_rows.size(); ++i) {
            Row &row = m_rows.add();
            row = rows.m_rows[i];
            for (Text &text : row.cells)
                text.at += text.size < 0 ? longShift : shift;
        }
    }
    endInsertRows();
}

void RuleListModel::removeRuleRow(int row)
{
    if (row < 0 || row >= int(m_rows.size()))
        return;
    beginRemoveRows(QModelIndex(), row, row);
    m_rows.erase(size_t(row));
    endRemoveRows();
}

QStringView RuleListModel::cell(const Row &row, int column) const
{
    const Text text = row.cells[size_t(column)];
    if (text.size < 0)
        return m_long.at(text.at);
    return text.size == 0 ? QStringView() : QStringView(m_chars.at(text.at), text.size);
}

QString RuleListModel::cellText(int row, int column) const
{
    if (row < 0 || row >= int(m_rows.size()) || column < 0 || column >= FilledColumns)
        return {};
    const Text text = m_rows[size_t(row)].cells[size_t(column)];
    return text.size < 0 ? m_long.at(text.at) : cell(m_rows[size_t(row)], column).toString();
}

QModelIndex RuleListModel::index(int row, int column, const QModelIndex &parent) const
{
    // The view asks for every row when it lays a large list out; the checks need no calls.
    if (parent.isValid() || row < 0 || column < 0 || row >= int(m_rows.size())
        || column >= int(m_columns.size()))
        return {};
    return createIndex(row, column);
}

int RuleListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int RuleListModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_columns.size());
}

QVariant RuleListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= int(m_rows.size()))
        return {};
    const Row &r = m_rows[size_t(index.row())];
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole: {
        if (column >= FilledColumns)
            return {};
        const QStringView text = cell(r, column);
        // A tooltip only helps where the cell may be cut off.
        if (role == Qt::ToolTipRole && text.isEmpty())
            return {};
        return shownText(text);
    }
    case Qt::DecorationRole:
        if (column == 0 && r.image >= 0)
            return images::icon(r.image);
        return {};
    case images::ImageIndexRole:
        if (column == 0 && r.image >= 0)
            return r.image;
        return {};
    case Qt::UserRole:
        return r.ruleId;
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(Qt::Alignment(Qt::AlignLeft | Qt::AlignVCenter));
    default:
        return {};
    }
}

QVariant RuleListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= int(m_columns.size()))
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return m_columns.at(section).title;
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(Qt::Alignment(Qt::AlignLeft | Qt::AlignVCenter));
    default:
        return {};
    }
}

Qt::ItemFlags RuleListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

} // namespace qarvo
