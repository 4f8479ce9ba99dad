#pragma once

// The reference data service: every method the control calls, answered from a SQL database.
// SQLite keeps the whole store in one file; PostgreSQL lets several consoles share one store.

#include <qarvo/dataservice/dataservice.h>
#include <qarvo/rulestore/rulehistory.h>
#include <qarvo/rulestore/rulesnapshot.h>
#include <qarvo/rulestore/rulestore_export.h>
#include <qarvo/rulestore/storelocation.h>

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace qarvo {

// What SqlRuleStore::copyTo() wrote.
struct StoreCopyCounts
{
    int rules = 0;       // rules copied
    int versions = 0;    // history versions copied
    int checked = 0;     // rules read back from the target and found equal
    QStringList skipped; // rules left out because the target had one of that name (merging)
};

// Called with how many steps of a long transfer are done; answering false stops it.
using TransferProgress = std::function<bool(int done, int total)>;

// A store belongs to the thread that opened it, like the database connection under it. Several
// stores, in one process or in many, may share one database; keys, constraints and reservations
// of the ids and names a save is about to store, not timing, decide which of two competing writes
// wins. Nothing is ever lost: every rule deleted, renamed or replaced stays in the history.
class QARVO_RULESTORE_EXPORT SqlRuleStore : public DataService
{
public:
    // Current layout of the tables; stored in schema_version for later migrations.
    static constexpr int SchemaVersion = 2;

    SqlRuleStore();
    ~SqlRuleStore() override;
    SqlRuleStore(const SqlRuleStore &) = delete;
    SqlRuleStore &operator=(const SqlRuleStore &) = delete;

    // Opens (and on first use creates) the store. On failure lastError() says why, and nothing
    // is left behind: no file, no tables.
    bool open(const QString &location);
    bool open(const StoreLocation &location);
    void close();
    bool isOpen() const;
    const StoreLocation &location() const { return m_location; }
    // True when this user may only read the store (a SQLite file or folder without write
    // permission, a read-only PostgreSQL session or role). Every call that would write fails.
    bool isReadOnly() const;
    // True when the last open() laid the tables out, i.e. the store is brand new.
    bool createdOnOpen() const { return m_created; }

    // The message of the last failed open or call; empty after a success.
    QString lastError() const { return m_lastError; }

    Reply call(const QString &method, const ArgList &args) override;

    // Host-side operations that are not part of the control's catalogue.

    // Begins reading the list of `category` (category::WMI or category::NAQC) for the host that
    // is about to ask for it, while it does other work: the next GetWMIRules or GetRQCRule of that
    // category answers with it when nothing was committed to the store in between. A SQLite
    // store only; elsewhere, and when the reading cannot begin, the list is read when asked for.
    void readListAhead(qint16 category);

    // True when the store holds no rule of either category.
    bool isEmpty();
    // Records that the rule `userId` of `userCategory` refers by name to the rule `usedName` of
    // `usedCategory`. Both rules must exist. Returns a status like call().
    qint32 addRuleUsage(qint16 userCategory, const QString &userId, qint16 usedCategory,
                        const QString &usedName);

    // Ends the reference addRuleUsage() recorded; adding it again brings it back. Returns a
    // status like call(); a reference that does not exist fails.
    qint32 removeRuleUsage(qint16 userCategory, const QString &userId, qint16 usedCategory,
                           const QString &usedName);

    // Every rule of both categories, NAQC rules first, each category ordered by name the same way
    // on every database; nothing when the store cannot be read.
    // `progress`, when given, is called before each rule read; answering false stops the reading.
    std::optional<QList<RuleSnapshot>> allRules(const TransferProgress &progress = {});
    // Copies every rule and every history version into `target`, in one transaction there. A
    // target that holds rules is refused unless `merge`, which leaves out the rules whose names
    // it holds and gives a free id to those whose ids it holds. Each rule written is read back
    // and compared. Nothing on failure; target.lastError() or lastError() says why. `progress`
    // sees every rule three times (read, written, read back); answering false rolls the target
    // back.
    std::optional<StoreCopyCounts> copyTo(SqlRuleStore &target, bool merge, const TransferProgress &progress = {});

    // The whole rule stored under `ruleId` (isEmpty() when nothing is); nothing when it cannot
    // be read, and lastError() says why.
    std::optional<RuleSnapshot> rule(qint16 category, const QString &ruleId);

    // The earlier versions of rules, newest first.
    std::optional<QList<HistoryEntry>> history();
    std::optional<RuleSnapshot> historyVersion(qint64 version);
    // Brings a version back as a rule, under its old name unless `newName` is given.
    RestoreResult restoreVersion(qint64 version, RestoreId idChoice, const QString &newName = {});
    // Undoes the last delete from the list: the newest deleted version, under its old id when
    // that is free (a drawn one otherwise) and its old name unless `newName` is given.
    RestoreResult restoreLastDeleted(const QString &newName = {});
    // Removes the versions older than `days` days (0: all of them). Answers how many went, or
    // -1 when it failed.
    int purgeHistory(int days);
    // How many days the history keeps a version, shared by every console of the store; 0 keeps
    // them for ever (the default). Older versions go whenever a console opens the store.
    int historyRetentionDays();
    bool setHistoryRetentionDays(int days);

private:
    void refuseIfReadOnly() const;
    // Runs `work` in one transaction; failures end up in lastError() and the status answered.
    template<typename F>
    qint32 transact(bool writes, F &&work);

    struct QARVO_RULESTORE_NO_EXPORT Impl; // its inline parts stay inside the library too
    std::unique_ptr<Impl> d;
    StoreLocation m_location;
    QString m_lastError;
    bool m_created = false;
};

} // namespace qarvo
