#include "naqcrule/rqcrulerecord.h"

#include "dataservice/calls.h"
#include "naqcrule/cmsprofile.h"
#include "resources/strings.h"

namespace qarvo {

QString rqcSummaryText(const RQCRuleRecord &record)
{
    const QString tabs = QStringLiteral("\t\t\t\t\t\t\t");
    QString text = QStringLiteral("\r\n ") + strings::text(strings::NaqcSummaryHeading) + tabs
                   + QStringLiteral("\r\n\r\n+ Rule Name : ") + record.ruleName + tabs
                   + QStringLiteral("\r\n\r\n+ Service Name : ") + record.serviceName + tabs
                   + QStringLiteral("\r\n\r\n+ Script :\r\n");
    for (const RQCScriptEntry &entry : record.scripts) {
        if (entry.selected == 1)
            text += entry.scriptFile + QStringLiteral("\r\n");
    }
    return text;
}

QString rqcScriptSelectionText(const RQCRuleRecord &record)
{
    QString text = u'"' + record.serviceName + u'"';
    for (const QString &section : cmsActionSections()) {
        QString indexes;
        int k = 0;
        for (const RQCScriptEntry &entry : record.scripts) {
            if (entry.actionType != section)
                continue;
            if (entry.selected == 1) {
                if (!indexes.isEmpty())
                    indexes += u':';
                indexes += QString::number(k);
            }
            ++k;
        }
        text += indexes.isEmpty() ? QStringLiteral(",0") : QStringLiteral(",\"") + indexes + u'"';
    }
    return text;
}

bool storeRQCRule(DataService *service, const RQCRuleRecord &record)
{
    const QString selection = rqcScriptSelectionText(record);
    qint16 n = 0;
    for (const RQCScriptEntry &entry : record.scripts) {
        if (failed(calls::AddRQCScript(service, record.ruleId, n, entry.scriptFile,
                                       entry.actionType, entry.comment, entry.selected)))
            return false;
        ++n;
    }
    return !failed(calls::AddRQCRule(service, record.ruleId, record.ruleName, record.serviceName,
                                     record.comment, selection));
}

} // namespace qarvo
