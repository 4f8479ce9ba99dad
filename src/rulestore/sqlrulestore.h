#pragma once

// The reference data service: every method the control calls, answered from a SQL database.
// SQLite keeps the whole store in one file; PostgreSQL lets several consoles share one store.

#include "dataservice/dataservice.h"
#include "rulestore/rulestore_export.h"
#include "rulestore/storelocation.h"

#include <QString>

#include <memory>

namespace qarvo {

// A store belongs to the thread that opened it, like the database connection under it. Several
// stores, in one process or in many, may share one database; keys and constraints, not timing,
// decide which of two competing writes wins.
class QARVO_RULESTORE_EXPORT SqlRuleStore : public DataService
{
public:
    // Current layout of the tables; stored in schema_version for later migrations.
    static constexpr int SchemaVersion = 1;

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

    // True when the store holds no rule of either category.
    bool isEmpty();
    // Records that the rule `userId` of `userCategory` refers by name to the rule `usedName` of
    // `usedCategory`. Both rules must exist. Returns a status like call().
    qint32 addRuleUsage(qint16 userCategory, const QString &userId, qint16 usedCategory,
                        const QString &usedName);

private:
    void refuseIfReadOnly() const;

    struct Impl;
    std::unique_ptr<Impl> d;
    StoreLocation m_location;
    QString m_lastError;
    bool m_created = false;
};

} // namespace qarvo
