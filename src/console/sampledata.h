#pragma once

#include <QString>

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::console {

// Fills a brand-new, empty store with a few rules to look at: WMI and WQL rules, a NAQC rule,
// and rules that use another one, so that a refused delete can be tried. Returns the number of
// rules added (0 when the store already had rules); on failure, -1 with the reason in `error`.
int addSampleRules(SqlRuleStore &store, QString *error = nullptr);

} // namespace qarvo::console
