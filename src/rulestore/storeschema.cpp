#include "rulestore/storeschema.h"

#include "dataservice/dataservice.h"
#include "rulestore/soundfiles.h"
#include "rulestore/storedb.h"
#include "rulestore/storelisting.h"
#include "rulestore/storeerror.h"

#include <QSqlError>

#include <algorithm>

namespace qarvo::store {

namespace {

// Layout 1. Column types are the common ground of SQLite and PostgreSQL; the constraints are
// what keeps two consoles from storing the same id or name.
const char *const layout1[] = {
    "CREATE TABLE schema_version (version INTEGER NOT NULL)",
    "CREATE TABLE rules ("
    " category SMALLINT NOT NULL CHECK (category IN (5, 6)),"
    " rule_id INTEGER NOT NULL,"
    " rule_name TEXT NOT NULL,"
    " rule_comment TEXT NOT NULL,"
    " rule_wql SMALLINT NOT NULL,"
    " service_name TEXT NOT NULL,"
    " script_selection TEXT NOT NULL,"
    " PRIMARY KEY (category, rule_id),"
    " UNIQUE (category, rule_name))",
    "CREATE TABLE wmi_conditions ("
    " rule_id INTEGER NOT NULL,"
    " cond_index SMALLINT NOT NULL,"
    " conjunction SMALLINT NOT NULL,"
    " cond_class TEXT NOT NULL,"
    " cond_field TEXT NOT NULL,"
    " cond_value TEXT NOT NULL,"
    " cond_operator TEXT NOT NULL,"
    " operator_code SMALLINT NOT NULL,"
    " cond_namespace TEXT NOT NULL,"
    " cond_type TEXT NOT NULL,"
    " type_code SMALLINT NOT NULL,"
    " PRIMARY KEY (rule_id, cond_index))",
    "CREATE TABLE naqc_scripts ("
    " rule_id INTEGER NOT NULL,"
    " entry_no SMALLINT NOT NULL,"
    " script_file TEXT NOT NULL,"
    " action_type TEXT NOT NULL,"
    " script_comment TEXT NOT NULL,"
    " selected SMALLINT NOT NULL,"
    " PRIMARY KEY (rule_id, entry_no))",
    // Rule usage: the user is kept by id so that it survives the user's own delete-and-store-again
    // edit; the used rule is kept by name, as rules refer to each other.
    "CREATE TABLE rule_usage ("
    " user_category SMALLINT NOT NULL,"
    " user_id INTEGER NOT NULL,"
    " used_category SMALLINT NOT NULL,"
    " used_name TEXT NOT NULL,"
    " PRIMARY KEY (user_category, user_id, used_category, used_name))",
    "CREATE INDEX rule_usage_used ON rule_usage (used_category, used_name)",
};

// Layout 2: the history of earlier versions, reservations of ids and names between a check and
// the save it announces, and settings every console shares. Times are milliseconds since the
// epoch by the database's clock.
const char *const layout2[] = {
    "CREATE TABLE rule_history ("
    " version_id @AUTOID@,"
    " happened_at BIGINT NOT NULL,"
    " category SMALLINT NOT NULL,"
    " rule_id INTEGER NOT NULL,"
    " rule_name TEXT NOT NULL,"
    " event TEXT NOT NULL,"
    " detail TEXT NOT NULL,"
    " content TEXT NOT NULL)", // the whole rule as JSON
    "CREATE INDEX rule_history_time ON rule_history (happened_at)",
    "CREATE TABLE id_reservations ("
    " category SMALLINT NOT NULL,"
    " rule_id INTEGER NOT NULL,"
    " owner TEXT NOT NULL,"
    " expires_at BIGINT NOT NULL,"
    " PRIMARY KEY (category, rule_id))",
    "CREATE TABLE name_reservations ("
    " category SMALLINT NOT NULL,"
    " rule_name TEXT NOT NULL,"
    " owner TEXT NOT NULL,"
    " expires_at BIGINT NOT NULL,"
    " PRIMARY KEY (category, rule_name))",
    "CREATE TABLE store_settings (name TEXT PRIMARY KEY, value TEXT NOT NULL)",
};

// Every table any layout has had: in a shared PostgreSQL schema only these names matter.
const QStringList ownTables = {QStringLiteral("schema_version"), QStringLiteral("rules"),
                               QStringLiteral("wmi_conditions"), QStringLiteral("naqc_scripts"),
                               QStringLiteral("rule_usage"), QStringLiteral("rule_history"),
                               QStringLiteral("id_reservations"), QStringLiteral("name_reservations"),
                               QStringLiteral("store_settings")};

// SQLite: the index the lists are read from in order. It is no step of a layout: an older qarvo
// keeps it up to date without knowing of it, and a store without it lists all the same.
void addListIndex(StoreDb &db)
{
    if (db.sqlite && !db.readOnly
        && !db.exists("SELECT 1 FROM sqlite_master WHERE type = 'index' AND name = 'rules_listed'", {}))
        db.plain(QString::fromLatin1(ListIndexSqlite));
}

QStringList existingTables(StoreDb &db)
{
    QSqlQuery q = db.sqlite
        ? db.exec("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'")
        : db.exec("SELECT table_name FROM information_schema.tables WHERE table_schema = current_schema()");
    QStringList names;
    while (q.next())
        names.append(q.value(0).toString());
    q.finish();
    return names;
}

template<std::size_t N>
QStringList statements(const char *const (&list)[N])
{
    QStringList out;
    for (const char *s : list)
        out.append(QString::fromLatin1(s));
    return out;
}

} // namespace

QStringList layoutStatements(int layout, bool sqlite)
{
    switch (layout) {
    case 1:
        return statements(layout1);
    case 2: {
        // History entries are numbered in the order they were written, and a number is never
        // given twice, not even after a purge.
        QStringList list = statements(layout2);
        list.replaceInStrings(QStringLiteral("@AUTOID@"),
                              sqlite ? QStringLiteral("INTEGER PRIMARY KEY AUTOINCREMENT")
                                     : QStringLiteral("BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY"));
        return list;
    }
    default:
        return {};
    }
}

bool prepareSchema(StoreDb &db, const QString &display)
{
    if (!db.sqlite && db.value("SELECT current_setting('transaction_read_only')").toString() == QLatin1String("on"))
        db.readOnly = true;
    Transaction tx(db, !db.readOnly);
    if (!db.sqlite) {
        // Two consoles opening a fresh database at once create the tables once.
        db.exec("SELECT pg_advisory_xact_lock(7235406)");
        if (!db.schema.isEmpty() && !db.exists("SELECT 1 FROM pg_namespace WHERE nspname = ?", {db.schema})) {
            if (db.readOnly)
                refuse(status::Fail, QStringLiteral("%1 has no schema %2, and this session may not create it.")
                                         .arg(display, db.schema));
            db.plain(QStringLiteral("CREATE SCHEMA %1").arg(db.schema));
        }
    }
    const QStringList tables = existingTables(db);
    int version = 0;
    if (tables.contains(QStringLiteral("schema_version"))) {
        version = db.value("SELECT MAX(version) FROM schema_version").toInt();
        if (version > LatestLayout)
            refuse(status::Fail,
                   QStringLiteral("%1 was written by a newer qarvo (rule store layout %2; this one reads up to %3).")
                       .arg(display).arg(version).arg(LatestLayout));
        if (version < 1)
            refuse(status::Fail, QStringLiteral("%1 is damaged: it has no rule store layout version.").arg(display));
    } else {
        // A file of another program is left alone; in a shared PostgreSQL schema only our own
        // table names matter.
        const bool foreign = db.sqlite ? !tables.isEmpty()
                                       : std::any_of(tables.cbegin(), tables.cend(), [](const QString &t) {
                                             return ownTables.contains(t);
                                         });
        if (foreign)
            refuse(status::Fail,
                   QStringLiteral("%1 is not a qarvo rule store: it already holds other tables.").arg(display));
    }
    if (version == LatestLayout) {
        // A role that may read but not write the tables is a read-only store as well.
        if (!db.sqlite && !db.readOnly && !db.value("SELECT has_table_privilege('rules', 'INSERT')").toBool())
            db.readOnly = true;
        addListIndex(db);
        tx.commit();
        return false;
    }
    if (db.readOnly)
        refuse(status::Fail, version == 0
                   ? QStringLiteral("%1 holds no rule store, and this user may not create one there.").arg(display)
                   : QStringLiteral("%1 has the rule store layout %2, which must be brought up to date, and this "
                                    "user may not write it. Open it once with write access.")
                         .arg(display).arg(version));
    for (int layout = version + 1; layout <= LatestLayout; ++layout) {
        for (const QString &statement : layoutStatements(layout, db.sqlite))
            db.plain(statement);
    }
    if (version == 0)
        db.exec("INSERT INTO schema_version (version) VALUES (?)", {LatestLayout});
    else
        db.exec("UPDATE schema_version SET version = ?", {LatestLayout});
    addListIndex(db);
    tx.commit();
    return version == 0;
}

namespace {

QString quickCheck(StoreDb &db)
{
    QSqlQuery q(db.db());
    if (!q.exec(QStringLiteral("PRAGMA quick_check")))
        return q.lastError().text();
    QStringList problems;
    while (q.next() && problems.size() < 3)
        problems.append(q.value(0).toString().simplified());
    if (problems == QStringList{QStringLiteral("ok")})
        return {};
    return problems.join(QLatin1String("; "));
}

} // namespace

QString damage(StoreDb &db, const QString &path)
{
    const auto before = contentHash(path);
    if (before && passedBefore(path, *before))
        return {};
    const QString found = quickCheck(db);
    if (found.isEmpty() && before && contentHash(path) == before)
        rememberPassed(path, *before);
    return found;
}

} // namespace qarvo::store
