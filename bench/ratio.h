#pragma once

// Every benchmark program ends with one line per figure, "ratio NAME VALUE aim AIM", after Google
// Benchmark's own table: each figure is a measurement divided by its baseline measured in the same
// process, so that runs on different machines can be compared with one another.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace qarvo::bench {

// Keeps the time per iteration of every benchmark: the median of its repetitions where it has
// some (the machine may be shared), otherwise its one run.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.error_occurred)
                continue;
            const std::string name = run.run_name.function_name;
            const Times times{run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                m_medians[name] = times;
            else if (run.run_type == Run::RT_Iteration)
                m_singles[name] = times;
        }
        benchmark::ConsoleReporter::ReportRuns(runs);
    }

    // Per iteration, in the benchmark's own unit; 0 when it did not run or failed.
    double real(const std::string &name) const { return find(name).real; }
    double cpu(const std::string &name) const { return find(name).cpu; }

private:
    struct Times
    {
        double real = 0;
        double cpu = 0;
    };
    Times find(const std::string &name) const
    {
        if (const auto m = m_medians.find(name); m != m_medians.end())
            return m->second;
        const auto s = m_singles.find(name);
        return s == m_singles.end() ? Times{} : s->second;
    }
    std::map<std::string, Times> m_medians;
    std::map<std::string, Times> m_singles;
};

// One figure. Nothing is printed when the measurement or the baseline is missing, so that a
// skipped benchmark never shows as a ratio of zero.
inline void printRatio(const char *name, double value, double aim)
{
    if (value <= 0)
        return;
    char line[160];
    std::snprintf(line, sizeof line, "ratio %s %.2f aim %g\n", name, value, aim);
    std::cout << line << std::flush;
}

inline void printRatio(const char *name, double measured, double baseline, double aim)
{
    if (measured > 0 && baseline > 0)
        printRatio(name, measured / baseline, aim);
}

// Runs the benchmarks selected on the command line through `reporter`. With `takeTurns`, the
// repetitions of a figure and of its baseline are run in turns, so that a machine shared with
// others slows both alike rather than one of them; that suits benchmarks that leave nothing
// behind for the next, and a flag on the command line still decides.
inline void runAll(int &argc, char **argv, RatioReporter &reporter, bool takeTurns = false)
{
    static char turns[] = "--benchmark_enable_random_interleaving=true";
    std::vector<char *> args(argv, argv + argc);
    if (takeTurns)
        args.insert(args.begin() + (argc > 0 ? 1 : 0), turns);
    int count = int(args.size());
    args.push_back(nullptr);
    benchmark::Initialize(&count, args.data());
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::cout << '\n';
}

} // namespace qarvo::bench
