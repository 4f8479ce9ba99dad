#pragma once

// Where a rule is used: the rules that use the selected one, the rules it uses, and a way to end
// such a reference. It reads and writes through the store's own methods, never the control's.

#include <QDialog>

class QLabel;
class QListWidget;
class QPushButton;

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::console {

class RuleUsageDialog : public QDialog
{
    Q_OBJECT
public:
    RuleUsageDialog(SqlRuleStore *store, qint16 category, int ruleId, QWidget *parent = nullptr);

private:
    void reload();
    void updateButton(QListWidget *selectedIn);
    void removeReference();

    SqlRuleStore *m_store;
    qint16 m_category;
    int m_ruleId;
    QString m_name;
    QLabel *m_title = nullptr;
    QListWidget *m_usedBy = nullptr;
    QListWidget *m_uses = nullptr;
    QPushButton *m_remove = nullptr;
};

} // namespace qarvo::console
