#pragma once

// The record a WMI/WQL rule sheet shares between its pages, the code tables the data service
// stores conditions with, and the encoding of a rule into AddWMIRule rows. No widgets here.

#include "dataservice/calls.h"
#include "dataservice/recordsizes.h"

#include <QList>
#include <QString>

#include <optional>

namespace qarvo {

// Widths of this record's own fields, in characters with the terminator included; the shared
// ones are in dataservice/recordsizes.h.
namespace width {
inline constexpr int Conjunction = 5;
// What page 1 hands on of a comment: the comment is copied with the name's width.
inline constexpr int PageComment = 50;
} // namespace width

// One condition of the rule, in the order of the list it was read from.
struct WMIConditionRecord
{
    QString conjunction; // "EQ" first, then "AND" / "OR"
    QString className;   // the query text for a WQL rule
    QString field;
    QString value;
    QString op;
    QString nameSpace;
    QString type;

    bool operator==(const WMIConditionRecord &) const = default;
};

enum class RuleKind { WMI = 0, WQL = 1 };
enum class SheetMode { Wizard = 0, Properties = 1 };

struct WMIRuleData
{
    RuleKind kind = RuleKind::WMI;
    SheetMode mode = SheetMode::Wizard;
    QString ruleId;  // nine digits; empty until drawn in a wizard
    QString ruleName;
    QString comment;
    QList<WMIConditionRecord> conditions;
    DataService *service = nullptr; // not owned
};

// The code tables. Texts are compared whole and case-sensitively.
namespace wmicodes {
qint16 conjunctionCode(const QString &conjunction); // "EQ" 0, "AND" 1, else 2
std::optional<qint16> operatorCode(const QString &op);
std::optional<qint16> typeCode(const QString &type);
} // namespace wmicodes

// The AddWMIRule rows for every condition of `rule`, indexes from 0. An operator or type outside
// its table takes the code of the condition before it (0 for the first).
QList<WMIRuleRow> encodeConditions(const WMIRuleData &rule);

// Sends encodeConditions(rule) one row at a time and stops at the first failing call, leaving
// what was sent. True when every row went through.
bool writeConditions(const WMIRuleData &rule);

} // namespace qarvo
