#pragma once

// The layout of the store's tables and the numbered steps from one layout to the next. Every
// layout ever shipped keeps its step here, so that an old store is brought up to date on open and
// so that tests can build a store of any earlier layout.


#include <QString>
#include <QStringList>

namespace qarvo::store {

class StoreDb;

inline constexpr int LatestLayout = 2;

// The statements that bring a store of layout `layout - 1` to `layout` (layout 1: the first
// tables of an empty database).
QStringList layoutStatements(int layout, bool sqlite);

// Lays out a new store or brings an older one to LatestLayout, all in one transaction. Returns
// true when the tables were created. Refuses a newer layout and a database of another program.
// A store that db.readOnly marks (or that turns out read-only on PostgreSQL) is only checked:
// one that would need changes is refused.
bool prepareSchema(StoreDb &db, const QString &display);

// SQLite: what the quick check of every page of the file at `path` finds wrong, or an empty
// string for a sound file. Bytes that passed the check before are not checked again; only bytes
// that stood still while they were checked are remembered as sound.
QString damage(StoreDb &db, const QString &path);

} // namespace qarvo::store
