#include "rulestore/rulesnapshot.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace qarvo {

namespace {

QJsonArray links(const QList<RuleSnapshot::Link> &list)
{
    QJsonArray out;
    for (const RuleSnapshot::Link &l : list)
        out.append(QJsonObject{{"category", l.category}, {"name", l.name}});
    return out;
}

// Reads one object's fields; the first problem ends the reading and names the field's path.
class Reader
{
public:
    Reader(const QJsonObject &object, QString path, QString *error)
        : m_object(object), m_path(std::move(path)), m_error(error)
    {
    }

    bool ok() const { return m_error->isEmpty(); }

    QString text(const char *key)
    {
        const QJsonValue v = m_object.value(QLatin1String(key));
        if (!v.isString())
            fail(key, "text");
        return v.toString();
    }

    qint64 number(const char *key, qint64 min, qint64 max)
    {
        const QJsonValue v = m_object.value(QLatin1String(key));
        const double d = v.toDouble();
        if (!v.isDouble() || d < double(min) || d > double(max) || d != std::trunc(d)) {
            fail(key, QStringLiteral("a whole number from %1 to %2").arg(min).arg(max).toUtf8().constData());
            return 0;
        }
        return qint64(d);
    }

    qint16 shortNumber(const char *key)
    {
        return qint16(number(key, std::numeric_limits<qint16>::min(), std::numeric_limits<qint16>::max()));
    }

    bool boolean(const char *key)
    {
        const QJsonValue v = m_object.value(QLatin1String(key));
        if (!v.isBool())
            fail(key, "true or false");
        return v.toBool();
    }

    // Calls `read` with a Reader for every object of the array `key`.
    template<typename F>
    void objects(const char *key, F read)
    {
        const QJsonValue v = m_object.value(QLatin1String(key));
        if (!v.isArray()) {
            fail(key, "a list");
            return;
        }
        const QJsonArray array = v.toArray();
        for (qsizetype i = 0; i < array.size() && ok(); ++i) {
            const QString path = QStringLiteral("%1%2[%3]").arg(prefix(), QLatin1String(key)).arg(i);
            if (!array.at(i).isObject()) {
                *m_error = QStringLiteral("%1: expected an object").arg(path);
                return;
            }
            Reader item(array.at(i).toObject(), path, m_error);
            read(item);
        }
    }

    QList<RuleSnapshot::Link> links(const char *key)
    {
        QList<RuleSnapshot::Link> out;
        objects(key, [&](Reader &r) {
            RuleSnapshot::Link l;
            l.category = r.shortNumber("category");
            l.name = r.text("name");
            out.append(l);
        });
        return out;
    }

private:
    QString prefix() const { return m_path.isEmpty() ? QString() : m_path + QLatin1Char('.'); }

    void fail(const char *key, const char *expected)
    {
        if (ok())
            *m_error = QStringLiteral("%1%2: expected %3").arg(prefix(), QLatin1String(key), QLatin1String(expected));
    }

    QJsonObject m_object;
    QString m_path;
    QString *m_error;
};

} // namespace

QByteArray toJson(const RuleSnapshot &rule)
{
    QJsonArray conditions;
    for (const RuleSnapshot::Condition &c : rule.conditions)
        conditions.append(QJsonObject{{"index", c.index}, {"conjunction", c.conjunction},
                                      {"class", c.classOrQuery}, {"field", c.field}, {"value", c.value},
                                      {"operator", c.op}, {"operatorCode", c.operatorCode},
                                      {"namespace", c.nameSpace}, {"type", c.type}, {"typeCode", c.typeCode}});
    QJsonArray scripts;
    for (const RuleSnapshot::Script &s : rule.scripts)
        scripts.append(QJsonObject{{"entry", s.entry}, {"file", s.file}, {"actionType", s.actionType},
                                   {"comment", s.comment}, {"selected", s.selected}});
    const QJsonObject object{{"category", rule.category},
                             {"id", rule.id},
                             {"hasRule", rule.hasRule},
                             {"name", rule.name},
                             {"comment", rule.comment},
                             {"wql", rule.wql},
                             {"serviceName", rule.serviceName},
                             {"scriptSelection", rule.scriptSelection},
                             {"conditions", conditions},
                             {"scripts", scripts},
                             {"uses", links(rule.uses)},
                             {"usedBy", links(rule.usedBy)}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<RuleSnapshot> ruleFromJson(const QByteArray &json, QString *error)
{
    QString dummy;
    if (!error)
        error = &dummy;
    error->clear();
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parseError);
    if (doc.isNull()) {
        *error = QStringLiteral("not JSON: %1 at byte %2").arg(parseError.errorString()).arg(parseError.offset);
        return std::nullopt;
    }
    if (!doc.isObject()) {
        *error = QStringLiteral("expected an object");
        return std::nullopt;
    }
    Reader r(doc.object(), QString(), error);
    RuleSnapshot rule;
    rule.category = r.shortNumber("category");
    rule.id = int(r.number("id", 0, 999999999));
    rule.hasRule = r.boolean("hasRule");
    rule.name = r.text("name");
    rule.comment = r.text("comment");
    rule.wql = r.shortNumber("wql");
    rule.serviceName = r.text("serviceName");
    rule.scriptSelection = r.text("scriptSelection");
    r.objects("conditions", [&](Reader &c) {
        RuleSnapshot::Condition cond;
        cond.index = c.shortNumber("index");
        cond.conjunction = c.shortNumber("conjunction");
        cond.classOrQuery = c.text("class");
        cond.field = c.text("field");
        cond.value = c.text("value");
        cond.op = c.text("operator");
        cond.operatorCode = c.shortNumber("operatorCode");
        cond.nameSpace = c.text("namespace");
        cond.type = c.text("type");
        cond.typeCode = c.shortNumber("typeCode");
        rule.conditions.append(cond);
    });
    r.objects("scripts", [&](Reader &s) {
        RuleSnapshot::Script script;
        script.entry = s.shortNumber("entry");
        script.file = s.text("file");
        script.actionType = s.text("actionType");
        script.comment = s.text("comment");
        script.selected = s.shortNumber("selected");
        rule.scripts.append(script);
    });
    rule.uses = r.links("uses");
    rule.usedBy = r.links("usedBy");
    if (!r.ok())
        return std::nullopt;
    return rule;
}

} // namespace qarvo
