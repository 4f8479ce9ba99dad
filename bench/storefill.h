#pragma once

// Rule stores of benchmark size. The first rule goes through the store's own AddWMIRule; the
// others are written by one SQL statement in the same shape, since a hundred thousand calls of
// one transaction each would take minutes on a server.

#include <QString>

#include <memory>

struct sqlite3;

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::bench {

// A file named `name` in a folder of this run's own, removed when the program ends.
QString scratchPath(const QString &name);

// Opens the store at `location` and gives it `rules` WMI rules of one condition each, unless it
// already holds rules. Null when the store cannot be opened or filled (the reason is printed).
std::unique_ptr<SqlRuleStore> filledStore(const QString &location, int rules);

// Steps the store's own query for the WMI rule list on `db` through the sqlite3 C API, reading
// every column of every row. The number of rows, or -1 when the query cannot be run.
int listWithSqlite(sqlite3 *db);

// Drops the PostgreSQL schema a benchmark worked in.
void dropSchema(const QString &url, const QString &schema);

} // namespace qarvo::bench
