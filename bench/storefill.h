#pragma once

// Rule stores of benchmark size. The first rule goes through the store's own AddWMIRule; the
// others are written by one SQL statement in the same shape, since a hundred thousand calls of
// one transaction each would take minutes on a server.

#include <QString>

#include <memory>

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::bench {

// Opens the store at `location` and gives it `rules` WMI rules of one condition each, unless it
// already holds rules. Null when the store cannot be opened or filled (the reason is printed).
std::unique_ptr<SqlRuleStore> filledStore(const QString &location, int rules);

// Drops the PostgreSQL schema a benchmark worked in.
void dropSchema(const QString &url, const QString &schema);

} // namespace qarvo::bench
