#pragma once

#include "dataservice/textblocks.h"

#include <QAbstractTableModel>
#include <QList>
#include <QString>

#include <array>
#include <memory>
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

    // Where a cell's characters lie in the model's character store; a text too long to show
    // whole is kept aside as it came (size -1, `at` its place), so that it is never copied.
    struct Text
    {
        qsizetype at = 0;
        qsizetype size = 0;
    };

    struct Row
    {
        std::array<Text, FilledColumns> cells;
        int ruleId = 0; // stays 0 when the row set ends the load before the id is read
        int image = -1;
    };

    // The characters of the texts shown whole; a block holds the longest of them.
    using Chars = TextBlocks<char16_t, 32 * 1024>;

    // The rows, in blocks that never move and are kept when the rows are cleared: one array
    // would copy every row read so far at each doubling, into pages touched for the first time.
    class RowBlocks
    {
    public:
        Row &add();
        Row &operator[](size_t i) { return m_blocks[i / PerBlock][i % PerBlock]; }
        const Row &operator[](size_t i) const { return m_blocks[i / PerBlock][i % PerBlock]; }
        const Row &at(size_t i) const;
        size_t size() const { return m_size; }
        bool empty() const { return m_size == 0; }
        void clear() { m_size = 0; }
        // Moves the rows after `i` down by one.
        void erase(size_t i);

    private:
        static constexpr size_t PerBlock = 1024;
        std::vector<std::unique_ptr<Row[]>> m_blocks;
        size_t m_size = 0;
    };

    // The rows of one load, gathered before they are handed over in one step. The characters of
    // every cell go into one store, so that a hundred thousand rules are let go at once rather
    // than string by string, and a reload fills the storage the last load left.
    class Rows
    {
    public:
        Row &add() { return m_rows.add(); }
        Text text(const QString &text);
        Text text(QByteArrayView utf8);

    private:
        friend class RuleListModel;
        RowBlocks m_rows;
        Chars m_chars;
        QList<QString> m_long;
    };

    explicit RuleListModel(QObject *parent = nullptr);

    void insertColumnsInFront(const QList<Column> &columns);
    const QList<Column> &columnList() const { return m_columns; }

    void clearRows();
    // The storage of the rows just cleared, for the next load to fill. Empty when rows remain.
    Rows takeRowStorage();
    // Appends in one step; a load hands over everything it read, also when it ended early.
    void appendRows(Rows rows);
    void removeRuleRow(int row);

    const Row &row(int row) const { return m_rows.at(size_t(row)); }
    // The text as the service sent it; the view shows overlong texts cut.
    QString cellText(int row, int column) const;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    QStringView cell(const Row &row, int column) const;

    QList<Column> m_columns;
    RowBlocks m_rows;
    Chars m_chars;
    QList<QString> m_long;
};

} // namespace qarvo
