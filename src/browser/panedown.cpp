#include "browser/panedown.h"

#include "browser/shorttext.h"
#include "control/modulestate.h"
#include "dataservice/calls.h"
#include "resources/groupbox.h"
#include "resources/images.h"

#include <QFrame>
#include <QHeaderView>
#include <QLabel>
#include <QTreeWidget>

namespace qarvo {

namespace {

using ColumnList = QList<QPair<QString, int>>;

const ColumnList &naqcColumns()
{
    static const ColumnList columns = {{QStringLiteral("Script File"), 150},
                                       {QStringLiteral("Action Type"), 100},
                                       {QStringLiteral("Comment"), 300}};
    return columns;
}

const ColumnList &wmiColumns()
{
    static const ColumnList columns = {
        {QString(), 20},
        {QStringLiteral("OP"), 50},
        {QStringLiteral("NameSpace"), 100},
        {QStringLiteral("WMI Class"), 100},
        {QStringLiteral("Field"), 100},
        {QStringLiteral("Type"), 70},
        {QStringLiteral("Eq"), 50},
        {QStringLiteral("Value"), 180},
    };
    return columns;
}

const ColumnList &wqlColumns()
{
    static const ColumnList columns = {
        {QString(), 20},
        {QStringLiteral("OP"), 50},
        {QStringLiteral("NameSpace"), 70},
        {QStringLiteral("WQL"), 220},
        {QStringLiteral("Field"), 100},
        {QStringLiteral("Type"), 50},
        {QStringLiteral("Eq"), 50},
        {QStringLiteral("Value"), 100},
    };
    return columns;
}

struct Conjunction
{
    QString word;
    int image;
};

Conjunction conjunctionOf(qint32 op)
{
    switch (op) {
    case 1: return {QStringLiteral("AND"), images::ConjunctionAnd};
    case 2: return {QStringLiteral("OR"), images::ConjunctionOr};
    default: return {QStringLiteral("EQ"), images::ConjunctionEq}; // the first condition has 0
    }
}

// Columns 2 to 7 of a condition row, in the order they are read.
const QStringList &conditionFields()
{
    static const QStringList fields = {
        QStringLiteral("rule_namespace"), QStringLiteral("rule_class"),
        QStringLiteral("rule_field"),     QStringLiteral("rule_type"),
        QStringLiteral("rule_condition"), QStringLiteral("rule_value"),
    };
    return fields;
}

QLabel *makeStatic(const QString &text, const QString &name, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    return label;
}

} // namespace

CPaneDown::CPaneDown(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("paneDown"));

    // The frames come first so that every control lies above them.
    static const char *const frameNames[3] = {"heading", "frame2", "frame3"};
    for (int i = 0; i < 3; ++i) {
        auto *frame = new CGroupBox(this);
        frame->setObjectName(QLatin1String(frameNames[i]));
        // The frames only decorate: they take neither clicks nor focus.
        frame->setEnabled(false);
        frame->setFocusPolicy(Qt::NoFocus);
        QPalette palette = frame->palette();
        const QColor outline(100, 100, 100);
        palette.setColor(QPalette::Mid, outline);
        palette.setColor(QPalette::Disabled, QPalette::Mid, outline);
        // Disabled only so that it stays out of the way; the rule name must stay readable.
        palette.setColor(QPalette::Disabled, QPalette::WindowText,
                         palette.color(QPalette::Active, QPalette::WindowText));
        frame->setPalette(palette);
        m_frames[i] = frame;
    }
    // The two captionless frames lie under the heading so that their outline never runs
    // through the rule name.
    m_frames[2]->lower();
    m_frames[1]->lower();

    m_serviceNameLabel = makeStatic(QStringLiteral("- Service Name :"),
                                    QStringLiteral("serviceNameLabel"), this);
    m_naqcLabel = makeStatic(QStringLiteral("- NAQC  :"), QStringLiteral("naqcLabel"), this);
    m_policyOptionLabel = makeStatic(QStringLiteral("- Policy Option :"),
                                     QStringLiteral("policyOptionLabel"), this);
    m_serviceNameLabel->hide();
    m_naqcLabel->hide();
    m_policyOptionLabel->hide();

    m_conditionsLabel = makeStatic(QStringLiteral("Conditions - Check that following condition is meet"),
                                   QStringLiteral("conditionsLabel"), this);
    m_profileLabel = makeStatic(QStringLiteral("CM Profile"), QStringLiteral("profileLabel"), this);
    // Both captions share one place; until a category is set neither shows.
    m_conditionsLabel->hide();
    m_profileLabel->hide();

    m_separator = new QFrame(this);
    m_separator->setObjectName(QStringLiteral("separator"));
    m_separator->setFrameShape(QFrame::HLine);
    m_separator->setFrameShadow(QFrame::Sunken);

