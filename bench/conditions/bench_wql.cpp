// Checking a WQL condition as the editor does on every key press, for a query of 1023 characters
// (the most a stored query holds), against a bare pass over the same characters. The class and its
// fields are read from the catalogue once, before the measured runs, as the editor keeps them.
// Prints the absolute time per check and the ratio, from CPU time (the machine may be shared).

#include "conditions/catalogue.h"
#include "conditions/conditioncheck.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <cstdio>
#include "ratio.h"
#include <string>

namespace {

// SELECT and FROM of a realistic query, and a WHERE part long enough to make 1023 characters.
qarvo::WQLCondition longCondition()
{
    qarvo::WQLCondition c;
    c.nameSpace = QStringLiteral("Root\\CIMV2");
    c.select = QStringLiteral("Name, State, StartMode, ProcessId, PathName, Started");
    c.from = QStringLiteral("Win32_Service");
    const QString query = QStringLiteral("SELECT ") + c.select + QStringLiteral(" FROM ") + c.from
                          + QStringLiteral(" WHERE ");
    const QString test = QStringLiteral("(State = 'Running' AND StartMode <> \"Disabled\" OR NOT ProcessId "
                                        ">= 0x10 AND PathName LIKE 'C:\\\\Win[a-z]%' AND Started = TRUE) OR ");
    while (query.size() + c.where.size() + test.size() < 1023 - 20)
        c.where += test;
    c.where += QStringLiteral("Name IS NOT NULL");
    c.where += QString(1023 - query.size() - c.where.size(), u' ');
    c.mode = 2;
    c.field = QStringLiteral("State");
    c.fieldType = QStringLiteral("string");
    return c;
}

void BM_BarePass(benchmark::State &state)
{
    const qarvo::WQLCondition c = longCondition();
    const QString query = QStringLiteral("SELECT ") + c.select + QStringLiteral(" FROM ") + c.from
                          + QStringLiteral(" WHERE ") + c.where;
    for (auto _ : state) {
        int spaces = 0;
        for (QChar ch : query)
            spaces += ch.isSpace() ? 1 : 0;
        benchmark::DoNotOptimize(spaces);
    }
}
BENCHMARK(BM_BarePass);

void BM_CheckQuery1023(benchmark::State &state)
{
    const qarvo::WQLCondition c = longCondition();
    qarvo::wql::Schema schema(qarvo::catalogue::shippedCatalogueDirectory());
    if (!qarvo::wql::checkWQLCondition(c, schema).isEmpty() || !schema.findClass(c.from)) {
        state.SkipWithError("the query should be sound against the shipped catalogue");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(qarvo::wql::checkWQLCondition(c, schema));
}
BENCHMARK(BM_CheckQuery1023);


} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qarvo::bench::RatioReporter r;
    qarvo::bench::runAll(argc, argv, r);
    const double check = r.cpu("BM_CheckQuery1023");
    const double bare = r.cpu("BM_BarePass");
    if (check <= 0 || bare <= 0)
        return 1;
    std::printf("wql check of 1023 characters: %.1f us per check (bare pass %.2f us)\n", check / 1000,
                bare / 1000);
    qarvo::bench::printRatio("wql_check_1023", check, bare, 1000);
    return 0;
}
