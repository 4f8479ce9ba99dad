#pragma once

// Windows open inside the screen they are shown on: a dialog laid out for a large screen would
// otherwise open with its buttons out of reach on a small one, or at a large scale factor.

#include <QMargins>
#include <QRect>

namespace qarvo::ui {

// Where a window with the client rectangle `window` and the frame `frame` around it goes so that
// all of it lies inside `available`: as it is when it fits, otherwise shrunk and moved no more
// than needed.
QRect fittedGeometry(const QRect &window, const QMargins &frame, const QRect &available);

// Fits every top-level window of the application to its screen whenever it is shown. Installed
// once however often it is called.
void fitWindowsToScreen();

} // namespace qarvo::ui
