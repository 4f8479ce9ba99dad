#include "storefixture.h"

#include <QtTest>

#include <atomic>
#include <thread>

using namespace qarvo;
using namespace qarvo::test;

namespace {

const QString WMI = QStringLiteral("WMI");

// The NAQC rule as the wizard stores it: script entries first, then the rule.
bool storeNaqc(DataService *s, int id, const QString &name, int entries = 2)
{
    for (int n = 0; n < entries; ++n) {
        if (failed(calls::AddRQCScript(s, ruleIdText(id), qint16(n),
                                       QStringLiteral("check%1.cmd").arg(n),
                                       QStringLiteral("Pre-Connect Actions"),
                                       QStringLiteral("entry %1").arg(n), qint16(n == 1))))
            return false;
    }
    return !failed(calls::AddRQCRule(s, ruleIdText(id), name, QStringLiteral("Corporate VPN"),
                                     QStringLiteral("comment of ") + name,
                                     QStringLiteral("\"Corporate VPN\",0,\"1\",0,0,0,0,0,0,0")));
}

bool storeWmi(DataService *s, int id, const QString &name, int conditions = 1, qint16 kind = 0)
{
    for (int i = 0; i < conditions; ++i) {
        if (failed(calls::AddWMIRule(s, wmiRow(id, name, qint16(i), kind))))
            return false;
    }
    return true;
}

QStringList users(DataService *s, const QString &name, qint16 cat)
{
    Reply r = calls::RulesUsedExRule(s, name, cat);
    return r.failed() ? QStringList{QStringLiteral("<failed>")} : column(r, QStringLiteral("rule_name"));
}

QStringList names(DataService *s, qint16 cat)
{
    Reply r = cat == category::WMI ? calls::GetWMIRules(s) : calls::GetRQCRule(s);
    return column(r, QStringLiteral("rule_name"));
}

qint16 answer(const Reply &r)
{
    return r.value.value<qint16>();
}

} // namespace

class TestSqlRuleStore : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase_data() { StoreFixture::addBackendRows(); }
    void init() { m_fx.setUp(); }
    void cleanup() { m_fx.tearDown(); }

    void freshStoreHasLayoutVersionAndNoRules();
    void wmiAndWqlRulesRoundTrip();
    void naqcRuleRoundTrip();
    void checksAnswerWithinTheCategoryAsShort();
    void usageIsReportedAndFollowsRenames();
    void renameToATakenNameChangesNothing();
    void deleteFromListDropsUsesButStoreAgainKeepsThem();
    void propertySheetEditKeepsIdAndUsers();
    void dispatchRefusesUnknownNamesCountsAndKinds_data();
    void dispatchRefusesUnknownNamesCountsAndKinds();
    void badValuesAreRefusedWithNothingWritten_data();
    void badValuesAreRefusedWithNothingWritten();
    void idsAreNumbersUpToNineDigits();
    void textsAreStoredVerbatim_data();
    void textsAreStoredVerbatim();
    void failingCallLeavesNoHalfWrittenRule();
    void twoStoresShareOneDatabase();
    void racingStoresCannotStoreTheSameIdOrName();

private:
    StoreFixture m_fx;
};

void TestSqlRuleStore::freshStoreHasLayoutVersionAndNoRules()
{
    {
        auto store = m_fx.open();
        QVERIFY2(store->isOpen(), qPrintable(store->lastError()));
        QVERIFY(store->isEmpty());
        QCOMPARE(names(store.get(), category::WMI), QStringList());
        QCOMPARE(names(store.get(), category::NAQC), QStringList());
        QVERIFY(storeWmi(store.get(), 7, QStringLiteral("Kept")));
        QVERIFY(!store->isEmpty());
    }
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT version FROM schema_version")).toInt(),
             SqlRuleStore::SchemaVersion);
    // Opening again reads what is there and neither recreates nor duplicates anything.
    auto again = m_fx.open();
    QVERIFY2(again->isOpen(), qPrintable(again->lastError()));
    QCOMPARE(names(again.get(), category::WMI), QStringList{QStringLiteral("Kept")});
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM schema_version")).toInt(), 1);
}

