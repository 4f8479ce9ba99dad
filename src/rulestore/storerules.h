#pragma once

// A whole rule read from the tables into a RuleSnapshot, written back from one, or removed.

#include "rulestore/rulesnapshot.h"

namespace qarvo::store {

class StoreDb;

// Everything stored under the id: the rule row when there is one, its rows, its usage links.
// isEmpty() when nothing is.
RuleSnapshot readRule(StoreDb &db, qint16 category, int id);

// Usage links in one order whatever the database's collation (category, then name by character
// codes), so that two stores answer the same rule alike.
void sortLinks(QList<RuleSnapshot::Link> &links);

// Rows left behind under an id (script entries stored before a rule that never came, uses kept
// across an edit) hold the id as much as a rule does.
bool idInUse(StoreDb &db, qint16 category, int id);

// The rule's id and name, if the snapshot comes back under another id or name.
struct RuleKey
{
    int id;
    QString name;
};

// Writes the rule row and its rows under `key`. Its uses come back for the rules that still
// exist; the links of the rules that used it come back only under its own name, as those rules
// named it that way.
void writeRule(StoreDb &db, const RuleSnapshot &rule, const RuleKey &key);

// Removes the rule row and its rows. `keepLinks`: uses in both directions stay, for a rule that
// is about to be stored again under the same id.
void removeRule(StoreDb &db, qint16 category, int id, const QString &name, bool keepLinks);

} // namespace qarvo::store
