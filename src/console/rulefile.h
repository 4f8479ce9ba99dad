#pragma once

// The rule file: rules of both categories as one JSON document, for version control, review and
// moving rules between stores. Every field the store answers is in it and nothing about the
// machine it came from; rule ids are kept only as a hint for the store the file goes to.

#include "rulestore/rulesnapshot.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace qarvo::console {

inline constexpr const char *RuleFileFormat = "qarvo-rules";
inline constexpr int RuleFileVersion = 1;
// Far above any real store; a bigger file is refused before it is read into memory.
inline constexpr qint64 RuleFileMaxBytes = 256 * 1024 * 1024;

// Indented, one key order, a newline at the end: the same rules always give the same bytes.
// Rules without a rule row (rows a save left behind) are not written.
QByteArray writeRuleFile(const QList<RuleSnapshot> &rules);

// The rules of a file, each checked against what the store keeps, in the file's order; nothing
// when any part is wrong, and `error` names the place (line and column, or the JSON path such as
// rules[2].conditions[0].value) and what is wrong there.
std::optional<QList<RuleSnapshot>> readRuleFile(const QByteArray &bytes, QString *error);

} // namespace qarvo::console
