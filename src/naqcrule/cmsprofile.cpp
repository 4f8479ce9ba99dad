#include "naqcrule/cmsprofile.h"

#include "naqcrule/inireader.h"

#include <array>

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

QString cmsScriptToken(QStringView commandLine)
{
    const auto isSeparator = [](QChar c) { return c == u'\\' || c == u' '; };
    const qsizetype n = commandLine.size();
    qsizetype i = 0;
    for (int token = 0; token < 2; ++token) {
        while (i < n && isSeparator(commandLine[i]))
            ++i;
        if (i == n)
            return {};
        const qsizetype start = i;
        while (i < n && !isSeparator(commandLine[i]))
            ++i;
        if (token == 1)
            return commandLine.sliced(start, i - start).toString();
    }
    return {};
}

namespace {

// The keys of one action and of its description, built once and written the way the reader
// stores keys, so that looking them up costs no more than a hash probe.
struct ActionKeys
{
    QString command;
    QString description;
};

const ActionKeys *actionKeys()
{
    static const auto keys = [] {
        std::array<ActionKeys, cms::MaxActionsPerSection> k;
        for (int n = 0; n < cms::MaxActionsPerSection; ++n)
            k[n] = {QString::number(n), QString::number(n) + QStringLiteral("&description")};
        return k;
    }();
    return keys.data();
}

} // namespace

QList<CmsScriptRow> readCmsActionSection(const IniFile &ini, const QString &section)
{
    QList<CmsScriptRow> rows;
    const IniFile::Section *entries = ini.section(section);
    if (!entries)
        return rows;
    const ActionKeys *keys = actionKeys();
    for (int n = 0; n < cms::MaxActionsPerSection; ++n) {
        const QString command = entries->value(keys[n].command, cms::ActionBuffer);
        if (command.isEmpty())
            break;
        rows.append({cmsScriptToken(command), section,
                     entries->value(keys[n].description, cms::ActionBuffer)});
    }
    return rows;
}

std::optional<CmsProfile> readCmsProfile(const IniFile &ini)
{
    CmsProfile profile;
    profile.serviceName = ini.value(u"Connection Manager", u"ServiceName", cms::ServiceNameBuffer);
    if (profile.serviceName.isEmpty())
        return std::nullopt;
    for (const QString &section : cmsActionSections())
        profile.rows += readCmsActionSection(ini, section);
    return profile;
}

std::optional<CmsProfile> readCmsProfile(const QString &path)
{
    return readCmsProfile(IniFile::load(path));
}

} // namespace qarvo