void TestSqlRuleStore::wmiAndWqlRulesRoundTrip()
{
    auto store = m_fx.open();
    QVERIFY(storeWmi(store.get(), 12, QStringLiteral("beta"), 3, 0));
    QVERIFY(storeWmi(store.get(), 32767, QStringLiteral("Alpha"), 1, 1));
    QVERIFY(storeNaqc(store.get(), 12, QStringLiteral("not listed with WMI")));

    Reply list = calls::GetWMIRules(store.get());
    QVERIFY(!list.failed());
    const auto rules = readRows(list, {"rule_wql", "rule_name", "rule_comment", "rule_id"});
    QCOMPARE(rules.size(), 2);
    // Sorted as an administrator reads names, whatever the case.
    QCOMPARE(rules[0].value("rule_name").toString(), QStringLiteral("Alpha"));
    QCOMPARE(rules[0].value("rule_wql").toInt(), 1);
    QCOMPARE(rules[0].value("rule_id").toString(), QStringLiteral("000032767"));
    QCOMPARE(rules[1].value("rule_name").toString(), QStringLiteral("beta"));
    QCOMPARE(rules[1].value("rule_wql").toInt(), 0);
    QCOMPARE(rules[1].value("rule_comment").toString(), QStringLiteral("comment of beta"));
    QCOMPARE(rules[1].value("rule_id").toString(), QStringLiteral("000000012"));

    Reply info = calls::GetWMIRuleInfo(store.get(), ruleIdText(12));
    const auto conditions = readRows(info, {"rule_name", "rule_comment", "rule_wql", "rule_op",
                                            "rule_namespace", "rule_class", "rule_field",
                                            "rule_type", "rule_condition", "rule_value"});
    QCOMPARE(conditions.size(), 3);
    for (int i = 0; i < 3; ++i) {
        const QVariantMap &c = conditions[i];
        QCOMPARE(c.value("rule_name").toString(), QStringLiteral("beta"));
        QCOMPARE(c.value("rule_comment").toString(), QStringLiteral("comment of beta"));
        QCOMPARE(c.value("rule_wql").toInt(), 0);
        QCOMPARE(c.value("rule_op").toInt(), i == 0 ? 0 : 1);
        QCOMPARE(c.value("rule_namespace").toString(), QStringLiteral("root\\cimv2"));
        QCOMPARE(c.value("rule_class").toString(), QStringLiteral("Win32_OperatingSystem"));
        QCOMPARE(c.value("rule_field").toString(), QStringLiteral("ServicePackMajorVersion"));
        QCOMPARE(c.value("rule_type").toString(), QStringLiteral("uint16"));
        QCOMPARE(c.value("rule_condition").toString(), QStringLiteral(">="));
        QCOMPARE(c.value("rule_value").toString(), QString::number(i + 1));
    }

    Reply wql = calls::GetWMIRuleInfo(store.get(), ruleIdText(32767));
    const auto query = readRows(wql, {"rule_wql", "rule_class", "rule_field"});
    QCOMPARE(query.size(), 1);
    QCOMPARE(query[0].value("rule_wql").toInt(), 1);
    QCOMPARE(query[0].value("rule_class").toString(),
             QStringLiteral("SELECT * FROM Win32_Service WHERE State = 'Running'"));
    QCOMPARE(query[0].value("rule_field").toString(), QStringLiteral("#Count"));

    // An id nobody stored answers with no rows, not with a failure.
    Reply none = calls::GetWMIRuleInfo(store.get(), ruleIdText(99));
    QVERIFY(!none.failed());
    QCOMPARE(readRows(none, {"rule_name"}).size(), 0);
}

void TestSqlRuleStore::naqcRuleRoundTrip()
{
    auto store = m_fx.open();
    QVERIFY(storeNaqc(store.get(), 42, QStringLiteral("VPN baseline"), 3));
    QVERIFY(storeWmi(store.get(), 42, QStringLiteral("not listed with NAQC")));

    Reply list = calls::GetRQCRule(store.get());
    const auto rules = readRows(list, {"rule_name", "rule_comment", "rule_id"});
    QCOMPARE(rules.size(), 1);
    QCOMPARE(rules[0].value("rule_name").toString(), QStringLiteral("VPN baseline"));
    QCOMPARE(rules[0].value("rule_comment").toString(), QStringLiteral("comment of VPN baseline"));
    QCOMPARE(rules[0].value("rule_id").toString(), QStringLiteral("000000042"));

    Reply info = calls::GetRQCRuleInfo(store.get(), ruleIdText(42));
    const auto rule = readRows(info, {"rule_name", "rule_servicename", "rule_comment", "rule_selection"});
    QCOMPARE(rule.size(), 1);
    QCOMPARE(rule[0].value("rule_servicename").toString(), QStringLiteral("Corporate VPN"));
    QCOMPARE(rule[0].value("rule_selection").toString(),
             QStringLiteral("\"Corporate VPN\",0,\"1\",0,0,0,0,0,0,0"));

    Reply scripts = calls::GetRQCRuleScriptInfo(store.get(), ruleIdText(42));
    const auto entries = readRows(scripts, {"rule_select", "rule_script", "rule_scriptact", "rule_comment"});
    QCOMPARE(entries.size(), 3);
    for (int n = 0; n < 3; ++n) {
        QCOMPARE(entries[n].value("rule_select").toInt(), n == 1 ? 1 : 0);
        QCOMPARE(entries[n].value("rule_script").toString(), QStringLiteral("check%1.cmd").arg(n));
        QCOMPARE(entries[n].value("rule_scriptact").toString(), QStringLiteral("Pre-Connect Actions"));
        QCOMPARE(entries[n].value("rule_comment").toString(), QStringLiteral("entry %1").arg(n));
    }
}

