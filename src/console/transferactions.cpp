#include "console/transferactions.h"

#include "browser/paneup.h"
#include "browser/rulelistmodel.h"
#include "console/rulefile.h"
#include "console/question.h"
#include "console/ruleimport.h"
#include "control/qarvoctrl.h"
#include "dataservice/methods.h"
#include "resources/ui.h"
#include "rulestore/sqlrulestore.h"

#include <QApplication>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHash>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QSaveFile>

namespace qarvo::console {

namespace {

constexpr const char *Caption = "qarvo console";
const QString Filter = QStringLiteral("Rule files (*.json);;All files (*)");

void complain(QWidget *parent, const QString &text)
{
    ui::showMessage(parent, {QString::fromLatin1(Caption), text, ui::MessageIcon::Critical});
}

// The rules of the file whose names the store holds with other content, or nothing when the
// store cannot be read.
std::optional<QStringList> differingNames(SqlRuleStore *store, const QList<RuleSnapshot> &rules)
{
    const std::optional<QList<RuleSnapshot>> existing = store->allRules();
    if (!existing)
        return std::nullopt;
    QHash<std::pair<qint16, QString>, const RuleSnapshot *> held;
    for (const RuleSnapshot &r : *existing)
        held.insert({r.category, r.name}, &r);
    QStringList names;
    for (const RuleSnapshot &r : rules) {
        const RuleSnapshot *old = held.value({r.category, r.name});
        if (old && !sameRule(*old, r))
            names.append(r.name);
    }
    return names;
}

} // namespace

std::optional<SelectedRule> selectedRule(CqarvoCtrl *control)
{
    const CPaneUP *pane = control ? control->findChild<CPaneUP *>() : nullptr;
    const int row = pane ? pane->selectionMark() : -1;
    if (row < 0)
        return std::nullopt;
    return SelectedRule{pane->viewType(), pane->model()->row(row).ruleId, pane->model()->cellText(row, 0)};
}

void exportRulesInteractively(QWidget *parent, SqlRuleStore *store, const std::optional<SelectedRule> &only)
{
    const QString suggested = only ? only->name + QStringLiteral(".json") : QStringLiteral("rules.json");
    const QString fileName = QFileDialog::getSaveFileName(
        parent, only ? QStringLiteral("Export Rule") : QStringLiteral("Export Rules"), suggested, Filter);
    if (!fileName.isEmpty())
        exportRulesToFile(parent, store, only, fileName);
}

bool exportRulesToFile(QWidget *parent, SqlRuleStore *store, const std::optional<SelectedRule> &only,
                       const QString &fileName)
{
    std::optional<QList<RuleSnapshot>> rules;
    bool cancelled = false;
    if (only) {
        if (std::optional<RuleSnapshot> one = store->rule(only->category, ruleIdText(only->id)))
            rules = QList<RuleSnapshot>{*one};
    } else {
        // Shown only when reading the rules takes longer than a moment.
        QProgressDialog progress(QStringLiteral("Exporting rules to %1…").arg(QFileInfo(fileName).fileName()),
                                 QStringLiteral("Cancel"), 0, 0, parent);
        progress.setObjectName(QStringLiteral("exportProgress"));
        progress.setWindowTitle(QStringLiteral("Export Rules"));
        progress.setWindowModality(Qt::WindowModal);
        progress.setMinimumDuration(500);
        rules = store->allRules([&](int done, int total) {
            progress.setMaximum(total);
            progress.setValue(done);
            return !progress.wasCanceled();
        });
        cancelled = progress.wasCanceled();
        progress.reset();
    }
    if (cancelled)
        return false; // nothing was written: the file is only opened once every rule is read
    QApplication::setOverrideCursor(Qt::WaitCursor);
    QSaveFile file(fileName);
    const bool read = rules.has_value();
    const bool written = read && file.open(QIODevice::WriteOnly) && file.write(writeRuleFile(*rules)) >= 0
        && file.commit();
    QApplication::restoreOverrideCursor();
    if (!read)
        complain(parent, QStringLiteral("The rules could not be read: %1").arg(store->lastError()));
    else if (!written)
        complain(parent, QStringLiteral("Cannot write %1: %2").arg(fileName, file.errorString()));
    return written;
}

bool importRulesInteractively(QWidget *parent, SqlRuleStore *store)
{
    const QString fileName = ui::getOpenFileName(parent, QStringLiteral("Import Rules"), QString(), Filter);
    if (fileName.isEmpty())
        return false;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly) || file.size() > RuleFileMaxBytes) {
        complain(parent, QStringLiteral("Cannot read %1: %2")
                             .arg(fileName, file.isOpen() ? QStringLiteral("too large for a rule file")
                                                          : file.errorString()));
        return false;
    }
    QString error;
    const std::optional<QList<RuleSnapshot>> rules = readRuleFile(file.readAll(), &error);
    if (!rules) {
        complain(parent, QStringLiteral("%1 cannot be imported.\n\n%2\n\nNothing was imported.").arg(fileName, error));
        return false;
    }
    const std::optional<QStringList> taken = differingNames(store, *rules);
    if (!taken) {
        complain(parent, QStringLiteral("The rules could not be read: %1").arg(store->lastError()));
        return false;
    }
    bool replace = false;
    if (!taken->isEmpty()) {
        const int answer = askOneOfTwo(
            parent, QString::fromLatin1(Caption),
            QStringLiteral("The store holds rules of these names already:\n\n%1\n\nKeep the stored rules, or "
                           "replace them with the file's? Replaced rules stay in the rule history.")
                .arg(taken->join(QLatin1Char('\n'))),
            QStringLiteral("importConflictBox"), {QStringLiteral("&Keep Them")},
            {QStringLiteral("&Replace Them"), QMessageBox::DestructiveRole}, 0);
        if (answer < 0)
            return false;
        replace = answer == 1;
    }

    // Shown only when the import takes longer than a moment.
    QProgressDialog progress(QStringLiteral("Importing rules from %1…").arg(QFileInfo(fileName).fileName()),
                             QStringLiteral("Cancel"), 0, int(rules->size()), parent);
    progress.setObjectName(QStringLiteral("importProgress"));
    progress.setWindowTitle(QStringLiteral("Import Rules"));
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(500);
    const ImportReport report = importRules(store, *rules, replace, [&](int done, int) {
        progress.setValue(done);
        return !progress.wasCanceled();
    });
    progress.reset();
    ui::showMessage(parent, {QString::fromLatin1(Caption),
                             QStringLiteral("%1\n\n%2").arg(fileName, importSummary(report)),
                             report.ok() ? ui::MessageIcon::Information : ui::MessageIcon::Critical});
    return report.added + report.replaced > 0;
}

} // namespace qarvo::console
