#include "resources/strings.h"

#include <QHash>

namespace qarvo::strings {

namespace {
const QHash<int, QString> &table()
{
    static const QHash<int, QString> entries = {
        {NaqcDescription,
         QStringLiteral("  NAQC Rule object supports network access control as a part of Internet "
                        "Authentication Service (IAS) in Windows Server 2003 environments")},
        {WmiDescription,
         QStringLiteral("  WMI Rule Object checks the system resources using Windows Management "
                        "Instrumentation (WMI).")},

        {WmiPage1Title, QStringLiteral("WMI Rule Name")},
        {WmiPage1Subtitle, QStringLiteral("Enter a rule's name and comment")},
        {WmiPage2Title, QStringLiteral("WMI Conditions")},
        {WmiPage2Subtitle,
         QStringLiteral("Rule requires at least one WMI condition statement. Add a condition "
                        "statement into the rule.")},
        {WqlPage2Title, QStringLiteral("WQL Conditions")},
        {WqlPage2Subtitle,
         QStringLiteral("Rule requires at least one WQL condition statement. Add a condition "
                        "statement into the rule.")},
        {WmiPage3Title, QStringLiteral("Finish")},
        {WmiPage3Subtitle, QStringLiteral("Confirm new rule")},
        {NaqcPage1Title, QStringLiteral("NAQC Rule Name")},
        {NaqcPage1Subtitle, QStringLiteral("Enter a rule's name and comment")},
        {NaqcPage2Title, QStringLiteral("CMS File")},
        {NaqcPage2Subtitle, QStringLiteral("Import a CMS File")},
        {NaqcPage3Title, QStringLiteral("Finish")},
        {NaqcPage3Subtitle, QStringLiteral("Confirm new rule")},

        {FileBroken, QStringLiteral("File is not exacted or broken")},
        {CannotOpenClassList, QStringLiteral("Cannot open class list file")},
        {CannotOpenFieldList, QStringLiteral("Cannot open field list file")},
        {SelectWmiClass, QStringLiteral("Select WMI class")},
        {SelectField, QStringLiteral("Select field")},
        {FieldNotSupported, QStringLiteral("This system does not support selected field yet")},
        {ConditionEmpty, QStringLiteral("[Condition] Content is empty")},
        {ValueEmpty, QStringLiteral("[Value] Content is empty")},
        {ArrayValueEmpty, QStringLiteral("Value is empty")},
        {WqlNamespaceEmpty, QStringLiteral("[NameSpace] Content is empty")},
        {WqlSelectEmpty, QStringLiteral("[SELECT] Content is empty")},
        {WqlFromEmpty, QStringLiteral("[FROM] Content is empty")},
        {WqlConditionEmpty, QStringLiteral("[Condition] Content is empty")},
        {WqlValueEmpty, QStringLiteral("[Value] Content is empty")},
        {WqlFieldEmpty, QStringLiteral("[Field] Content is empty")},
        {WqlFieldTypeEmpty, QStringLiteral("[Field Type] Content is empty")},

        {NaqcSummaryHeading, QStringLiteral("Add for rule information is as below")},
        {DuplicateRuleName,
         QStringLiteral("There is already a rule with the same name. Please enter a different "
                        "name.")},
    };
    return entries;
}
} // namespace

QString text(int id)
{
    return table().value(id);
}

} // namespace qarvo::strings
