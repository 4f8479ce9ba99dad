#include "rulestore/sqlrulestore.h"

#include "dataservice/calls.h"
#include "rulestore/storedb.h"
#include "rulestore/storeerror.h"
#include "rulestore/storehistory.h"
#include "rulestore/storelisting.h"
#include "rulestore/storemethods.h"
#include "rulestore/storereservations.h"
#include "rulestore/storerules.h"
#include "rulestore/storeschema.h"
#include "rulestore/storetransfer.h"

#include <QAtomicInteger>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSqlError>
#include <QUrl>
#include <QUuid>

#include <new>

// Refused calls are routine (a taken id, a bad value); they are logged only on request.
Q_LOGGING_CATEGORY(lcStore, "qarvo.rulestore", QtWarningMsg)

namespace qarvo {

static_assert(SqlRuleStore::SchemaVersion == store::LatestLayout);

using store::refuse;
using store::Refusal;

namespace {

QString nextConnectionName()
{
    static QAtomicInteger<quint64> counter;
    return QStringLiteral("qarvo-rulestore-%1").arg(counter.fetchAndAddRelaxed(1) + 1);
}

} // namespace

struct SqlRuleStore::Impl
{
    store::StoreDb db;
    store::Methods methods{db};
    bool open = false;
};

SqlRuleStore::SqlRuleStore() : d(std::make_unique<Impl>()) {}

SqlRuleStore::~SqlRuleStore()
{
    close();
}

bool SqlRuleStore::isOpen() const
{
    return d->open;
}

void SqlRuleStore::close()
{
    d->db.ahead.reset();
    if (d->db.connection.isEmpty())
        return;
    if (d->open && !d->db.readOnly) {
        // What this console reserved is free for the others at once, not only when it runs out.
        try {
            store::Transaction tx(d->db, true);
            store::releaseAll(d->db);
            tx.commit();
        } catch (...) {
        }
    }
    {
        QSqlDatabase db = d->db.db();
        if (db.isValid())
            db.close();
    }
    QSqlDatabase::removeDatabase(d->db.connection);
    d->db.connection.clear();
    d->open = false;
}

bool SqlRuleStore::open(const QString &location)
{
    StoreLocation loc;
    QString error;
    if (!StoreLocation::parse(location, &loc, &error)) {
        close();
        m_lastError = error;
        return false;
    }
    return open(loc);
}

namespace {

// What opening the SQLite file `loc` will do: refuses what cannot be a store, says whether the
// file is new and whether this user may write it.
QString checkSqliteFile(const StoreLocation &loc, bool *created, bool *readOnly)
{
    const QString display = loc.displayText();
    const QFileInfo file(loc.path);
    if (file.isDir())
        return QStringLiteral("%1 is a folder, not a rule store file.").arg(display);
    if (file.exists() && !file.isReadable())
        return QStringLiteral("%1 cannot be read: permission denied.").arg(display);
    if (file.exists()) {
        // The write-ahead log lives beside the file, so writing needs the folder as well.
        *readOnly = !file.isWritable() || !QFileInfo(file.absolutePath()).isWritable();
        return {};
    }
    // Only the default store gets its folder made; a path the user typed must point into a
    // folder that exists, so that a typo creates nothing.
    if (loc.path == QFileInfo(StoreLocation::defaultPath()).absoluteFilePath())
        QDir().mkpath(file.absolutePath());
    if (!file.absoluteDir().exists())
        return QStringLiteral("Cannot create %1: the folder %2 does not exist.")
            .arg(display, QDir::toNativeSeparators(file.absolutePath()));
    *created = true;
    return {};
}

} // namespace

bool SqlRuleStore::open(const StoreLocation &loc)
{
    close();
    m_created = false;
    m_location = loc;
    const QString display = loc.displayText();
    const bool sqlite = loc.kind == StoreLocation::Kind::SQLite;
    bool created = false;
    d->db.readOnly = false;
    d->db.checkedFile.clear();
    if (sqlite) {
        m_lastError = checkSqliteFile(loc, &created, &d->db.readOnly);
        if (!m_lastError.isEmpty())
            return false;
    }

    const QString driver = sqlite ? QStringLiteral("QSQLITE") : QStringLiteral("QPSQL");
    if (!QSqlDatabase::isDriverAvailable(driver)) {
        m_lastError = QStringLiteral("The Qt SQL driver %1 is not installed; %2 cannot be opened.")
                          .arg(driver, display);
        return false;
    }
    d->db.connection = nextConnectionName();
    d->db.sqlite = sqlite;
    d->db.owner = QUuid::createUuid().toString(QUuid::WithoutBraces);
    bool ok = false;
    try {
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(driver, d->db.connection);
            if (sqlite && !d->db.readOnly) {
                db.setDatabaseName(loc.path);
                db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=10000"));
            } else if (sqlite) {
                // Reading a file with a write-ahead log takes a shared-memory file beside it. In a
                // folder this user cannot write, and with no console writing it now (which would
                // have made that file), the store is read as a file that nobody changes.
                const bool still = !QFileInfo(QFileInfo(loc.path).absolutePath()).isWritable()
                    && !QFile::exists(loc.path + QStringLiteral("-shm"));
                db.setDatabaseName(still ? QUrl::fromLocalFile(loc.path).toString() + QStringLiteral("?immutable=1")
                                         : loc.path);
                db.setConnectOptions(still ? QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI")
                                           : QStringLiteral("QSQLITE_BUSY_TIMEOUT=10000;QSQLITE_OPEN_READONLY"));
            } else {
                db.setHostName(loc.host);
                db.setPort(loc.port);
                db.setUserName(loc.user);
                db.setPassword(loc.password);
                db.setDatabaseName(loc.database);
                db.setConnectOptions(QStringLiteral("connect_timeout=10;application_name=qarvo"));
            }
            if (!db.open())
                refuse(status::Fail, QStringLiteral("Cannot open %1: %2").arg(display, db.lastError().text()));
        }
        if (sqlite) {
            // Opening succeeds on any file; the first read tells a database from other data.
            QSqlQuery probe(d->db.db());
            if (!probe.exec(QStringLiteral("SELECT COUNT(*) FROM sqlite_master")))
                refuse(status::Fail, QStringLiteral("%1 is not a readable SQLite database: %2")
                                         .arg(display, probe.lastError().text()));
            probe.finish();
            // A damaged page reads as missing rows, not as an error: the file is checked before
            // anything is read from it or written to it.
            const QString damage = created ? QString() : store::damage(d->db, loc.path);
            if (!damage.isEmpty())
                refuse(status::Fail, QStringLiteral("%1 is damaged (%2). Nothing was changed. Put back a copy "
                                                    "of the file from a backup; the rule history is kept in "
                                                    "the same file and cannot help here.")
                                         .arg(display, damage));
            d->db.checkedFile = store::fileIdentity(QFile::encodeName(loc.path));
        } else {
            d->db.schema = loc.schema;
            d->db.setUpSession();
        }
        m_created = store::prepareSchema(d->db, display);
        if (!d->db.readOnly && !m_created) {
            store::Transaction tx(d->db, true);
            if (const int days = store::retentionDays(d->db); days > 0)
                store::purgeHistory(d->db, days);
            tx.commit();
        }
        if (sqlite && !d->db.readOnly) {
            // Only now that the file is known to be ours: with a write-ahead log a call commits
            // without waiting for the disk, and readers no longer wait for a writer. Where the
            // file system cannot do it, the store stays with the rollback journal.
            d->db.tryPlain(QStringLiteral("PRAGMA journal_mode=WAL"));
            d->db.tryPlain(QStringLiteral("PRAGMA synchronous=NORMAL"));
        }
        ok = true;
    } catch (const Refusal &r) {
        m_lastError = r.message;
    } catch (const std::bad_alloc &) {
        m_lastError = QStringLiteral("Out of memory while opening %1.").arg(display);
    } catch (...) {
        m_lastError = QStringLiteral("Cannot open %1.").arg(display);
    }
    if (!ok) {
        if (!m_lastError.contains(display))
            m_lastError = QStringLiteral("Cannot open %1: %2").arg(display, m_lastError);
        m_lastError = loc.hidePassword(m_lastError);
        close();
        if (created) {
            QFile::remove(loc.path);
            QFile::remove(loc.path + QStringLiteral("-journal"));
        }
        return false;
    }
    d->open = true;
    m_lastError.clear();
    return true;
}

