#include "browser/paneup.h"

#include "browser/panedown.h"
#include "browser/rulelistmodel.h"
#include "browser/shorttext.h"
#include "control/modulestate.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "resources/images.h"
#include "resources/strings.h"
#include "resources/ui.h"

#include <QContextMenuEvent>
#include <QFrame>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenu>
#include <QPainter>
#include <QPlainTextEdit>
#include <QTextCursor>
#include <QTextDocument>

namespace qarvo {

namespace {

// Built once: the list reads these for every row, and a large list has a hundred thousand.
const QString FieldRuleName = QStringLiteral("rule_name");
const QString FieldRuleComment = QStringLiteral("rule_comment");
const QString FieldRuleId = QStringLiteral("rule_id");
const QString FieldRuleWql = QStringLiteral("rule_wql");
const QString KindWmi = QStringLiteral("WMI");
const QString KindWql = QStringLiteral("WQL");

// A field read the way fieldText() and fieldInt() read it, but from the characters the value
// holds rather than from a copy: a large list reads a hundred thousand of each.
RuleListModel::Text storedText(RuleListModel::Rows &rows, const QVariant &value)
{
    if (value.typeId() == QMetaType::QString)
        return rows.text(*static_cast<const QString *>(value.constData()));
    return rows.text(fieldText(value));
}

int ruleIdOf(const QVariant &value)
{
    if (value.typeId() == QMetaType::QString)
        return ruleIdFromText(*static_cast<const QString *>(value.constData()));
    return fieldInt(value);
}

QList<RuleListModel::Column> columnsOf(qint16 viewType)
{
    if (viewType == category::NAQC)
        return {{QStringLiteral("RuleName"), 150}, {QStringLiteral("Comment"), 200}};
    return {{QStringLiteral("RuleName"), 150},
            {QStringLiteral("RuleType"), 100},
            {QStringLiteral("Comment"), 200}};
}

} // namespace

RuleListView::RuleListView(QWidget *parent) : QTreeView(parent) {}

void RuleListView::mouseDoubleClickEvent(QMouseEvent *event)
{
    QTreeView::mouseDoubleClickEvent(event);
    // Empty space counts too: the command then works on the row that holds the selection.
    if (event->button() == Qt::LeftButton)
        Q_EMIT doubleClickedAnywhere();
}

void RuleListView::contextMenuEvent(QContextMenuEvent *event)
{
    event->accept();
    if (event->reason() == QContextMenuEvent::Keyboard) {
        const QModelIndexList rows = selectionModel()->selectedRows();
        if (rows.isEmpty())
            return;
        scrollTo(rows.first());
        const QRect r = visualRect(rows.first());
        Q_EMIT contextMenuWanted(rows.first().row(),
                                 viewport()->mapToGlobal(QPoint(r.left() + 20, r.bottom())));
        return;
    }
    const QModelIndex hit = indexAt(event->pos());
    Q_EMIT contextMenuWanted(hit.isValid() ? hit.row() : -1, event->globalPos());
}

void RuleListView::keyPressEvent(QKeyEvent *event)
{
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
        && event->modifiers() == Qt::NoModifier) {
        Q_EMIT propertiesKey();
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_Delete && event->modifiers() == Qt::NoModifier) {
        Q_EMIT deleteKey();
        event->accept();
        return;
    }
    if (event->key() == Qt::Key_F10 && event->modifiers() == Qt::ShiftModifier) {
        QContextMenuEvent menu(QContextMenuEvent::Keyboard, QPoint(), QPoint());
        contextMenuEvent(&menu);
        return;
    }
    QTreeView::keyPressEvent(event);
}

