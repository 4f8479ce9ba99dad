#include "wmirule/rulepages.h"

#include "conditions/editors.h"
#include "dataservice/calls.h"
#include "resources/images.h"
#include "resources/strings.h"
#include "wmirule/listviewer.h"
#include "wmirule/rulesheet.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace qarvo {

namespace {

// Page 1 hands on at most this many characters of name and comment; the edits stop there so
// that nothing typed is ever cut or refused later.
constexpr int NameAndCommentLimit = width::PageComment - 1;

} // namespace

CWMIRulePage::CWMIRulePage(CWMIRuleSheet &sheet, const QString &objectName, int titleId,
                           int subTitleId)
    : m_sheet(sheet)
{
    setObjectName(objectName);
    setTitle(strings::text(titleId));
    setSubTitle(strings::text(subTitleId));
}

// ---------------------------------------------------------------------------------------------

CWMIRulePage1::CWMIRulePage1(CWMIRuleSheet &sheet)
    : CWMIRulePage(sheet, QStringLiteral("wmiRulePage1"), strings::WmiPage1Title,
                   strings::WmiPage1Subtitle)
{
    m_name = new QLineEdit(this);
    m_name->setObjectName(QStringLiteral("nameEdit"));
    m_name->setMaxLength(NameAndCommentLimit);
    m_name->setToolTip(tr("At most %1 characters").arg(NameAndCommentLimit));
    m_comment = new QLineEdit(this);
    m_comment->setObjectName(QStringLiteral("commentEdit"));
    m_comment->setMaxLength(NameAndCommentLimit);
    m_comment->setToolTip(tr("At most %1 characters").arg(NameAndCommentLimit));

    auto *nameLabel = new QLabel(QStringLiteral("Rule Na&me : "), this);
    nameLabel->setBuddy(m_name);
    auto *commentLabel = new QLabel(QStringLiteral("&Comment : "), this);
    commentLabel->setBuddy(m_comment);

    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    form->addRow(nameLabel, m_name);
    form->addRow(commentLabel, m_comment);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addStretch(1);
    setTabOrder(m_name, m_comment);

    connect(m_name, &QLineEdit::textChanged, this, &QWizardPage::completeChanged);
}

void CWMIRulePage1::loadFromRecord()
{
    m_name->setText(m_sheet.record().ruleName);
    m_comment->setText(m_sheet.record().comment);
}

void CWMIRulePage1::activate()
{
    Q_EMIT completeChanged();
    m_name->setFocus();
}

bool CWMIRulePage1::isComplete() const
{
    // Blanks count: a name is whatever was typed.
    return !m_name->text().isEmpty();
}

bool CWMIRulePage1::validatePage()
{
    store();
    return true;
}

void CWMIRulePage1::store()
{
    WMIRuleData &record = m_sheet.record();
    record.ruleName = fitRecordText(m_name->text(), recordsize::RuleName);
    record.comment = fitRecordText(m_comment->text(), width::PageComment);
}

// ---------------------------------------------------------------------------------------------

CWMIRulePage2::CWMIRulePage2(CWMIRuleSheet &sheet)
    : CWMIRulePage(sheet, QStringLiteral("wmiRulePage2"),
                   sheet.kind() == RuleKind::WQL ? strings::WqlPage2Title : strings::WmiPage2Title,
                   sheet.kind() == RuleKind::WQL ? strings::WqlPage2Subtitle
                                                 : strings::WmiPage2Subtitle)
{
    const bool wql = sheet.kind() == RuleKind::WQL;

    m_list = new CWMIRuleListViewer(this);
    m_list->setObjectName(QStringLiteral("conditionList"));
    m_list->setAccessibleName(QStringLiteral("Conditions"));
    m_list->setAccessibleDescription(QStringLiteral("Click the OP cell of a later condition to choose AND or OR; "
                                                    "double-click a condition to edit it"));
    m_list->setKind(sheet.kind());
    if (wql) {
        m_list->setColumns({QString(), QStringLiteral("OP"), QStringLiteral("NameSpace"),
                            QStringLiteral("WQL"), QStringLiteral("Field"), QStringLiteral("Type"),
                            QStringLiteral("Eq"), QStringLiteral("Value")},
                           {20, 30, 80, 140, 80, 60, 30, 40});
    } else {
        m_list->setColumns({QString(), QStringLiteral("OP"), QStringLiteral("NameSpace"),
                            QStringLiteral("WMI Class"), QStringLiteral("Field"),
                            QStringLiteral("Type"), QStringLiteral("Eq"), QStringLiteral("Value")},
                           {20, 40, 80, 100, 80, 80, 30, 40});
    }
    m_list->setToolTip(tr("Double-click a condition (or press F2) to edit it. Click the OP cell "
                          "of a later condition (or press Space) to choose AND or OR."));

    m_add = new QPushButton(QStringLiteral("Add"), this);
    m_add->setObjectName(QStringLiteral("addButton"));
    m_add->setAutoDefault(false);
    m_add->setToolTip(wql ? tr("Add a WQL condition") : tr("Add a WMI condition"));
    m_delete = new QPushButton(QStringLiteral("Delete"), this);
    m_delete->setObjectName(QStringLiteral("deleteButton"));
    m_delete->setAutoDefault(false);
    m_delete->setToolTip(tr("Delete the condition last clicked"));
    m_delete->setEnabled(false);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_add);
    buttons->addWidget(m_delete);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_list, 1);
    layout->addLayout(buttons);
    setTabOrder(m_list, m_add);
    setTabOrder(m_add, m_delete);

    connect(m_add, &QPushButton::clicked, this, &CWMIRulePage2::addCondition);
    connect(m_delete, &QPushButton::clicked, this, &CWMIRulePage2::deleteCondition);
    connect(m_list, &CWMIRuleListViewer::rowClickState, m_delete, &QWidget::setEnabled);
}

