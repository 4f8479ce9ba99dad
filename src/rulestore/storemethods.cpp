#include "rulestore/storemethods.h"

#include "dataservice/calls.h"
#include "dataservice/recordsizes.h"
#include "rulestore/storedb.h"
#include "rulestore/storeerror.h"
#include "rulestore/storehistory.h"
#include "rulestore/storelisting.h"
#include "rulestore/storereservations.h"
#include "rulestore/storerules.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace qarvo::store {

namespace {

using K = ArgKind;

Reply rows(std::unique_ptr<MemoryRowSet> set)
{
    Reply r;
    r.rows = std::move(set);
    return r;
}

std::unique_ptr<MemoryRowSet> rowSet(std::initializer_list<const char *> columns)
{
    QStringList names;
    for (const char *c : columns)
        names << QLatin1String(c);
    auto set = std::make_unique<MemoryRowSet>();
    set->setColumns(names);
    return set;
}

// One answer row per result row of `sql`, in the query's order, as `row` reads it.
template<typename RowFn>
Reply queryRows(StoreDb &db, const char *sql, const QVariantList &values,
                std::initializer_list<const char *> columns, RowFn row)
{
    QSqlQuery q = db.exec(sql, values);
    auto set = rowSet(columns);
    while (q.next())
        set->appendRow(row(q));
    q.finish();
    return rows(std::move(set));
}

Reply yesNo(bool taken)
{
    Reply r;
    r.value = QVariant::fromValue<qint16>(taken ? -1 : 0);
    return r;
}

} // namespace

Methods::Methods(StoreDb &db) : m_db(db) {}

const Methods::Entry *Methods::find(const QString &name)
{
    static const QList<Entry> entries = {
        {method::GetWMIRules, {K::Slot}, &Methods::getWMIRules, Access::Read},
        {method::GetRQCRule, {K::Slot}, &Methods::getRQCRule, Access::Read},
        {method::GetWMIRuleInfo, {K::Text, K::Slot}, &Methods::getWMIRuleInfo, Access::Read},
        {method::GetRQCRuleInfo, {K::Text, K::Slot}, &Methods::getRQCRuleInfo, Access::Read},
        {method::GetRQCRuleScriptInfo, {K::Text, K::Slot}, &Methods::getRQCRuleScriptInfo, Access::Read},
        {method::RulesUsedExRule, {K::Text, K::Short, K::Slot}, &Methods::rulesUsedExRule, Access::Read},
        {method::CanUseID, {K::Text, K::Short}, &Methods::canUseID, Access::Reserve},
        {method::CanUseExRuleName, {K::Text, K::Short}, &Methods::canUseExRuleName, Access::Reserve},
        {method::UpdateExRuleNameInRule, {K::Text, K::Text, K::Short}, &Methods::updateExRuleNameInRule,
         Access::Write},
        {method::DelWMIRule, {K::Text, K::Short}, &Methods::delWMIRule, Access::Write},
        {method::DelRQCRule, {K::Text, K::Short}, &Methods::delRQCRule, Access::Write},
        {method::AddWMIRule,
         {K::Text, K::Text, K::Text, K::Short, K::Short, K::Short, K::Text, K::Text, K::Text, K::Text, K::Short,
          K::Text, K::Text, K::Short},
         &Methods::addWMIRule, Access::Write},
        {method::AddRQCScript, {K::Text, K::Short, K::Text, K::Text, K::Text, K::Short}, 
         &Methods::addRQCScript, Access::Write},
        {method::AddRQCRule, {K::Text, K::Text, K::Text, K::Text, K::Text}, &Methods::addRQCRule, Access::Write},
    };
    const auto it = std::find_if(entries.cbegin(), entries.cend(),
                                 [&](const Entry &e) { return name == QLatin1String(e.name); });
    return it == entries.cend() ? nullptr : &*it;
}

// --- reading -----------------------------------------------------------------------------------

Reply Methods::getWMIRules(const ArgList &)
{
    Reply r;
    r.rows = listRules(m_db, category::WMI);
    return r;
}

Reply Methods::getRQCRule(const ArgList &)
{
    Reply r;
    r.rows = listRules(m_db, category::NAQC);
    return r;
}

