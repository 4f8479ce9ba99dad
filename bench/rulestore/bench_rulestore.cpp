// What a round trip through the rule store costs, against the bare work the control would do
// anyway: reading the same rows out of a row set held in memory. Run with
// QARVO_TEST_PG_URL set to measure PostgreSQL as well.

#include "dataservice/calls.h"
#include "rulestore/sqlrulestore.h"

#include <QCoreApplication>
#include <QMap>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>

using namespace qarvo;

namespace {

constexpr int Rules = 1000;

WMIRuleRow row(int id, int index)
{
    WMIRuleRow r;
    r.ruleId = ruleIdText(id);
    r.ruleName = QStringLiteral("Rule %1").arg(id);
    r.comment = QStringLiteral("A rule of the benchmark");
    r.index = qint16(index);
    r.conjunction = index ? 1 : 0;
    r.className = QStringLiteral("Win32_OperatingSystem");
    r.field = QStringLiteral("ServicePackMajorVersion");
    r.value = QStringLiteral("2");
    r.op = QStringLiteral(">=");
    r.opCode = 5;
    r.nameSpace = QStringLiteral("Root\\CIMV2");
    r.type = QStringLiteral("uint16");
    r.typeCode = 4;
    return r;
}

int readList(Reply &reply)
{
    int n = 0;
    forEachRow(reply, [&](RowReader &r) {
        benchmark::DoNotOptimize(r.integer(QStringLiteral("rule_wql")));
        benchmark::DoNotOptimize(r.text(QStringLiteral("rule_name")));
        benchmark::DoNotOptimize(r.text(QStringLiteral("rule_comment")));
        benchmark::DoNotOptimize(ruleIdFromText(r.text(QStringLiteral("rule_id"))));
        ++n;
    });
    return n;
}

struct Fixture
{
    QTemporaryDir dir;
    SqlRuleStore store;
    bool ready = false;

    explicit Fixture(const QString &location)
    {
        ready = store.open(location.isEmpty() ? dir.filePath(QStringLiteral("bench.sqlite")) : location);
        if (ready && store.isEmpty()) {
            for (int id = 0; id < Rules; ++id)
                calls::AddWMIRule(&store, row(id, 0));
        }
    }
};

QString benchSchema()
{
    return QStringLiteral("qarvo_bench_%1").arg(QCoreApplication::applicationPid());
}

Fixture &sqlite()
{
    static Fixture f{QString()};
    return f;
}

Fixture *postgres()
{
    static std::unique_ptr<Fixture> f;
    const QString url = qEnvironmentVariable("QARVO_TEST_PG_URL");
    if (!f && !url.isEmpty())
        f = std::make_unique<Fixture>(url + QStringLiteral("?schema=") + benchSchema());
    return f && f->ready ? f.get() : nullptr;
}

// The baseline: the same thousand rows, already in memory.
void BM_ListBaseline(benchmark::State &state)
{
    QList<QVariantList> rows;
    for (int id = 0; id < Rules; ++id)
        rows.append({0, QStringLiteral("Rule %1").arg(id), QStringLiteral("A rule of the benchmark"), ruleIdText(id)});
    const QStringList columns = {"rule_wql", "rule_name", "rule_comment", "rule_id"};
    for (auto _ : state) {
        Reply reply;
        reply.rows = std::make_unique<MemoryRowSet>(columns, rows);
        benchmark::DoNotOptimize(readList(reply));
    }
}

void listFrom(benchmark::State &state, Fixture *f)
{
    if (!f) {
        state.SkipWithError("store not available");
        return;
    }
    for (auto _ : state) {
        Reply reply = calls::GetWMIRules(&f->store);
        benchmark::DoNotOptimize(readList(reply));
    }
}

void BM_ListSQLite(benchmark::State &state) { listFrom(state, &sqlite()); }
void BM_ListPostgreSQL(benchmark::State &state) { listFrom(state, postgres()); }

// Storing and deleting one rule of three conditions: the property sheet's whole save.
void saveFrom(benchmark::State &state, Fixture *f)
{
    if (!f) {
        state.SkipWithError("store not available");
        return;
    }
    for (auto _ : state) {
        calls::DelWMIRule(&f->store, ruleIdText(Rules + 1), delmode::BeforeStoreAgain);
        for (int i = 0; i < 3; ++i)
            calls::AddWMIRule(&f->store, row(Rules + 1, i));
    }
}

void BM_SaveSQLite(benchmark::State &state) { saveFrom(state, &sqlite()); }
void BM_SavePostgreSQL(benchmark::State &state) { saveFrom(state, postgres()); }

} // namespace

// Three repetitions each: the machine is shared, and the median steadies the ratio.
BENCHMARK(BM_ListBaseline)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(BM_ListSQLite)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(BM_ListPostgreSQL)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(BM_SaveSQLite)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(BM_SavePostgreSQL)->Unit(benchmark::kMicrosecond)->Repetitions(3);

namespace {

// Keeps the median wall-clock time of every benchmark so that the ratios come from this run.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (!run.error_occurred && run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                median[QString::fromStdString(run.run_name.function_name)] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    QMap<QString, double> median; // microseconds per iteration
};

void dropBenchSchema()
{
    const QString url = qEnvironmentVariable("QARVO_TEST_PG_URL");
    StoreLocation loc;
    if (url.isEmpty() || !StoreLocation::parse(url, &loc, nullptr))
        return;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), QStringLiteral("bench-cleanup"));
        db.setHostName(loc.host);
        db.setPort(loc.port);
        db.setUserName(loc.user);
        db.setPassword(loc.password);
        db.setDatabaseName(loc.database);
        if (db.open()) {
            QSqlQuery(db).exec(QStringLiteral("SET client_min_messages TO warning"));
            QSqlQuery(db).exec(QStringLiteral("DROP SCHEMA IF EXISTS %1 CASCADE").arg(benchSchema()));
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(QStringLiteral("bench-cleanup"));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double base = reporter.median.value(QStringLiteral("BM_ListBaseline"));
    if (base > 0) {
        std::printf("\nagainst reading the same %d rules from memory (%.1f us):\n", Rules, base);
        for (auto it = reporter.median.cbegin(); it != reporter.median.cend(); ++it) {
            if (it.key() != QLatin1String("BM_ListBaseline"))
                std::printf("  %-20s %10.1f us  ratio %6.1fx\n", qPrintable(it.key()), it.value(),
                            it.value() / base);
        }
    }
    if (Fixture *f = postgres())
        f->store.close();
    dropBenchSchema();
    return 0;
}