bool CWMIRulePage2::loadFromService()
{
    bool complete = false;
    guardAction([this, &complete] {
        Reply reply = calls::GetWMIRuleInfo(m_sheet.record().service, m_sheet.record().ruleId);
        if (reply.failed())
            return;
        forEachRow(reply, [this](RowReader &row) {
            const qint32 op = row.integer(QStringLiteral("rule_op"));
            ConditionTexts t;
            t.nameSpace = row.text(QStringLiteral("rule_namespace"));
            t.classOrQuery = row.text(QStringLiteral("rule_class"));
            t.field = row.text(QStringLiteral("rule_field"));
            t.type = row.text(QStringLiteral("rule_type"));
            t.condition = row.text(QStringLiteral("rule_condition"));
            t.value = row.text(QStringLiteral("rule_value"));
            const QString conjunction = conjunctionFromStored(op);
            m_list->appendRow(conjunction, imageForConjunction(conjunction), t);
        });
        complete = true;
    });
    setButtons();
    return complete;
}

void CWMIRulePage2::activate()
{
    setButtons();
}

bool CWMIRulePage2::isComplete() const
{
    return m_list->rowCount() > 0;
}

bool CWMIRulePage2::validatePage()
{
    store();
    return true;
}

void CWMIRulePage2::store()
{
    QList<WMIConditionRecord> records;
    records.reserve(m_list->rowCount());
    for (int row = 0; row < m_list->rowCount(); ++row) {
        WMIConditionRecord r;
        r.conjunction = fitRecordText(m_list->cellText(row, column::Op), width::Conjunction);
        r.nameSpace = fitRecordText(m_list->cellText(row, column::NameSpace), recordsize::NameSpace);
        r.className = fitRecordText(m_list->cellText(row, column::ClassOrQuery), recordsize::ClassOrQuery);
        r.field = fitRecordText(m_list->cellText(row, column::Field), recordsize::Field);
        r.type = fitRecordText(m_list->cellText(row, column::Type), recordsize::Type);
        r.op = fitRecordText(m_list->cellText(row, column::Condition), recordsize::Operator);
        r.value = fitRecordText(m_list->cellText(row, column::Value), recordsize::Value);
        records.append(std::move(r));
    }
    m_sheet.record().conditions = std::move(records);
}

void CWMIRulePage2::addCondition()
{
    std::optional<ConditionTexts> added;
    guardAction([this, &added] {
        if (m_sheet.kind() == RuleKind::WQL) {
            if (auto c = editWQLCondition(this))
                added = textsFromWQL(*c);
        } else {
            if (auto c = editWMICondition(this))
                added = textsFromWMI(*c);
        }
    });
    if (!added)
        return; // cancelled: no row
    const bool first = m_list->rowCount() == 0;
    m_list->appendRow(first ? QStringLiteral("EQ") : QStringLiteral("AND"),
                      first ? images::ConjunctionEq : images::ConjunctionAnd, *added);
    setButtons();
}

