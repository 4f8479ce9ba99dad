// How the catalogue reader compares with doing nothing but reading:
//  - LoadClassFields for the last class of a 20 MB field file against a bare line-by-line read
//    of the same file (getline(3));
//  - filling the class tree of CWMIDlg from a class.dat of 5,000 classes against parsing it.
// Both ratios come from CPU time (the machine may be shared), from the medians of the repetitions.

#include "conditions/catalogue.h"
#include "conditions/classtreemodel.h"
#include "ratio.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTreeView>

#include <benchmark/benchmark.h>

#include <cstdio>

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
BENCHMARK(BM_FieldFileBareLineRead)->Unit(benchmark::kMillisecond)->Repetitions(5);

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
BENCHMARK(BM_LoadClassFieldsLastClass)->Unit(benchmark::kMillisecond)->Repetitions(5);

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
BENCHMARK(BM_ClassListParse)->Unit(benchmark::kMillisecond)->Repetitions(5);

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
BENCHMARK(BM_ClassTreeFill)->Unit(benchmark::kMillisecond)->Repetitions(5);

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen"
                                                                      : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    qarvo::bench::RatioReporter r;
    qarvo::bench::runAll(argc, argv, r);
    qarvo::bench::printRatio("catalogue_fields_20mb", r.cpu("BM_LoadClassFieldsLastClass"),
                             r.cpu("BM_FieldFileBareLineRead"), 1.1);
    qarvo::bench::printRatio("catalogue_tree_5000", r.cpu("BM_ClassTreeFill"),
                             r.cpu("BM_ClassListParse"), 1.5);
    return 0;
}
