#include "control/sheets.h"
#include "naqcrule/rqcrulesheet.h"

#include <QDialog>

namespace qarvo {

int runRQCRuleSheet(QWidget *parent, const RQCSheetRequest &request)
{
    CRQCRuleSheet sheet(parent, request.mode, request.ruleId);
    return sheet.exec() == QDialog::Accepted ? SheetDone : SheetCancelled;
}

} // namespace qarvo