void TestSqlRuleStore::checksAnswerWithinTheCategoryAsShort()
{
    auto store = m_fx.open();
    QVERIFY(storeWmi(store.get(), 5, QStringLiteral("Shared")));

    Reply taken = store->call(QStringLiteral("CanUseID"), {ruleIdText(5), category::WMI});
    QVERIFY(!taken.failed());
    QCOMPARE(taken.value.typeId(), int(QMetaType::Short));
    QCOMPARE(answer(taken), qint16(-1));
    Reply free = store->call(QStringLiteral("CanUseID"), {ruleIdText(5), category::NAQC});
    QCOMPARE(free.value.typeId(), int(QMetaType::Short));
    QCOMPARE(answer(free), qint16(0));

    QVERIFY(calls::CanUseExRuleName(store.get(), QStringLiteral("Shared"), category::WMI).yes);
    QVERIFY(!calls::CanUseExRuleName(store.get(), QStringLiteral("Shared"), category::NAQC).yes);
    // Exactly as sent: neither case nor surrounding blanks are folded.
    QVERIFY(!calls::CanUseExRuleName(store.get(), QStringLiteral("shared"), category::WMI).yes);
    QVERIFY(!calls::CanUseExRuleName(store.get(), QStringLiteral("Shared "), category::WMI).yes);

    // Script entries stored before their rule (a wizard that failed half-way) hold the id too.
    QVERIFY(!failed(calls::AddRQCScript(store.get(), ruleIdText(77), 0, QStringLiteral("a.cmd"),
                                        QStringLiteral("Connect Actions"), QString(), 1)));
    QVERIFY(calls::CanUseID(store.get(), ruleIdText(77), category::NAQC).yes);
    QVERIFY(!calls::CanUseID(store.get(), ruleIdText(77), category::WMI).yes);
}

void TestSqlRuleStore::usageIsReportedAndFollowsRenames()
{
    auto store = m_fx.open();
    QVERIFY(storeWmi(store.get(), 1, QStringLiteral("Patch level")));
    QVERIFY(storeWmi(store.get(), 2, QStringLiteral("workstation")));
    QVERIFY(storeWmi(store.get(), 3, QStringLiteral("Server")));
    QVERIFY(storeNaqc(store.get(), 4, QStringLiteral("VPN")));
    QCOMPARE(store->addRuleUsage(category::WMI, ruleIdText(2), category::WMI, QStringLiteral("Patch level")), status::Ok);
    QCOMPARE(store->addRuleUsage(category::NAQC, ruleIdText(4), category::WMI, QStringLiteral("Patch level")), status::Ok);
    QCOMPARE(store->addRuleUsage(category::WMI, ruleIdText(3), category::WMI, QStringLiteral("Patch level")), status::Ok);
    // Recording the same use twice is harmless; a rule cannot use itself or a missing rule.
    QCOMPARE(store->addRuleUsage(category::WMI, ruleIdText(3), category::WMI, QStringLiteral("Patch level")), status::Ok);
    QVERIFY(failed(store->addRuleUsage(category::WMI, ruleIdText(1), category::WMI, QStringLiteral("Patch level"))));
    QVERIFY(failed(store->addRuleUsage(category::WMI, ruleIdText(1), category::WMI, QStringLiteral("Nowhere"))));

    QCOMPARE(users(store.get(), QStringLiteral("Patch level"), category::WMI),
             (QStringList{"Server", "VPN", "workstation"}));
    QCOMPARE(users(store.get(), QStringLiteral("Patch level"), category::NAQC), QStringList());
    QCOMPARE(users(store.get(), QStringLiteral("Server"), category::WMI), QStringList());

    QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("Patch level"),
                                           QStringLiteral("Patch level 2"), category::WMI),
             status::Ok);
    QCOMPARE(users(store.get(), QStringLiteral("Patch level"), category::WMI), QStringList());
    QCOMPARE(users(store.get(), QStringLiteral("Patch level 2"), category::WMI),
             (QStringList{"Server", "VPN", "workstation"}));
    QVERIFY(names(store.get(), category::WMI).contains(QStringLiteral("Patch level 2")));

    // Renaming in the other category touches nothing here.
    QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("Patch level 2"),
                                           QStringLiteral("Other"), category::NAQC),
             status::Ok);
    QCOMPARE(users(store.get(), QStringLiteral("Patch level 2"), category::WMI).size(), 3);
}

