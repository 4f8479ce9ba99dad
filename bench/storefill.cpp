#include "storefill.h"

#include "dataservice/calls.h"
#include "rulestore/sqlrulestore.h"
#include "rulestore/storelisting.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>

namespace qarvo::bench {

namespace {

const QString FillConnection = QStringLiteral("qarvo-bench-fill");

bool openBeside(const StoreLocation &loc, QSqlDatabase &db)
{
    if (loc.kind == StoreLocation::Kind::SQLite) {
        db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), FillConnection);
        db.setDatabaseName(loc.path);
        return db.open();
    }
    db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), FillConnection);
    db.setHostName(loc.host);
    db.setPort(loc.port);
    db.setUserName(loc.user);
    db.setPassword(loc.password);
    db.setDatabaseName(loc.database);
    if (!db.open())
        return false;
    QSqlQuery(db).exec(QStringLiteral("SET client_min_messages TO warning"));
    return loc.schema.isEmpty()
           || QSqlQuery(db).exec(QStringLiteral("SET search_path TO %1").arg(loc.schema));
}

// Rules 1 .. count - 1 beside rule 0, the way AddWMIRule stores them.
bool fillRest(const StoreLocation &loc, int count)
{
    bool ok = false;
    {
        QSqlDatabase db;
        if (openBeside(loc, db) && db.transaction()) {
            const QString numbers = QStringLiteral("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
                                                   "SELECT i + 1 FROM n WHERE i < %1) ")
                                        .arg(count - 1);
            QSqlQuery q(db);
            ok = q.exec(numbers
                        + QStringLiteral(
                            "INSERT INTO rules (category, rule_id, rule_name, rule_comment,"
                            " rule_wql, service_name, script_selection)"
                            " SELECT 6, i, 'Health rule ' || i, 'Checks workstation group ' ||"
                            " (i % 97) || ' before it joins', CASE WHEN i % 4 = 0 THEN 1 ELSE 0"
                            " END, '', '' FROM n"))
                 && q.exec(numbers
                           + QStringLiteral(
                               "INSERT INTO wmi_conditions (rule_id, cond_index, conjunction,"
                               " cond_class, cond_field, cond_value, cond_operator, operator_code,"
                               " cond_namespace, cond_type, type_code)"
                               " SELECT i, 0, 0, 'Win32_OperatingSystem', 'ServicePackMajorVersion',"
                               " '2', '>=', 5, 'root\\cimv2', 'uint16', 4 FROM n"))
                 && db.commit();
            if (!ok)
                std::fprintf(stderr, "cannot fill the store: %s\n", qPrintable(q.lastError().text()));
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(FillConnection);
    return ok;
}

} // namespace

QString scratchPath(const QString &name)
{
    static QTemporaryDir dir;
    return dir.filePath(name);
}

std::unique_ptr<SqlRuleStore> filledStore(const QString &location, int rules)
{
    auto store = std::make_unique<SqlRuleStore>();
    if (!store->open(location)) {
        std::fprintf(stderr, "cannot open the store: %s\n", qPrintable(store->lastError()));
        return nullptr;
    }
    if (!store->isEmpty())
        return store;
    WMIRuleRow first;
    first.ruleId = ruleIdText(0);
    first.ruleName = QStringLiteral("Health rule 0");
    first.comment = QStringLiteral("Checks workstation group 0 before it joins");
    first.kind = 1;
    first.className = QStringLiteral("Win32_OperatingSystem");
    first.field = QStringLiteral("ServicePackMajorVersion");
    first.value = QStringLiteral("2");
    first.op = QStringLiteral(">=");
    first.opCode = 5;
    first.nameSpace = QStringLiteral("root\\cimv2");
    first.type = QStringLiteral("uint16");
    first.typeCode = 4;
    if (failed(calls::AddWMIRule(store.get(), first)) || !fillRest(store->location(), rules))
        return nullptr;
    return store;
}

int listWithSqlite(sqlite3 *db)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(db, store::ListQuerySqlite, -1, &statement, nullptr) != SQLITE_OK)
        return -1;
    sqlite3_bind_int(statement, 1, category::WMI);
    int rows = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        benchmark::DoNotOptimize(sqlite3_column_int(statement, 0));
        benchmark::DoNotOptimize(sqlite3_column_text(statement, 1));
        benchmark::DoNotOptimize(sqlite3_column_bytes(statement, 1));
        benchmark::DoNotOptimize(sqlite3_column_text(statement, 2));
        benchmark::DoNotOptimize(sqlite3_column_bytes(statement, 2));
        benchmark::DoNotOptimize(sqlite3_column_int(statement, 3));
        ++rows;
    }
    sqlite3_finalize(statement);
    return rows;
}

void dropSchema(const QString &url, const QString &schema)
{
    StoreLocation loc;
    if (url.isEmpty() || !StoreLocation::parse(url, &loc, nullptr))
        return;
    loc.schema.clear();
    {
        QSqlDatabase db;
        if (openBeside(loc, db))
            QSqlQuery(db).exec(QStringLiteral("DROP SCHEMA IF EXISTS %1 CASCADE").arg(schema));
        db.close();
    }
    QSqlDatabase::removeDatabase(FillConnection);
}

} // namespace qarvo::bench
