#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "recordingservice.h"
#include "wmirule/conditionrow.h"
#include "wmirule/ruledata.h"

#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

namespace {

ScriptedReply taken(bool yes)
{
    return ScriptedReply::answer(QVariant::fromValue(qint16(yes ? -1 : 0)));
}

QString idFor(quint32 seed)
{
    RuleIdGenerator ref;
    ref.seed(seed);
    return ruleIdText(ref.next());
}

} // namespace

// The plain code under the rule sheets: rule ids and their search, the code tables, the query text.
class TestWmiRuleData : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup() { resetRuleIdClock(); }

    void followsTheCLibrarySequenceInFifteenBits()
    {
        // The well-known first numbers of the C library generator after a seed of 1.
        RuleIdGenerator gen;
        gen.seed(1);
        QList<int> drawn;
        for (int i = 0; i < 10; ++i)
            drawn << gen.next();
        QCOMPARE(drawn, QList<int>({41, 18467, 6334, 26500, 19169, 15724, 11478, 29358, 26962, 24464}));

        int highest = 0;
        for (quint32 s : {0u, 0x7fffffffu, 0x80000000u, 0xffffffffu, 1763700000u}) {
            gen.seed(s);
            for (int i = 0; i < 2000; ++i) {
                const int v = gen.next();
                QVERIFY(v >= 0 && v <= RuleIdGenerator::MaxId);
                highest = std::max(highest, v);
            }
        }
        QVERIFY(highest > 32000); // bit 15 of the result is really used
        QCOMPARE(ruleIdText(RuleIdGenerator::MaxId), QStringLiteral("000032767"));
    }

    void everyDrawIsReseededFromTheClock()
    {
        qint64 now = 1763700000;
        RuleIdGenerator gen([&now] { return now; });
        const int first = gen.draw();
        QCOMPARE(gen.draw(), first); // same second, same candidate
        QCOMPARE(ruleIdText(first), idFor(quint32(now)));
        ++now;
        QVERIFY(gen.draw() != first);
        now = (qint64(1) << 32) + 5; // truncated as an unsigned seed takes it
        QCOMPARE(ruleIdText(gen.draw()), idFor(5));

        // Without a clock of its own, the shared one is read on every draw.
        int reads = 0;
        ruleIdClock() = [&reads] { ++reads; return qint64(1); };
        RuleIdGenerator shared;
        QCOMPARE(shared.draw(), 41);
        QCOMPARE(shared.draw(), 41);
        QCOMPARE(reads, 2);
    }

    void searchAsksUntilTheServiceAccepts()
    {
        RecordingService s;
        for (int i = 0; i < 3; ++i)
            s.scriptOnce("CanUseID", taken(true));
        s.script("CanUseID", taken(false));
        // The clock moves on only after the second refusal: the first two candidates are equal.
        QList<qint64> clock{1, 1, 2, 3};
        RuleIdGenerator gen([&clock] { return clock.size() > 1 ? clock.takeFirst() : clock.first(); });
        int pauses = 0;
        const DrawnRuleId drawn = drawUnusedRuleId(&s, category::WMI, gen, [&pauses] {
            ++pauses;
            return true;
        });
        QVERIFY(drawn.accepted());
        QCOMPARE(drawn.tries, 4);
        QCOMPARE(pauses, 3);
        QStringList expected;
        for (quint32 t : {1, 1, 2, 3})
            expected << "CanUseID(text:" + idFor(t) + ", short:6)";
        QCOMPARE(s.signatures(), expected);
        QCOMPARE(drawn.id, idFor(3));

        // Anything but the 16-bit true counts as free, also for the NAQC category.
        s.clear();
        s.script("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(1))));
        QVERIFY(drawUnusedRuleId(&s, category::NAQC, gen).accepted());
        QCOMPARE(s.signatures(), QStringList({"CanUseID(text:" + idFor(3) + ", short:5)"}));
    }

    void searchStopsOnAFailureOrWhenAbandoned()
    {
        RecordingService s;
        s.scriptOnce("CanUseID", taken(true));
        s.failCall(1, status::UnknownName);
        RuleIdGenerator gen([] { return qint64(7); });
        const DrawnRuleId failed = drawUnusedRuleId(&s, category::WMI, gen);
        QVERIFY(!failed.accepted());
        QCOMPARE(failed.status, status::UnknownName);
        QVERIFY(failed.id.isEmpty());
        QCOMPARE(s.calls().size(), 2);

        // No service at all fails like an unknown name, without looping.
        const DrawnRuleId none = drawUnusedRuleId(nullptr, category::WMI, gen);
        QVERIFY(!none.accepted());
        QCOMPARE(none.tries, 1);

        s.script("CanUseID", taken(true));
        int pauses = 0;
        const DrawnRuleId given = drawUnusedRuleId(&s, category::WMI, gen, [&pauses] {
            return ++pauses < 50;
        });
        QVERIFY(given.abandoned && !given.accepted());
        QCOMPARE(given.tries, 50);
        QVERIFY(given.id.isEmpty());
    }

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
