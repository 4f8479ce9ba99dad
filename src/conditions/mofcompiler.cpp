#include "conditions/mofcompiler.h"

#include <QHash>
#include <QSet>

#include <algorithm>

namespace qarvo::catalogue {

namespace {

struct Property
{
    QString name;
    QString type;
    bool reference = false;
    bool array = false;
    std::optional<QString> description;
    std::optional<QString> units;
    std::optional<QStringList> valueMap;
    std::optional<QStringList> values;
    MofPosition where;
};

struct Resolved
{
    QList<Property> properties;
    std::optional<QString> description;
    std::optional<QString> package;
};

std::optional<QString> scalar(const QList<MofQualifier> &qualifiers, QStringView name)
{
    const MofQualifier *q = findQualifier(qualifiers, name);
    if (!q || q->values.isEmpty())
        return std::nullopt;
    return q->values.join(u' ');
}

std::optional<QStringList> list(const QList<MofQualifier> &qualifiers, QStringView name)
{
    const MofQualifier *q = findQualifier(qualifiers, name);
    return q ? std::optional<QStringList>(q->values) : std::nullopt;
}

Property declared(const MofProperty &p)
{
    Property out{p.name,
                 p.type,
                 p.reference,
                 p.array,
                 scalar(p.qualifiers, u"Description"),
                 scalar(p.qualifiers, u"Units"),
                 list(p.qualifiers, u"ValueMap"),
                 list(p.qualifiers, u"Values"),
                 p.where};
    if (!out.units)
        out.units = scalar(p.qualifiers, u"PUnit");
    return out;
}

// A class that exists only in the catalogue, taken back from its field lines.
Resolved fromCatalogue(const ClassFields &fields)
{
    Resolved r;
    r.description = fields.description;
    for (const FieldRecord &f : fields.fields) {
        Property p;
        p.array = f.name.endsWith(QLatin1String("[]"));
        p.name = p.array ? f.name.chopped(2) : f.name;
        p.reference = f.type.endsWith(QLatin1String(" Ref"));
        p.type = p.reference ? f.type.chopped(4) : f.type;
        QString description = f.description;
        p.description = description.replace(QLatin1String("\r\n"), QLatin1String("\n"));
        if (!f.valueMap.isEmpty())
            p.valueMap = valueMapChoices(f.valueMap);
        if (!f.meanings.isEmpty())
            p.values = valueMeanings(f.meanings);
        if (!f.units.isEmpty())
            p.units = unitsText(f.units);
        r.properties.append(std::move(p));
    }
    return r;
}

qsizetype indexOfProperty(const QList<Property> &list, const QString &name)
{
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (list[i].name.compare(name, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

// The class's own declarations over what it inherits.
Resolved apply(Resolved base, const MofClass &c)
{
    if (auto d = scalar(c.qualifiers, u"Description"))
        base.description = d;
    if (auto p = scalar(c.qualifiers, u"UMLPackagePath"))
        base.package = p;
    for (const MofProperty &p : c.properties) {
        Property own = declared(p);
        const MofQualifier *overrides = findQualifier(p.qualifiers, u"Override");
        qsizetype at = -1;
        if (overrides && !overrides->values.isEmpty())
            at = indexOfProperty(base.properties, overrides->values.first());
        if (at < 0)
            at = indexOfProperty(base.properties, own.name);
        if (at < 0) {
            base.properties.append(std::move(own));
            continue;
        }
        // What a redeclaration does not restate comes from the property it replaces.
        const Property &inherited = base.properties[at];
        for (auto [mine, theirs] : {std::pair{&own.description, &inherited.description},
                                    std::pair{&own.units, &inherited.units}}) {
            if (!*mine)
                *mine = *theirs;
        }
        if (!own.valueMap && !own.values) {
            own.valueMap = inherited.valueMap;
            own.values = inherited.values;
        }
        base.properties[at] = std::move(own);
    }
    return base;
}

QString oneLine(const std::optional<QString> &text)
{
    QString out = text.value_or(QString());
    for (QChar &c : out) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            c = u' ';
    }
    return out.simplified();
}

// Whether a value-map code or a unit can stand in a field line as it is: the reader takes the
// first "ValueMap{", "Units(" and " Ref " of a line wherever they are, and a code or unit is
// read without escapes.
bool holdable(const QString &text, QStringView forbidden)
{
    for (QChar c : text) {
        if (c.unicode() < 0x20 || forbidden.contains(c))
            return false;
    }
    for (QStringView sequence : {u"ValueMap{", u"Values{", u"Units(", u" Ref "}) {
        if (text.contains(sequence))
            return false;
    }
    return true;
}

// Meanings are read with escapes, so any of them can be held: what the reader would take for
// the start of a qualifier or of a reference is escaped.
QString quotedMeaning(const QString &meaning)
{
    const QString text = oneLine(meaning);
    QString out = QStringLiteral("\"");
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'\\' || c == u'"' || c == u'(' || c == u'{'
            || (c == u'R' && i > 0 && text[i - 1] == u' '
                && text.mid(i, 4) == QLatin1String("Ref ")))
            out.append(u'\\');
        out.append(c);
    }
    return out + u'"';
}

bool isRange(const QString &code)
{
    return code.contains(QLatin1String(".."));
}

class Compiler
{
public:
    Compiler(const QList<MofClass> &classes, const CatalogueLookup &existing,
             MofCompileResult &result)
        : m_classes(classes),
          m_existing(existing),
          m_result(result)
    {}

