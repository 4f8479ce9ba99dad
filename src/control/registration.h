#pragma once

#include <qarvo/dataservice/qarvo_export.h>

#include <QtGlobal>

namespace qarvo {

inline constexpr const char *ControlClassId = "{35243C2E-BCC6-4A98-A4AD-573AAF021EB4}";
inline constexpr const char *ControlProgId = "QARVO.qarvoCtrl.1";
inline constexpr const char *PropPageProgId = "QARVO.qarvoPropPage.1";
inline constexpr const char *RegistrationValue = "qarvo";

// Self-registration: writes (or removes) the value "qarvo" holding the control's class id under
// the manager's settings key. Returns 0 on success or the failing status.
QARVO_EXPORT qint32 registerServer();
QARVO_EXPORT qint32 unregisterServer();

} // namespace qarvo
