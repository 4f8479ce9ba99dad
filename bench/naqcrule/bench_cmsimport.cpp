// Reading Connection Manager profiles, against reading the same files' bytes and nothing more:
//  - cms_read: a profile with 100 actions in each of the nine action sections;
//  - cms_import: the same profile through the page's whole import, list filling included;
//  - cms_memory: the peak heap while reading a 24 MB profile of 1.5 million one-key sections,
//    against the file's size.

#include "heappeak.h"
#include "naqcrule/cmsprofile.h"
#include "naqcrule/rqcrulesheet.h"
#include "ratio.h"
#include "resources/ui.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTreeWidget>

namespace {

QString g_profilePath;

QByteArray actionProfile()
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

// About 24 MB: a service name, then 1.5 million sections of one key each that nobody asks for.
QByteArray manySectionsProfile()
{
    QByteArray text = "[Connection Manager]\r\nServiceName=Many sections\r\n";
    text.reserve(26 * 1024 * 1024);
    char line[40];
    for (int n = 0; n < 1500000; ++n)
        text.append(line, std::snprintf(line, sizeof line, "[s%07d]\r\nk=v\r\n", n));
    return text;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Each read replaces the one before, as an import replaces what the page showed: a result is let
// go once the next one is there.
void BM_BareRead(benchmark::State &state)
{
    QByteArray previous;
    for (auto _ : state) {
        QFile file(g_profilePath);
        if (!file.open(QIODevice::ReadOnly))
            state.SkipWithError("cannot open the profile");
        QByteArray bytes = file.readAll();
        benchmark::DoNotOptimize(bytes.data());
        previous = std::move(bytes);
    }
}
BENCHMARK(BM_BareRead)->Repetitions(5);

void BM_ReadProfile(benchmark::State &state)
{
    std::optional<qarvo::CmsProfile> previous;
    for (auto _ : state) {
        auto profile = qarvo::readCmsProfile(g_profilePath);
        if (!profile || profile->rows.size() != 900)
            state.SkipWithError("profile not read whole");
        benchmark::DoNotOptimize(profile);
        previous = std::move(profile);
    }
}
BENCHMARK(BM_ReadProfile)->Repetitions(5);

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
BENCHMARK(BM_PageImport)->Repetitions(5);

// Peak heap of one read of the file at `path`, as a multiple of its size; 0 when it failed.
double heapPerFileByte(const QString &path, qint64 fileSize)
{
    qarvo::bench::startHeapCount();
    const bool read = qarvo::readCmsProfile(path).has_value();
    const std::size_t peak = qarvo::bench::stopHeapCount();
    return read ? double(peak) / double(fileSize) : 0.0;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir dir;
    g_profilePath = dir.filePath(QStringLiteral("bench.cms"));
    const QString manyPath = dir.filePath(QStringLiteral("many.cms"));
    const QByteArray many = manySectionsProfile();
    if (!writeFile(g_profilePath, actionProfile()) || !writeFile(manyPath, many))
        return 1;

    qarvo::bench::RatioReporter r;
    qarvo::bench::runAll(argc, argv, r);
    qarvo::bench::printRatio("cms_read", r.cpu("BM_ReadProfile"), r.cpu("BM_BareRead"), 10);
    qarvo::bench::printRatio("cms_import", r.cpu("BM_PageImport"), r.cpu("BM_BareRead"), 40);
    qarvo::bench::printRatio("cms_memory", heapPerFileByte(manyPath, many.size()), 4);
    return 0;
}
