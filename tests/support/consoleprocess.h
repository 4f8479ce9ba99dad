#pragma once

// Runs qarvo-console (QARVO_CONSOLE_BIN, set by the suite) as a process of its own, to the end.

#include <QProcess>
#include <QStringList>

#include <utility>

namespace qarvo::test {

// The exit code and what the console wrote to stderr (and to stdout into `out`); -1 when it did
// not finish within a minute.
inline std::pair<int, QString> runConsole(const QStringList &args, QString *out = nullptr)
{
    QProcess p;
    p.start(QStringLiteral(QARVO_CONSOLE_BIN), args);
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit)
        return {-1, QStringLiteral("did not finish")};
    if (out)
        *out = QString::fromUtf8(p.readAllStandardOutput());
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardError())};
}

} // namespace qarvo::test
