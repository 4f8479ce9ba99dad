#pragma once

// Start-up of qarvo-console: options, opening the rule store, sample rules on a new store, and
// either the window or a screenshot of it.

#include <QString>
#include <QStringList>

namespace qarvo::console {

struct Options
{
    QString database;   // empty: the default SQLite file
    qint16 view = 6;    // rule category shown first
    QString screenshot; // render to this PNG and exit
    bool check = false; // list the stored rules that the catalogue or the WQL grammar faults, and exit
    bool history = false; // print the rule history and exit
    QString exportFile;   // write every rule into this rule file and exit
    QString importFile;   // store the rules of this rule file and exit
    bool replace = false; // importing: rules of the same name are replaced, not kept
    QString copyTo;       // copy every rule and the history into this store and exit
    bool merge = false;   // copying: a target that holds rules is added to
    bool progress = false; // progress lines even when standard error is not a terminal
};

enum class ParseResult { Run, Help, Error, BadDatabase, Register, Unregister };

// `arguments` includes the program name. For Help, `message` is the help text; for Error, the
// reason.
ParseResult parseOptions(const QStringList &arguments, Options *options, QString *message);

// Names the application (and with it the default store's folder); works before QApplication.
void setIdentity();

// Before QApplication exists: a screenshot needs no display, so it renders offscreen unless the
// caller chose a platform. Returns false, having said why, when there is nowhere to show the
// window.
bool prepareEnvironment(const Options &options);

// --register / --unregister: writes or removes the control's registration under the manager's
// settings key, for hosts that look the control up there. Returns the exit code; `message` says
// what was written or removed where, or why nothing was.
int changeRegistration(bool install, QString *message);

// Opens the store and runs the console (or takes the screenshot); returns the exit code.
int run(const Options &options);

} // namespace qarvo::console