void TestSqlRuleStore::renameToATakenNameChangesNothing()
{
    auto store = m_fx.open();
    QVERIFY(storeWmi(store.get(), 1, QStringLiteral("A")));
    QVERIFY(storeWmi(store.get(), 2, QStringLiteral("B")));
    QVERIFY(storeWmi(store.get(), 3, QStringLiteral("C")));
    QCOMPARE(store->addRuleUsage(category::WMI, ruleIdText(3), category::WMI, QStringLiteral("A")), status::Ok);

    QVERIFY(failed(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("A"), QStringLiteral("B"),
                                                 category::WMI)));
    QVERIFY(!store->lastError().isEmpty());
    QCOMPARE(names(store.get(), category::WMI), (QStringList{"A", "B", "C"}));
    QCOMPARE(users(store.get(), QStringLiteral("A"), category::WMI), QStringList{"C"});
    QCOMPARE(users(store.get(), QStringLiteral("B"), category::WMI), QStringList());
}

void TestSqlRuleStore::deleteFromListDropsUsesButStoreAgainKeepsThem()
{
    auto store = m_fx.open();
    QVERIFY(storeWmi(store.get(), 1, QStringLiteral("Base")));
    QVERIFY(storeWmi(store.get(), 2, QStringLiteral("User"), 2));
    QVERIFY(storeNaqc(store.get(), 3, QStringLiteral("VPN")));
    QCOMPARE(store->addRuleUsage(category::WMI, ruleIdText(2), category::WMI, QStringLiteral("Base")), status::Ok);
    QCOMPARE(store->addRuleUsage(category::NAQC, ruleIdText(3), category::WMI, QStringLiteral("User")), status::Ok);

    // Mode 2: the rule and its conditions go; uses in both directions wait for it to come back.
    QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(2), delmode::BeforeStoreAgain), status::Ok);
    QCOMPARE(names(store.get(), category::WMI), QStringList{"Base"});
    Reply gone = calls::GetWMIRuleInfo(store.get(), ruleIdText(2));
    QCOMPARE(readRows(gone, {"rule_name"}).size(), 0);
    QVERIFY(storeWmi(store.get(), 2, QStringLiteral("User"), 1));
    QCOMPARE(users(store.get(), QStringLiteral("Base"), category::WMI), QStringList{"User"});
    QCOMPARE(users(store.get(), QStringLiteral("User"), category::WMI), QStringList{"VPN"});

    // Mode 1: its own uses go with it, and stray references to it as well.
    QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(2), delmode::FromList), status::Ok);
    QCOMPARE(users(store.get(), QStringLiteral("Base"), category::WMI), QStringList());
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM rule_usage")).toInt(), 0);
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM wmi_conditions WHERE rule_id = 2")).toInt(), 0);
    QVERIFY(!calls::CanUseID(store.get(), ruleIdText(2), category::WMI).yes);

    // The same for NAQC rules and their script entries.
    QCOMPARE(store->addRuleUsage(category::NAQC, ruleIdText(3), category::WMI, QStringLiteral("Base")), status::Ok);
    QCOMPARE(calls::DelRQCRule(store.get(), ruleIdText(3), delmode::BeforeStoreAgain), status::Ok);
    QCOMPARE(names(store.get(), category::NAQC), QStringList());
    Reply noScripts = calls::GetRQCRuleScriptInfo(store.get(), ruleIdText(3));
    QCOMPARE(readRows(noScripts, {"rule_script"}).size(), 0);
    QVERIFY(storeNaqc(store.get(), 3, QStringLiteral("VPN")));
    QCOMPARE(users(store.get(), QStringLiteral("Base"), category::WMI), QStringList{"VPN"});
    QCOMPARE(calls::DelRQCRule(store.get(), ruleIdText(3), delmode::FromList), status::Ok);
    QCOMPARE(users(store.get(), QStringLiteral("Base"), category::WMI), QStringList());
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM naqc_scripts")).toInt(), 0);

    // Deleting what is not there is not an error: another console may have been first.
    QCOMPARE(calls::DelRQCRule(store.get(), ruleIdText(3), delmode::FromList), status::Ok);
}

