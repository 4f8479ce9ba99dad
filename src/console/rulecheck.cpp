#include "console/rulecheck.h"

#include "conditions/conditioncheck.h"
#include "dataservice/calls.h"

namespace qarvo::console {

namespace {

struct StoredRule
{
    QString name;
    QString id;
    bool wql = false;
};

QString failure(const QString &what, qint32 status)
{
    return QStringLiteral("%1 failed (status 0x%2).").arg(what).arg(quint32(status), 8, 16, QLatin1Char('0'));
}

} // namespace

bool checkStoredRules(DataService *service, wql::Schema &schema, RuleCheck *result, QString *error)
{
    *result = {};
    result->catalogueFound = !schema.isEmpty();
    try {
        QList<StoredRule> rules;
        Reply list = calls::GetWMIRules(service);
        if (list.failed()) {
            *error = failure(QStringLiteral("Reading the rule list"), list.status);
            return false;
        }
        forEachRow(list, [&](RowReader &r) {
            rules.append({r.text(QStringLiteral("rule_name")),
                          ruleIdText(ruleIdFromText(r.text(QStringLiteral("rule_id")))),
                          r.integer(QStringLiteral("rule_wql")) != 0});
        });

        for (const StoredRule &rule : rules) {
            Reply info = calls::GetWMIRuleInfo(service, rule.id);
            if (info.failed()) {
                *error = failure(QStringLiteral("Reading the rule %1").arg(rule.name), info.status);
                return false;
            }
            QList<QList<wql::Advice>> conditions;
            forEachRow(info, [&](RowReader &r) {
                const QString nameSpace = r.text(QStringLiteral("rule_namespace"));
                const QString className = r.text(QStringLiteral("rule_class"));
                const QString field = r.text(QStringLiteral("rule_field"));
                const QString type = r.text(QStringLiteral("rule_type"));
                conditions.append(rule.wql
                                      ? wql::checkStoredWQL(nameSpace, className, field, type, schema)
                                      : wql::checkWMICondition({nameSpace, className, field, type, {}, {}},
                                                               schema));
            });
            ++result->rules;
            bool found = false;
            for (qsizetype i = 0; i < conditions.size(); ++i) {
                // Which condition is meant only needs saying when there is more than one.
                const QString where = conditions.size() > 1
                                          ? QStringLiteral("condition %1, ").arg(i + 1)
                                          : QString();
                for (const wql::Advice &a : conditions[i]) {
                    result->problems.append({rule.name, rule.id, where + wql::adviceText(a)});
                    found = true;
                }
            }
            result->rulesWithProblems += found ? 1 : 0;
        }
    } catch (const DataServiceError &e) {
        *error = failure(QStringLiteral("Reading the rules"), e.status());
        return false;
    }
    return true;
}

QString problemLine(const RuleProblem &p)
{
    return QStringLiteral("%1 (%2): %3").arg(p.ruleName, p.ruleId, p.text);
}

QString summaryLine(const RuleCheck &c)
{
    const QString rules = c.rules == 1 ? QStringLiteral("1 WMI or WQL rule")
                                       : QStringLiteral("%1 WMI and WQL rules").arg(c.rules);
    if (c.problems.isEmpty())
        return QStringLiteral("No problems in %1.").arg(rules);
    return QStringLiteral("%1 %2 in %3 of %4.")
        .arg(c.problems.size())
        .arg(c.problems.size() == 1 ? QStringLiteral("problem") : QStringLiteral("problems"))
        .arg(c.rulesWithProblems)
        .arg(rules);
}

} // namespace qarvo::console
