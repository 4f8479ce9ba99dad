#include "wmirule/ruledata.h"

namespace qarvo {

namespace wmicodes {

qint16 conjunctionCode(const QString &conjunction)
{
    if (conjunction == u"EQ")
        return 0;
    if (conjunction == u"AND")
        return 1;
    return 2;
}

std::optional<qint16> operatorCode(const QString &op)
{
    static const char16_t *const table[] = {u"=", u"!=", u">", u"<", u">=", u"<=", u"in", u"not in"};
    for (qint16 i = 0; i < qint16(std::size(table)); ++i) {
        if (op == table[i])
            return qint16(i + 1);
    }
    return std::nullopt;
}

std::optional<qint16> typeCode(const QString &type)
{
    // Only the boolean type is also known in upper case; every other name in lower case only.
    if (type == u"boolean" || type == u"BOOLEAN")
        return qint16(1);
    static const char16_t *const table[] = {u"string", u"uint8",  u"uint16", u"sint16", u"uint32",
                                            u"sint32", u"uint64", u"sint64", u"datetime"};
    for (qint16 i = 0; i < qint16(std::size(table)); ++i) {
        if (type == table[i])
            return qint16(i + 2);
    }
    return std::nullopt;
}

} // namespace wmicodes

QList<WMIRuleRow> encodeConditions(const WMIRuleData &rule)
{
    QList<WMIRuleRow> rows;
    rows.reserve(rule.conditions.size());
    qint16 opCode = 0;
    qint16 typeCode = 0;
    qint16 index = 0;
    for (const WMIConditionRecord &c : rule.conditions) {
        opCode = wmicodes::operatorCode(c.op).value_or(opCode);
        typeCode = wmicodes::typeCode(c.type).value_or(typeCode);
        WMIRuleRow row;
        row.ruleId = rule.ruleId;
        row.ruleName = rule.ruleName;
        row.comment = rule.comment;
        row.kind = qint16(rule.kind);
        row.index = index++;
        row.conjunction = wmicodes::conjunctionCode(c.conjunction);
        row.className = c.className;
        row.field = c.field;
        row.value = c.value;
        row.op = c.op;
        row.opCode = opCode;
        row.nameSpace = c.nameSpace;
        row.type = c.type;
        row.typeCode = typeCode;
        rows.append(std::move(row));
    }
    return rows;
}

bool writeConditions(const WMIRuleData &rule)
{
    for (const WMIRuleRow &row : encodeConditions(rule)) {
        if (failed(calls::AddWMIRule(rule.service, row)))
            return false;
    }
    return true;
}

} // namespace qarvo
