#include "dataservice/calls.h"
#include "recordingservice.h"

#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

class TestCalls : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void idText_data();
    void idText();
    void idFromText_data();
    void idFromText();
    void everyHelperSendsNameOrderAndKinds();
    void yesNoReading_data();
    void yesNoReading();
    void unknownNameStopsBeforeAnythingIsSent();
    void nullServiceFailsLikeUnknownName();
    void throwingServiceIsAFailure();
    void rowsAreReadInOrderThenClosed();
    void emptyRowSetIsClosedWithNothingRead();
    void missingRowSetRaisesInvalidPointer();
    void faultHalfWayEndsTheActionAndKeepsWhatWasRead();
    void faultOnCloseEndsTheAction();
    void memoryRowSetMisuseThrowsInsteadOfCrashing();
};

void TestCalls::idText_data()
{
    QTest::addColumn<qint64>("id");
    QTest::addColumn<QString>("text");
    QTest::newRow("zero") << qint64(0) << "000000000";
    QTest::newRow("small") << qint64(12) << "000000012";
    QTest::newRow("max draw") << qint64(32767) << "000032767";
    QTest::newRow("nine digits") << qint64(123456789) << "123456789";
    QTest::newRow("wider") << qint64(1234567890) << "1234567890";
}

void TestCalls::idText()
{
    QFETCH(qint64, id);
    QFETCH(QString, text);
    QCOMPARE(ruleIdText(id), text);
}

void TestCalls::idFromText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("id");
    QTest::newRow("padded") << "000000042" << 42;
    QTest::newRow("leading digits only") << "12abc" << 12;
    QTest::newRow("no digits") << "abc" << 0;
    QTest::newRow("empty") << "" << 0;
    QTest::newRow("blanks and sign") << "  -7" << -7;
    QTest::newRow("every kind of blank") << "\v\f\t 8" << 8;
    QTest::newRow("plus") << "+15" << 15;
    QTest::newRow("too large clamps") << "99999999999999999999" << std::numeric_limits<int>::max();
    QTest::newRow("too small clamps") << "-99999999999999999999" << std::numeric_limits<int>::min();
    QTest::newRow("non-ascii digits are not digits") << QString::fromUtf8("\u0661\u0662") << 0;
}

void TestCalls::idFromText()
{
    QFETCH(QString, text);
    QFETCH(int, id);
    QCOMPARE(ruleIdFromText(text), id);
}

void TestCalls::everyHelperSendsNameOrderAndKinds()
{
    RecordingService s;
    calls::GetWMIRules(&s);
    calls::GetRQCRule(&s);
    calls::GetWMIRuleInfo(&s, ruleIdText(7));
    calls::GetRQCRuleInfo(&s, ruleIdText(8));
    calls::GetRQCRuleScriptInfo(&s, ruleIdText(9));
    calls::RulesUsedExRule(&s, QStringLiteral("R"), category::NAQC);
    calls::CanUseID(&s, ruleIdText(10), category::WMI);
    calls::CanUseExRuleName(&s, QStringLiteral("Name"), category::NAQC);
    calls::UpdateExRuleNameInRule(&s, QStringLiteral("Old"), QStringLiteral("New"), category::WMI);
    calls::DelWMIRule(&s, ruleIdText(11), delmode::FromList);
    calls::DelRQCRule(&s, ruleIdText(12), delmode::BeforeStoreAgain);
    WMIRuleRow row{ruleIdText(13), QStringLiteral("N"), QStringLiteral("C"), 1, 2, 1,
                   QStringLiteral("SELECT * FROM Win32_Service"), QStringLiteral("#Count"),
                   QStringLiteral("3"), QStringLiteral(">"), 2, QStringLiteral("Root\\CIMV2"),
                   QStringLiteral("uint32"), 5};
    calls::AddWMIRule(&s, row);
    calls::AddRQCScript(&s, ruleIdText(14), 3, QStringLiteral("a.cmd"), QStringLiteral("Onconnect"),
                        QStringLiteral("c"), 1);
    calls::AddRQCRule(&s, ruleIdText(14), QStringLiteral("N"), QStringLiteral("svc"),
                      QStringLiteral("c"), QStringLiteral("\"svc\"0"));

    const QStringList expected = {
        "GetWMIRules(slot)",
        "GetRQCRule(slot)",
        "GetWMIRuleInfo(text:000000007, slot)",
        "GetRQCRuleInfo(text:000000008, slot)",
        "GetRQCRuleScriptInfo(text:000000009, slot)",
        "RulesUsedExRule(text:R, short:5, slot)",
        "CanUseID(text:000000010, short:6)",
        "CanUseExRuleName(text:Name, short:5)",
        "UpdateExRuleNameInRule(text:Old, text:New, short:6)",
        "DelWMIRule(text:000000011, short:1)",
        "DelRQCRule(text:000000012, short:2)",
        "AddWMIRule(text:000000013, text:N, text:C, short:1, short:2, short:1, "
        "text:SELECT * FROM Win32_Service, text:#Count, text:3, text:>, short:2, "
        "text:Root\\CIMV2, text:uint32, short:5)",
        "AddRQCScript(text:000000014, short:3, text:a.cmd, text:Onconnect, text:c, short:1)",
        "AddRQCRule(text:000000014, text:N, text:svc, text:c, text:\"svc\"0)",
    };
    QCOMPARE(s.signatures(), expected);
}