CPaneUP::CPaneUP(CPaneDown *paneDown, QWidget *parent) : QWidget(parent), m_paneDown(paneDown)
{
    setObjectName(QStringLiteral("paneUp"));

    m_model = new RuleListModel(this);
    m_list = new RuleListView(this);
    m_list->setObjectName(QStringLiteral("ruleList"));
    m_list->setAccessibleName(QStringLiteral("Rules"));
    m_list->setAccessibleDescription(QStringLiteral("Enter opens the selected rule's properties; Delete "
                                                    "deletes it; the menu key offers both"));
    m_list->setModel(m_model);
    m_list->setItemDelegate(new CellTextDelegate(m_list));
    // Tens of thousands of rules: one row height for all lets the view skip measuring rows.
    m_list->setUniformRowHeights(true);
    m_list->setRootIsDecorated(false);
    m_list->setItemsExpandable(false);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setAllColumnsShowFocus(true);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setSortingEnabled(false);
    m_list->setIconSize(QSize(16, 16));
    m_list->setTextElideMode(Qt::ElideRight);
    m_list->header()->setStretchLastSection(false);
    m_list->header()->setSectionsMovable(false);
    m_list->header()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);

    m_description = new QPlainTextEdit(this);
    m_description->setObjectName(QStringLiteral("description"));
    m_description->setAccessibleName(QStringLiteral("About these rules"));
    m_description->setReadOnly(true);
    m_description->setTabChangesFocus(true);
    m_description->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    m_description->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_description->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The box is as high as the emblem; a slimmer margin lets the two-line NAQC text fit
    // without a scroll bar at the usual widths.
    m_description->document()->setDocumentMargin(2);

    m_hiddenFrame = new QFrame(this);
    m_hiddenFrame->setObjectName(QStringLiteral("hiddenFrame"));
    m_hiddenFrame->hide();

    m_menu = new QMenu(this);
    m_menu->setObjectName(QStringLiteral("ruleMenu"));
    QAction *properties = m_menu->addAction(QStringLiteral("Properties"));
    properties->setObjectName(QStringLiteral("actionProperties"));
    properties->setData(CommandProperties);
    m_menu->addSeparator();
    QAction *remove = m_menu->addAction(QStringLiteral("Delete"));
    remove->setObjectName(QStringLiteral("actionDelete"));
    remove->setData(CommandDelete);
    connect(m_menu, &QMenu::triggered, this,
            [this](QAction *action) { runCommand(action->data().toInt()); });

    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &CPaneUP::onSelectionChanged);
    // Focus belongs to a row: moving between the cells of one row is no change.
    connect(m_list->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            &CPaneUP::onCurrentChanged);
    connect(m_list, &RuleListView::doubleClickedAnywhere, this, &CPaneUP::openProperties);
    connect(m_list, &RuleListView::propertiesKey, this, &CPaneUP::openProperties);
    connect(m_list, &RuleListView::contextMenuWanted, this, &CPaneUP::onContextMenu);
    // The key is the menu's Delete without the menu: the same usage check, no question.
    connect(m_list, &RuleListView::deleteKey, this, [this] { runCommand(CommandDelete); });

    setFocusProxy(m_list);
    setTabOrder(m_list, m_description);
}

CPaneUP::~CPaneUP() = default;

void CPaneUP::setViewType(qint16 viewType)
{
    m_viewType = viewType;
    update(emblemRect());
}

void CPaneUP::setupForNaqc()
{
    setupView(category::NAQC);
}

void CPaneUP::setupForWmi()
{
    setupView(category::WMI);
}

void CPaneUP::setupView(qint16 viewType)
{
    guardAction([&] {
        // Columns and text are added, never replaced: a second set-up puts the view's columns
        // in front of the earlier ones and its text at the caret once more.
        const QList<RuleListModel::Column> columns = columnsOf(viewType);
        m_model->insertColumnsInFront(columns);
        for (int i = 0; i < columns.size(); ++i)
            m_list->header()->resizeSection(i, columns.at(i).width);
        m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
        m_list->setAllColumnsShowFocus(true);
        m_model->clearRows();

        QTextCursor caret = m_description->textCursor();
        caret.insertText(strings::text(viewType == category::NAQC ? strings::NaqcDescription
                                                                  : strings::WmiDescription));
        m_description->setTextCursor(caret);
    });
}

void CPaneUP::loadList(qint16 viewType)
{
    guardAction([&] {
        m_viewType = viewType;
        update(emblemRect());
        m_model->clearRows();
        if (!editionAllows(viewType, EditionAction::LoadList, this))
            return;
        if (ModuleState::instance().checkUser() == 0)
            return;
        readRules(viewType);
    });
}

