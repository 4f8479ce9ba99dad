#pragma once

// Reading a Connection Manager service profile (.cms): its service name and the script actions
// listed in its nine action sections, one row per action.

#include "naqcrule/inireader.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace qarvo {

namespace cms {
// Lookup buffer sizes in characters, terminator included.
inline constexpr qsizetype ServiceNameBuffer = 256;
inline constexpr qsizetype ActionBuffer = 2048;
// Keys "0" to "99" of a section are looked at, no more.
inline constexpr int MaxActionsPerSection = 100;
} // namespace cms

struct CmsScriptRow
{
    QString scriptFile; // the second token of the action's command line
    QString actionType; // the section the action stands in
    QString comment;    // the action's description
    bool operator==(const CmsScriptRow &) const = default;
};

struct CmsProfile
{
    QString serviceName;
    QList<CmsScriptRow> rows;
};

// The action sections in the order in which their rows are listed, whatever their order in a file.
const QStringList &cmsActionSections();

// The second token of a command line split at backslashes and spaces (runs of them count as one,
// leading ones are skipped); "" when there is none. For "%PROFILEDIR%\check.cmd /q" that is the
// script behind the directory macro.
QString cmsScriptToken(QStringView commandLine);

// Appends the rows of one action section: keys "0", "1", ... up to the first one missing or empty.
void readCmsActionSection(const IniFile &ini, const QString &section,
                                       QList<CmsScriptRow> &rows);

// The entries of a profile that the reader looks at: "ServiceName" of [Connection Manager] and
// the numbered actions and their descriptions of the action sections. A file is read for these
// and nothing else.
const IniFile::Selection &cmsEntries();

// The whole profile; nothing when "ServiceName" of [Connection Manager] is missing or empty,
// which is how a file that is not a profile shows.
std::optional<CmsProfile> readCmsProfile(const IniFile &ini);
std::optional<CmsProfile> readCmsProfile(const QString &path);

} // namespace qarvo
