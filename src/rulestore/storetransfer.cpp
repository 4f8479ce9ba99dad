#include "rulestore/storetransfer.h"

#include "dataservice/calls.h"
#include "rulestore/storedb.h"
#include "rulestore/storeerror.h"
#include "rulestore/storehistory.h"
#include "rulestore/storerules.h"

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
    QList<std::pair<qint16, int>> keys;
    {
        QSqlQuery q = db.exec("SELECT category, rule_id FROM rules");
        while (q.next())
            keys.append({qint16(q.value(0).toInt()), q.value(1).toInt()});
        q.finish();
    }
    QList<RuleSnapshot> rules;
    rules.reserve(keys.size());
    for (const auto &[cat, id] : keys) {
        stepOrStop(step, int(rules.size()), int(keys.size()));
        rules.append(readRule(db, cat, id));
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
