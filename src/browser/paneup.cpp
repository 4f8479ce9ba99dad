#include "browser/paneup.h"

namespace qarvo {

CPaneUP::CPaneUP(CPaneDown *paneDown, QWidget *parent) : QWidget(parent), m_paneDown(paneDown) {}

void CPaneUP::setupForNaqc() {}
void CPaneUP::setupForWmi() {}
void CPaneUP::loadList(qint16 viewType) { m_viewType = viewType; }

} // namespace qarvo
