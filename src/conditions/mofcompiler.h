#pragma once

// Turns the classes a MOF file declares into catalogue classes: inherited properties flattened
// into every class (a redeclared or overriding property replaces the inherited one and keeps what
// it does not restate), qualifiers reduced to what the catalogue holds, and every text made to fit
// the catalogue's line grammar.

#include "conditions/catalogue.h"
#include "conditions/mofreader.h"

#include <functional>

namespace qarvo::catalogue {

struct CatalogueClass
{
    QString name;
    QString nameSpace;
    QString category;    // second level of the class tree: the package path, or the one asked for
    QString description; // one line
    QList<FieldRecord> fields; // by name, as the catalogue reader gives them back
};

// A superclass the input does not declare, looked up in the catalogue being added to.
using CatalogueLookup = std::function<std::optional<ClassFields>(const QString &className)>;

struct MofCompileResult
{
    QList<CatalogueClass> classes;
    QList<MofMessage> messages;
    int ranges = 0; // value-map ranges left out

    bool ok() const;
};

// `category` is used for classes without a package path; without it they go under their schema
// name ("Win32" for Win32_Service) or, for names without one, the last part of their namespace.
MofCompileResult compileMofClasses(const QList<MofClass> &classes,
                                                const QString &category,
                                                const CatalogueLookup &existing = {});

// A description as a field's description line holds it: line breaks as CR LF, no other control
// characters, no white space around it.
QString catalogueText(QStringView text);

} // namespace qarvo::catalogue
