#include "control/sheets.h"
#include "wmirule/rulesheet.h"

namespace qarvo {

int runWMIRuleSheet(QWidget *parent, const WMISheetRequest &request)
{
    CWMIRuleSheet sheet(parent, request.wql ? RuleKind::WQL : RuleKind::WMI,
                        request.propertiesMode ? SheetMode::Properties : SheetMode::Wizard,
                        request.caption, request.ruleId);
    return sheet.exec();
}

} // namespace qarvo
