#include "storefixture.h"

#include "dataservice/ruleid.h"
#include "rulestore/storelisting.h"
#include "rulestore/storeschema.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <atomic>
#include <thread>

using namespace qarvo;
using namespace qarvo::test;

namespace {

const QString Selection = QStringLiteral("\"Corporate VPN\",0,\"1\",0,0,0,0,0,0,0");

// The NAQC rule as the wizard stores it: script entries first, then the rule.
bool storeNaqc(DataService *s, int id, const QString &name, int entries = 2)
{
    for (int n = 0; n < entries; ++n) {
        if (failed(calls::AddRQCScript(s, ruleIdText(id), qint16(n), QStringLiteral("check%1.cmd").arg(n),
                                       QStringLiteral("Pre-Connect Actions"), QStringLiteral("entry %1").arg(n),
                                       qint16(n == 1))))
            return false;
    }
    return !failed(calls::AddRQCRule(s, ruleIdText(id), name, QStringLiteral("Corporate VPN"),
                                     QStringLiteral("comment of ") + name, Selection));
}

bool storeWmi(DataService *s, int id, const QString &name, int conditions = 1, qint16 kind = 0)
{
    for (int i = 0; i < conditions; ++i) {
        if (failed(calls::AddWMIRule(s, wmiRow(id, name, qint16(i), kind))))
            return false;
    }
    return true;
}

QStringList users(DataService *s, const QString &name, qint16 cat = category::WMI)
{
    Reply r = calls::RulesUsedExRule(s, name, cat);
    return r.failed() ? QStringList{QStringLiteral("<failed>")} : rowTexts(r, {QStringLiteral("rule_name")});
}

QStringList names(DataService *s, qint16 cat = category::WMI)
{
    Reply r = cat == category::WMI ? calls::GetWMIRules(s) : calls::GetRQCRule(s);
    return rowTexts(r, {QStringLiteral("rule_name")});
}

QStringList info(DataService *s, int id, const QStringList &fields)
{
    Reply r = calls::GetWMIRuleInfo(s, ruleIdText(id));
    return r.failed() ? QStringList{QStringLiteral("<failed>")} : rowTexts(r, fields);
}

qint32 use(SqlRuleStore *s, qint16 userCat, int userId, const QString &usedName)
{
    return s->addRuleUsage(userCat, ruleIdText(userId), category::WMI, usedName);
}

} // namespace

