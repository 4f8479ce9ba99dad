// How the catalogue reader compares with doing nothing but reading:
//  - LoadClassFields for the last class of a 20 MB field file against a bare line-by-line read
//    of the same file (getline(3));
//  - filling the class tree of CWMIDlg from a class.dat of 5,000 classes against parsing it.
// Both ratios are printed at the end of the run, from CPU time (the machine may be shared), from
// the medians when the run has repetitions (--benchmark_repetitions=5).

#include "conditions/catalogue.h"
#include "conditions/classtreemodel.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTreeView>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <unistd.h>
#include <map>
#include <string>

namespace {

QTemporaryDir &workDir()
{
    static QTemporaryDir dir;
    return dir;
}

// A field file of about 20 MB whose last block is the class looked for.
QString fieldCatalogue()
{
    static const QString root = [] {
        const QString path = workDir().filePath("data/win32.dat");
        QDir().mkpath(workDir().filePath("data"));
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        QByteArray block;
        qint64 written = 0;
        for (int c = 0; written < 20 * 1024 * 1024; ++c) {
            block = "Win32_Generated" + QByteArray::number(c) + "\r\nroot\\cimv2\r\n@Generated class "
                    + QByteArray::number(c) + ".\r\n{\r\n";
            for (int p = 0; p < 24; ++p) {
                block += "uint32 Property" + QByteArray::number(p)
                         + ";ValueMap{\"0\", \"1\", \"2\"} Units(\"bytes\")\r\n\xA6\xA6"
                           "Some generated property with a description of moderate length.\\n"
                           "And a second line.\r\n";
            }
            block += "}\r\n";
            written += f.write(block);
        }
        block = "Win32_Last\r\nroot\\cimv2\r\n@The last class.\r\n{\r\n";
        for (int p = 0; p < 24; ++p)
            block += "string Last" + QByteArray::number(p) + ";\r\n\xA6\xA6Last.\r\n";
        block += "}\r\n";
        f.write(block);
        return workDir().path();
    }();
    return root;
}

// class.dat with 50 level-1 categories of 10 level-2 categories of 10 classes each.
QString classList()
{
    static const QString path = [] {
        const QString p = workDir().filePath("class.dat");
        QFile f(p);
        f.open(QIODevice::WriteOnly);
        int n = 0;
        for (int a = 0; a < 50; ++a) {
            f.write("!Category " + QByteArray::number(a) + "\r\n");
            for (int b = 0; b < 10; ++b) {
                f.write("@Group " + QByteArray::number(a) + "." + QByteArray::number(b) + "\r\n");
                for (int c = 0; c < 10; ++c, ++n)
                    f.write("#Win32_Class" + QByteArray::number(n) + "$Generated class number "
                            + QByteArray::number(n) + "\r\n");
            }
        }
        return p;
    }();
    return path;
}

void BM_FieldFileBareLineRead(benchmark::State &state)
{
    const QByteArray path = QFile::encodeName(fieldCatalogue() + "/data/win32.dat");
    for (auto _ : state) {
        FILE *f = std::fopen(path.constData(), "rb");
        char *line = nullptr;
        size_t capacity = 0;
        size_t lines = 0;
        while (getline(&line, &capacity, f) >= 0)
            ++lines;
        std::free(line);
        std::fclose(f);
        benchmark::DoNotOptimize(lines);
    }
}
BENCHMARK(BM_FieldFileBareLineRead)->Unit(benchmark::kMillisecond);

void BM_LoadClassFieldsLastClass(benchmark::State &state)
{
    const QString root = fieldCatalogue();
    for (auto _ : state) {
        const auto fields = qarvo::catalogue::LoadClassFields(root, QStringLiteral("Win32_Last"));
        if (!fields || fields->fields.size() != 24)
            state.SkipWithError("class not loaded");
        benchmark::DoNotOptimize(fields);
    }
}
BENCHMARK(BM_LoadClassFieldsLastClass)->Unit(benchmark::kMillisecond);

void BM_ClassListParse(benchmark::State &state)
{
    const QString path = classList();
    for (auto _ : state) {
        QFile f(path);
        f.open(QIODevice::ReadOnly);
        qarvo::catalogue::ClassTree tree;
        qarvo::catalogue::readClassList(f, tree);
        benchmark::DoNotOptimize(tree.nodes.size());
    }
}
BENCHMARK(BM_ClassListParse)->Unit(benchmark::kMillisecond);

void BM_ClassTreeFill(benchmark::State &state)
{
    const QString path = classList();
    QTreeView view;
    view.setUniformRowHeights(true);
    view.resize(300, 400);
    qarvo::ClassTreeModel model;
    view.setModel(&model);
    for (auto _ : state) {
        // What the dialog does: read the list, hand it to the view, open the parents and lay
        // the view out.
        QFile f(path);
        f.open(QIODevice::ReadOnly);
        qarvo::catalogue::ClassTree tree;
        qarvo::catalogue::readClassList(f, tree);
        model.setTree(std::move(tree));
        model.applyExpansion(&view);
        view.doItemsLayout();
        benchmark::DoNotOptimize(model.rowCount());
    }
}
BENCHMARK(BM_ClassTreeFill)->Unit(benchmark::kMillisecond);

class RatioReporter : public benchmark::ConsoleReporter
{
public:
    RatioReporter() : ConsoleReporter(isatty(fileno(stdout)) ? OO_Defaults : OO_Tabular) {}

    std::map<std::string, double> medians;
    std::map<std::string, double> singles;

    double time(const std::string &name) const
    {
        if (const auto it = medians.find(name); it != medians.end())
            return it->second;
        const auto it = singles.find(name);
        return it == singles.end() ? 0.0 : it->second;
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        // With repetitions the median stands for the benchmark; otherwise its one run does.
        for (const Run &run : runs) {
            if (run.error_occurred)
                continue;
            const std::string name = run.run_name.function_name;
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                medians[name] = run.GetAdjustedCPUTime();
            else if (run.run_type == Run::RT_Iteration)
                singles[name] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

void printRatio(const RatioReporter &r, const char *what, const char *measured,
                const char *baseline, double aim)
{
    const double m = r.time(measured);
    const double b = r.time(baseline);
    if (m <= 0 || b <= 0)
        return;
    std::printf("%-60s %.2fx (aim <= %.1fx)\n", what, m / b, aim);
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen"
                                                                      : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::printf("\n");
    printRatio(reporter, "LoadClassFields, last class of 20 MB / bare line read:",
               "BM_LoadClassFieldsLastClass", "BM_FieldFileBareLineRead", 1.5);
    printRatio(reporter, "Class tree of 5,000 classes, filled / parsed only:", "BM_ClassTreeFill",
               "BM_ClassListParse", 2.0);
    return 0;
}
