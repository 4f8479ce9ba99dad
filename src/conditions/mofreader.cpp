#include "conditions/mofreader.h"

#include "conditions/moflexer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>

namespace qarvo::catalogue {

using mof::Lexer;
using mof::Token;

namespace {

// Includes nest at most this deep; the chain a cycle would build is caught before that.
constexpr int MaxIncludeDepth = 64;

const QSet<QString> &dataTypes()
{
    static const QSet<QString> types{"uint8",  "sint8",  "uint16",  "sint16",   "uint32",
                                     "sint32", "uint64", "sint64",  "real32",   "real64",
                                     "char16", "string", "boolean", "datetime", "object"};
    return types;
}

// Qualifiers that schemas use without declaring them: the standard ones, and those a Windows
// repository knows on its own. Anything else must be declared in the input.
const QSet<QString> &knownQualifiers()
{
    static const QSet<QString> names = [] {
        const QString list = QStringLiteral(
            "abstract aggregate aggregation alias amendment arraytype association bitmap "
            "bitvalues cim_key cimtype classconstraint classcontext composition constructor "
            "correlatable counter create createby delete deleteby deprecated description "
            "destructor displaydescription displayname dn dynamic dynprops embeddedinstance "
            "embeddedobject exception expensive experimental fixed gauge hasclassrefs id "
            "ifdeleted implemented in indexed indication instancecontext invisible ispunit key "
            "large lazy locale mappingstrings max maxlen maxvalue methodconstraint min minlen "
            "minvalue modelcorrespondence nonlocal nonlocaltype not_null nullvalue octetstring "
            "optional out override overridevalue overridingfunction privileges propagated "
            "propertyconstraint propertycontext propertyusage provider punit read reference "
            "required revision schema singleton source sourcetype static stream structure "
            "subtype supportscreate supportsdelete supportsupdate syntax syntaxtype terminal "
            "triggertype umlpackagepath units unknownvalues unsupportedvalues uuid valuemap "
            "values version weak write writeprivileges");
        const QStringList words = list.split(u' ');
        return QSet<QString>(words.cbegin(), words.cend());
    }();
    return names;
}

// Pragmas that change nothing a catalogue holds.
const QSet<QString> &quietPragmas()
{
    static const QSet<QString> names{"locale",     "instancelocale", "source",
                                     "nonlocal",   "nonlocaltype",   "autorecover",
                                     "classflags", "instanceflags"};
    return names;
}

// "\\.\root\cimv2", "//./root/cimv2" and "root\cimv2" name the same namespace; a name that does
// not start at a root is taken below the current one.
QString resolveNamespace(const QString &current, QString given)
{
    if (std::any_of(given.cbegin(), given.cend(), [](QChar c) { return c.unicode() < 0x20; }))
        return {};
    given.replace(u'/', u'\\');
    if (given.startsWith(QLatin1String("\\\\"))) {
        const qsizetype server = given.indexOf(u'\\', 2);
        given = server < 0 ? QString() : given.mid(server + 1);
    }
    while (given.startsWith(u'\\'))
        given.remove(0, 1);
    while (given.endsWith(u'\\'))
        given.chop(1);
    if (given.isEmpty())
        return {};
    const bool rooted = given.startsWith(QLatin1String("root"), Qt::CaseInsensitive)
                        && (given.size() == 4 || given[4] == u'\\');
    return rooted ? given : current + u'\\' + given;
}

struct Source
{
    QString path;
    QString text;
    Lexer lexer;
    QString nameSpace;

    Source(QString p, QString t, QString ns)
        : path(std::move(p)),
          text(std::move(t)),
          lexer(text),
          nameSpace(std::move(ns))
    {}
};

class Reader
{
public:
    Reader(MofReadResult &result, const MofLoader &loader)
        : m_result(result),
          m_loader(loader)
    {}

    bool readFile(const QString &path, const QString &nameSpace, const MofPosition &from,
                  int depth);

private:
    bool fail(const Source &s, int line, const QString &text);
    void note(MofMessage::Kind kind, const Source &s, int line, const QString &text);
    bool lexFailed(const Source &s, const Token &t);
    bool expect(Source &s, char punct, const QString &context);
    bool expectName(Source &s, QString &name, const QString &what);

