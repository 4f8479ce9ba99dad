#include "dataservice/calls.h"

#include <QDebug>

#include <limits>

namespace qarvo {

QString ruleIdText(qint64 id)
{
    if (id < 0 || id > 999999999)
        return QStringLiteral("%1").arg(id, 9, 10, QLatin1Char('0'));
    // A list makes one of these per rule, where arg() would take longer than the rest of the row.
    QString text(9, Qt::Uninitialized);
    QChar *digit = text.data() + 9;
    for (int i = 0; i < 9; ++i, id /= 10)
        *--digit = QChar(char16_t(u'0' + id % 10));
    return text;
}

namespace {

template<class Unit>
int parsedRuleId(const Unit *text, qsizetype n)
{
    qsizetype i = 0;
    while (i < n && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r' || text[i] == '\v'
                     || text[i] == '\f'))
        ++i;
    bool negative = false;
    if (i < n && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    qint64 value = 0;
    constexpr qint64 limit = qint64(std::numeric_limits<int>::max()) + 1;
    for (; i < n && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > limit)
            value = limit; // keeps going through the digits without overflowing
    }
    if (negative)
        return int(-value < std::numeric_limits<int>::min() ? std::numeric_limits<int>::min() : -value);
    return int(value > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max() : value);
}

} // namespace

int ruleIdFromText(const QString &text)
{
    return parsedRuleId(reinterpret_cast<const char16_t *>(text.constData()), text.size());
}

int ruleIdFromText(QByteArrayView utf8)
{
    return parsedRuleId(utf8.data(), utf8.size());
}

QString fieldText(const QVariant &value)
{
    // Most fields are texts already, and a large list reads hundreds of thousands of them.
    if (value.typeId() == QMetaType::QString)
        return *static_cast<const QString *>(value.constData());
    return value.isNull() ? QString() : value.toString();
}

qint32 fieldInt(const QVariant &value)
{
    if (value.typeId() == QMetaType::QString)
        return ruleIdFromText(value.toString());
    return value.toInt();
}

bool readYes(const QVariant &value)
{
    // Automation's true is all bits set in 16 bits; a plain bool true means the same.
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    return qint16(value.toInt()) == -1;
}

Reply callByName(DataService *service, const QString &method, const ArgList &args)
{
    if (!service)
        return Reply::fail(status::UnknownName);
    try {
        return service->call(method, args);
    } catch (...) {
        // A service must not throw; if one does, the call simply failed.
        return Reply::fail(status::Exception);
    }
}

namespace {

Reply rowsCall(DataService *s, const char *name, ArgList args)
{
    args.append(RowSetSlot{});
    return callByName(s, QString::fromLatin1(name), args);
}

qint32 plainCall(DataService *s, const char *name, const ArgList &args)
{
    return callByName(s, QString::fromLatin1(name), args).status;
}

YesNo yesNoCall(DataService *s, const char *name, const ArgList &args)
{
    const Reply reply = callByName(s, QString::fromLatin1(name), args);
    YesNo answer;
    answer.status = reply.status;
    answer.yes = !reply.failed() && readYes(reply.value);
    return answer;
}

} // namespace

namespace calls {

Reply GetWMIRules(DataService *s) { return rowsCall(s, method::GetWMIRules, {}); }
Reply GetRQCRule(DataService *s) { return rowsCall(s, method::GetRQCRule, {}); }

Reply GetWMIRuleInfo(DataService *s, const QString &ruleId)
{
    return rowsCall(s, method::GetWMIRuleInfo, {ruleId});
}

Reply GetRQCRuleInfo(DataService *s, const QString &ruleId)
{
    return rowsCall(s, method::GetRQCRuleInfo, {ruleId});
}

Reply GetRQCRuleScriptInfo(DataService *s, const QString &ruleId)
{
    return rowsCall(s, method::GetRQCRuleScriptInfo, {ruleId});
}

Reply RulesUsedExRule(DataService *s, const QString &ruleName, qint16 category)
{
    return rowsCall(s, method::RulesUsedExRule, {ruleName, category});
}

YesNo CanUseID(DataService *s, const QString &ruleId, qint16 category)
{
    return yesNoCall(s, method::CanUseID, {ruleId, category});
}

YesNo CanUseExRuleName(DataService *s, const QString &ruleName, qint16 category)
{
    return yesNoCall(s, method::CanUseExRuleName, {ruleName, category});
}

qint32 UpdateExRuleNameInRule(DataService *s, const QString &oldName, const QString &newName,
                              qint16 category)
{
    return plainCall(s, method::UpdateExRuleNameInRule, {oldName, newName, category});
}

qint32 DelWMIRule(DataService *s, const QString &ruleId, qint16 mode)
{
    return plainCall(s, method::DelWMIRule, {ruleId, mode});
}

qint32 DelRQCRule(DataService *s, const QString &ruleId, qint16 mode)
{
    return plainCall(s, method::DelRQCRule, {ruleId, mode});
}

qint32 AddWMIRule(DataService *s, const WMIRuleRow &r)
{
    return plainCall(s, method::AddWMIRule,
                     {r.ruleId, r.ruleName, r.comment, r.kind, r.index, r.conjunction, r.className,
                      r.field, r.value, r.op, r.opCode, r.nameSpace, r.type, r.typeCode});
}

qint32 AddRQCScript(DataService *s, const QString &ruleId, qint16 entry, const QString &scriptFile,
                    const QString &actionType, const QString &comment, qint16 selected)
{
    return plainCall(s, method::AddRQCScript,
                     {ruleId, entry, scriptFile, actionType, comment, selected});
}

qint32 AddRQCRule(DataService *s, const QString &ruleId, const QString &ruleName,
                  const QString &serviceName, const QString &comment, const QString &selection)
{
    return plainCall(s, method::AddRQCRule, {ruleId, ruleName, serviceName, comment, selection});
}

} // namespace calls

RowReader::RowReader(Reply &reply) : m_rows(std::move(reply.rows)) {}

RowReader::~RowReader() = default;

void RowReader::noRowSet()
{
    throw DataServiceError(status::InvalidPointer, QStringLiteral("no row set"));
}

void RowReader::close()
{
    rows().close();
    m_rows.reset();
}

namespace {
FaultReporter &faultReporter()
{
    static FaultReporter reporter;
    return reporter;
}
} // namespace

void setFaultReporter(FaultReporter reporter)
{
    faultReporter() = std::move(reporter);
}

void reportFault(const DataServiceError &error)
{
    if (faultReporter()) {
        try {
            faultReporter()(error);
            return;
        } catch (...) {
        }
    }
    qWarning("qarvo: action ended: %s", error.what());
}

} // namespace qarvo
