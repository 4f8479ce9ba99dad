#pragma once

// The earlier versions of rules that the store keeps: every rule deleted, renamed or replaced
// stays in the store's history with what happened to it, and can be brought back.

#include <qarvo/rulestore/rulestore_export.h>

#include <QString>

namespace qarvo {

enum class HistoryEvent {
    Deleted,      // deleted from the list
    StoredAgain,  // deleted by a property sheet that then stored the rule again
    Renamed,      // renamed; the entry holds the rule under its old name
    RestoredOver, // an earlier version was restored under its id
};

struct HistoryEntry
{
    qint64 version = 0; // the entry's own number, for historyVersion() and restoreVersion()
    qint64 timeMs = 0;  // when it happened, in milliseconds since the epoch (UTC)
    qint16 category = 0;
    int ruleId = 0;
    QString ruleName;   // the name the rule had in this version; empty for rows without a rule
    HistoryEvent event = HistoryEvent::Deleted;
    QString detail;     // Renamed: the new name
};

// "deleted", "renamed to "NAME"" and so on, as a list shows it.
QARVO_RULESTORE_EXPORT QString historyEventText(const HistoryEntry &entry);

// Where a restored version goes when its old id holds a rule again.
enum class RestoreId {
    OldOnly,       // the old id or nothing: answer IdHeld
    ReplaceHolder, // what holds the id now goes to the history and makes room
    NewIfHeld,     // the store draws a free id
};

struct RestoreResult
{
    enum class Outcome {
        Restored,
        IdHeld,    // the old id holds `holder` now (empty: rows of a save that never finished)
        NameTaken, // another rule has `ruleName`: ask for another name
        Failed,    // `message` says why
    };
    Outcome outcome = Outcome::Failed;
    qint16 category = 0;
    int ruleId = 0;     // Restored: the id it came back under; IdHeld: the old id
    QString ruleName;   // Restored: the name it came back under; NameTaken: the name that is taken
    QString holder;
    QString message;
    bool restored() const { return outcome == Outcome::Restored; }
};

} // namespace qarvo
