#pragma once

// Shared by the rule sheet suites: scripted condition editors and a module-wide data service.

#include "conditions/editors.h"
#include "control/qarvoctrl.h"
#include "dataservice/dataservice.h"

#include <QList>

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
    WMICondition c;
    c.nameSpace = ns;
    c.className = cls;
    c.field = field;
    c.type = type;
    c.condition = op;
    c.value = value;
    return c;
}

inline WQLCondition wqlCount(const QString &select, const QString &from, const QString &where,
                             const QString &op, const QString &count)
{
    WQLCondition c;
    c.nameSpace = QStringLiteral("root\\cimv2");
    c.select = select;
    c.from = from;
    c.where = where;
    c.mode = 1;
    c.op = op;
    c.count = count;
    return c;
}

inline WQLCondition wqlValue(const QString &select, const QString &from, const QString &where,
                             const QString &field, const QString &type, const QString &op,
                             const QString &value)
{
    WQLCondition c;
    c.nameSpace = QStringLiteral("root\\cimv2");
    c.select = select;
    c.from = from;
    c.where = where;
    c.mode = 2;
    c.field = field;
    c.fieldType = type;
    c.op = op;
    c.value = value;
    return c;
}

// Makes `service` the module's data service, the way the host does.
inline void useService(DataService *service)
{
    CqarvoCtrl ctrl;
    ctrl.ShowPane(service, QString(), 0, 0);
}

} // namespace qarvo::test
