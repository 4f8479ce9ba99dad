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
    const ParseResult result = parseOptions(arguments, &options, &message);
    switch (result) {
    case ParseResult::Help:
        std::fputs(qUtf8Printable(message), stdout);
        return 0;
    case ParseResult::Error:
        std::fprintf(stderr, "qarvo-console: %s\nTry qarvo-console --help.\n", qUtf8Printable(message));
        return 2;
    case ParseResult::BadDatabase:
        std::fprintf(stderr, "qarvo-console: %s\n", qUtf8Printable(message));
        return 1;
    case ParseResult::Register:
    case ParseResult::Unregister: {
        QCoreApplication app(argc, argv);
        QString text;
        const int code = changeRegistration(result == ParseResult::Register, &text);
        if (code == 0)
            std::printf("%s\n", qUtf8Printable(text));
        else
            std::fprintf(stderr, "qarvo-console: %s\n", qUtf8Printable(text));
        return code;
    }
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