bool SqlRuleStore::isReadOnly() const
{
    return d->db.readOnly;
}

Reply SqlRuleStore::call(const QString &methodName, const ArgList &args)
{
    try {
        const store::Methods::Entry *m = store::Methods::find(methodName);
        if (!m)
            refuse(status::UnknownName, QStringLiteral("unknown method \"%1\"").arg(methodName));
        if (args.size() != m->kinds.size())
            refuse(status::BadParamCount, QStringLiteral("%1 takes %2 arguments, got %3")
                                              .arg(methodName).arg(m->kinds.size()).arg(args.size()));
        for (qsizetype i = 0; i < args.size(); ++i) {
            if (kindOf(args.at(i)) != m->kinds.at(i))
                refuse(status::TypeMismatch, QStringLiteral("%1: argument %2 is %3, expected %4")
                                                 .arg(methodName).arg(i + 1)
                                                 .arg(kindName(kindOf(args.at(i))), kindName(m->kinds.at(i))));
        }
        store::checkStorable(args);
        if (!d->open)
            refuse(status::Fail, QStringLiteral("the rule store is not open"));
        using Access = store::Methods::Access;
        if (m->access == Access::Write)
            refuseIfReadOnly();
        store::Transaction tx(d->db, m->access != Access::Read && !d->db.readOnly);
        Reply reply = (d->methods.*(m->answer))(args);
        tx.commit();
        // Outside the transaction: a console that waits holds no lock.
        if (const std::optional<qint64> second = d->methods.takePace())
            store::waitForNextSecond(*second);
        m_lastError.clear();
        return reply;
    } catch (const Refusal &r) {
        d->methods.takePace();
        m_lastError = m_location.hidePassword(QStringLiteral("%1: %2").arg(methodName, r.message));
        qCInfo(lcStore, "%s", qUtf8Printable(m_lastError));
        return Reply::fail(r.status);
    } catch (const std::bad_alloc &) {
        m_lastError = QStringLiteral("%1: out of memory").arg(methodName);
        return Reply::fail(status::OutOfMemory);
    } catch (...) {
        m_lastError = QStringLiteral("%1: unexpected failure").arg(methodName);
        return Reply::fail(status::Exception);
    }
}

