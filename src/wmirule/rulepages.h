#pragma once

// The three pages of the WMI/WQL rule sheet. They work on the sheet's record: each loads from it
// when shown and stores into it when left.

#include <QWizardPage>

class QLabel;
class QLineEdit;
class QPushButton;
class QTreeWidget;

namespace qarvo {

class CWMIRuleListViewer;
class CWMIRuleSheet;

// What the pages have in common: the sheet they belong to, and activation, which the sheet
// calls whenever the page comes to the front in either mode.
class CWMIRulePage : public QWizardPage
{
    Q_OBJECT
public:
    CWMIRulePage(CWMIRuleSheet &sheet, const QString &objectName, int titleId, int subTitleId);
    virtual void activate() {}

protected:
    CWMIRuleSheet &m_sheet;
};

// General: name and comment.
class CWMIRulePage1 : public CWMIRulePage
{
    Q_OBJECT
public:
    explicit CWMIRulePage1(CWMIRuleSheet &sheet);

    QLineEdit *nameEdit() const { return m_name; }
    QLineEdit *commentEdit() const { return m_comment; }

    // Fills the edits from the record (properties mode).
    void loadFromRecord();
    void activate() override;
    bool isComplete() const override;
    bool validatePage() override;
    // Copies the edits into the record, as leaving the page does.
    void store();

private:
    QLineEdit *m_name;
    QLineEdit *m_comment;
};

// The conditions of the rule.
class CWMIRulePage2 : public CWMIRulePage
{
    Q_OBJECT
public:
    explicit CWMIRulePage2(CWMIRuleSheet &sheet);

    CWMIRuleListViewer *list() const { return m_list; }
    QPushButton *addButton() const { return m_add; }
    QPushButton *deleteButton() const { return m_delete; }

    // Loads the stored conditions into the list (properties mode). False when the service failed
    // or a row-set fault ended the reading part-way, so the list may lack conditions.
    bool loadFromService();
    void activate() override;
    bool isComplete() const override;
    bool validatePage() override;
    // Rebuilds the record's condition list from the rows.
    void store();

    void addCondition();
    void deleteCondition();

private:
    void setButtons();

    CWMIRuleListViewer *m_list;
    QPushButton *m_add;
    QPushButton *m_delete;
};

// Final: the summary, and the step that stores the rule.
class CWMIRulePage3 : public CWMIRulePage
{
    Q_OBJECT
public:
    explicit CWMIRulePage3(CWMIRuleSheet &sheet);

    QTreeWidget *summary() const { return m_summary; }
    QLineEdit *nameView() const { return m_name; }
    QLineEdit *commentView() const { return m_comment; }

    void activate() override;
    bool validatePage() override;
    // Writes every condition of the record; true when all went through.
    bool writeStep();

private:
    void setupColumns();

    QTreeWidget *m_summary;
    QLineEdit *m_name;
    QLineEdit *m_comment;
    bool m_initialised = false;
};

} // namespace qarvo
