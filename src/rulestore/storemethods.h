#pragma once

// The answers to the fourteen methods the control calls, under the control's method and field
// names. Each runs inside the transaction of its call and throws a Refusal to fail it.

#include "dataservice/dataservice.h"

#include <QList>

namespace qarvo::store {

class StoreDb;

class Methods
{
public:
    explicit Methods(StoreDb &db) : m_db(db) {}

    struct Entry
    {
        const char *name;
        QList<ArgKind> kinds;
        Reply (Methods::*answer)(const ArgList &);
        bool writes;
    };
    // The catalogue, looked up by exact method name; null for a name the store does not know.
    static const Entry *find(const QString &name);

    Reply getWMIRules(const ArgList &args);
    Reply getRQCRule(const ArgList &args);
    Reply getWMIRuleInfo(const ArgList &args);
    Reply getRQCRuleInfo(const ArgList &args);
    Reply getRQCRuleScriptInfo(const ArgList &args);
    Reply rulesUsedExRule(const ArgList &args);
    Reply canUseID(const ArgList &args);
    Reply canUseExRuleName(const ArgList &args);
    Reply updateExRuleNameInRule(const ArgList &args);
    Reply delWMIRule(const ArgList &args);
    Reply delRQCRule(const ArgList &args);
    Reply addWMIRule(const ArgList &args);
    Reply addRQCScript(const ArgList &args);
    Reply addRQCRule(const ArgList &args);

private:
    bool idTaken(qint16 category, int id);
    Reply deleteRule(const ArgList &args, qint16 category, const char *rowsTable);

    StoreDb &m_db;
};

} // namespace qarvo::store