    void index();
    std::optional<Resolved> resolve(int index);
    FieldRecord record(const Property &p, const QString &className);
    QList<int> outputs() const { return m_outputs; }

private:
    int find(const QString &nameSpace, const QString &name) const;
    void warn(const MofPosition &where, const QString &text)
    {
        m_result.messages.append({MofMessage::Kind::Warning, where, text});
    }

    const QList<MofClass> &m_classes;
    const CatalogueLookup &m_existing;
    MofCompileResult &m_result;
    QHash<QString, int> m_byKey;  // namespace and name, lower case: the last definition
    QHash<QString, int> m_byName; // name, lower case: the last definition in any namespace
    QList<int> m_outputs;         // one class of each name, in reading order
    QHash<int, Resolved> m_resolved;
    QHash<QString, std::optional<Resolved>> m_fromCatalogue;
    QSet<QString> m_reported;
    QSet<int> m_failed;
};

void Compiler::index()
{
    for (int i = 0; i < m_classes.size(); ++i) {
        const MofClass &c = m_classes[i];
        const QString key = c.nameSpace.toLower() + u'\n' + c.name.toLower();
        if (const auto it = m_byKey.constFind(key); it != m_byKey.cend()) {
            m_result.messages.append(
                {MofMessage::Kind::Note, c.where,
                 QStringLiteral("%1 redefined; the definition at %2:%3 is replaced")
                     .arg(c.name, m_classes[*it].where.file,
                          QString::number(m_classes[*it].where.line))});
        }
        m_byKey.insert(key, i);
        m_byName.insert(c.name.toLower(), i);
    }
    for (int i = 0; i < m_classes.size(); ++i) {
        const MofClass &c = m_classes[i];
        if (m_byKey.value(c.nameSpace.toLower() + u'\n' + c.name.toLower()) != i)
            continue;
        if (c.name == QLatin1String("root")) {
            // Its name line could not be told from the namespace line "root" of another block.
            m_result.messages.append({MofMessage::Kind::Warning, c.where,
                                      QStringLiteral("class root left out: the catalogue cannot "
                                                     "tell its name from a namespace")});
            continue;
        }
        const int kept = m_byName.value(c.name.toLower());
        if (kept != i) {
            // The catalogue finds a class by its name alone.
            m_result.messages.append(
                {MofMessage::Kind::Note, c.where,
                 QStringLiteral("%1 of %2 left out: the catalogue holds one class of a name, and "
                                "the one of %3 comes later")
                     .arg(c.name, c.nameSpace, m_classes[kept].nameSpace)});
            continue;
        }
        m_outputs.append(i);
    }
}

int Compiler::find(const QString &nameSpace, const QString &name) const
{
    const int here = m_byKey.value(nameSpace.toLower() + u'\n' + name.toLower(), -1);
    return here >= 0 ? here : m_byName.value(name.toLower(), -1);
}

std::optional<Resolved> Compiler::resolve(int index)
{
    // Walk up to a class already resolved or to the top of the hierarchy, then come back down.
    QList<int> chain;
    Resolved base;
    int current = index;
    // Each class of a broken hierarchy is reported once, by the first class that runs into it.
    const auto broken = [this, &chain] {
        for (int c : std::as_const(chain))
            m_failed.insert(c);
        return std::nullopt;
    };
    for (;;) {
        if (m_failed.contains(current))
            return broken();
        if (const auto it = m_resolved.constFind(current); it != m_resolved.cend()) {
            base = *it;
            break;
        }
        if (chain.contains(current)) {
            QStringList names;
            for (qsizetype i = chain.indexOf(current); i < chain.size(); ++i)
                names << m_classes[chain[i]].name;
            names << m_classes[current].name;
            m_result.messages.append(
                {MofMessage::Kind::Error, m_classes[chain.last()].where,
                 QStringLiteral("superclass cycle: %1").arg(names.join(QLatin1String(" -> ")))});
            return broken();
        }
        chain.append(current);
        const MofClass &c = m_classes[current];
        if (c.superclass.isEmpty())
            break;
        const int next = find(c.nameSpace, c.superclass);
        if (next >= 0) {
            current = next;
            continue;
        }
        const QString key = c.superclass.toLower();
        if (!m_fromCatalogue.contains(key)) {
            std::optional<ClassFields> fields =
                m_existing ? m_existing(c.superclass) : std::nullopt;
            m_fromCatalogue.insert(key, fields && fields->found
                                            ? std::optional<Resolved>(fromCatalogue(*fields))
                                            : std::nullopt);
        }
        if (const std::optional<Resolved> &known = m_fromCatalogue[key]) {
            base = *known;
            break;
        }
        // System classes ("__ExtrinsicEvent") exist in every namespace and add nothing a rule
        // compares.
        if (c.superclass.startsWith(QLatin1String("__")))
            break;
        m_result.messages.append({MofMessage::Kind::Error, c.where,
                                  QStringLiteral("the superclass %1 of %2 is defined neither in "
                                                 "the input nor in the catalogue")
                                      .arg(c.superclass, c.name)});
        return broken();
    }
    for (qsizetype i = chain.size() - 1; i >= 0; --i) {
        base = apply(std::move(base), m_classes[chain[i]]);
        m_resolved.insert(chain[i], base);
    }
    return base;
}

FieldRecord Compiler::record(const Property &p, const QString &className)
{
    FieldRecord f;
    f.name = p.array ? p.name + QStringLiteral("[]") : p.name;
    f.type = p.reference ? p.type + QStringLiteral(" Ref") : p.type;
    f.description = catalogueText(p.description.value_or(QString()));
    // An inherited property comes by once in every subclass; say what it loses only once.
    const QString key = p.where.file + u':' + QString::number(p.where.line) + u':' + p.name;
    const bool report = !m_reported.contains(key);
    m_reported.insert(key);
    const QString where = className + u'.' + p.name;

    QStringList codes = p.valueMap.value_or(QStringList());
    QStringList meanings = p.values.value_or(QStringList());
    if (!p.valueMap) {
        // Values alone mean the codes 0, 1, 2, ...
        for (qsizetype i = 0; i < meanings.size(); ++i)
            codes << QString::number(i);
    } else if (!meanings.isEmpty() && meanings.size() != codes.size()) {
        if (report)
            warn(p.where,
                 QStringLiteral(
                     "ValueMap and Values of %1 differ in length; the meanings are left out")
                     .arg(where));
        meanings.clear();
    }
    QStringList keptCodes, keptMeanings;
    bool anyMeaning = false;
    for (qsizetype i = 0; i < codes.size(); ++i) {
        const QString &code = codes[i];
        if (isRange(code)) {
            // A range stands for codes reserved for later; no field ever holds it as a value.
            m_result.ranges += report ? 1 : 0;
            continue;
        }
        if (!holdable(code, u"\",}")) {
            if (report)
                warn(p.where, QStringLiteral("value-map entry \"%1\" of %2 left out: the catalogue "
                                             "cannot hold it in a value")
                                  .arg(oneLine(code), where));
            continue;
        }
        QString meaning = i < meanings.size() ? meanings[i] : QString();
        if (meaning.compare(code, Qt::CaseInsensitive) == 0)
            meaning.clear(); // "Auto" meaning "Auto" says nothing
        anyMeaning = anyMeaning || !meaning.isEmpty();
        keptCodes << u'"' + code + u'"';
        keptMeanings << quotedMeaning(meaning);
    }
    if (!keptCodes.isEmpty())
        f.valueMap = QStringLiteral("ValueMap{%1}").arg(keptCodes.join(QLatin1String(", ")));
    if (anyMeaning)
        f.meanings = QStringLiteral("Values{%1}").arg(keptMeanings.join(QLatin1String(", ")));

    // Units such as "decibel(m)" keep their sense with brackets the reader does not stop at.
    QString units = oneLine(p.units);
    units.replace(u'(', u'[').replace(u')', u']').replace(u'"', u'\'');
    if (!holdable(units, u"\")")) {
        if (report)
            warn(p.where, QStringLiteral("units \"%1\" of %2 left out: the catalogue cannot hold "
                                         "them")
                              .arg(oneLine(units), where));
    } else if (!units.isEmpty()) {
        f.units = QStringLiteral("Units(\"%1\")").arg(units);
    }
    return f;
}

QString defaultCategory(const MofClass &c, const QString &category)
{
    if (!category.isEmpty())
        return category;
    const qsizetype underscore = c.name.indexOf(u'_');
    if (underscore > 0)
        return c.name.left(underscore);
    return c.nameSpace.mid(c.nameSpace.lastIndexOf(u'\\') + 1);
}

} // namespace

bool MofCompileResult::ok() const
{
    return std::none_of(messages.cbegin(), messages.cend(),
                        [](const MofMessage &m) { return m.kind == MofMessage::Kind::Error; });
}

QString catalogueText(QStringView text)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'\r') {
            out.append(u'\n');
            if (i + 1 < text.size() && text[i + 1] == u'\n')
                ++i;
        } else if (c == u'\n' || c == u'\t') {
            out.append(c);
        } else {
            out.append(c.unicode() < 0x20 || c.unicode() == 0x7F ? QChar(u' ') : c);
        }
    }
    return out.trimmed().replace(u'\n', QLatin1String("\r\n"));
}

MofCompileResult compileMofClasses(const QList<MofClass> &classes, const QString &category,
                                   const CatalogueLookup &existing)
{
    MofCompileResult result;
    Compiler compiler(classes, existing, result);
    compiler.index();
    for (int index : compiler.outputs()) {
        const std::optional<Resolved> resolved = compiler.resolve(index);
        if (!resolved)
            continue;
        const MofClass &c = classes[index];
        CatalogueClass out;
        out.name = c.name;
        out.nameSpace = c.nameSpace;
        out.category = oneLine(resolved->package);
        if (out.category.isEmpty())
            out.category = oneLine(defaultCategory(c, category));
        out.description = oneLine(resolved->description);
        QList<Property> properties = resolved->properties;
        std::stable_sort(properties.begin(), properties.end(),
                         [](const Property &a, const Property &b) {
                             const int order = a.name.compare(b.name, Qt::CaseInsensitive);
                             return order != 0 ? order < 0 : a.name < b.name;
                         });
        for (const Property &p : std::as_const(properties))
            out.fields.append(compiler.record(p, c.name));
        result.classes.append(std::move(out));
    }
    if (!result.ok())
        result.classes.clear();
    return result;
}

} // namespace qarvo::catalogue
