#pragma once

// The edition/licence check. The control asks it, with the category of the rules shown, before
// each action it may refuse; a check that refuses shows its own message. By default every action
// is allowed. A host installs its own before the control loads its first list.

#include <qarvo/dataservice/qarvo_export.h>

#include <QtGlobal>

#include <functional>

class QWidget;

namespace qarvo {

enum class EditionAction { LoadList, Properties, ContextMenu, Delete };
using EditionCheck = std::function<bool(qint16 category, EditionAction action, QWidget *parent)>;
// An empty check allows everything again.
QARVO_EXPORT void setEditionCheck(EditionCheck check);

} // namespace qarvo