    bool production(Source &s);
    bool pragma(Source &s, int depth);
    bool qualifierDeclaration(Source &s);
    bool qualifierList(Source &s, QList<MofQualifier> &list);
    bool value(Source &s, QStringList &values);
    bool classDeclaration(Source &s, QList<MofQualifier> qualifiers, int line);
    bool feature(Source &s, MofClass &c);
    bool instance(Source &s);
    bool skipBalanced(Source &s, const QString &context);
    bool skipUntilSemicolon(Source &s, const QString &context);

    MofReadResult &m_result;
    const MofLoader &m_loader;
    QStringList m_stack;      // files being read, outermost first
    QSet<QString> m_seen;     // files read already
    QSet<QString> m_declared; // qualifiers declared in the input
    QSet<QString> m_warned;   // unknown qualifiers reported once each
};

bool Reader::fail(const Source &s, int line, const QString &text)
{
    m_result.messages.append({MofMessage::Kind::Error, {s.path, line}, text});
    return false;
}

void Reader::note(MofMessage::Kind kind, const Source &s, int line, const QString &text)
{
    m_result.messages.append({kind, {s.path, line}, text});
}

bool Reader::lexFailed(const Source &s, const Token &t)
{
    if (t.kind != Token::Error)
        return false;
    fail(s, t.line, t.text);
    return true;
}

bool Reader::expect(Source &s, char punct, const QString &context)
{
    const Token t = s.lexer.next();
    if (lexFailed(s, t))
        return false;
    if (t.is(punct))
        return true;
    return fail(
        s, t.line,
        QStringLiteral("expected '%1' %2, found %3").arg(QChar(punct), context, t.describe()));
}

bool Reader::expectName(Source &s, QString &name, const QString &what)
{
    const Token t = s.lexer.next();
    if (lexFailed(s, t))
        return false;
    if (t.kind != Token::Identifier)
        return fail(s, t.line, QStringLiteral("expected %1, found %2").arg(what, t.describe()));
    name = t.text;
    return true;
}

bool Reader::readFile(const QString &path, const QString &nameSpace, const MofPosition &from,
                      int depth)
{
    const QString key = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    auto failAt = [&](const QString &text) {
        m_result.messages.append({MofMessage::Kind::Error, from, text});
        return false;
    };
    if (m_stack.contains(key)) {
        QStringList chain;
        for (qsizetype i = m_stack.indexOf(key); i < m_stack.size(); ++i)
            chain << QFileInfo(m_stack[i]).fileName();
        chain << QFileInfo(key).fileName();
        return failAt(QStringLiteral("include cycle: %1").arg(chain.join(QLatin1String(" -> "))));
    }
    if (m_seen.contains(key)) {
        if (!from.file.isEmpty())
            m_result.messages.append(
                {MofMessage::Kind::Note, from,
                 QStringLiteral("'%1' was read already; not read again").arg(path)});
        return true;
    }
    if (depth > MaxIncludeDepth)
        return failAt(QStringLiteral("includes nested deeper than %1 files").arg(MaxIncludeDepth));

    QString error;
    const std::optional<QByteArray> bytes = m_loader(path, error);
    if (!bytes)
        return failAt(from.file.isEmpty()
                          ? error
                          : QStringLiteral("cannot include '%1': %2").arg(path, error));
    int badLine = 0;
    std::optional<QString> text = mof::decodeText(*bytes, badLine, error);
    if (!text) {
        m_result.messages.append({MofMessage::Kind::Error, {path, badLine}, error});
        return false;
    }

    m_seen.insert(key);
    m_stack.append(key);
    Source source(path, std::move(*text), nameSpace);
    bool ok = true;
    while (ok && source.lexer.peek().kind != Token::End) {
        if (source.lexer.peek().is('#'))
            ok = pragma(source, depth);
        else
            ok = production(source);
    }
    m_stack.removeLast();
    return ok;
}

bool Reader::production(Source &s)
{
    const Token &t = s.lexer.peek();
    if (lexFailed(s, t))
        return false;
    if (t.isWord(u"qualifier"))
        return qualifierDeclaration(s);
    const int line = t.line;
    QList<MofQualifier> qualifiers;
    if (t.is('[') && !qualifierList(s, qualifiers))
        return false;
    const Token &word = s.lexer.peek();
    if (lexFailed(s, word))
        return false;
    if (word.isWord(u"class"))
        return classDeclaration(s, std::move(qualifiers), line);
    if (word.isWord(u"instance"))
        return instance(s);
    return fail(s, word.line,
                QStringLiteral("expected a class, an instance, a qualifier declaration or "
                               "#pragma, found %1")
                    .arg(word.describe()));
}

bool Reader::pragma(Source &s, int depth)
{
    const int line = s.lexer.next().line; // '#'
    QString word;
    if (!expectName(s, word, QStringLiteral("'pragma' after '#'")))
        return false;
    if (word.compare(QLatin1String("pragma"), Qt::CaseInsensitive) != 0)
        return fail(s, line, QStringLiteral("expected 'pragma' after '#', found '%1'").arg(word));
    QString name;
    if (!expectName(s, name, QStringLiteral("the name of the pragma")))
        return false;
    QStringList args;
    if (s.lexer.peek().is('(')) {
        s.lexer.next();
        while (!s.lexer.peek().is(')')) {
            if (!args.isEmpty() && !expect(s, ',', QStringLiteral("between pragma arguments")))
                return false;
            if (!value(s, args))
                return false;
        }
        s.lexer.next();
    }

    const QString lower = name.toLower();
    if (lower == QLatin1String("include")) {
        if (args.size() != 1 || args[0].isEmpty())
            return fail(s, line, QStringLiteral("#pragma include takes one file name"));
        QString file = args[0];
        file.replace(u'\\', u'/');
        const QString path = QFileInfo(file).isAbsolute()
                                 ? file
                                 : QDir::cleanPath(QFileInfo(s.path).dir().filePath(file));
        return readFile(path, s.nameSpace, {s.path, line}, depth + 1);
    }
    if (lower == QLatin1String("namespace")) {
        const QString resolved =
            args.size() == 1 ? resolveNamespace(s.nameSpace, args[0]) : QString();
        if (resolved.isEmpty())
            return fail(s, line, QStringLiteral("#pragma namespace takes one namespace name"));
        s.nameSpace = resolved;
        return true;
    }
    if (!quietPragmas().contains(lower))
        note(MofMessage::Kind::Warning, s, line,
             QStringLiteral("#pragma %1 ignored: it changes nothing a catalogue holds").arg(name));
    return true;
}

bool Reader::qualifierDeclaration(Source &s)
{
    const int line = s.lexer.next().line; // 'Qualifier'
    QString name;
    if (!expectName(s, name, QStringLiteral("the name of the qualifier")))
        return false;
    if (!expect(s, ':', QStringLiteral("after the qualifier name")))
        return false;
    m_declared.insert(name.toLower());
    return skipUntilSemicolon(s, QStringLiteral("the declaration of qualifier %1 (line %2)")
                                     .arg(name, QString::number(line)));
}

bool Reader::qualifierList(Source &s, QList<MofQualifier> &list)
{
    s.lexer.next(); // '['
    for (;;) {
        MofQualifier q;
        const int line = s.lexer.peek().line;
        if (!expectName(s, q.name, QStringLiteral("a qualifier name")))
            return false;
        const Token &open = s.lexer.peek();
        if (open.is('(')) {
            s.lexer.next();
            if (!value(s, q.values)
                || !expect(s, ')', QStringLiteral("after the value of %1").arg(q.name)))
                return false;
        } else if (open.is('{')) {
            s.lexer.next();
            q.isArray = true;
            while (!s.lexer.peek().is('}')) {
                if (!q.values.isEmpty()
                    && !expect(s, ',', QStringLiteral("between the values of %1").arg(q.name)))
                    return false;
                if (!value(s, q.values))
                    return false;
            }
            s.lexer.next();
        }
        if (s.lexer.peek().is(':')) {
            // Flavors (ToSubclass, Amended, ...) decide where a qualifier travels in a
            // repository; the catalogue copies what it uses down to every subclass anyway.
            s.lexer.next();
            while (s.lexer.peek().kind == Token::Identifier)
                s.lexer.next();
        }
        const QString lower = q.name.toLower();
        if (!knownQualifiers().contains(lower) && !m_declared.contains(lower)
            && !m_warned.contains(lower)) {
            m_warned.insert(lower);
            note(MofMessage::Kind::Warning, s, line,
                 QStringLiteral("unknown qualifier '%1' (not declared) ignored").arg(q.name));
        }
        list.append(std::move(q));

        const Token t = s.lexer.next();
        if (lexFailed(s, t))
            return false;
        if (t.is(']'))
            return true;
        if (!t.is(','))
            return fail(s, t.line,
                        QStringLiteral("expected ',' or ']' in the qualifier list, found %1")
                            .arg(t.describe()));
    }
}

bool Reader::value(Source &s, QStringList &values)
{
    Token t = s.lexer.next();
    if (lexFailed(s, t))
        return false;
    if (t.kind == Token::String) {
        // Adjacent strings are one string: long descriptions are written over many lines.
        QString text = t.text;
        while (s.lexer.peek().kind == Token::String)
            text += s.lexer.next().text;
        values.append(text);
        return true;
    }
    QString sign;
    if (t.is('-') || t.is('+')) {
        sign = t.text;
        t = s.lexer.next();
        if (lexFailed(s, t))
            return false;
        if (t.kind != Token::Number)
            return fail(
                s, t.line,
                QStringLiteral("expected a number after '%1', found %2").arg(sign, t.describe()));
    }
    if (t.kind == Token::Number || t.kind == Token::Identifier || t.kind == Token::Char
        || t.kind == Token::Alias) {
        values.append(sign + t.text);
        return true;
    }
    return fail(s, t.line, QStringLiteral("expected a value, found %1").arg(t.describe()));
}

bool Reader::classDeclaration(Source &s, QList<MofQualifier> qualifiers, int line)
{
    s.lexer.next(); // 'class'
    MofClass c;
    c.qualifiers = std::move(qualifiers);
    c.nameSpace = s.nameSpace;
    c.where = {s.path, line};
    if (!expectName(s, c.name, QStringLiteral("a class name")))
        return false;
    if (s.lexer.peek().is(':')) {
        s.lexer.next();
        if (!expectName(s, c.superclass, QStringLiteral("the superclass of %1").arg(c.name)))
            return false;
    }
    if (!expect(s, '{', QStringLiteral("to open class %1").arg(c.name)))
        return false;
    for (;;) {
        const Token &t = s.lexer.peek();
        if (lexFailed(s, t))
            return false;
        if (t.is('}'))
            break;
        if (t.kind == Token::End)
            return fail(s, t.line, QStringLiteral("class %1 is not closed with '}'").arg(c.name));
        if (!feature(s, c))
            return false;
    }
    s.lexer.next();
    if (!expect(s, ';', QStringLiteral("after the '}' of class %1").arg(c.name)))
        return false;
    m_result.classes.append(std::move(c));
    return true;
}

bool Reader::feature(Source &s, MofClass &c)
{
    MofProperty p;
    if (s.lexer.peek().is('[') && !qualifierList(s, p.qualifiers))
        return false;
    p.where = {s.path, s.lexer.peek().line};
    if (!expectName(s, p.type, QStringLiteral("a property, reference or method of %1").arg(c.name)))
        return false;
    QString second;
    if (!expectName(s, second, QStringLiteral("a name after '%1'").arg(p.type)))
        return false;
    if (second.compare(QLatin1String("ref"), Qt::CaseInsensitive) == 0
        && s.lexer.peek().kind == Token::Identifier) {
        p.reference = true;
        p.name = s.lexer.next().text;
    } else {
        p.name = second;
    }

    const QString context = QStringLiteral("%1.%2").arg(c.name, p.name);
    if (!p.reference && s.lexer.peek().is('(')) {
        // Methods cannot be compared in a rule; their parameters are passed over whole.
        if (!skipBalanced(s, QStringLiteral("the parameters of %1").arg(context))
            || !expect(s, ';', QStringLiteral("after method %1").arg(context)))
            return false;
        ++m_result.methods;
        return true;
    }
    if (!p.reference && !dataTypes().contains(p.type.toLower()))
        return fail(s, p.where.line,
                    QStringLiteral("unknown data type '%1' of %2").arg(p.type, context));
    if (!p.reference)
        p.type = p.type.toLower();
    if (s.lexer.peek().is('[')) {
        s.lexer.next();
        if (s.lexer.peek().kind == Token::Number)
            s.lexer.next();
        if (!expect(s, ']', QStringLiteral("to close the array of %1").arg(context)))
            return false;
        p.array = true;
    }
    if (s.lexer.peek().is('=')) {
        if (!skipUntilSemicolon(s, QStringLiteral("the default value of %1").arg(context)))
            return false;
    } else if (!expect(s, ';', QStringLiteral("after %1").arg(context))) {
        return false;
    }
    for (const MofProperty &other : std::as_const(c.properties)) {
        if (other.name.compare(p.name, Qt::CaseInsensitive) == 0)
            return fail(s, p.where.line, QStringLiteral("%1 is declared twice").arg(context));
    }
    c.properties.append(std::move(p));
    return true;
}

bool Reader::instance(Source &s)
{
    const int line = s.lexer.next().line; // 'instance'
    QString of, className;
    if (!expectName(s, of, QStringLiteral("'of' after 'instance'")))
        return false;
    if (of.compare(QLatin1String("of"), Qt::CaseInsensitive) != 0)
        return fail(s, line, QStringLiteral("expected 'of' after 'instance', found '%1'").arg(of));
    if (!expectName(s, className, QStringLiteral("the class of the instance")))
        return false;
    if (s.lexer.peek().isWord(u"as")) {
        s.lexer.next();
        const Token alias = s.lexer.next();
        if (alias.kind != Token::Alias)
            return fail(
                s, alias.line,
                QStringLiteral("expected an alias after 'as', found %1").arg(alias.describe()));
    }
    if (!s.lexer.peek().is('{'))
        return expect(s, '{', QStringLiteral("to open the instance of %1").arg(className));
    // Instances hold data, not schema: only classes go into the catalogue.
    if (!skipBalanced(s, QStringLiteral("the instance of %1").arg(className))
        || !expect(s, ';', QStringLiteral("after the instance of %1").arg(className)))
        return false;
    ++m_result.instances;
    return true;
}

// Passes over a bracketed group from its opening bracket to the bracket that closes it.
bool Reader::skipBalanced(Source &s, const QString &context)
{
    const int line = s.lexer.peek().line;
    int depth = 0;
    do {
        const Token t = s.lexer.next();
        if (lexFailed(s, t))
            return false;
        if (t.kind == Token::End)
            return fail(s, line, QStringLiteral("%1 opened here are not closed").arg(context));
        if (t.is('(') || t.is('{') || t.is('['))
            ++depth;
        else if (t.is(')') || t.is('}') || t.is(']'))
            --depth;
    } while (depth > 0);
    return true;
}

bool Reader::skipUntilSemicolon(Source &s, const QString &context)
{
    int depth = 0;
    for (;;) {
        const Token t = s.lexer.next();
        if (lexFailed(s, t))
            return false;
        if (t.kind == Token::End)
            return fail(s, t.line, QStringLiteral("missing ';' after %1").arg(context));
        if (t.is('(') || t.is('{') || t.is('['))
            ++depth;
        else if (t.is(')') || t.is('}') || t.is(']'))
            --depth;
        else if (t.is(';') && depth <= 0)
            return true;
    }
}

} // namespace

QString MofMessage::toString() const
{
    static const char *const kinds[] = {"error", "warning", "note"};
    const QString prefix =
        where.line > 0 ? QStringLiteral("%1:%2: ").arg(where.file, QString::number(where.line))
        : where.file.isEmpty() ? QString()
                               : where.file + QStringLiteral(": ");
    return prefix + QLatin1String(kinds[int(kind)]) + QStringLiteral(": ") + text;
}

const MofQualifier *findQualifier(const QList<MofQualifier> &list, QStringView name)
{
    for (const MofQualifier &q : list) {
        if (q.name.compare(name, Qt::CaseInsensitive) == 0)
            return &q;
    }
    return nullptr;
}

std::optional<QByteArray> loadMofFile(const QString &path, QString &error)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        error = QStringLiteral("no such file");
        return std::nullopt;
    }
    if (!info.isFile()) {
        error = QStringLiteral("not a regular file");
        return std::nullopt;
    }
    if (info.size() > MaxMofFileSize) {
        error = QStringLiteral("larger than %1 MB").arg(MaxMofFileSize / (1024 * 1024));
        return std::nullopt;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = file.errorString();
        return std::nullopt;
    }
    // Read what the file holds: a read of the largest size allowed would reserve all of it.
    return file.read(std::min(file.size(), MaxMofFileSize));
}

bool MofReadResult::ok() const
{
    for (const MofMessage &m : messages) {
        if (m.kind == MofMessage::Kind::Error)
            return false;
    }
    return true;
}

MofReadResult readMof(const QStringList &files, const QString &defaultNamespace,
                      const MofLoader &loader)
{
    MofReadResult result;
    const QString nameSpace = resolveNamespace(QStringLiteral("root"), defaultNamespace);
    if (nameSpace.isEmpty()) {
        result.messages.append(
            {MofMessage::Kind::Error,
             {},
             QStringLiteral("'%1' is not a namespace name").arg(defaultNamespace)});
        return result;
    }
    Reader reader(result, loader);
    for (const QString &file : files) {
        if (!reader.readFile(file, nameSpace, {file, 0}, 0))
            break;
    }
    return result;
}

} // namespace qarvo::catalogue