Reply Methods::getWMIRuleInfo(const ArgList &args)
{
    const int id = ruleIdArg(args, 0);
    return queryRows(
        m_db,
        "SELECT r.rule_name, r.rule_comment, r.rule_wql, c.conjunction, c.cond_namespace,"
        " c.cond_class, c.cond_field, c.cond_type, c.cond_operator, c.cond_value,"
        " c.cond_index, c.operator_code, c.type_code"
        " FROM rules r JOIN wmi_conditions c ON c.rule_id = r.rule_id"
        " WHERE r.category = 6 AND r.rule_id = ? ORDER BY c.cond_index",
        {id},
        {"rule_name", "rule_comment", "rule_wql", "rule_op", "rule_namespace", "rule_class", "rule_field",
         "rule_type", "rule_condition", "rule_value", "rule_index", "rule_opcode", "rule_typecode", "rule_id"},
        [&](const QSqlQuery &q) -> QVariantList {
            return {q.value(0).toString(), q.value(1).toString(), q.value(2).toInt(), q.value(3).toInt(),
                    q.value(4).toString(), q.value(5).toString(), q.value(6).toString(), q.value(7).toString(),
                    q.value(8).toString(), q.value(9).toString(), q.value(10).toInt(), q.value(11).toInt(),
                    q.value(12).toInt(), ruleIdText(id)};
        });
}

Reply Methods::getRQCRuleInfo(const ArgList &args)
{
    const int id = ruleIdArg(args, 0);
    return queryRows(m_db,
                     "SELECT rule_name, service_name, rule_comment, script_selection"
                     " FROM rules WHERE category = 5 AND rule_id = ?",
                     {id}, {"rule_name", "rule_servicename", "rule_comment", "rule_selection", "rule_id"},
                     [&](const QSqlQuery &q) -> QVariantList {
                         return {q.value(0).toString(), q.value(1).toString(), q.value(2).toString(),
                                 q.value(3).toString(), ruleIdText(id)};
                     });
}

Reply Methods::getRQCRuleScriptInfo(const ArgList &args)
{
    return queryRows(m_db,
                     "SELECT selected, script_file, action_type, script_comment, entry_no"
                     " FROM naqc_scripts WHERE rule_id = ? ORDER BY entry_no",
                     {ruleIdArg(args, 0)},
                     {"rule_select", "rule_script", "rule_scriptact", "rule_comment", "rule_entry"},
                     [](const QSqlQuery &q) -> QVariantList {
                         return {q.value(0).toInt(), q.value(1).toString(), q.value(2).toString(),
                                 q.value(3).toString(), q.value(4).toInt()};
                     });
}

Reply Methods::rulesUsedExRule(const ArgList &args)
{
    const QString name = ruleNameArg(args, 0);
    const qint16 cat = categoryArg(args, 1);
    QSqlQuery q = m_db.exec("SELECT r.rule_name, r.rule_id, r.category FROM rule_usage u"
                            " JOIN rules r ON r.category = u.user_category AND r.rule_id = u.user_id"
                            " WHERE u.used_category = ? AND u.used_name = ?",
                            {int(cat), name});
    struct User
    {
        QString name;
        int id;
        int category;
    };
    QList<User> users;
    while (q.next())
        users.append({q.value(0).toString(), q.value(1).toInt(), q.value(2).toInt()});
    q.finish();
    std::sort(users.begin(), users.end(),
              [](const User &a, const User &b) { return nameLess(a.name, a.id, b.name, b.id); });
    auto set = rowSet({"rule_name", "rule_id", "rule_category"});
    for (const User &u : users)
        set->appendRow({u.name, ruleIdText(u.id), u.category});
    return rows(std::move(set));
}

// --- checking ----------------------------------------------------------------------------------

// "Free" reserves what it answers for, so that another console is told "taken" until the save
// it announces is over.
Reply Methods::canUseID(const ArgList &args)
{
    const qint64 second = currentSecond();
    const int id = ruleIdArg(args, 0);
    const qint16 cat = categoryArg(args, 1);
    bool taken = idInUse(m_db, cat, id);
    if (!taken) {
        const qint64 now = m_db.now();
        taken = m_db.readOnly ? idHolder(m_db, cat, id, now) == Holder::Other
                              : !claimId(m_db, cat, id, now, HoldMs);
    }
    // Asked again within this second, the same candidate gets the same answer: the control then
    // hears it once the second is over, with a new candidate ready, instead of asking hundreds
    // of times in a busy loop.
    if (taken && drawnAgainIn(id, second))
        m_paceSecond = second;
    return yesNo(taken);
}

Reply Methods::canUseExRuleName(const ArgList &args)
{
    const QString name = ruleNameArg(args, 0);
    const qint16 cat = categoryArg(args, 1);
    if (m_db.exists("SELECT 1 FROM rules WHERE category = ? AND rule_name = ?", {int(cat), name}))
        return yesNo(true);
    const qint64 now = m_db.now();
    return yesNo(m_db.readOnly ? nameHolder(m_db, cat, name, now) == Holder::Other
                               : !claimName(m_db, cat, name, now, HoldMs));
}

