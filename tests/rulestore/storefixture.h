#pragma once

// Gives every store test a fresh, private database: a temporary SQLite file, or its own schema in
// the PostgreSQL database named by QARVO_TEST_PG_URL (dropped afterwards).

#include "dataservice/calls.h"
#include "rulestore/sqlrulestore.h"

#include <QTemporaryDir>
#include <QVariantMap>

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
    bool execute(const QString &sql) const;

private:
    bool m_postgres = false;
    QString m_location;
    QString m_schema;
    std::unique_ptr<QTemporaryDir> m_dir;
};

// All rows of a reply, each as field name -> value for the given fields.
QList<QVariantMap> readRows(Reply &reply, const QStringList &fields);
// One field of every row.
QStringList column(Reply &reply, const QString &field);

WMIRuleRow wmiRow(int id, const QString &name, qint16 index, qint16 kind = 0);

} // namespace qarvo::test