void SqlRuleStore::refuseIfReadOnly() const
{
    if (d->db.readOnly)
        refuse(status::Fail, QStringLiteral("%1 is open read-only: this user may not change it")
                                 .arg(m_location.displayText()));
}

void SqlRuleStore::readListAhead(qint16 category)
{
    if (!d->open)
        return;
    try {
        store::listAhead(d->db, category);
    } catch (...) {
        // Only time is lost: the list is read when it is asked for.
        d->db.ahead.reset();
    }
}

bool SqlRuleStore::isEmpty()
{
    if (!d->open)
        return true;
    try {
        store::Transaction tx(d->db, false);
        const bool any = d->db.exists("SELECT 1 FROM rules", {});
        tx.commit();
        return !any;
    } catch (const Refusal &r) {
        m_lastError = r.message;
        return false; // unknown: never treat a store we cannot read as empty
    } catch (...) {
        return false;
    }
}

template<typename F>
qint32 SqlRuleStore::transact(bool writes, F &&work)
{
    try {
        if (!d->open)
            refuse(status::Fail, QStringLiteral("the rule store is not open"));
        if (writes)
            refuseIfReadOnly();
        store::Transaction tx(d->db, writes);
        work();
        tx.commit();
        m_lastError.clear();
        return status::Ok;
    } catch (const Refusal &r) {
        m_lastError = m_location.hidePassword(r.message);
        return r.status;
    } catch (const std::bad_alloc &) {
        m_lastError = QStringLiteral("out of memory");
        return status::OutOfMemory;
    } catch (...) {
        m_lastError = QStringLiteral("unexpected failure");
        return status::Exception;
    }
}

qint32 SqlRuleStore::addRuleUsage(qint16 userCategory, const QString &userId, qint16 usedCategory,
                                  const QString &usedName)
{
    const ArgList args = {userId, userCategory, usedName, usedCategory};
    return transact(true, [&] {
        store::checkStorable(args);
        const int id = store::ruleIdArg(args, 0);
        const qint16 userCat = store::categoryArg(args, 1);
        const QString name = store::ruleNameArg(args, 2);
        const qint16 usedCat = store::categoryArg(args, 3);
        const QVariant userName =
            d->db.value("SELECT rule_name FROM rules WHERE category = ? AND rule_id = ?", {int(userCat), id});
        if (!userName.isValid())
            refuse(status::InvalidArgument, QStringLiteral("no rule with id %1").arg(ruleIdText(id)));
        if (userCat == usedCat && userName.toString() == name)
            refuse(status::InvalidArgument, QStringLiteral("a rule cannot use itself"));
        if (!d->db.exists("SELECT 1 FROM rules WHERE category = ? AND rule_name = ?", {int(usedCat), name}))
            refuse(status::InvalidArgument, QStringLiteral("no rule named \"%1\"").arg(name));
        if (!d->db.exists("SELECT 1 FROM rule_usage WHERE user_category = ? AND user_id = ?"
                          " AND used_category = ? AND used_name = ?",
                          {int(userCat), id, int(usedCat), name}))
            d->db.exec("INSERT INTO rule_usage (user_category, user_id, used_category, used_name)"
                       " VALUES (?, ?, ?, ?)",
                       {int(userCat), id, int(usedCat), name});
    });
}