std::optional<qint64> Methods::takePace()
{
    return std::exchange(m_paceSecond, std::nullopt);
}

// --- writing -----------------------------------------------------------------------------------

namespace {

[[noreturn]] void refuseBusy(int id)
{
    refuse(status::Fail, QStringLiteral("rule id %1 is being stored by another console").arg(ruleIdText(id)));
}

void refuseReservedName(StoreDb &db, qint16 cat, const QString &name, qint64 now)
{
    if (nameHolder(db, cat, name, now) == Holder::Other)
        refuse(status::Fail, QStringLiteral("the name \"%1\" is being stored by another console").arg(name));
}

// A NAQC id another connection is storing is refused, and so are script entries under an id that
// nobody reserves: a save that stopped half-way left them.
void refuseTakenNaqcId(StoreDb &db, int id, qint64 now)
{
    const Holder held = idHolder(db, category::NAQC, id, now);
    if (held == Holder::Other)
        refuseBusy(id);
    if (held == Holder::Nobody && db.exists("SELECT 1 FROM naqc_scripts WHERE rule_id = ?", {id}))
        refuse(status::Fail, QStringLiteral("rule id %1 holds the script entries of a save that did not finish")
                                 .arg(ruleIdText(id)));
}

} // namespace

Reply Methods::updateExRuleNameInRule(const ArgList &args)
{
    const QString oldName = ruleNameArg(args, 0);
    const QString newName = ruleNameArg(args, 1);
    const qint16 cat = categoryArg(args, 2);
    if (oldName == newName)
        return {};
    const qint64 now = m_db.now();
    const QVariant id = m_db.value("SELECT rule_id FROM rules WHERE category = ? AND rule_name = ?",
                                   {int(cat), oldName});
    if (id.isValid() && idHolder(m_db, cat, id.toInt(), now) == Holder::Other)
        refuseBusy(id.toInt());
    if (!claimName(m_db, cat, newName, now, HoldMs))
        refuseReservedName(m_db, cat, newName, now);
    if (id.isValid())
        recordVersion(m_db, readRule(m_db, cat, id.toInt()), HistoryEvent::Renamed, newName, now);
    // The rule itself takes the new name at once, so that a sheet whose later steps fail leaves it
    // renamed rather than out of step with the references; a name that is taken fails on the
    // unique constraint and nothing changes.
    m_db.exec("UPDATE rules SET rule_name = ? WHERE category = ? AND rule_name = ?", {newName, int(cat), oldName});
    m_db.exec("UPDATE rule_usage SET used_name = ? WHERE used_category = ? AND used_name = ?",
              {newName, int(cat), oldName});
    releaseName(m_db, cat, newName);
    return {};
}

// What goes is kept in the history first. Mode 2 (the property sheet, about to store the rule
// again under the same id) keeps the uses in both directions, and keeps the id and the name
// for this connection until the rule is back.
Reply Methods::deleteRule(const ArgList &args, qint16 cat)
{
    const int id = ruleIdArg(args, 0);
    const bool storeAgain = deleteModeArg(args, 1) == delmode::BeforeStoreAgain;
    const qint64 now = m_db.now();
    if (!claimId(m_db, cat, id, now, HoldMs))
        refuseBusy(id);
    const RuleSnapshot old = readRule(m_db, cat, id);
    if (!old.isEmpty())
        recordVersion(m_db, old, storeAgain ? HistoryEvent::StoredAgain : HistoryEvent::Deleted, QString(), now);
    removeRule(m_db, cat, id, old.name, storeAgain);
    if (!storeAgain)
        releaseId(m_db, cat, id);
    else if (old.hasRule && !claimName(m_db, cat, old.name, now, HoldMs))
        refuseReservedName(m_db, cat, old.name, now);
    return {};
}

Reply Methods::delWMIRule(const ArgList &args)
{
    return deleteRule(args, category::WMI);
}

Reply Methods::delRQCRule(const ArgList &args)
{
    return deleteRule(args, category::NAQC);
}

