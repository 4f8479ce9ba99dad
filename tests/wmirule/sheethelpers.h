#pragma once

// Shared by the rule sheet suites: scripted condition editors, a module-wide data service,
// stored rules as GetWMIRuleInfo hands them out, and small readers of the lists.

#include "../conditions/dlghelpers.h"
#include "conditions/editors.h"
#include "control/qarvoctrl.h"
#include "dataservice/dataservice.h"
#include "recordingservice.h"
#include "wmirule/listviewer.h"
#include "wmirule/rulepages.h"
#include "wmirule/rulesheet.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QList>
#include <QWizard>
#include <QtTest>

#include <optional>

namespace qarvo::test {

// Answers the condition editors with queued conditions (nothing queued = cancelled) and keeps
// what each call was handed for editing.
class ScriptedEditors
{
public:
    ScriptedEditors()
    {
        conditionEditors().wmi = [this](QWidget *, const std::optional<WMICondition> &existing) {
            wmiSeen.append(existing);
            return wmiAnswers.isEmpty() ? std::nullopt : wmiAnswers.takeFirst();
        };
        conditionEditors().wql = [this](QWidget *, const std::optional<WQLCondition> &existing) {
            wqlSeen.append(existing);
            return wqlAnswers.isEmpty() ? std::nullopt : wqlAnswers.takeFirst();
        };
    }
    ~ScriptedEditors() { resetConditionEditors(); }

    QList<std::optional<WMICondition>> wmiAnswers;
    QList<std::optional<WMICondition>> wmiSeen;
    QList<std::optional<WQLCondition>> wqlAnswers;
    QList<std::optional<WQLCondition>> wqlSeen;
};

inline WMICondition wmiCondition(const QString &cls, const QString &field, const QString &type,
                                 const QString &op, const QString &value,
                                 const QString &ns = QStringLiteral("root\\cimv2"))
{
    return {ns, cls, field, type, op, value};
}

// A WQL condition in value mode, or in count mode when `field` is empty (`value` = the count).
inline WQLCondition wqlCondition(const QString &select, const QString &from, const QString &where,
                                 const QString &field, const QString &type, const QString &op,
                                 const QString &value)
{
    WQLCondition c;
    c.nameSpace = QStringLiteral("root\\cimv2");
    c.select = select;
    c.from = from;
    c.where = where;
    c.mode = field.isEmpty() ? 1 : 2;
    c.op = op;
    (field.isEmpty() ? c.count : c.value) = value;
    c.field = field;
    c.fieldType = type;
    return c;
}

inline WQLCondition wqlCount(const QString &select, const QString &from, const QString &where,
                             const QString &op, const QString &count)
{
    return wqlCondition(select, from, where, {}, {}, op, count);
}

// Makes `service` the module's data service, the way the host does.
inline void useService(DataService *service)
{
    CqarvoCtrl ctrl;
    ctrl.ShowPane(service, QString(), 0, 0);
}

// A stored rule as GetWMIRuleInfo hands it out: one row per condition, each
// {name, comment, op, namespace, class, field, type, condition, value}.
inline ScriptedReply storedRule(QList<QVariantList> rows)
{
    return ScriptedReply::table({"rule_name", "rule_comment", "rule_op", "rule_namespace",
                                 "rule_class", "rule_field", "rule_type", "rule_condition",
                                 "rule_value"},
                                std::move(rows));
}

inline ScriptedReply answer(int v)
{
    return ScriptedReply::answer(QVariant::fromValue(qint16(v)));
}

// "OP/image" of every row.
inline QStringList opColumn(CWMIRuleListViewer *list)
{
    QStringList out;
    for (int r = 0; r < list->rowCount(); ++r)
        out << list->cellText(r, column::Op) + "/" + QString::number(list->rowImage(r));
    return out;
}

inline void clickCell(CWMIRuleListViewer *list, int row, int column, bool twice = false)
{
    const QPoint at = list->cellRect(row, column).center();
    if (twice)
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
    else
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
}

// A wizard shown on its conditions page, a name entered.
struct WizardOnPage2
{
    explicit WizardOnPage2(RuleKind kind = RuleKind::WMI, const QString &name = QStringLiteral("Rule"))
        : sheet(nullptr, kind, SheetMode::Wizard, "New WMIRule Wizard")
    {
        sheet.wizard()->show();
        sheet.page1()->nameEdit()->setText(name);
        sheet.page1()->commentEdit()->setText("Checked daily");
        sheet.wizard()->next();
    }
    CWMIRuleListViewer *list() const { return sheet.page2()->list(); }
    void add(int times = 1)
    {
        for (int i = 0; i < times; ++i)
            sheet.page2()->addButton()->click();
    }
    CWMIRuleSheet sheet;
};

} // namespace qarvo::test
