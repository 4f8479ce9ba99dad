#include "console/storecommands.h"

#include "conditions/conditioncheck.h"
#include "console/commandprogress.h"
#include "console/consoleapp.h"
#include "console/historytext.h"
#include "console/rulecheck.h"
#include "console/rulefile.h"
#include "console/ruleimport.h"
#include "control/settings.h"
#include "rulestore/sqlrulestore.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cstdio>

namespace qarvo::console {

namespace {

void printErr(const QString &text)
{
    std::fprintf(stderr, "qarvo-console: %s\n", qUtf8Printable(text));
    std::fflush(stderr);
}

void printOut(const QString &text)
{
    std::printf("%s\n", qUtf8Printable(text));
    std::fflush(stdout);
}

// Opens a store that must exist already: a path that names nothing is reported, not created.
bool openExisting(SqlRuleStore &store, const QString &database)
{
    StoreLocation location;
    QString error;
    if (!StoreLocation::parse(database, &location, &error)) {
        printErr(error);
        return false;
    }
    if (location.kind == StoreLocation::Kind::SQLite && !QFileInfo::exists(location.path)) {
        printErr(QStringLiteral("%1 does not exist.").arg(location.displayText()));
        return false;
    }
    if (!store.open(location)) {
        printErr(store.lastError());
        return false;
    }
    return true;
}

// Problems on stdout, one a line, then the summary; 1 when anything was found.
int printRuleCheck(SqlRuleStore &store)
{
    wql::Schema schema(catalogue::programDirectory());
    RuleCheck check;
    QString error;
    if (!checkStoredRules(&store, schema, &check, &error)) {
        printErr(QStringLiteral("%1 %2").arg(error, store.lastError()).trimmed());
        return 1;
    }
    if (!check.catalogueFound)
        printErr(QStringLiteral("no WMI class catalogue was found; only the WQL syntax was checked."));
    for (const RuleProblem &p : check.problems)
        std::printf("%s\n", qUtf8Printable(problemLine(p)));
    printOut(summaryLine(check));
    return check.problems.isEmpty() ? 0 : 1;
}

int printHistory(SqlRuleStore &store)
{
    const std::optional<QList<HistoryEntry>> history = store.history();
    if (!history) {
        printErr(store.lastError());
        return 1;
    }
    for (const HistoryEntry &entry : *history)
        std::printf("%s\n", qUtf8Printable(historyLine(entry)));
    std::fflush(stdout);
    return 0;
}

CommandProgress::Line counted(const char *verb)
{
    return [verb](int done, int total) {
        return QStringLiteral("%1 %2 of %3 rules").arg(QLatin1String(verb)).arg(done).arg(total);
    };
}

// The one line a command stopped by Ctrl+C ends with.
int interrupted(const QString &what)
{
    printErr(QStringLiteral("interrupted; %1").arg(what));
    return InterruptedExit;
}

int exportRules(SqlRuleStore &store, const Options &options)
{
    const QString &fileName = options.exportFile;
    std::optional<QList<RuleSnapshot>> rules;
    {
        CommandProgress progress(counted("Read"), options.progress);
        rules = store.allRules([&](int done, int total) { return progress.step(done, total); });
        if (progress.interrupted())
            return interrupted(QStringLiteral("nothing was exported."));
    }
    if (!rules) {
        printErr(store.lastError());
        return 1;
    }
    // A file that is there already is replaced whole or not at all.
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(writeRuleFile(*rules)) < 0 || !file.commit()) {
        printErr(QStringLiteral("cannot write %1: %2").arg(fileName, file.errorString()));
        return 1;
    }
    return 0;
}

int importFile(const Options &options)
{
    // The whole file is read and checked before the store is opened, so a bad file writes nothing
    // and creates nothing.
    QFile file(options.importFile);
    if (!file.open(QIODevice::ReadOnly)) {
        printErr(QStringLiteral("cannot read %1: %2").arg(options.importFile, file.errorString()));
        return 1;
    }
    if (file.size() > RuleFileMaxBytes) {
        printErr(QStringLiteral("%1 is too large for a rule file.").arg(options.importFile));
        return 1;
    }
    QString error;
    const std::optional<QList<RuleSnapshot>> rules = readRuleFile(file.readAll(), &error);
    if (!rules) {
        printErr(QStringLiteral("%1: %2; nothing was imported.").arg(options.importFile, error));
        return 1;
    }
    SqlRuleStore store;
    if (!store.open(options.database)) {
        printErr(store.lastError());
        return 1;
    }
    ImportReport report;
    {
        CommandProgress progress(counted("Imported"), options.progress);
        report = importRules(&store, *rules, options.replace,
                             [&](int done, int total) { return progress.step(done, total); });
    }
    // Each rule is stored whole or not at all, so a stop keeps the rules before it.
    (report.ok() && !report.cancelled ? printOut(importSummary(report)) : printErr(importSummary(report)));
    if (report.cancelled)
        return interrupted(QStringLiteral("the rules imported before stay in the store."));
    return report.ok() ? 0 : 1;
}

int copyStore(SqlRuleStore &from, const Options &options)
{
    const auto percent = [](int done, int total) {
        return QStringLiteral("Copying rules: %1%").arg(qint64(done) * 100 / qMax(total, 1));
    };
    // Watching for Ctrl+C from before the target is opened, so that a target made for the copy
    // is removed whenever the copy is stopped.
    std::optional<CommandProgress> progress(std::in_place, percent, options.progress);
    SqlRuleStore to;
    if (!to.open(options.copyTo)) {
        progress.reset();
        printErr(to.lastError());
        return 1;
    }
    std::optional<StoreCopyCounts> counts =
        from.copyTo(to, options.merge, [&](int done, int total) { return progress->step(done, total); });
    const bool stopped = progress->interrupted() && !counts;
    progress.reset();
    if (!counts) {
        // The copy is one transaction in the target, which has been rolled back.
        if (stopped)
            interrupted(QStringLiteral("nothing was copied to %1.").arg(to.location().displayText()));
        else
            printErr(QStringLiteral("%1: %2").arg(to.location().displayText(),
                                                  to.lastError().isEmpty() ? from.lastError() : to.lastError()));
        if (to.createdOnOpen() && to.location().kind == StoreLocation::Kind::SQLite) {
            // The file was made for this copy only.
            to.close();
            for (const char *suffix : {"", "-wal", "-shm", "-journal"})
                QFile::remove(to.location().path + QLatin1String(suffix));
        }
        return stopped ? InterruptedExit : 1;
    }
    printOut(QStringLiteral("Copied %1 rules and %2 history versions from %3 to %4; %5 rules read back and "
                            "found equal.")
                 .arg(counts->rules).arg(counts->versions)
                 .arg(from.location().displayText(), to.location().displayText())
                 .arg(counts->checked));
    if (!counts->skipped.isEmpty())
        printOut(QStringLiteral("Left out %1 rules whose names the target holds: %2.")
                     .arg(counts->skipped.size()).arg(counts->skipped.join(QStringLiteral(", "))));
    return 0;
}

} // namespace

bool isStoreCommand(const Options &o)
{
    return o.check || o.history || !o.exportFile.isEmpty() || !o.importFile.isEmpty() || !o.copyTo.isEmpty();
}

int runStoreCommand(const Options &options)
{
    if (!options.importFile.isEmpty())
        return importFile(options);
    SqlRuleStore store;
    if (!openExisting(store, options.database))
        return 1;
    if (options.check)
        return printRuleCheck(store);
    if (options.history)
        return printHistory(store);
    if (!options.exportFile.isEmpty())
        return exportRules(store, options);
    return copyStore(store, options);
}

} // namespace qarvo::console
