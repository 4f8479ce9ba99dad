#pragma once

// The record a WMI/WQL rule sheet shares between its pages, the code tables the data service
// stores conditions with, and the encoding of a rule into AddWMIRule rows. No widgets here.

#include "dataservice/calls.h"

#include <QList>
#include <QString>

#include <optional>

namespace qarvo {

// Field widths of the record in characters, terminator included: a text keeps at most
// width - 1 characters, as the fixed buffers of the stored format do.
namespace width {
inline constexpr int RuleId = 10;
inline constexpr int RuleName = 50;
inline constexpr int Comment = 1024;
inline constexpr int Conjunction = 5;
inline constexpr int ClassOrQuery = 1024;
inline constexpr int Field = 50;
inline constexpr int Value = 1024;
inline constexpr int Operator = 10;
inline constexpr int NameSpace = 50;
inline constexpr int Type = 50;
// What page 1 hands on of a comment: the comment is copied with the name's width.
inline constexpr int PageComment = 50;
} // namespace width

// `text` cut to what a field of `width` holds.
QARVO_EXPORT QString fitted(const QString &text, int width);

// One condition of the rule, in the order of the list it was read from.
struct QARVO_EXPORT WMIConditionRecord
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

struct QARVO_EXPORT WMIRuleData
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
QARVO_EXPORT qint16 conjunctionCode(const QString &conjunction); // "EQ" 0, "AND" 1, else 2
QARVO_EXPORT std::optional<qint16> operatorCode(const QString &op);
QARVO_EXPORT std::optional<qint16> typeCode(const QString &type);
} // namespace wmicodes

// The AddWMIRule rows for every condition of `rule`, indexes from 0. An operator or type outside
// its table takes the code of the condition before it (0 for the first).
QARVO_EXPORT QList<WMIRuleRow> encodeConditions(const WMIRuleData &rule);

// Sends encodeConditions(rule) one row at a time and stops at the first failing call, leaving
// what was sent. True when every row went through.
QARVO_EXPORT bool writeConditions(const WMIRuleData &rule);

} // namespace qarvo
