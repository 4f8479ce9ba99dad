#include "conditions/classtreemodel.h"

#include "resources/images.h"

#include <QTreeView>

namespace qarvo {

namespace {
QIcon makePair(int image, int selectedImage)
{
    // The tree shows one picture for a node and another while it is selected.
    QIcon pair;
    pair.addPixmap(images::icon(image).pixmap(16, 16), QIcon::Normal);
    pair.addPixmap(images::icon(selectedImage).pixmap(16, 16), QIcon::Selected);
    return pair;
}
} // namespace

ClassTreeModel::ClassTreeModel(QObject *parent)
    : QAbstractItemModel(parent),
      m_folder(makePair(images::FolderClosed, images::FolderOpen)),
      m_leaf(makePair(images::Leaf, images::LeafSelected))
{
}

void ClassTreeModel::setTree(catalogue::ClassTree tree)
{
    beginResetModel();
    m_tree = std::move(tree);
    m_filter.clear();
    m_shown.clear();
    m_shownChildren.clear();
    computeRows();
    endResetModel();
}

void ClassTreeModel::computeRows()
{
    m_rows.fill(0, m_tree.nodes.size());
    for (int node = 0; node < m_tree.nodes.size(); ++node) {
        const QList<int> &children = childrenOf(node);
        for (qsizetype row = 0; row < children.size(); ++row)
            m_rows[children[row]] = int(row);
    }
}

const QList<int> &ClassTreeModel::childrenOf(int node) const
{
    return isFiltered() ? m_shownChildren[node] : m_tree.nodes[node].children;
}

bool ClassTreeModel::matches(int node) const
{
    const catalogue::TreeNode &n = m_tree.nodes[node];
    return n.isClass && n.text.contains(m_filter, Qt::CaseInsensitive);
}

void ClassTreeModel::setFilter(const QString &text)
{
    beginResetModel();
    m_filter = text.trimmed();
    m_shown.clear();
    m_shownChildren.clear();
    const qsizetype count = m_tree.nodes.size();
    if (isFiltered() && count > 0) {
        // A parent always comes before its children in the node list, so one pass down finds
        // everything inside a matching class and one pass up adds the categories above.
        m_shown.fill(false, count);
        for (int node = 0; node < count; ++node) {
            const int parent = m_tree.nodes[node].parent;
            m_shown[node] = matches(node) || (parent >= 0 && m_shown[parent]);
        }
        for (int node = int(count) - 1; node > 0; --node) {
            if (m_shown[node])
                m_shown[m_tree.nodes[node].parent] = true;
        }
        m_shown[0] = true;
        m_shownChildren.resize(count);
        for (int node = 0; node < count; ++node) {
            if (!m_shown[node])
                continue;
            for (int child : m_tree.nodes[node].children) {
                if (m_shown[child])
                    m_shownChildren[node].append(child);
            }
        }
    }
    computeRows();
    endResetModel();
}

QModelIndex ClassTreeModel::firstMatch() const
{
    if (!isFiltered() || m_tree.nodes.isEmpty())
        return {};
    QList<int> stack{0};
    while (!stack.isEmpty()) {
        const int node = stack.takeLast();
        if (matches(node))
            return indexOfNode(node);
        const QList<int> &children = childrenOf(node);
        for (auto it = children.crbegin(); it != children.crend(); ++it)
            stack.append(*it);
    }
    return {};
}

QModelIndex ClassTreeModel::indexOfNode(int node) const
{
    if (node < 0 || node >= m_tree.nodes.size() || (isFiltered() && !m_shown[node]))
        return {};
    return createIndex(m_rows[node], 0, quintptr(node));
}

int ClassTreeModel::nodeOf(const QModelIndex &index) const
{
    return index.isValid() && index.model() == this ? int(index.internalId()) : -1;
}

QModelIndex ClassTreeModel::findText(const QString &text) const
{
    if (m_tree.nodes.isEmpty())
        return {};
    QList<int> stack{0};
    while (!stack.isEmpty()) {
        const int node = stack.takeLast();
        if (m_tree.nodes[node].text == text)
            return indexOfNode(node);
        const auto &children = m_tree.nodes[node].children;
        for (auto it = children.crbegin(); it != children.crend(); ++it)
            stack.append(*it);
    }
    return {};
}

void ClassTreeModel::applyExpansion(QTreeView *view) const
{
    if (isFiltered()) {
        view->expandAll();
        return;
    }
    for (int node = 0; node < m_tree.nodes.size(); ++node) {
        if (m_tree.nodes[node].expanded)
            view->setExpanded(indexOfNode(node), true);
    }
}

QModelIndex ClassTreeModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row == 0 && !m_tree.nodes.isEmpty() ? createIndex(0, 0, quintptr(0))
                                                    : QModelIndex();
    const int node = nodeOf(parent);
    if (node < 0 || row >= childrenOf(node).size())
        return {};
    return createIndex(row, 0, quintptr(childrenOf(node)[row]));
}

QModelIndex ClassTreeModel::parent(const QModelIndex &child) const
{
    const int node = nodeOf(child);
    if (node < 0)
        return {};
    return indexOfNode(m_tree.nodes[node].parent);
}

int ClassTreeModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return m_tree.nodes.isEmpty() ? 0 : 1;
    if (parent.column() != 0)
        return 0;
    const int node = nodeOf(parent);
    return node < 0 ? 0 : int(childrenOf(node).size());
}

int ClassTreeModel::columnCount(const QModelIndex &) const
{
    return 1;
}

QVariant ClassTreeModel::data(const QModelIndex &index, int role) const
{
    const int node = nodeOf(index);
    if (node < 0)
        return {};
    const catalogue::TreeNode &n = m_tree.nodes[node];
    switch (role) {
    case Qt::DisplayRole:
        return n.text;
    case Qt::DecorationRole:
        return iconPair(n.image, n.selectedImage);
    case images::ImageIndexRole:
        return n.image;
    case SelectedImageIndexRole:
        return n.selectedImage;
    default:
        return {};
    }
}

Qt::ItemFlags ClassTreeModel::flags(const QModelIndex &index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::NoItemFlags;
}

QIcon ClassTreeModel::iconPair(int image, int selectedImage) const
{
    if (image == images::FolderClosed && selectedImage == images::FolderOpen)
        return m_folder;
    if (image == images::Leaf && selectedImage == images::LeafSelected)
        return m_leaf;
    return makePair(image, selectedImage);
}

} // namespace qarvo
