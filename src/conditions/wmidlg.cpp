#include "conditions/wmidlg.h"

#include "conditions/arraydlg.h"
#include "conditions/okcancel.h"
#include "conditions/classtreemodel.h"
#include "resources/images.h"
#include "resources/strings.h"
#include "resources/ui.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QTreeView>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace qarvo {

namespace {

const QStringList AllOperators{"=", "!=", ">", "<", ">=", "<="};
const QStringList EqualityOperators{"=", "!="};
const QStringList StringOperators{"in", "not in"};
const QString NotSupported = QStringLiteral("NOT SUPPORT");

// Catalogue descriptions break lines with CR LF; the text boxes want plain line feeds.
QString forDisplay(const QString &text)
{
    QString out = text;
    out.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    return out;
}

// The value a value-list item stands for: the code alone, whatever the item shows.
QString itemValue(const QComboBox *list, int index)
{
    const QVariant code = list->itemData(index);
    return code.isValid() ? code.toString() : list->itemText(index);
}

QLineEdit *readOnlyEdit(const char *name, QWidget *parent)
{
    auto *edit = new QLineEdit(parent);
    edit->setObjectName(QLatin1String(name));
    edit->setReadOnly(true);
    edit->setFocusPolicy(Qt::ClickFocus);
    return edit;
}

QPlainTextEdit *readOnlyText(const char *name, QWidget *parent)
{
    auto *edit = new QPlainTextEdit(parent);
    edit->setObjectName(QLatin1String(name));
    edit->setReadOnly(true);
    edit->setFocusPolicy(Qt::ClickFocus);
    edit->setTabChangesFocus(true);
    return edit;
}

} // namespace

int firstWMIDlgProblem(const WMIDlgEntries &e)
{
    if (e.className.isEmpty())
        return strings::SelectWmiClass;
    if (e.field.isEmpty())
        return strings::SelectField;
    if (e.field == NotSupported)
        return strings::FieldNotSupported;
    if (!e.operatorChosen)
        return strings::ConditionEmpty;
    if (e.valueEditShown && e.valueText.isEmpty())
        return strings::ValueEmpty;
    if (e.valueListShown && !e.valueListChosen)
        return strings::ValueEmpty;
    return 0;
}

