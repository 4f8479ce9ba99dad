#include "rulestore/sqlrulestore.h"

#include "dataservice/recordsizes.h"

#include "dataservice/calls.h"

#include <QAtomicInteger>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>
#include <new>

// Refused calls are routine (a taken id, a bad value); they are logged only on request.
Q_LOGGING_CATEGORY(lcStore, "qarvo.rulestore", QtWarningMsg)

namespace qarvo {

namespace {

// Longest text a field of the control's records can hold. Longer texts are refused rather than
// cut: a cut name would no longer match the references to it.
constexpr int longest(qsizetype size)
{
    return int(size - 1);
}

// A call that cannot be answered; carries the status the caller gets and the reason for the log.
struct Refusal
{
    qint32 status;
    QString message;
};

[[noreturn]] void refuse(qint32 status, const QString &message)
{
    throw Refusal{status, message};
}

using K = ArgKind;

// The tables of layout 1. Column types are the common ground of SQLite and PostgreSQL; the
// constraints are what keeps two consoles from storing the same id or name.
const char *const createStatements[] = {
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

const QStringList ownTables = {QStringLiteral("schema_version"), QStringLiteral("rules"),
                               QStringLiteral("wmi_conditions"), QStringLiteral("naqc_scripts"),
                               QStringLiteral("rule_usage")};

QString nextConnectionName()
{
    static QAtomicInteger<quint64> counter;
    return QStringLiteral("qarvo-rulestore-%1").arg(counter.fetchAndAddRelaxed(1) + 1);
}

// A bound text must never be a null QString: drivers bind that as SQL NULL.
QVariant boundText(const QString &text)
{
    return text.isNull() ? QVariant(QString(QLatin1String(""))) : QVariant(text);
}

// Names sort the way an administrator reads a list: letters before case, then exact text.
bool nameLess(const QString &a, int idA, const QString &b, int idB)
{
    if (const int c = a.compare(b, Qt::CaseInsensitive))
        return c < 0;
    if (const int c = a.compare(b))
        return c < 0;
    return idA < idB;
}

} // namespace

struct SqlRuleStore::Impl
{
    QString connection;
    bool sqlite = true;
    bool open = false;
    bool inTransaction = false;
    QString schema; // PostgreSQL: the schema every session works in

    bool tryPlain(const QString &sql)
    {
        QSqlQuery q(db());
        return q.exec(sql);
    }

    // Settings that belong to one PostgreSQL session, made again for every new one.
    void setUpSession()
    {
        plain(QStringLiteral("SET client_min_messages TO warning"));
        if (!schema.isEmpty()) // a schema not created yet is simply skipped until it is
            plain(QStringLiteral("SET search_path TO %1").arg(schema));
    }

    void reconnect()
    {
        QSqlDatabase d = db();
        d.close();
        if (!d.open())
            refuse(status::Fail, QStringLiteral("the connection to the server was lost and could not "
                                                "be made again: %1").arg(d.lastError().text()));
        setUpSession();
    }

    QSqlDatabase db() const { return QSqlDatabase::database(connection, false); }

    QSqlQuery prepare(const char *sql)
    {
        QSqlQuery q(db());
        q.setForwardOnly(true);
        if (!q.prepare(QString::fromLatin1(sql))) {
            const QString message = q.lastError().text();
            abort();
            refuse(status::Fail, message);
        }
        return q;
    }

    void run(QSqlQuery &q, const QVariantList &values)
    {
        for (const QVariant &v : values)
            q.addBindValue(v.typeId() == QMetaType::QString ? boundText(v.toString()) : v);
        if (!q.exec()) {
            const QString message = q.lastError().text();
            abort();
            refuse(status::Fail, message);
        }
    }

    // PostgreSQL ignores everything after a failed statement until the transaction ends, even
    // the freeing of prepared statements that still-open queries do on their way out; so the
    // transaction ends here, before they go.
    void abort()
    {
        if (!sqlite && inTransaction) {
            QSqlQuery q(db());
            q.exec(QStringLiteral("ROLLBACK"));
            inTransaction = false;
        }
    }

