#include "conditions/editors.h"
#include "conditions/wmidlg.h"
#include "conditions/wqldlg.h"

namespace qarvo {

std::optional<WMICondition> runWMIDlg(QWidget *parent, const std::optional<WMICondition> &existing)
{
    CWMIDlg dialog(parent);
    if (existing)
        dialog.setEditCondition(*existing);
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return dialog.condition();
}

std::optional<WQLCondition> runWQLDlg(QWidget *parent, const std::optional<WQLCondition> &existing)
{
    CWQLDlg dialog(parent);
    if (existing)
        dialog.setEditCondition(*existing);
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return dialog.condition();
}

} // namespace qarvo
