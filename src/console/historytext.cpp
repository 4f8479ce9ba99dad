#include "console/historytext.h"

#include "dataservice/calls.h"

#include <QDateTime>

namespace qarvo::console {

namespace {

QString links(const QList<RuleSnapshot::Link> &list)
{
    QStringList out;
    for (const RuleSnapshot::Link &l : list)
        out << QStringLiteral("\"%1\" (%2)").arg(l.name, categoryText(l.category));
    return out.isEmpty() ? QStringLiteral("none") : out.join(QLatin1String(", "));
}

QString conjunction(qint16 code)
{
    return code == 1 ? QStringLiteral("AND") : code == 2 ? QStringLiteral("OR") : QStringLiteral("EQ");
}

} // namespace

QString categoryText(qint16 category)
{
    return category == category::NAQC ? QStringLiteral("NAQC") : QStringLiteral("WMI");
}

QString historyTime(const HistoryEntry &entry)
{
    return QDateTime::fromMSecsSinceEpoch(entry.timeMs).toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QStringList historyFields(const HistoryEntry &entry)
{
    return {historyTime(entry), categoryText(entry.category), ruleIdText(entry.ruleId), entry.ruleName,
            historyEventText(entry)};
}

QString historyLine(const HistoryEntry &entry)
{
    QStringList fields = historyFields(entry);
    for (QString &f : fields) {
        for (QChar &c : f) {
            if (c == u'\t' || c == u'\n' || c == u'\r')
                c = u' ';
        }
    }
    return fields.join(u'\t');
}

QString ruleText(const RuleSnapshot &rule)
{
    QStringList lines;
    const bool naqc = rule.category == category::NAQC;
    const QString kind = naqc ? QStringLiteral("NAQC") : rule.wql ? QStringLiteral("WQL") : QStringLiteral("WMI");
    if (rule.hasRule)
        lines << QStringLiteral("%1 rule \"%2\", id %3").arg(kind, rule.name, ruleIdText(rule.id))
              << QStringLiteral("Comment: %1").arg(rule.comment);
    else
        lines << QStringLiteral("Rows under id %1 of a save that never stored its rule").arg(ruleIdText(rule.id));
    if (naqc) {
        if (rule.hasRule)
            lines << QStringLiteral("Service name: %1").arg(rule.serviceName)
                  << QStringLiteral("Script selection: %1").arg(rule.scriptSelection);
        lines << QStringLiteral("Script entries:");
        for (const RuleSnapshot::Script &s : rule.scripts)
            lines << QStringLiteral("  %1 %2 \u2014 %3 \u2014 %4")
                         .arg(s.selected ? QStringLiteral("[x]") : QStringLiteral("[ ]"), s.file, s.actionType, s.comment);
    } else {
        lines << QStringLiteral("Conditions:");
        for (const RuleSnapshot::Condition &c : rule.conditions)
            lines << QStringLiteral("  %1 %2 \u2014 %3 \u2014 %4 (%5) %6 %7")
                         .arg(conjunction(c.conjunction), c.nameSpace, c.classOrQuery, c.field, c.type, c.op, c.value);
    }
    lines << QStringLiteral("Uses: %1").arg(links(rule.uses)) << QStringLiteral("Used by: %1").arg(links(rule.usedBy));
    return lines.join(u'\n');
}

} // namespace qarvo::console
