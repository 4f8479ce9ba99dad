#include "control/registration.h"

#include "control/settings.h"
#include "dataservice/dataservice.h"

namespace qarvo {

// There is no type library or class factory to register outside the automation platform; those
// steps always succeed here and keep their failure codes for a platform that has them.
namespace {
qint32 registerTypeLibrary() { return status::Ok; }
qint32 registerClasses() { return status::Ok; }
qint32 unregisterTypeLibrary() { return status::Ok; }
qint32 unregisterClasses() { return status::Ok; }
} // namespace

qint32 registerServer()
{
    if (failed(registerTypeLibrary()))
        return status::SelfRegTypeLib;
    if (failed(registerClasses()))
        return status::SelfRegClass;
    if (!managerKeyExists())
        return status::Fail;
    const auto settings = managerSettings();
    if (!settings->isWritable())
        return status::Fail;
    settings->setValue(QLatin1String(RegistrationValue), QLatin1String(ControlClassId));
    settings->sync();
    return settings->status() == QSettings::NoError ? status::Ok : status::Fail;
}

qint32 unregisterServer()
{
    if (managerKeyExists()) {
        const auto settings = managerSettings();
        settings->remove(QLatin1String(RegistrationValue));
        settings->sync();
    }
    if (failed(unregisterTypeLibrary()))
        return status::SelfRegTypeLib;
    if (failed(unregisterClasses()))
        return status::SelfRegClass;
    return status::Ok;
}

} // namespace qarvo
