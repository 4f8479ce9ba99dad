#pragma once

// One run of "qarvo-catalogue build": read the MOF files, compile their classes against the
// catalogue in the output folder and write it back, all or nothing.


#include <QString>
#include <QStringList>

class QTextStream;

namespace qarvo::catalogue {

struct CatalogueBuildOptions
{
    QString outDir;
    QStringList files;
    QString category;                                  // for classes without a package path
    QString nameSpace = QStringLiteral("root\\cimv2"); // before any "#pragma namespace"
};

// Writes warnings and errors to `err`, one a line, and what was done to `out`. Returns the exit
// status: 0 when the catalogue holds the classes, 1 when nothing was written.
int buildCatalogue(const CatalogueBuildOptions &options, QTextStream &out,
                                QTextStream &err);

} // namespace qarvo::catalogue
