#include "conditions/wqldlg.h"

#include "conditions/conditioncheck.h"
#include "conditions/okcancel.h"
#include "resources/strings.h"
#include "resources/ui.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QStyle>
#include <QVBoxLayout>

namespace qarvo {

namespace {

// Lines of advice shown at once; the tooltip has them all.
constexpr int AdviceLines = 3;

const QStringList AllOperators{"=", "!=", ">", "<", ">=", "<="};
const QStringList ValueOperators{"=", "!=", ">", "<", ">=", "<=", "in", "not in"};
const QStringList FieldTypes{"boolean", "string", "uint8", "uint16", "sint16", "uint32",
                             "sint32", "uint64", "sint64", "datetime", "uint8 array",
                             "uint16 array", "uint32 array", "string array"};

QComboBox *dropDown(const char *name, const QStringList &items, QWidget *parent)
{
    auto *combo = new QComboBox(parent);
    combo->setObjectName(QLatin1String(name));
    combo->addItems(items);
    // A drop-down list starts with nothing chosen.
    combo->setCurrentIndex(-1);
    return combo;
}

QLineEdit *lineEdit(const char *name, QWidget *parent)
{
    auto *edit = new QLineEdit(parent);
    edit->setObjectName(QLatin1String(name));
    return edit;
}

} // namespace

WQLDlgProblem firstWQLDlgProblem(const WQLDlgEntries &e)
{
    if (e.nameSpace.isEmpty())
        return {strings::WqlNamespaceEmpty, "namespaceEdit"};
    if (e.select.isEmpty())
        return {strings::WqlSelectEmpty, "selectEdit"};
    if (e.from.isEmpty())
        return {strings::WqlFromEmpty, "fromEdit"};
    if (e.mode == 1) {
        if (!e.countOperatorChosen)
            return {strings::WqlConditionEmpty, "countConditionCombo"};
        if (e.count.isEmpty())
            return {strings::WqlValueEmpty, "countValueEdit"};
        return {};
    }
    if (e.field.isEmpty())
        return {strings::WqlFieldEmpty, "fieldEdit"};
    if (!e.fieldTypeChosen)
        return {strings::WqlFieldTypeEmpty, "fieldTypeCombo"};
    if (!e.valueOperatorChosen)
        return {strings::WqlConditionEmpty, "valueConditionCombo"};
    if (e.valueEditShown && e.value.isEmpty())
        return {strings::WqlValueEmpty, "valueEdit"};
    if (!e.valueEditShown && !e.valueChoiceChosen)
        return {strings::WqlValueEmpty, "valueChoiceCombo"};
    return {};
}

CWQLDlg::CWQLDlg(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("WQL"));
    setObjectName(QStringLiteral("CWQLDlg"));

    m_nameSpace = lineEdit("namespaceEdit", this);
    m_select = lineEdit("selectEdit", this);
    m_select->setToolTip(QStringLiteral("Properties to return, for example *"));
    m_from = lineEdit("fromEdit", this);
    m_from->setToolTip(QStringLiteral("Class to query, for example Win32_Service"));
    m_where = new QPlainTextEdit(this);
    m_where->setObjectName(QStringLiteral("whereEdit"));
    m_where->setTabChangesFocus(true);
    m_where->setToolTip(QStringLiteral("Optional filter, for example Name = 'Spooler'"));
    m_where->setMaximumHeight(70);

    m_countMode = new QRadioButton(QStringLiteral("Count"), this);
    m_countMode->setObjectName(QStringLiteral("countRadio"));
    m_countMode->setToolTip(QStringLiteral("Test the number of objects the query returns"));
    m_valueMode = new QRadioButton(QStringLiteral("Value"), this);
    m_valueMode->setObjectName(QStringLiteral("valueRadio"));
    m_valueMode->setToolTip(QStringLiteral("Test a field of the objects the query returns"));
    auto *modes = new QButtonGroup(this);
    modes->addButton(m_countMode, 1);
    modes->addButton(m_valueMode, 2);
    connect(m_countMode, &QRadioButton::clicked, this, &CWQLDlg::applyCountMode);
    connect(m_valueMode, &QRadioButton::clicked, this, &CWQLDlg::applyValueMode);

