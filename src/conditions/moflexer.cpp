#include "conditions/moflexer.h"

#include <QStringDecoder>

namespace qarvo::catalogue::mof {

namespace {

bool startsIdentifier(QChar c)
{
    return c.isLetter() || c == u'_' || c.unicode() >= 0x80;
}

bool continuesIdentifier(QChar c)
{
    return startsIdentifier(c) || c.isDigit();
}

bool isPunct(QChar c)
{
    return QStringView(u"{}[]();,:=#+-").contains(c);
}

// Line breaks, tabs and form feeds are all a MOF file needs; a stray Ctrl+Z at the very end is
// what old editors wrote there.
bool allowedControl(QChar c, bool atEnd)
{
    return c == u'\n' || c == u'\r' || c == u'\t' || c == u'\f' || c == u'\v'
           || (c == QChar(0x1A) && atEnd);
}

} // namespace

QString Token::describe() const
{
    switch (kind) {
    case End:
        return QStringLiteral("the end of the file");
    case String:
        return QStringLiteral("a string");
    case Char:
        return QStringLiteral("a character literal");
    case Alias:
        return QStringLiteral("'$") + text + u'\'';
    default:
        return u'\'' + text.left(40) + u'\'';
    }
}

const Token &Lexer::peek()
{
    if (!m_peeked)
        m_peeked = scan();
    return *m_peeked;
}

Token Lexer::next()
{
    if (m_peeked) {
        Token t = std::move(*m_peeked);
        m_peeked.reset();
        return t;
    }
    return scan();
}

void Lexer::skipSpaceAndComments(Token &error)
{
    while (m_pos < m_text.size()) {
        const QChar c = m_text[m_pos];
        if (c == u'\n'
            || (c == u'\r' && (m_pos + 1 >= m_text.size() || m_text[m_pos + 1] != u'\n'))) {
            ++m_line;
            ++m_pos;
        } else if (c.isSpace() || c == QChar(0x1A)) {
            ++m_pos;
        } else if (c == u'/' && m_pos + 1 < m_text.size() && m_text[m_pos + 1] == u'/') {
            while (m_pos < m_text.size() && m_text[m_pos] != u'\n' && m_text[m_pos] != u'\r')
                ++m_pos;
        } else if (c == u'/' && m_pos + 1 < m_text.size() && m_text[m_pos + 1] == u'*') {
            const int opened = m_line;
            const qsizetype close = m_text.indexOf(u"*/", m_pos + 2);
            const qsizetype end = close < 0 ? m_text.size() : close + 2;
            for (qsizetype i = m_pos; i < end; ++i) {
                if (m_text[i] == u'\n')
                    ++m_line;
            }
            m_pos = end;
            if (close < 0) {
                error = {Token::Error, QStringLiteral("a comment opened here is never closed"),
                         opened};
                return;
            }
        } else {
            return;
        }
    }
}

Token Lexer::scan()
{
    Token error;
    skipSpaceAndComments(error);
    if (error.kind == Token::Error)
        return error;
    if (m_pos >= m_text.size())
        return {Token::End, {}, m_line};

    const QChar c = m_text[m_pos];
    const qsizetype start = m_pos;
    if (startsIdentifier(c)) {
        while (m_pos < m_text.size() && continuesIdentifier(m_text[m_pos]))
            ++m_pos;
        return {Token::Identifier, m_text.mid(start, m_pos - start).toString(), m_line};
    }
    if (c.isDigit() || (c == u'.' && m_pos + 1 < m_text.size() && m_text[m_pos + 1].isDigit())) {
        // Decimal, hexadecimal, binary and real numbers: their exact value never matters here.
        while (m_pos < m_text.size()) {
            const QChar d = m_text[m_pos];
            const bool exponentSign = (d == u'+' || d == u'-') && m_pos > start
                                      && (m_text[m_pos - 1] == u'e' || m_text[m_pos - 1] == u'E');
            if (!d.isLetterOrNumber() && d != u'.' && !exponentSign)
                break;
            ++m_pos;
        }
        return {Token::Number, m_text.mid(start, m_pos - start).toString(), m_line};
    }
    if (c == u'"' || c == u'\'')
        return scanString(c);
    if (c == u'$' && m_pos + 1 < m_text.size() && startsIdentifier(m_text[m_pos + 1])) {
        ++m_pos;
        while (m_pos < m_text.size() && continuesIdentifier(m_text[m_pos]))
            ++m_pos;
        return {Token::Alias, m_text.mid(start + 1, m_pos - start - 1).toString(), m_line};
    }
    if (isPunct(c)) {
        ++m_pos;
        return {Token::Punct, QString(c), m_line};
    }
    ++m_pos;
    return {Token::Error, QStringLiteral("unexpected character '%1'").arg(c), m_line};
}

Token Lexer::scanString(QChar quote)
{
    const int line = m_line;
    ++m_pos;
    QString value;
    while (m_pos < m_text.size()) {
        const QChar c = m_text[m_pos];
        if (c == quote) {
            ++m_pos;
            if (quote == u'\'' && value.size() != 1)
                return {Token::Error, QStringLiteral("a character literal holds one character"),
                        line};
            return {quote == u'"' ? Token::String : Token::Char, value, line};
        }
        if (c == u'\n' || c == u'\r')
            break;
        ++m_pos;
        if (c == u'\\') {
            if (!scanEscape(value))
                break;
        } else {
            value.append(c);
        }
    }
    return {Token::Error,
            quote == u'"' ? QStringLiteral("a string opened here is not closed on its line")
                          : QStringLiteral("a character literal opened here is not closed"),
            line};
}

bool Lexer::scanEscape(QString &out)
{
    if (m_pos >= m_text.size() || m_text[m_pos] == u'\n' || m_text[m_pos] == u'\r')
        return false;
    const QChar e = m_text[m_pos++];
    if (const qsizetype simple = QStringView(u"btnfr").indexOf(e); simple >= 0) {
        out.append(QStringView(u"\b\t\n\f\r")[simple]);
    } else if (e == u'x' || e == u'X') {
        // Up to four hexadecimal digits give one UTF-16 unit.
        char16_t code = 0;
        int digits = 0;
        while (digits < 4 && m_pos < m_text.size()) {
            const qsizetype v = QStringView(u"0123456789abcdef").indexOf(m_text[m_pos].toLower());
            if (v < 0)
                break;
            code = char16_t(code * 16 + v);
            ++digits;
            ++m_pos;
        }
        // A lone half of a surrogate pair is no character; no file could hold it.
        out.append(!digits                    ? e
                   : QChar::isSurrogate(code) ? QChar(QChar::ReplacementCharacter)
                                              : QChar(code));
    } else {
        out.append(e); // \" \' \\ and anything else: the character itself
    }
    return true;
}

std::optional<QString> decodeText(const QByteArray &bytes, int &badLine, QString &error)
{
    QString text;
    const auto *b = reinterpret_cast<const unsigned char *>(bytes.constData());
    const qsizetype n = bytes.size();
    if (n >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == 0xFE && b[1] == 0xFF))) {
        QStringDecoder utf16(b[0] == 0xFF ? QStringDecoder::Utf16LE : QStringDecoder::Utf16BE,
                             QStringDecoder::Flag::Stateless);
        text = utf16(QByteArrayView(bytes).sliced(2));
    } else {
        const QByteArrayView body = n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF
                                        ? QByteArrayView(bytes).sliced(3)
                                        : QByteArrayView(bytes);
        QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        text = utf8(body);
        if (utf8.hasError())
            text = QString::fromLatin1(body);
    }

    int line = 1;
    for (qsizetype i = 0; i < text.size(); ++i) {
        QChar &c = text[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            ++i;
            continue;
        }
        if (c.isSurrogate())
            c = QChar::ReplacementCharacter;
        if (c == u'\n')
            ++line;
        if ((c.unicode() < 0x20 || c.unicode() == 0x7F)
            && !allowedControl(c, i + 1 == text.size())) {
            badLine = line;
            error = QStringLiteral("not a text file: it holds the control character U+%1")
                        .arg(c.unicode(), 4, 16, QLatin1Char('0'));
            return std::nullopt;
        }
    }
    return text;
}

} // namespace qarvo::catalogue::mof
