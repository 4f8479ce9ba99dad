#pragma once

// Records that one rule uses another by name: the console's way of making the references that
// keep a used rule from being deleted.

#include <QDialog>

class QComboBox;
class QDialogButtonBox;

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::console {

class UsageDialog : public QDialog
{
    Q_OBJECT
public:
    explicit UsageDialog(SqlRuleStore *store, QWidget *parent = nullptr);

    qint16 userCategory() const;
    QString userId() const;
    QString userName() const;
    qint16 usedCategory() const;
    QString usedName() const;

private:
    void updateOk();

    QComboBox *m_user = nullptr;
    QComboBox *m_used = nullptr;
    QDialogButtonBox *m_buttons = nullptr;
};

} // namespace qarvo::console
