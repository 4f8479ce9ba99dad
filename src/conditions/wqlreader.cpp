#include "conditions/wqlreader.h"

#include <QRegularExpression>

namespace qarvo::wql {

namespace {

// Deep enough for any condition a person writes, shallow enough that a text of a million "("
// cannot use up the stack.
constexpr int MaxNesting = 64;
// What a message quotes of the text it complains about.
constexpr qsizetype MaxQuoted = 24;

const char *const Reserved[] = {"SELECT", "FROM", "WHERE", "AND", "OR", "NOT", "LIKE", "IS", "ISA",
                                "NULL", "TRUE", "FALSE"};

struct Token
{
    enum class Kind { End, Name, String, Number, Symbol, Bad };
    Kind kind = Kind::End;
    qsizetype pos = 0;
    QString text;      // as written; a string's value without quotes; a Bad token's message
    QStringView raw;   // the characters the token covers
    bool real = false; // a number with a fraction or an exponent
};

// ASCII blanks only: a no-break space pasted from a web page is a character WMI does not skip.
bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'\v' || c == u'\f';
}

bool isAsciiDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

bool isNameStart(QChar c)
{
    return c == u'_' || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z')
           || (c.unicode() >= 0x80 && c.isLetter());
}

bool isNamePart(QChar c)
{
    return isNameStart(c) || isAsciiDigit(c);
}

QString quoted(QStringView text)
{
    if (text.size() <= MaxQuoted)
        return u'"' + text.toString() + u'"';
    return u'"' + text.left(MaxQuoted).toString() + QStringLiteral("\u2026\"");
}

class Lexer
{
public:
    explicit Lexer(QStringView text) : m_text(text) {}

    // Every token up to the end, or up to and including the first that cannot be read.
    QList<Token> tokens()
    {
        QList<Token> out;
        for (;;) {
            Token t = next();
            out.append(t);
            if (t.kind == Token::Kind::End || t.kind == Token::Kind::Bad)
                return out;
        }
    }

private:
    QChar at(qsizetype i) const { return i < m_text.size() ? m_text[i] : QChar(); }

    Token make(Token::Kind kind, qsizetype from)
    {
        Token t;
        t.kind = kind;
        t.pos = from;
        t.raw = m_text.mid(from, m_i - from);
        t.text = t.raw.toString();
        return t;
    }

    Token bad(qsizetype pos, QString message)
    {
        Token t;
        t.kind = Token::Kind::Bad;
        t.pos = pos;
        t.text = std::move(message);
        return t;
    }

    Token next()
    {
        while (m_i < m_text.size() && isBlank(m_text[m_i]))
            ++m_i;
        const qsizetype from = m_i;
        if (m_i >= m_text.size())
            return make(Token::Kind::End, from);
        const QChar c = m_text[m_i];
        if (isNameStart(c)) {
            while (m_i < m_text.size() && isNamePart(m_text[m_i]))
                ++m_i;
            return make(Token::Kind::Name, from);
        }
        if (c == u'\'' || c == u'"')
            return string(c);
        const bool signedNumber = (c == u'+' || c == u'-')
                                  && (isAsciiDigit(at(m_i + 1))
                                      || (at(m_i + 1) == u'.' && isAsciiDigit(at(m_i + 2))));
        if (isAsciiDigit(c) || signedNumber || (c == u'.' && isAsciiDigit(at(m_i + 1))))
            return number();
        for (const char16_t *pair : {u"<=", u">=", u"<>", u"!="}) {
            if (c == pair[0] && at(m_i + 1) == pair[1]) {
                m_i += 2;
                return make(Token::Kind::Symbol, from);
            }
        }
        if (QStringView(u"*,().=<>").contains(c)) {
            ++m_i;
            return make(Token::Kind::Symbol, from);
        }
        // A character that cannot be seen is named by its code.
        const QString shown = c.isSpace() || !c.isPrint()
                                  ? QStringLiteral("U+%1").arg(c.unicode(), 4, 16, QLatin1Char('0')).toUpper()
                                  : quoted(m_text.mid(from, 1));
        return bad(from, QStringLiteral("unexpected character %1").arg(shown));
    }

