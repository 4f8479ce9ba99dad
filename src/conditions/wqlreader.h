#pragma once

// A reader for the data-query part of WQL: SELECT with "*" or a property list, FROM one class and
// an optional WHERE made of comparisons joined by AND, OR, NOT and parentheses. The rules are
// evaluated later on machines we cannot reach, so the query is read here to say what is wrong
// before it is stored. Plain code without widgets, so that it can be tested and fuzzed alone.


#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace qarvo::wql {

// A property or class name as written, and where it starts in the query (in characters).
struct Name
{
    QString text;
    qsizetype pos = 0;
};

struct Literal
{
    enum class Kind { String, Integer, Real, Boolean, Null };
    Kind kind = Kind::String;
    QString value; // a string's text without quotes and escapes; otherwise the literal as written
    qsizetype pos = 0;
};

// One test of the WHERE part. `op` is "=", "<>", "!=", "<", ">", "<=", ">=", "LIKE", "NOT LIKE",
// "ISA", "IS NULL" or "IS NOT NULL"; the last two have no value.
struct Comparison
{
    Name property; // dotted for a property of an embedded object
    QString op;
    std::optional<Literal> value;
};

struct Query
{
    bool allProperties = false; // SELECT *
    QList<Name> select;
    Name className;
    QList<Comparison> where; // in the order written
};

// The first thing that is wrong: where (in characters) and what, e.g. `expected FROM, found
// "WHERE"`.
struct ReadError
{
    qsizetype pos = 0;
    QString message;
};

struct ReadResult
{
    std::optional<Query> query;
    ReadError error; // when there is no query

    bool ok() const { return query.has_value(); }
};

// Never throws, and takes time and memory in proportion to the text.
ReadResult readQuery(QStringView text);

// Whether a string literal holds a date WMI takes for a datetime property: the DMTF form
// "yyyymmddHHMMSS.mmmmmm+UUU" (or an interval "ddddddddHHMMSS.mmmmmm:000") and the usual
// written forms "yyyy-mm-dd[ hh:mm[:ss]]" and "mm/dd/yyyy[ hh:mm[:ss]]".
bool isDateTimeText(QStringView text);

} // namespace qarvo::wql
