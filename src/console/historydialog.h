#pragma once

// The "Rule History" window: the earlier versions the store keeps, what each held, and bringing
// one back.

#include <QDialog>

class QLabel;
class QPlainTextEdit;
class QPushButton;
class QSortFilterProxyModel;
class QTreeView;

namespace qarvo {
class SqlRuleStore;
}

namespace qarvo::console {

class HistoryModel;

class HistoryDialog : public QDialog
{
    Q_OBJECT
public:
    explicit HistoryDialog(SqlRuleStore *store, QWidget *parent = nullptr);
    ~HistoryDialog() override;

    // True once a version was restored or versions were purged.
    bool changedStore() const { return m_changed; }

public Q_SLOTS:
    void reload();
    void restoreSelected();
    void purge();

private:
    qint64 selectedVersion() const;
    void showSelected();
    void updateRetention();

    SqlRuleStore *m_store;
    HistoryModel *m_model = nullptr;
    QSortFilterProxyModel *m_filter = nullptr;
    QTreeView *m_list = nullptr;
    QPlainTextEdit *m_content = nullptr;
    QLabel *m_retention = nullptr;
    QPushButton *m_restore = nullptr;
    QPushButton *m_purge = nullptr;
    bool m_changed = false;
};

} // namespace qarvo::console
