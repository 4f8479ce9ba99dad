#pragma once

#include "dataservice/qarvo_export.h"

#include <QSplitter>
#include <QWidget>

namespace qarvo {

class CPaneUP;
class CPaneDown;

// Two rows, one column: the rule list above, the selected rule's details below.
class QARVO_EXPORT CMySplitterWnd : public QSplitter
{
    Q_OBJECT
public:
    explicit CMySplitterWnd(QWidget *parent = nullptr);
};

// The borderless child of the control that owns the frame and the splitter inside it.
class QARVO_EXPORT CSplitDlg : public QWidget
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
