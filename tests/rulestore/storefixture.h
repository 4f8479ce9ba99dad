#pragma once

// Gives every store test a fresh, private database: a temporary SQLite file, or its own schema in
// the PostgreSQL database named by QARVO_TEST_PG_URL (dropped afterwards).

#include "dataservice/calls.h"
#include "rulestore/sqlrulestore.h"

#include <QTemporaryDir>

#include <memory>

namespace qarvo::test {

class StoreFixture
{
public:
    // Adds the "sqlite" and "postgresql" rows; call from initTestCase_data().
    static void addBackendRows();
    // Call from init(): skips the PostgreSQL row when no server is configured.
    void setUp();
    // Call from cleanup().
    void tearDown();

    bool isPostgres() const { return m_postgres; }
    // The string that selects this test's database.
    QString location() const { return m_location; }
    std::unique_ptr<SqlRuleStore> open() const;

    // A query on the test's database outside the store, for looking at what it wrote.
    QVariant scalar(const QString &sql) const;
    int count(const QString &tableAndCondition) const;

private:
    bool m_postgres = false;
    QString m_location;
    QString m_schema;
    std::unique_ptr<QTemporaryDir> m_dir;
};

// Runs `sql` on a private connection to the database `location` selects (in `schema` if given)
// and answers the first value of its first row.
QVariant queryOnce(const QString &location, const QString &sql, const QString &schema = QString());

// Every row of a reply as its `fields` joined by '|'.
QStringList rowTexts(Reply &reply, const QStringList &fields);

WMIRuleRow wmiRow(int id, const QString &name, qint16 index, qint16 kind = 0);

} // namespace qarvo::test