void TestSqlRuleStore::propertySheetEditKeepsIdAndUsers()
{
    auto store = m_fx.open();
    QVERIFY(storeWmi(store.get(), 10, QStringLiteral("Old name"), 2));
    QVERIFY(storeWmi(store.get(), 11, QStringLiteral("Policy")));
    QCOMPARE(store->addRuleUsage(category::WMI, ruleIdText(11), category::WMI, QStringLiteral("Old name")), status::Ok);

    // The sheet's sequence: name check, rename, delete in mode 2, store again.
    QVERIFY(!calls::CanUseExRuleName(store.get(), QStringLiteral("New name"), category::WMI).yes);
    QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("Old name"),
                                           QStringLiteral("New name"), category::WMI), status::Ok);
    QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(10), delmode::BeforeStoreAgain), status::Ok);
    WMIRuleRow row = wmiRow(10, QStringLiteral("New name"), 0);
    row.value = QStringLiteral("3");
    QCOMPARE(calls::AddWMIRule(store.get(), row), status::Ok);

    Reply info = calls::GetWMIRuleInfo(store.get(), ruleIdText(10));
    const auto rows = readRows(info, {"rule_name", "rule_value"});
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows[0].value("rule_name").toString(), QStringLiteral("New name"));
    QCOMPARE(rows[0].value("rule_value").toString(), QStringLiteral("3"));
    QCOMPARE(users(store.get(), QStringLiteral("New name"), category::WMI), QStringList{"Policy"});
}

void TestSqlRuleStore::dispatchRefusesUnknownNamesCountsAndKinds_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<ArgList>("args");
    QTest::addColumn<qint32>("expected");
    QTest::newRow("unknown name") << "GetRules" << ArgList{RowSetSlot{}} << status::UnknownName;
    QTest::newRow("names are case-sensitive") << "getwmirules" << ArgList{RowSetSlot{}} << status::UnknownName;
    QTest::newRow("no slot") << "GetWMIRules" << ArgList{} << status::BadParamCount;
    QTest::newRow("one too many") << "CanUseID" << ArgList{ruleIdText(1), qint16(6), qint16(6)} << status::BadParamCount;
    QTest::newRow("AddWMIRule with 13") << "AddWMIRule" << ArgList(13, QString()) << status::BadParamCount;
    QTest::newRow("category as text") << "CanUseID" << ArgList{ruleIdText(1), QStringLiteral("6")} << status::TypeMismatch;
    QTest::newRow("id as short") << "DelWMIRule" << ArgList{qint16(1), qint16(1)} << status::TypeMismatch;
    QTest::newRow("slot not last") << "RulesUsedExRule" << ArgList{QStringLiteral("A"), RowSetSlot{}, qint16(6)} << status::TypeMismatch;
    QTest::newRow("slot where none is read") << "CanUseExRuleName" << ArgList{QStringLiteral("A"), RowSetSlot{}} << status::TypeMismatch;
}

void TestSqlRuleStore::dispatchRefusesUnknownNamesCountsAndKinds()
{
    QFETCH(QString, method);
    QFETCH(ArgList, args);
    QFETCH(qint32, expected);
    auto store = m_fx.open();
    Reply r = store->call(method, args);
    QCOMPARE(r.status, expected);
    QVERIFY(!r.rows);
    QVERIFY(!store->lastError().isEmpty());
}

