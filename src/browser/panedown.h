#pragma once

#include "dataservice/qarvo_export.h"

#include <QWidget>

namespace qarvo {

// The selected rule's conditions (WMI category) or script actions (NAQC category).
class QARVO_EXPORT CPaneDown : public QWidget
{
    Q_OBJECT
public:
    explicit CPaneDown(QWidget *parent = nullptr);

    qint16 category() const { return m_category; }
    void setCategory(qint16 category) { m_category = category; }

private:
    qint16 m_category = 0;
};

} // namespace qarvo
