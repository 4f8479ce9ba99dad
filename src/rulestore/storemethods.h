#pragma once

// The answers to the fourteen methods the control calls, under the control's method and field
// names. Each runs inside the transaction of its call and throws a Refusal to fail it.

#include "dataservice/dataservice.h"

#include <QList>

#include <memory>
#include <optional>

namespace qarvo::store {

class StoreDb;

class Methods
{
public:
    explicit Methods(StoreDb &db);

    // Reserve: a check that reserves what it answers free for; on a read-only store it only reads.
    enum class Access { Read, Reserve, Write };
    struct Entry
    {
        const char *name;
        QList<ArgKind> kinds;
        Reply (Methods::*answer)(const ArgList &);
        Access access;
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

    // The second whose end the last answer is to wait for, once its transaction is over.
    std::optional<qint64> takePace();

private:
    Reply deleteRule(const ArgList &args, qint16 category);

    StoreDb &m_db;
    std::optional<qint64> m_paceSecond;
    int m_madeWmiRule = -1; // the WMI rule whose row this connection made last
};

} // namespace qarvo::store
