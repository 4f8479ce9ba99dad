#pragma once

// The one place through which the control and the rule list open the rule sheets. The sheets
// themselves live in wmirule/ and naqcrule/; tests can reroute them here.

#include <QString>

#include <functional>

class QWidget;

namespace qarvo {

// Results of a Show… member and of a sheet run.
inline constexpr short SheetCancelled = 2;
inline constexpr short SheetDone = 1;

struct WMISheetRequest
{
    QString caption;
    int wql = 0;            // 0 WMI rule, 1 WQL rule
    int propertiesMode = 0; // 0 wizard, 1 property sheet
    int ruleId = 0;         // properties mode only
};

struct RQCSheetRequest
{
    int mode = 0;   // 0 wizard, 1 properties
    int ruleId = 0; // properties mode only
};

struct SheetRoutes
{
    std::function<int(QWidget *parent, const WMISheetRequest &)> wmi;
    std::function<int(QWidget *parent, const RQCSheetRequest &)> rqc;
};

// The routes in use; tests may replace them and restore them with resetSheetRoutes().
SheetRoutes &sheetRoutes();
void resetSheetRoutes();

// Run a sheet modally; SheetCancelled when it was cancelled, SheetDone otherwise.
int openWMIRuleSheet(QWidget *parent, const WMISheetRequest &request);
int openRQCRuleSheet(QWidget *parent, const RQCSheetRequest &request);

// The sheets' own entry points (wmirule/ and naqcrule/).
int runWMIRuleSheet(QWidget *parent, const WMISheetRequest &request);
int runRQCRuleSheet(QWidget *parent, const RQCSheetRequest &request);

} // namespace qarvo
