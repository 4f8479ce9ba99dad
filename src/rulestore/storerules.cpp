#include "rulestore/storerules.h"

#include "dataservice/calls.h"
#include "rulestore/storedb.h"

#include <algorithm>

namespace qarvo::store {

namespace {

QList<RuleSnapshot::Link> links(QSqlQuery q)
{
    QList<RuleSnapshot::Link> out;
    while (q.next())
        out.append({qint16(q.value(0).toInt()), q.value(1).toString()});
    q.finish();
    sortLinks(out);
    return out;
}

} // namespace

void sortLinks(QList<RuleSnapshot::Link> &links)
{
    std::sort(links.begin(), links.end(), [](const RuleSnapshot::Link &a, const RuleSnapshot::Link &b) {
        return a.category != b.category ? a.category < b.category : a.name < b.name;
    });
}

bool idInUse(StoreDb &db, qint16 cat, int id)
{
    if (db.exists("SELECT 1 FROM rules WHERE category = ? AND rule_id = ?", {int(cat), id}))
        return true;
    if (db.exists(cat == category::NAQC ? "SELECT 1 FROM naqc_scripts WHERE rule_id = ?"
                                        : "SELECT 1 FROM wmi_conditions WHERE rule_id = ?",
                  {id}))
        return true;
    return db.exists("SELECT 1 FROM rule_usage WHERE user_category = ? AND user_id = ?", {int(cat), id});
}

RuleSnapshot readRule(StoreDb &db, qint16 cat, int id)
{
    RuleSnapshot rule;
    rule.category = cat;
    rule.id = id;
    {
        QSqlQuery q = db.exec("SELECT rule_name, rule_comment, rule_wql, service_name, script_selection"
                              " FROM rules WHERE category = ? AND rule_id = ?",
                              {int(cat), id});
        rule.hasRule = q.next();
        if (rule.hasRule) {
            rule.name = q.value(0).toString();
            rule.comment = q.value(1).toString();
            rule.wql = qint16(q.value(2).toInt());
            rule.serviceName = q.value(3).toString();
            rule.scriptSelection = q.value(4).toString();
        }
        q.finish();
    }
    if (cat == category::WMI) {
        QSqlQuery q = db.exec("SELECT cond_index, conjunction, cond_class, cond_field, cond_value, cond_operator,"
                              " operator_code, cond_namespace, cond_type, type_code"
                              " FROM wmi_conditions WHERE rule_id = ? ORDER BY cond_index",
                              {id});
        while (q.next())
            rule.conditions.append({qint16(q.value(0).toInt()), qint16(q.value(1).toInt()), q.value(2).toString(),
                                    q.value(3).toString(), q.value(4).toString(), q.value(5).toString(),
                                    qint16(q.value(6).toInt()), q.value(7).toString(), q.value(8).toString(),
                                    qint16(q.value(9).toInt())});
        q.finish();
    } else {
        QSqlQuery q = db.exec("SELECT entry_no, script_file, action_type, script_comment, selected"
                              " FROM naqc_scripts WHERE rule_id = ? ORDER BY entry_no",
                              {id});
        while (q.next())
            rule.scripts.append({qint16(q.value(0).toInt()), q.value(1).toString(), q.value(2).toString(),
                                 q.value(3).toString(), qint16(q.value(4).toInt())});
        q.finish();
    }
    rule.uses = links(db.exec("SELECT used_category, used_name FROM rule_usage"
                              " WHERE user_category = ? AND user_id = ?",
                              {int(cat), id}));
    if (rule.hasRule)
        rule.usedBy = links(db.exec("SELECT r.category, r.rule_name FROM rule_usage u"
                                    " JOIN rules r ON r.category = u.user_category AND r.rule_id = u.user_id"
                                    " WHERE u.used_category = ? AND u.used_name = ?",
                                    {int(cat), rule.name}));
    return rule;
}

void writeRule(StoreDb &db, const RuleSnapshot &rule, const RuleKey &key)
{
    const int cat = rule.category;
    db.exec("INSERT INTO rules (category, rule_id, rule_name, rule_comment, rule_wql, service_name,"
            " script_selection) VALUES (?, ?, ?, ?, ?, ?, ?)",
            {cat, key.id, key.name, rule.comment, int(rule.wql), rule.serviceName, rule.scriptSelection});
    for (const RuleSnapshot::Condition &c : rule.conditions)
        db.exec("INSERT INTO wmi_conditions (rule_id, cond_index, conjunction, cond_class, cond_field, cond_value,"
                " cond_operator, operator_code, cond_namespace, cond_type, type_code)"
                " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                {key.id, int(c.index), int(c.conjunction), c.classOrQuery, c.field, c.value, c.op,
                 int(c.operatorCode), c.nameSpace, c.type, int(c.typeCode)});
    for (const RuleSnapshot::Script &s : rule.scripts)
        db.exec("INSERT INTO naqc_scripts (rule_id, entry_no, script_file, action_type, script_comment, selected)"
                " VALUES (?, ?, ?, ?, ?, ?)",
                {key.id, int(s.entry), s.file, s.actionType, s.comment, int(s.selected)});

    const auto link = [&](int userCat, int userId, int usedCat, const QString &usedName) {
        if (!db.exists("SELECT 1 FROM rule_usage WHERE user_category = ? AND user_id = ? AND used_category = ?"
                       " AND used_name = ?",
                       {userCat, userId, usedCat, usedName}))
            db.exec("INSERT INTO rule_usage (user_category, user_id, used_category, used_name) VALUES (?, ?, ?, ?)",
                    {userCat, userId, usedCat, usedName});
    };
    for (const RuleSnapshot::Link &used : rule.uses) {
        if (db.exists("SELECT 1 FROM rules WHERE category = ? AND rule_name = ?", {int(used.category), used.name}))
            link(cat, key.id, used.category, used.name);
    }
    if (key.name != rule.name)
        return;
    for (const RuleSnapshot::Link &user : rule.usedBy) {
        const QVariant userId = db.value("SELECT rule_id FROM rules WHERE category = ? AND rule_name = ?",
                                         {int(user.category), user.name});
        if (userId.isValid())
            link(user.category, userId.toInt(), cat, key.name);
    }
}

void removeRule(StoreDb &db, qint16 cat, int id, const QString &name, bool keepLinks)
{
    db.exec(cat == category::WMI ? "DELETE FROM wmi_conditions WHERE rule_id = ?"
                                 : "DELETE FROM naqc_scripts WHERE rule_id = ?",
            {id});
    db.exec("DELETE FROM rules WHERE category = ? AND rule_id = ?", {int(cat), id});
    if (keepLinks)
        return;
    // Gone for good: its own uses go, and so do references that others still held to it (the list
    // refuses the delete while there are any, so these are strays).
    db.exec("DELETE FROM rule_usage WHERE user_category = ? AND user_id = ?", {int(cat), id});
    if (!name.isEmpty())
        db.exec("DELETE FROM rule_usage WHERE used_category = ? AND used_name = ?", {int(cat), name});
}

} // namespace qarvo::store
