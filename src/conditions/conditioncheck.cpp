#include "conditions/conditioncheck.h"

#include "conditions/wqlreader.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace qarvo::wql {

namespace {

// ---- where a position of the query falls --------------------------------------------------------

struct Segment
{
    Part part;
    qsizetype start;  // in the query
    qsizetype length;
    qsizetype shift;  // index in the part of the segment's first character
};

struct Layout
{
    QString text;
    QList<Segment> segments;

    // A position between two parts (in a keyword the wizard adds) counts as the end of the part
    // before it, where the user would type the fix.
    std::pair<Part, qsizetype> locate(qsizetype pos) const
    {
        const Segment *at = &segments.first();
        for (const Segment &s : segments) {
            if (s.start <= pos)
                at = &s;
        }
        return {at->part, at->shift + std::clamp<qsizetype>(pos - at->start, 0, at->length)};
    }
};

// The query exactly as the wizard builds it from the editor's parts.
Layout layoutFromParts(const QString &select, const QString &from, const QString &where)
{
    Layout l;
    l.text = QStringLiteral("SELECT ");
    l.segments.append({Part::Select, l.text.size(), select.size(), 0});
    l.text += select + QStringLiteral(" FROM ");
    l.segments.append({Part::From, l.text.size(), from.size(), 0});
    l.text += from;
    qsizetype blanks = 0;
    while (blanks < where.size() && (where[blanks] == u' ' || where[blanks] == u'\t'))
        ++blanks;
    if (blanks < where.size()) {
        l.text += QStringLiteral(" WHERE ");
        l.segments.append({Part::Where, l.text.size(), where.size() - blanks, blanks});
        l.text += QStringView(where).mid(blanks);
    }
    return l;
}

Layout wholeQuery(const QString &query)
{
    return {query, {{Part::Query, 0, query.size(), 0}}};
}

// ---- names and types ----------------------------------------------------------------------------

QStringView bareName(QStringView field)
{
    return field.endsWith(u"[]") ? field.chopped(2) : field;
}

bool sameName(QStringView a, QStringView b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// System properties ("__CLASS", "__PATH", ...) belong to every class.
bool isSystemProperty(QStringView name)
{
    return name.startsWith(u"__");
}

const catalogue::FieldRecord *findField(const Schema::ClassInfo &cls, QStringView name)
{
    for (const catalogue::FieldRecord &f : cls.fields) {
        if (sameName(bareName(f.name), name))
            return &f;
    }
    return nullptr;
}

QString suggestion(const QString &name, const QStringList &candidates)
{
    const QStringList close = closestNames(name, candidates);
    if (close.isEmpty())
        return {};
    QString list = close.last();
    if (close.size() > 1)
        list = QStringList(close.mid(0, close.size() - 1)).join(QStringLiteral(", "))
               + QStringLiteral(" or ") + list;
    return QStringLiteral("; did you mean %1?").arg(list);
}

QString unknownClass(const QString &name, Schema &schema)
{
    return QStringLiteral("%1 is not a class the catalogue knows%2")
        .arg(name, suggestion(name, schema.classNames()));
}

QString noSuchProperty(const Schema::ClassInfo &cls, const QString &name)
{
    QStringList fields;
    for (const catalogue::FieldRecord &f : cls.fields)
        fields.append(bareName(f.name).toString());
    return QStringLiteral("%1 has no property %2%3").arg(cls.name, name, suggestion(name, fields));
}

enum class Family { Boolean, Text, Integer, Real, DateTime, Reference, Other };

Family familyOf(const QString &type)
{
    if (type.endsWith(QLatin1String(" Ref")))
        return Family::Reference;
    if (type == u"boolean")
        return Family::Boolean;
    if (type == u"string")
        return Family::Text;
    if (type == u"datetime")
        return Family::DateTime;
    if (type == u"real32" || type == u"real64")
        return Family::Real;
    for (const char *t : {"uint8", "sint8", "uint16", "sint16", "uint32", "sint32", "uint64", "sint64"}) {
        if (type == QLatin1String(t))
            return Family::Integer;
    }
    return Family::Other;
}

// Whether an integer literal fits the integer type, e.g. "300" does not fit uint8.
QString rangeProblem(const QString &literal, const QString &type, const QString &property)
{
    const bool isSigned = type.startsWith(u's');
    const int bits = QStringView(type).mid(4).toInt();
    const bool negative = literal.startsWith(u'-');
    QStringView digits = QStringView(literal).mid(negative || literal.startsWith(u'+') ? 1 : 0);
    bool ok = false;
    const quint64 magnitude = digits.startsWith(u"0x", Qt::CaseInsensitive)
                                  ? digits.mid(2).toULongLong(&ok, 16)
                                  : digits.toULongLong(&ok, 10);
    const quint64 most = bits == 64 ? std::numeric_limits<quint64>::max() : (quint64(1) << bits) - 1;
    const quint64 highest = isSigned ? most >> 1 : most;
    const quint64 lowest = isSigned ? highest + 1 : 0; // magnitude of the most negative value
    if (ok && (negative ? magnitude <= lowest : magnitude <= highest))
        return {};
    const QString range = isSigned ? QStringLiteral("-%1 to %2").arg(lowest).arg(highest)
                                   : QStringLiteral("0 to %1").arg(highest);
    return QStringLiteral("%1 is out of range for %2 (%3: %4)").arg(literal, property, type, range);
}

QString valueProblem(const catalogue::FieldRecord &field, const Comparison &c)
{
    const QString name = bareName(field.name).toString();
    if (field.name.endsWith(u"[]"))
        return QStringLiteral("%1 is an array, which WQL cannot test in WHERE").arg(name);
    if (c.op == u"ISA" || !c.value || c.value->kind == Literal::Kind::Null)
        return {};
    const Literal &v = *c.value;
    const Family family = familyOf(field.type);
    const bool quoted = v.kind == Literal::Kind::String;
    if (c.op.endsWith(u"LIKE"))
        return family == Family::Text ? QString()
                                      : QStringLiteral("LIKE compares text, and %1 is %2").arg(name, field.type);
    switch (family) {
    case Family::Boolean:
        if (v.kind != Literal::Kind::Boolean)
            return QStringLiteral("%1 is boolean: compare it with TRUE or FALSE").arg(name);
        break;
    case Family::Text:
        if (!quoted)
            return QStringLiteral("%1 is a string: put the value in quotes").arg(name);
        break;
    case Family::Reference:
        if (!quoted)
            return QStringLiteral("%1 is a reference: put the object path in quotes").arg(name);
        break;
    case Family::Integer:
    case Family::Real:
        if (quoted || v.kind == Literal::Kind::Boolean)
            return QStringLiteral("%1 is %2: compare it with a number, without quotes").arg(name, field.type);
        if (family == Family::Integer && v.kind == Literal::Kind::Real)
            return QStringLiteral("%1 is %2: compare it with a whole number").arg(name, field.type);
        if (family == Family::Integer)
            return rangeProblem(v.value, field.type, name);
        break;
    case Family::DateTime:
        if (!quoted || !isDateTimeText(v.value))
            return QStringLiteral("%1 is a datetime: compare it with a quoted date such as "
                                  "'20240131000000.000000+000'").arg(name);
        break;
    case Family::Other:
        break;
    }
    return {};
}

// "Root\CIMV2", "root/cimv2" and "\\.\root\cimv2" all name one namespace.
QString namespaceKey(QString ns)
{
    ns.replace(u'/', u'\\');
    if (ns.startsWith(QLatin1String("\\\\"))) {
        const qsizetype server = ns.indexOf(u'\\', 2);
        ns = server < 0 ? QString() : ns.mid(server + 1);
    }
    return ns.toCaseFolded();
}

// The test of a condition on the query's result: a count, or a field and the type it was given.
struct Tested
{
    bool count = true;
    QString field;
    QString type;
};

QList<Advice> check(const Layout &layout, const QString &nameSpace, const Tested &tested,
                    Schema &schema)
{
    const ReadResult read = readQuery(layout.text);
    if (!read.ok()) {
        const auto [part, pos] = layout.locate(read.error.pos);
        return {{part, pos, read.error.message}};
    }
    const Query &q = *read.query;
    QList<Advice> out;
    auto add = [&](qsizetype queryPos, const QString &message) {
        const auto [part, pos] = layout.locate(queryPos);
        out.append({part, pos, message});
    };

    const Schema::ClassInfo *cls = schema.isEmpty() ? nullptr : schema.findClass(q.className.text);
    if (!schema.isEmpty() && !cls)
        add(q.className.pos, unknownClass(q.className.text, schema));
    if (cls && !cls->nameSpace.isEmpty() && !nameSpace.isEmpty()
        && namespaceKey(nameSpace) != namespaceKey(cls->nameSpace))
        out.append({Part::NameSpace, -1,
                    QStringLiteral("%1 is in the namespace %2").arg(cls->name, cls->nameSpace)});
    const bool judgeFields = cls && cls->fieldsKnown;
    if (judgeFields) {
        for (const Name &n : q.select) {
            if (!isSystemProperty(n.text) && !findField(*cls, n.text))
                add(n.pos, noSuchProperty(*cls, n.text));
        }
        for (const Comparison &c : q.where) {
            // A property of an embedded object belongs to a class the catalogue cannot tell.
            if (isSystemProperty(c.property.text) || c.property.text.contains(u'.'))
                continue;
            const catalogue::FieldRecord *field = findField(*cls, c.property.text);
            const QString problem = field ? valueProblem(*field, c) : noSuchProperty(*cls, c.property.text);
            if (!problem.isEmpty())
                add(field && c.value ? c.value->pos : c.property.pos, problem);
        }
    }

    if (tested.count || tested.field.isEmpty())
        return out;
    const QStringView field = bareName(tested.field);
    if (!q.allProperties
        && std::none_of(q.select.begin(), q.select.end(), [&](const Name &n) { return sameName(n.text, field); }))
        out.append({Part::Field, -1, QStringLiteral("%1 is not in the SELECT list").arg(field)});
    if (!judgeFields || isSystemProperty(field))
        return out;
    const catalogue::FieldRecord *record = findField(*cls, field);
    if (!record) {
        out.append({Part::Field, -1, noSuchProperty(*cls, field.toString())});
    } else if (!tested.type.isEmpty() && familyOf(record->type) != Family::Reference) {
        const QString type = record->type + (record->name.endsWith(u"[]") ? QStringLiteral(" array") : QString());
        if (!sameName(type, tested.type))
            out.append({Part::FieldType, -1, QStringLiteral("%1 is %2 in the catalogue, not %3")
                                                  .arg(field, type, tested.type)});
    }
    return out;
}

int editDistance(QStringView a, QStringView b)
{
    QList<int> row(b.size() + 1);
    for (qsizetype j = 0; j <= b.size(); ++j)
        row[j] = int(j);
    for (qsizetype i = 1; i <= a.size(); ++i) {
        int diagonal = row[0];
        row[0] = int(i);
        for (qsizetype j = 1; j <= b.size(); ++j) {
            const int above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

} // namespace

// ---- schema -------------------------------------------------------------------------------------

Schema::Schema(std::optional<QString> programPath) : m_programPath(std::move(programPath)) {}

namespace {
// Read quietly: the checks run as the user types, and a missing file only means less is judged.
bool openQuietly(QFile &file)
{
    return QFileInfo(file.fileName()).isFile() && file.open(QIODevice::ReadOnly);
}
} // namespace

const QStringList &Schema::classNames()
{
    if (m_namesRead)
        return m_names;
    m_namesRead = true;
    if (m_programPath) {
        QFile file(catalogue::catalogueFilePath(*m_programPath, QStringLiteral("class.dat")));
        if (openQuietly(file))
            m_names = catalogue::readClassNames(file);
    }
    for (qsizetype i = 0; i < m_names.size(); ++i)
        m_byFoldedName.insert(m_names[i].toCaseFolded(), i); // a later duplicate does not replace
    return m_names;
}

bool Schema::isEmpty()
{
    return classNames().isEmpty();
}

const Schema::ClassInfo *Schema::findClass(const QString &name)
{
    classNames();
    const auto index = m_byFoldedName.constFind(name.toCaseFolded());
    if (index == m_byFoldedName.constEnd())
        return nullptr;
    const QString &spelled = m_names[*index];
    if (const auto known = m_classes.find(spelled); known != m_classes.end())
        return &known->second;
    ClassInfo info;
    info.name = spelled;
    QFile file(catalogue::catalogueFilePath(*m_programPath, catalogue::FieldFileFor(spelled)));
    if (openQuietly(file)) {
        catalogue::ClassFields fields = catalogue::readClassFields(file, spelled);
        info.fieldsKnown = fields.found;
        info.nameSpace = fields.nameSpace;
        info.fields = std::move(fields.fields);
    }
    return &m_classes.emplace(spelled, std::move(info)).first->second;
}

// ---- checks -------------------------------------------------------------------------------------

QString adviceText(const Advice &a)
{
    static const char *const labels[] = {"NameSpace", "SELECT", "FROM", "WHERE", "Query", "Class",
                                         "Field", "Field Type"};
    const QString label = QLatin1String(labels[int(a.part)]);
    if (a.pos < 0)
        return label + QStringLiteral(": ") + a.message;
    return QStringLiteral("%1, character %2: %3").arg(label).arg(a.pos + 1).arg(a.message);
}

QList<Advice> checkWQLCondition(const WQLCondition &c, Schema &schema)
{
    if (c.select.trimmed().isEmpty() || c.from.trimmed().isEmpty())
        return {};
    return check(layoutFromParts(c.select, c.from, c.where), c.nameSpace,
                 {c.mode != 2, c.field, c.fieldType}, schema);
}

QList<Advice> checkStoredWQL(const QString &nameSpace, const QString &query, const QString &field,
                             const QString &type, Schema &schema)
{
    const bool count = field == u"#Count";
    return check(wholeQuery(query), nameSpace, {count, count ? QString() : field, type}, schema);
}

QList<Advice> checkWMICondition(const WMICondition &c, Schema &schema)
{
    if (schema.isEmpty())
        return {};
    const Schema::ClassInfo *cls = schema.findClass(c.className);
    if (!cls)
        return {{Part::Class, -1, unknownClass(c.className, schema)}};
    const QStringView field = bareName(c.field);
    if (cls->fieldsKnown && !isSystemProperty(field) && !findField(*cls, field))
        return {{Part::Field, -1, noSuchProperty(*cls, field.toString())}};
    return {};
}

QStringList closestNames(const QString &name, const QStringList &candidates)
{
    const QString folded = name.toCaseFolded();
    const int limit = int(std::max<qsizetype>(1, folded.size() / 3));
    int best = limit + 1;
    QStringList out;
    for (const QString &candidate : candidates) {
        if (std::abs(candidate.size() - folded.size()) > limit)
            continue;
        const int d = editDistance(folded, candidate.toCaseFolded());
        if (d == 0 || d > best || out.contains(candidate))
            continue;
        if (d < best) {
            best = d;
            out.clear();
        }
        if (out.size() < 3)
            out.append(candidate);
    }
    return out;
}

} // namespace qarvo::wql
