#pragma once

// The condition list of the rule sheet: a report-style list whose rows are the conditions of the
// rule, with an in-place "AND"/"OR" drop-down on the conjunction cell of every row but the first,
// and a double-click that reopens the row's condition in its editor.

#include "wmirule/conditionrow.h"
#include "wmirule/ruledata.h"

#include <QComboBox>
#include <QPointer>
#include <QTreeWidget>

#include <optional>

namespace qarvo {

class CWMIRuleListViewer;

// The drop-down that edits one conjunction cell in place. It lives until it loses the focus,
// then reports its choice (none after Escape) to the list and deletes itself.
class CListViewerCombo : public QComboBox
{
    Q_OBJECT
public:
    CListViewerCombo(CWMIRuleListViewer *list, int row, int column, const QStringList &choices,
                     const QString &current);

    int row() const { return m_row; }
    int column() const { return m_column; }
    bool isCancelled() const { return m_cancelled; }

    void hidePopup() override;

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    void finish();

    QPointer<CWMIRuleListViewer> m_list;
    int m_row;
    int m_column;
    QStringList m_choices;
    bool m_cancelled = false;
    bool m_finished = false;
};

class CWMIRuleListViewer : public QTreeWidget
{
    Q_OBJECT
public:
    explicit CWMIRuleListViewer(QWidget *parent = nullptr);

    void setKind(RuleKind kind) { m_kind = kind; }
    RuleKind kind() const { return m_kind; }

    // Headers and widths in pixels, exactly as given; the last column does not stretch.
    void setColumns(const QStringList &headers, const QList<int> &widths);

    // Rows: columns 2 to 7 from `texts`, the conjunction in column 1 and its image in column 0.
    int appendRow(const QString &conjunction, int image, const ConditionTexts &texts);
    void setRowTexts(int row, const ConditionTexts &texts);
    ConditionTexts rowTexts(int row) const;
    QString cellText(int row, int column) const;
    int rowImage(int row) const;
    void setRowImage(int row, int image);
    int rowCount() const { return topLevelItemCount(); }
    // The row the last selection landed on (the list's selection mark), -1 for none.
    int selectionMark() const;

    int lastClickRow() const { return m_clickRow; }
    int lastClickColumn() const { return m_clickColumn; }
    CListViewerCombo *inPlaceCombo() const { return m_combo; }

    // Opens the in-place drop-down on a conjunction cell; nothing for the first row.
    void beginConjunctionEdit(int row);
    // End of an in-place edit: a given text goes into the cell and sets the row's image.
    void endInPlaceEdit(int row, int column, const std::optional<QString> &text);
    // Reopens the row's condition in its editor; on OK columns 2 to 7 are replaced.
    bool editRow(int row);

    QRect cellRect(int row, int column) const;

Q_SIGNALS:
    // A click landed on a row (true) or on empty space (false).
    void rowClickState(bool onRow);
    void rowEdited(int row);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    RuleKind m_kind = RuleKind::WMI;
    int m_clickRow = -1;
    int m_clickColumn = -1;
    QPointer<CListViewerCombo> m_combo;
};

} // namespace qarvo
