#include "conditions/editors.h"

// Placeholders until the condition dialogs exist: every edit counts as cancelled.
namespace qarvo {

std::optional<WMICondition> runWMIDlg(QWidget *, const std::optional<WMICondition> &)
{
    return std::nullopt;
}

std::optional<WQLCondition> runWQLDlg(QWidget *, const std::optional<WQLCondition> &)
{
    return std::nullopt;
}

} // namespace qarvo
