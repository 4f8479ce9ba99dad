#pragma once

// What a data service answers to: the names of the methods the control calls, the rule
// categories and delete modes it sends, and the form of a rule id. A host that writes its own
// service compiles against this header and dataservice.h.

#include <qarvo/dataservice/qarvo_export.h>

#include <QString>

namespace qarvo {

// Method names, exactly as the service knows them.
namespace method {
inline constexpr const char *GetWMIRules = "GetWMIRules";
inline constexpr const char *GetRQCRule = "GetRQCRule";
inline constexpr const char *GetWMIRuleInfo = "GetWMIRuleInfo";
inline constexpr const char *GetRQCRuleInfo = "GetRQCRuleInfo";
inline constexpr const char *GetRQCRuleScriptInfo = "GetRQCRuleScriptInfo";
inline constexpr const char *RulesUsedExRule = "RulesUsedExRule";
inline constexpr const char *CanUseID = "CanUseID";
inline constexpr const char *CanUseExRuleName = "CanUseExRuleName";
inline constexpr const char *UpdateExRuleNameInRule = "UpdateExRuleNameInRule";
inline constexpr const char *DelWMIRule = "DelWMIRule";
inline constexpr const char *DelRQCRule = "DelRQCRule";
inline constexpr const char *AddWMIRule = "AddWMIRule";
inline constexpr const char *AddRQCScript = "AddRQCScript";
inline constexpr const char *AddRQCRule = "AddRQCRule";
} // namespace method

// Rule categories; the same numbers are the control's view types.
namespace category {
inline constexpr qint16 NAQC = 5;
inline constexpr qint16 WMI = 6;
} // namespace category

// Second argument of DelWMIRule / DelRQCRule.
namespace delmode {
inline constexpr qint16 FromList = 1;
inline constexpr qint16 BeforeStoreAgain = 2;
} // namespace delmode

// Nine zero-padded decimal digits, as every rule id is sent.
QARVO_EXPORT QString ruleIdText(qint64 id);

} // namespace qarvo
