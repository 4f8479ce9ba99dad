#include "control/settings.h"

#include <QFileInfo>

namespace qarvo {

std::unique_ptr<QSettings> managerSettings()
{
    return std::make_unique<QSettings>(QSettings::SystemScope, QStringLiteral("Velmsystem"),
                                       QStringLiteral("VelmNAPManager"));
}

bool managerKeyExists()
{
    const auto settings = managerSettings();
#ifdef Q_OS_WIN
    // Opening a missing registry key leaves nothing to read and nothing to list.
    return !settings->allKeys().isEmpty() || !settings->childGroups().isEmpty();
#else
    return QFileInfo::exists(settings->fileName());
#endif
}

} // namespace qarvo
