// Feeds arbitrary bytes to the profile reader the way an imported file reaches it, and checks
// the limits every read must keep.

#include "naqcrule/cmsprofile.h"
#include "naqcrule/inireader.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace qarvo;
    const IniFile ini = IniFile::fromBytes(
        QByteArrayView(reinterpret_cast<const char *>(data), qsizetype(size)), cmsEntries());
    const auto profile = readCmsProfile(ini);
    if (!profile)
        return 0;
    if (profile->serviceName.isEmpty() || profile->serviceName.size() >= cms::ServiceNameBuffer)
        std::abort();
    if (profile->rows.size() > cms::MaxActionsPerSection * cmsActionSections().size())
        std::abort();
    for (const CmsScriptRow &row : profile->rows) {
        if (row.scriptFile.size() >= cms::ActionBuffer || row.comment.size() >= cms::ActionBuffer
            || !cmsActionSections().contains(row.actionType))
            std::abort();
    }
    return 0;
}
