#pragma once

#include <QSplitter>
#include <QWidget>

namespace qarvo {

class CPaneUP;
class CPaneDown;

// Two rows, one column: the rule list above, the selected rule's details below. Row 0 keeps the
// height the user gave it when the control is resized; neither row gets lower than 100 pixels.
class CMySplitterWnd : public QSplitter
{
    Q_OBJECT
public:
    static constexpr int InitialRowHeight = 300;
    static constexpr int MinimumRowHeight = 100;
    // The upper pane reaches 3 pixels below its row, the lower one starts 9 pixels below it;
    // what lies between is the bar.
    static constexpr int UpperPaneExtra = 3;
    static constexpr int LowerPaneOffset = 9;

    explicit CMySplitterWnd(QWidget *parent = nullptr);

    void setPanes(QWidget *upper, QWidget *lower);

    // Height of row 0 as the user set it (or as the last correction left it).
    int rowHeight() const { return m_rowHeight; }
    void setRowHeight(int height);

    // Row 0 for a client of `clientHeight` pixels: unchanged when both rows keep their minimum,
    // otherwise corrected once. An area too low for both minimums gets that one correction and
    // no more.
    static int correctedRowHeight(int rowHeight, int clientHeight);
    static bool rowsFit(int rowHeight, int clientHeight);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void layoutRows();
    void onBarMoved(int pos, int index);

    int m_rowHeight = InitialRowHeight;
    bool m_inLayout = false;
};

// The borderless child of the control that owns the frame and the splitter inside it.
class CSplitDlg : public QWidget
{
    Q_OBJECT
public:
    explicit CSplitDlg(QWidget *parent = nullptr);

    QWidget *frame() const { return m_frame; }
    CMySplitterWnd *splitter() const { return m_splitter; }
    CPaneUP *paneUp() const { return m_paneUp; }
    CPaneDown *paneDown() const { return m_paneDown; }

private:
    QWidget *m_frame = nullptr;
    CMySplitterWnd *m_splitter = nullptr;
    CPaneUP *m_paneUp = nullptr;
    CPaneDown *m_paneDown = nullptr;
};

} // namespace qarvo