    m_countCondition = dropDown("countConditionCombo", AllOperators, this);
    m_count = lineEdit("countValueEdit", this);
    m_count->setToolTip(QStringLiteral("Number of objects (digits only)"));
    connect(m_count, &QLineEdit::textChanged, this, &CWQLDlg::filterCount);

    m_field = lineEdit("fieldEdit", this);
    m_fieldType = dropDown("fieldTypeCombo", FieldTypes, this);
    m_valueCondition = dropDown("valueConditionCombo", ValueOperators, this);
    m_value = lineEdit("valueEdit", this);
    // The dialog's resource data fills the choice list with the operators; it is refilled as
    // soon as a field type is chosen.
    m_valueChoice = dropDown("valueChoiceCombo", ValueOperators, this);
    m_valueChoice->hide();
    connect(m_fieldType, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0)
            fillListsForType(m_fieldType->itemText(index), true);
    });

    const auto [ok, cancel] = makeOkCancel(this);

    auto label = [this](const QString &text, QWidget *buddy) {
        auto *l = new QLabel(text, this);
        l->setBuddy(buddy);
        return l;
    };

    auto *query = new QGroupBox(QStringLiteral("Query"), this);
    auto *queryGrid = new QGridLayout(query);
    queryGrid->addWidget(label(QStringLiteral("NameSpace"), m_nameSpace), 0, 0);
    queryGrid->addWidget(m_nameSpace, 0, 1);
    queryGrid->addWidget(label(QStringLiteral("SELECT"), m_select), 1, 0);
    queryGrid->addWidget(m_select, 1, 1);
    queryGrid->addWidget(label(QStringLiteral("FROM"), m_from), 2, 0);
    queryGrid->addWidget(m_from, 2, 1);
    queryGrid->addWidget(label(QStringLiteral("WHERE"), m_where), 3, 0, Qt::AlignTop);
    queryGrid->addWidget(m_where, 3, 1);

    m_adviceIcon = new QLabel(this);
    m_adviceIcon->setObjectName(QStringLiteral("adviceIcon"));
    const int iconSize = style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
    m_adviceIcon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning, nullptr, this)
                                .pixmap(iconSize, iconSize));
    m_adviceIcon->hide();
    m_advice = new QLabel(this);
    m_advice->setObjectName(QStringLiteral("adviceLabel"));
    m_advice->setAccessibleName(QStringLiteral("Query advice"));
    m_advice->setWordWrap(true);
    m_advice->setTextInteractionFlags(Qt::TextSelectableByMouse);
    queryGrid->addWidget(m_adviceIcon, 4, 0, Qt::AlignRight | Qt::AlignTop);
    queryGrid->addWidget(m_advice, 4, 1);

    auto *test = new QGroupBox(QStringLiteral("Condition"), this);
    auto *testGrid = new QGridLayout(test);
    testGrid->addWidget(m_countMode, 0, 0);
    testGrid->addWidget(m_countCondition, 0, 1);
    testGrid->addWidget(m_count, 0, 2, 1, 2);
    testGrid->addWidget(m_valueMode, 1, 0);
    testGrid->addWidget(label(QStringLiteral("Field"), m_field), 1, 1);
    testGrid->addWidget(m_field, 1, 2, 1, 2);
    testGrid->addWidget(label(QStringLiteral("Field Type"), m_fieldType), 2, 1);
    testGrid->addWidget(m_fieldType, 2, 2, 1, 2);
    auto *valueCell = new QHBoxLayout;
    valueCell->setContentsMargins(0, 0, 0, 0);
    valueCell->addWidget(m_value);
    valueCell->addWidget(m_valueChoice);
    testGrid->addWidget(m_valueCondition, 3, 1);
    testGrid->addLayout(valueCell, 3, 2, 1, 2);
    testGrid->setColumnStretch(2, 1);
    m_countCondition->setMinimumWidth(90);
    m_valueCondition->setMinimumWidth(90);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(ok);
    buttons->addWidget(cancel);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(query);
    layout->addWidget(test);
    layout->addStretch(1);
    layout->addLayout(buttons);

    setTabOrder(m_nameSpace, m_select);
    setTabOrder(m_select, m_from);
    setTabOrder(m_from, m_where);
    setTabOrder(m_where, m_countMode);
    setTabOrder(m_countMode, m_countCondition);
    setTabOrder(m_countCondition, m_count);
    setTabOrder(m_count, m_valueMode);
    setTabOrder(m_valueMode, m_field);
    setTabOrder(m_field, m_fieldType);
    setTabOrder(m_fieldType, m_valueCondition);
    setTabOrder(m_valueCondition, m_value);
    setTabOrder(m_value, m_valueChoice);
    setTabOrder(m_valueChoice, ok);
    setTabOrder(ok, cancel);

    // A new condition counts objects in the usual namespace.
    m_countMode->setChecked(true);
    applyCountMode();
    m_nameSpace->setText(QStringLiteral("Root\\CIMV2"));

    m_schema = std::make_unique<wql::Schema>(catalogue::programDirectory());
    for (QLineEdit *edit : {m_nameSpace, m_select, m_from, m_field})
        connect(edit, &QLineEdit::textChanged, this, &CWQLDlg::updateAdvice);
    connect(m_where, &QPlainTextEdit::textChanged, this, &CWQLDlg::updateAdvice);
    connect(m_fieldType, &QComboBox::currentTextChanged, this, &CWQLDlg::updateAdvice);
    connect(modes, &QButtonGroup::idClicked, this, &CWQLDlg::updateAdvice);

    resize(460, 420);
}

