#pragma once

// Moving rules between stores: every rule at once, a store's history as it is kept, and the
// usage links the console removes. Each function runs inside the caller's transaction and throws
// a Refusal to fail it.

#include "rulestore/rulesnapshot.h"

#include <QList>
#include <QStringList>

#include <functional>

namespace qarvo::store {

class StoreDb;

// Before each rule: how many are done of how many; false stops the work with a Refusal.
using StepCheck = std::function<bool(int done, int total)>;

// Every rule of both categories, NAQC before WMI, each category by name. Names are ordered by
// their UTF-16 code units rather than by the database's collation, so that the order is the same
// on every database and in every locale. Rows without a rule are left out.
QList<RuleSnapshot> readAllRules(StoreDb &db, const StepCheck &step = {});

// Ends the link; refuses when the rule does not use the other.
void removeUsage(StoreDb &db, qint16 userCategory, int userId, qint16 usedCategory, const QString &usedName);

// One row of the history, exactly as kept.
struct StoredVersion
{
    qint64 time = 0;
    qint16 category = 0;
    int ruleId = 0;
    QString ruleName;
    QString event;
    QString detail;
    QString content;
};
// Oldest first.
QList<StoredVersion> readVersions(StoreDb &db);

struct CopyResult
{
    int rules = 0;
    int versions = 0;
    int checked = 0;
    QStringList skipped; // names the target holds already (merge only)
};

// Writes `rules` and `versions` into `db`. A target that holds rules is refused unless `merge`;
// then rules whose name it holds are skipped and rules whose id it holds get a free one. Every
// rule written is read back and compared, and a difference refuses the whole copy. `step` sees
// the rules written, then the rules read back.
CopyResult copyInto(StoreDb &db, const QList<RuleSnapshot> &rules, const QList<StoredVersion> &versions,
                    bool merge, const StepCheck &step = {});

} // namespace qarvo::store