Reply Methods::addWMIRule(const ArgList &args)
{
    const int id = ruleIdArg(args, 0);
    const QString name = ruleNameArg(args, 1);
    const QString comment = boundedArg(args, 2, longest(recordsize::Comment), "comment");
    const qint16 kind = shortArg(args, 3);
    const qint16 index = nonNegativeArg(args, 4, "condition index");
    const qint16 conjunction = shortArg(args, 5);
    const QString cls = boundedArg(args, 6, longest(recordsize::ClassOrQuery), "class or query");
    const QString field = boundedArg(args, 7, longest(recordsize::Field), "field");
    const QString value = boundedArg(args, 8, longest(recordsize::Value), "value");
    const QString op = boundedArg(args, 9, longest(recordsize::Operator), "operator");
    const qint16 opCode = shortArg(args, 10);
    const QString ns = boundedArg(args, 11, longest(recordsize::NameSpace), "namespace");
    const QString type = boundedArg(args, 12, longest(recordsize::Type), "type");
    const qint16 typeCode = shortArg(args, 13);

    const qint64 now = m_db.now();
    const Holder held = idHolder(m_db, category::WMI, id, now);
    QSqlQuery q = m_db.exec("SELECT rule_name, rule_comment, rule_wql FROM rules WHERE category = 6 AND rule_id = ?",
                            {id});
    if (q.next()) {
        // Later conditions come from the connection that is storing the rule, with its name,
        // comment and kind: a console that drew the same id adds nothing to someone else's rule.
        // The rule's maker goes on even if a stall outlasted its reservation, unless another
        // connection has taken the id since.
        const bool maker = held == Holder::Me || (held == Holder::Nobody && m_madeWmiRule == id);
        if (!maker || q.value(0).toString() != name || q.value(1).toString() != comment
            || q.value(2).toInt() != kind)
            refuse(status::Fail, QStringLiteral("rule id %1 belongs to the rule \"%2\"")
                                     .arg(ruleIdText(id), q.value(0).toString()));
        q.finish();
    } else {
        q.finish();
        if (held == Holder::Other)
            refuseBusy(id);
        refuseReservedName(m_db, category::WMI, name, now);
        m_db.exec("INSERT INTO rules (category, rule_id, rule_name, rule_comment, rule_wql,"
                  " service_name, script_selection) VALUES (6, ?, ?, ?, ?, '', '')",
                  {id, name, comment, int(kind)});
        releaseName(m_db, category::WMI, name);
        m_madeWmiRule = id;
    }
    if (!claimId(m_db, category::WMI, id, now, TailMs))
        refuseBusy(id);
    m_db.exec("INSERT INTO wmi_conditions (rule_id, cond_index, conjunction, cond_class,"
              " cond_field, cond_value, cond_operator, operator_code, cond_namespace, cond_type,"
              " type_code) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
              {id, int(index), int(conjunction), cls, field, value, op, int(opCode), ns, type, int(typeCode)});
    return {};
}

Reply Methods::addRQCScript(const ArgList &args)
{
    const int id = ruleIdArg(args, 0);
    const qint16 entry = nonNegativeArg(args, 1, "entry number");
    const QString file = boundedArg(args, 2, longest(recordsize::ScriptFile), "script file");
    const QString action = boundedArg(args, 3, longest(recordsize::ActionType), "action type");
    const QString comment = boundedArg(args, 4, longest(recordsize::Comment), "comment");
    const qint16 selected = shortArg(args, 5);
    const qint64 now = m_db.now();
    const QVariant owner = m_db.value("SELECT rule_name FROM rules WHERE category = 5 AND rule_id = ?", {id});
    if (owner.isValid())
        refuse(status::Fail,
               QStringLiteral("rule id %1 belongs to the rule \"%2\"").arg(ruleIdText(id), owner.toString()));
    refuseTakenNaqcId(m_db, id, now);
    if (!claimId(m_db, category::NAQC, id, now, HoldMs))
        refuseBusy(id);
    m_db.exec("INSERT INTO naqc_scripts (rule_id, entry_no, script_file, action_type,"
              " script_comment, selected) VALUES (?, ?, ?, ?, ?, ?)",
              {id, int(entry), file, action, comment, int(selected)});
    return {};
}

Reply Methods::addRQCRule(const ArgList &args)
{
    const int id = ruleIdArg(args, 0);
    const QString name = ruleNameArg(args, 1);
    const QString service = boundedArg(args, 2, longest(recordsize::ServiceName), "service name");
    const QString comment = boundedArg(args, 3, longest(recordsize::Comment), "comment");
    const QString selection = textArg(args, 4);
    const qint64 now = m_db.now();
    refuseTakenNaqcId(m_db, id, now);
    refuseReservedName(m_db, category::NAQC, name, now);
    m_db.exec("INSERT INTO rules (category, rule_id, rule_name, rule_comment, rule_wql,"
              " service_name, script_selection) VALUES (5, ?, ?, ?, 0, ?, ?)",
              {id, name, comment, service, selection});
    // The rule is whole: its row holds the id and the name from now on.
    releaseId(m_db, category::NAQC, id);
    releaseName(m_db, category::NAQC, name);
    return {};
}

} // namespace qarvo::store