class TestSqlRuleStore : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase_data() { StoreFixture::addBackendRows(); }
    void init() { m_fx.setUp(); }
    void cleanup() { m_fx.tearDown(); }

    void freshStoreHasLayoutVersionAndNoRules()
    {
        {
            auto store = m_fx.open();
            QVERIFY2(store->isOpen(), qPrintable(store->lastError()));
            QVERIFY(store->createdOnOpen());
            QVERIFY(store->isEmpty());
            QCOMPARE(names(store.get()), QStringList());
            QCOMPARE(names(store.get(), category::NAQC), QStringList());
            QVERIFY(storeWmi(store.get(), 7, QStringLiteral("Kept")));
            QVERIFY(!store->isEmpty());
        }
        QCOMPARE(m_fx.scalar(QStringLiteral("SELECT version FROM schema_version")).toInt(),
                 SqlRuleStore::SchemaVersion);
        // A SQLite store commits through a write-ahead log, so that a save does not wait for the disk.
        if (!m_fx.isPostgres())
            QCOMPARE(m_fx.scalar(QStringLiteral("PRAGMA journal_mode")).toString(), QStringLiteral("wal"));
        // Opening again reads what is there and neither recreates nor duplicates anything.
        auto again = m_fx.open();
        QVERIFY2(again->isOpen(), qPrintable(again->lastError()));
        QVERIFY(!again->createdOnOpen());
        QCOMPARE(names(again.get()), QStringList{"Kept"});
        QCOMPARE(m_fx.count(QStringLiteral("schema_version")), 1);
    }

    // A store of every earlier layout, laid out with that layout's own statements, opens with its
    // rules kept and everything of the current layout working.
    void earlierLayoutsAreBroughtUpToDate()
    {
        for (int layout = 1; layout < SqlRuleStore::SchemaVersion; ++layout) {
            StoreLocation loc;
            StoreLocation::parse(m_fx.location(), &loc, nullptr);
            if (m_fx.isPostgres())
                m_fx.scalar(QStringLiteral("DROP SCHEMA IF EXISTS %1 CASCADE; CREATE SCHEMA %1").arg(loc.schema));
            else
                QFile::remove(loc.path);
            for (int step = 1; step <= layout; ++step) {
                for (const QString &sql : store::layoutStatements(step, !m_fx.isPostgres()))
                    QVERIFY2(m_fx.scalar(sql).isValid(), qPrintable(sql));
            }
            m_fx.scalar(QStringLiteral("INSERT INTO schema_version (version) VALUES (%1)").arg(layout));
            m_fx.scalar(QStringLiteral("INSERT INTO rules VALUES (6, 5, 'Old', '', 0, '', '')"));
            m_fx.scalar(QStringLiteral("INSERT INTO wmi_conditions VALUES (5, 0, 0, 'C', 'F', 'V', '=', 1, 'N', 'T', 2)"));

            auto store = m_fx.open();
            QVERIFY2(store->isOpen(), qPrintable(store->lastError()));
            QVERIFY(!store->createdOnOpen());
            QCOMPARE(m_fx.scalar(QStringLiteral("SELECT version FROM schema_version")).toInt(),
                     SqlRuleStore::SchemaVersion);
            QCOMPARE(info(store.get(), 5, {"rule_name", "rule_value"}), QStringList{"Old|V"});
            QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(5), delmode::FromList), status::Ok);
            QVERIFY(store->restoreLastDeleted().restored());
        }
    }

    void rulesRoundTrip()
    {
        auto store = m_fx.open();
        QVERIFY(storeWmi(store.get(), 12, QStringLiteral("beta"), 3, 0));
        QVERIFY(storeWmi(store.get(), 32767, QStringLiteral("Alpha"), 1, 1));
        QVERIFY(storeWmi(store.get(), 7, QStringLiteral("\u00c4pfel"), 1, 0));
        QVERIFY(storeWmi(store.get(), 8, QStringLiteral("Beta"), 1, 0));
        QVERIFY(storeNaqc(store.get(), 12, QStringLiteral("VPN baseline"), 3));

        // Each category lists its own rules, sorted as an administrator reads names, whatever the case.
        Reply list = calls::GetWMIRules(store.get());
        QCOMPARE(rowTexts(list, {"rule_wql", "rule_name", "rule_comment", "rule_id"}),
                 (QStringList{"1|Alpha|comment of Alpha|000032767", "0|Beta|comment of Beta|000000008",
                              "0|beta|comment of beta|000000012",
                              QStringLiteral("0|\u00c4pfel|comment of \u00c4pfel|000000007")}));
        Reply naqc = calls::GetRQCRule(store.get());
        QCOMPARE(rowTexts(naqc, {"rule_name", "rule_comment", "rule_id"}),
                 QStringList{"VPN baseline|comment of VPN baseline|000000012"});

        // One row per condition in condition order, the rule's own fields on every row.
        QStringList expected;
        for (int i = 1; i <= 3; ++i)
            expected << QStringLiteral("beta|comment of beta|0|%1|root\\cimv2|Win32_OperatingSystem|"
                                       "ServicePackMajorVersion|uint16|>=|%2").arg(i == 1 ? 0 : 1).arg(i);
        QCOMPARE(info(store.get(), 12,
                      {"rule_name", "rule_comment", "rule_wql", "rule_op", "rule_namespace", "rule_class", "rule_field",
                       "rule_type", "rule_condition", "rule_value"}),
                 expected);
        QCOMPARE(info(store.get(), 32767, {"rule_wql", "rule_class", "rule_field"}),
                 QStringList{"1|SELECT * FROM Win32_Service WHERE State = 'Running'|#Count"});
        // An id nobody stored answers with no rows, not with a failure.
        QCOMPARE(info(store.get(), 99, {"rule_name"}), QStringList());

        Reply rule = calls::GetRQCRuleInfo(store.get(), ruleIdText(12));
        QCOMPARE(rowTexts(rule, {"rule_name", "rule_servicename", "rule_selection"}),
                 QStringList{"VPN baseline|Corporate VPN|" + Selection});
        Reply scripts = calls::GetRQCRuleScriptInfo(store.get(), ruleIdText(12));
        QCOMPARE(rowTexts(scripts, {"rule_select", "rule_script", "rule_scriptact", "rule_comment"}),
                 (QStringList{"0|check0.cmd|Pre-Connect Actions|entry 0", "1|check1.cmd|Pre-Connect Actions|entry 1",
                              "0|check2.cmd|Pre-Connect Actions|entry 2"}));
    }

    // Enough names that share long beginnings for the list to be sorted in steps of eight
    // characters, with the cases where lower-casing decides: '_' lies between 'Z' and 'a', a name
    // may end inside a step, and names may differ only in case. Listed twice, so that the second
    // list is made in the memory the first one gave back. One comment is longer than the blocks
    // the answer is copied into.
    void largeListsAreSortedAsNamesAreRead()
    {
        const QString Long(70000, u'x'); // longer than a block of the copied texts
        QStringList stored;
        for (int i = 0; i < 150; ++i)
            stored << QStringLiteral("Health rule %1").arg(i) << QStringLiteral("health RULE %1_").arg(i * 7);
        stored << "Health" << "Health r" << "HEALTH R" << "health rule 1Z" << "Health rule 1z" << "Health rule 1_"
               << QString(40, u'x') + "B" << QString(40, u'X') + "a" << "A" << "_";
        // Letters beyond ASCII fold as Unicode folds them, also between ASCII names that differ
        // only in case; the Kelvin sign and the long s, which fold into ASCII letters, stay
        // after every ASCII character.
        const QStringList beyondAscii = {QStringLiteral("\u00e9clair"), QStringLiteral("\u00c9clair b"), "Eclair", "Ezra",
                                         QStringLiteral("Health rule 1\u00e9"), QStringLiteral("HEALTH RULE 1\u00c9a"),
                                         QStringLiteral("\u212aelvin"), "kelvin", "Kz", QStringLiteral("\u017fun"), "sun",
                                         QStringLiteral("\U0001F600 smile"), QStringLiteral("\uFF21 wide")};
        stored << beyondAscii;
        QStringList values;
        for (int i = 0; i < stored.size(); ++i)
            values << QStringLiteral("(6, %1, '%2', 'c%1%4', %3, '', '')")
                          .arg(i + 1)
                          .arg(stored[i])
                          .arg(i % 2)
                          .arg(stored[i] == "_" ? Long : QString());
        values << QStringLiteral("(5, 1, 'VPN', '', 0, '', '')");
        auto store = m_fx.open();
        m_fx.scalar("INSERT INTO rules VALUES " + values.join(','));
        QCOMPARE(m_fx.count(QStringLiteral("rules")), int(values.size()));

        QStringList expected = stored;
        std::sort(expected.begin(), expected.end(),
                  [](const QString &a, const QString &b) { return store::nameLess(a, 0, b, 0); });
        for (int pass = 0; pass < 2; ++pass)
            QCOMPARE(names(store.get()), expected);
        QStringList shown = names(store.get());
        shown.removeIf([&](const QString &name) { return !beyondAscii.contains(name); });
        QCOMPARE(shown, (QStringList{"Eclair", "Ezra", QStringLiteral("Health rule 1\u00e9"),
                                     QStringLiteral("HEALTH RULE 1\u00c9a"), "kelvin", "Kz", "sun",
                                     QStringLiteral("\u00e9clair"), QStringLiteral("\u00c9clair b"), QStringLiteral("\u017fun"),
                                     QStringLiteral("\u212aelvin"), QStringLiteral("\uFF21 wide"),
                                     QStringLiteral("\U0001F600 smile")}));

        // Each row keeps its own fields, and the rows behave as any row set does.
        Reply list = calls::GetWMIRules(store.get());
        RowReader rows(list);
        QCOMPARE(rows.text(QStringLiteral("rule_name")), QStringLiteral("_"));
        const int id = int(stored.indexOf("_")) + 1;
        QCOMPARE(rows.text(QStringLiteral("rule_id")), ruleIdText(id));
        QCOMPARE(rows.text(QStringLiteral("rule_comment")), QStringLiteral("c%1").arg(id) + Long);
        QCOMPARE(rows.integer(QStringLiteral("rule_wql")), id % 2 ? 0 : 1);
        QVERIFY_THROWS_EXCEPTION(DataServiceError, rows.field(QStringLiteral("rule_value")));
        rows.close();
        QVERIFY_THROWS_EXCEPTION(DataServiceError, rows.atEnd());
        Reply naqc = calls::GetRQCRule(store.get());
        RowReader naqcRows(naqc);
        QCOMPARE(naqcRows.text(QStringLiteral("rule_name")), QStringLiteral("VPN"));
        QVERIFY_THROWS_EXCEPTION(DataServiceError, naqcRows.field(QStringLiteral("rule_wql")));
    }

    void checksAnswerWithinTheCategoryAsShort()
    {
        auto store = m_fx.open();
        QVERIFY(storeWmi(store.get(), 5, QStringLiteral("Shared")));
        for (qint16 cat : {category::WMI, category::NAQC}) {
            Reply r = store->call(QStringLiteral("CanUseID"), {ruleIdText(5), cat});
            QCOMPARE(r.status, status::Ok);
            QCOMPARE(r.value.typeId(), int(QMetaType::Short));
            QCOMPARE(r.value.value<qint16>(), qint16(cat == category::WMI ? -1 : 0));
        }
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

    void usageIsReportedAndFollowsRenames()
    {
        auto store = m_fx.open();
        const QString patch = QStringLiteral("Patch level");
        QVERIFY(storeWmi(store.get(), 1, patch));
        QVERIFY(storeWmi(store.get(), 2, QStringLiteral("workstation")));
        QVERIFY(storeWmi(store.get(), 3, QStringLiteral("Server")));
        QVERIFY(storeNaqc(store.get(), 4, QStringLiteral("VPN")));
        QCOMPARE(use(store.get(), category::WMI, 2, patch), status::Ok);
        QCOMPARE(use(store.get(), category::NAQC, 4, patch), status::Ok);
        QCOMPARE(use(store.get(), category::WMI, 3, patch), status::Ok);
        // Recording the same use twice is harmless; a rule cannot use itself or a missing rule.
        QCOMPARE(use(store.get(), category::WMI, 3, patch), status::Ok);
        QVERIFY(failed(use(store.get(), category::WMI, 1, patch)));
        QVERIFY(failed(use(store.get(), category::WMI, 1, QStringLiteral("Nowhere"))));

        const QStringList all = {"Server", "VPN", "workstation"};
        QCOMPARE(users(store.get(), patch), all);
        QCOMPARE(users(store.get(), patch, category::NAQC), QStringList());
        QCOMPARE(users(store.get(), QStringLiteral("Server")), QStringList());

        // A taken name fails the whole rename: nothing changes.
        QVERIFY(failed(calls::UpdateExRuleNameInRule(store.get(), patch, QStringLiteral("Server"), category::WMI)));
        QVERIFY(!store->lastError().isEmpty());
        QCOMPARE(names(store.get()), (QStringList{patch, "Server", "workstation"}));
        QCOMPARE(users(store.get(), patch), all);

        QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), patch, QStringLiteral("Patch level 2"), category::WMI),
                 status::Ok);
        QCOMPARE(users(store.get(), patch), QStringList());
        QCOMPARE(users(store.get(), QStringLiteral("Patch level 2")), all);
        QVERIFY(names(store.get()).contains(QStringLiteral("Patch level 2")));

        // Renaming in the other category touches nothing here.
        QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("Patch level 2"), QStringLiteral("Other"),
                                               category::NAQC),
                 status::Ok);
        QCOMPARE(users(store.get(), QStringLiteral("Patch level 2")), all);
    }

    void deleteFromListDropsUsesButStoreAgainKeepsThem()
    {
        auto store = m_fx.open();
        QVERIFY(storeWmi(store.get(), 1, QStringLiteral("Base")));
        QVERIFY(storeWmi(store.get(), 2, QStringLiteral("User"), 2));
        QVERIFY(storeNaqc(store.get(), 3, QStringLiteral("VPN")));
        QCOMPARE(use(store.get(), category::WMI, 2, QStringLiteral("Base")), status::Ok);
        QCOMPARE(use(store.get(), category::NAQC, 3, QStringLiteral("User")), status::Ok);

        // The property sheet's save: rename, delete in mode 2, store again. The rule and its conditions
        // go; uses in both directions wait for it to come back under its id.
        QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("User"), QStringLiteral("Renamed"),
                                               category::WMI),
                 status::Ok);
        QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(2), delmode::BeforeStoreAgain), status::Ok);
        QCOMPARE(names(store.get()), QStringList{"Base"});
        QCOMPARE(info(store.get(), 2, {"rule_name"}), QStringList());
        QVERIFY(storeWmi(store.get(), 2, QStringLiteral("Renamed"), 1));
        QCOMPARE(info(store.get(), 2, {"rule_name", "rule_value"}), QStringList{"Renamed|1"});
        QCOMPARE(users(store.get(), QStringLiteral("Base")), QStringList{"Renamed"});
        QCOMPARE(users(store.get(), QStringLiteral("Renamed")), QStringList{"VPN"});

        // Mode 1: its own uses go with it, and stray references to it as well.
        QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(2), delmode::FromList), status::Ok);
        QCOMPARE(users(store.get(), QStringLiteral("Base")), QStringList());
        QCOMPARE(m_fx.count(QStringLiteral("rule_usage")), 0);
        QCOMPARE(m_fx.count(QStringLiteral("wmi_conditions WHERE rule_id = 2")), 0);
        QVERIFY(!calls::CanUseID(store.get(), ruleIdText(2), category::WMI).yes);

        // The same for NAQC rules and their script entries.
        QCOMPARE(use(store.get(), category::NAQC, 3, QStringLiteral("Base")), status::Ok);
        QCOMPARE(calls::DelRQCRule(store.get(), ruleIdText(3), delmode::BeforeStoreAgain), status::Ok);
        QCOMPARE(names(store.get(), category::NAQC), QStringList());
        QCOMPARE(m_fx.count(QStringLiteral("naqc_scripts")), 0);
        QVERIFY(storeNaqc(store.get(), 3, QStringLiteral("VPN")));
        QCOMPARE(users(store.get(), QStringLiteral("Base")), QStringList{"VPN"});
        QCOMPARE(calls::DelRQCRule(store.get(), ruleIdText(3), delmode::FromList), status::Ok);
        QCOMPARE(users(store.get(), QStringLiteral("Base")), QStringList());
        QCOMPARE(m_fx.count(QStringLiteral("naqc_scripts")), 0);

        // Deleting what is not there is not an error: another console may have been first.
        QCOMPARE(calls::DelRQCRule(store.get(), ruleIdText(3), delmode::FromList), status::Ok);
    }

    void dispatchRefusesUnknownNamesCountsAndKinds_data()
    {
        QTest::addColumn<QString>("method");
        QTest::addColumn<ArgList>("args");
        QTest::addColumn<qint32>("expected");
        const QString a = QStringLiteral("A");
        QTest::newRow("unknown name") << "GetRules" << ArgList{RowSetSlot{}} << status::UnknownName;
        QTest::newRow("names are case-sensitive") << "getwmirules" << ArgList{RowSetSlot{}} << status::UnknownName;
        QTest::newRow("no slot") << "GetWMIRules" << ArgList{} << status::BadParamCount;
        QTest::newRow("one too many") << "CanUseID" << ArgList{ruleIdText(1), qint16(6), qint16(6)}
                                      << status::BadParamCount;
        QTest::newRow("AddWMIRule with 13") << "AddWMIRule" << ArgList(13, QString()) << status::BadParamCount;
        QTest::newRow("category as text")
            << "CanUseID" << ArgList{ruleIdText(1), QStringLiteral("6")} << status::TypeMismatch;
        QTest::newRow("id as short") << "DelWMIRule" << ArgList{qint16(1), qint16(1)} << status::TypeMismatch;
        QTest::newRow("slot not last") << "RulesUsedExRule" << ArgList{a, RowSetSlot{}, qint16(6)}
                                       << status::TypeMismatch;
        QTest::newRow("slot where none is read")
            << "CanUseExRuleName" << ArgList{a, RowSetSlot{}} << status::TypeMismatch;
    }

    void dispatchRefusesUnknownNamesCountsAndKinds()
    {
        QFETCH(QString, method);
        QFETCH(ArgList, args);
        auto store = m_fx.open();
        Reply r = store->call(method, args);
        QTEST(r.status, "expected");
        QVERIFY(!r.rows);
        QVERIFY(!store->lastError().isEmpty());
    }

    void badValuesAreRefusedWithNothingWritten_data()
    {
        QTest::addColumn<QString>("method");
        QTest::addColumn<ArgList>("args");
        const QString id = ruleIdText(9), n50(50, u'n'), n1024(1024, u'x'), r = QStringLiteral("R");
        // A valid condition row with one field replaced.
        auto wmi = [&](int field, const Arg &value) {
            WMIRuleRow w = wmiRow(9, r, 0);
            ArgList args{w.ruleId, w.ruleName, w.comment, w.kind, w.index, w.conjunction, w.className,
                         w.field, w.value, w.op, w.opCode, w.nameSpace, w.type, w.typeCode};
            args[field] = value;
            return args;
        };
        QTest::newRow("empty name") << "AddWMIRule" << wmi(1, QString());
        QTest::newRow("name of 50") << "AddWMIRule" << wmi(1, n50);
        QTest::newRow("comment of 1024") << "AddWMIRule" << wmi(2, n1024);
        QTest::newRow("negative index") << "AddWMIRule" << wmi(4, qint16(-1));
        QTest::newRow("query of 1024") << "AddWMIRule" << wmi(6, n1024);
        QTest::newRow("field of 50") << "AddWMIRule" << wmi(7, n50);
        QTest::newRow("value of 1024") << "AddWMIRule" << wmi(8, n1024);
        QTest::newRow("operator of 10") << "AddWMIRule" << wmi(9, QStringLiteral("not in abc"));
        QTest::newRow("namespace of 50") << "AddWMIRule" << wmi(11, n50);
        QTest::newRow("type of 50") << "AddWMIRule" << wmi(12, n50);
        QTest::newRow("service name of 128")
            << "AddRQCRule" << ArgList{id, r, QString(128, u's'), QString(), QString()};
        QTest::newRow("NAQC empty name") << "AddRQCRule" << ArgList{id, QString(), QString(), QString(), QString()};
        QTest::newRow("script file of 1024")
            << "AddRQCScript" << ArgList{id, qint16(0), n1024, QString(), QString(), qint16(1)};
        QTest::newRow("action type of 50")
            << "AddRQCScript" << ArgList{id, qint16(0), QString(), n50, QString(), qint16(1)};
        QTest::newRow("negative entry") << "AddRQCScript"
                                        << ArgList{id, qint16(-3), QString(), QString(), QString(), qint16(1)};
        QTest::newRow("unknown category") << "CanUseID" << ArgList{id, qint16(7)};
        QTest::newRow("category 0") << "RulesUsedExRule" << ArgList{r, qint16(0), RowSetSlot{}};
        QTest::newRow("rename to empty") << "UpdateExRuleNameInRule" << ArgList{r, QString(), qint16(6)};
        QTest::newRow("rename in category 4") << "UpdateExRuleNameInRule" << ArgList{r, QStringLiteral("S"), qint16(4)};
        QTest::newRow("delete mode 3") << "DelWMIRule" << ArgList{id, qint16(3)};
        QTest::newRow("delete mode 0") << "DelRQCRule" << ArgList{id, qint16(0)};
    }

    void badValuesAreRefusedWithNothingWritten()
    {
        QFETCH(QString, method);
        QFETCH(ArgList, args);
        auto store = m_fx.open();
        QVERIFY(storeWmi(store.get(), 9, QStringLiteral("R")));
        QVERIFY(storeNaqc(store.get(), 9, QStringLiteral("R")));
        QCOMPARE(store->call(method, args).status, status::InvalidArgument);
        // The refused call changed nothing, and the store keeps answering.
        QCOMPARE(m_fx.count(QStringLiteral("rules")), 2);
        QCOMPARE(m_fx.count(QStringLiteral("wmi_conditions")), 1);
        QCOMPARE(m_fx.count(QStringLiteral("naqc_scripts")), 2);
        QCOMPARE(names(store.get()), QStringList{"R"});
    }

    void idsAreNumbersUpToNineDigits()
    {
        auto store = m_fx.open();
        // Fewer digits name the same rule, as the control reads the id back as a number.
        QVERIFY(storeWmi(store.get(), 12, QStringLiteral("Twelve")));
        QCOMPARE(store->call(QStringLiteral("CanUseID"), {QStringLiteral("12"), category::WMI}).value.value<qint16>(),
                 qint16(-1));
        Reply shortId = store->call(QStringLiteral("GetWMIRuleInfo"), {QStringLiteral("12"), RowSetSlot{}});
        QCOMPARE(rowTexts(shortId, {"rule_name"}), QStringList{"Twelve"});
        QVERIFY(storeWmi(store.get(), 999999999, QStringLiteral("Max")));

        const QStringList bad = {QString(), "1234567890", "-1", " 12", "12a", "0x1F", QString::fromUtf8("\uFF11\uFF12"),
                                 "1e3"};
        for (const QString &id : bad) {
            QCOMPARE(store->call(QStringLiteral("CanUseID"), {id, category::WMI}).status, status::InvalidArgument);
            QCOMPARE(store->call(QStringLiteral("GetWMIRuleInfo"), {id, RowSetSlot{}}).status, status::InvalidArgument);
            QCOMPARE(store->call(QStringLiteral("DelRQCRule"), {id, delmode::FromList}).status,
                     status::InvalidArgument);
            WMIRuleRow r = wmiRow(1, QStringLiteral("Bad id"), 0);
            r.ruleId = id;
            QVERIFY2(calls::AddWMIRule(store.get(), r) == status::InvalidArgument, qPrintable(id));
        }
        QCOMPARE(names(store.get()), (QStringList{"Max", "Twelve"}));
    }

    void textsAreStoredVerbatim_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("longText");
        QTest::newRow("injection") << QStringLiteral("x'); DROP TABLE rules; --")
                                   << QStringLiteral("'; DELETE FROM wmi_conditions; SELECT '\\\"%_");
        QTest::newRow("non-ascii")
            << QString::fromUtf8("Größe ✓ 日本語 \U0001F512")
            << QString::fromUtf8("Ünïcödé \u200F\u05E9\u05DC\u05D5\u05DD ").repeated(60).left(1023);
        QTest::newRow("longest") << QString(49, QChar(0x00E9)) << QString(1023, u'x');
        QTest::newRow("blanks kept") << QStringLiteral("  padded  ") << QStringLiteral("\r\n\ttabs\r\n");
    }

    void textsAreStoredVerbatim()
    {
        QFETCH(QString, name);
        QFETCH(QString, longText);
        auto store = m_fx.open();
        WMIRuleRow row = wmiRow(3, name, 0, 1);
        row.comment = row.className = row.value = longText;
        QCOMPARE(calls::AddWMIRule(store.get(), row), status::Ok);
        QVERIFY(storeNaqc(store.get(), 3, name));
        QVERIFY(calls::CanUseExRuleName(store.get(), name, category::WMI).yes);
        const QString stored = QStringList({name, longText, longText, longText}).join(u'|');
        QCOMPARE(info(store.get(), 3, {"rule_name", "rule_comment", "rule_class", "rule_value"}), QStringList{stored});
        QCOMPARE(names(store.get(), category::NAQC), QStringList{name});
        QCOMPARE(use(store.get(), category::NAQC, 3, name), status::Ok);
        QCOMPARE(users(store.get(), name), QStringList{name});
        // Every table is still there.
        QCOMPARE(m_fx.count(QStringLiteral("rules")), 2);
        QCOMPARE(m_fx.count(QStringLiteral("wmi_conditions")), 1);
    }

    void textsThatWouldComeBackChangedAreRefused()
    {
        auto store = m_fx.open();
        QVERIFY(storeWmi(store.get(), 1, QStringLiteral("Kept")));
        const QString bad[] = {QString(QChar(0xD800)), QStringLiteral("x") + QChar(0xDC00), QString(QChar(0xFFFE)),
                               QString::fromUcs4(U"\U0001FFFF"), QString(QChar(0xFDD0)), QStringLiteral("a") + QChar(0)};
        for (const QString &t : bad) {
            WMIRuleRow row = wmiRow(2, QStringLiteral("New"), 0);
            row.value = t;
            QCOMPARE(calls::AddWMIRule(store.get(), row), status::InvalidArgument);
            QVERIFY2(store->lastError().startsWith(QLatin1String("AddWMIRule: argument 9 holds")),
                     qPrintable(store->lastError()));
            QCOMPARE(calls::CanUseExRuleName(store.get(), QStringLiteral("Kept") + t, category::WMI).status,
                     status::InvalidArgument);
            QCOMPARE(calls::RulesUsedExRule(store.get(), t, category::WMI).status, status::InvalidArgument);
            QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("Kept"), t, category::WMI),
                     status::InvalidArgument);
            QCOMPARE(calls::AddRQCRule(store.get(), ruleIdText(3), QStringLiteral("N"), QString(), QString(), t),
                     status::InvalidArgument);
            QVERIFY(failed(use(store.get(), category::WMI, 1, t)));
        }
        QCOMPARE(names(store.get()), QStringList{"Kept"});
        QCOMPARE(m_fx.count(QStringLiteral("rules")) + m_fx.count(QStringLiteral("wmi_conditions")), 2);
        QCOMPARE(m_fx.count(QStringLiteral("rule_history")), 0);
    }

    // Every delete, rename and replaced version stays as an earlier version, and comes back whole.
    void historyKeepsEveryVersionAndBringsItBack()
    {
        using O = RestoreResult::Outcome;
        auto store = m_fx.open();
        QVERIFY(storeWmi(store.get(), 1, QStringLiteral("Base"), 2));
        QVERIFY(storeWmi(store.get(), 2, QStringLiteral("User")));
        QVERIFY(storeNaqc(store.get(), 3, QStringLiteral("VPN"), 3));
        QCOMPARE(use(store.get(), category::WMI, 2, QStringLiteral("Base")), status::Ok);
        const RuleSnapshot before = *store->rule(category::WMI, ruleIdText(1));
        QCOMPARE(ruleFromJson(toJson(before), nullptr), before);

        // A property sheet's save that stopped after its first condition.
        QCOMPARE(calls::UpdateExRuleNameInRule(store.get(), QStringLiteral("Base"), QStringLiteral("Base 2"),
                                               category::WMI),
                 status::Ok);
        QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(1), delmode::BeforeStoreAgain), status::Ok);
        QVERIFY(storeWmi(store.get(), 1, QStringLiteral("Base 2"), 1));
        QList<HistoryEntry> history = *store->history();
        QCOMPARE(history.size(), 2);
        QCOMPARE(historyEventText(history.at(1)), QStringLiteral("renamed to \"Base 2\""));
        QCOMPARE(history.at(1).ruleName, QStringLiteral("Base"));
        QCOMPARE(history.at(0).event, HistoryEvent::StoredAgain);
        QCOMPARE(store->historyVersion(history.at(1).version)->conditions, before.conditions);

        // Its old id holds the partial rule: replacing it brings the whole rule back, and keeps the partial one.
        RestoreResult r = store->restoreVersion(history.at(0).version, RestoreId::OldOnly);
        QCOMPARE(r.outcome, O::IdHeld);
        QCOMPARE(r.holder, QStringLiteral("Base 2"));
        QVERIFY(store->restoreVersion(history.at(0).version, RestoreId::ReplaceHolder).restored());
        QCOMPARE(info(store.get(), 1, {"rule_name", "rule_value"}), (QStringList{"Base 2|1", "Base 2|2"}));
        QCOMPARE(users(store.get(), QStringLiteral("Base 2")), QStringList{"User"});
        QCOMPARE(store->history()->first().event, HistoryEvent::RestoredOver);

        // Undo of a delete from the list, uses and all.
        QCOMPARE(calls::DelWMIRule(store.get(), ruleIdText(1), delmode::FromList), status::Ok);
        QCOMPARE(users(store.get(), QStringLiteral("Base 2")), QStringList());
        r = store->restoreLastDeleted();
        QVERIFY2(r.restored() && r.ruleId == 1 && r.ruleName == "Base 2", qPrintable(r.message));
        QCOMPARE(users(store.get(), QStringLiteral("Base 2")), QStringList{"User"});

        // The version from before the rename: its id is held, its name free; then taken.
        r = store->restoreVersion(history.at(1).version, RestoreId::NewIfHeld);
        QVERIFY(r.restored() && r.ruleId != 1 && r.ruleName == "Base");
        QCOMPARE(store->restoreVersion(history.at(1).version, RestoreId::NewIfHeld).outcome, O::NameTaken);
        QVERIFY(store->restoreVersion(history.at(1).version, RestoreId::NewIfHeld, QStringLiteral("Base 3")).restored());
        QCOMPARE(names(store.get()), (QStringList{"Base", "Base 2", "Base 3", "User"}));

        // A NAQC save cut off after a script entry: the strays give way to the whole rule.
        QCOMPARE(calls::DelRQCRule(store.get(), ruleIdText(3), delmode::BeforeStoreAgain), status::Ok);
        QVERIFY(!storeNaqc(store.get(), 3, QString()));
        QVERIFY(store->restoreVersion(store->history()->first().version, RestoreId::ReplaceHolder).restored());
        QCOMPARE(m_fx.count(QStringLiteral("naqc_scripts")), 3);
        QCOMPARE(store->restoreVersion(999999, RestoreId::OldOnly).outcome, O::Failed);

        // Kept for ever unless told otherwise; purged on request.
        QCOMPARE(store->historyRetentionDays(), 0);
        QVERIFY(store->setHistoryRetentionDays(30));
        QCOMPARE(m_fx.open()->historyRetentionDays(), 30);
        QCOMPARE(store->purgeHistory(1), 0);
        QCOMPARE(store->purgeHistory(0), 6);
        QCOMPARE(store->history()->size(), 0);
    }

    void failingCallLeavesNoHalfWrittenRule()
    {
        auto store = m_fx.open();
        // A refused first condition does not leave its rule behind.
        WMIRuleRow tooLong = wmiRow(20, QStringLiteral("Half"), 0);
        tooLong.value = QString(1024, u'v');
        QVERIFY(failed(calls::AddWMIRule(store.get(), tooLong)));
        QVERIFY(!calls::CanUseExRuleName(store.get(), QStringLiteral("Half"), category::WMI).yes);
        QVERIFY(!calls::CanUseID(store.get(), ruleIdText(20), category::WMI).yes);

        // A condition index stored twice is refused; the first stays as it was.
        QVERIFY(storeWmi(store.get(), 21, QStringLiteral("Whole"), 2));
        WMIRuleRow again = wmiRow(21, QStringLiteral("Whole"), 1);
        again.value = QStringLiteral("changed");
        QCOMPARE(calls::AddWMIRule(store.get(), again), status::Fail);
        QCOMPARE(info(store.get(), 21, {"rule_value"}), (QStringList{"1", "2"}));

        // Conditions for an id must come with that rule's name, comment and kind.
        QVERIFY(failed(calls::AddWMIRule(store.get(), wmiRow(21, QStringLiteral("Intruder"), 2))));
        QVERIFY(failed(calls::AddWMIRule(store.get(), wmiRow(21, QStringLiteral("Whole"), 2, 1))));
        QCOMPARE(m_fx.count(QStringLiteral("wmi_conditions")), 2);

        // A NAQC rule whose id or name is taken is refused after its script entries went in; the
        // entries stay (the control never rolls back) and keep the id taken.
        QVERIFY(storeNaqc(store.get(), 30, QStringLiteral("VPN")));
        QVERIFY(!storeNaqc(store.get(), 31, QStringLiteral("VPN")));
        QCOMPARE(names(store.get(), category::NAQC), QStringList{"VPN"});
        QVERIFY(calls::CanUseID(store.get(), ruleIdText(31), category::NAQC).yes);
    }

    void twoStoresShareOneDatabase()
    {
        auto a = m_fx.open();
        auto b = m_fx.open();
        QVERIFY(a->isOpen() && b->isOpen());
        QVERIFY(storeWmi(a.get(), 100, QStringLiteral("From A")));
        QCOMPARE(names(b.get()), QStringList{"From A"});
        QVERIFY(calls::CanUseID(b.get(), ruleIdText(100), category::WMI).yes);

        // "Free" reserves the id or name for the console that asked, until its save is over.
        QVERIFY(!calls::CanUseID(a.get(), ruleIdText(200), category::WMI).yes);
        QVERIFY(!calls::CanUseExRuleName(a.get(), QStringLiteral("Same"), category::WMI).yes);
        QVERIFY(calls::CanUseID(b.get(), ruleIdText(200), category::WMI).yes);
        QVERIFY(calls::CanUseExRuleName(b.get(), QStringLiteral("Same"), category::WMI).yes);
        QVERIFY(!storeWmi(b.get(), 200, QStringLiteral("Other")));
        QVERIFY(!storeWmi(b.get(), 201, QStringLiteral("Same")));
        QVERIFY(storeWmi(a.get(), 200, QStringLiteral("Same"), 2));
        // The NAQC wizard stores its script entries before its rule: nobody else's land in between.
        QVERIFY(!calls::CanUseID(a.get(), ruleIdText(300), category::NAQC).yes);
        QVERIFY(!storeNaqc(b.get(), 300, QStringLiteral("N")));
        QVERIFY(storeNaqc(a.get(), 300, QStringLiteral("N")));
        QVERIFY(!storeNaqc(b.get(), 300, QStringLiteral("N2")));
        QCOMPARE(names(b.get(), category::NAQC), QStringList{"N"});
        QCOMPARE(m_fx.count(QStringLiteral("naqc_scripts")), 2);

        // Between a property sheet's delete and its rows, the id and the name stay its own.
        QCOMPARE(calls::DelWMIRule(a.get(), ruleIdText(200), delmode::BeforeStoreAgain), status::Ok);
        QVERIFY(calls::CanUseExRuleName(b.get(), QStringLiteral("Same"), category::WMI).yes);
        QVERIFY(failed(calls::DelWMIRule(b.get(), ruleIdText(200), delmode::FromList)));
        QVERIFY(storeWmi(a.get(), 200, QStringLiteral("Same"), 1));
        QCOMPARE(info(b.get(), 200, {"rule_name"}), QStringList{"Same"});

        // A reservation ends when its time is up or its store is closed.
        QVERIFY(!calls::CanUseID(a.get(), ruleIdText(400), category::WMI).yes);
        QVERIFY(!calls::CanUseExRuleName(a.get(), QStringLiteral("Later"), category::WMI).yes);
        m_fx.scalar(QStringLiteral("UPDATE name_reservations SET expires_at = 0"));
        QVERIFY(!calls::CanUseExRuleName(b.get(), QStringLiteral("Later"), category::WMI).yes);
        a.reset();
        QVERIFY(!calls::CanUseID(b.get(), ruleIdText(400), category::WMI).yes);
        QCOMPARE(calls::DelWMIRule(b.get(), ruleIdText(200), delmode::FromList), status::Ok);
    }

    // A console told that the id it drew this second is taken hears so once the second is over:
    // asking again before then would only draw the same id.
    void takenCandidateIsAnsweredInTheNextSecond()
    {
        auto a = m_fx.open();
        auto b = m_fx.open();
        const qint64 second = QDateTime::currentSecsSinceEpoch();
        const QString candidate = ruleIdText(RuleIdGenerator([second] { return second; }).draw());
        QVERIFY(!calls::CanUseID(a.get(), candidate, category::NAQC).yes);
        QVERIFY(calls::CanUseID(b.get(), candidate, category::NAQC).yes);
        QVERIFY(QDateTime::currentSecsSinceEpoch() > second);
        // Any other taken id is answered at once.
        QVERIFY(storeWmi(a.get(), 7, QStringLiteral("Seven")));
        QElapsedTimer t;
        t.start();
        QVERIFY(calls::CanUseID(b.get(), ruleIdText(7), category::WMI).yes);
        QVERIFY(t.elapsed() < 500);
    }

    void racingStoresCannotStoreTheSameIdOrName()
    {
        // Each thread is a console of its own with its own connection, all storing at once.
        constexpr int consoles = 4;
        const QString location = m_fx.location();
        m_fx.open(); // creates the tables before the race
        std::atomic<int> ready{0}, sameIdStored{0}, sameNameStored{0}, openFailures{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < consoles; ++t) {
            threads.emplace_back([&, t] {
                SqlRuleStore store;
                const bool opened = store.open(location);
                openFailures += opened ? 0 : 1;
                ++ready;
                while (opened && ready.load() < consoles)
                    std::this_thread::yield();
                for (int round = 0; opened && round < 10; ++round) {
                    sameIdStored +=
                        storeWmi(&store, 1000 + round, QStringLiteral("console %1 round %2").arg(t).arg(round), 3);
                    sameNameStored += storeNaqc(&store, 2000 + t * 100 + round, QStringLiteral("shared %1").arg(round));
                }
            });
        }
        for (std::thread &th : threads)
            th.join();
        QCOMPARE(openFailures.load(), 0);
        QCOMPARE(sameIdStored.load(), 10);
        QCOMPARE(sameNameStored.load(), 10);
        auto store = m_fx.open();
        QCOMPARE(names(store.get()).size(), 10);
        QCOMPARE(names(store.get(), category::NAQC).size(), 10);
        // No rule got conditions from two consoles.
        QCOMPARE(m_fx.count(QStringLiteral("wmi_conditions")), 30);
    }

    void lostServerSessionIsMadeAgain()
    {
        if (!m_fx.isPostgres())
            QSKIP("a SQLite store has no session to lose");
        auto store = m_fx.open();
        QVERIFY(storeWmi(store.get(), 1, QStringLiteral("Before")));
        // What a server restart does to a console that stays open. Only this process's own
        // sessions go: other suites may be using the same server at the same time.
        QStringList pids;
        for (const QString &name : QSqlDatabase::connectionNames()) {
            QSqlQuery q(QSqlDatabase::database(name, false));
            if (q.exec(QStringLiteral("SELECT pg_backend_pid()")) && q.next())
                pids << q.value(0).toString();
        }
        QVERIFY(!pids.isEmpty());
        QVERIFY(m_fx.scalar(QStringLiteral("SELECT COUNT(pg_terminate_backend(pid)) FROM pg_stat_activity"
                                           " WHERE pid IN (%1)").arg(pids.join(u','))).toInt() >= 1);
        QCOMPARE(names(store.get()), QStringList{"Before"});
        QVERIFY(storeWmi(store.get(), 2, QStringLiteral("After")));
        // Still working in the test's own schema, not in the database's default one.
        QCOMPARE(m_fx.count(QStringLiteral("rules")), 2);
    }

private:
    StoreFixture m_fx;
};

QTEST_GUILESS_MAIN(TestSqlRuleStore)
#include "tst_sqlrulestore.moc"
