#pragma once

// The rule lists the control loads when it starts and after every change. A store of a hundred
// thousand rules answers them in little more time than the database itself takes to step the
// query, so the answer is read straight from the database's client library where the connection
// offers it, kept in blocks of UTF-8, and turned into QStrings only as the control reads each
// field. A SQLite store reads the list in order from an index, on a connection and a thread of its
// own, and the control reads the first rows while the last are still being read.

#include "dataservice/dataservice.h"

#include <memory>
#include <mutex>

namespace qarvo::store {

class StoreDb;

// The query the lists run where they are read at once: the rules of one category, in no order
// (they are sorted here). The last form is libpq's way of writing the one value.
inline constexpr const char *ListQuery =
    "SELECT rule_id, rule_name, rule_comment, rule_wql FROM rules WHERE category = ?";
// SQLite lists in the order of ListIndexSqlite, which holds every column listed, so that the
// first rows are there before the last are read.
inline constexpr const char *ListQuerySqlite =
    "SELECT rule_id, rule_name, rule_comment, rule_wql FROM rules WHERE category = ?"
    " ORDER BY rule_name COLLATE NOCASE";
inline constexpr const char *ListIndexSqlite =
    "CREATE INDEX rules_listed ON rules (category, rule_name COLLATE NOCASE, rule_comment, rule_wql, rule_id)";
inline constexpr const char *ListQueryLibpq =
    "SELECT rule_id, rule_name, rule_comment, rule_wql FROM rules WHERE category = $1";

// The device and inode of the file at `path`, or nothing where they cannot be told: a second
// connection reads the file the store opened, not one put in its place since.
QByteArray fileIdentity(const QByteArray &path);

// Names sort the way an administrator reads a list: letters before case, then exact text, then
// the id.
bool nameLess(const QString &a, int idA, const QString &b, int idB);

struct Listing;

// What one listing leaves for the next: the console lists the whole store again after every
// change, and a hundred thousand rules then fill memory that is already there. One for the
// process, as the memory is the process's: a host may hold a row set beyond its store, and the
// rows may be read on another thread than the one that frees them.
class ListingSpare
{
public:
    ListingSpare();
    ~ListingSpare();
    static std::shared_ptr<ListingSpare> shared();
    std::unique_ptr<Listing> take();
    void giveBack(std::unique_ptr<Listing> listing);

private:
    std::mutex m_mutex;
    std::unique_ptr<Listing> m_listing;
};

// A list of `category` begun now, on SQLite, for a listRules() of the same category expected soon:
// that call takes it if no commit reached the database in between, and lists anew otherwise.
struct AheadListing;
void listAhead(StoreDb &db, qint16 category);

// Every rule of `category` in nameLess() order. The rows hold rule_wql (WMI rules only), rule_name,
// rule_comment and rule_id, the id as nine digits.
std::unique_ptr<RowSet> listRules(StoreDb &db, qint16 category);

} // namespace qarvo::store
