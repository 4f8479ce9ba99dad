#pragma once

// Refusals: a call the store cannot answer carries its status and the reason out of the depth of
// a query to the one place that turns it into a reply; and the checks that refuse bad arguments
// before anything is written.

#include "dataservice/dataservice.h"

#include <QString>

namespace qarvo::store {

struct Refusal
{
    qint32 status;
    QString message;
};

[[noreturn]] void refuse(qint32 status, const QString &message);

// Why `text` would not come back from the database exactly as sent (a lone surrogate, a
// non-character, NUL), or an empty string when it would.
QString unstorable(const QString &text);
// Refuses with E_INVALIDARG every text argument that would not come back unchanged.
void checkStorable(const ArgList &args);

// The arguments of the control's calls, each checked against what the store keeps. `i` is the
// 0-based position in the method's own order.
QString textArg(const ArgList &args, int i);
qint16 shortArg(const ArgList &args, int i);
// Up to nine decimal digits, so that "12" and "000000012" are the same rule, as they are to the
// control reading them back.
int ruleIdArg(const ArgList &args, int i);
QString ruleNameArg(const ArgList &args, int i);
// A text of at most `max` characters.
QString boundedArg(const ArgList &args, int i, int max, const char *what);
qint16 categoryArg(const ArgList &args, int i);
qint16 deleteModeArg(const ArgList &args, int i);
qint16 nonNegativeArg(const ArgList &args, int i, const char *what);

// The longest text a field of the control's records holds (its size less the terminator).
constexpr int longest(qsizetype size)
{
    return int(size - 1);
}

} // namespace qarvo::store
