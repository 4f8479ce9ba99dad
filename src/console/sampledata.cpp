#include "console/sampledata.h"

#include "dataservice/calls.h"
#include "rulestore/sqlrulestore.h"

#include <QList>
#include <QStringList>

namespace qarvo::console {

namespace {

const QStringList actionSections = {
    QStringLiteral("Pre-Init Actions"),   QStringLiteral("Pre-Connect Actions"),
    QStringLiteral("Pre-Dial Actions"),   QStringLiteral("Pre-Tunnel Actions"),
    QStringLiteral("Connect Actions"),    QStringLiteral("Auto Applications"),
    QStringLiteral("Disconnect Actions"), QStringLiteral("On-Cancel Actions"),
    QStringLiteral("On-Error Actions"),
};

struct Condition
{
    QString conjunction; // "EQ", "AND", "OR"
    QString nameSpace;
    QString classOrQuery;
    QString field;
    QString type;
    QString op;
    QString value;
};

qint16 conjunctionCode(const QString &c)
{
    return c == QLatin1String("EQ") ? 0 : c == QLatin1String("AND") ? 1 : 2;
}

qint16 operatorCode(const QString &op)
{
    static const QStringList ops = {QStringLiteral("="),  QStringLiteral("!="), QStringLiteral(">"),
                                    QStringLiteral("<"),  QStringLiteral(">="), QStringLiteral("<="),
                                    QStringLiteral("in"), QStringLiteral("not in")};
    return qint16(ops.indexOf(op) + 1);
}

qint16 typeCode(const QString &type)
{
    static const QStringList types = {QStringLiteral("boolean"), QStringLiteral("string"),
                                      QStringLiteral("uint8"),   QStringLiteral("uint16"),
                                      QStringLiteral("sint16"),  QStringLiteral("uint32"),
                                      QStringLiteral("sint32"),  QStringLiteral("uint64"),
                                      QStringLiteral("sint64"),  QStringLiteral("datetime")};
    return qint16(types.indexOf(type) + 1);
}

class Writer
{
public:
    explicit Writer(SqlRuleStore &store) : m_store(store) {}

    void wmi(int id, const QString &name, const QString &comment, qint16 kind,
             const QList<Condition> &conditions)
    {
        qint16 index = 0;
        for (const Condition &c : conditions) {
            WMIRuleRow row{ruleIdText(id), name,   comment,        kind,
                           index++,        conjunctionCode(c.conjunction),
                           c.classOrQuery, c.field, c.value, c.op, operatorCode(c.op),
                           c.nameSpace,    c.type, typeCode(c.type)};
            check(calls::AddWMIRule(&m_store, row));
        }
        ++m_added;
    }

    void naqc(int id, const QString &name, const QString &service, const QString &comment,
              const QList<SampleScript> &scripts)
    {
        qint16 entry = 0;
        for (const SampleScript &s : scripts)
            check(calls::AddRQCScript(&m_store, ruleIdText(id), entry++, s.file, s.section,
                                      s.comment, qint16(s.selected ? 1 : 0)));
        check(calls::AddRQCRule(&m_store, ruleIdText(id), name, service, comment,
                                scriptSelection(service, scripts)));
        ++m_added;
    }

    void uses(qint16 userCategory, int userId, qint16 usedCategory, const QString &usedName)
    {
        check(m_store.addRuleUsage(userCategory, ruleIdText(userId), usedCategory, usedName));
    }

