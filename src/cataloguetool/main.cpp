#include "conditions/cataloguebuild.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

namespace {

const char Help[] =
    "Usage: qarvo-catalogue build --out DIR [options] FILE.mof...\n"
    "\n"
    "Compiles MOF schemas into the WMI class catalogue the WMI condition editor reads\n"
    "(class.dat, data/win32.dat, data/cim.dat, data/other.dat). DIR is created when it\n"
    "does not exist; a catalogue already there keeps its classes, and a class it holds\n"
    "already is replaced. On any error nothing is written.\n"
    "\n"
    "Options:\n"
    "  -o, --out DIR       the catalogue folder to create or add to\n"
    "  --category NAME     tree category for classes without a package path\n"
    "                      (default: their schema name, such as Win32)\n"
    "  --namespace NS      namespace of classes before any #pragma namespace\n"
    "                      (default: root\\cimv2)\n"
    "  -h, --help          show this help and exit\n"
    "  --version           show the version and exit\n"
    "\n"
    "Exit status: 0 when the catalogue holds the classes, 1 when the input is wrong\n"
    "(nothing written), 2 when the command line is.\n";

int usageError(const QString &message)
{
    std::fprintf(stderr, "qarvo-catalogue: %s\nTry qarvo-catalogue --help.\n",
                 qUtf8Printable(message));
    return 2;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("qarvo-catalogue"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QARVO_VERSION));

    QCommandLineParser parser;
    const QCommandLineOption out({"o", "out"}, {}, "DIR");
    const QCommandLineOption category("category", {}, "NAME");
    const QCommandLineOption nameSpace("namespace", {}, "NS");
    const QCommandLineOption help(QStringList{"h", "help"});
    const QCommandLineOption version("version");
    parser.addOptions({out, category, nameSpace, help, version});
    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(parser.errorText());
    if (parser.isSet(help)) {
        std::fputs(Help, stdout);
        return 0;
    }
    if (parser.isSet(version)) {
        std::printf("qarvo-catalogue %s\n", QARVO_VERSION);
        return 0;
    }

    QStringList arguments = parser.positionalArguments();
    if (arguments.isEmpty() || arguments.takeFirst() != QLatin1String("build"))
        return usageError(QStringLiteral("the command is missing: build"));
    if (parser.value(out).isEmpty())
        return usageError(QStringLiteral("--out DIR is missing"));
    if (arguments.isEmpty())
        return usageError(QStringLiteral("no MOF file given"));

    qarvo::catalogue::CatalogueBuildOptions options;
    options.outDir = parser.value(out);
    options.files = arguments;
    options.category = parser.value(category);
    if (parser.isSet(nameSpace))
        options.nameSpace = parser.value(nameSpace);
    QTextStream stdOut(stdout);
    QTextStream stdErr(stderr);
    return qarvo::catalogue::buildCatalogue(options, stdOut, stdErr);
}