CWQLDlg::~CWQLDlg() = default;

void CWQLDlg::updateAdvice()
{
    WQLCondition c;
    c.nameSpace = m_nameSpace->text();
    c.select = m_select->text();
    c.from = m_from->text();
    c.where = m_where->toPlainText();
    c.mode = m_valueMode->isChecked() ? 2 : 1;
    c.field = m_field->text();
    c.fieldType = m_fieldType->currentIndex() >= 0 ? m_fieldType->currentText() : QString();
    QStringList lines;
    for (const wql::Advice &a : wql::checkWQLCondition(c, *m_schema))
        lines.append(wql::adviceText(a));
    QStringList shown = lines.mid(0, AdviceLines);
    if (lines.size() > AdviceLines)
        shown.append(QStringLiteral("(and %1 more)").arg(lines.size() - AdviceLines));
    m_advice->setText(shown.join(u'\n'));
    m_advice->setToolTip(lines.join(u'\n'));
    m_adviceIcon->setVisible(!lines.isEmpty());
    fitAdvice();
}

void CWQLDlg::fitAdvice()
{
    const int height = m_advice->text().isEmpty() ? 0 : m_advice->heightForWidth(m_advice->width());
    if (height != m_advice->minimumHeight())
        m_advice->setMinimumHeight(height);
}

void CWQLDlg::resizeEvent(QResizeEvent *event)
{
    QDialog::resizeEvent(event);
    fitAdvice();
}

void CWQLDlg::setEditCondition(const WQLCondition &c)
{
    m_nameSpace->setText(c.nameSpace);
    m_select->setText(c.select);
    m_from->setText(c.from);
    m_where->setPlainText(c.where);

    if (c.mode == 2) {
        m_valueMode->setChecked(true);
        m_field->setText(c.field);
        const int type = m_fieldType->findText(c.fieldType, Qt::MatchExactly | Qt::MatchCaseSensitive);
        {
            // Selecting the stored type must not clear what is restored below.
            const QSignalBlocker blocker(m_fieldType);
            m_fieldType->setCurrentIndex(type);
        }
        fillListsForType(c.fieldType, false);
        m_valueCondition->setCurrentIndex(
            m_valueCondition->findText(c.op, Qt::MatchExactly | Qt::MatchCaseSensitive));
        m_valueChoice->setCurrentIndex(
            m_valueChoice->findText(c.value, Qt::MatchExactly | Qt::MatchCaseSensitive));
        if (!m_value->isHidden())
            m_value->setText(c.value);
        applyValueMode();
        updateAdvice();
        return;
    }

    m_countMode->setChecked(true);
    m_countCondition->setCurrentIndex(
        m_countCondition->findText(c.op, Qt::MatchExactly | Qt::MatchCaseSensitive));
    m_count->setText(c.count);
    applyCountMode();
    updateAdvice();
}

