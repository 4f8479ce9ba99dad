#pragma once

// How the control talks to the data service: one call-by-name routine, one typed helper per
// method (so that no call site builds an argument list by hand), row-set reading, and the
// boundary at which a row-set fault ends a user action.

#include "dataservice/dataservice.h"
#include "dataservice/methods.h"

#include <functional>
#include <new>

namespace qarvo {

// Decimal text to integer the way the ids come back: optional blanks and sign, then the leading
// digits; 0 when there are none. Out-of-range values are clamped.
int ruleIdFromText(const QString &text);
int ruleIdFromText(QByteArrayView utf8);

// Field values as the control takes them.
QString fieldText(const QVariant &value);
qint32 fieldInt(const QVariant &value);

// Calls a method by name. A null service fails like a name the service does not know.
Reply callByName(DataService *service, const QString &method, const ArgList &args);

// The answer of CanUseID / CanUseExRuleName: `yes` is the service's "true" (-1 in 16 bits).
struct YesNo
{
    qint32 status = status::Ok;
    bool yes = false;
    bool failed() const { return qarvo::failed(status); }
};
bool readYes(const QVariant &value);

// One condition row of AddWMIRule, in the method's parameter order.
struct WMIRuleRow
{
    QString ruleId;
    QString ruleName;
    QString comment;
    qint16 kind = 0;        // 0 WMI, 1 WQL
    qint16 index = 0;       // condition index
    qint16 conjunction = 0; // "EQ" 0, "AND" 1, "OR" 2
    QString className;      // the query text for a WQL rule
    QString field;
    QString value;
    QString op;
    qint16 opCode = 0;
    QString nameSpace;
    QString type;
    qint16 typeCode = 0;
};

namespace calls {
Reply GetWMIRules(DataService *s);
Reply GetRQCRule(DataService *s);
Reply GetWMIRuleInfo(DataService *s, const QString &ruleId);
Reply GetRQCRuleInfo(DataService *s, const QString &ruleId);
Reply GetRQCRuleScriptInfo(DataService *s, const QString &ruleId);
Reply RulesUsedExRule(DataService *s, const QString &ruleName, qint16 category);
YesNo CanUseID(DataService *s, const QString &ruleId, qint16 category);
YesNo CanUseExRuleName(DataService *s, const QString &ruleName, qint16 category);
qint32 UpdateExRuleNameInRule(DataService *s, const QString &oldName,
                              const QString &newName, qint16 category);
qint32 DelWMIRule(DataService *s, const QString &ruleId, qint16 mode);
qint32 DelRQCRule(DataService *s, const QString &ruleId, qint16 mode);
qint32 AddWMIRule(DataService *s, const WMIRuleRow &row);
qint32 AddRQCScript(DataService *s, const QString &ruleId, qint16 entry,
                    const QString &scriptFile, const QString &actionType,
                    const QString &comment, qint16 selected);
qint32 AddRQCRule(DataService *s, const QString &ruleId, const QString &ruleName,
                  const QString &serviceName, const QString &comment,
                  const QString &selection);
} // namespace calls

// Reads the row set of a reply. A reply without one is an empty row set: the first use raises
// the invalid-pointer fault. Every read may throw DataServiceError.
class RowReader
{
public:
    explicit RowReader(Reply &reply);
    ~RowReader();
    RowReader(const RowReader &) = delete;
    RowReader &operator=(const RowReader &) = delete;

    // Inline: a large list reads a hundred thousand rows through these.
    bool atEnd() { return rows().atEnd(); }
    void next() { rows().moveNext(); }
    QVariant field(const QString &name) { return rows().field(name); }
    QString text(const QString &name) { return fieldText(field(name)); }
    qint32 integer(const QString &name) { return fieldInt(field(name)); }
    void close();

private:
    RowSet &rows()
    {
        if (!m_rows)
            noRowSet();
        return *m_rows;
    }
    [[noreturn]] static void noRowSet();
    std::unique_ptr<RowSet> m_rows;
};

// Runs `read` for each row, then closes the row set.
template<class F>
void forEachRow(Reply &reply, F &&read)
{
    RowReader reader(reply);
    while (!reader.atEnd()) {
        read(reader);
        reader.next();
    }
    reader.close();
}

// Hands a fault that ended an action to the reporter a host installed (see dataservice.h).
void reportFault(const DataServiceError &error);

// The boundary of one user action: a row-set fault ends the action here and never reaches the
// event loop. Returns false when the action was ended by a fault.
template<class F>
bool guardAction(F &&action) noexcept
{
    try {
        action();
        return true;
    } catch (const DataServiceError &e) {
        reportFault(e);
    } catch (const std::bad_alloc &) {
        reportFault(DataServiceError(status::OutOfMemory));
    } catch (...) {
        reportFault(DataServiceError(status::Exception));
    }
    return false;
}

} // namespace qarvo
