// Importing a large profile (100 actions in each of the nine action sections) against simply
// reading the same file from disk, measured in one run so that the ratio does not depend on
// the machine.

#include "naqcrule/cmsprofile.h"
#include "naqcrule/rqcrulesheet.h"
#include "resources/ui.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTreeWidget>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

namespace {

QString g_profilePath;

QByteArray generatedProfile()
{
    QByteArray text = "[Connection Manager]\r\nServiceName=Benchmark VPN\r\n";
    for (const QString &section : qarvo::cmsActionSections()) {
        text += '[' + section.toUtf8() + "]\r\n";
        for (int n = 0; n < 100; ++n) {
            const QByteArray k = QByteArray::number(n);
            text += k + "=%PROFILEDIR%\\action" + k + ".cmd /quiet /log:%TEMP%\\a" + k + ".log\r\n";
            text += k + "&Description=Action " + k + " of " + section.toUtf8() + "\r\n";
        }
    }
    return text;
}

void BM_BareRead(benchmark::State &state)
{
    for (auto _ : state) {
        QFile file(g_profilePath);
        if (!file.open(QIODevice::ReadOnly))
            state.SkipWithError("cannot open the profile");
        benchmark::DoNotOptimize(file.readAll());
    }
}
BENCHMARK(BM_BareRead);

void BM_ReadProfile(benchmark::State &state)
{
    for (auto _ : state) {
        auto profile = qarvo::readCmsProfile(g_profilePath);
        if (!profile || profile->rows.size() != 900)
            state.SkipWithError("profile not read whole");
        benchmark::DoNotOptimize(profile);
    }
}
BENCHMARK(BM_ReadProfile);

// What the administrator waits for: the page's import, list filling included.
void BM_PageImport(benchmark::State &state)
{
    qarvo::RQCRuleRecord record;
    CRQCRulePage2 page(record);
    qarvo::ui::setFileNameHandler([](const QString &, const QString &) { return g_profilePath; });
    for (auto _ : state) {
        page.importProfile();
        if (page.scriptList()->topLevelItemCount() != 900)
            state.SkipWithError("list not filled");
    }
    qarvo::ui::setFileNameHandler({});
}
BENCHMARK(BM_PageImport);

// Keeps the console output and remembers each benchmark's wall and CPU time per iteration: the
// median when repetitions were asked for, else the single run. On a busy machine the wall time
// mostly measures the other processes, so both ratios are printed.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    using Times = std::pair<double, double>; // wall, CPU
    std::map<std::string, Times> perIteration;
    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            const std::string &name = run.run_name.function_name;
            const Times t{run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                m_medians[name] = t;
            else if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                perIteration[name] = t;
        }
        for (const auto &[name, t] : m_medians)
            perIteration[name] = t;
    }

private:
    std::map<std::string, Times> m_medians;
};

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir dir;
    g_profilePath = dir.filePath(QStringLiteral("bench.cms"));
    {
        QFile file(g_profilePath);
        const QByteArray bytes = generatedProfile();
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            return 1;
    }

    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const auto bare = reporter.perIteration.find("BM_BareRead");
    if (bare == reporter.perIteration.end() || bare->second.first <= 0
        || bare->second.second <= 0)
        return 0;
    for (const char *name : {"BM_ReadProfile", "BM_PageImport"}) {
        const auto it = reporter.perIteration.find(name);
        if (it != reporter.perIteration.end())
            std::printf("%s / BM_BareRead = %.1f (wall), %.1f (CPU)\n", name,
                        it->second.first / bare->second.first,
                        it->second.second / bare->second.second);
    }
    return 0;
}
