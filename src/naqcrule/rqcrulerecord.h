#pragma once

// The NAQC rule being built or edited: one record owned by the sheet and shared by its pages,
// the texts derived from it, and the store sequence that writes it to the data service.

#include "dataservice/recordsizes.h"

#include <QList>
#include <QString>

namespace qarvo {

class DataService;

struct RQCScriptEntry
{
    QString scriptFile;
    QString actionType; // the profile section the script action came from
    QString comment;
    qint16 selected = 0; // 1 when the row was checked
    bool operator==(const RQCScriptEntry &) const = default;
};

struct RQCRuleRecord
{
    QString ruleId;
    QString ruleName;
    QString serviceName;
    QString comment;
    QList<RQCScriptEntry> scripts; // in list order
    DataService *service = nullptr;
    int propertiesMode = 0; // 1 when an existing rule is edited
};

// The summary shown before Finish; line breaks are CR LF.
QString rqcSummaryText(const RQCRuleRecord &record);

// The selection the rule stores: the quoted service name, then per action section either 0 or
// the quoted ':'-joined indexes (within that section) of the selected scripts.
QString rqcScriptSelectionText(const RQCRuleRecord &record);

// Stores every script entry (numbered across the whole list), then the rule. Stops at the first
// call that cannot be made; what was sent stays. True when everything was sent.
bool storeRQCRule(DataService *service, const RQCRuleRecord &record);

} // namespace qarvo
