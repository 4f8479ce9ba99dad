#include "naqcrule/cmsprofile.h"

#include "naqcrule/inireader.h"

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

QList<CmsScriptRow> readCmsActionSection(const IniFile &ini, const QString &section)
{
    QList<CmsScriptRow> rows;
    for (int n = 0; n < cms::MaxActionsPerSection; ++n) {
        const QString key = QString::number(n);
        const QString command = ini.value(section, key, cms::ActionBuffer);
        if (command.isEmpty())
            break;
        const QString description =
            ini.value(section, key + QStringLiteral("&Description"), cms::ActionBuffer);
        rows.append({cmsScriptToken(command), section, description});
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
