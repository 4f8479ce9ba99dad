#include "conditions/editors.h"

namespace qarvo {

namespace {
ConditionEditors defaultEditors()
{
    return {&runWMIDlg, &runWQLDlg};
}
} // namespace

ConditionEditors &conditionEditors()
{
    static ConditionEditors editors = defaultEditors();
    return editors;
}

void resetConditionEditors()
{
    conditionEditors() = defaultEditors();
}

std::optional<WMICondition> editWMICondition(QWidget *parent,
                                             const std::optional<WMICondition> &existing)
{
    auto &editor = conditionEditors().wmi;
    return editor ? editor(parent, existing) : std::nullopt;
}

std::optional<WQLCondition> editWQLCondition(QWidget *parent,
                                             const std::optional<WQLCondition> &existing)
{
    auto &editor = conditionEditors().wql;
    return editor ? editor(parent, existing) : std::nullopt;
}

} // namespace qarvo