void CWMIRulePage2::deleteCondition()
{
    const int row = m_list->selectionMark();
    if (row >= 0 && row < m_list->rowCount()) {
        delete m_list->takeTopLevelItem(row);
        if (m_list->rowCount() > 0) {
            // Whatever moved up to the top is now the first condition.
            QTreeWidgetItem *first = m_list->topLevelItem(0);
            first->setText(column::Op, QStringLiteral("EQ"));
            m_list->setRowImage(0, images::ConjunctionEq);
        }
    }
    setButtons();
}

void CWMIRulePage2::setButtons()
{
    // Delete waits for the next click on a row; Next (or OK) follows whether any row is left.
    m_delete->setEnabled(false);
    Q_EMIT completeChanged();
}

// ---------------------------------------------------------------------------------------------

CWMIRulePage3::CWMIRulePage3(CWMIRuleSheet &sheet)
    : CWMIRulePage(sheet, QStringLiteral("wmiRulePage3"), strings::WmiPage3Title,
                   strings::WmiPage3Subtitle)
{
    m_name = new QLineEdit(this);
    m_name->setObjectName(QStringLiteral("summaryName"));
    m_name->setReadOnly(true);
    m_comment = new QLineEdit(this);
    m_comment->setObjectName(QStringLiteral("summaryComment"));
    m_comment->setReadOnly(true);
    m_summary = new QTreeWidget(this);
    m_summary->setObjectName(QStringLiteral("summaryList"));
    m_summary->setAccessibleName(QStringLiteral("Conditions of the rule"));
    m_summary->setRootIsDecorated(false);
    m_summary->setUniformRowHeights(true);
    m_summary->setAllColumnsShowFocus(true);
    m_summary->setSelectionMode(QAbstractItemView::NoSelection);
    m_summary->header()->setStretchLastSection(false);
    m_summary->header()->setMinimumSectionSize(8);

    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    auto *nameLabel = new QLabel(QStringLiteral("- Rule Name :"), this);
    nameLabel->setBuddy(m_name);
    auto *commentLabel = new QLabel(QStringLiteral("- Comment :"), this);
    commentLabel->setBuddy(m_comment);
    auto *conditionLabel = new QLabel(QStringLiteral("- Condition :"), this);
    conditionLabel->setBuddy(m_summary);
    form->addRow(nameLabel, m_name);
    form->addRow(commentLabel, m_comment);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(conditionLabel);
    layout->addWidget(m_summary, 1);
    auto *hint = new QLabel(
        QStringLiteral("Click the [Finish] button and then a rule creation will be created."), this);
    hint->setObjectName(QStringLiteral("finishHint"));
    hint->setWordWrap(true);
    layout->addWidget(hint);
}

void CWMIRulePage3::setupColumns()
{
    // The header set follows whether the record had conditions when the page was first shown,
    // not the rule kind.
    const bool empty = m_sheet.record().conditions.isEmpty();
    const QString classHeader = empty ? QStringLiteral("WMI Class") : QStringLiteral("WQL");
    const QList<int> widths = empty ? QList<int>{20, 50, 100, 80, 80, 50, 30, 80}
                                    : QList<int>{20, 50, 70, 200, 50, 50, 50, 100};
    m_summary->setColumnCount(8);
    m_summary->setHeaderLabels({QString(), QStringLiteral("OP"), QStringLiteral("NameSpace"),
                                classHeader, QStringLiteral("Field"), QStringLiteral("Type"),
                                QStringLiteral("Eq"), QStringLiteral("Value")});
    for (int i = 0; i < widths.size(); ++i)
        m_summary->setColumnWidth(i, widths[i]);
}

void CWMIRulePage3::activate()
{
    if (!m_initialised) {
        m_initialised = true;
        setupColumns();
    }
    const WMIRuleData &record = m_sheet.record();
    m_name->setText(record.ruleName);
    m_comment->setText(record.comment);
    m_summary->clear();
    for (const WMIConditionRecord &c : record.conditions) {
        auto *item = new QTreeWidgetItem(m_summary);
        item->setText(column::Op, c.conjunction);
        item->setText(column::NameSpace, c.nameSpace);
        item->setText(column::ClassOrQuery, c.className);
        item->setText(column::Field, c.field);
        item->setText(column::Type, c.type);
        item->setText(column::Condition, c.op);
        item->setText(column::Value, c.value);
        item->setToolTip(column::ClassOrQuery, c.className);
    }
}

bool CWMIRulePage3::validatePage()
{
    bool done = false;
    guardAction([this, &done] { done = m_sheet.finishWizard(); });
    return done;
}

bool CWMIRulePage3::writeStep()
{
    return writeConditions(m_sheet.record());
}

} // namespace qarvo
