#include "console/rulewatch.h"

#include "dataservice/methods.h"
#include "rulestore/sqlrulestore.h"

#include <utility>

namespace qarvo::console {

RuleWatch::RuleWatch(SqlRuleStore *store, DataService *inner) : m_store(store), m_inner(inner) {}

QString RuleWatch::nameOf(qint16 category, const QString &ruleId)
{
    const std::optional<RuleSnapshot> rule = m_store->rule(category, ruleId);
    return rule ? rule->name : QString();
}

Reply RuleWatch::call(const QString &name, const ArgList &args)
{
    const bool wmi = name == QLatin1String(method::DelWMIRule);
    if ((wmi || name == QLatin1String(method::DelRQCRule)) && args.size() == 2
        && std::holds_alternative<QString>(args[0]) && std::holds_alternative<qint16>(args[1])) {
        const qint16 mode = std::get<qint16>(args[1]);
        RuleChange change;
        change.category = wmi ? category::WMI : category::NAQC;
        change.ruleId = std::get<QString>(args[0]);
        // A sheet that renames has renamed the rule's references, and with them its row,
        // before it deletes it.
        change.oldName = mode == delmode::BeforeStoreAgain && !m_renamedFrom.isEmpty()
                             ? std::exchange(m_renamedFrom, QString())
                             : nameOf(change.category, change.ruleId);
        Reply reply = m_inner->call(name, args);
        if (reply.failed() || change.oldName.isEmpty())
            return reply;
        if (mode == delmode::FromList && onChange)
            onChange(change);
        else if (mode == delmode::BeforeStoreAgain && !m_pendingSave) {
            change.kind = RuleChange::Kind::Saved;
            m_pendingSave = change;
        }
        return reply;
    }
    if (name == QLatin1String(method::UpdateExRuleNameInRule) && !args.isEmpty()
        && std::holds_alternative<QString>(args[0])) {
        Reply reply = m_inner->call(name, args);
        if (!reply.failed())
            m_renamedFrom = std::get<QString>(args[0]);
        return reply;
    }
    if (m_pendingSave
        && (name == QLatin1String(method::GetWMIRules) || name == QLatin1String(method::GetRQCRule))) {
        RuleChange change = *std::exchange(m_pendingSave, std::nullopt);
        change.name = nameOf(change.category, change.ruleId);
        if (!change.name.isEmpty() && onChange)
            onChange(change);
    }
    return m_inner->call(name, args);
}

} // namespace qarvo::console
