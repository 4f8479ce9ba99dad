#include "control/modulestate.h"

namespace qarvo {

ModuleState &ModuleState::writable()
{
    static ModuleState state;
    return state;
}

const ModuleState &ModuleState::instance()
{
    return writable();
}

namespace {
EditionCheck &editionCheck()
{
    static EditionCheck check;
    return check;
}
} // namespace

void setEditionCheck(EditionCheck check)
{
    editionCheck() = std::move(check);
}

bool editionAllows(qint16 category, EditionAction action, QWidget *parent)
{
    return !editionCheck() || editionCheck()(category, action, parent);
}

} // namespace qarvo
