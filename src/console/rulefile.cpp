#include "console/rulefile.h"

#include "dataservice/methods.h"
#include "dataservice/recordsizes.h"
#include "rulestore/storeerror.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <limits>

namespace qarvo::console {

namespace {

// --- writing: the key order is ours, not QJsonDocument's alphabetical one ---

class Writer
{
public:
    QByteArray out;

    void open(char bracket) { out += bracket; ++m_depth; m_first = true; }
    void close(char bracket)
    {
        --m_depth;
        if (!m_first)
            newline();
        out += bracket;
        m_first = false;
    }
    void key(const char *name)
    {
        item();
        out += '"';
        out += name;
        out += "\": ";
    }
    void item()
    {
        if (!m_first)
            out += ',';
        newline();
        m_first = false;
    }
    void text(const char *name, const QString &value) { key(name); out += quotedText(value); }
    void number(const char *name, qint64 value) { key(name); out += QByteArray::number(value); }

private:
    static QByteArray quotedText(const QString &value);
    void newline() { out += '\n' + QByteArray(2 * m_depth, ' '); }
    int m_depth = 0;
    bool m_first = true;
};

QByteArray Writer::quotedText(const QString &value)
{
    // QJsonDocument escapes exactly what JSON needs and writes the rest as UTF-8.
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

QString kindText(const RuleSnapshot &rule)
{
    if (rule.category == category::NAQC)
        return QStringLiteral("NAQC");
    return rule.wql ? QStringLiteral("WQL") : QStringLiteral("WMI");
}

QString categoryText(qint16 cat)
{
    return cat == category::NAQC ? QStringLiteral("NAQC") : QStringLiteral("WMI");
}

// --- reading: every value checked, every failure named by its path ---

struct Bad
{
    QString path;
    QString what;
};

[[noreturn]] void bad(const QString &path, const QString &what)
{
    throw Bad{path, what};
}

QJsonValue member(const QJsonObject &o, const QString &path, const char *name)
{
    const QJsonValue v = o.value(QLatin1String(name));
    if (v.isUndefined())
        bad(path, QStringLiteral("\"%1\" is missing").arg(QLatin1String(name)));
    return v;
}

QString join(const QString &path, const char *name)
{
    return path.isEmpty() ? QString::fromLatin1(name) : path + QLatin1Char('.') + QLatin1String(name);
}

QString text(const QJsonObject &o, const QString &path, const char *name, qsizetype recordSize)
{
    const QJsonValue v = member(o, path, name);
    const QString p = join(path, name);
    if (!v.isString())
        bad(p, QStringLiteral("expected a text"));
    const QString s = v.toString();
    if (recordSize > 0 && s.size() > store::longest(recordSize))
        bad(p, QStringLiteral("longer than %1 characters").arg(store::longest(recordSize)));
    if (const QString why = store::unstorable(s); !why.isEmpty())
        bad(p, why);
    return s;
}

qint64 integer(const QJsonObject &o, const QString &path, const char *name, qint64 min, qint64 max)
{
    const QJsonValue v = member(o, path, name);
    const QString p = join(path, name);
    const double d = v.toDouble(0.5);
    if (!v.isDouble() || d != double(qint64(d)))
        bad(p, QStringLiteral("expected a whole number"));
    if (d < double(min) || d > double(max))
        bad(p, QStringLiteral("%1 is out of range (%2 to %3)").arg(qint64(d)).arg(min).arg(max));
    return qint64(d);
}

qint16 shortValue(const QJsonObject &o, const QString &path, const char *name)
{
    return qint16(integer(o, path, name, std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max()));
}

QJsonArray array(const QJsonObject &o, const QString &path, const char *name)
{
    const QJsonValue v = member(o, path, name);
    if (!v.isArray())
        bad(join(path, name), QStringLiteral("expected a list"));
    // Condition indexes and entry numbers are 16-bit on the way into the store.
    if (v.toArray().size() > std::numeric_limits<qint16>::max())
        bad(join(path, name), QStringLiteral("more than %1 entries").arg(std::numeric_limits<qint16>::max()));
    return v.toArray();
}

QJsonObject object(const QJsonValue &v, const QString &path)
{
    if (!v.isObject())
        bad(path, QStringLiteral("expected an object"));
    return v.toObject();
}

QString at(const QString &path, qsizetype i)
{
    return QStringLiteral("%1[%2]").arg(path).arg(i);
}

qint16 categoryOf(const QString &text, const QString &path, bool withWql)
{
    if (text == QLatin1String("NAQC"))
        return category::NAQC;
    if (text == QLatin1String("WMI") || (withWql && text == QLatin1String("WQL")))
        return category::WMI;
    bad(path, withWql ? QStringLiteral("\"%1\" is not WMI, WQL or NAQC").arg(text)
                      : QStringLiteral("\"%1\" is not WMI or NAQC").arg(text));
}

RuleSnapshot readRule(const QJsonObject &o, const QString &path)
{
    RuleSnapshot rule;
    const QString kind = text(o, path, "kind", 0);
    rule.category = categoryOf(kind, join(path, "kind"), true);
    rule.wql = kind == QLatin1String("WQL") ? 1 : 0;
    rule.name = text(o, path, "name", recordsize::RuleName);
    if (rule.name.isEmpty())
        bad(join(path, "name"), QStringLiteral("a rule needs a name"));
    rule.id = int(integer(o, path, "id", 0, 999999999));
    rule.comment = text(o, path, "comment", recordsize::Comment);
    if (rule.category == category::WMI) {
        const QString p = join(path, "conditions");
        const QJsonArray conditions = array(o, path, "conditions");
        if (conditions.isEmpty())
            bad(p, QStringLiteral("a rule needs at least one condition"));
        for (qsizetype i = 0; i < conditions.size(); ++i) {
            const QString cp = at(p, i);
            const QJsonObject c = object(conditions.at(i), cp);
            RuleSnapshot::Condition cond;
            cond.index = qint16(i);
            cond.conjunction = shortValue(c, cp, "conjunction");
            cond.nameSpace = text(c, cp, "namespace", recordsize::NameSpace);
            cond.classOrQuery = text(c, cp, "class", recordsize::ClassOrQuery);
            cond.field = text(c, cp, "field", recordsize::Field);
            cond.type = text(c, cp, "type", recordsize::Type);
            cond.typeCode = shortValue(c, cp, "typeCode");
            cond.op = text(c, cp, "operator", recordsize::Operator);
            cond.operatorCode = shortValue(c, cp, "operatorCode");
            cond.value = text(c, cp, "value", recordsize::Value);
            rule.conditions.append(cond);
        }
    } else {
        rule.serviceName = text(o, path, "serviceName", recordsize::ServiceName);
        rule.scriptSelection = text(o, path, "scriptSelection", 0);
        const QString p = join(path, "scripts");
        const QJsonArray scripts = array(o, path, "scripts");
        for (qsizetype i = 0; i < scripts.size(); ++i) {
            const QString sp = at(p, i);
            const QJsonObject s = object(scripts.at(i), sp);
            rule.scripts.append({qint16(i), text(s, sp, "file", recordsize::ScriptFile),
                                 text(s, sp, "actionType", recordsize::ActionType),
                                 text(s, sp, "comment", recordsize::Comment), shortValue(s, sp, "selected")});
        }
    }
    const QString p = join(path, "uses");
    const QJsonArray uses = array(o, path, "uses");
    for (qsizetype i = 0; i < uses.size(); ++i) {
        const QString up = at(p, i);
        const QJsonObject u = object(uses.at(i), up);
        const RuleSnapshot::Link link{categoryOf(text(u, up, "category", 0), join(up, "category"), false),
                                      text(u, up, "name", recordsize::RuleName)};
        if (link.category == rule.category && link.name == rule.name)
            bad(up, QStringLiteral("a rule cannot use itself"));
        if (!rule.uses.contains(link))
            rule.uses.append(link);
    }
    return rule;
}

QString lineAndColumn(const QByteArray &bytes, qsizetype offset)
{
    const QByteArray before = bytes.left(offset);
    const qsizetype lineStart = before.lastIndexOf('\n') + 1;
    return QStringLiteral("line %1, column %2")
        .arg(before.count('\n') + 1)
        .arg(QString::fromUtf8(before.mid(lineStart)).size() + 1);
}

} // namespace

QByteArray writeRuleFile(const QList<RuleSnapshot> &rules)
{
    Writer w;
    w.open('{');
    w.text("format", QString::fromLatin1(RuleFileFormat));
    w.number("version", RuleFileVersion);
    w.key("rules");
    w.open('[');
    for (const RuleSnapshot &rule : rules) {
        if (!rule.hasRule)
            continue;
        w.item();
        w.open('{');
        w.text("kind", kindText(rule));
        w.text("name", rule.name);
        w.number("id", rule.id);
        w.text("comment", rule.comment);
        if (rule.category == category::WMI) {
            w.key("conditions");
            w.open('[');
            for (const RuleSnapshot::Condition &c : rule.conditions) {
                w.item();
                w.open('{');
                w.number("conjunction", c.conjunction);
                w.text("namespace", c.nameSpace);
                w.text("class", c.classOrQuery);
                w.text("field", c.field);
                w.text("type", c.type);
                w.number("typeCode", c.typeCode);
                w.text("operator", c.op);
                w.number("operatorCode", c.operatorCode);
                w.text("value", c.value);
                w.close('}');
            }
            w.close(']');
        } else {
            w.text("serviceName", rule.serviceName);
            w.text("scriptSelection", rule.scriptSelection);
            w.key("scripts");
            w.open('[');
            for (const RuleSnapshot::Script &s : rule.scripts) {
                w.item();
                w.open('{');
                w.text("file", s.file);
                w.text("actionType", s.actionType);
                w.text("comment", s.comment);
                w.number("selected", s.selected);
                w.close('}');
            }
            w.close(']');
        }
        w.key("uses");
        w.open('[');
        for (const RuleSnapshot::Link &l : rule.uses) {
            w.item();
            w.open('{');
            w.text("category", categoryText(l.category));
            w.text("name", l.name);
            w.close('}');
        }
        w.close(']');
        w.close('}');
    }
    w.close(']');
    w.close('}');
    w.out += '\n';
    return w.out;
}

std::optional<QList<RuleSnapshot>> readRuleFile(const QByteArray &bytes, QString *error)
{
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &parse);
    if (parse.error != QJsonParseError::NoError) {
        *error = QStringLiteral("%1: %2").arg(lineAndColumn(bytes, parse.offset), parse.errorString());
        return std::nullopt;
    }
    try {
        const QJsonObject top = object(doc.isObject() ? QJsonValue(doc.object()) : QJsonValue(), QStringLiteral("the document"));
        if (top.value(QLatin1String("format")).toString() != QLatin1String(RuleFileFormat))
            bad(QStringLiteral("format"), QStringLiteral("not a rule file (expected \"%1\")").arg(QLatin1String(RuleFileFormat)));
        const QJsonValue version = top.value(QLatin1String("version"));
        if (version.toDouble(-1) != RuleFileVersion)
            bad(QStringLiteral("version"), QStringLiteral("version %1 is not supported; this console reads version %2")
                                              .arg(version.isDouble() ? QString::number(version.toDouble())
                                                                      : QStringLiteral("(none)"))
                                              .arg(RuleFileVersion));
        const QJsonArray list = array(top, QString(), "rules");
        QList<RuleSnapshot> rules;
        QSet<std::pair<qint16, QString>> names;
        for (qsizetype i = 0; i < list.size(); ++i) {
            const QString path = at(QStringLiteral("rules"), i);
            RuleSnapshot rule = readRule(object(list.at(i), path), path);
            if (names.contains({rule.category, rule.name}))
                bad(join(path, "name"), QStringLiteral("a second rule named \"%1\"").arg(rule.name));
            names.insert({rule.category, rule.name});
            rules.append(rule);
        }
        return rules;
    } catch (const Bad &b) {
        *error = QStringLiteral("%1: %2").arg(b.path, b.what);
        return std::nullopt;
    }
}

} // namespace qarvo::console