void TestCalls::yesNoReading_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("yes");
    QTest::newRow("-1 short") << QVariant::fromValue(qint16(-1)) << true;
    QTest::newRow("-1 int") << QVariant(-1) << true;
    QTest::newRow("65535 reads as -1 in 16 bits") << QVariant(65535) << true;
    QTest::newRow("bool true") << QVariant(true) << true;
    QTest::newRow("0") << QVariant(0) << false;
    QTest::newRow("1 is not true") << QVariant(1) << false;
    QTest::newRow("empty") << QVariant() << false;
}

void TestCalls::yesNoReading()
{
    QFETCH(QVariant, value);
    QFETCH(bool, yes);
    RecordingService s;
    s.script(QStringLiteral("CanUseID"), ScriptedReply::answer(value));
    const YesNo answer = calls::CanUseID(&s, ruleIdText(1), category::WMI);
    QVERIFY(!answer.failed());
    QCOMPARE(answer.yes, yes);
}

void TestCalls::unknownNameStopsBeforeAnythingIsSent()
{
    RecordingService s;
    s.forgetMethod(QStringLiteral("DelWMIRule"));
    const qint32 st = calls::DelWMIRule(&s, ruleIdText(1), delmode::FromList);
    QCOMPARE(st, status::UnknownName);
    QCOMPARE(s.lookups(), 1);
    QVERIFY(s.calls().isEmpty());

    Reply r = callByName(&s, QStringLiteral("NoSuchMethod"), {});
    QVERIFY(r.failed());
    QVERIFY(!r.rows);
}

void TestCalls::nullServiceFailsLikeUnknownName()
{
    QCOMPARE(calls::DelRQCRule(nullptr, ruleIdText(1), 1), status::UnknownName);
    Reply r = calls::GetWMIRules(nullptr);
    QCOMPARE(r.status, status::UnknownName);
    const YesNo answer = calls::CanUseExRuleName(nullptr, QStringLiteral("x"), 6);
    QVERIFY(answer.failed());
    QVERIFY(!answer.yes); // a failed check never reads as "taken"
}

void TestCalls::throwingServiceIsAFailure()
{
    struct Thrower : DataService {
        Reply call(const QString &, const ArgList &) override { throw std::runtime_error("boom"); }
    } thrower;
    QVERIFY(calls::GetWMIRules(&thrower).failed());
}