void TestSqlRuleStore::badValuesAreRefusedWithNothingWritten_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<ArgList>("args");
    const QString id = ruleIdText(9);
    const QString n50(50, QLatin1Char('n'));
    auto wmi = [&](int field, const Arg &value) {
        WMIRuleRow r = wmiRow(9, QStringLiteral("R"), 0);
        ArgList args{r.ruleId, r.ruleName, r.comment, r.kind, r.index, r.conjunction, r.className,
                     r.field, r.value, r.op, r.opCode, r.nameSpace, r.type, r.typeCode};
        args[field] = value;
        return args;
    };
    QTest::newRow("empty name") << "AddWMIRule" << wmi(1, QString());
    QTest::newRow("name of 50") << "AddWMIRule" << wmi(1, n50);
    QTest::newRow("comment of 1024") << "AddWMIRule" << wmi(2, QString(1024, QLatin1Char('c')));
    QTest::newRow("negative index") << "AddWMIRule" << wmi(4, qint16(-1));
    QTest::newRow("query of 1024") << "AddWMIRule" << wmi(6, QString(1024, QLatin1Char('q')));
    QTest::newRow("field of 50") << "AddWMIRule" << wmi(7, n50);
    QTest::newRow("value of 1024") << "AddWMIRule" << wmi(8, QString(1024, QLatin1Char('v')));
    QTest::newRow("operator of 10") << "AddWMIRule" << wmi(9, QStringLiteral("not in abc"));
    QTest::newRow("namespace of 50") << "AddWMIRule" << wmi(11, n50);
    QTest::newRow("type of 50") << "AddWMIRule" << wmi(12, n50);
    QTest::newRow("service name of 128") << "AddRQCRule"
        << ArgList{id, QStringLiteral("R"), QString(128, QLatin1Char('s')), QString(), QString()};
    QTest::newRow("NAQC empty name") << "AddRQCRule" << ArgList{id, QString(), QString(), QString(), QString()};
    QTest::newRow("script file of 1024") << "AddRQCScript"
        << ArgList{id, qint16(0), QString(1024, QLatin1Char('f')), QString(), QString(), qint16(1)};
    QTest::newRow("action type of 50") << "AddRQCScript" << ArgList{id, qint16(0), QString(), n50, QString(), qint16(1)};
    QTest::newRow("negative entry") << "AddRQCScript" << ArgList{id, qint16(-3), QString(), QString(), QString(), qint16(1)};
    QTest::newRow("unknown category") << "CanUseID" << ArgList{id, qint16(7)};
    QTest::newRow("category 0") << "RulesUsedExRule" << ArgList{QStringLiteral("R"), qint16(0), RowSetSlot{}};
    QTest::newRow("rename to empty") << "UpdateExRuleNameInRule" << ArgList{QStringLiteral("R"), QString(), qint16(6)};
    QTest::newRow("rename in category 4") << "UpdateExRuleNameInRule" << ArgList{QStringLiteral("R"), QStringLiteral("S"), qint16(4)};
    QTest::newRow("delete mode 3") << "DelWMIRule" << ArgList{id, qint16(3)};
    QTest::newRow("delete mode 0") << "DelRQCRule" << ArgList{id, qint16(0)};
}

void TestSqlRuleStore::badValuesAreRefusedWithNothingWritten()
{
    QFETCH(QString, method);
    QFETCH(ArgList, args);
    auto store = m_fx.open();
    QVERIFY(storeWmi(store.get(), 9, QStringLiteral("R")));
    QVERIFY(storeNaqc(store.get(), 9, QStringLiteral("R")));
    QCOMPARE(store->call(method, args).status, status::InvalidArgument);
    // The refused call changed nothing, and the store keeps answering.
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM rules")).toInt(), 2);
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM wmi_conditions")).toInt(), 1);
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM naqc_scripts")).toInt(), 2);
    QCOMPARE(names(store.get(), category::WMI), QStringList{"R"});
}

