#pragma once

// Reads MOF as schema authors write it: "#pragma include" and "#pragma namespace", qualifier
// declarations, classes with a superclass, qualifiers on classes and properties, arrays and
// references. Methods and instances are passed over and counted. Plain code without widgets, so
// that it can be fuzzed on its own; the catalogue builder turns what it returns into catalogue
// classes.


#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace qarvo::catalogue {

struct MofPosition
{
    QString file;
    int line = 0;
};

struct MofMessage
{
    enum class Kind { Error, Warning, Note };
    Kind kind = Kind::Error;
    MofPosition where;
    QString text;

    // "file:line: error: text", as compilers write it.
    QString toString() const;
};

struct MofQualifier
{
    QString name;
    QStringList values; // one value for a scalar; none for a bare flag such as Key
    bool isArray = false;
};

struct MofProperty
{
    QString name;
    QString type; // a data type in lower case ("uint32", "string"), or the referenced class
    bool reference = false;
    bool array = false;
    QList<MofQualifier> qualifiers;
    MofPosition where;
};

struct MofClass
{
    QString name;
    QString superclass; // empty for a class of its own
    QString nameSpace;
    QList<MofQualifier> qualifiers;
    QList<MofProperty> properties; // as declared here, without the inherited ones
    MofPosition where;
};

// The qualifier of that name (compared without regard to case, as MOF compares names), or none.
const MofQualifier *findQualifier(const QList<MofQualifier> &list, QStringView name);

// Gives the bytes of a file, or nothing with the reason in `error`.
using MofLoader = std::function<std::optional<QByteArray>(const QString &path, QString &error)>;
// Reads a regular file of at most MaxMofFileSize bytes.
std::optional<QByteArray> loadMofFile(const QString &path, QString &error);
inline constexpr qint64 MaxMofFileSize = 64 * 1024 * 1024;

struct MofReadResult
{
    QList<MofClass> classes;    // in reading order
    QList<MofMessage> messages; // warnings and notes; an error ends the reading
    int methods = 0;
    int instances = 0;

    bool ok() const;
};

// Reads the files in order, each with its includes; classes outside any "#pragma namespace" go
// into `defaultNamespace`.
MofReadResult readMof(const QStringList &files, const QString &defaultNamespace,
                                   const MofLoader &loader = loadMofFile);

} // namespace qarvo::catalogue
