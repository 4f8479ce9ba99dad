#include "conditions/cataloguebuild.h"

#include "conditions/cataloguewriter.h"
#include "conditions/mofcompiler.h"
#include "conditions/mofreader.h"

#include <QDir>
#include <QTextStream>

namespace qarvo::catalogue {

namespace {

bool report(const QList<MofMessage> &messages, QTextStream &err)
{
    bool ok = true;
    for (const MofMessage &m : messages) {
        err << m.toString() << '\n';
        ok = ok && m.kind != MofMessage::Kind::Error;
    }
    return ok;
}

QString count(int n, const char *one, const char *many)
{
    return QString::number(n) + u' ' + QLatin1String(n == 1 ? one : many);
}

int nothingWritten(QTextStream &err)
{
    err << "qarvo-catalogue: nothing was written\n";
    err.flush();
    return 1;
}

} // namespace

int buildCatalogue(const CatalogueBuildOptions &options, QTextStream &out, QTextStream &err)
{
    CatalogueFolder folder;
    QString error;
    if (!folder.load(options.outDir, error)) {
        err << "qarvo-catalogue: " << error << '\n';
        return nothingWritten(err);
    }

    const MofReadResult read = readMof(options.files, options.nameSpace);
    if (!report(read.messages, err))
        return nothingWritten(err);
    const MofCompileResult compiled =
        compileMofClasses(read.classes, options.category,
                          [&folder](const QString &name) { return folder.findClass(name); });
    if (!report(compiled.messages, err))
        return nothingWritten(err);

    const CatalogueFolder::Counts counts = folder.merge(compiled.classes);
    QStringList written;
    if (!folder.save(written, error)) {
        err << "qarvo-catalogue: " << error << '\n';
        return nothingWritten(err);
    }

    out << QStringLiteral("%1: %2 compiled: %3 added, %4 replaced, %5 unchanged\n")
               .arg(QDir::toNativeSeparators(options.outDir),
                    count(int(compiled.classes.size()), "class", "classes"),
                    QString::number(counts.added), QString::number(counts.replaced),
                    QString::number(counts.unchanged));
    QStringList skipped;
    if (read.methods)
        skipped << count(read.methods, "method", "methods")
                       + QStringLiteral(" (a rule compares properties only)");
    if (read.instances)
        skipped << count(read.instances, "instance", "instances")
                       + QStringLiteral(" (the catalogue holds classes)");
    if (compiled.ranges)
        skipped << count(compiled.ranges, "value-map range", "value-map ranges")
                       + QStringLiteral(" (no property holds a range as its value)");
    if (!skipped.isEmpty())
        out << "skipped " << skipped.join(QLatin1String(", ")) << '\n';
    out << (written.isEmpty()
                ? QStringLiteral("nothing changed\n")
                : QStringLiteral("written: %1\n").arg(written.join(QLatin1String(", "))));
    out.flush();
    err.flush();
    return 0;
}

} // namespace qarvo::catalogue
