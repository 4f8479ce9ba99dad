#include "wmirule/conditionrow.h"
#include "wmirule/ruledata.h"

#include <QtTest>

using namespace qarvo;

class TestWmiRuleData : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void codeTables()
    {
        using namespace wmicodes;
        const QStringList conjunctions{"EQ", "AND", "OR", "and", ""}; // anything else is "OR"
        for (int i = 0; i < conjunctions.size(); ++i)
            QCOMPARE(conjunctionCode(conjunctions[i]), std::min(i, 2));
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
        for (const char *bad : {"String", "UINT32", "Boolean", "real32", "sint8", "object", ""})
            QVERIFY2(!typeCode(bad), bad);
    }

    void unknownCodesCarryOver()
    {
        WMIRuleData rule;
        const QList<QStringList> conditions{{"EQ", "like", "real32"}, {"AND", ">=", "uint32"},
                                            {"OR", "~", "real64"},    {"EQ", "in", "String"},
                                            {"XOR", "not in", "BOOLEAN"}};
        for (const QStringList &c : conditions)
            rule.conditions.append({c[0], {}, {}, {}, c[1], {}, c[2]});
        // First condition outside both tables: 0 and 0. Later ones keep the previous codes.
        QList<QList<int>> codes;
        for (const WMIRuleRow &row : encodeConditions(rule))
            codes.append({row.index, row.conjunction, row.opCode, row.typeCode});
        QCOMPARE(codes, (QList<QList<int>>{{0, 0, 0, 0}, {1, 1, 5, 6}, {2, 2, 5, 6},
                                           {3, 0, 7, 6}, // a later "EQ" is still sent as 0
                                           {4, 2, 8, 1}}));
        rule.conditions.clear(); // nothing to write counts as written
        QVERIFY(encodeConditions(rule).isEmpty());
        QVERIFY(writeConditions(rule));
    }

    void queryBuiltAndTakenApart_data()
    {
        QTest::addColumn<QString>("select");
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("where");
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("whereBack");
        QTest::newRow("no where") << "*" << "Win32_Process" << "" << "SELECT * FROM Win32_Process" << "";
        QTest::newRow("blank where") << "*" << "A" << " \t \t" << "SELECT * FROM A" << "";
        QTest::newRow("where") << "Name, State" << "Win32_Service" << "State = 'Running'"
                               << "SELECT Name, State FROM Win32_Service WHERE State = 'Running'"
                               << "State = 'Running'";
        QTest::newRow("leading blanks and tabs go") << "*" << "A" << " \t x = 1  "
                                                    << "SELECT * FROM A WHERE x = 1  " << "x = 1  ";
        QTest::newRow("other white space stays") << "*" << "A" << "\nx" << "SELECT * FROM A WHERE \nx" << "\nx";
        QTest::newRow("where naming FROM and WHERE")
            << "*" << "B" << "N = ' FROM x WHERE y'" << "SELECT * FROM B WHERE N = ' FROM x WHERE y'"
            << "N = ' FROM x WHERE y'";
        QTest::newRow("lower-case words inside") << "from" << "where" << "select = 1"
                                                 << "SELECT from FROM where WHERE select = 1" << "select = 1";
        QTest::newRow("empty parts") << "" << "" << "" << "SELECT  FROM " << "";
    }

    void queryBuiltAndTakenApart()
    {
        QFETCH(QString, select);
        QFETCH(QString, from);
        QFETCH(QString, where);
        QFETCH(QString, query);
        QFETCH(QString, whereBack);
        QCOMPARE(buildWqlQuery(select, from, where), query);
        QCOMPARE(splitWqlQuery(query), (WqlQueryParts{select, from, whereBack}));
    }

    void queriesFromElsewhere()
    {
        // Typed in another case: still taken apart.
        QCOMPARE(splitWqlQuery("select * from Win32_Process where Name = 'a'"),
                 (WqlQueryParts{"*", "Win32_Process", "Name = 'a'"}));
        // Our own upper-case words win over a lower-case " where " inside the class part.
        QCOMPARE(splitWqlQuery("SELECT a FROM b where c"), (WqlQueryParts{"a", "b where c", ""}));
        // Not a query of that form at all: nothing is lost, it all lands in the select list.
        for (const char *other : {"ASSOCIATORS OF {Win32_Service.Name='x'}", "SELECT *", ""})
            QCOMPARE(splitWqlQuery(other), (WqlQueryParts{other, "", ""}));
    }
};

QTEST_GUILESS_MAIN(TestWmiRuleData)
#include "tst_wmiruledata.moc"
