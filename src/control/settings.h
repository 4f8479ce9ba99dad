#pragma once

// The manager's settings key: "Software\Velmsystem\VelmNAPManager" in the machine scope (the
// registry key itself on Windows, an INI file under the system configuration path elsewhere).

#include <QSettings>

#include <memory>

namespace qarvo {

std::unique_ptr<QSettings> managerSettings();
// The key is only ever opened, never created: it belongs to the manager's installation.
bool managerKeyExists();

} // namespace qarvo
