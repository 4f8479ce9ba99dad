#pragma once

// The rule history as text: the line a version gets in `--history` and in the history window's
// list, and a whole version written out for reading.

#include "rulestore/rulehistory.h"
#include "rulestore/rulesnapshot.h"

#include <QString>
#include <QStringList>

namespace qarvo::console {

// "WMI" or "NAQC".
QString categoryText(qint16 category);
// Local time, to the second.
QString historyTime(const HistoryEntry &entry);
// Time, category, id, name, what happened.
QStringList historyFields(const HistoryEntry &entry);
// The fields joined by tabs; line breaks and tabs in a name become spaces.
QString historyLine(const HistoryEntry &entry);
// Every field of the rule, one item a line.
QString ruleText(const RuleSnapshot &rule);

} // namespace qarvo::console