void TestSqlRuleStore::idsAreNumbersUpToNineDigits()
{
    auto store = m_fx.open();
    // Fewer digits name the same rule, as the control reads the id back as a number.
    QVERIFY(storeWmi(store.get(), 12, QStringLiteral("Twelve")));
    QVERIFY(store->call(QStringLiteral("CanUseID"), {QStringLiteral("12"), category::WMI}).value.value<qint16>() == -1);
    Reply shortId = store->call(QStringLiteral("GetWMIRuleInfo"), {QStringLiteral("12"), RowSetSlot{}});
    QCOMPARE(column(shortId, QStringLiteral("rule_name")), QStringList{"Twelve"});
    QVERIFY(!failed(calls::AddWMIRule(store.get(), [] { auto r = wmiRow(999999999, QStringLiteral("Max"), 0); return r; }())));
    QCOMPARE(calls::GetWMIRules(store.get()).status, status::Ok);

    const QStringList bad = {QString(), QStringLiteral("1234567890"), QStringLiteral("-1"),
                             QStringLiteral(" 12"), QStringLiteral("12a"), QStringLiteral("0x1F"),
                             QString::fromUtf8("\uFF11\uFF12"), QStringLiteral("1e3")};
    for (const QString &id : bad) {
        const QByteArray what = id.toUtf8();
        QCOMPARE(store->call(QStringLiteral("CanUseID"), {id, category::WMI}).status, status::InvalidArgument);
        QCOMPARE(store->call(QStringLiteral("GetWMIRuleInfo"), {id, RowSetSlot{}}).status, status::InvalidArgument);
        QCOMPARE(store->call(QStringLiteral("DelRQCRule"), {id, delmode::FromList}).status, status::InvalidArgument);
        WMIRuleRow r = wmiRow(1, QStringLiteral("Bad id"), 0);
        r.ruleId = id;
        QVERIFY2(calls::AddWMIRule(store.get(), r) == status::InvalidArgument, what.constData());
    }
    QCOMPARE(names(store.get(), category::WMI), (QStringList{"Max", "Twelve"}));
}

void TestSqlRuleStore::textsAreStoredVerbatim_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("longText");
    QTest::newRow("injection") << QStringLiteral("x'); DROP TABLE rules; --")
                               << QStringLiteral("'; DELETE FROM wmi_conditions; SELECT '\\\"%_");
    QTest::newRow("non-ascii") << QString::fromUtf8("Größe ✓ 日本語 \U0001F512")
                               << QString::fromUtf8("Ünïcödé \u200F\u05E9\u05DC\u05D5\u05DD ").repeated(60);
    QTest::newRow("longest") << QString(49, QChar(0x00E9)) << QString(1023, QLatin1Char('x'));
    QTest::newRow("blanks kept") << QStringLiteral("  padded  ") << QStringLiteral("\r\n\ttabs\r\n");
}

void TestSqlRuleStore::textsAreStoredVerbatim()
{
    QFETCH(QString, name);
    QFETCH(QString, longText);
    const QString comment = longText.left(1023);
    auto store = m_fx.open();
    WMIRuleRow row = wmiRow(3, name, 0, 1);
    row.comment = comment;
    row.className = longText.left(1023);
    row.value = longText.left(1023);
    QCOMPARE(calls::AddWMIRule(store.get(), row), status::Ok);
    QVERIFY(storeNaqc(store.get(), 3, name));
    QVERIFY(calls::CanUseExRuleName(store.get(), name, category::WMI).yes);

    Reply info = calls::GetWMIRuleInfo(store.get(), ruleIdText(3));
    const auto rows = readRows(info, {"rule_name", "rule_comment", "rule_class", "rule_value"});
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows[0].value("rule_name").toString(), name);
    QCOMPARE(rows[0].value("rule_comment").toString(), comment);
    QCOMPARE(rows[0].value("rule_class").toString(), longText.left(1023));
    QCOMPARE(rows[0].value("rule_value").toString(), longText.left(1023));
    QCOMPARE(names(store.get(), category::NAQC), QStringList{name});

    QCOMPARE(store->addRuleUsage(category::NAQC, ruleIdText(3), category::WMI, name), status::Ok);
    QCOMPARE(users(store.get(), name, category::WMI), QStringList{name});
    // Every table is still there.
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM rules")).toInt(), 2);
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM wmi_conditions")).toInt(), 1);
}

