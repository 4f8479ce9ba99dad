#pragma once

#include <QPersistentModelIndex>
#include <QPixmap>
#include <QTreeView>
#include <QWidget>

class QFrame;
class QItemSelection;
class QMenu;
class QPlainTextEdit;

namespace qarvo {

class CPaneDown;
class RuleListModel;

// The rule list itself: a report view that also answers a double click on empty space and opens
// the context menu from the keyboard at the selected row.
class RuleListView : public QTreeView
{
    Q_OBJECT
public:
    explicit RuleListView(QWidget *parent = nullptr);

Q_SIGNALS:
    void doubleClickedAnywhere();
    // `row` is -1 when the click hit no row.
    void contextMenuWanted(int row, const QPoint &globalPos);
    void propertiesKey();

protected:
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
};

// The rule list of the view type that the host selected.
class CPaneUP : public QWidget
{
    Q_OBJECT
public:
    // Context-menu commands.
    static constexpr int CommandProperties = 32772;
    static constexpr int CommandDelete = 32773;

    explicit CPaneUP(CPaneDown *paneDown, QWidget *parent = nullptr);
    ~CPaneUP() override;

    qint16 viewType() const { return m_viewType; }
    void setViewType(qint16 viewType);
    void setPaneDown(CPaneDown *paneDown) { m_paneDown = paneDown; }

    void setupForNaqc();
    void setupForWmi();
    void loadList(qint16 viewType);

    // The row that holds the selection mark, or -1.
    int selectionMark() const;
    void runCommand(int command);
    void openProperties();
    void deleteSelectedRule();

    RuleListView *ruleList() const { return m_list; }
    RuleListModel *model() const { return m_model; }
    QPlainTextEdit *description() const { return m_description; }
    QMenu *contextMenu() const { return m_menu; }

    static constexpr QRect emblemRect() { return QRect(10, 10, 35, 38); }
    void layoutControls(int width, int height);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void setupView(qint16 viewType);
    void readRules(qint16 viewType);
    void onSelectionChanged(const QItemSelection &selected, const QItemSelection &deselected);
    void onCurrentChanged(const QModelIndex &current, const QModelIndex &previous);
    void onContextMenu(int row, const QPoint &globalPos);
    void showRuleBelow(const QString &name, int ruleId);
    void clearBelow();

    CPaneDown *m_paneDown = nullptr;
    qint16 m_viewType = 0;
    RuleListModel *m_model = nullptr;
    RuleListView *m_list = nullptr;
    QPlainTextEdit *m_description = nullptr;
    QFrame *m_hiddenFrame = nullptr;
    QMenu *m_menu = nullptr;
    QPixmap m_emblem;
    qint16 m_emblemView = 0;
    // A selection change and the move of the current row that comes with it arrive as two
    // signals; only a move of the current row on its own counts as a focus-only change.
    QPersistentModelIndex m_currentAtSelection;
    bool m_selectionPending = false;
};

} // namespace qarvo
