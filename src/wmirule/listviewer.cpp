#include "wmirule/listviewer.h"

#include "dataservice/calls.h"
#include "resources/images.h"

#include <QAbstractItemView>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTimer>

namespace qarvo {

CListViewerCombo::CListViewerCombo(CWMIRuleListViewer *list, int row, int column,
                                   const QStringList &choices, const QString &current)
    : QComboBox(list->viewport()), m_list(list), m_row(row), m_column(column), m_choices(choices)
{
    setObjectName(QStringLiteral("inPlaceCombo"));
    setEditable(false);
    addItems(m_choices);
    // Only an exact match is preselected. A stored code that is neither choice stays what the
    // cell shows, and leaving the list without a choice must not turn it into one.
    setPlaceholderText(current);
    setCurrentIndex(int(m_choices.indexOf(current)));
    // A short list keeps its scroll bar, disabled, as the drop-down always shows one.
    view()->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    // The drop-down is at least as wide as the column; where the face in use is wider than the
    // column, it grows so that the choices stay readable.
    const int content = view()->sizeHintForColumn(0) + view()->verticalScrollBar()->sizeHint().width()
                        + 2 * view()->frameWidth() + 4;
    view()->setMinimumWidth(std::max(list->columnWidth(column), content));
}

bool CListViewerCombo::event(QEvent *event)
{
    // Enter and Escape belong to the drop-down while it edits, never to the dialog's OK/Cancel.
    if (event->type() == QEvent::ShortcutOverride) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Escape || key == Qt::Key_Return || key == Qt::Key_Enter) {
            event->accept();
            return true;
        }
    }
    return QComboBox::event(event);
}

void CListViewerCombo::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
        m_cancelled = true;
        [[fallthrough]];
    case Qt::Key_Return:
    case Qt::Key_Enter:
        event->accept();
        if (m_list)
            m_list->setFocus(Qt::OtherFocusReason);
        else
            finish();
        return;
    default:
        QComboBox::keyPressEvent(event);
    }
}

void CListViewerCombo::hidePopup()
{
    QComboBox::hidePopup();
    // The choice made in the drop-down is applied after the popup has closed; hand the focus
    // back once that has happened so that the edit ends with it.
    QTimer::singleShot(0, this, [this] {
        if (m_list && !m_finished)
            m_list->setFocus(Qt::OtherFocusReason);
    });
}

void CListViewerCombo::focusOutEvent(QFocusEvent *event)
{
    QComboBox::focusOutEvent(event);
    if (event->reason() == Qt::PopupFocusReason || view()->isVisible())
        return; // our own drop-down took the focus; the edit goes on
    finish();
}

void CListViewerCombo::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    const std::optional<QString> text = m_cancelled || currentIndex() < 0
                                            ? std::nullopt
                                            : std::optional<QString>(currentText());
    hide();
    deleteLater();
    if (m_list)
        m_list->endInPlaceEdit(m_row, m_column, text);
}

CWMIRuleListViewer::CWMIRuleListViewer(QWidget *parent) : QTreeWidget(parent)
{
    setRootIsDecorated(false);
    setItemsExpandable(false);
    setUniformRowHeights(true);
    setAllColumnsShowFocus(true);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setIconSize(QSize(16, 16));
    header()->setStretchLastSection(false);
    header()->setSectionsMovable(false);
    // The image column is 20 pixels wide, narrower than the style's default minimum.
    header()->setMinimumSectionSize(8);
    setSortingEnabled(false);
}

void CWMIRuleListViewer::setColumns(const QStringList &headers, const QList<int> &widths)
{
    setColumnCount(int(headers.size()));
    setHeaderLabels(headers);
    for (int i = 0; i < widths.size(); ++i)
        setColumnWidth(i, widths[i]);
}

int CWMIRuleListViewer::appendRow(const QString &conjunction, int image, const ConditionTexts &texts)
{
    auto *item = new QTreeWidgetItem(this);
    item->setText(column::Op, conjunction);
    const int row = topLevelItemCount() - 1;
    setRowImage(row, image);
    setRowTexts(row, texts);
    return row;
}

void CWMIRuleListViewer::setRowTexts(int row, const ConditionTexts &t)
{
    QTreeWidgetItem *item = topLevelItem(row);
    if (!item)
        return;
    item->setText(column::NameSpace, t.nameSpace);
    item->setText(column::ClassOrQuery, t.classOrQuery);
    item->setText(column::Field, t.field);
    item->setText(column::Type, t.type);
    item->setText(column::Condition, t.condition);
    item->setText(column::Value, t.value);
    // A query is longer than its column; the whole text is one hover away.
    item->setToolTip(column::ClassOrQuery, t.classOrQuery);
    item->setToolTip(column::Value, t.value);
}

