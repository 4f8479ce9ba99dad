#pragma once

// What a condition's query or class gets wrong that only shows on the client machines: the WQL
// grammar, classes and properties the catalogue does not know, values of the wrong type. The
// answers are advice; nothing here ever refuses a condition. Plain code: the WQL editor shows it
// as the user types, and the console runs it over the stored rules.

#include "conditions/catalogue.h"
#include "conditions/editors.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <map>
#include <optional>

namespace qarvo::wql {

// The classes the catalogue knows and their fields, read on demand and kept. Without a catalogue
// (or with one that lists no class) nothing about classes and properties is judged.
class Schema
{
public:
    struct ClassInfo
    {
        QString name; // as the catalogue spells it
        QString nameSpace;
        bool fieldsKnown = false; // the class has a block in its field file
        QList<catalogue::FieldRecord> fields;
    };

    explicit Schema(std::optional<QString> programPath);

    bool isEmpty();
    const QStringList &classNames();
    // Compared without regard to case, as WMI compares names; null when the catalogue lacks it.
    const ClassInfo *findClass(const QString &name);

private:
    std::optional<QString> m_programPath;
    bool m_namesRead = false;
    QStringList m_names;
    QHash<QString, qsizetype> m_byFoldedName;
    std::map<QString, ClassInfo> m_classes; // node-based: handed-out pointers stay valid
};

enum class Part { NameSpace, Select, From, Where, Query, Class, Field, FieldType };

struct Advice
{
    Part part = Part::Query;
    qsizetype pos = -1; // in characters from the start of the part; -1 when the whole part is meant
    QString message;

    bool operator==(const Advice &) const = default;
};

// "WHERE, character 12: expected a value, found the end of the query"
QString adviceText(const Advice &advice);

// A condition as the WQL editor holds it: the query is read as the wizard builds it from the
// three parts, and positions are given within the part. Nothing is said while SELECT or FROM is
// still empty.
QList<Advice> checkWQLCondition(const WQLCondition &condition, Schema &schema);

// A stored WQL condition: the query text as stored, "#Count" or the tested field and its type.
QList<Advice> checkStoredWQL(const QString &nameSpace, const QString &query,
                                          const QString &field, const QString &type, Schema &schema);

// A WMI condition: its class and field.
QList<Advice> checkWMICondition(const WMICondition &condition, Schema &schema);

// The names closest to `name` by edit distance (letter case aside), best first, at most three,
// none when nothing is close.
QStringList closestNames(const QString &name, const QStringList &candidates);

} // namespace qarvo::wql
