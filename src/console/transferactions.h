#pragma once

// The console's File menu entries that move rules in and out of the store, and the rule the
// control has selected, which some of them work on.

#include <QString>

#include <optional>

class CqarvoCtrl;
class QWidget;

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::console {

struct SelectedRule
{
    qint16 category = 0;
    int id = 0;
    QString name;
};
// The rule selected in the control's list, if any.
std::optional<SelectedRule> selectedRule(CqarvoCtrl *control);

// Asks where to and writes every rule, or only `only`, into a rule file.
void exportRulesInteractively(QWidget *parent, SqlRuleStore *store, const std::optional<SelectedRule> &only);
// Writes them into `fileName`, whole or not at all, with progress and a way to stop; true when
// the file was written.
bool exportRulesToFile(QWidget *parent, SqlRuleStore *store, const std::optional<SelectedRule> &only,
                       const QString &fileName);
// Asks for a rule file and stores its rules, with progress and a way to stop between rules;
// true when the store changed.
bool importRulesInteractively(QWidget *parent, SqlRuleStore *store);

} // namespace qarvo::console