ConditionTexts CWMIRuleListViewer::rowTexts(int row) const
{
    return {cellText(row, column::NameSpace), cellText(row, column::ClassOrQuery),
            cellText(row, column::Field),     cellText(row, column::Type),
            cellText(row, column::Condition), cellText(row, column::Value)};
}

QString CWMIRuleListViewer::cellText(int row, int col) const
{
    const QTreeWidgetItem *item = topLevelItem(row);
    return item ? item->text(col) : QString();
}

int CWMIRuleListViewer::rowImage(int row) const
{
    const QTreeWidgetItem *item = topLevelItem(row);
    return item ? item->data(column::Image, images::ImageIndexRole).toInt() : -1;
}

void CWMIRuleListViewer::setRowImage(int row, int image)
{
    QTreeWidgetItem *item = topLevelItem(row);
    if (!item)
        return;
    item->setIcon(column::Image, images::icon(image));
    item->setData(column::Image, images::ImageIndexRole, image);
}

int CWMIRuleListViewer::selectionMark() const
{
    const QModelIndex current = currentIndex();
    return current.isValid() ? current.row() : -1;
}

QRect CWMIRuleListViewer::cellRect(int row, int col) const
{
    const QTreeWidgetItem *item = topLevelItem(row);
    return item ? visualRect(indexFromItem(item, col)) : QRect();
}

void CWMIRuleListViewer::beginConjunctionEdit(int row)
{
    if (row < 1 || row >= rowCount())
        return; // the first condition's "EQ" is not a choice
    if (m_combo)
        return;
    scrollToItem(topLevelItem(row));
    const int col = column::Op;
    const QRect cell = cellRect(row, col);
    auto *combo = new CListViewerCombo(this, row, col,
                                       {QStringLiteral("AND"), QStringLiteral("OR")},
                                       cellText(row, col));
    // The cell's rectangle raised by 3 pixels at the top; the drop-down opens below on its own.
    combo->setGeometry(cell.left(), cell.top() - 3, cell.width(), cell.height() + 3);
    m_combo = combo;
    combo->show();
    combo->setFocus(Qt::OtherFocusReason);
}

void CWMIRuleListViewer::endInPlaceEdit(int row, int col, const std::optional<QString> &text)
{
    if (!text)
        return; // Escape: nothing changes
    QTreeWidgetItem *item = topLevelItem(row);
    if (!item || col < 0 || col >= columnCount())
        return;
    item->setText(col, *text);
    setRowImage(row, QString::compare(*text, QLatin1String("AND")) > 0 ? images::ConjunctionOr
                                                                       : images::ConjunctionAnd);
}

bool CWMIRuleListViewer::editRow(int row)
{
    if (row < 0 || row >= rowCount())
        return false;
    QPointer<CWMIRuleListViewer> self(this);
    std::optional<ConditionTexts> edited;
    guardAction([&] {
        const ConditionTexts current = rowTexts(row);
        if (m_kind == RuleKind::WQL) {
            if (auto c = editWQLCondition(this, wqlFromTexts(current)))
                edited = textsFromWQL(*c);
        } else {
            if (auto c = editWMICondition(this, wmiFromTexts(current)))
                edited = textsFromWMI(*c);
        }
    });
    if (!self || !edited || row >= rowCount())
        return false;
    setRowTexts(row, *edited);
    Q_EMIT rowEdited(row);
    return true;
}

void CWMIRuleListViewer::mousePressEvent(QMouseEvent *event)
{
    QTreeWidget::mousePressEvent(event);
    if (event->button() != Qt::LeftButton)
        return;
    const QModelIndex index = indexAt(event->position().toPoint());
    if (!index.isValid()) {
        Q_EMIT rowClickState(false);
        return;
    }
    m_clickRow = index.row();
    m_clickColumn = index.column();
    if (selectionMark() >= 1 && m_clickColumn == column::Op)
        beginConjunctionEdit(m_clickRow);
    Q_EMIT rowClickState(true);
}

void CWMIRuleListViewer::mouseDoubleClickEvent(QMouseEvent *event)
{
    QTreeWidget::mouseDoubleClickEvent(event);
    if (event->button() != Qt::LeftButton)
        return;
    const QModelIndex index = indexAt(event->position().toPoint());
    if (index.isValid())
        editRow(index.row());
}

void CWMIRuleListViewer::keyPressEvent(QKeyEvent *event)
{
    const int row = selectionMark();
    if (row >= 0 && event->modifiers() == Qt::NoModifier) {
        if (event->key() == Qt::Key_F2) {
            editRow(row);
            return;
        }
        if (event->key() == Qt::Key_Space && row >= 1) {
            beginConjunctionEdit(row);
            return;
        }
    }
    QTreeWidget::keyPressEvent(event);
    // Moving through the rows with the keyboard makes the row as deletable as a click does.
    if (selectionMark() >= 0 && selectionMark() != row)
        Q_EMIT rowClickState(true);
}

} // namespace qarvo