    QSqlQuery exec(const char *sql, const QVariantList &values = {})
    {
        QSqlQuery q = prepare(sql);
        run(q, values);
        return q;
    }

    void plain(const QString &sql)
    {
        QSqlQuery q(db());
        if (!q.exec(sql)) {
            const QString message = q.lastError().text();
            abort();
            refuse(status::Fail, message);
        }
    }

    bool exists(const char *sql, const QVariantList &values)
    {
        QSqlQuery q = exec(sql, values);
        const bool found = q.next();
        q.finish();
        return found;
    }

    // One call, one transaction. SQLite takes the write lock up front so that two stores on one
    // file wait for each other instead of failing on a lock upgrade.
    class Transaction
    {
    public:
        Transaction(Impl &impl, bool writes) : m_impl(impl)
        {
            if (impl.sqlite) {
                impl.plain(writes ? QStringLiteral("BEGIN IMMEDIATE") : QStringLiteral("BEGIN"));
            } else if (!impl.tryPlain(QStringLiteral("BEGIN"))) {
                // A server restart or an idle timeout ends the session while the console stays
                // open. Nothing of this call has been sent yet, so a fresh session can take it.
                impl.reconnect();
                impl.plain(QStringLiteral("BEGIN"));
            }
            impl.inTransaction = true;
        }
        ~Transaction()
        {
            if (m_impl.inTransaction) {
                QSqlQuery q(m_impl.db());
                q.exec(QStringLiteral("ROLLBACK"));
                m_impl.inTransaction = false;
            }
        }
        void commit()
        {
            m_impl.plain(QStringLiteral("COMMIT"));
            m_impl.inTransaction = false;
        }

    private:
        Impl &m_impl;
    };

    // --- argument checks -------------------------------------------------------------------

    static QString text(const ArgList &args, int i) { return std::get<QString>(args.at(i)); }
    static qint16 number(const ArgList &args, int i) { return std::get<qint16>(args.at(i)); }

    // Rule ids arrive as "%09d"; up to nine decimal digits are accepted, so "12" and
    // "000000012" are the same rule, as they are to the control reading them back.
    static int ruleId(const ArgList &args, int i)
    {
        const QString t = text(args, i);
        if (t.isEmpty() || t.size() > longest(recordsize::RuleId))
            refuse(status::InvalidArgument, QStringLiteral("rule id \"%1\" is not 1 to 9 digits").arg(t));
        int id = 0;
        for (QChar c : t) {
            if (c < u'0' || c > u'9')
                refuse(status::InvalidArgument, QStringLiteral("rule id \"%1\" is not 1 to 9 digits").arg(t));
            id = id * 10 + (c.unicode() - u'0');
        }
        return id;
    }

    static QString ruleName(const ArgList &args, int i)
    {
        const QString t = text(args, i);
        if (t.isEmpty())
            refuse(status::InvalidArgument, QStringLiteral("empty rule name"));
        if (t.size() > longest(recordsize::RuleName))
            refuse(status::InvalidArgument,
                   QStringLiteral("rule name longer than %1 characters").arg(longest(recordsize::RuleName)));
        return t;
    }

    static QString bounded(const ArgList &args, int i, int max, const char *what)
    {
        const QString t = text(args, i);
        if (t.size() > max)
            refuse(status::InvalidArgument,
                   QStringLiteral("%1 longer than %2 characters").arg(QLatin1String(what)).arg(max));
        return t;
    }

    static qint16 ruleCategory(const ArgList &args, int i)
    {
        const qint16 c = number(args, i);
        if (c != category::NAQC && c != category::WMI)
            refuse(status::InvalidArgument, QStringLiteral("unknown rule category %1").arg(c));
        return c;
    }

    static qint16 deleteMode(const ArgList &args, int i)
    {
        const qint16 m = number(args, i);
        if (m != delmode::FromList && m != delmode::BeforeStoreAgain)
            refuse(status::InvalidArgument, QStringLiteral("unknown delete mode %1").arg(m));
        return m;
    }

