#include "control/sheets.h"

namespace qarvo {

namespace {
SheetRoutes defaultRoutes()
{
    return {&runWMIRuleSheet, &runRQCRuleSheet};
}
} // namespace

SheetRoutes &sheetRoutes()
{
    static SheetRoutes routes = defaultRoutes();
    return routes;
}

void resetSheetRoutes()
{
    sheetRoutes() = defaultRoutes();
}

int openWMIRuleSheet(QWidget *parent, const WMISheetRequest &request)
{
    auto &route = sheetRoutes().wmi;
    return route ? route(parent, request) : SheetCancelled;
}

int openRQCRuleSheet(QWidget *parent, const RQCSheetRequest &request)
{
    auto &route = sheetRoutes().rqc;
    return route ? route(parent, request) : SheetCancelled;
}

} // namespace qarvo
