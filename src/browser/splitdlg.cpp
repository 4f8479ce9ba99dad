#include "browser/splitdlg.h"

#include "browser/panedown.h"
#include "browser/paneup.h"

#include <QVBoxLayout>

namespace qarvo {

CMySplitterWnd::CMySplitterWnd(QWidget *parent) : QSplitter(Qt::Vertical, parent) {}

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
    m_splitter->addWidget(m_paneUp);
    m_splitter->addWidget(m_paneDown);
}

} // namespace qarvo
