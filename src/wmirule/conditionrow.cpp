#include "wmirule/conditionrow.h"

#include "resources/images.h"

namespace qarvo {

ConditionTexts textsFromWMI(const WMICondition &c)
{
    return {c.nameSpace, c.className, c.field, c.type, c.condition, c.value};
}

WMICondition wmiFromTexts(const ConditionTexts &t)
{
    WMICondition c;
    c.nameSpace = t.nameSpace;
    c.className = t.classOrQuery;
    c.field = t.field;
    c.type = t.type;
    c.condition = t.condition;
    c.value = t.value;
    return c;
}

ConditionTexts textsFromWQL(const WQLCondition &c)
{
    ConditionTexts t;
    t.nameSpace = c.nameSpace;
    t.classOrQuery = buildWqlQuery(c.select, c.from, c.where);
    if (c.mode == 1) {
        t.field = QString::fromUtf16(CountField);
        t.type = QString::fromUtf16(CountType);
        t.value = c.count;
    } else {
        t.field = c.field;
        t.type = c.fieldType;
        t.value = c.value;
    }
    t.condition = c.op;
    return t;
}

WQLCondition wqlFromTexts(const ConditionTexts &t)
{
    WQLCondition c;
    c.nameSpace = t.nameSpace;
    const WqlQueryParts parts = splitWqlQuery(t.classOrQuery);
    c.select = parts.select;
    c.from = parts.from;
    c.where = parts.where;
    c.op = t.condition;
    if (t.field == CountField) {
        c.mode = 1;
        c.count = t.value;
    } else {
        c.mode = 2;
        c.field = t.field;
        c.fieldType = t.type;
        c.value = t.value;
    }
    return c;
}

QString buildWqlQuery(const QString &select, const QString &from, const QString &where)
{
    QString query = QStringLiteral("SELECT ") + select + QStringLiteral(" FROM ") + from;
    qsizetype start = 0;
    while (start < where.size() && (where[start] == u' ' || where[start] == u'\t'))
        ++start;
    if (start < where.size())
        query += QStringLiteral(" WHERE ") + where.mid(start);
    return query;
}

namespace {

std::optional<WqlQueryParts> splitWith(const QString &query, Qt::CaseSensitivity cs)
{
    static const QString select = QStringLiteral("SELECT ");
    static const QString from = QStringLiteral(" FROM ");
    static const QString where = QStringLiteral(" WHERE ");
    if (!query.startsWith(select, cs))
        return std::nullopt;
    const qsizetype fromAt = query.indexOf(from, select.size(), cs);
    if (fromAt < 0)
        return std::nullopt;
    WqlQueryParts parts;
    parts.select = query.mid(select.size(), fromAt - select.size());
    const qsizetype classAt = fromAt + from.size();
    const qsizetype whereAt = query.indexOf(where, classAt, cs);
    if (whereAt < 0) {
        parts.from = query.mid(classAt);
    } else {
        parts.from = query.mid(classAt, whereAt - classAt);
        parts.where = query.mid(whereAt + where.size());
    }
    return parts;
}

} // namespace

WqlQueryParts splitWqlQuery(const QString &query)
{
    if (auto parts = splitWith(query, Qt::CaseSensitive))
        return *parts;
    if (auto parts = splitWith(query, Qt::CaseInsensitive))
        return *parts;
    WqlQueryParts whole;
    whole.select = query;
    return whole;
}

QString conjunctionFromStored(qint32 ruleOp)
{
    switch (ruleOp) {
    case 1: return QStringLiteral("AND");
    case 2: return QStringLiteral("OR");
    default: return QStringLiteral("EQ");
    }
}

int imageForConjunction(const QString &conjunction)
{
    if (conjunction == u"EQ")
        return images::ConjunctionEq;
    return QString::compare(conjunction, QLatin1String("AND")) > 0 ? images::ConjunctionOr
                                                                   : images::ConjunctionAnd;
}

} // namespace qarvo
