#include "rulestore/storetransfer.h"

#include "dataservice/calls.h"
#include "rulestore/storedb.h"
#include "rulestore/storeerror.h"
#include "rulestore/storehistory.h"
#include "rulestore/storerules.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace qarvo::store {

namespace {

using Key = std::pair<qint16, QString>;

// The rule as another store answers it: the id is the store's own, and links to rules that were
// not copied along are not part of the copy.
RuleSnapshot comparable(RuleSnapshot rule, const QSet<Key> &copied)
{
    rule.id = 0;
    const auto foreign = [&](const RuleSnapshot::Link &l) { return !copied.contains({l.category, l.name}); };
    rule.uses.removeIf(foreign);
    rule.usedBy.removeIf(foreign);
    return rule;
}

void stepOrStop(const StepCheck &step, int done, int total)
{
    if (step && !step(done, total))
        refuse(status::Fail, QStringLiteral("stopped before the end; nothing was changed"));
}

} // namespace

QList<RuleSnapshot> readAllRules(StoreDb &db, const StepCheck &step)
{
    // One query per table rather than five per rule: the Usage window, an import and an export
    // read the whole store, and tens of thousands of rules would spend seconds on round trips.
    QList<RuleSnapshot> rules;
    QHash<std::pair<qint16, int>, qsizetype> byId;
    QHash<Key, qsizetype> byName;
    {
        QSqlQuery q = db.exec("SELECT category, rule_id, rule_name, rule_comment, rule_wql, service_name,"
                              " script_selection FROM rules");
        while (q.next()) {
            RuleSnapshot &r = rules.emplaceBack();
            r.category = qint16(q.value(0).toInt());
            r.id = q.value(1).toInt();
            r.name = q.value(2).toString();
            r.comment = q.value(3).toString();
            r.wql = qint16(q.value(4).toInt());
            r.serviceName = q.value(5).toString();
            r.scriptSelection = q.value(6).toString();
            byId.insert({r.category, r.id}, rules.size() - 1);
            byName.insert({r.category, r.name}, rules.size() - 1);
        }
        q.finish();
    }
    // Steps are counted in rules, the tables after the first standing for a share of them each;
    // none is 0, which would start a progress dialog's clock again.
    const int total = int(rules.size());
    const auto rule = [&](qint16 cat, int id) -> RuleSnapshot * {
        const qsizetype i = byId.value({cat, id}, -1);
        return i < 0 ? nullptr : &rules[i];
    };
    stepOrStop(step, (total + 3) / 4, total);
    {
        QSqlQuery q = db.exec("SELECT rule_id, cond_index, conjunction, cond_class, cond_field, cond_value,"
                              " cond_operator, operator_code, cond_namespace, cond_type, type_code"
                              " FROM wmi_conditions ORDER BY rule_id, cond_index");
        while (q.next()) {
            if (RuleSnapshot *r = rule(category::WMI, q.value(0).toInt()))
                r->conditions.append({qint16(q.value(1).toInt()), qint16(q.value(2).toInt()), q.value(3).toString(),
                                      q.value(4).toString(), q.value(5).toString(), q.value(6).toString(),
                                      qint16(q.value(7).toInt()), q.value(8).toString(), q.value(9).toString(),
                                      qint16(q.value(10).toInt())});
        }
        q.finish();
    }
    stepOrStop(step, (total + 1) / 2, total);
    {
        QSqlQuery q = db.exec("SELECT rule_id, entry_no, script_file, action_type, script_comment, selected"
                              " FROM naqc_scripts ORDER BY rule_id, entry_no");
        while (q.next()) {
            if (RuleSnapshot *r = rule(category::NAQC, q.value(0).toInt()))
                r->scripts.append({qint16(q.value(1).toInt()), q.value(2).toString(), q.value(3).toString(),
                                   q.value(4).toString(), qint16(q.value(5).toInt())});
        }
        q.finish();
    }
    stepOrStop(step, (total * 3 + 3) / 4, total);
    {
        QSqlQuery q = db.exec("SELECT user_category, user_id, used_category, used_name FROM rule_usage");
        while (q.next()) {
            RuleSnapshot *user = rule(qint16(q.value(0).toInt()), q.value(1).toInt());
            if (!user)
                continue;
            const RuleSnapshot::Link used{qint16(q.value(2).toInt()), q.value(3).toString()};
            user->uses.append(used);
            if (const qsizetype i = byName.value({used.category, used.name}, -1); i >= 0)
                rules[i].usedBy.append({user->category, user->name});
        }
        q.finish();
    }
    for (RuleSnapshot &r : rules) {
        sortLinks(r.uses);
        sortLinks(r.usedBy);
    }
    std::sort(rules.begin(), rules.end(), [](const RuleSnapshot &a, const RuleSnapshot &b) {
        if (a.category != b.category)
            return a.category < b.category;
        return a.name < b.name;
    });
    return rules;
}