    bool ok() const { return m_ok; }
    int added() const { return m_added; }
    const QString &error() const { return m_error; }

private:
    void check(qint32 s)
    {
        if (failed(s) && m_ok) {
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

QString scriptSelection(const QString &serviceName, const QList<SampleScript> &scripts)
{
    QString text = QLatin1Char('"') + serviceName + QLatin1Char('"');
    for (const QString &section : actionSections) {
        QStringList chosen;
        int k = 0;
        for (const SampleScript &s : scripts) {
            if (s.section != section)
                continue;
            if (s.selected)
                chosen.append(QString::number(k));
            ++k;
        }
        text += chosen.isEmpty() ? QStringLiteral(",0")
                                 : QStringLiteral(",\"") + chosen.join(QLatin1Char(':')) + QLatin1Char('"');
    }
    return text;
}

int addSampleRules(SqlRuleStore &store, QString *error)
{
    if (!store.isEmpty())
        return 0;
    const QString cimv2 = QStringLiteral("Root\\CIMV2");
    Writer w(store);
    w.wmi(101, QStringLiteral("Service Pack Level"),
          QStringLiteral("Workstations run service pack 2 or later."), 0,
          {{QStringLiteral("EQ"), cimv2, QStringLiteral("Win32_OperatingSystem"),
            QStringLiteral("ServicePackMajorVersion"), QStringLiteral("uint16"), QStringLiteral(">="),
            QStringLiteral("2")},
           {QStringLiteral("AND"), cimv2, QStringLiteral("Win32_OperatingSystem"),
            QStringLiteral("ProductType"), QStringLiteral("uint32"), QStringLiteral("="),
            QStringLiteral("1")}});
    w.wmi(102, QStringLiteral("Update Service Running"),
          QStringLiteral("The automatic update service is started."), 0,
          {{QStringLiteral("EQ"), cimv2, QStringLiteral("Win32_Service"), QStringLiteral("Started"),
            QStringLiteral("boolean"), QStringLiteral("="), QStringLiteral("TRUE")},
           {QStringLiteral("OR"), cimv2, QStringLiteral("Win32_Service"), QStringLiteral("State"),
            QStringLiteral("string"), QStringLiteral("in"), QStringLiteral("Running,Start Pending")}});
    w.wmi(103, QStringLiteral("System Disk Free Space"),
          QStringLiteral("At least 1 GB free on the system disk."), 1,
          {{QStringLiteral("EQ"), cimv2,
            QStringLiteral("SELECT FreeSpace FROM Win32_LogicalDisk WHERE DeviceID = 'C:'"),
            QStringLiteral("FreeSpace"), QStringLiteral("uint64"), QStringLiteral(">="),
            QStringLiteral("1073741824")}});
    w.wmi(104, QStringLiteral("No Open Disk Shares"),
          QStringLiteral("No disk share other than the administrative ones."), 1,
          {{QStringLiteral("EQ"), cimv2,
            QStringLiteral("SELECT * FROM Win32_Share WHERE Type = 0"), QStringLiteral("#Count"),
            QStringLiteral("uint32"), QStringLiteral("="), QStringLiteral("0")}});
    w.wmi(105, QStringLiteral("Workstation Compliance"),
          QStringLiteral("Domain workstations; uses Service Pack Level and System Disk Free Space."), 0,
          {{QStringLiteral("EQ"), cimv2, QStringLiteral("Win32_ComputerSystem"),
            QStringLiteral("DomainRole"), QStringLiteral("uint16"), QStringLiteral("="),
            QStringLiteral("1")}});
    w.naqc(201, QStringLiteral("Remote Access Baseline"), QStringLiteral("Corporate VPN"),
           QStringLiteral("Quarantine check run before the tunnel opens."),
           {{QStringLiteral("setup.cmd"), QStringLiteral("Pre-Init Actions"),
             QStringLiteral("Prepare the client"), false},
            {QStringLiteral("rqc.exe"), QStringLiteral("Pre-Connect Actions"),
             QStringLiteral("Quarantine notifier"), true},
            {QStringLiteral("checkav.cmd"), QStringLiteral("Connect Actions"),
             QStringLiteral("Antivirus signature check"), true},
            {QStringLiteral("cleanup.cmd"), QStringLiteral("Disconnect Actions"),
             QStringLiteral("Remove temporary files"), false}});
    w.naqc(202, QStringLiteral("Branch Office Dial-Up"), QStringLiteral("Branch Dial-Up"),
           QStringLiteral("Checks for the branch offices' dial-up profile."),
           {{QStringLiteral("branchchk.cmd"), QStringLiteral("Pre-Dial Actions"),
             QStringLiteral("Branch office baseline"), true}});
    w.uses(category::WMI, 105, category::WMI, QStringLiteral("Service Pack Level"));
    w.uses(category::WMI, 105, category::WMI, QStringLiteral("System Disk Free Space"));
    w.uses(category::NAQC, 201, category::WMI, QStringLiteral("Service Pack Level"));
    if (!w.ok()) {
        if (error)
            *error = w.error();
        return -1;
    }
    return w.added();
}

} // namespace qarvo::console
