#include "storefixture.h"

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <atomic>

namespace qarvo::test {

namespace {

QString pgUrl()
{
    return qEnvironmentVariable("QARVO_TEST_PG_URL");
}

} // namespace

QVariant queryOnce(const QString &location, const QString &sql, const QString &schema)
{
    static std::atomic<int> counter = 0; // tests may hold a database from a thread of their own
    const QString name = QStringLiteral("fixture-%1").arg(++counter);
    StoreLocation loc;
    StoreLocation::parse(location, &loc, nullptr);
    QVariant result;
    {
        const bool sqlite = loc.kind == StoreLocation::Kind::SQLite;
        QSqlDatabase db = QSqlDatabase::addDatabase(sqlite ? QStringLiteral("QSQLITE") : QStringLiteral("QPSQL"), name);
        db.setDatabaseName(sqlite ? loc.path : loc.database);
        db.setHostName(loc.host);
        db.setPort(loc.port);
        db.setUserName(loc.user);
        db.setPassword(loc.password);
        if (db.open()) {
            QSqlQuery q(db);
            if (!sqlite)
                q.exec(QStringLiteral("SET client_min_messages TO warning"));
            if (!schema.isEmpty())
                q.exec(QStringLiteral("SET search_path TO %1").arg(schema));
            if (q.exec(sql))
                result = q.next() ? q.value(0) : QVariant(true);
            q.finish();
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(name);
    return result;
}

void StoreFixture::addBackendRows()
{
    QTest::addColumn<bool>("postgres");
    QTest::newRow("sqlite") << false;
    QTest::newRow("postgresql") << true;
}

void StoreFixture::setUp()
{
    static int counter = 0;
    QFETCH_GLOBAL(bool, postgres);
    m_postgres = postgres;
    m_schema.clear();
    if (m_postgres) {
        if (pgUrl().isEmpty())
            QSKIP("QARVO_TEST_PG_URL is not set; scripts/test.sh starts a server");
        m_schema = QStringLiteral("qarvo_t%1_%2").arg(QCoreApplication::applicationPid()).arg(++counter);
        m_location = pgUrl() + QStringLiteral("?schema=") + m_schema;
    } else {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_location = m_dir->filePath(QStringLiteral("rules.sqlite"));
    }
}

void StoreFixture::tearDown()
{
    if (m_postgres && !m_schema.isEmpty())
        queryOnce(pgUrl(), QStringLiteral("DROP SCHEMA IF EXISTS %1 CASCADE").arg(m_schema));
    m_schema.clear();
    m_dir.reset();
}

std::unique_ptr<SqlRuleStore> StoreFixture::open() const
{
    auto store = std::make_unique<SqlRuleStore>();
    if (!store->open(m_location))
        qWarning("cannot open the test store: %s", qUtf8Printable(store->lastError()));
    return store;
}

QVariant StoreFixture::scalar(const QString &sql) const
{
    return queryOnce(m_location, sql, m_schema);
}

int StoreFixture::count(const QString &tableAndCondition) const
{
    return scalar(QStringLiteral("SELECT COUNT(*) FROM ") + tableAndCondition).toInt();
}

QStringList rowTexts(Reply &reply, const QStringList &fields)
{
    QStringList rows;
    forEachRow(reply, [&](RowReader &r) {
        QStringList values;
        for (const QString &f : fields)
            values << r.field(f).toString();
        rows << values.join(u'|');
    });
    return rows;
}

WMIRuleRow wmiRow(int id, const QString &name, qint16 index, qint16 kind)
{
    WMIRuleRow row;
    row.ruleId = ruleIdText(id);
    row.ruleName = name;
    row.comment = QStringLiteral("comment of ") + name;
    row.kind = kind;
    row.index = index;
    row.conjunction = index == 0 ? 0 : 1;
    row.className = kind ? QStringLiteral("SELECT * FROM Win32_Service WHERE State = 'Running'")
                         : QStringLiteral("Win32_OperatingSystem");
    row.field = kind ? QStringLiteral("#Count") : QStringLiteral("ServicePackMajorVersion");
    row.value = QString::number(index + 1);
    row.op = QStringLiteral(">=");
    row.opCode = 5;
    row.nameSpace = QStringLiteral("root\\cimv2");
    row.type = QStringLiteral("uint16");
    row.typeCode = 4;
    return row;
}

} // namespace qarvo::test
