#pragma once

// Bringing the rules of a rule file into a store, through the same methods and in the same order
// as the rule sheets store a rule, so that the store's checks, reservations and history apply.

#include "rulestore/rulesnapshot.h"

#include <QList>
#include <QStringList>

#include <functional>

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::console {

struct ImportReport
{
    int added = 0;
    int replaced = 0;
    int unchanged = 0;   // the store holds the very same rule already
    QStringList kept;    // a rule of that name exists and differs; it was left as it is
    QStringList notes;   // references that could not be restored
    bool cancelled = false;
    QString error;       // the store failed; the rules before it stay imported
    bool ok() const { return error.isEmpty(); }
};

// True when no reading method of the store could tell the two apart (ids aside).
bool sameRule(RuleSnapshot a, RuleSnapshot b);

// Called before each rule with how many are done; answering false stops before that rule.
using ImportProgress = std::function<bool(int done, int total)>;

// Stores `rules` (as read by readRuleFile). A rule whose name the store holds is left as it is,
// or with `replace` stored again under its id like a property sheet does, which keeps the old
// one in the history. Ids come from the file where the store answers them free and are drawn
// otherwise. References are restored at the end, for the rules that exist by then. A rule that
// fails half-way is taken out again, so no rule is ever left half-imported.
ImportReport importRules(SqlRuleStore *store, const QList<RuleSnapshot> &rules, bool replace,
                         const ImportProgress &progress = {});

// One paragraph for a person: what was added, replaced, kept, and why anything is missing.
QString importSummary(const ImportReport &report);

} // namespace qarvo::console
