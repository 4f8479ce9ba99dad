#include "rulestore/storeerror.h"

#include "dataservice/calls.h"
#include "dataservice/recordsizes.h"

namespace qarvo::store {

void refuse(qint32 status, const QString &message)
{
    throw Refusal{status, message};
}

QString unstorable(const QString &text)
{
    const auto codePoint = [](char32_t c) {
        return QStringLiteral("U+") + QString::number(quint32(c), 16).toUpper().rightJustified(4, u'0');
    };
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        char32_t point = c.unicode();
        if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            point = QChar::surrogateToUcs4(c, text.at(i + 1));
            ++i;
        } else if (c.isSurrogate()) {
            // UTF-8 and PostgreSQL have no way to carry half a pair: it would come back as U+FFFD.
            return QStringLiteral("holds a lone surrogate (%1) at character %2").arg(codePoint(point)).arg(i + 1);
        }
        if (point == 0)
            return QStringLiteral("holds a NUL character at character %1").arg(i + 1);
        // Non-characters are free for internal use by definition; drivers may drop or replace them.
        if ((point >= 0xFDD0 && point <= 0xFDEF) || (point & 0xFFFE) == 0xFFFE)
            return QStringLiteral("holds the non-character %1 at character %2").arg(codePoint(point)).arg(i + 1);
    }
    return {};
}

void checkStorable(const ArgList &args)
{
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (const QString *t = std::get_if<QString>(&args.at(i))) {
            const QString reason = unstorable(*t);
            if (!reason.isEmpty())
                refuse(status::InvalidArgument, QStringLiteral("argument %1 %2").arg(i + 1).arg(reason));
        }
    }
}

QString textArg(const ArgList &args, int i)
{
    return std::get<QString>(args.at(i));
}

qint16 shortArg(const ArgList &args, int i)
{
    return std::get<qint16>(args.at(i));
}

int ruleIdArg(const ArgList &args, int i)
{
    const QString t = textArg(args, i);
    const auto bad = [&] {
        refuse(status::InvalidArgument, QStringLiteral("rule id \"%1\" is not 1 to 9 digits").arg(t));
    };
    if (t.isEmpty() || t.size() > longest(recordsize::RuleId))
        bad();
    int id = 0;
    for (QChar c : t) {
        if (c < u'0' || c > u'9')
            bad();
        id = id * 10 + (c.unicode() - u'0');
    }
    return id;
}

QString ruleNameArg(const ArgList &args, int i)
{
    const QString t = textArg(args, i);
    if (t.isEmpty())
        refuse(status::InvalidArgument, QStringLiteral("empty rule name"));
    if (t.size() > longest(recordsize::RuleName))
        refuse(status::InvalidArgument,
               QStringLiteral("rule name longer than %1 characters").arg(longest(recordsize::RuleName)));
    return t;
}

QString boundedArg(const ArgList &args, int i, int max, const char *what)
{
    const QString t = textArg(args, i);
    if (t.size() > max)
        refuse(status::InvalidArgument,
               QStringLiteral("%1 longer than %2 characters").arg(QLatin1String(what)).arg(max));
    return t;
}

qint16 categoryArg(const ArgList &args, int i)
{
    const qint16 c = shortArg(args, i);
    if (c != category::NAQC && c != category::WMI)
        refuse(status::InvalidArgument, QStringLiteral("unknown rule category %1").arg(c));
    return c;
}

qint16 deleteModeArg(const ArgList &args, int i)
{
    const qint16 m = shortArg(args, i);
    if (m != delmode::FromList && m != delmode::BeforeStoreAgain)
        refuse(status::InvalidArgument, QStringLiteral("unknown delete mode %1").arg(m));
    return m;
}

qint16 nonNegativeArg(const ArgList &args, int i, const char *what)
{
    const qint16 n = shortArg(args, i);
    if (n < 0)
        refuse(status::InvalidArgument, QStringLiteral("negative %1").arg(QLatin1String(what)));
    return n;
}

} // namespace qarvo::store
