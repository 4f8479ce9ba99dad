#pragma once

// Checks the stored WMI and WQL rules the way the WQL editor checks a query as it is written:
// the grammar, and the classes and properties the catalogue knows. A rule that is wrong fails
// silently on every client, so the console can list them all at once ("Check Rules…",
// `qarvo-console --check`).

#include <QList>
#include <QString>

namespace qarvo {
class DataService;
namespace wql {
class Schema;
}
} // namespace qarvo

namespace qarvo::console {

struct RuleProblem
{
    QString ruleName;
    QString ruleId;
    QString text; // what is wrong, and where
};

struct RuleCheck
{
    int rules = 0;
    int rulesWithProblems = 0;
    bool catalogueFound = false; // without it only the WQL grammar is judged
    QList<RuleProblem> problems;
};

// Reads the rules through the service's own answers (GetWMIRules, then GetWMIRuleInfo of each).
// Returns false with `error` set when they cannot be read.
bool checkStoredRules(DataService *service, wql::Schema &schema, RuleCheck *result, QString *error);

// "Disk Free Space (000000103): FROM, character 1: ..."
QString problemLine(const RuleProblem &problem);
// "2 problems in 1 of 5 WMI and WQL rules." / "No problems in 5 WMI and WQL rules."
QString summaryLine(const RuleCheck &check);

} // namespace qarvo::console
