#include "browser/rulelistmodel.h"

#include "browser/shorttext.h"
#include "resources/images.h"

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

void RuleListModel::clearRows()
{
    if (m_rows.empty())
        return;
    // A reset rather than a removal: with a hundred thousand rows the view would otherwise
    // walk its whole layout to move the removed rows out.
    beginResetModel();
    m_rows.clear();
    endResetModel();
}

std::vector<RuleListModel::Row> RuleListModel::takeRowStorage()
{
    if (!m_rows.empty())
        return {};
    std::vector<Row> storage;
    storage.swap(m_rows);
    return storage;
}

void RuleListModel::appendRows(std::vector<Row> rows)
{
    if (rows.empty())
        return;
    const int first = int(m_rows.size());
    beginInsertRows(QModelIndex(), first, first + int(rows.size()) - 1);
    if (m_rows.empty()) {
        m_rows = std::move(rows);
    } else {
        m_rows.insert(m_rows.end(), std::make_move_iterator(rows.begin()),
                      std::make_move_iterator(rows.end()));
    }
    endInsertRows();
}

void RuleListModel::removeRuleRow(int row)
{
    if (row < 0 || row >= int(m_rows.size()))
        return;
    beginRemoveRows(QModelIndex(), row, row);
    m_rows.erase(m_rows.begin() + row);
    endRemoveRows();
}

QString RuleListModel::cellText(int row, int column) const
{
    if (row < 0 || row >= int(m_rows.size()) || column < 0 || column >= FilledColumns)
        return {};
    return m_rows[size_t(row)].cells[size_t(column)];
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
        const QString &text = r.cells[size_t(column)];
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
