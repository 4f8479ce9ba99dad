#pragma once

// The one shared state of the module: the data service the host handed over last and the three
// edition values of ShowPane. Only the control's dispatch members write it; panes and sheets read.

#include "dataservice/qarvo_export.h"

#include <QString>

#include <functional>

class CqarvoCtrl;
class QWidget;

namespace qarvo {

class DataService;

class QARVO_EXPORT ModuleState
{
public:
    static const ModuleState &instance();

    DataService *dataService() const { return m_dataService; }
    const QString &edition() const { return m_edition; }
    qint32 checkUser() const { return m_checkUser; }
    qint32 licenceCount() const { return m_licenceCount; }

private:
    friend class ::CqarvoCtrl;
    static ModuleState &writable();

    DataService *m_dataService = nullptr; // not owned, never retained
    QString m_edition;
    qint32 m_checkUser = 0;
    qint32 m_licenceCount = 0;
};

inline DataService *currentDataService()
{
    return ModuleState::instance().dataService();
}

// The edition/licence check. Where it may refuse an action it is asked; a refusing check shows
// its own message. By default everything is allowed; a host can install its own.
enum class EditionAction { LoadList, Properties, ContextMenu, Delete };
using EditionCheck = std::function<bool(qint16 category, EditionAction action, QWidget *parent)>;
QARVO_EXPORT void setEditionCheck(EditionCheck check);
QARVO_EXPORT bool editionAllows(qint16 category, EditionAction action, QWidget *parent);

} // namespace qarvo