void removeUsage(StoreDb &db, qint16 userCat, int userId, qint16 usedCat, const QString &usedName)
{
    QSqlQuery q = db.exec("DELETE FROM rule_usage WHERE user_category = ? AND user_id = ? AND used_category = ?"
                          " AND used_name = ?",
                          {int(userCat), userId, int(usedCat), boundText(usedName)});
    if (q.numRowsAffected() < 1)
        refuse(status::InvalidArgument, QStringLiteral("rule %1 does not use \"%2\"").arg(ruleIdText(userId), usedName));
}

QList<StoredVersion> readVersions(StoreDb &db)
{
    QSqlQuery q = db.exec("SELECT happened_at, category, rule_id, rule_name, event, detail, content"
                          " FROM rule_history ORDER BY version_id");
    QList<StoredVersion> out;
    while (q.next())
        out.append({q.value(0).toLongLong(), qint16(q.value(1).toInt()), q.value(2).toInt(), q.value(3).toString(),
                    q.value(4).toString(), q.value(5).toString(), q.value(6).toString()});
    q.finish();
    return out;
}

CopyResult copyInto(StoreDb &db, const QList<RuleSnapshot> &rules, const QList<StoredVersion> &versions,
                    bool merge, const StepCheck &step)
{
    if (!merge && db.exists("SELECT 1 FROM rules", {}))
        refuse(status::Fail, QStringLiteral("the target holds rules already; nothing was copied (merge to add to them)"));
    const qint64 now = db.now();
    CopyResult result;
    QSet<Key> copied;
    QList<std::pair<const RuleSnapshot *, int>> written;
    for (const RuleSnapshot &rule : rules) {
        if (db.exists("SELECT 1 FROM rules WHERE category = ? AND rule_name = ?", {int(rule.category), rule.name})) {
            result.skipped.append(rule.name);
            continue;
        }
        copied.insert({rule.category, rule.name});
        written.append({&rule, idInUse(db, rule.category, rule.id) ? drawFreeId(db, rule.category, now) : rule.id});
    }
    // Links are written with the second rule of each pair, once both exist; links to rules that
    // stay behind (merge) are not made.
    const int steps = int(written.size()) * 2;
    for (const auto &[rule, id] : written) {
        stepOrStop(step, result.rules, steps);
        writeRule(db, comparable(*rule, copied), {id, rule->name});
        ++result.rules;
    }
    for (const StoredVersion &v : versions) {
        // Merging the same store twice keeps each version once.
        if (merge && db.exists("SELECT 1 FROM rule_history WHERE happened_at = ? AND category = ? AND rule_id = ?"
                               " AND event = ? AND content = ?",
                               {v.time, int(v.category), v.ruleId, boundText(v.event), boundText(v.content)}))
            continue;
        db.exec("INSERT INTO rule_history (happened_at, category, rule_id, rule_name, event, detail, content)"
                " VALUES (?, ?, ?, ?, ?, ?, ?)",
                {v.time, int(v.category), v.ruleId, boundText(v.ruleName), boundText(v.event), boundText(v.detail),
                 boundText(v.content)});
        ++result.versions;
    }
    for (const auto &[rule, id] : written) {
        stepOrStop(step, result.rules + result.checked, steps);
        if (comparable(readRule(db, rule->category, id), copied) != comparable(*rule, copied))
            refuse(status::Fail, QStringLiteral("the rule \"%1\" reads back differently from the target; "
                                                "nothing was copied").arg(rule->name));
        ++result.checked;
    }
    return result;
}

} // namespace qarvo::store
