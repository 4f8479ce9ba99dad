#pragma once

// CWQLDlg ("WQL"): one hand-written WQL condition. The query is given as namespace, SELECT, FROM
// and an optional WHERE; the test is on the number of returned objects (Count) or on a field of
// them (Value).

#include "conditions/editors.h"

#include <QDialog>

#include <memory>

class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;

namespace qarvo {

namespace wql {
class Schema;
}

// What the OK check looks at, in one place so that the order is plain to read.
struct WQLDlgEntries
{
    QString nameSpace;
    QString select;
    QString from;
    int mode = 1;
    bool countOperatorChosen = false;
    QString count;
    QString field;
    bool fieldTypeChosen = false;
    bool valueOperatorChosen = false;
    bool valueEditShown = true;
    QString value;
    bool valueChoiceChosen = false;
};

// Which check failed first: its string id and the objectName of the control that gets the focus.
struct WQLDlgProblem
{
    int stringId = 0;
    const char *focus = nullptr;
};
WQLDlgProblem firstWQLDlgProblem(const WQLDlgEntries &entries);

class CWQLDlg : public QDialog
{
    Q_OBJECT
public:
    explicit CWQLDlg(QWidget *parent = nullptr);
    ~CWQLDlg() override;

    // Opens the dialog on an existing condition; its mode (1 Count, 2 Value) is the edit mode.
    void setEditCondition(const WQLCondition &condition);

    // Valid after OK.
    WQLCondition condition() const { return m_result; }

    void accept() override;

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void applyCountMode();
    void applyValueMode();
    void fillListsForType(const QString &type, bool clearValue);
    void filterCount(const QString &text);
    // The line under the query parts: what the query gets wrong, as far as the grammar and the
    // catalogue tell. It never stands in the way of OK.
    void updateAdvice();
    // A wrapped label does not make a window taller by itself; this gives it the room it needs.
    void fitAdvice();

    WQLCondition m_result;
    std::unique_ptr<wql::Schema> m_schema;

    QLineEdit *m_nameSpace;
    QLineEdit *m_select;
    QLineEdit *m_from;
    QPlainTextEdit *m_where;
    QRadioButton *m_countMode;
    QRadioButton *m_valueMode;
    QComboBox *m_countCondition;
    QLineEdit *m_count;
    QLineEdit *m_field;
    QComboBox *m_fieldType;
    QComboBox *m_valueCondition;
    QLineEdit *m_value;
    QComboBox *m_valueChoice;
    QLabel *m_adviceIcon;
    QLabel *m_advice;
};

} // namespace qarvo
