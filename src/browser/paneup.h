#pragma once

#include "dataservice/qarvo_export.h"

#include <QWidget>

namespace qarvo {

class CPaneDown;

// The rule list of the view type that the host selected.
class QARVO_EXPORT CPaneUP : public QWidget
{
    Q_OBJECT
public:
    explicit CPaneUP(CPaneDown *paneDown, QWidget *parent = nullptr);

    qint16 viewType() const { return m_viewType; }
    void setViewType(qint16 viewType) { m_viewType = viewType; }
    void setupForNaqc();
    void setupForWmi();
    void loadList(qint16 viewType);

private:
    CPaneDown *m_paneDown;
    qint16 m_viewType = 0;
};

} // namespace qarvo
