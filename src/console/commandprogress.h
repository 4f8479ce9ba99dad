#pragma once

// Progress and Ctrl+C for the long commands. A line on standard error appears only on a terminal
// and only once the work has taken longer than a second, so that quick commands and scripts see
// nothing; Ctrl+C asks the work to stop at its next rule instead of ending the process half-way.

#include <QElapsedTimer>
#include <QString>

#include <functional>

namespace qarvo::console {

// The exit status of a command stopped by Ctrl+C, as shells report a process ended by SIGINT.
inline constexpr int InterruptedExit = 130;

class CommandProgress
{
public:
    using Line = std::function<QString(int done, int total)>;
    // `line` words a step, e.g. "Imported 1200 of 100000 rules". `always` shows the lines from
    // the first step, one a line, even when standard error is not a terminal.
    CommandProgress(Line line, bool always);
    ~CommandProgress();
    CommandProgress(const CommandProgress &) = delete;
    CommandProgress &operator=(const CommandProgress &) = delete;

    // Before each step: false once Ctrl+C was pressed.
    bool step(int done, int total);
    bool interrupted() const;

private:
    void clearLine();

    Line m_line;
    bool m_always = false;
    bool m_terminal = false;
    bool m_shown = false;
    QElapsedTimer m_started;
    qint64 m_lastShownMs = -1;
};

} // namespace qarvo::console
