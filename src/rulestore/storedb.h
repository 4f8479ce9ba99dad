#pragma once

// One store's connection to its database: statements with bound values only, and the one
// transaction every call runs in. A failed statement ends the call with a Refusal.

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariantList>

#include <memory>

namespace qarvo::store {

struct AheadListing;

class StoreDb
{
public:
    QString connection;
    bool sqlite = true;
    bool readOnly = false;
    bool inTransaction = false;
    QString schema; // PostgreSQL: the schema every session works in
    QString owner;  // this connection's mark on the ids and names it reserves
    QByteArray checkedFile; // SQLite: fileIdentity() of the file the store checked and opened
    std::shared_ptr<AheadListing> ahead; // SQLite: see listAhead()

    QSqlDatabase db() const { return QSqlDatabase::database(connection, false); }

    QSqlQuery prepare(const QString &sql);
    QSqlQuery prepare(const char *sql) { return prepare(QString::fromLatin1(sql)); }
    void run(QSqlQuery &q, const QVariantList &values);
    QSqlQuery exec(const char *sql, const QVariantList &values = {});
    QSqlQuery exec(const QString &sql, const QVariantList &values = {});
    // A statement without values (DDL, session settings, transaction control).
    void plain(const QString &sql);
    bool tryPlain(const QString &sql);
    bool exists(const char *sql, const QVariantList &values);
    // The first value of the first row, or an invalid QVariant when there is no row.
    QVariant value(const char *sql, const QVariantList &values = {});

    // Milliseconds since the epoch by the database's clock, which every console shares.
    qint64 now();

    // Settings that belong to one PostgreSQL session, made again for every new one.
    void setUpSession();
    void reconnect();
    // PostgreSQL ignores everything after a failed statement until the transaction ends, even
    // the freeing of prepared statements that still-open queries do on their way out; so the
    // transaction ends here, before they go.
    void abort();
};

// One call, one transaction. SQLite takes the write lock up front so that two stores on one file
// wait for each other instead of failing on a lock upgrade.
class Transaction
{
public:
    Transaction(StoreDb &db, bool writes);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    void commit();

private:
    StoreDb &m_db;
};

// A bound text must never be a null QString: drivers bind that as SQL NULL.
QVariant boundText(const QString &text);

} // namespace qarvo::store
