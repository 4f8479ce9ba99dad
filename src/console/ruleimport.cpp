#include "console/ruleimport.h"

#include "dataservice/calls.h"
#include "rulestore/sqlrulestore.h"

#include <QHash>
#include <QRandomGenerator>

#include <algorithm>

namespace qarvo::console {

namespace {

using Key = std::pair<qint16, QString>;

} // namespace

bool sameRule(RuleSnapshot a, RuleSnapshot b)
{
    for (RuleSnapshot *r : {&a, &b}) {
        r->id = 0;
        r->wql = r->wql ? 1 : 0;
        r->usedBy.clear();
        for (RuleSnapshot::Condition &c : r->conditions)
            c.index = 0;
        for (RuleSnapshot::Script &s : r->scripts)
            s.entry = 0;
        std::sort(r->uses.begin(), r->uses.end(), [](const auto &x, const auto &y) {
            return std::pair(x.category, x.name) < std::pair(y.category, y.name);
        });
    }
    return a == b;
}

namespace {

// The id the rule goes under: the file's when the store answers it free, otherwise one drawn the
// way the sheets draw theirs. 0 when the store failed.
std::optional<QString> freeId(SqlRuleStore *store, const RuleSnapshot &rule)
{
    QString id = ruleIdText(rule.id);
    // Every id of the control's range is tried before giving up, so a full range ends.
    for (int attempt = 0; attempt <= 0x10000; ++attempt) {
        const YesNo taken = calls::CanUseID(store, id, rule.category);
        if (taken.failed())
            return std::nullopt;
        if (!taken.yes)
            return id;
        id = ruleIdText(QRandomGenerator::global()->bounded(32768));
    }
    return std::nullopt;
}

// The rows of the rule under `id`, as the sheets send them; false at the first failing call.
bool storeRule(SqlRuleStore *store, const RuleSnapshot &rule, const QString &id)
{
    if (rule.category == category::NAQC) {
        for (qsizetype i = 0; i < rule.scripts.size(); ++i) {
            const RuleSnapshot::Script &s = rule.scripts.at(i);
            if (failed(calls::AddRQCScript(store, id, qint16(i), s.file, s.actionType, s.comment, s.selected)))
                return false;
        }
        return !failed(calls::AddRQCRule(store, id, rule.name, rule.serviceName, rule.comment, rule.scriptSelection));
    }
    for (qsizetype i = 0; i < rule.conditions.size(); ++i) {
        const RuleSnapshot::Condition &c = rule.conditions.at(i);
        const WMIRuleRow row{id, rule.name, rule.comment, qint16(rule.wql ? 1 : 0), qint16(i), c.conjunction,
                             c.classOrQuery, c.field, c.value, c.op, c.operatorCode, c.nameSpace, c.type, c.typeCode};
        if (failed(calls::AddWMIRule(store, row)))
            return false;
    }
    return true;
}

qint32 deleteRule(SqlRuleStore *store, qint16 cat, const QString &id, qint16 mode)
{
    return cat == category::NAQC ? calls::DelRQCRule(store, id, mode) : calls::DelWMIRule(store, id, mode);
}

// Puts back the version a replacing delete kept, after the new rows failed.
void restoreReplaced(SqlRuleStore *store, const RuleSnapshot &old)
{
    const std::optional<QList<HistoryEntry>> history = store->history();
    if (!history)
        return;
    for (const HistoryEntry &e : *history) {
        if (e.category == old.category && e.ruleId == old.id && e.event == HistoryEvent::StoredAgain) {
            store->restoreVersion(e.version, RestoreId::ReplaceHolder);
            return;
        }
    }
}

} // namespace

ImportReport importRules(SqlRuleStore *store, const QList<RuleSnapshot> &rules, bool replace,
                         const ImportProgress &progress)
{
    ImportReport report;
    const std::optional<QList<RuleSnapshot>> existing = store->allRules();
    if (!existing) {
        report.error = store->lastError();
        return report;
    }
    QHash<Key, RuleSnapshot> byName;
    for (const RuleSnapshot &r : *existing)
        byName.insert({r.category, r.name}, r);

    // Rules now stored from the file, by the id they got, for their references at the end.
    QList<std::pair<const RuleSnapshot *, QString>> stored;
    const auto fail = [&](const RuleSnapshot &rule) {
        report.error = QStringLiteral("The rule \"%1\" was not stored: %2").arg(rule.name, store->lastError());
    };
    for (qsizetype i = 0; i < rules.size() && report.ok(); ++i) {
        if (progress && !progress(int(i), int(rules.size()))) {
            report.cancelled = true;
            break;
        }
        const RuleSnapshot &rule = rules.at(i);
        const auto held = byName.constFind({rule.category, rule.name});
        if (held != byName.cend()) {
            if (sameRule(*held, rule)) {
                ++report.unchanged;
                continue;
            }
            if (!replace) {
                report.kept.append(rule.name);
                continue;
            }
            const QString id = ruleIdText(held->id);
            if (failed(deleteRule(store, rule.category, id, delmode::BeforeStoreAgain))) {
                fail(rule);
                break;
            }
            if (!storeRule(store, rule, id)) {
                fail(rule);
                deleteRule(store, rule.category, id, delmode::FromList);
                restoreReplaced(store, *held);
                break;
            }
            // Its own references become the file's; the rules that use it keep using it.
            for (const RuleSnapshot::Link &l : held->uses) {
                if (!rule.uses.contains(l))
                    store->removeRuleUsage(rule.category, id, l.category, l.name);
            }
            stored.append({&rule, id});
            ++report.replaced;
            continue;
        }
        const std::optional<QString> id = freeId(store, rule);
        if (!id) {
            fail(rule);
            break;
        }
        const YesNo nameTaken = calls::CanUseExRuleName(store, rule.name, rule.category);
        if (nameTaken.failed()) {
            fail(rule);
            break;
        }
        if (nameTaken.yes) { // another console stored one since the store was read
            report.kept.append(rule.name);
            continue;
        }
        if (!storeRule(store, rule, *id)) {
            fail(rule);
            deleteRule(store, rule.category, *id, delmode::FromList);
            break;
        }
        stored.append({&rule, *id});
        ++report.added;
    }

    for (const auto &[rule, id] : stored) {
        for (const RuleSnapshot::Link &l : rule->uses) {
            if (failed(store->addRuleUsage(rule->category, id, l.category, l.name)))
                report.notes.append(QStringLiteral("\"%1\" uses \"%2\", which is not in the store; that reference "
                                                   "was not restored.").arg(rule->name, l.name));
        }
    }
    return report;
}

QString importSummary(const ImportReport &report)
{
    QStringList parts;
    parts.append(QStringLiteral("%1 added, %2 replaced, %3 unchanged, %4 left as they were.")
                     .arg(report.added).arg(report.replaced).arg(report.unchanged).arg(report.kept.size()));
    if (!report.kept.isEmpty())
        parts.append(QStringLiteral("Rules of these names exist and differ from the file (replace them to "
                                    "take the file's): %1.").arg(report.kept.join(QStringLiteral(", "))));
    parts.append(report.notes);
    if (report.cancelled)
        parts.append(QStringLiteral("Cancelled: the rules after those were not imported."));
    if (!report.ok())
        parts.append(report.error);
    return parts.join(QLatin1Char('\n'));
}

} // namespace qarvo::console
