#pragma once

// Writes catalogue classes into a catalogue folder in the line grammar the catalogue reader reads:
// each class into class.dat under its namespace and category, and as a block into the field file
// its name's prefix selects. A class that is there already is replaced where it stands; anything
// else in the files stays byte for byte, so adding the same classes twice changes nothing.

#include "conditions/mofcompiler.h"

#include <QByteArray>
#include <QMap>

namespace qarvo::catalogue {

// The first level of the class tree for a namespace. It is never a namespace line of a field
// file, which a category's own lookup would otherwise take for a class.
QString namespaceCategory(const QString &nameSpace);

// The inverse of unescapeDescription() for texts catalogueText() has made.
QString escapeDescription(QStringView text);
QByteArray fieldLine(const FieldRecord &field);

class CatalogueFolder
{
public:
    struct Counts
    {
        int added = 0;
        int replaced = 0;
        int unchanged = 0;
    };

    // Files larger than this are refused, as the catalogue reader refuses them.
    static constexpr qint64 MaxFileSize = 256 * 1024 * 1024;

    // Reads what the folder holds; a missing folder or file is an empty one.
    bool load(const QString &directory, QString &error);
    std::optional<ClassFields> findClass(const QString &className) const;
    Counts merge(const QList<CatalogueClass> &classes);
    // The contents of "class.dat" or of a field file (as FieldFileFor() names it).
    QByteArray contents(const QString &relativeName) const { return m_current.value(relativeName); }
    // Writes the files that changed, each through a temporary file renamed into place once all
    // are written; the field files go first, so class.dat never lists a class whose block is not
    // there yet.
    bool save(QStringList &written, QString &error) const;

private:
    QString m_directory;
    QMap<QString, QByteArray> m_original;
    QMap<QString, QByteArray> m_current;
};

} // namespace qarvo::catalogue