    Token string(QChar quote)
    {
        const qsizetype from = m_i++;
        QString value;
        while (m_i < m_text.size()) {
            const QChar c = m_text[m_i];
            if (c == quote) {
                ++m_i;
                Token t = make(Token::Kind::String, from);
                t.text = value;
                return t;
            }
            if (c == u'\\' && m_i + 1 < m_text.size()) {
                const QChar escaped = m_text[m_i + 1];
                // A lone backslash is the classic mistake in paths: WMI refuses the whole query.
                if (escaped != u'\\' && escaped != u'\'' && escaped != u'"')
                    return bad(m_i, QStringLiteral("unknown escape %1 in a string; a backslash is "
                                                   "written \\\\")
                                        .arg(quoted(m_text.mid(m_i, 2))));
                value.append(escaped);
                m_i += 2;
                continue;
            }
            value.append(c);
            ++m_i;
        }
        return bad(from, QStringLiteral("expected %1 to close the string that starts here").arg(quote));
    }

    Token number()
    {
        const qsizetype from = m_i;
        bool real = false;
        if (m_text[m_i] == u'+' || m_text[m_i] == u'-')
            ++m_i;
        auto digits = [this](auto isDigit) {
            const qsizetype start = m_i;
            while (m_i < m_text.size() && isDigit(m_text[m_i]))
                ++m_i;
            return m_i > start;
        };
        bool ok = true;
        if (at(m_i) == u'0' && (at(m_i + 1) == u'x' || at(m_i + 1) == u'X')) {
            m_i += 2;
            ok = digits([](QChar c) { return isAsciiDigit(c) || (c >= u'a' && c <= u'f')
                                             || (c >= u'A' && c <= u'F'); });
        } else {
            digits(isAsciiDigit);
            if (at(m_i) == u'.') {
                ++m_i;
                digits(isAsciiDigit);
                real = true;
            }
            if (at(m_i) == u'e' || at(m_i) == u'E') {
                ++m_i;
                if (at(m_i) == u'+' || at(m_i) == u'-')
                    ++m_i;
                ok = digits(isAsciiDigit);
                real = true;
            }
        }
        if (!ok || isNamePart(at(m_i)) || at(m_i) == u'.') {
            while (m_i < m_text.size() && (isNamePart(m_text[m_i]) || m_text[m_i] == u'.'))
                ++m_i;
            return bad(from, QStringLiteral("%1 is not a number").arg(quoted(m_text.mid(from, m_i - from))));
        }
        Token t = make(Token::Kind::Number, from);
        t.real = real;
        return t;
    }

