#pragma once

// The one shared state of the module: the data service the host handed over last and the three
// edition values of ShowPane. Only the control's dispatch members write it; panes and sheets read.

#include "control/edition.h"

#include <QString>

class CqarvoCtrl;
class QWidget;

namespace qarvo {

class DataService;

class ModuleState
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

// Asks the check a host installed (see edition.h); true when none is installed.
bool editionAllows(qint16 category, EditionAction action, QWidget *parent);

} // namespace qarvo