    static qint16 nonNegative(const ArgList &args, int i, const char *what)
    {
        const qint16 n = number(args, i);
        if (n < 0)
            refuse(status::InvalidArgument, QStringLiteral("negative %1").arg(QLatin1String(what)));
        return n;
    }

    static Reply rows(std::unique_ptr<MemoryRowSet> set)
    {
        Reply r;
        r.rows = std::move(set);
        return r;
    }

    static std::unique_ptr<MemoryRowSet> rowSet(std::initializer_list<const char *> columns)
    {
        QStringList names;
        for (const char *c : columns)
            names << QLatin1String(c);
        auto set = std::make_unique<MemoryRowSet>();
        set->setColumns(names);
        return set;
    }

    // One answer row per result row of `sql`, in the query's order, as `row` reads it.
    template<typename RowFn>
    Reply queryRows(const char *sql, const QVariantList &values,
                    std::initializer_list<const char *> columns, RowFn row)
    {
        QSqlQuery q = exec(sql, values);
        auto set = rowSet(columns);
        while (q.next())
            set->appendRow(row(q));
        q.finish();
        return rows(std::move(set));
    }

    static Reply yesNo(bool taken)
    {
        Reply r;
        r.value = QVariant::fromValue<qint16>(taken ? -1 : 0);
        return r;
    }

    // --- reading ---------------------------------------------------------------------------

    struct ListedRule
    {
        int id;
        QString name;
        QString comment;
        int wql;
    };

    QList<ListedRule> listRules(qint16 category)
    {
        QSqlQuery q = exec("SELECT rule_id, rule_name, rule_comment, rule_wql FROM rules"
                           " WHERE category = ?",
                           {int(category)});
        QList<ListedRule> list;
        while (q.next())
            list.append({q.value(0).toInt(), q.value(1).toString(), q.value(2).toString(),
                         q.value(3).toInt()});
        q.finish();
        std::sort(list.begin(), list.end(), [](const ListedRule &a, const ListedRule &b) {
            return nameLess(a.name, a.id, b.name, b.id);
        });
        return list;
    }

    Reply getWMIRules(const ArgList &)
    {
        auto set = rowSet({"rule_wql", "rule_name", "rule_comment", "rule_id"});
        for (const ListedRule &r : listRules(category::WMI))
            set->appendRow({r.wql, r.name, r.comment, ruleIdText(r.id)});
        return rows(std::move(set));
    }

    Reply getRQCRule(const ArgList &)
    {
        auto set = rowSet({"rule_name", "rule_comment", "rule_id"});
        for (const ListedRule &r : listRules(category::NAQC))
            set->appendRow({r.name, r.comment, ruleIdText(r.id)});
        return rows(std::move(set));
    }

    Reply getWMIRuleInfo(const ArgList &args)
    {
        const int id = ruleId(args, 0);
        return queryRows(
            "SELECT r.rule_name, r.rule_comment, r.rule_wql, c.conjunction, c.cond_namespace,"
            " c.cond_class, c.cond_field, c.cond_type, c.cond_operator, c.cond_value,"
            " c.cond_index, c.operator_code, c.type_code"
            " FROM rules r JOIN wmi_conditions c ON c.rule_id = r.rule_id"
            " WHERE r.category = 6 AND r.rule_id = ? ORDER BY c.cond_index",
            {id},
            {"rule_name", "rule_comment", "rule_wql", "rule_op", "rule_namespace", "rule_class", "rule_field",
             "rule_type", "rule_condition", "rule_value", "rule_index", "rule_opcode", "rule_typecode", "rule_id"},
            [&](const QSqlQuery &q) -> QVariantList {
                return {q.value(0).toString(), q.value(1).toString(), q.value(2).toInt(), q.value(3).toInt(),
                        q.value(4).toString(), q.value(5).toString(), q.value(6).toString(), q.value(7).toString(),
                        q.value(8).toString(), q.value(9).toString(), q.value(10).toInt(), q.value(11).toInt(),
                        q.value(12).toInt(), ruleIdText(id)};
            });
    }

