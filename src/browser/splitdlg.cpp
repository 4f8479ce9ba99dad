#include "browser/splitdlg.h"

#include "browser/panedown.h"
#include "browser/paneup.h"

#include <QPlainTextEdit>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace qarvo {

CMySplitterWnd::CMySplitterWnd(QWidget *parent) : QSplitter(Qt::Vertical, parent)
{
    setChildrenCollapsible(false);
    setHandleWidth(LowerPaneOffset - UpperPaneExtra);
    setOpaqueResize(true);
    connect(this, &QSplitter::splitterMoved, this, &CMySplitterWnd::onBarMoved);
}

void CMySplitterWnd::setPanes(QWidget *upper, QWidget *lower)
{
    addWidget(upper);
    addWidget(lower);
    // Growing the control gives the new room to the details; the list keeps its height.
    setStretchFactor(0, 0);
    setStretchFactor(1, 1);
    layoutRows();
}

void CMySplitterWnd::setRowHeight(int height)
{
    m_rowHeight = height;
    layoutRows();
}

bool CMySplitterWnd::rowsFit(int rowHeight, int clientHeight)
{
    return rowHeight >= MinimumRowHeight && clientHeight - rowHeight >= MinimumRowHeight;
}

int CMySplitterWnd::correctedRowHeight(int rowHeight, int clientHeight)
{
    if (rowsFit(rowHeight, clientHeight))
        return rowHeight;
    if (rowHeight < MinimumRowHeight)
        return MinimumRowHeight;
    return clientHeight - MinimumRowHeight;
}

void CMySplitterWnd::layoutRows()
{
    const int clientHeight = height();
    if (count() < 2 || clientHeight <= 0 || m_inLayout)
        return;
    m_inLayout = true;
    int row = m_rowHeight;
    if (!rowsFit(row, clientHeight)) {
        row = correctedRowHeight(row, clientHeight);
        // In an area too low for both rows the correction is only for this layout: keeping it
        // would make the next layout correct the other way, and a control that passes through a
        // small size while being placed would lose the user's row height.
        if (clientHeight >= 2 * MinimumRowHeight)
            m_rowHeight = row;
        row = qBound(0, row, clientHeight);
    }
    const int upper = row + UpperPaneExtra;
    const int lower = qMax(0, clientHeight - row - LowerPaneOffset);
    setSizes({upper, lower});
    m_inLayout = false;
}

void CMySplitterWnd::resizeEvent(QResizeEvent *event)
{
    QSplitter::resizeEvent(event);
    layoutRows();
}

void CMySplitterWnd::onBarMoved(int, int)
{
    if (m_inLayout || count() < 2)
        return;
    m_rowHeight = sizes().at(0) - UpperPaneExtra;
    layoutRows();
}

CSplitDlg::CSplitDlg(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("splitDlg"));
    m_frame = new QWidget(this);
    m_frame->setObjectName(QStringLiteral("splitFrame"));

    m_splitter = new CMySplitterWnd(m_frame);
    m_splitter->setObjectName(QStringLiteral("splitter"));
    auto *layout = new QVBoxLayout(m_frame);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_splitter);

    m_paneDown = new CPaneDown;
    m_paneUp = new CPaneUP(m_paneDown);
    m_splitter->setPanes(m_paneUp, m_paneDown);

    // Top to bottom as they are seen: the description above the rule list, the details below.
    setTabOrder(m_paneUp->description(), m_paneUp->ruleList());
    setTabOrder(m_paneUp->ruleList(), m_paneDown->detailList());
}

} // namespace qarvo