void TestCalls::rowsAreReadInOrderThenClosed()
{
    RecordingService s;
    s.script(QStringLiteral("GetRQCRule"),
             ScriptedReply::table({"rule_name", "rule_comment", "rule_id"},
                                  {{"a", "c1", "000000001"}, {"b", "c2", "2x"}}));
    Reply reply = calls::GetRQCRule(&s);
    QStringList names;
    QList<int> ids;
    QVERIFY(guardAction([&] {
        forEachRow(reply, [&](RowReader &r) {
            names << r.text("rule_name");
            ids << ruleIdFromText(r.text("rule_id"));
        });
    }));
    QCOMPARE(names, QStringList({"a", "b"}));
    QCOMPARE(ids, QList<int>({1, 2}));
    QVERIFY(s.rowSets().first()->closed);
    QCOMPARE(s.rowSets().first()->destroyed, 1);
}

void TestCalls::emptyRowSetIsClosedWithNothingRead()
{
    RecordingService s;
    Reply reply = calls::GetWMIRules(&s);
    int visited = 0;
    QVERIFY(guardAction([&] { forEachRow(reply, [&](RowReader &) { ++visited; }); }));
    QCOMPARE(visited, 0);
    QVERIFY(s.rowSets().first()->closed);
    QCOMPARE(s.rowSets().first()->fieldReads, 0);
}

void TestCalls::missingRowSetRaisesInvalidPointer()
{
    RecordingService s;
    ScriptedReply none;
    none.noRowSet = true;
    s.script(QStringLiteral("RulesUsedExRule"), none);
    Reply reply = calls::RulesUsedExRule(&s, QStringLiteral("R"), 6);
    QVERIFY(!reply.failed());

    qint32 reported = 0;
    setFaultReporter([&](const DataServiceError &e) { reported = e.status(); });
    bool deleted = false;
    const bool completed = guardAction([&] {
        forEachRow(reply, [&](RowReader &) {});
        deleted = true; // would be the deletion that follows an empty usage list
    });
    setFaultReporter({});
    QVERIFY(!completed);
    QVERIFY(!deleted);
    QCOMPARE(reported, status::InvalidPointer);
}

void TestCalls::faultHalfWayEndsTheActionAndKeepsWhatWasRead()
{
    RecordingService s;
    ScriptedReply rows = ScriptedReply::table({"rule_name"}, {{"a"}, {"b"}, {"c"}});
    rows.faultAtFieldRead = 1;
    s.script(QStringLiteral("GetWMIRules"), rows);
    Reply reply = calls::GetWMIRules(&s);
    QStringList names;
    setFaultReporter([](const DataServiceError &) {});
    QVERIFY(!guardAction([&] { forEachRow(reply, [&](RowReader &r) { names << r.text("rule_name"); }); }));
    setFaultReporter({});
    QCOMPARE(names, QStringList({"a"}));
    QVERIFY(!s.rowSets().first()->closed);
    QCOMPARE(s.rowSets().first()->destroyed, 1); // released by the clean-up all the same
}

void TestCalls::faultOnCloseEndsTheAction()
{
    RecordingService s;
    ScriptedReply rows = ScriptedReply::table({"rule_name"}, {{"a"}});
    rows.faultOnClose = true;
    s.script(QStringLiteral("GetWMIRules"), rows);
    Reply reply = calls::GetWMIRules(&s);
    bool after = false;
    setFaultReporter([](const DataServiceError &) {});
    QVERIFY(!guardAction([&] {
        forEachRow(reply, [](RowReader &) {});
        after = true;
    }));
    setFaultReporter({});
    QVERIFY(!after);
}

void TestCalls::memoryRowSetMisuseThrowsInsteadOfCrashing()
{
    MemoryRowSet rows({"a"}, {{1}});
    QVERIFY_THROWS_EXCEPTION(DataServiceError, rows.field("missing"));
    rows.moveNext();
    QVERIFY(rows.atEnd());
    QVERIFY_THROWS_EXCEPTION(DataServiceError, rows.moveNext());
    QVERIFY_THROWS_EXCEPTION(DataServiceError, rows.field("a"));
    rows.close();
    QVERIFY_THROWS_EXCEPTION(DataServiceError, rows.atEnd());
}

QTEST_GUILESS_MAIN(TestCalls)
#include "tst_calls.moc"
