#pragma once

// The desktop style marks the focused control with a faint line that is easily lost, more so at a
// large scale factor; people who work by keyboard need to see at a glance where Tab has taken them.

namespace qarvo::ui {

// Draws a ring in the highlight colour around whichever control has the keyboard focus, the same
// for edits, combo boxes, lists, buttons and check boxes. Installed once however often it is called.
void showKeyboardFocus();

} // namespace qarvo::ui
