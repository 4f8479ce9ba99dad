#pragma once

// CWMIDlg ("WMI"): one WMI condition, picked from the class catalogue. The class tree comes from
// class.dat, the field list from the class's field file; the dialog offers the operators and
// values that fit the field's type and refuses incomplete conditions in a fixed order.

#include "conditions/catalogue.h"
#include "conditions/editors.h"

#include <QDialog>

#include <optional>

class QComboBox;
class QLineEdit;
class QModelIndex;
class QPlainTextEdit;
class QPushButton;
class QTreeView;
class QTreeWidget;
class QTreeWidgetItem;

namespace qarvo {

class ClassTreeModel;

// What the OK check looks at, so that its order can be read (and tested) in one place.
struct WMIDlgEntries
{
    QString className;
    QString field;
    bool operatorChosen = false;
    bool valueEditShown = true;
    QString valueText;
    bool valueListShown = false;
    bool valueListChosen = false;
};
// The string id of the first failing check, or 0 when the condition is complete.
int firstWMIDlgProblem(const WMIDlgEntries &entries);

class CWMIDlg : public QDialog
{
    Q_OBJECT
public:
    explicit CWMIDlg(QWidget *parent = nullptr);
    ~CWMIDlg() override;

    // The catalogue directory; without it the dialog asks programDirectory() when it opens.
    void setProgramPath(const QString &programPath);
    // Opens the dialog on an existing condition (class, field, operator and value are used).
    void setEditCondition(const WMICondition &condition);

    // Valid after OK.
    WMICondition condition() const { return m_result; }

    void setVisible(bool visible) override;
    void accept() override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void initDialog();
    void applySearch(const QString &text);
    void selectTreeNode(const QModelIndex &index);
    void selectFieldRow(QTreeWidgetItem *item);
    void showValueEdit(bool writable);
    void openArray();
    const catalogue::FieldRecord *recordNamed(const QString &name) const;

    bool m_initialised = false;
    std::optional<QString> m_programPath;
    std::optional<WMICondition> m_edit;
    WMICondition m_result;
    QList<catalogue::FieldRecord> m_records;

    ClassTreeModel *m_model;
    int m_shownNode = -1; // the node whose fields are shown; a search may hide it for a while
    QLineEdit *m_search;
    QTreeView *m_tree;
    QTreeWidget *m_fields;
    QPlainTextEdit *m_description;
    QLineEdit *m_nameSpace;
    QLineEdit *m_field;
    QLineEdit *m_type;
    QPlainTextEdit *m_fieldDescription;
    QLineEdit *m_units;
    QComboBox *m_condition;
    QLineEdit *m_value;
    QComboBox *m_valueList;
    QPushButton *m_array;
    QPushButton *m_ok;
};

} // namespace qarvo