void CWQLDlg::applyCountMode()
{
    for (QWidget *w : {static_cast<QWidget *>(m_field), static_cast<QWidget *>(m_fieldType),
                       static_cast<QWidget *>(m_valueCondition),
                       static_cast<QWidget *>(m_valueChoice), static_cast<QWidget *>(m_value)})
        w->setEnabled(false);
    m_countCondition->setEnabled(true);
    m_count->setEnabled(true);
}

void CWQLDlg::applyValueMode()
{
    m_countCondition->setEnabled(false);
    m_count->setEnabled(false);
    for (QWidget *w : {static_cast<QWidget *>(m_field), static_cast<QWidget *>(m_fieldType),
                       static_cast<QWidget *>(m_valueCondition),
                       static_cast<QWidget *>(m_valueChoice), static_cast<QWidget *>(m_value)})
        w->setEnabled(true);
}

void CWQLDlg::fillListsForType(const QString &type, bool clearValue)
{
    m_valueCondition->clear();
    m_valueChoice->clear();
    if (type == QLatin1String("boolean") || type == QLatin1String("BOOLEAN")) {
        m_valueCondition->addItems({QStringLiteral("="), QStringLiteral("!=")});
        m_value->hide();
        m_valueChoice->addItems({QStringLiteral("TRUE"), QStringLiteral("FALSE")});
        m_valueChoice->show();
    } else {
        // Plain strings are compared by membership only; arrays fall under the other types.
        m_valueCondition->addItems(type == QLatin1String("string")
                                       ? QStringList{QStringLiteral("in"), QStringLiteral("not in")}
                                       : AllOperators);
        if (clearValue)
            m_value->clear();
        m_value->show();
        m_valueChoice->hide();
    }
    m_valueCondition->setCurrentIndex(-1);
    m_valueChoice->setCurrentIndex(-1);
}

void CWQLDlg::filterCount(const QString &text)
{
    const auto bad = std::find_if(text.begin(), text.end(),
                                  [](QChar c) { return c < u'0' || c > u'9'; });
    if (bad == text.end())
        return;
    QString cleaned = text;
    const qsizetype at = bad - text.begin();
    cleaned.remove(at, 1);
    const int cursor = m_count->cursorPosition();
    // Putting the text back runs this again, so every stray character goes one at a time.
    m_count->setText(cleaned);
    m_count->setCursorPosition(cursor > at ? cursor - 1 : cursor);
}

void CWQLDlg::accept()
{
    WQLDlgEntries e;
    e.nameSpace = m_nameSpace->text();
    e.select = m_select->text();
    e.from = m_from->text();
    e.mode = m_valueMode->isChecked() ? 2 : 1;
    e.countOperatorChosen = m_countCondition->currentIndex() >= 0;
    e.count = m_count->text();
    e.field = m_field->text();
    e.fieldTypeChosen = m_fieldType->currentIndex() >= 0;
    e.valueOperatorChosen = m_valueCondition->currentIndex() >= 0;
    e.valueEditShown = !m_value->isHidden();
    e.value = m_value->text();
    e.valueChoiceChosen = m_valueChoice->currentIndex() >= 0;

    const WQLDlgProblem problem = firstWQLDlgProblem(e);
    if (problem.stringId) {
        ui::info(this, problem.stringId);
        if (auto *target = findChild<QWidget *>(QLatin1String(problem.focus)))
            target->setFocus();
        return;
    }

    m_result = {};
    m_result.nameSpace = e.nameSpace;
    m_result.select = e.select;
    m_result.from = e.from;
    m_result.where = m_where->toPlainText();
    m_result.mode = e.mode;
    if (e.mode == 1) {
        m_result.op = m_countCondition->currentText();
        m_result.count = e.count;
    } else {
        m_result.op = m_valueCondition->currentText();
        m_result.field = e.field;
        m_result.fieldType = m_fieldType->currentText();
        m_result.value = e.valueEditShown ? e.value : m_valueChoice->currentText();
    }
    QDialog::accept();
}

} // namespace qarvo
