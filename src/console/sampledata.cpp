#include "console/sampledata.h"

#include "dataservice/calls.h"
#include "naqcrule/rqcrulerecord.h"
#include "rulestore/sqlrulestore.h"
#include "wmirule/ruledata.h"

namespace qarvo::console {

namespace {

// The sample conditions read as the details pane shows them: conjunction, namespace, class or
// query, field, type, operator, value.
WMIConditionRecord condition(const QString &conjunction, const QString &nameSpace, const QString &classOrQuery,
                             const QString &field, const QString &type, const QString &op, const QString &value)
{
    return {conjunction, classOrQuery, field, value, op, nameSpace, type};
}

// Stores rules the way the property sheets do, and remembers the first failure.
class Writer
{
public:
    explicit Writer(SqlRuleStore &store) : m_store(store) {}

    void wmi(int id, const QString &name, const QString &comment, RuleKind kind,
             QList<WMIConditionRecord> conditions)
    {
        WMIRuleData rule;
        rule.kind = kind;
        rule.ruleId = ruleIdText(id);
        rule.ruleName = name;
        rule.comment = comment;
        rule.conditions = std::move(conditions);
        rule.service = &m_store;
        check(writeConditions(rule));
    }

    void naqc(int id, const QString &name, const QString &service, const QString &comment,
              QList<RQCScriptEntry> scripts)
    {
        check(storeRQCRule(&m_store, {ruleIdText(id), name, service, comment, std::move(scripts)}));
    }

    void uses(qint16 userCategory, int userId, qint16 usedCategory, const QString &usedName)
    {
        check(!failed(m_store.addRuleUsage(userCategory, ruleIdText(userId), usedCategory, usedName)), false);
    }

    bool ok() const { return m_ok; }
    int added() const { return m_added; }
    const QString &error() const { return m_error; }

private:
    void check(bool stored, bool isRule = true)
    {
        m_added += isRule ? 1 : 0;
        if (!stored && m_ok) {
            m_ok = false;
            m_error = m_store.lastError();
        }
    }

    SqlRuleStore &m_store;
    bool m_ok = true;
    int m_added = 0;
    QString m_error;
};

} // namespace

int addSampleRules(SqlRuleStore &store, QString *error)
{
    if (!store.isEmpty())
        return 0;
    const QString cimv2 = QStringLiteral("Root\\CIMV2");
    const QString os = QStringLiteral("Win32_OperatingSystem"), service = QStringLiteral("Win32_Service");
    Writer w(store);
    w.wmi(101, QStringLiteral("Service Pack Level"), QStringLiteral("Workstations run service pack 2 or later."),
          RuleKind::WMI,
          {condition(QStringLiteral("EQ"), cimv2, os, QStringLiteral("ServicePackMajorVersion"),
                     QStringLiteral("uint16"), QStringLiteral(">="), QStringLiteral("2")),
           condition(QStringLiteral("AND"), cimv2, os, QStringLiteral("ProductType"), QStringLiteral("uint32"),
                     QStringLiteral("="), QStringLiteral("1"))});
    w.wmi(102, QStringLiteral("Update Service On"), QStringLiteral("The automatic update service is started."),
          RuleKind::WMI,
          {condition(QStringLiteral("EQ"), cimv2, service, QStringLiteral("Started"), QStringLiteral("boolean"),
                     QStringLiteral("="), QStringLiteral("TRUE")),
           condition(QStringLiteral("OR"), cimv2, service, QStringLiteral("State"), QStringLiteral("string"),
                     QStringLiteral("in"), QStringLiteral("Running,Start Pending"))});
    w.wmi(103, QStringLiteral("Disk Free Space"), QStringLiteral("At least 1 GB free on the system disk."),
          RuleKind::WQL,
          {condition(QStringLiteral("EQ"), cimv2,
                     QStringLiteral("SELECT FreeSpace FROM Win32_LogicalDisk WHERE DeviceID = 'C:'"),
                     QStringLiteral("FreeSpace"), QStringLiteral("uint64"), QStringLiteral(">="),
                     QStringLiteral("1073741824"))});
    w.wmi(104, QStringLiteral("No Disk Shares"), QStringLiteral("No disk share other than the administrative ones."),
          RuleKind::WQL,
          {condition(QStringLiteral("EQ"), cimv2, QStringLiteral("SELECT * FROM Win32_Share WHERE Type = 0"),
                     QStringLiteral("#Count"), QStringLiteral("uint32"), QStringLiteral("="), QStringLiteral("0"))});
    w.wmi(105, QStringLiteral("Workstation Check"),
          QStringLiteral("Domain workstations; uses Service Pack Level and Disk Free Space."), RuleKind::WMI,
          {condition(QStringLiteral("EQ"), cimv2, QStringLiteral("Win32_ComputerSystem"), QStringLiteral("DomainRole"),
                     QStringLiteral("uint16"), QStringLiteral("="), QStringLiteral("1"))});
    w.naqc(201, QStringLiteral("VPN Baseline"), QStringLiteral("Corporate VPN"),
           QStringLiteral("Quarantine check run before the tunnel opens."),
           {{QStringLiteral("setup.cmd"), QStringLiteral("Pre-Init Actions"),
             QStringLiteral("Prepare the client"), 0},
            {QStringLiteral("rqc.exe"), QStringLiteral("Pre-Connect Actions"),
             QStringLiteral("Quarantine notifier"), 1},
            {QStringLiteral("checkav.cmd"), QStringLiteral("Connect Actions"),
             QStringLiteral("Antivirus signature check"), 1},
            {QStringLiteral("cleanup.cmd"), QStringLiteral("Disconnect Actions"),
             QStringLiteral("Remove temporary files"), 0}});
    w.naqc(202, QStringLiteral("Branch Dial-Up"), QStringLiteral("Branch Dial-Up"),
           QStringLiteral("Checks for the branch offices' dial-up profile."),
           {{QStringLiteral("branchchk.cmd"), QStringLiteral("Pre-Dial Actions"),
             QStringLiteral("Branch office baseline"), 1}});
    w.uses(category::WMI, 105, category::WMI, QStringLiteral("Service Pack Level"));
    w.uses(category::WMI, 105, category::WMI, QStringLiteral("Disk Free Space"));
    w.uses(category::NAQC, 201, category::WMI, QStringLiteral("Service Pack Level"));
    if (!w.ok()) {
        if (error)
            *error = w.error();
        return -1;
    }
    return w.added();
}

} // namespace qarvo::console
