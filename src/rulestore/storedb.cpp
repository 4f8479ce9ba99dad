#include "rulestore/storedb.h"

#include "rulestore/storeerror.h"

#include <QSqlError>

namespace qarvo::store {

QVariant boundText(const QString &text)
{
    return text.isNull() ? QVariant(QString(QLatin1String(""))) : QVariant(text);
}

QSqlQuery StoreDb::prepare(const QString &sql)
{
    QSqlQuery q(db());
    q.setForwardOnly(true);
    if (!q.prepare(sql)) {
        const QString message = q.lastError().text();
        abort();
        refuse(status::Fail, message);
    }
    return q;
}

void StoreDb::run(QSqlQuery &q, const QVariantList &values)
{
    for (const QVariant &v : values)
        q.addBindValue(v.typeId() == QMetaType::QString ? boundText(v.toString()) : v);
    if (!q.exec()) {
        const QString message = q.lastError().text();
        abort();
        refuse(status::Fail, message);
    }
}

QSqlQuery StoreDb::exec(const char *sql, const QVariantList &values)
{
    QSqlQuery q = prepare(sql);
    run(q, values);
    return q;
}

QSqlQuery StoreDb::exec(const QString &sql, const QVariantList &values)
{
    QSqlQuery q = prepare(sql);
    run(q, values);
    return q;
}

void StoreDb::plain(const QString &sql)
{
    QSqlQuery q(db());
    if (!q.exec(sql)) {
        const QString message = q.lastError().text();
        abort();
        refuse(status::Fail, message);
    }
}

bool StoreDb::tryPlain(const QString &sql)
{
    QSqlQuery q(db());
    return q.exec(sql);
}

bool StoreDb::exists(const char *sql, const QVariantList &values)
{
    QSqlQuery q = exec(sql, values);
    const bool found = q.next();
    q.finish();
    return found;
}

QVariant StoreDb::value(const char *sql, const QVariantList &values)
{
    QSqlQuery q = exec(sql, values);
    QVariant v = q.next() ? q.value(0) : QVariant();
    q.finish();
    return v;
}

qint64 StoreDb::now()
{
    return value(sqlite ? "SELECT CAST((julianday('now') - 2440587.5) * 86400000.0 AS INTEGER)"
                        : "SELECT CAST(EXTRACT(EPOCH FROM clock_timestamp()) * 1000 AS BIGINT)")
        .toLongLong();
}

void StoreDb::setUpSession()
{
    plain(QStringLiteral("SET client_min_messages TO warning"));
    if (!schema.isEmpty()) // a schema not created yet is simply skipped until it is
        plain(QStringLiteral("SET search_path TO %1").arg(schema));
}

void StoreDb::reconnect()
{
    QSqlDatabase d = db();
    d.close();
    if (!d.open())
        refuse(status::Fail, QStringLiteral("the connection to the server was lost and could not "
                                            "be made again: %1").arg(d.lastError().text()));
    setUpSession();
}

void StoreDb::abort()
{
    if (!sqlite && inTransaction) {
        QSqlQuery q(db());
        q.exec(QStringLiteral("ROLLBACK"));
        inTransaction = false;
    }
}

Transaction::Transaction(StoreDb &db, bool writes) : m_db(db)
{
    if (db.sqlite) {
        db.plain(writes ? QStringLiteral("BEGIN IMMEDIATE") : QStringLiteral("BEGIN"));
    } else if (!db.tryPlain(QStringLiteral("BEGIN"))) {
        // A server restart or an idle timeout ends the session while the console stays open.
        // Nothing of this call has been sent yet, so a fresh session can take it.
        db.reconnect();
        db.plain(QStringLiteral("BEGIN"));
    }
    db.inTransaction = true;
}

Transaction::~Transaction()
{
    if (m_db.inTransaction) {
        QSqlQuery q(m_db.db());
        q.exec(QStringLiteral("ROLLBACK"));
        m_db.inTransaction = false;
    }
}

void Transaction::commit()
{
    m_db.plain(QStringLiteral("COMMIT"));
    m_db.inTransaction = false;
}

} // namespace qarvo::store