qint32 SqlRuleStore::removeRuleUsage(qint16 userCategory, const QString &userId, qint16 usedCategory,
                                     const QString &usedName)
{
    const ArgList args = {userId, userCategory, usedName, usedCategory};
    return transact(true, [&] {
        store::checkStorable(args);
        store::removeUsage(d->db, store::categoryArg(args, 1), store::ruleIdArg(args, 0),
                           store::categoryArg(args, 3), store::ruleNameArg(args, 2));
    });
}

std::optional<QList<RuleSnapshot>> SqlRuleStore::allRules(const TransferProgress &progress)
{
    std::optional<QList<RuleSnapshot>> out;
    transact(false, [&] { out = store::readAllRules(d->db, progress); });
    return out;
}

std::optional<StoreCopyCounts> SqlRuleStore::copyTo(SqlRuleStore &target, bool merge,
                                                    const TransferProgress &progress)
{
    QList<RuleSnapshot> rules;
    QList<store::StoredVersion> versions;
    // Reading, writing and reading back each take about as long, so each is a third of the work.
    const auto reading = [&](int done, int total) { return !progress || progress(done, total * 3); };
    const auto writing = [&](int done, int total) {
        const qint64 n = rules.size(); // merging writes fewer than were read
        return !progress || progress(int(n + done * n / qMax(total / 2, 1)), int(n * 3));
    };
    // One read transaction: the rules and the history agree with each other.
    if (failed(transact(false, [&] {
            rules = store::readAllRules(d->db, reading);
            versions = store::readVersions(d->db);
        })))
        return std::nullopt;
    std::optional<StoreCopyCounts> out;
    target.transact(true, [&] {
        const store::CopyResult r = store::copyInto(target.d->db, rules, versions, merge, writing);
        out = StoreCopyCounts{r.rules, r.versions, r.checked, r.skipped};
    });
    return out;
}

std::optional<RuleSnapshot> SqlRuleStore::rule(qint16 category, const QString &ruleId)
{
    std::optional<RuleSnapshot> out;
    transact(false, [&] {
        const ArgList args{ruleId, category};
        out = store::readRule(d->db, store::categoryArg(args, 1), store::ruleIdArg(args, 0));
    });
    return out;
}

std::optional<QList<HistoryEntry>> SqlRuleStore::history()
{
    std::optional<QList<HistoryEntry>> out;
    transact(false, [&] { out = store::listHistory(d->db); });
    return out;
}

std::optional<RuleSnapshot> SqlRuleStore::historyVersion(qint64 version)
{
    std::optional<RuleSnapshot> out;
    transact(false, [&] { out = store::versionContent(d->db, version); });
    return out;
}

RestoreResult SqlRuleStore::restoreVersion(qint64 version, RestoreId idChoice, const QString &newName)
{
    RestoreResult out;
    // A restore that does not happen writes nothing, the history entry of a replaced rule included.
    const qint32 s = transact(true, [&] {
        out = store::restoreVersion(d->db, version, idChoice, newName);
        if (!out.restored())
            refuse(status::Ok, out.message);
    });
    if (failed(s)) {
        out.outcome = RestoreResult::Outcome::Failed;
        out.message = m_lastError;
    }
    return out;
}

RestoreResult SqlRuleStore::restoreLastDeleted(const QString &newName)
{
    qint64 version = 0;
    transact(false, [&] { version = store::lastDeletedVersion(d->db); });
    if (version == 0) {
        RestoreResult out;
        out.message = m_lastError.isEmpty() ? QStringLiteral("There is no deleted rule in the history.") : m_lastError;
        return out;
    }
    return restoreVersion(version, RestoreId::NewIfHeld, newName);
}

int SqlRuleStore::purgeHistory(int days)
{
    int removed = -1;
    transact(true, [&] { removed = store::purgeHistory(d->db, std::max(days, 0)); });
    return removed;
}

int SqlRuleStore::historyRetentionDays()
{
    int days = -1;
    transact(false, [&] { days = store::retentionDays(d->db); });
    return days;
}

bool SqlRuleStore::setHistoryRetentionDays(int days)
{
    return !failed(transact(true, [&] { store::setRetentionDays(d->db, std::max(days, 0)); }));
}

} // namespace qarvo