void TestSqlRuleStore::failingCallLeavesNoHalfWrittenRule()
{
    auto store = m_fx.open();
    // A refused first condition does not leave its rule behind.
    WMIRuleRow tooLong = wmiRow(20, QStringLiteral("Half"), 0);
    tooLong.value = QString(1024, QLatin1Char('v'));
    QVERIFY(failed(calls::AddWMIRule(store.get(), tooLong)));
    QVERIFY(!calls::CanUseExRuleName(store.get(), QStringLiteral("Half"), category::WMI).yes);
    QVERIFY(!calls::CanUseID(store.get(), ruleIdText(20), category::WMI).yes);

    // A condition index stored twice is refused; the first stays as it was.
    QVERIFY(storeWmi(store.get(), 21, QStringLiteral("Whole"), 2));
    WMIRuleRow again = wmiRow(21, QStringLiteral("Whole"), 1);
    again.value = QStringLiteral("changed");
    QCOMPARE(calls::AddWMIRule(store.get(), again), status::Fail);
    Reply info = calls::GetWMIRuleInfo(store.get(), ruleIdText(21));
    QCOMPARE(column(info, QStringLiteral("rule_value")), (QStringList{"1", "2"}));

    // Conditions for an id must come with that rule's name, comment and kind.
    QVERIFY(failed(calls::AddWMIRule(store.get(), wmiRow(21, QStringLiteral("Intruder"), 2))));
    QVERIFY(failed(calls::AddWMIRule(store.get(), wmiRow(21, QStringLiteral("Whole"), 2, 1))));
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM wmi_conditions")).toInt(), 2);

    // A NAQC rule whose id or name is taken is refused after its script entries went in; the
    // entries stay (the control never rolls back) and keep the id taken.
    QVERIFY(storeNaqc(store.get(), 30, QStringLiteral("VPN")));
    QVERIFY(!storeNaqc(store.get(), 31, QStringLiteral("VPN")));
    QCOMPARE(names(store.get(), category::NAQC), QStringList{"VPN"});
    QVERIFY(calls::CanUseID(store.get(), ruleIdText(31), category::NAQC).yes);
}

void TestSqlRuleStore::twoStoresShareOneDatabase()
{
    auto a = m_fx.open();
    auto b = m_fx.open();
    QVERIFY(a->isOpen() && b->isOpen());
    QVERIFY(storeWmi(a.get(), 100, QStringLiteral("From A")));
    QCOMPARE(names(b.get(), category::WMI), QStringList{"From A"});
    QVERIFY(calls::CanUseID(b.get(), ruleIdText(100), category::WMI).yes);

    // Both drew the same free id and name before either stored: only the first gets in.
    QVERIFY(!calls::CanUseID(a.get(), ruleIdText(200), category::WMI).yes);
    QVERIFY(!calls::CanUseID(b.get(), ruleIdText(200), category::WMI).yes);
    QVERIFY(storeWmi(a.get(), 200, QStringLiteral("Same")));
    QVERIFY(!storeWmi(b.get(), 200, QStringLiteral("Other")));
    QVERIFY(!storeWmi(b.get(), 201, QStringLiteral("Same")));
    QVERIFY(!storeNaqc(a.get(), 300, QStringLiteral("N")) || !storeNaqc(b.get(), 300, QStringLiteral("N")));
    QCOMPARE(names(a.get(), category::WMI), (QStringList{"From A", "Same"}));
    QCOMPARE(names(b.get(), category::NAQC), QStringList{"N"});
}

void TestSqlRuleStore::racingStoresCannotStoreTheSameIdOrName()
{
    // Each thread is a console of its own with its own connection, all storing at once.
    constexpr int consoles = 4;
    const QString location = m_fx.location();
    m_fx.open(); // creates the tables before the race
    std::atomic<int> ready{0};
    std::atomic<int> sameIdStored{0};
    std::atomic<int> sameNameStored{0};
    std::atomic<int> openFailures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < consoles; ++t) {
        threads.emplace_back([&, t] {
            SqlRuleStore store;
            if (!store.open(location)) {
                ++openFailures;
                ++ready;
                return;
            }
            ++ready;
            while (ready.load() < consoles)
                std::this_thread::yield();
            for (int round = 0; round < 10; ++round) {
                if (storeWmi(&store, 1000 + round, QStringLiteral("console %1 round %2").arg(t).arg(round), 3))
                    ++sameIdStored;
                if (storeNaqc(&store, 2000 + t * 100 + round, QStringLiteral("shared %1").arg(round), 2))
                    ++sameNameStored;
            }
        });
    }
    for (std::thread &th : threads)
        th.join();
    QCOMPARE(openFailures.load(), 0);
    QCOMPARE(sameIdStored.load(), 10);
    QCOMPARE(sameNameStored.load(), 10);
    auto store = m_fx.open();
    QCOMPARE(names(store.get(), category::WMI).size(), 10);
    QCOMPARE(names(store.get(), category::NAQC).size(), 10);
    // No rule got conditions from two consoles.
    QCOMPARE(m_fx.scalar(QStringLiteral("SELECT COUNT(*) FROM wmi_conditions")).toInt(), 30);
}

QTEST_GUILESS_MAIN(TestSqlRuleStore)
#include "tst_sqlrulestore.moc"