void CPaneUP::readRules(qint16 viewType)
{
    DataService *service = currentDataService();
    Reply reply;
    if (viewType == category::NAQC)
        reply = calls::GetRQCRule(service);
    else if (viewType == category::WMI)
        reply = calls::GetWMIRules(service);
    else
        return;
    if (reply.failed())
        return;

    // Rows are collected first and handed to the model in one step; a fault hands over what
    // was read up to it, including a row whose name was read but not its later fields.
    RuleListModel::Rows rows = m_model->takeRowStorage();
    const RuleListModel::Text wmi = rows.text(KindWmi);
    const RuleListModel::Text wql = rows.text(KindWql);
    // A row set that lends its texts saves a QString for every cell.
    Utf8Fields *const lent = dynamic_cast<Utf8Fields *>(reply.rows.get());
    const auto cell = [&](RowReader &reader, const QString &field) {
        QByteArrayView utf8;
        return lent && lent->fieldUtf8(field, &utf8) ? rows.text(utf8) : storedText(rows, reader.field(field));
    };
    const auto ruleId = [&](RowReader &reader) {
        QByteArrayView utf8;
        return lent && lent->fieldUtf8(FieldRuleId, &utf8) ? ruleIdFromText(utf8) : ruleIdOf(reader.field(FieldRuleId));
    };
    try {
        RowReader reader(reply);
        while (!reader.atEnd()) {
            if (viewType == category::NAQC) {
                const RuleListModel::Text name = cell(reader, FieldRuleName);
                RuleListModel::Row &row = rows.add();
                row.cells[0] = name;
                row.image = images::NaqcRule;
                row.cells[1] = cell(reader, FieldRuleComment);
                row.ruleId = ruleId(reader);
            } else {
                const qint32 kind = reader.integer(FieldRuleWql);
                const RuleListModel::Text name = cell(reader, FieldRuleName);
                RuleListModel::Row &row = rows.add();
                row.cells[0] = name;
                row.image = images::WmiRule;
                row.cells[1] = kind == 0 ? wmi : wql;
                row.cells[2] = cell(reader, FieldRuleComment);
                row.ruleId = ruleId(reader);
            }
            reader.next();
        }
        reader.close();
    } catch (...) {
        m_model->appendRows(std::move(rows));
        throw;
    }
    m_model->appendRows(std::move(rows));
}

