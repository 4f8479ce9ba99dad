#include "browser/panedown.h"

namespace qarvo {

CPaneDown::CPaneDown(QWidget *parent) : QWidget(parent) {}

} // namespace qarvo