CWMIDlg::CWMIDlg(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("WMI"));
    setObjectName(QStringLiteral("CWMIDlg"));

    m_model = new ClassTreeModel(this);
    m_tree = new QTreeView(this);
    m_tree->setObjectName(QStringLiteral("classTree"));
    m_tree->setModel(m_model);
    m_tree->setHeaderHidden(true);
    m_tree->setUniformRowHeights(true);
    m_tree->setRootIsDecorated(true);
    m_tree->setItemsExpandable(true);
    m_tree->setIconSize(QSize(16, 16));
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tree->setToolTip(QStringLiteral("WMI classes by category"));
    // Long class names scroll rather than being cut off.
    m_tree->header()->setStretchLastSection(false);
    m_tree->header()->resizeSection(0, 330);
    connect(m_tree->selectionModel(), &QItemSelectionModel::currentChanged, this,
            [this](const QModelIndex &current) {
                // Coming back to the node shown (after a search hid it) keeps its fields and
                // the field chosen.
                if (!current.isValid() || m_model->nodeOf(current) != m_shownNode)
                    selectTreeNode(current);
            });

    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("classSearch"));
    m_search->setAccessibleName(QStringLiteral("Search classes"));
    m_search->setPlaceholderText(QStringLiteral("Search classes (Ctrl+F)"));
    m_search->setToolTip(
        QStringLiteral("Shows the classes whose names hold this text; Enter picks the first"));
    m_search->setClearButtonEnabled(true);
    m_search->installEventFilter(this);
    connect(m_search, &QLineEdit::textChanged, this, &CWMIDlg::applySearch);
    auto *find = new QShortcut(QKeySequence::Find, this);
    connect(find, &QShortcut::activated, this, [this] {
        m_search->setFocus(Qt::ShortcutFocusReason);
        m_search->selectAll();
    });

    m_fields = new QTreeWidget(this);
    m_fields->setObjectName(QStringLiteral("fieldList"));
    m_fields->setHeaderLabels({QStringLiteral("Field Name"), QStringLiteral("Type")});
    m_fields->setColumnWidth(0, 160);
    m_fields->setColumnWidth(1, 140);
    m_fields->header()->setStretchLastSection(false);
    m_fields->setRootIsDecorated(false);
    m_fields->setUniformRowHeights(true);
    m_fields->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_fields->setSelectionMode(QAbstractItemView::SingleSelection);
    m_fields->setAllColumnsShowFocus(true);
    connect(m_fields, &QTreeWidget::currentItemChanged, this,
            [this](QTreeWidgetItem *current) { selectFieldRow(current); });

    m_description = readOnlyText("descriptionEdit", this);
    m_description->setMaximumHeight(60);
    m_nameSpace = readOnlyEdit("namespaceEdit", this);
    m_field = readOnlyEdit("fieldEdit", this);
    m_type = readOnlyEdit("typeEdit", this);
    m_fieldDescription = readOnlyText("fieldDescriptionEdit", this);
    m_fieldDescription->setMaximumHeight(60);
    m_units = readOnlyEdit("unitsEdit", this);
    m_units->setToolTip(QStringLiteral("Units of the field's values"));
    m_units->hide();

    m_condition = new QComboBox(this);
    m_condition->setObjectName(QStringLiteral("conditionCombo"));
    m_condition->setToolTip(QStringLiteral("Comparison between the field and the value"));
    m_value = new QLineEdit(this);
    m_value->setObjectName(QStringLiteral("valueEdit"));
    m_valueList = new QComboBox(this);
    m_valueList->setObjectName(QStringLiteral("valueCombo"));
    m_array = new QPushButton(QStringLiteral("Array"), this);
    m_array->setObjectName(QStringLiteral("arrayButton"));
    m_array->setAutoDefault(false);
    m_array->setToolTip(QStringLiteral("Edit the values an array field is compared with"));
    connect(m_array, &QPushButton::clicked, this, &CWMIDlg::openArray);

    QPushButton *cancel = nullptr;
    std::tie(m_ok, cancel) = makeOkCancel(this);

    // Class side: description, namespace and the field list of the selected class.
    auto *classSide = new QGridLayout;
    classSide->addWidget(new QLabel(QStringLiteral("Description:"), this), 0, 0, Qt::AlignTop);
    classSide->addWidget(m_description, 0, 1);
    classSide->addWidget(new QLabel(QStringLiteral("Namespace:"), this), 1, 0);
    classSide->addWidget(m_nameSpace, 1, 1);
    classSide->addWidget(m_fields, 2, 0, 1, 2);
    classSide->setRowStretch(2, 1);

    // Condition side: the chosen field, its description and the comparison.
    auto *valueCell = new QHBoxLayout;
    valueCell->setContentsMargins(0, 0, 0, 0);
    valueCell->addWidget(m_value, 1);
    valueCell->addWidget(m_valueList, 1);
    valueCell->addWidget(m_array);
    auto *typeCell = new QHBoxLayout;
    typeCell->setContentsMargins(0, 0, 0, 0);
    typeCell->addWidget(m_type, 2);
    typeCell->addWidget(m_units, 1);

    auto *fieldLabel = new QLabel(QStringLiteral("Field"), this);
    auto *typeLabel = new QLabel(QStringLiteral("Type"), this);
    auto *conditionLabel = new QLabel(QStringLiteral("Condition"), this);
    conditionLabel->setBuddy(m_condition);
    auto *valueLabel = new QLabel(QStringLiteral("Value"), this);
    valueLabel->setBuddy(m_value);
    auto *conditionSide = new QGridLayout;
    conditionSide->addWidget(fieldLabel, 0, 0);
    conditionSide->addWidget(m_field, 0, 1);
    conditionSide->addWidget(typeLabel, 1, 0);
    conditionSide->addLayout(typeCell, 1, 1);
    conditionSide->addWidget(m_fieldDescription, 2, 1);
    conditionSide->addWidget(conditionLabel, 3, 0);
    conditionSide->addWidget(m_condition, 3, 1, Qt::AlignLeft);
    conditionSide->addWidget(valueLabel, 4, 0);
    conditionSide->addLayout(valueCell, 4, 1);
    m_condition->setMinimumWidth(100);

    auto *right = new QVBoxLayout;
    right->addLayout(classSide, 3);
    right->addLayout(conditionSide, 2);

    auto *left = new QVBoxLayout;
    left->addWidget(m_search);
    left->addWidget(m_tree, 1);

    auto *body = new QHBoxLayout;
    body->addLayout(left, 2);
    body->addLayout(right, 3);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_ok);
    buttons->addWidget(cancel);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(body, 1);
    layout->addLayout(buttons);

    setTabOrder(m_search, m_tree);
    setTabOrder(m_tree, m_fields);
    setTabOrder(m_fields, m_condition);
    setTabOrder(m_condition, m_value);
    setTabOrder(m_value, m_valueList);
    setTabOrder(m_valueList, m_array);
    setTabOrder(m_array, m_ok);
    setTabOrder(m_ok, cancel);

    // The opening state: no operator to choose, the value only to look at.
    m_valueList->hide();
    m_condition->setEnabled(false);
    m_array->hide();
    m_value->setReadOnly(true);

    resize(720, 540);
}

