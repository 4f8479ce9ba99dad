#include "console/commandprogress.h"

#include <csignal>
#include <cstdio>

#include <unistd.h>

namespace qarvo::console {

namespace {

volatile std::sig_atomic_t g_interrupted = 0;
struct sigaction g_previous = {};

extern "C" void onInterrupt(int)
{
    g_interrupted = 1;
}

constexpr qint64 QuietMs = 1000;
constexpr qint64 EveryMs = 250;

} // namespace

CommandProgress::CommandProgress(Line line, bool always)
    : m_line(std::move(line)), m_always(always), m_terminal(isatty(STDERR_FILENO) == 1)
{
    g_interrupted = 0;
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &g_previous);
    m_started.start();
}

CommandProgress::~CommandProgress()
{
    clearLine();
    sigaction(SIGINT, &g_previous, nullptr);
}

bool CommandProgress::interrupted() const
{
    return g_interrupted != 0;
}

bool CommandProgress::step(int done, int total)
{
    const qint64 now = m_started.elapsed();
    const bool due = m_lastShownMs < 0 ? (m_always || now >= QuietMs) : now - m_lastShownMs >= EveryMs;
    if (due && (m_always || m_terminal)) {
        const QByteArray line = m_line(done, total).toUtf8();
        // On a terminal the line is rewritten in place; elsewhere each one stands on its own.
        std::fprintf(stderr, m_terminal ? "\r%s\033[K" : "%s\n", line.constData());
        std::fflush(stderr);
        m_shown = m_terminal;
        m_lastShownMs = now;
    }
    return !interrupted();
}

void CommandProgress::clearLine()
{
    if (m_shown) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        m_shown = false;
    }
}

} // namespace qarvo::console
