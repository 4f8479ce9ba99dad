#include "console/consoleapp.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    using namespace qarvo::console;
    setIdentity();
    // Help and option errors need no display, so they are answered before the GUI starts.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    Options options;
    QString message;
    switch (parseOptions(arguments, &options, &message)) {
    case ParseResult::Help:
        std::fputs(qUtf8Printable(message), stdout);
        return 0;
    case ParseResult::Error:
        std::fprintf(stderr, "qarvo-console: %s\nTry qarvo-console --help.\n", qUtf8Printable(message));
        return 2;
    case ParseResult::BadDatabase:
        std::fprintf(stderr, "qarvo-console: %s\n", qUtf8Printable(message));
        return 1;
    case ParseResult::Run:
        break;
    }
    if (options.history) {
        QCoreApplication app(argc, argv);
        return printHistory(options);
    }
    if (!prepareEnvironment(options))
        return 2;
    QApplication app(argc, argv);
    QGuiApplication::setApplicationDisplayName(QStringLiteral("qarvo console"));
    return run(options);
}
