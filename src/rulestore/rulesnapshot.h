#pragma once

// A whole rule as one value: its row, every condition or script entry with every field, and its
// usage links both ways by name. The history keeps earlier versions this way, and a rule travels
// between stores as its JSON text.

#include <qarvo/rulestore/rulestore_export.h>

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace qarvo {

struct RuleSnapshot
{
    struct Condition
    {
        qint16 index = 0;
        qint16 conjunction = 0;
        QString classOrQuery;
        QString field;
        QString value;
        QString op;
        qint16 operatorCode = 0;
        QString nameSpace;
        QString type;
        qint16 typeCode = 0;
        bool operator==(const Condition &) const = default;
    };
    struct Script
    {
        qint16 entry = 0;
        QString file;
        QString actionType;
        QString comment;
        qint16 selected = 0;
        bool operator==(const Script &) const = default;
    };
    // Another rule, named as rules name each other.
    struct Link
    {
        qint16 category = 0;
        QString name;
        bool operator==(const Link &) const = default;
    };

    qint16 category = 0;
    int id = 0;
    // False for rows left under an id without their rule (a save that stopped half-way); the
    // fields of the rule row are then empty.
    bool hasRule = true;
    QString name;
    QString comment;
    qint16 wql = 0;
    QString serviceName;
    QString scriptSelection;
    QList<Condition> conditions; // WMI and WQL rules, in condition order
    QList<Script> scripts;       // NAQC rules, in entry order
    QList<Link> uses;            // the rules this one uses
    QList<Link> usedBy;          // the rules that use this one

    bool isEmpty() const { return !hasRule && conditions.isEmpty() && scripts.isEmpty(); }
    bool operator==(const RuleSnapshot &) const = default;
};

// Compact JSON; every field is written, so that the text alone brings the rule back.
QARVO_RULESTORE_EXPORT QByteArray toJson(const RuleSnapshot &rule);
// Reads what toJson wrote. Anything else (not JSON, a missing or mistyped field, a number out of
// range) answers nothing and says what is wrong in `error`.
QARVO_RULESTORE_EXPORT std::optional<RuleSnapshot> ruleFromJson(const QByteArray &json, QString *error);

} // namespace qarvo
