// Listing 100,000 rules through the rule store, read to the end through the row set the control
// gets, against the database's own client library stepping the same query and reading every
// column of its answer:
//  - store_list_sqlite_100k: a SQLite store against the sqlite3 C API;
//  - store_list_postgresql_100k: a PostgreSQL store against libpq, when QARVO_TEST_PG_URL names
//    a database (eval "$(bash scripts/pg.sh start)"). It works in a schema of its own and drops
//    it at the end.

#include "dataservice/calls.h"
#include "ratio.h"
#include "rulestore/sqlrulestore.h"
#include "rulestore/storelisting.h"
#include "storefill.h"

#include <QCoreApplication>
#include <QFile>

#include <libpq-fe.h>
#include <malloc.h>
#include <sqlite3.h>

using namespace qarvo;

namespace {

constexpr int Rules = 100000;

QString sqlitePath()
{
    return bench::scratchPath(QStringLiteral("bench.sqlite"));
}

QString pgSchema()
{
    return QStringLiteral("qarvo_bench_%1").arg(QCoreApplication::applicationPid());
}

SqlRuleStore *sqliteStore()
{
    static std::unique_ptr<SqlRuleStore> store = bench::filledStore(sqlitePath(), Rules);
    return store.get();
}

SqlRuleStore *postgresStore()
{
    static std::unique_ptr<SqlRuleStore> store;
    const QString url = qEnvironmentVariable("QARVO_TEST_PG_URL");
    if (!store && !url.isEmpty())
        store = bench::filledStore(url + QStringLiteral("?schema=") + pgSchema(), Rules);
    return store.get();
}

void listThroughStore(benchmark::State &state, SqlRuleStore *store)
{
    if (!store) {
        state.SkipWithError("store not available");
        return;
    }
    const QString wql = QStringLiteral("rule_wql");
    const QString name = QStringLiteral("rule_name");
    const QString comment = QStringLiteral("rule_comment");
    const QString id = QStringLiteral("rule_id");
    for (auto _ : state) {
        Reply reply = calls::GetWMIRules(store);
        int rows = 0;
        forEachRow(reply, [&](RowReader &r) {
            benchmark::DoNotOptimize(r.integer(wql));
            benchmark::DoNotOptimize(r.text(name));
            benchmark::DoNotOptimize(r.text(comment));
            benchmark::DoNotOptimize(r.integer(id));
            ++rows;
        });
        if (rows != Rules)
            state.SkipWithError("rules missing");
    }
}

void BM_StoreListSQLite(benchmark::State &state) { listThroughStore(state, sqliteStore()); }
void BM_StoreListPostgreSQL(benchmark::State &state) { listThroughStore(state, postgresStore()); }

// The connection is made once, as the store's is.
void BM_SQLiteCApi(benchmark::State &state)
{
    if (!sqliteStore()) {
        state.SkipWithError("store not available");
        return;
    }
    sqlite3 *db = nullptr;
    if (sqlite3_open_v2(QFile::encodeName(sqlitePath()).constData(), &db, SQLITE_OPEN_READONLY,
                        nullptr)
        != SQLITE_OK) {
        state.SkipWithError(sqlite3_errmsg(db));
        sqlite3_close(db);
        return;
    }
    for (auto _ : state) {
        const int rows = bench::listWithSqlite(db);
        if (rows != Rules)
            state.SkipWithError(rows < 0 ? sqlite3_errmsg(db) : "rules missing");
    }
    sqlite3_close(db);
}

QByteArray libpqConnection()
{
    StoreLocation loc;
    if (!StoreLocation::parse(qEnvironmentVariable("QARVO_TEST_PG_URL"), &loc, nullptr))
        return {};
    // Values go in single quotes, so that a password with blanks cannot break the string.
    const auto quoted = [](const QString &v) {
        return "'" + v.toUtf8().replace('\\', "\\\\").replace('\'', "\\'") + "'";
    };
    return "host=" + quoted(loc.host) + " port=" + QByteArray::number(loc.port)
           + " user=" + quoted(loc.user) + " password=" + quoted(loc.password)
           + " dbname=" + quoted(loc.database);
}

void BM_PostgreSQLLibpq(benchmark::State &state)
{
    if (!postgresStore()) {
        state.SkipWithError("store not available");
        return;
    }
    PGconn *conn = PQconnectdb(libpqConnection().constData());
    if (PQstatus(conn) != CONNECTION_OK) {
        state.SkipWithError(PQerrorMessage(conn));
        PQfinish(conn);
        return;
    }
    // The store's own query with its one value bound, as the store sends it.
    const QByteArray query =
        QByteArray(store::ListQueryLibpq).replace("FROM rules", "FROM " + pgSchema().toUtf8() + ".rules");
    const char *category[] = {"6"};
    for (auto _ : state) {
        PGresult *result = PQexecParams(conn, query.constData(), 1, nullptr, category, nullptr, nullptr, 0);
        if (PQresultStatus(result) != PGRES_TUPLES_OK) {
            state.SkipWithError(PQerrorMessage(conn));
            PQclear(result);
            break;
        }
        const int rows = PQntuples(result);
        for (int row = 0; row < rows; ++row) {
            for (int column = 0; column < 4; ++column) {
                benchmark::DoNotOptimize(PQgetvalue(result, row, column));
                benchmark::DoNotOptimize(PQgetlength(result, row, column));
            }
        }
        PQclear(result);
        if (rows != Rules)
            state.SkipWithError("rules missing");
    }
    PQfinish(conn);
}

// Three repetitions each: the machine may be shared, and the median steadies the ratio.
BENCHMARK(BM_SQLiteCApi)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_StoreListSQLite)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_PostgreSQLLibpq)->Unit(benchmark::kMillisecond)->Repetitions(3);
BENCHMARK(BM_StoreListPostgreSQL)->Unit(benchmark::kMillisecond)->Repetitions(3);

} // namespace

int main(int argc, char **argv)
{
    // Memory is kept by the C library once taken, for both sides alike: whether a side's last
    // free happens to hand pages back to the system, which then faults them in again on the
    // next iteration, would otherwise decide the figure on a machine where faults are dear.
    mallopt(M_TRIM_THRESHOLD, 512 * 1024 * 1024);
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    QCoreApplication app(argc, argv);
    bench::RatioReporter r;
    bench::runAll(argc, argv, r);
    // Wall-clock time: the SQLite store steps the query on a thread of its own while the rows are
    // read, and the server's share of the work counts on both sides.
    bench::printRatio("store_list_sqlite_100k", r.real("BM_StoreListSQLite"), r.real("BM_SQLiteCApi"), 2.0);
    bench::printRatio("store_list_postgresql_100k", r.real("BM_StoreListPostgreSQL"),
                      r.real("BM_PostgreSQLLibpq"), 2.0);
    if (SqlRuleStore *store = postgresStore()) {
        store->close();
        bench::dropSchema(qEnvironmentVariable("QARVO_TEST_PG_URL"), pgSchema());
    }
    return 0;
}
