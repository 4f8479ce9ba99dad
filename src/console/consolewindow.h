#pragma once

// The console's main window: a scope tree with the two rule views on the left, the control on the
// right, and the actions a host offers around it.

#include <QMainWindow>

class CqarvoCtrl;
class QAction;
class QActionGroup;
class QLabel;
class QTreeWidget;
class QTreeWidgetItem;

namespace qarvo {
class DataService;
class SqlRuleStore;
}

namespace qarvo::console {

// The edition text the console hands to ShowPane.
inline constexpr const char *Edition = "Standard";

class ConsoleWindow : public QMainWindow
{
    Q_OBJECT
public:
    // `store` must outlive the window. The control is handed `service`, which is the store itself
    // unless a caller puts something in between (tests record the control's calls that way).
    ConsoleWindow(SqlRuleStore *store, qint16 view, DataService *service = nullptr,
                  QWidget *parent = nullptr);
    ~ConsoleWindow() override;

    qint16 view() const { return m_view; }
    CqarvoCtrl *control() const { return m_ctrl; }

public Q_SLOTS:
    // Sets the control up for rule category 5 or 6, as a host does: ViewType, then ShowPane.
    void showView(qint16 view);
    void newWMIRule();
    void newWQLRule();
    void newNAQCRule();
    void refresh();
    void addRuleReference();
    void checkRules();
    void showHistory();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createActions();
    void createScopeTree();
    void afterSheet(short result, qint16 category);
    void about();

    SqlRuleStore *m_store;
    DataService *m_service;
    qint16 m_view = 0;
    QWidget *m_host = nullptr;
    CqarvoCtrl *m_ctrl = nullptr;
    QTreeWidget *m_scope = nullptr;
    QTreeWidgetItem *m_naqcItem = nullptr;
    QTreeWidgetItem *m_wmiItem = nullptr;
    QActionGroup *m_viewGroup = nullptr;
    QAction *m_naqcView = nullptr;
    QAction *m_wmiView = nullptr;
    QLabel *m_viewLabel = nullptr;
};

} // namespace qarvo::console