int CPaneUP::selectionMark() const
{
    const QModelIndexList rows = m_list->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void CPaneUP::runCommand(int command)
{
    if (command == CommandProperties)
        openProperties();
    else if (command == CommandDelete)
        deleteSelectedRule();
}

void CPaneUP::openProperties()
{
    guardAction([&] {
        const int mark = selectionMark();
        if (mark < 0)
            return;
        const int ruleId = m_model->row(mark).ruleId;
        // In the NAQC view column 1 holds the comment; the flag then means nothing.
        const int wql = m_model->cellText(mark, 1) == KindWmi ? 0 : 1;
        if (!editionAllows(m_viewType, EditionAction::Properties, this))
            return;

        const qint16 view = m_viewType;
        int result = SheetCancelled;
        if (view == category::NAQC)
            result = openRQCRuleSheet(this, {1, ruleId});
        else if (view == category::WMI)
            result = openWMIRuleSheet(this, {QStringLiteral("Properties"), wql, 1, ruleId});
        else
            return;
        if (result == SheetCancelled)
            return;

        loadList(m_viewType);
        if (m_paneDown) {
            if (view == category::NAQC)
                m_paneDown->showNaqcRule(ruleId);
            else
                m_paneDown->showWmiRule(ruleId);
        }
    });
}

void CPaneUP::deleteSelectedRule()
{
    guardAction([&] {
        const int mark = selectionMark();
        const QString name = m_model->cellText(mark, 0);
        if (!editionAllows(m_viewType, EditionAction::Delete, this))
            return;
        if (mark < 0)
            return;
        const QString idText = ruleIdText(m_model->row(mark).ruleId);
        QString message = QStringLiteral("Cannot delete the [") + name
                          + QStringLiteral("] - because it is being used by the follow rule(s).\n");

        DataService *service = currentDataService();
        Reply users = calls::RulesUsedExRule(service, name, m_viewType);
        if (users.failed())
            return;
        bool used = false;
        forEachRow(users, [&](RowReader &row) {
            used = true;
            message += QStringLiteral("\n    - ") + row.text(FieldRuleName);
        });
        if (used) {
            ui::infoText(this, message);
            return;
        }

        qint32 status;
        if (m_viewType == category::NAQC)
            status = calls::DelRQCRule(service, idText, delmode::FromList);
        else if (m_viewType == category::WMI)
            status = calls::DelWMIRule(service, idText, delmode::FromList);
        else
            return;
        if (failed(status))
            return;
        // Let go of the row first: the view would otherwise select its neighbour and fetch
        // that rule's details unasked.
        m_list->selectionModel()->clear();
        m_model->removeRuleRow(mark);
    });
}

void CPaneUP::onSelectionChanged(const QItemSelection &selected, const QItemSelection &deselected)
{
    guardAction([&] {
        QItemSelectionModel *selection = m_list->selectionModel();
        if (!selected.isEmpty()) {
            m_currentAtSelection = selection->currentIndex();
            m_selectionPending = true;
            const int row = selected.indexes().first().row();
            showRuleBelow(m_model->cellText(row, 0), m_model->row(row).ruleId);
            return;
        }
        if (!deselected.isEmpty()) {
            // The row gives up its focus with its selection, so nothing below points at it.
            m_selectionPending = false;
            selection->clearCurrentIndex();
            clearBelow();
        }
    });
}

void CPaneUP::onCurrentChanged(const QModelIndex &current, const QModelIndex &)
{
    const bool partOfSelection = m_selectionPending && current.isValid()
                                 && current.row() == m_currentAtSelection.row();
    m_selectionPending = false;
    if (partOfSelection)
        return;
    guardAction([&] { clearBelow(); });
}

void CPaneUP::onContextMenu(int row, const QPoint &globalPos)
{
    guardAction([&] {
        if (row < 0 || row >= m_model->rowCount())
            return;
        const QString name = m_model->cellText(row, 0);
        if (!editionAllows(m_viewType, EditionAction::ContextMenu, this))
            return;
        if (m_paneDown)
            m_paneDown->setHeading(name);
        m_menu->exec(globalPos);
    });
}

void CPaneUP::showRuleBelow(const QString &name, int ruleId)
{
    if (!m_paneDown)
        return;
    m_paneDown->setHeading(name);
    if (m_viewType == category::NAQC)
        m_paneDown->showNaqcRule(ruleId);
    else if (m_viewType == category::WMI)
        m_paneDown->showWmiRule(ruleId);
}

void CPaneUP::clearBelow()
{
    if (m_paneDown)
        m_paneDown->clear();
}

void CPaneUP::layoutControls(int width, int height)
{
    // Emblem in the top left corner, the description beside it, the list below both.
    const QRect emblem = emblemRect();
    const int textLeft = emblem.right() + 11;
    m_description->setGeometry(textLeft, emblem.top(), qMax(0, width - textLeft - 10),
                               emblem.height());
    const int listTop = emblem.bottom() + 11;
    m_list->setGeometry(10, listTop, qMax(0, width - 20), qMax(0, height - listTop - 10));
}

void CPaneUP::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layoutControls(width(), height());
}

void CPaneUP::paintEvent(QPaintEvent *)
{
    int resource = 0;
    if (m_viewType == category::NAQC)
        resource = images::NaqcEmblem;
    else if (m_viewType == category::WMI)
        resource = images::WmiEmblem;
    if (!resource)
        return;
    if (m_emblemView != m_viewType || m_emblem.isNull()) {
        m_emblem = images::bitmap(resource, emblemRect().size());
        m_emblemView = m_viewType;
    }
    QPainter painter(this);
    painter.drawPixmap(emblemRect(), m_emblem);
}

} // namespace qarvo
