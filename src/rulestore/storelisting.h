#pragma once

// The rule lists the control loads when it starts and after every change. A store of a hundred
// thousand rules answers them in little more time than the database itself takes to step the
// query, so the answer is read straight from the database's client library where the connection
// offers it, kept in one block of UTF-8, and turned into QStrings only as the control reads each
// field.

#include "dataservice/dataservice.h"

#include <memory>

namespace qarvo::store {

class StoreDb;

// The query both lists run: the rules of one category, in no order (they are sorted here). The
// second form is libpq's way of writing the one value.
inline constexpr const char *ListQuery =
    "SELECT rule_id, rule_name, rule_comment, rule_wql FROM rules WHERE category = ?";
inline constexpr const char *ListQueryLibpq =
    "SELECT rule_id, rule_name, rule_comment, rule_wql FROM rules WHERE category = $1";

// Names sort the way an administrator reads a list: letters before case, then exact text, then
// the id.
bool nameLess(const QString &a, int idA, const QString &b, int idB);

struct Listing;

// What one listing leaves for the next: the console lists the whole store again after every
// change, and a hundred thousand rules then fill memory that is already there.
class ListingSpare
{
public:
    ListingSpare();
    ~ListingSpare();
    std::unique_ptr<Listing> take();
    void giveBack(std::unique_ptr<Listing> listing);

private:
    std::unique_ptr<Listing> m_listing;
};

// Every rule of `category` in nameLess() order. The rows hold rule_wql (WMI rules only), rule_name,
// rule_comment and rule_id, the id as nine digits.
std::unique_ptr<RowSet> listRules(StoreDb &db, qint16 category, const std::shared_ptr<ListingSpare> &spare);

} // namespace qarvo::store
