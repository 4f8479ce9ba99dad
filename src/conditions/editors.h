#pragma once

// What the condition editors hand back, and the one place through which the rule pages open
// them. The dialogs themselves (CWMIDlg, CWQLDlg) live next to this header; tests can reroute
// the editors here and restore them with resetConditionEditors().

#include <QString>

#include <functional>
#include <optional>

class QWidget;

namespace qarvo {

// One WMI condition as CWMIDlg returns it (and takes it back for editing).
struct WMICondition
{
    QString nameSpace;
    QString className;
    QString field;     // "NOT SUPPORT" is refused by the dialog; "[]" marks an array field
    QString type;
    QString condition; // operator text
    QString value;
};

// One WQL condition as CWQLDlg returns it (and takes it back for editing).
struct WQLCondition
{
    QString nameSpace;
    QString select;
    QString from;
    QString where;
    int mode = 1;      // 1 Count, 2 Value
    QString op;        // operator of either mode
    QString count;     // Count mode
    QString field;     // Value mode
    QString fieldType; // Value mode
    QString value;     // Value mode
};

struct ConditionEditors
{
    std::function<std::optional<WMICondition>(QWidget *parent,
                                              const std::optional<WMICondition> &existing)> wmi;
    std::function<std::optional<WQLCondition>(QWidget *parent,
                                              const std::optional<WQLCondition> &existing)> wql;
};

ConditionEditors &conditionEditors();
void resetConditionEditors();

// Opens the editor modally, for a new condition or to edit `existing`; nothing when cancelled.
std::optional<WMICondition> editWMICondition(
    QWidget *parent, const std::optional<WMICondition> &existing = std::nullopt);
std::optional<WQLCondition> editWQLCondition(
    QWidget *parent, const std::optional<WQLCondition> &existing = std::nullopt);

// The real dialogs.
std::optional<WMICondition> runWMIDlg(QWidget *parent,
                                      const std::optional<WMICondition> &existing);
std::optional<WQLCondition> runWQLDlg(QWidget *parent,
                                      const std::optional<WQLCondition> &existing);

} // namespace qarvo
