#include "console/rulefile.h"
#include "console/ruleimport.h"
#include "console/sampledata.h"
#include "console/transferactions.h"
#include "dataservice/calls.h"
#include "consoleprocess.h"
#include "dialogdriver.h"
#include "storefixture.h"

#include <QProcess>
#include <QProgressDialog>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <thread>

using namespace qarvo;
using namespace qarvo::console;
using namespace qarvo::test;

namespace {

// Every answer of every reading method the control calls, ids aside, for every stored rule.
QStringList answers(DataService *s)
{
    QStringList out;
    const QStringList list{"rule_wql", "rule_name", "rule_comment"};
    for (qint16 cat : {category::WMI, category::NAQC}) {
        Reply rules = cat == category::WMI ? calls::GetWMIRules(s) : calls::GetRQCRule(s);
        QList<std::pair<QString, QString>> named; // name, id
        forEachRow(rules, [&](RowReader &r) {
            named.append({r.text(QStringLiteral("rule_name")), r.text(QStringLiteral("rule_id"))});
            out.append(QStringLiteral("list|%1|%2|%3").arg(cat).arg(cat == category::WMI
                ? QString::number(r.integer(QStringLiteral("rule_wql"))) : QString(), named.last().first));
        });
        for (const auto &[name, id] : named) {
            Reply used = calls::RulesUsedExRule(s, name, cat);
            out += rowTexts(used, {"rule_name"}).replaceInStrings(QRegularExpression("^"), name + " used by ");
            if (cat == category::WMI) {
                Reply info = calls::GetWMIRuleInfo(s, id);
                out += rowTexts(info, {"rule_name", "rule_comment", "rule_wql", "rule_op", "rule_namespace",
                                       "rule_class", "rule_field", "rule_type", "rule_condition", "rule_value"});
            } else {
                Reply info = calls::GetRQCRuleInfo(s, id);
                out += rowTexts(info, {"rule_name", "rule_servicename", "rule_comment"});
                Reply scripts = calls::GetRQCRuleScriptInfo(s, id);
                out += rowTexts(scripts, {"rule_select", "rule_script", "rule_scriptact", "rule_comment"});
            }
        }
    }
    std::sort(out.begin(), out.end());
    return out;
}

QByteArray exported(SqlRuleStore &store)
{
    const std::optional<QList<RuleSnapshot>> rules = store.allRules();
    return rules ? writeRuleFile(*rules) : QByteArray();
}

void deleteAll(SqlRuleStore &store)
{
    const QList<RuleSnapshot> rules = *store.allRules();
    for (const RuleSnapshot &r : rules)
        QVERIFY2(!failed(r.category == category::WMI ? calls::DelWMIRule(&store, ruleIdText(r.id), 1)
                                                     : calls::DelRQCRule(&store, ruleIdText(r.id), 1)),
                 qPrintable(store.lastError()));
}

// A SQLite store of `count` one-condition WMI rules, written by two statements: storing them one
// call at a time would take longer than the test.
void writeManyRules(const QString &path, int count)
{
    QVERIFY(SqlRuleStore().open(path));
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("many"));
        db.setDatabaseName(path);
        QVERIFY(db.open());
        const QString numbers = QStringLiteral("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                                               "WHERE i < %1) ").arg(count);
        QSqlQuery q(db);
        QVERIFY(q.exec(numbers + "INSERT INTO rules (category, rule_id, rule_name, rule_comment, rule_wql, "
                       "service_name, script_selection) SELECT 6, i, 'Rule ' || i, '', 0, '', '' FROM n"));
        QVERIFY(q.exec(numbers + "INSERT INTO wmi_conditions (rule_id, cond_index, conjunction, cond_class, "
                       "cond_field, cond_value, cond_operator, operator_code, cond_namespace, cond_type, type_code)"
                       " SELECT i, 0, 0, 'Win32_OperatingSystem', 'BuildNumber', '2', '>=', 5, 'root\\cimv2',"
                       " 'uint16', 4 FROM n"));
    }
    QSqlDatabase::removeDatabase(QStringLiteral("many"));
}

} // namespace

