#pragma once

// Keeping, listing, restoring and purging earlier versions of rules. Each function runs inside the
// caller's transaction and throws a Refusal to fail it.

#include "rulestore/rulehistory.h"
#include "rulestore/rulesnapshot.h"

#include <QList>

namespace qarvo::store {

class StoreDb;

void recordVersion(StoreDb &db, const RuleSnapshot &rule, HistoryEvent event, const QString &detail, qint64 now);

// Newest first.
QList<HistoryEntry> listHistory(StoreDb &db);
RuleSnapshot versionContent(StoreDb &db, qint64 version);
// The newest version deleted from the list, or 0.
qint64 lastDeletedVersion(StoreDb &db);

RestoreResult restoreVersion(StoreDb &db, qint64 version, RestoreId idChoice, const QString &newName);

// Removes the versions older than `days` days (0: every version); answers how many went.
int purgeHistory(StoreDb &db, int days);
// How long versions are kept: days, or 0 for ever.
int retentionDays(StoreDb &db);
void setRetentionDays(StoreDb &db, int days);

} // namespace qarvo::store
