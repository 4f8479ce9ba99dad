#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QString>

#include <array>
#include <vector>

namespace qarvo {

// The rows behind the rule list. Columns are kept as their own list because every set-up of a
// view adds its columns in front of whatever an earlier set-up left, while a row only ever fills
// the first three columns.
class RuleListModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    struct Column
    {
        QString title;
        int width = 0;
    };

    static constexpr int FilledColumns = 3;

    struct Row
    {
        std::array<QString, FilledColumns> cells;
        int ruleId = 0; // stays 0 when the row set ends the load before the id is read
        int image = -1;
    };

    explicit RuleListModel(QObject *parent = nullptr);

    void insertColumnsInFront(const QList<Column> &columns);
    const QList<Column> &columnList() const { return m_columns; }

    void clearRows();
    // The storage of the rows just cleared, handed out for the next load to fill, so that a
    // reload of a large list does not grow a fresh buffer step by step. Empty when rows remain.
    std::vector<Row> takeRowStorage();
    // Appends in one step; a load hands over everything it read, also when it ended early.
    void appendRows(std::vector<Row> rows);
    void removeRuleRow(int row);

    const Row &row(int row) const { return m_rows.at(size_t(row)); }
    QString cellText(int row, int column) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    QList<Column> m_columns;
    std::vector<Row> m_rows;
};

} // namespace qarvo
