// Loading a large rule set into the rule list, against reading the same rows bare.
//
// Both benchmarks read 100,000 WMI/WQL rules with the same four fields from a MemoryRowSet over
// the same shared rows. The pane's run goes through the whole load: the call by name, the list
// cleared, the rows read and converted, the model filled, and the shown view laid out and
// painted. The ratio of the two is printed at the end.

#include "browser/paneup.h"
#include "browser/rulelistmodel.h"
#include "browser/splitdlg.h"
#include "control/qarvoctrl.h"
#include "dataservice/calls.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QMap>
#include <QSet>

#include <cstdio>

using namespace qarvo;

namespace {

constexpr int RuleCount = 100000;

const QStringList &columns()
{
    static const QStringList c = {"rule_wql", "rule_name", "rule_comment", "rule_id"};
    return c;
}

const QList<QVariantList> &rules()
{
    static const QList<QVariantList> rows = [] {
        QList<QVariantList> out;
        out.reserve(RuleCount);
        for (int i = 0; i < RuleCount; ++i)
            out.append({i % 4 == 0 ? 1 : 0, QStringLiteral("Health rule %1").arg(i),
                        QStringLiteral("Checks workstation group %1 before it joins").arg(i % 97),
                        ruleIdText(i)});
        return out;
    }();
    return rows;
}

// Serves the rule list from memory, the way a store hands out a query result.
class MemoryService : public DataService
{
public:
    Reply call(const QString &method, const ArgList &) override
    {
        Reply reply;
        if (method == QLatin1String(method::GetWMIRules))
            reply.rows = std::make_unique<MemoryRowSet>(columns(), rules());
        else
            reply.status = status::UnknownName;
        return reply;
    }
};

struct Control
{
    MemoryService service;
    CqarvoCtrl ctrl;
    Control()
    {
        ctrl.resize(900, 700);
        ctrl.setViewType(category::WMI);
        ctrl.show();
        ctrl.ShowPane(&service, QString(), 1, 0);
        QApplication::processEvents();
    }
};

void BM_PaneLoad(benchmark::State &state)
{
    Control c;
    CPaneUP *pane = c.ctrl.splitDialog()->paneUp();
    for (auto _ : state) {
        pane->loadList(category::WMI);
        QApplication::processEvents(); // the view lays itself out and paints
        if (pane->model()->rowCount() != RuleCount)
            state.SkipWithError("rules missing");
    }
    state.SetItemsProcessed(state.iterations() * RuleCount);
}

void BM_BareRead(benchmark::State &state)
{
    const QString wqlField = QStringLiteral("rule_wql");
    const QString nameField = QStringLiteral("rule_name");
    const QString commentField = QStringLiteral("rule_comment");
    const QString idField = QStringLiteral("rule_id");
    for (auto _ : state) {
        MemoryRowSet rows(columns(), rules());
        qint64 sum = 0;
        while (!rows.atEnd()) {
            const qint32 wql = fieldInt(rows.field(wqlField));
            const QString name = fieldText(rows.field(nameField));
            const QString comment = fieldText(rows.field(commentField));
            const int id = fieldInt(rows.field(idField));
            benchmark::DoNotOptimize(name.constData());
            benchmark::DoNotOptimize(comment.constData());
            sum += wql + id;
            rows.moveNext();
        }
        rows.close();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * RuleCount);
}

// Five repetitions each: the machine is shared, and the median steadies the ratio.
BENCHMARK(BM_BareRead)->Unit(benchmark::kMillisecond)->Repetitions(5);
BENCHMARK(BM_PaneLoad)->Unit(benchmark::kMillisecond)->Repetitions(5);

// Keeps the time per iteration of every run so that the ratio comes from this run alone.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.error_occurred)
                continue;
            // The median of the repetitions where there is one, else the single run.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const QString name = QString::fromStdString(run.run_name.function_name);
            if (!median && (run.run_type != Run::RT_Iteration || medians.contains(name)))
                continue;
            if (median)
                medians.insert(name);
            realTime[name] = run.GetAdjustedRealTime();
            cpuTime[name] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    // Milliseconds per iteration.
    QMap<QString, double> realTime;
    QMap<QString, double> cpuTime;
    QSet<QString> medians;
};

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    (void)rules(); // built once, outside both measurements

    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const QString bare = QStringLiteral("BM_BareRead");
    const QString pane = QStringLiteral("BM_PaneLoad");
    if (reporter.realTime.value(bare) > 0 && reporter.cpuTime.value(bare) > 0
        && reporter.realTime.contains(pane)) {
        std::printf("\nloading %d rules into the rule list, against reading them bare:\n"
                    "  wall clock: pane %.2f ms, bare %.2f ms, ratio %.2fx\n"
                    "  CPU time:   pane %.2f ms, bare %.2f ms, ratio %.2fx\n",
                    RuleCount, reporter.realTime.value(pane),
                    reporter.realTime.value(bare),
                    reporter.realTime.value(pane) / reporter.realTime.value(bare),
                    reporter.cpuTime.value(pane), reporter.cpuTime.value(bare),
                    reporter.cpuTime.value(pane) / reporter.cpuTime.value(bare));
    }
    benchmark::Shutdown();
    return 0;
}