    Reply getRQCRuleInfo(const ArgList &args)
    {
        const int id = ruleId(args, 0);
        return queryRows("SELECT rule_name, service_name, rule_comment, script_selection"
                         " FROM rules WHERE category = 5 AND rule_id = ?",
                         {id}, {"rule_name", "rule_servicename", "rule_comment", "rule_selection", "rule_id"},
                         [&](const QSqlQuery &q) -> QVariantList {
                             return {q.value(0).toString(), q.value(1).toString(), q.value(2).toString(),
                                     q.value(3).toString(), ruleIdText(id)};
                         });
    }

    Reply getRQCRuleScriptInfo(const ArgList &args)
    {
        return queryRows("SELECT selected, script_file, action_type, script_comment, entry_no"
                         " FROM naqc_scripts WHERE rule_id = ? ORDER BY entry_no",
                         {ruleId(args, 0)},
                         {"rule_select", "rule_script", "rule_scriptact", "rule_comment", "rule_entry"},
                         [](const QSqlQuery &q) -> QVariantList {
                             return {q.value(0).toInt(), q.value(1).toString(), q.value(2).toString(),
                                     q.value(3).toString(), q.value(4).toInt()};
                         });
    }

    Reply rulesUsedExRule(const ArgList &args)
    {
        const QString name = ruleName(args, 0);
        const qint16 cat = ruleCategory(args, 1);
        QSqlQuery q = exec("SELECT r.rule_name, r.rule_id, r.category FROM rule_usage u"
                           " JOIN rules r ON r.category = u.user_category AND r.rule_id = u.user_id"
                           " WHERE u.used_category = ? AND u.used_name = ?",
                           {int(cat), name});
        struct User { QString name; int id; int category; };
        QList<User> users;
        while (q.next())
            users.append({q.value(0).toString(), q.value(1).toInt(), q.value(2).toInt()});
        q.finish();
        std::sort(users.begin(), users.end(), [](const User &a, const User &b) {
            return nameLess(a.name, a.id, b.name, b.id);
        });
        auto set = rowSet({"rule_name", "rule_id", "rule_category"});
        for (const User &u : users)
            set->appendRow({u.name, ruleIdText(u.id), u.category});
        return rows(std::move(set));
    }

    // --- checking --------------------------------------------------------------------------

    bool idTaken(qint16 cat, int id)
    {
        // Rows left behind under an id (script entries stored before a rule that never came,
        // uses kept across an edit) hold the id as much as a rule does.
        if (exists("SELECT 1 FROM rules WHERE category = ? AND rule_id = ?", {int(cat), id}))
            return true;
        if (cat == category::NAQC && exists("SELECT 1 FROM naqc_scripts WHERE rule_id = ?", {id}))
            return true;
        if (cat == category::WMI && exists("SELECT 1 FROM wmi_conditions WHERE rule_id = ?", {id}))
            return true;
        return exists("SELECT 1 FROM rule_usage WHERE user_category = ? AND user_id = ?",
                      {int(cat), id});
    }

    Reply canUseID(const ArgList &args)
    {
        const int id = ruleId(args, 0);
        return yesNo(idTaken(ruleCategory(args, 1), id));
    }

    Reply canUseExRuleName(const ArgList &args)
    {
        const QString name = ruleName(args, 0);
        const qint16 cat = ruleCategory(args, 1);
        return yesNo(exists("SELECT 1 FROM rules WHERE category = ? AND rule_name = ?",
                            {int(cat), name}));
    }

    // --- writing ---------------------------------------------------------------------------

    Reply updateExRuleNameInRule(const ArgList &args)
    {
        const QString oldName = ruleName(args, 0);
        const QString newName = ruleName(args, 1);
        const qint16 cat = ruleCategory(args, 2);
        if (oldName == newName)
            return {};
        // The rule itself takes the new name at once, so that a sheet whose later steps fail
        // leaves it renamed rather than out of step with the references; a name that is taken
        // fails on the unique constraint and nothing changes.
        exec("UPDATE rules SET rule_name = ? WHERE category = ? AND rule_name = ?",
             {newName, int(cat), oldName});
        exec("UPDATE rule_usage SET used_name = ? WHERE used_category = ? AND used_name = ?",
             {newName, int(cat), oldName});
        return {};
    }