CWMIDlg::~CWMIDlg() = default;

void CWMIDlg::setProgramPath(const QString &programPath)
{
    m_programPath = programPath;
}

void CWMIDlg::setEditCondition(const WMICondition &condition)
{
    m_edit = condition;
}

void CWMIDlg::setVisible(bool visible)
{
    // The catalogue is read when the dialog first opens, after the caller has handed in what to
    // edit, so a file message comes up before the dialog does.
    if (visible && !m_initialised) {
        m_initialised = true;
        initDialog();
    }
    QDialog::setVisible(visible);
}

void CWMIDlg::initDialog()
{
    if (!m_programPath)
        m_programPath = catalogue::programDirectory();

    catalogue::ClassTree tree;
    if (m_programPath)
        catalogue::LoadClassList(*m_programPath, tree, this);
    m_model->setTree(std::move(tree));
    m_model->applyExpansion(m_tree);

    if (!m_edit) {
        m_tree->setCurrentIndex(m_model->indexOfNode(0));
        m_tree->setFocus();
        return;
    }

    const QModelIndex classNode = m_model->findText(m_edit->className);
    if (classNode.isValid()) {
        m_tree->setCurrentIndex(classNode);
        m_tree->scrollTo(classNode);
    }
    const QList<QTreeWidgetItem *> rows =
        m_fields->findItems(m_edit->field, Qt::MatchExactly | Qt::MatchCaseSensitive, 0);
    if (!rows.isEmpty()) {
        m_fields->setCurrentItem(rows.first());
        m_fields->scrollToItem(rows.first());
        m_fields->setFocus();
    }
    m_value->setText(m_edit->value);
    int chosen = -1;
    for (int i = 0; i < m_valueList->count() && chosen < 0; ++i) {
        if (itemValue(m_valueList, i) == m_edit->value)
            chosen = i;
    }
    m_valueList->setCurrentIndex(chosen);
    m_condition->setCurrentIndex(
        m_condition->findText(m_edit->condition, Qt::MatchStartsWith | Qt::MatchCaseSensitive));
}

void CWMIDlg::applySearch(const QString &text)
{
    m_model->setFilter(text);
    m_model->applyExpansion(m_tree);
    const QModelIndex shown = m_model->indexOfNode(m_shownNode);
    if (shown.isValid()) {
        m_tree->selectionModel()->setCurrentIndex(shown, QItemSelectionModel::ClearAndSelect);
        m_tree->scrollTo(shown);
    }
}

bool CWMIDlg::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_search || event->type() != QEvent::KeyPress)
        return QDialog::eventFilter(watched, event);
    // Enter and Escape belong to the search here, not to the dialog's OK and Cancel.
    switch (static_cast<QKeyEvent *>(event)->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (const QModelIndex first = m_model->firstMatch(); first.isValid()) {
            m_tree->setCurrentIndex(first);
            m_tree->scrollTo(first);
            m_tree->setFocus(Qt::OtherFocusReason);
        }
        return true;
    case Qt::Key_Escape:
        if (m_search->text().isEmpty())
            return false;
        m_search->clear();
        return true;
    case Qt::Key_Down:
        m_tree->setFocus(Qt::TabFocusReason);
        return true;
    default:
        return false;
    }
}

void CWMIDlg::selectTreeNode(const QModelIndex &index)
{
    m_shownNode = m_model->nodeOf(index);
    m_fields->clear();
    m_field->clear();
    m_type->clear();
    m_fieldDescription->clear();
    m_units->clear();
    m_units->hide();
    m_value->clear();
    m_description->clear();
    m_nameSpace->clear();
    m_condition->clear();
    m_valueList->clear();
    m_condition->setEnabled(false);
    m_array->hide();
    showValueEdit(false);
    m_records.clear();

    if (!index.isValid())
        return;
    const QString name = index.data(Qt::DisplayRole).toString();
    if (const catalogue::NodeEntry *entry = m_model->tree().FindNodeEntry(name))
        m_description->setPlainText(forDisplay(entry->description));

    if (!m_programPath)
        return;
    const auto loaded = catalogue::LoadClassFields(*m_programPath, name, this);
    if (!loaded)
        return;
    m_nameSpace->setText(loaded->nameSpace);
    if (loaded->description)
        m_description->setPlainText(forDisplay(*loaded->description));
    m_records = loaded->fields;

    QList<QTreeWidgetItem *> rows;
    rows.reserve(m_records.size());
    for (const catalogue::FieldRecord &record : std::as_const(m_records))
        rows << new QTreeWidgetItem(QStringList{record.name, record.type});
    m_fields->addTopLevelItems(rows);
}

