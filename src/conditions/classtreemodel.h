#pragma once

// The class tree of CWMIDlg as a read-only model over the catalogue's ClassTree: a catalogue of
// thousands of classes then costs one model reset instead of one widget item per node. A filter
// narrows it to the classes whose names hold a text, with the categories above them.

#include "conditions/catalogue.h"

#include <QAbstractItemModel>
#include <QIcon>

class QTreeView;

namespace qarvo {

class ClassTreeModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    // The selected-state image of a node, next to images::ImageIndexRole for the normal one.
    static constexpr int SelectedImageIndexRole = Qt::UserRole + 65;

    explicit ClassTreeModel(QObject *parent = nullptr);

    void setTree(catalogue::ClassTree tree);
    const catalogue::ClassTree &tree() const { return m_tree; }

    QModelIndex indexOfNode(int node) const;
    int nodeOf(const QModelIndex &index) const;
    // Depth-first from the root: the first node whose text equals `text`.
    QModelIndex findText(const QString &text) const;
    // Opens the nodes the catalogue reader marked as expanded; while filtered, every node shown.
    void applyExpansion(QTreeView *view) const;

    // Shows only classes whose name holds `text` (any case), their categories and their own
    // leaves; an empty text shows everything again.
    void setFilter(const QString &text);
    bool isFiltered() const { return !m_filter.isEmpty(); }
    // The first class the filter matches, from the top of the tree.
    QModelIndex firstMatch() const;

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    QIcon iconPair(int image, int selectedImage) const;
    const QList<int> &childrenOf(int node) const;
    bool matches(int node) const;
    void computeRows();

    catalogue::ClassTree m_tree;
    QString m_filter;
    QList<bool> m_shown;               // while filtered: which nodes are in the tree
    QList<QList<int>> m_shownChildren; // while filtered: each node's children in the tree
    QList<int> m_rows; // each node's row under its parent
    QIcon m_folder;
    QIcon m_leaf;
};

} // namespace qarvo