class TestRuleTransfer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase_data() { StoreFixture::addBackendRows(); }
    void init() { m_fixture.setUp(); }
    void cleanup() { m_fixture.tearDown(); }

    // Exported, emptied, imported again: every reading method answers as before, the file is the
    // same to the byte, it fits the published schema, and a second import adds nothing.
    void roundTripAnswersAlike()
    {
        auto store = m_fixture.open();
        QVERIFY(addSampleRules(*store) > 0);
        WMIRuleRow odd{ruleIdText(4242), "Quotes \"and\" \\ ünïcode 😀", "line one\nline two\ttab", 1, 0, 0,
                       "SELECT * FROM Win32_Service", "#Count", "0", ">", 2, "Root\\CIMV2", "uint32", 3};
        QVERIFY(!failed(calls::AddWMIRule(store.get(), odd)));
        const QStringList before = answers(store.get());
        const QByteArray file = exported(*store);
        QCOMPARE(exported(*store), file);

        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("rules.json"));
        QFile out(path);
        QVERIFY(out.open(QIODevice::WriteOnly) && out.write(file) == file.size());
        out.close();
        QProcess check;
        check.start(QStringLiteral("python3"), {"-c", "import json, sys, jsonschema; jsonschema.validate("
                    "json.load(open(sys.argv[1])), json.load(open(sys.argv[2])))", path, QStringLiteral(QARVO_RULE_SCHEMA)});
        QVERIFY2(check.waitForFinished(60000) && check.exitCode() == 0, check.readAllStandardError().constData());

        deleteAll(*store);
        QVERIFY(store->isEmpty());
        QString error;
        const std::optional<QList<RuleSnapshot>> rules = readRuleFile(file, &error);
        QVERIFY2(rules, qPrintable(error));
        ImportReport report = importRules(store.get(), *rules, false);
        QVERIFY2(report.ok(), qPrintable(report.error));
        QCOMPARE(report.added, rules->size());
        QVERIFY(report.notes.isEmpty());
        QCOMPARE(answers(store.get()), before);
        QCOMPARE(exported(*store), file);

        report = importRules(store.get(), *rules, false);
        QCOMPARE(report.unchanged, rules->size());
        QCOMPARE(report.added + report.replaced, 0);

        // A rule that differs is kept, or replaced with the old one in the history.
        QVERIFY(!failed(calls::UpdateExRuleNameInRule(store.get(), "Disk Free Space", "Disk Space", category::WMI)));
        QVERIFY(!failed(calls::UpdateExRuleNameInRule(store.get(), "Disk Space", "Disk Free Space", category::WMI)));
        const RuleSnapshot vpn = *std::find_if(rules->begin(), rules->end(),
                                               [](const RuleSnapshot &r) { return r.name == "VPN Baseline"; });
        QVERIFY(!failed(calls::DelRQCRule(store.get(), ruleIdText(vpn.id), 2)));
        QVERIFY(!failed(calls::AddRQCRule(store.get(), ruleIdText(vpn.id), vpn.name, "other", "", "")));
        report = importRules(store.get(), *rules, false);
        QCOMPARE(report.kept, QStringList{"VPN Baseline"});
        const qsizetype versions = store->history()->size();
        report = importRules(store.get(), *rules, true);
        QCOMPARE(report.replaced, 1);
        QCOMPARE(store->history()->size(), versions + 1);
        QCOMPARE(answers(store.get()), before);
    }

    // A file with a fault is refused whole, with the place and the fault named, and writes nothing.
    void faultyFilesAreRefusedWhole()
    {
        const QByteArray good = R"({"format": "qarvo-rules", "version": 1, "rules": [{"kind": "NAQC", "name": "N",
            "id": 1, "comment": "", "serviceName": "s", "scriptSelection": "", "scripts": [], "uses": []}]})";
        QString error;
        QVERIFY2(readRuleFile(good, &error), qPrintable(error));
        const std::pair<QByteArray, const char *> faults[] = {
            {good.left(60), "line 1, column 61"},
            {QByteArray(good).replace(R"("id": 1)", R"("id": "1")"), "rules[0].id: expected a whole number"},
            {QByteArray(good).replace(R"("version": 1)", R"("version": 2)"), "version: version 2 is not supported"},
            {QByteArray(good).replace(R"("kind": "NAQC")", R"("kind": "WMI", "conditions": [])"),
             "rules[0].conditions: a rule needs at least one condition"},
            {QByteArray(good).replace(R"("name": "N")", "\"name\": \"" + QByteArray(50, 'n') + '"'),
             "rules[0].name: longer than 49 characters"},
        };
        for (const auto &[bytes, message] : faults) {
            QVERIFY(!readRuleFile(bytes, &error));
            QVERIFY2(error.startsWith(QLatin1String(message)), qPrintable(error));
        }
        QTemporaryDir dir;
        QFile file(dir.filePath(QStringLiteral("bad.json")));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(faults[2].first) > 0);
        file.close();
        auto [code, err] = runConsole({"--database", m_fixture.location(), "--import", file.fileName()});
        QVERIFY2(code == 1 && err.contains(file.fileName()) && err.contains(QLatin1String("nothing was imported")),
                 qPrintable(err));
        QVERIFY(m_fixture.open()->isEmpty());
    }

    // The copy between locations, each way, in processes of their own, with what it counted.
    void copyMovesRulesAndHistory()
    {
        QTemporaryDir dir;
        const QString first = dir.filePath(QStringLiteral("first.sqlite"));
        const QString last = dir.filePath(QStringLiteral("last.sqlite"));
        QStringList before;
        {
            SqlRuleStore source;
            QVERIFY(source.open(first));
            QCOMPARE(addSampleRules(source), 7);
            QVERIFY(!failed(calls::DelWMIRule(&source, ruleIdText(104), 1))); // one version of history
            before = answers(&source);
        }
        const QString middle = m_fixture.location();
        QString out;
        auto [code, err] = runConsole({"--database", first, "--copy-to", middle}, &out);
        QVERIFY2(code == 0, qPrintable(err));
        QVERIFY2(out.contains(QLatin1String("Copied 6 rules and 1 history versions")) && out.contains("6 rules read back"),
                 qPrintable(out));
        std::tie(code, err) = runConsole({"--database", first, "--copy-to", middle});
        QVERIFY2(code == 1 && err.contains(QLatin1String("holds rules already")), qPrintable(err));
        std::tie(code, err) = runConsole({"--database", first, "--copy-to", middle, "--merge"}, &out);
        QVERIFY2(code == 0 && out.contains(QLatin1String("Left out 6 rules")), qPrintable(out));

        std::tie(code, err) = runConsole({"--database", middle, "--copy-to", last}, &out);
        QVERIFY2(code == 0, qPrintable(err));
        SqlRuleStore back;
        QVERIFY(back.open(last));
        QCOMPARE(answers(&back), before);
        QCOMPARE(back.history()->size(), 1);
        // A source that is not there is reported, never created.
        std::tie(code, err) = runConsole({"--database", dir.filePath("none.sqlite"), "--export", dir.filePath("x.json")});
        QVERIFY2(code == 1 && err.contains(QLatin1String("does not exist")), qPrintable(err));
        QVERIFY(!QFile::exists(dir.filePath("none.sqlite")) && !QFile::exists(dir.filePath("x.json")));
    }

    // Stopped half-way, the export from the window and the copy on the command line (Ctrl+C to a
    // process of its own) leave the file and the target as they were.
    void stoppedTransfersChangeNothing()
    {
        QTemporaryDir dir;
        const QString many = dir.filePath(QStringLiteral("many.sqlite"));
        writeManyRules(many, 20000);
        const QString fileName = dir.filePath(QStringLiteral("rules.json"));
        QFile file(fileName);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("kept\n") == 5);
        file.close();
        auto target = m_fixture.open();
        QVERIFY(addSampleRules(*target) > 0);
        // Reading a whole store is quick; with its rules locked by another session for a second
        // it is not, and the progress shows. (SQLite lets readers through any lock.)
        if (m_fixture.isPostgres()) {
            StoreLocation loc;
            QVERIFY(StoreLocation::parse(m_fixture.location(), &loc, nullptr));
            std::thread holder([&] {
                queryOnce(m_fixture.location(), QStringLiteral("BEGIN; LOCK TABLE rules; SELECT pg_sleep(1); COMMIT"),
                          loc.schema);
            });
            QTRY_VERIFY(m_fixture.scalar(QStringLiteral("SELECT COUNT(*) FROM pg_locks WHERE relation = 'rules'::regclass"
                                                        " AND mode = 'AccessExclusiveLock' AND granted"))
                            .toInt() > 0);
            QWidget window;
            window.show();
            MessageCatcher messages;
            whenModalShown([](QWidget *modal) {
                if (auto *progress = qobject_cast<QProgressDialog *>(modal))
                    progress->cancel();
            });
            const bool exported = exportRulesToFile(&window, target.get(), std::nullopt, fileName);
            holder.join();
            QVERIFY(!exported);
            QVERIFY(!modalSafetyNetFired() && messages.messages.isEmpty());
        }
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("kept\n"));

        const QStringList before = answers(target.get());
        QProcess copy;
        copy.start(QStringLiteral(QARVO_CONSOLE_BIN),
                   {"--database", many, "--copy-to", m_fixture.location(), "--merge", "--progress"});
        QByteArray err;
        QTRY_VERIFY_WITH_TIMEOUT((err += copy.readAllStandardError()).contains("Copying rules: "), 30000);
        ::kill(pid_t(copy.processId()), SIGINT);
        QVERIFY(copy.waitForFinished(60000));
        err += copy.readAllStandardError();
        QVERIFY2(copy.exitStatus() == QProcess::NormalExit && copy.exitCode() == 130, err.constData());
        QVERIFY2(err.trimmed().split('\n').last().startsWith("qarvo-console: interrupted; nothing was copied to "),
                 err.constData());
        QCOMPARE(answers(target.get()), before);
    }

private:
    StoreFixture m_fixture;
};

QTEST_MAIN(TestRuleTransfer)
#include "tst_ruletransfer.moc"
