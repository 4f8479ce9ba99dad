#include "naqcrule/cmsprofile.h"

#include <utility>

namespace qarvo {

const QStringList &cmsActionSections()
{
    static const QStringList sections = {
        QStringLiteral("Pre-Init Actions"),    QStringLiteral("Pre-Connect Actions"),
        QStringLiteral("Pre-Dial Actions"),    QStringLiteral("Pre-Tunnel Actions"),
        QStringLiteral("Connect Actions"),     QStringLiteral("Auto Applications"),
        QStringLiteral("Disconnect Actions"),  QStringLiteral("On-Cancel Actions"),
        QStringLiteral("On-Error Actions"),
    };
    return sections;
}

namespace {

// Where the second token of a command line stands: [begin, end), empty when there is none.
template<class Unit>
std::pair<qsizetype, qsizetype> scriptTokenSpan(const Unit *line, qsizetype n)
{
    const auto isSeparator = [](Unit c) { return c == Unit('\\') || c == Unit(' '); };
    qsizetype i = 0;
    for (int token = 0; token < 2; ++token) {
        while (i < n && isSeparator(line[i]))
            ++i;
        if (i == n)
            return {0, 0};
        const qsizetype start = i;
        while (i < n && !isSeparator(line[i]))
            ++i;
        if (token == 1)
            return {start, i};
    }
    return {0, 0};
}

} // namespace

QString cmsScriptToken(QStringView commandLine)
{
    const auto [b, e] = scriptTokenSpan(commandLine.utf16(), commandLine.size());
    return commandLine.sliced(b, e - b).toString();
}

namespace {

// The numbers of the keys in cmsEntries(): the service name in its section; an action's command
// line and its description in an action section.
constexpr int ServiceNameKey = 0;
constexpr int commandKey(int n) { return 2 * n; }
constexpr int descriptionKey(int n) { return 2 * n + 1; }

// The actions of one section: keys "0", "1", ... up to the first one missing or empty.
int actionCount(const IniFile::Section *entries)
{
    int n = 0;
    while (entries && n < cms::MaxActionsPerSection && entries->hasValue(commandKey(n)))
        ++n;
    return n;
}

} // namespace

const IniFile::Selection &cmsEntries()
{
    static const IniFile::Selection entries = [] {
        IniFile::Selection s;
        s.add(u"Connection Manager", {QStringLiteral("ServiceName")});
        QStringList keys;
        for (int n = 0; n < cms::MaxActionsPerSection; ++n)
            keys << QString::number(n) << QString::number(n) + QStringLiteral("&Description");
        for (const QString &section : cmsActionSections())
            s.add(section, keys);
        return s;
    }();
    return entries;
}

void readCmsActionSection(const IniFile &ini, const QString &section, QList<CmsScriptRow> &rows)
{
    const IniFile::Section *entries = ini.section(section);
    // Only the second token of a command line is kept, so only that is decoded.
    const auto token = [](const auto *line, qsizetype n) { return scriptTokenSpan(line, n); };
    for (int n = 0, count = actionCount(entries); n < count; ++n) {
        rows.append({entries->valuePart(commandKey(n), cms::ActionBuffer, token), section,
                     entries->value(descriptionKey(n), cms::ActionBuffer)});
    }
}

std::optional<CmsProfile> readCmsProfile(const IniFile &ini)
{
    CmsProfile profile;
    if (const IniFile::Section *manager = ini.section(u"Connection Manager"))
        profile.serviceName = manager->value(ServiceNameKey, cms::ServiceNameBuffer);
    if (profile.serviceName.isEmpty())
        return std::nullopt;
    qsizetype rows = 0;
    for (const QString &section : cmsActionSections())
        rows += actionCount(ini.section(section));
    profile.rows.reserve(rows);
    for (const QString &section : cmsActionSections())
        readCmsActionSection(ini, section, profile.rows);
    return profile;
}

std::optional<CmsProfile> readCmsProfile(const QString &path)
{
    return readCmsProfile(IniFile::load(path, cmsEntries()));
}

} // namespace qarvo