void CWMIDlg::showValueEdit(bool writable)
{
    m_value->show();
    m_value->setReadOnly(!writable);
    m_valueList->hide();
}

const catalogue::FieldRecord *CWMIDlg::recordNamed(const QString &name) const
{
    for (const catalogue::FieldRecord &record : m_records) {
        if (record.name == name)
            return &record;
    }
    return nullptr;
}

void CWMIDlg::selectFieldRow(QTreeWidgetItem *item)
{
    if (!item || item->columnCount() < 2)
        return;

    showValueEdit(false);
    m_condition->setEnabled(false);
    m_array->hide();
    m_units->hide();

    const QString type = item->text(1);
    if (type.endsWith(QLatin1String(" Ref"))) {
        // References cannot be compared yet; OK says so.
        m_field->setText(NotSupported);
        m_type->clear();
        m_fieldDescription->clear();
        m_condition->clear();
        m_valueList->clear();
        return;
    }

    showValueEdit(true);
    m_condition->setEnabled(true);
    m_value->clear();

    const QString name = item->text(0);
    const catalogue::FieldRecord *record = recordNamed(name);
    const bool isArray = name.contains(QLatin1String("[]"));
    m_field->setText(name);
    m_type->setText(record ? record->type : type);
    m_fieldDescription->setPlainText(record ? forDisplay(record->description) : QString());

    m_condition->clear();
    m_valueList->clear();
    if (type == QLatin1String("boolean") || type == QLatin1String("BOOLEAN")) {
        m_condition->addItems(EqualityOperators);
        m_value->hide();
        m_valueList->addItems({QStringLiteral("TRUE"), QStringLiteral("FALSE")});
        m_valueList->show();
    } else if (type == QLatin1String("string")) {
        // A plain string is compared by membership only.
        m_condition->addItems(StringOperators);
    } else if (!isArray) {
        m_condition->addItems(AllOperators);
    } else {
        m_condition->addItems(EqualityOperators);
    }
    m_condition->setCurrentIndex(-1);

    if (!isArray && record) {
        if (record->valueMap.contains(QLatin1String("ValueMap{"))) {
            m_value->hide();
            m_valueList->clear();
            const QStringList codes = catalogue::valueMapChoices(record->valueMap);
            const QStringList meanings = catalogue::valueMeanings(record->meanings);
            for (qsizetype i = 0; i < codes.size(); ++i) {
                // The list shows what a code means; the rule still stores the code alone.
                const QString meaning = i < meanings.size() ? meanings[i] : QString();
                const QString shown =
                    meaning.isEmpty() ? codes[i] : codes[i] + QStringLiteral(" \u2013 ") + meaning;
                m_valueList->addItem(shown, codes[i]);
            }
            m_valueList->show();
        }
        if (record->units.contains(QLatin1String("Units("))) {
            m_units->setText(catalogue::unitsText(record->units));
            m_units->show();
        }
    }
    m_valueList->setCurrentIndex(-1);

    if (isArray) {
        // Array values are only ever built through the array dialog.
        m_array->show();
        m_value->setReadOnly(true);
    }
}

void CWMIDlg::openArray()
{
    CArrayDlg dialog(this);
    const QString current = m_value->text();
    dialog.setArrayText(current, !current.isEmpty());
    if (dialog.exec() == QDialog::Accepted)
        m_value->setText(dialog.arrayText());
}

void CWMIDlg::accept()
{
    WMIDlgEntries entries;
    entries.className = m_shownNode >= 0 ? m_model->tree().nodes[m_shownNode].text : QString();
    entries.field = m_field->text();
    entries.operatorChosen = m_condition->currentIndex() >= 0;
    entries.valueEditShown = !m_value->isHidden();
    entries.valueText = m_value->text();
    entries.valueListShown = !m_valueList->isHidden();
    entries.valueListChosen = m_valueList->currentIndex() >= 0;

    if (const int problem = firstWMIDlgProblem(entries)) {
        ui::info(this, problem);
        switch (problem) {
        case strings::SelectWmiClass:
            m_tree->setFocus();
            break;
        case strings::SelectField:
        case strings::FieldNotSupported:
            m_fields->setFocus();
            break;
        case strings::ConditionEmpty:
            m_condition->setFocus();
            break;
        default:
            if (entries.valueListShown)
                m_valueList->setFocus();
            else
                m_value->setFocus();
            break;
        }
        return;
    }

    m_result.nameSpace = m_nameSpace->text();
    m_result.className = entries.className;
    m_result.field = entries.field;
    m_result.type = m_type->text();
    m_result.condition = m_condition->currentText();
    m_result.value = entries.valueListShown ? itemValue(m_valueList, m_valueList->currentIndex())
                                            : entries.valueText;
    QDialog::accept();
}

} // namespace qarvo