    QStringView m_text;
    qsizetype m_i = 0;
};

bool isReserved(QStringView word)
{
    for (const char *r : Reserved) {
        if (word.compare(QLatin1String(r), Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

QString describe(const Token &t)
{
    switch (t.kind) {
    case Token::Kind::End:
        return QStringLiteral("the end of the query");
    case Token::Kind::Name:
        return isReserved(t.raw) ? t.raw.toString().toUpper() : quoted(t.raw);
    default:
        return quoted(t.raw);
    }
}

// The set "[...]" of a LIKE pattern that is never closed, as an index into the pattern, or -1.
qsizetype unclosedSet(QStringView pattern)
{
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != u'[')
            continue;
        qsizetype j = i + 1;
        if (j < pattern.size() && pattern[j] == u'^')
            ++j;
        // The first character of a set may itself be "]".
        const qsizetype close = pattern.indexOf(u']', j + 1);
        if (close < 0 || j >= pattern.size())
            return i;
        i = close;
    }
    return -1;
}

class Parser
{
public:
    explicit Parser(QStringView text) : m_tokens(Lexer(text).tokens()) {}

    ReadResult run()
    {
        ReadResult result;
        Query query;
        if (parse(query))
            result.query = std::move(query);
        else
            result.error = m_error;
        return result;
    }

private:
    const Token &peek() const { return m_tokens[m_at]; }
    void advance()
    {
        if (m_at + 1 < m_tokens.size())
            ++m_at;
    }

    bool keyword(const char *word) const
    {
        return peek().kind == Token::Kind::Name
               && peek().raw.compare(QLatin1String(word), Qt::CaseInsensitive) == 0;
    }
    bool symbol(const char16_t *s) const
    {
        return peek().kind == Token::Kind::Symbol && peek().raw == QStringView(s);
    }
    bool plainName() const { return peek().kind == Token::Kind::Name && !isReserved(peek().raw); }

    bool fail(const QString &expected, const QString &why = {})
    {
        const Token &t = peek();
        m_error.pos = t.pos;
        if (t.kind == Token::Kind::Bad)
            m_error.message = t.text;
        else
            m_error.message = QStringLiteral("expected %1, found %2%3").arg(expected, describe(t), why);
        return false;
    }

    Name takeName()
    {
        Name n{peek().text, peek().pos};
        advance();
        return n;
    }

    bool parse(Query &q)
    {
        if (!keyword("SELECT"))
            return fail(QStringLiteral("SELECT"));
        advance();
        if (symbol(u"*")) {
            q.allProperties = true;
            advance();
        } else {
            if (!plainName())
                return fail(QStringLiteral("\"*\" or a property name"));
            q.select.append(takeName());
            while (symbol(u",")) {
                advance();
                if (!plainName())
                    return fail(QStringLiteral("a property name"));
                q.select.append(takeName());
            }
        }
        if (!keyword("FROM"))
            return fail(q.allProperties ? QStringLiteral("FROM") : QStringLiteral("\",\" or FROM"));
        advance();
        if (!plainName())
            return fail(QStringLiteral("a class name"));
        q.className = takeName();
        if (keyword("WHERE")) {
            advance();
            if (!condition(q, 0))
                return false;
            if (peek().kind != Token::Kind::End)
                return fail(QStringLiteral("AND, OR or the end of the query"));
            return true;
        }
        if (peek().kind != Token::Kind::End)
            return fail(QStringLiteral("WHERE or the end of the query"));
        return true;
    }

    // AND binds closer than OR, but only the tests themselves are kept, so one loop reads both.
    bool condition(Query &q, int depth)
    {
        if (!factor(q, depth))
            return false;
        while (keyword("AND") || keyword("OR")) {
            advance();
            if (!factor(q, depth))
                return false;
        }
        return true;
    }

    bool factor(Query &q, int depth)
    {
        if (depth >= MaxNesting) {
            m_error = {peek().pos, QStringLiteral("the condition is nested too deeply")};
            return false;
        }
        if (keyword("NOT")) {
            advance();
            return factor(q, depth + 1);
        }
        if (symbol(u"(")) {
            advance();
            if (!condition(q, depth + 1))
                return false;
            if (!symbol(u")"))
                return fail(QStringLiteral("AND, OR or \")\""));
            advance();
            return true;
        }
        return comparison(q);
    }

    bool isComparisonSymbol() const
    {
        for (const char16_t *s : {u"=", u"<>", u"!=", u"<", u">", u"<=", u">="}) {
            if (symbol(s))
                return true;
        }
        return false;
    }

    bool isLiteral() const
    {
        const Token &t = peek();
        return t.kind == Token::Kind::String || t.kind == Token::Kind::Number || keyword("TRUE")
               || keyword("FALSE") || keyword("NULL");
    }

    Literal takeLiteral()
    {
        const Token &t = peek();
        Literal l;
        l.pos = t.pos;
        l.value = t.text;
        if (t.kind == Token::Kind::String)
            l.kind = Literal::Kind::String;
        else if (t.kind == Token::Kind::Number)
            l.kind = t.real ? Literal::Kind::Real : Literal::Kind::Integer;
        else if (keyword("NULL"))
            l.kind = Literal::Kind::Null;
        else
            l.kind = Literal::Kind::Boolean;
        advance();
        return l;
    }

    bool property(Name &name)
    {
        name = takeName();
        while (symbol(u".")) {
            advance();
            if (!plainName())
                return fail(QStringLiteral("a property name after \".\""));
            name.text += u'.' + takeName().text;
        }
        return true;
    }

    // A comparison has a property on one side and a value on the other.
    bool value(Comparison &c)
    {
        if (plainName())
            return fail(QStringLiteral("a value"), QStringLiteral(": a property is compared with a value, "
                                                                  "not with another property"));
        if (!isLiteral())
            return fail(QStringLiteral("a value"));
        c.value = takeLiteral();
        return true;
    }

    bool comparison(Query &q)
    {
        Comparison c;
        if (isLiteral()) {
            c.value = takeLiteral();
            if (!isComparisonSymbol())
                return fail(QStringLiteral("=, <>, <, >, <= or >="));
            c.op = peek().text;
            advance();
            if (!plainName())
                return fail(QStringLiteral("a property name"));
            if (!property(c.property))
                return false;
            q.where.append(std::move(c));
            return true;
        }
        if (!plainName())
            return fail(QStringLiteral("a property, a value, NOT or \"(\""));
        if (!property(c.property))
            return false;

        if (isComparisonSymbol()) {
            c.op = peek().text;
            advance();
            if (!value(c))
                return false;
        } else if (keyword("LIKE") || keyword("NOT")) {
            c.op = keyword("NOT") ? QStringLiteral("NOT LIKE") : QStringLiteral("LIKE");
            if (keyword("NOT")) {
                advance();
                if (!keyword("LIKE"))
                    return fail(QStringLiteral("LIKE"));
            }
            advance();
            if (peek().kind != Token::Kind::String)
                return fail(QStringLiteral("a quoted pattern"));
            const qsizetype set = unclosedSet(peek().text);
            if (set >= 0) {
                m_error = {peek().pos, QStringLiteral("expected \"]\" to close the \"[\" set of the "
                                                      "LIKE pattern")};
                return false;
            }
            c.value = takeLiteral();
        } else if (keyword("IS")) {
            advance();
            c.op = QStringLiteral("IS NULL");
            if (keyword("NOT")) {
                advance();
                c.op = QStringLiteral("IS NOT NULL");
                if (!keyword("NULL"))
                    return fail(QStringLiteral("NULL"));
            } else if (!keyword("NULL")) {
                return fail(QStringLiteral("NULL or NOT NULL"));
            }
            advance();
        } else if (keyword("ISA")) {
            c.op = QStringLiteral("ISA");
            advance();
            if (peek().kind != Token::Kind::String)
                return fail(QStringLiteral("a quoted class name"));
            c.value = takeLiteral();
        } else {
            return fail(QStringLiteral("=, <>, <, >, <=, >=, LIKE, IS or ISA"));
        }
        q.where.append(std::move(c));
        return true;
    }

    QList<Token> m_tokens;
    qsizetype m_at = 0;
    ReadError m_error;
};

} // namespace

ReadResult readQuery(QStringView text)
{
    return Parser(text).run();
}

bool isDateTimeText(QStringView text)
{
    // DMTF: every digit may be "*" for a field left open.
    static const QRegularExpression dmtf(QStringLiteral(
        R"(^[\d*]{4}([\d*]{2})([\d*]{2})[\d*]{6}\.[\d*]{6}([+-][\d*]{3}|:000)$)"));
    static const QRegularExpression written(QStringLiteral(
        R"(^(?:(\d{4})-(\d{1,2})-(\d{1,2})|(\d{1,2})/(\d{1,2})/(\d{4}))(?:[ T]\d{1,2}:\d{2}(?::\d{2}(?:\.\d+)?)?)?$)"));
    auto inRange = [](QStringView digits, int low, int high) {
        bool ok = false;
        const int v = digits.toInt(&ok);
        return !ok || (v >= low && v <= high); // "**" is open and always fits
    };
    if (const auto m = dmtf.match(text); m.hasMatch()) {
        if (m.capturedView(3) == u":000")
            return true; // an interval counts days, not a calendar date
        return inRange(m.capturedView(1), 1, 12) && inRange(m.capturedView(2), 1, 31);
    }
    if (const auto m = written.match(text); m.hasMatch()) {
        const bool iso = m.capturedLength(1) > 0;
        return inRange(m.capturedView(iso ? 2 : 4), 1, 12) && inRange(m.capturedView(iso ? 3 : 5), 1, 31);
    }
    return false;
}

} // namespace qarvo::wql
