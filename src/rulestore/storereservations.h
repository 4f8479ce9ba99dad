#pragma once

// Ids and names that one store connection is about to store. Between the control's CanUseID or
// CanUseExRuleName and the rows that follow, or between a property sheet's delete and the rows
// stored again, another console must neither be told that the id or name is free nor add rows
// under it. Times are the database's own clock, as the consoles' machines may disagree.

#include <QString>

namespace qarvo::store {

class StoreDb;

// From a "free" answer to the end of the save it announces.
inline constexpr qint64 HoldMs = 120000;
// After each condition of a WMI rule: the control sends them one right after the other, and
// nothing tells the store which one is the last.
inline constexpr qint64 TailMs = 5000;

enum class Holder { Nobody, Me, Other };

Holder idHolder(StoreDb &db, qint16 category, int id, qint64 now);
Holder nameHolder(StoreDb &db, qint16 category, const QString &name, qint64 now);

// Reserves for this connection until now + `ms`, or extends its own reservation. False when
// another connection holds it; nothing is changed then.
bool claimId(StoreDb &db, qint16 category, int id, qint64 now, qint64 ms);
bool claimName(StoreDb &db, qint16 category, const QString &name, qint64 now, qint64 ms);

// Ends this connection's own reservation, if any.
void releaseId(StoreDb &db, qint16 category, int id);
void releaseName(StoreDb &db, qint16 category, const QString &name);
void releaseAll(StoreDb &db);

// The second the control's id generator is seeded with now.
qint64 currentSecond();
// The control draws its candidate ids from a generator seeded with the clock's second, so a
// console told that its candidate is taken asks for the very same id until that second is over.
// True when `id` is what it would draw in `second`.
bool drawnAgainIn(int id, qint64 second);
// Returns once the clock the control seeds from has left `second` (a second at most).
void waitForNextSecond(qint64 second);

} // namespace qarvo::store
