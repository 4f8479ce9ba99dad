#pragma once

// The words of a MOF file: identifiers, string and character literals (escapes resolved),
// numbers, aliases and punctuation, with the line each starts on. Comments and white space are
// passed over. Internal to the MOF reader.

#include <QString>
#include <QStringView>

#include <optional>

namespace qarvo::catalogue::mof {

struct Token
{
    enum Kind { End, Identifier, String, Char, Number, Alias, Punct, Error };
    Kind kind = End;
    QString text; // the value of a literal; the message of an Error
    int line = 1;

    bool is(char punct) const
    {
        return kind == Punct && text.size() == 1 && text[0] == QChar(punct);
    }
    // Keywords of MOF are compared without regard to case.
    bool isWord(QStringView word) const
    {
        return kind == Identifier && text.compare(word, Qt::CaseInsensitive) == 0;
    }
    // How a message names this token: 'class', a string, end of file.
    QString describe() const;
};

// Reads one token ahead of the parser; the text must outlive the lexer.
class Lexer
{
public:
    explicit Lexer(QStringView text)
        : m_text(text)
    {}

    const Token &peek();
    Token next();

private:
    Token scan();
    void skipSpaceAndComments(Token &error);
    Token scanString(QChar quote);
    bool scanEscape(QString &out);

    QStringView m_text;
    qsizetype m_pos = 0;
    int m_line = 1;
    std::optional<Token> m_peeked;
};

// The text of a MOF file from its bytes: UTF-8 or UTF-16 by their byte-order mark, otherwise
// UTF-8 when the bytes are valid UTF-8 and one character a byte when not (older vendor files).
// Bytes that no text file holds (NUL, most control characters) give nothing, with the line they
// stand on and a message.
std::optional<QString> decodeText(const QByteArray &bytes, int &badLine, QString &error);

} // namespace qarvo::catalogue::mof
