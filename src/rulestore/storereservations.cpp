#include "rulestore/storereservations.h"

#include "dataservice/ruleid.h"
#include "rulestore/storedb.h"

#include <QElapsedTimer>
#include <QThread>

namespace qarvo::store {

namespace {

Holder holderOf(QSqlQuery q, const QString &me, qint64 now)
{
    Holder h = Holder::Nobody;
    if (q.next() && q.value(1).toLongLong() > now)
        h = q.value(0).toString() == me ? Holder::Me : Holder::Other;
    q.finish();
    return h;
}

} // namespace

Holder idHolder(StoreDb &db, qint16 cat, int id, qint64 now)
{
    return holderOf(db.exec("SELECT owner, expires_at FROM id_reservations WHERE category = ? AND rule_id = ?",
                            {int(cat), id}),
                    db.owner, now);
}

Holder nameHolder(StoreDb &db, qint16 cat, const QString &name, qint64 now)
{
    return holderOf(db.exec("SELECT owner, expires_at FROM name_reservations WHERE category = ? AND rule_name = ?",
                            {int(cat), name}),
                    db.owner, now);
}

// The insert takes the key's lock, so that of two connections claiming at once the second waits
// for the first and then finds the reservation taken.
bool claimId(StoreDb &db, qint16 cat, int id, qint64 now, qint64 ms)
{
    db.exec("INSERT INTO id_reservations (category, rule_id, owner, expires_at) VALUES (?, ?, ?, ?)"
            " ON CONFLICT (category, rule_id) DO UPDATE SET owner = excluded.owner, expires_at = excluded.expires_at"
            " WHERE id_reservations.owner = excluded.owner OR id_reservations.expires_at <= ?",
            {int(cat), id, db.owner, now + ms, now});
    return idHolder(db, cat, id, now) == Holder::Me;
}

bool claimName(StoreDb &db, qint16 cat, const QString &name, qint64 now, qint64 ms)
{
    db.exec("INSERT INTO name_reservations (category, rule_name, owner, expires_at) VALUES (?, ?, ?, ?)"
            " ON CONFLICT (category, rule_name) DO UPDATE SET owner = excluded.owner, expires_at = excluded.expires_at"
            " WHERE name_reservations.owner = excluded.owner OR name_reservations.expires_at <= ?",
            {int(cat), name, db.owner, now + ms, now});
    return nameHolder(db, cat, name, now) == Holder::Me;
}

void releaseId(StoreDb &db, qint16 cat, int id)
{
    db.exec("DELETE FROM id_reservations WHERE category = ? AND rule_id = ? AND owner = ?", {int(cat), id, db.owner});
}

void releaseName(StoreDb &db, qint16 cat, const QString &name)
{
    db.exec("DELETE FROM name_reservations WHERE category = ? AND rule_name = ? AND owner = ?",
            {int(cat), name, db.owner});
}

void releaseAll(StoreDb &db)
{
    // Reservations of consoles that ended without closing are cleared here too, once they ran out.
    const qint64 now = db.now();
    db.exec("DELETE FROM id_reservations WHERE owner = ? OR expires_at <= ?", {db.owner, now});
    db.exec("DELETE FROM name_reservations WHERE owner = ? OR expires_at <= ?", {db.owner, now});
}

bool drawnAgainIn(int id, qint64 second)
{
    RuleIdGenerator generator([second] { return second; });
    return generator.draw() == id;
}

qint64 currentSecond()
{
    const SecondsClock &clock = ruleIdClock();
    return clock ? clock() : systemSeconds();
}

void waitForNextSecond(qint64 second)
{
    QElapsedTimer waited;
    waited.start();
    while (currentSecond() == second && waited.elapsed() < 1100)
        QThread::msleep(5);
}

} // namespace qarvo::store