    Reply deleteRule(const ArgList &args, qint16 cat, const char *rowsTable)
    {
        const int id = ruleId(args, 0);
        const qint16 mode = deleteMode(args, 1);
        QString name;
        {
            QSqlQuery q = exec("SELECT rule_name FROM rules WHERE category = ? AND rule_id = ?",
                               {int(cat), id});
            if (q.next())
                name = q.value(0).toString();
            q.finish();
        }
        exec(rowsTable, {id});
        exec("DELETE FROM rules WHERE category = ? AND rule_id = ?", {int(cat), id});
        if (mode == delmode::FromList) {
            // Gone for good: its own uses go, and so do references that others still held to it
            // (the list refuses the delete while there are any, so these are strays).
            exec("DELETE FROM rule_usage WHERE user_category = ? AND user_id = ?", {int(cat), id});
            if (!name.isEmpty())
                exec("DELETE FROM rule_usage WHERE used_category = ? AND used_name = ?",
                     {int(cat), name});
        }
        // Mode 2: the rule is stored again under the same id straight after; every use, in
        // either direction, stays.
        return {};
    }

    Reply delWMIRule(const ArgList &args)
    {
        return deleteRule(args, category::WMI, "DELETE FROM wmi_conditions WHERE rule_id = ?");
    }

    Reply delRQCRule(const ArgList &args)
    {
        return deleteRule(args, category::NAQC, "DELETE FROM naqc_scripts WHERE rule_id = ?");
    }

    Reply addWMIRule(const ArgList &args)
    {
        const int id = ruleId(args, 0);
        const QString name = ruleName(args, 1);
        const QString comment = bounded(args, 2, longest(recordsize::Comment), "comment");
        const qint16 kind = number(args, 3);
        const qint16 index = nonNegative(args, 4, "condition index");
        const qint16 conjunction = number(args, 5);
        const QString cls = bounded(args, 6, longest(recordsize::ClassOrQuery), "class or query");
        const QString field = bounded(args, 7, longest(recordsize::Field), "field");
        const QString value = bounded(args, 8, longest(recordsize::Value), "value");
        const QString op = bounded(args, 9, longest(recordsize::Operator), "operator");
        const qint16 opCode = number(args, 10);
        const QString ns = bounded(args, 11, longest(recordsize::NameSpace), "namespace");
        const QString type = bounded(args, 12, longest(recordsize::Type), "type");
        const qint16 typeCode = number(args, 13);

        QSqlQuery q = exec("SELECT rule_name, rule_comment, rule_wql FROM rules"
                           " WHERE category = 6 AND rule_id = ?",
                           {id});
        if (q.next()) {
            // Later conditions must belong to the same rule: a second console that drew the same
            // id must not add its rows to someone else's rule.
            if (q.value(0).toString() != name || q.value(1).toString() != comment
                || q.value(2).toInt() != kind)
                refuse(status::Fail, QStringLiteral("rule id %1 belongs to the rule \"%2\"")
                                         .arg(ruleIdText(id), q.value(0).toString()));
            q.finish();
        } else {
            q.finish();
            exec("INSERT INTO rules (category, rule_id, rule_name, rule_comment, rule_wql,"
                 " service_name, script_selection) VALUES (6, ?, ?, ?, ?, '', '')",
                 {id, name, comment, int(kind)});
        }
        exec("INSERT INTO wmi_conditions (rule_id, cond_index, conjunction, cond_class,"
             " cond_field, cond_value, cond_operator, operator_code, cond_namespace, cond_type,"
             " type_code) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
             {id, int(index), int(conjunction), cls, field, value, op, int(opCode), ns, type,
              int(typeCode)});
        return {};
    }

