#pragma once

// Sizes of the fixed text fields of the rule records, in characters with the terminator
// included: a field keeps at most size - 1 characters. The sheets cut their texts to them and the
// reference store refuses anything longer, so both sides of the boundary read them from here.

#include <QString>

namespace qarvo {

namespace recordsize {
inline constexpr qsizetype RuleId = 10;
inline constexpr qsizetype RuleName = 50;
inline constexpr qsizetype Comment = 1024;
inline constexpr qsizetype ServiceName = 128;
inline constexpr qsizetype ClassOrQuery = 1024;
inline constexpr qsizetype Field = 50;
inline constexpr qsizetype Value = 1024;
inline constexpr qsizetype Operator = 10;
inline constexpr qsizetype NameSpace = 50;
inline constexpr qsizetype Type = 50;
inline constexpr qsizetype ScriptFile = 1024;
inline constexpr qsizetype ActionType = 50;
} // namespace recordsize

// `text` cut to what a field of `size` holds; a cut never leaves half a surrogate pair.
QString fitRecordText(const QString &text, qsizetype size);

} // namespace qarvo
