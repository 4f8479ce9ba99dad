#include "wmirule/conditionrow.h"
#include "wmirule/ruledata.h"

#include <QtTest>

using namespace qarvo;

class TestWmiRuleData : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void codeTables();
    void unknownCodesCarryOver();
    void queryIsBuiltWithATrimmedWhere_data();
    void queryIsBuiltWithATrimmedWhere();
    void queryIsTakenApartAsBuilt_data();
    void queryIsTakenApartAsBuilt();
    void queriesFromElsewhere();
};

void TestWmiRuleData::codeTables()
{
    using namespace wmicodes;
    QCOMPARE(conjunctionCode("EQ"), 0);
    QCOMPARE(conjunctionCode("AND"), 1);
    QCOMPARE(conjunctionCode("OR"), 2);
    QCOMPARE(conjunctionCode("and"), 2); // whole and case-sensitive: anything else is "OR"
    QCOMPARE(conjunctionCode(""), 2);

    const QStringList ops{"=", "!=", ">", "<", ">=", "<=", "in", "not in"};
    for (int i = 0; i < ops.size(); ++i)
        QCOMPARE(operatorCode(ops[i]), std::optional<qint16>(i + 1));
    for (const char *bad : {"==", "IN", "not  in", " =", "<>", ""})
        QVERIFY2(!operatorCode(bad), bad);

    const QStringList types{"boolean", "string", "uint8", "uint16", "sint16",
                            "uint32",  "sint32", "uint64", "sint64", "datetime"};
    for (int i = 0; i < types.size(); ++i)
        QCOMPARE(typeCode(types[i]), std::optional<qint16>(i + 1));
    QCOMPARE(typeCode("BOOLEAN"), std::optional<qint16>(1));
    for (const char *bad : {"String", "UINT32", "Boolean", "real32", "sint8", "char16", "object",
                            "reference", ""})
        QVERIFY2(!typeCode(bad), bad);
}

void TestWmiRuleData::unknownCodesCarryOver()
{
    WMIRuleData rule;
    auto cond = [](QString conj, QString op, QString type) {
        WMIConditionRecord c;
        c.conjunction = conj;
        c.op = op;
        c.type = type;
        return c;
    };
    // First condition outside both tables: 0 and 0. Later ones keep the previous codes.
    rule.conditions = {cond("EQ", "like", "real32"), cond("AND", ">=", "uint32"),
                       cond("OR", "~", "real64"),     cond("EQ", "in", "String"),
                       cond("XOR", "not in", "BOOLEAN")};
    const QList<WMIRuleRow> rows = encodeConditions(rule);
    QCOMPARE(rows.size(), 5);
    auto codes = [&](int i) {
        return QList<int>{rows[i].index, rows[i].conjunction, rows[i].opCode, rows[i].typeCode};
    };
    QCOMPARE(codes(0), QList<int>({0, 0, 0, 0}));
    QCOMPARE(codes(1), QList<int>({1, 1, 5, 6}));
    QCOMPARE(codes(2), QList<int>({2, 2, 5, 6}));
    QCOMPARE(codes(3), QList<int>({3, 0, 7, 6})); // a later "EQ" is still sent as 0
    QCOMPARE(codes(4), QList<int>({4, 2, 8, 1}));

    // A rule without conditions writes nothing and counts as written.
    rule.conditions.clear();
    QVERIFY(encodeConditions(rule).isEmpty());
    QVERIFY(writeConditions(rule));
}

void TestWmiRuleData::queryIsBuiltWithATrimmedWhere_data()
{
    QTest::addColumn<QString>("select");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("where");
    QTest::addColumn<QString>("query");
    QTest::newRow("no where") << "*" << "Win32_Process" << "" << "SELECT * FROM Win32_Process";
    QTest::newRow("blank where") << "*" << "Win32_Process" << " \t \t" << "SELECT * FROM Win32_Process";
    QTest::newRow("where") << "Name" << "Win32_Service" << "State = 'Running'"
                           << "SELECT Name FROM Win32_Service WHERE State = 'Running'";
    QTest::newRow("leading blanks and tabs go") << "*" << "A" << " \t x = 1 "
                                                << "SELECT * FROM A WHERE x = 1 ";
    QTest::newRow("other white space stays") << "*" << "A" << "\nx" << "SELECT * FROM A WHERE \nx";
    QTest::newRow("empty parts") << "" << "" << "" << "SELECT  FROM ";
}

void TestWmiRuleData::queryIsBuiltWithATrimmedWhere()
{
    QFETCH(QString, select);
    QFETCH(QString, from);
    QFETCH(QString, where);
    QFETCH(QString, query);
    QCOMPARE(buildWqlQuery(select, from, where), query);
}

void TestWmiRuleData::queryIsTakenApartAsBuilt_data()
{
    QTest::addColumn<QString>("select");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("where");
    QTest::newRow("plain") << "*" << "Win32_Process" << "";
    QTest::newRow("with where") << "Name, State" << "Win32_Service" << "State = 'Running'";
    QTest::newRow("where naming FROM and WHERE") << "*" << "Win32_Process"
                                                 << "Name = ' FROM x WHERE y' AND a = 1";
    QTest::newRow("trailing blanks kept") << "*" << "A" << "x = 1  ";
    QTest::newRow("lower-case words inside") << "from" << "where" << "select = 1";
    QTest::newRow("empty select and class") << "" << "" << "x";
}

void TestWmiRuleData::queryIsTakenApartAsBuilt()
{
    QFETCH(QString, select);
    QFETCH(QString, from);
    QFETCH(QString, where);
    const QString query = buildWqlQuery(select, from, where);
    const WqlQueryParts parts = splitWqlQuery(query);
    QCOMPARE(parts.select, select);
    QCOMPARE(parts.from, from);
    QCOMPARE(parts.where, where);
    QCOMPARE(buildWqlQuery(parts.select, parts.from, parts.where), query);
}

void TestWmiRuleData::queriesFromElsewhere()
{
    // Typed in another case: still taken apart.
    QCOMPARE(splitWqlQuery("select * from Win32_Process where Name = 'a'"),
             (WqlQueryParts{"*", "Win32_Process", "Name = 'a'"}));
    // Our own upper-case words win over a lower-case " where " inside the class part.
    QCOMPARE(splitWqlQuery("SELECT a FROM b where c"), (WqlQueryParts{"a", "b where c", ""}));
    // Not a query of that form at all: nothing is lost, it all lands in the select list.
    QCOMPARE(splitWqlQuery("ASSOCIATORS OF {Win32_Service.Name='x'}"),
             (WqlQueryParts{"ASSOCIATORS OF {Win32_Service.Name='x'}", "", ""}));
    QCOMPARE(splitWqlQuery("SELECT *"), (WqlQueryParts{"SELECT *", "", ""}));
    QCOMPARE(splitWqlQuery(""), (WqlQueryParts{"", "", ""}));
}

QTEST_GUILESS_MAIN(TestWmiRuleData)
#include "tst_wmiruledata.moc"