    Reply addRQCScript(const ArgList &args)
    {
        const int id = ruleId(args, 0);
        const qint16 entry = nonNegative(args, 1, "entry number");
        const QString file = bounded(args, 2, longest(recordsize::ScriptFile), "script file");
        const QString action = bounded(args, 3, longest(recordsize::ActionType), "action type");
        const QString comment = bounded(args, 4, longest(recordsize::Comment), "comment");
        const qint16 selected = number(args, 5);
        exec("INSERT INTO naqc_scripts (rule_id, entry_no, script_file, action_type,"
             " script_comment, selected) VALUES (?, ?, ?, ?, ?, ?)",
             {id, int(entry), file, action, comment, int(selected)});
        return {};
    }

    Reply addRQCRule(const ArgList &args)
    {
        const int id = ruleId(args, 0);
        const QString name = ruleName(args, 1);
        const QString service = bounded(args, 2, longest(recordsize::ServiceName), "service name");
        const QString comment = bounded(args, 3, longest(recordsize::Comment), "comment");
        const QString selection = text(args, 4);
        exec("INSERT INTO rules (category, rule_id, rule_name, rule_comment, rule_wql,"
             " service_name, script_selection) VALUES (5, ?, ?, ?, 0, ?, ?)",
             {id, name, comment, service, selection});
        return {};
    }

    // --- the catalogue ---------------------------------------------------------------------

    struct Method
    {
        const char *name;
        QList<ArgKind> kinds;
        Reply (Impl::*handler)(const ArgList &);
        bool writes;
    };

    static const QList<Method> &catalogue()
    {
        static const QList<Method> methods = {
            {method::GetWMIRules, {K::Slot}, &Impl::getWMIRules, false},
            {method::GetRQCRule, {K::Slot}, &Impl::getRQCRule, false},
            {method::GetWMIRuleInfo, {K::Text, K::Slot}, &Impl::getWMIRuleInfo, false},
            {method::GetRQCRuleInfo, {K::Text, K::Slot}, &Impl::getRQCRuleInfo, false},
            {method::GetRQCRuleScriptInfo, {K::Text, K::Slot}, &Impl::getRQCRuleScriptInfo, false},
            {method::RulesUsedExRule, {K::Text, K::Short, K::Slot}, &Impl::rulesUsedExRule, false},
            {method::CanUseID, {K::Text, K::Short}, &Impl::canUseID, false},
            {method::CanUseExRuleName, {K::Text, K::Short}, &Impl::canUseExRuleName, false},
            {method::UpdateExRuleNameInRule, {K::Text, K::Text, K::Short},
             &Impl::updateExRuleNameInRule, true},
            {method::DelWMIRule, {K::Text, K::Short}, &Impl::delWMIRule, true},
            {method::DelRQCRule, {K::Text, K::Short}, &Impl::delRQCRule, true},
            {method::AddWMIRule,
             {K::Text, K::Text, K::Text, K::Short, K::Short, K::Short, K::Text, K::Text, K::Text,
              K::Text, K::Short, K::Text, K::Text, K::Short},
             &Impl::addWMIRule, true},
            {method::AddRQCScript, {K::Text, K::Short, K::Text, K::Text, K::Text, K::Short},
             &Impl::addRQCScript, true},
            {method::AddRQCRule, {K::Text, K::Text, K::Text, K::Text, K::Text}, &Impl::addRQCRule,
             true},
        };
        return methods;
    }

    // --- opening ---------------------------------------------------------------------------

    QStringList existingTables()
    {
        QSqlQuery q = sqlite
            ? exec("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'")
            : exec("SELECT table_name FROM information_schema.tables WHERE table_schema = current_schema()");
        QStringList names;
        while (q.next())
            names.append(q.value(0).toString());
        q.finish();
        return names;
    }