    m_list = new QTreeWidget(this);
    m_list->setObjectName(QStringLiteral("detailList"));
    m_list->setAccessibleName(QStringLiteral("Rule details"));
    m_list->setItemDelegate(new CellTextDelegate(m_list));
    m_list->setRootIsDecorated(false);
    m_list->setItemsExpandable(false);
    m_list->setUniformRowHeights(true);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setAllColumnsShowFocus(true);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setIconSize(QSize(16, 16));
    m_list->header()->setStretchLastSection(false);
    // The conjunction column is only as wide as its icon.
    m_list->header()->setMinimumSectionSize(16);
    m_list->header()->setSectionsMovable(false);
    m_list->header()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_list->setColumnCount(0);
    m_list->setHeaderLabels({});

    setFocusProxy(m_list);
}

CPaneDown::~CPaneDown() = default;

void CPaneDown::setCategory(qint16 category)
{
    m_category = category;
    if (category == category::NAQC) {
        setColumns(naqcColumns());
        m_conditionsLabel->hide();
        m_profileLabel->show();
    } else if (category == category::WMI) {
        setColumns(wmiColumns());
        m_profileLabel->hide();
        m_conditionsLabel->show();
    }
}

void CPaneDown::setColumns(const ColumnList &columns)
{
    m_list->clear();
    m_list->setColumnCount(0);
    QStringList titles;
    for (const auto &column : columns)
        titles << column.first;
    m_list->setColumnCount(int(titles.size()));
    m_list->setHeaderLabels(titles);
    for (int i = 0; i < columns.size(); ++i) {
        m_list->header()->resizeSection(i, columns.at(i).second);
        m_list->headerItem()->setTextAlignment(i, Qt::AlignLeft | Qt::AlignVCenter);
    }
}

void CPaneDown::setHeading(const QString &text)
{
    const QString shown = shownText(text);
    m_frames[0]->setTitle(shown);
    m_frames[0]->setToolTip(shown);
    m_frames[0]->update();
}

QString CPaneDown::heading() const
{
    return m_frames[0]->title();
}

void CPaneDown::clear()
{
    setHeading(QString());
    m_list->clear();
}

void CPaneDown::showNaqcRule(int ruleId)
{
    guardAction([&] {
        if (!editionAllows(m_category, EditionAction::LoadList, this))
            return;
        m_list->clear();
        readScriptActions(ruleId);
    });
}

void CPaneDown::readScriptActions(int ruleId)
{
    Reply reply = calls::GetRQCRuleScriptInfo(currentDataService(), ruleIdText(ruleId));
    if (reply.failed())
        return;
    forEachRow(reply, [&](RowReader &row) {
        if (row.integer(QStringLiteral("rule_select")) != 1)
            return;
        // Each chosen action goes on top, so several show latest first.
        auto *item = new QTreeWidgetItem;
        // As high as a condition row with its 16-px image, so both layouts read alike.
        item->setSizeHint(0, QSize(0, 18));
        item->setText(0, shownText(row.text(QStringLiteral("rule_script"))));
        m_list->insertTopLevelItem(0, item);
        item->setText(1, shownText(row.text(QStringLiteral("rule_scriptact"))));
        item->setText(2, shownText(row.text(QStringLiteral("rule_comment"))));
        for (int c = 0; c < 3; ++c)
            item->setToolTip(c, item->text(c));
    });
}

void CPaneDown::showWmiRule(int ruleId)
{
    guardAction([&] {
        if (!editionAllows(m_category, EditionAction::LoadList, this))
            return;
        m_list->clear();
        m_list->setColumnCount(0);
        readConditions(ruleId);
    });
}

void CPaneDown::readConditions(int ruleId)
{
    Reply reply = calls::GetWMIRuleInfo(currentDataService(), ruleIdText(ruleId));
    if (reply.failed())
        return;
    RowReader reader(reply);
    // The first condition decides the layout for all of them; a rule without conditions shows
    // the WMI layout.
    bool wql = false;
    if (!reader.atEnd())
        wql = reader.integer(QStringLiteral("rule_wql")) != 0;
    setColumns(wql ? wqlColumns() : wmiColumns());

    for (int index = 0; !reader.atEnd(); ++index) {
        const Conjunction conjunction = conjunctionOf(reader.integer(QStringLiteral("rule_op")));
        auto *item = new QTreeWidgetItem;
        item->setIcon(0, images::icon(conjunction.image));
        item->setData(0, images::ImageIndexRole, conjunction.image);
        item->setText(1, conjunction.word);
        m_list->insertTopLevelItem(index, item);
        int column = 2;
        for (const QString &field : conditionFields()) {
            item->setText(column, shownText(reader.text(field)));
            item->setToolTip(column, item->text(column));
            ++column;
        }
        reader.next();
    }
    reader.close();
}

void CPaneDown::layoutControls(int width, int height)
{
    for (CGroupBox *frame : m_frames)
        frame->setGeometry(0, 0, width, height);
    const int inner = qMax(0, width - 30);
    m_conditionsLabel->setGeometry(15, 35, inner, 15);
    m_profileLabel->setGeometry(15, 35, inner, 15);
    m_separator->setGeometry(15, 50, inner, 2);
    m_list->setGeometry(15, 60, inner, qMax(0, height - 70));
}

void CPaneDown::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layoutControls(width(), height());
}

} // namespace qarvo
