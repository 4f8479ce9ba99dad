#pragma once

// The texts of one row of the condition list and how they come from, and go back to, the
// condition editors. A WQL condition keeps its query as one text in the list, so the query is
// built here and taken apart again the same way for editing.

#include "conditions/editors.h"
#include "wmirule/ruledata.h"

#include <QString>

namespace qarvo {

// List columns.
namespace column {
inline constexpr int Image = 0;
inline constexpr int Op = 1;
inline constexpr int NameSpace = 2;
inline constexpr int ClassOrQuery = 3;
inline constexpr int Field = 4;
inline constexpr int Type = 5;
inline constexpr int Condition = 6;
inline constexpr int Value = 7;
inline constexpr int Count = 8;
} // namespace column

// Columns 2 to 7 of a row: what an editor fills.
struct ConditionTexts
{
    QString nameSpace;
    QString classOrQuery;
    QString field;
    QString type;
    QString condition;
    QString value;

    bool operator==(const ConditionTexts &) const = default;
};

inline constexpr const char16_t *CountField = u"#Count";
inline constexpr const char16_t *CountType = u"uint8";

ConditionTexts textsFromWMI(const WMICondition &condition);
WMICondition wmiFromTexts(const ConditionTexts &texts);
ConditionTexts textsFromWQL(const WQLCondition &condition);
WQLCondition wqlFromTexts(const ConditionTexts &texts);

// "SELECT " + select + " FROM " + from, then " WHERE " + where when the where text is not empty
// once its leading blanks and tabs are gone; it is appended without them.
QString buildWqlQuery(const QString &select, const QString &from,
                      const QString &where);

struct WqlQueryParts
{
    QString select;
    QString from;
    QString where;
    bool operator==(const WqlQueryParts &) const = default;
};

// The reverse of buildWqlQuery: the first " FROM " after "SELECT " ends the select list, the
// first " WHERE " after it ends the class. A query that is not of that form (typed elsewhere in
// another case or spacing) is taken apart leniently, and as a last resort comes back whole as
// the select list so that nothing of it is lost in the editor.
WqlQueryParts splitWqlQuery(const QString &query);

// Conjunction and image of a row from the stored "rule_op" number.
QString conjunctionFromStored(qint32 ruleOp);
// Image of a row: 11 for "EQ"; otherwise 12 when the text sorts after "AND" ("OR"), else 13.
int imageForConjunction(const QString &conjunction);

} // namespace qarvo
