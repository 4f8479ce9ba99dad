#include "rulestore/sqlrulestore.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUrl>
#include <QUrlQuery>

namespace qarvo {

namespace {

// Schema names end up in statements as identifiers, which cannot be bound; only plain names are
// let through.
bool isPlainIdentifier(const QString &name)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z_][A-Za-z0-9_]{0,62}$"));
    return plain.match(name).hasMatch();
}

bool parsePostgres(const QString &text, StoreLocation *loc, QString *error)
{
    const QUrl url(text, QUrl::StrictMode);
    const QString shown = StoreLocation::withoutPassword(text);
    if (!url.isValid()) {
        // Qt's reason ends with the whole source text, password and all, and a reason about the
        // password quotes one of its characters: neither is shown.
        QString reason = url.errorString().section(QLatin1Char(';'), 0, 0);
        if (reason.contains(QLatin1String("password"), Qt::CaseInsensitive))
            reason = QStringLiteral("the password holds a character that must be written as a %XX escape");
        *error = QStringLiteral("\"%1\" is not a valid PostgreSQL URL: %2.").arg(shown, reason);
        return false;
    }
    loc->kind = StoreLocation::Kind::PostgreSQL;
    loc->host = url.host();
    loc->user = url.userName();
    loc->password = url.password();
    loc->database = url.path().mid(1);
    if (loc->host.isEmpty()) {
        *error = QStringLiteral("The URL \"%1\" names no host. Use postgresql://user@host:port/database.")
                     .arg(shown);
        return false;
    }
    if (loc->database.isEmpty() || loc->database.contains(QLatin1Char('/'))) {
        *error = QStringLiteral("The URL \"%1\" names no database. Use postgresql://user@host:port/database.")
                     .arg(shown);
        return false;
    }
    if (url.port() == 0) {
        *error = QStringLiteral("The URL \"%1\" has an invalid port.").arg(shown);
        return false;
    }
    loc->port = url.port(5432);
    const QUrlQuery query(url);
    for (const auto &[key, value] : query.queryItems(QUrl::FullyDecoded)) {
        if (key != QLatin1String("schema")) {
            *error = QStringLiteral("The URL \"%1\" has an unknown option \"%2\"; only schema=NAME is understood.")
                         .arg(shown, key);
            return false;
        }
        if (!isPlainIdentifier(value)) {
            *error = QStringLiteral("\"%1\" is not a usable schema name: use letters, digits and _ only.")
                         .arg(value);
            return false;
        }
        loc->schema = value;
    }
    return true;
}

} // namespace

QString StoreLocation::displayText() const
{
    if (kind == Kind::SQLite)
        return QDir::toNativeSeparators(path);
    QString text = QStringLiteral("postgresql://");
    if (!user.isEmpty())
        text += user + QLatin1Char('@');
    text += host + QLatin1Char(':') + QString::number(port) + QLatin1Char('/') + database;
    if (!schema.isEmpty())
        text += QStringLiteral("?schema=") + schema;
    return text;
}

QString StoreLocation::withoutPassword(const QString &text)
{
    // Users type '@' and '/' into passwords without escaping them, so the user part is taken to
    // run up to the last '@': that may cut more than the password, never less.
    const qsizetype scheme = text.indexOf(QLatin1String("://"));
    const qsizetype at = text.lastIndexOf(QLatin1Char('@'));
    if (scheme < 0 || at < scheme)
        return text;
    const qsizetype colon = text.indexOf(QLatin1Char(':'), scheme + 3);
    if (colon < 0 || colon > at)
        return text;
    return text.left(colon) + text.mid(at);
}

QString StoreLocation::hidePassword(const QString &message) const
{
    if (password.isEmpty())
        return message;
    QString out = message;
    const QString encoded = QString::fromLatin1(QUrl::toPercentEncoding(password));
    for (const QString &secret : {password, encoded})
        out.replace(secret, QStringLiteral("****"));
    return out;
}

QString StoreLocation::defaultPath()
{
    QString folder = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (folder.isEmpty())
        folder = QDir::homePath() + QStringLiteral("/.qarvo");
    return folder + QStringLiteral("/rules.sqlite");
}

bool StoreLocation::parse(const QString &text, StoreLocation *location, QString *error)
{
    QString dummy;
    if (!error)
        error = &dummy;
    StoreLocation loc;
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        loc.path = defaultPath();
    } else if (trimmed.startsWith(QLatin1String("postgresql://"), Qt::CaseInsensitive)
               || trimmed.startsWith(QLatin1String("postgres://"), Qt::CaseInsensitive)) {
        if (!parsePostgres(trimmed, &loc, error))
            return false;
    } else if (trimmed.startsWith(QLatin1String("sqlite:"), Qt::CaseInsensitive)) {
        loc.path = trimmed.mid(7);
        if (loc.path.startsWith(QLatin1String("//")))
            loc.path = loc.path.mid(2); // sqlite://PATH reads as sqlite:PATH
        if (loc.path.isEmpty()) {
            *error = QStringLiteral("\"%1\" names no database file. Use sqlite:PATH.").arg(text);
            return false;
        }
    } else if (trimmed.contains(QLatin1String("://"))) {
        *error = QStringLiteral("\"%1\" is not a database this console knows. Use a file path, "
                                "sqlite:PATH or postgresql://user@host:port/database.")
                     .arg(withoutPassword(text));
        return false;
    } else {
        loc.path = trimmed;
    }
    if (loc.kind == Kind::SQLite)
        loc.path = QFileInfo(loc.path).absoluteFilePath();
    *location = loc;
    return true;
}

} // namespace qarvo