    // Returns true when it laid out the tables of a new store.
    bool prepareSchema(const QString &display, const QString &schema)
    {
        Transaction tx(*this, true);
        if (!sqlite) {
            // Two consoles opening a fresh database at once create the tables once.
            exec("SELECT pg_advisory_xact_lock(7235406)");
            if (!schema.isEmpty())
                plain(QStringLiteral("CREATE SCHEMA IF NOT EXISTS %1").arg(schema));
        }
        const QStringList tables = existingTables();
        if (tables.contains(QStringLiteral("schema_version"))) {
            QSqlQuery q = exec("SELECT MAX(version) FROM schema_version");
            const int version = q.next() ? q.value(0).toInt() : 0;
            q.finish();
            if (version > SchemaVersion)
                refuse(status::Fail,
                       QStringLiteral("%1 was written by a newer qarvo (rule store layout %2; this one reads up to %3).")
                           .arg(display).arg(version).arg(SchemaVersion));
            if (version < 1)
                refuse(status::Fail, QStringLiteral("%1 is damaged: it has no rule store layout version.")
                                         .arg(display));
        } else {
            // A file of another program is left alone; in a shared PostgreSQL schema only our
            // own table names matter.
            const bool foreign = sqlite ? !tables.isEmpty()
                                        : std::any_of(tables.cbegin(), tables.cend(), [](const QString &t) {
                                              return ownTables.contains(t);
                                          });
            if (foreign)
                refuse(status::Fail, QStringLiteral("%1 is not a qarvo rule store: it already holds other tables.")
                                         .arg(display));
            for (const char *statement : createStatements)
                plain(QString::fromLatin1(statement));
            exec("INSERT INTO schema_version (version) VALUES (?)", {SchemaVersion});
            tx.commit();
            return true;
        }
        tx.commit();
        return false;
    }
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
    if (d->connection.isEmpty())
        return;
    {
        QSqlDatabase db = d->db();
        if (db.isValid())
            db.close();
    }
    QSqlDatabase::removeDatabase(d->connection);
    d->connection.clear();
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

bool SqlRuleStore::open(const StoreLocation &loc)
{
    close();
    m_created = false;
    m_location = loc;
    const QString display = loc.displayText();
    const bool sqlite = loc.kind == StoreLocation::Kind::SQLite;
    bool created = false;

    if (sqlite) {
        const QFileInfo file(loc.path);
        if (file.isDir()) {
            m_lastError = QStringLiteral("%1 is a folder, not a rule store file.").arg(display);
            return false;
        }
        if (file.exists() && !file.isReadable()) {
            m_lastError = QStringLiteral("%1 cannot be read: permission denied.").arg(display);
            return false;
        }
        if (!file.exists()) {
            // Only the default store gets its folder made; a path the user typed must point
            // into a folder that exists, so that a typo creates nothing.
            const bool isDefault = loc.path == QFileInfo(StoreLocation::defaultPath()).absoluteFilePath();
            if (isDefault)
                QDir().mkpath(file.absolutePath());
            if (!file.absoluteDir().exists()) {
                m_lastError = QStringLiteral("Cannot create %1: the folder %2 does not exist.")
                                  .arg(display, QDir::toNativeSeparators(file.absolutePath()));
                return false;
            }
            created = true;
        }
    }

    const QString driver = sqlite ? QStringLiteral("QSQLITE") : QStringLiteral("QPSQL");
    if (!QSqlDatabase::isDriverAvailable(driver)) {
        m_lastError = QStringLiteral("The Qt SQL driver %1 is not installed; %2 cannot be opened.")
                          .arg(driver, display);
        return false;
    }
    d->connection = nextConnectionName();
    d->sqlite = sqlite;
    bool ok = false;
    try {
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(driver, d->connection);
            if (sqlite) {
                db.setDatabaseName(loc.path);
                db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=10000"));
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
            QSqlQuery probe(d->db());
            if (!probe.exec(QStringLiteral("SELECT COUNT(*) FROM sqlite_master")))
                refuse(status::Fail, QStringLiteral("%1 is not a readable SQLite database: %2")
                                         .arg(display, probe.lastError().text()));
        } else {
            d->schema = loc.schema;
            d->setUpSession();
        }
        m_created = d->prepareSchema(display, loc.schema);
        if (sqlite) {
            // Only now that the file is known to be ours: with a write-ahead log a call commits
            // without waiting for the disk, and readers no longer wait for a writer. Where the
            // file system cannot do it, the store stays with the rollback journal.
            d->tryPlain(QStringLiteral("PRAGMA journal_mode=WAL"));
            d->tryPlain(QStringLiteral("PRAGMA synchronous=NORMAL"));
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

Reply SqlRuleStore::call(const QString &methodName, const ArgList &args)
{
    try {
        const auto &methods = Impl::catalogue();
        const auto it = std::find_if(methods.cbegin(), methods.cend(), [&](const Impl::Method &m) {
            return methodName == QLatin1String(m.name);
        });
        if (it == methods.cend())
            refuse(status::UnknownName, QStringLiteral("unknown method \"%1\"").arg(methodName));
        if (args.size() != it->kinds.size())
            refuse(status::BadParamCount, QStringLiteral("%1 takes %2 arguments, got %3")
                                              .arg(methodName).arg(it->kinds.size()).arg(args.size()));
        for (qsizetype i = 0; i < args.size(); ++i) {
            if (kindOf(args.at(i)) != it->kinds.at(i))
                refuse(status::TypeMismatch, QStringLiteral("%1: argument %2 is %3, expected %4")
                                                 .arg(methodName).arg(i + 1)
                                                 .arg(kindName(kindOf(args.at(i))), kindName(it->kinds.at(i))));
        }
        if (!d->open)
            refuse(status::Fail, QStringLiteral("the rule store is not open"));
        Impl::Transaction tx(*d, it->writes);
        Reply reply = (d.get()->*(it->handler))(args);
        tx.commit();
        m_lastError.clear();
        return reply;
    } catch (const Refusal &r) {
        m_lastError = QStringLiteral("%1: %2").arg(methodName, r.message);
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

bool SqlRuleStore::isEmpty()
{
    if (!d->open)
        return true;
    try {
        Impl::Transaction tx(*d, false);
        const bool any = d->exists("SELECT 1 FROM rules", {});
        tx.commit();
        return !any;
    } catch (const Refusal &r) {
        m_lastError = r.message;
        return false; // unknown: never treat a store we cannot read as empty
    } catch (...) {
        return false;
    }
}

qint32 SqlRuleStore::addRuleUsage(qint16 userCategory, const QString &userId, qint16 usedCategory,
                                  const QString &usedName)
{
    try {
        const ArgList args = {userId, userCategory, usedName, usedCategory};
        const int id = Impl::ruleId(args, 0);
        const qint16 userCat = Impl::ruleCategory(args, 1);
        const QString name = Impl::ruleName(args, 2);
        const qint16 usedCat = Impl::ruleCategory(args, 3);
        if (!d->open)
            refuse(status::Fail, QStringLiteral("the rule store is not open"));
        Impl::Transaction tx(*d, true);
        QSqlQuery q = d->exec("SELECT rule_name FROM rules WHERE category = ? AND rule_id = ?",
                              {int(userCat), id});
        if (!q.next())
            refuse(status::InvalidArgument, QStringLiteral("no rule with id %1").arg(ruleIdText(id)));
        const bool self = userCat == usedCat && q.value(0).toString() == name;
        q.finish();
        if (self)
            refuse(status::InvalidArgument, QStringLiteral("a rule cannot use itself"));
        if (!d->exists("SELECT 1 FROM rules WHERE category = ? AND rule_name = ?", {int(usedCat), name}))
            refuse(status::InvalidArgument, QStringLiteral("no rule named \"%1\"").arg(name));
        if (!d->exists("SELECT 1 FROM rule_usage WHERE user_category = ? AND user_id = ?"
                       " AND used_category = ? AND used_name = ?",
                       {int(userCat), id, int(usedCat), name}))
            d->exec("INSERT INTO rule_usage (user_category, user_id, used_category, used_name)"
                    " VALUES (?, ?, ?, ?)",
                    {int(userCat), id, int(usedCat), name});
        tx.commit();
        m_lastError.clear();
        return status::Ok;
    } catch (const Refusal &r) {
        m_lastError = r.message;
        return r.status;
    } catch (...) {
        m_lastError = QStringLiteral("unexpected failure");
        return status::Exception;
    }
}

} // namespace qarvo
