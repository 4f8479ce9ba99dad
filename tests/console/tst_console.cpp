#include "console/consoleapp.h"
#include "console/consolewindow.h"
#include "console/sampledata.h"
#include "console/usagedialog.h"
#include "control/modulestate.h"
#include "control/qarvoctrl.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "dialogdriver.h"
#include "rulestore/sqlrulestore.h"

#include <QAbstractItemView>
#include <QAction>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QTreeWidget>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::console;
using namespace qarvo::test;

namespace {

// Sits between the control and the store and notes every method the control calls.
class CallLog : public DataService
{
public:
    explicit CallLog(DataService *inner) : m_inner(inner) {}
    Reply call(const QString &method, const ArgList &args) override
    {
        methods.append(method);
        return m_inner->call(method, args);
    }
    QStringList methods;

private:
    DataService *m_inner;
};

QStringList ruleNames(DataService *s, qint16 cat)
{
    QStringList names;
    Reply r = cat == category::WMI ? calls::GetWMIRules(s) : calls::GetRQCRule(s);
    forEachRow(r, [&](RowReader &row) { names.append(row.text(QStringLiteral("rule_name"))); });
    return names;
}

QStringList usersOf(DataService *s, const QString &name, qint16 cat)
{
    QStringList names;
    Reply r = calls::RulesUsedExRule(s, name, cat);
    forEachRow(r, [&](RowReader &row) { names.append(row.text(QStringLiteral("rule_name"))); });
    return names;
}

QAction *action(QWidget *window, const char *name)
{
    return window->findChild<QAction *>(QLatin1String(name));
}

} // namespace

class TestConsole : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void optionsAreParsed_data();
    void optionsAreParsed();
    void newStoreGetsSamplesOnlyOnce();
    void scriptSelectionMarksChosenEntriesPerSection();
    void controlSitsAtTheOriginOfItsContainer();
    void viewsSwitchLikeAHostDoes();
    void newRuleActionsOpenTheWizardsAndRefresh_data();
    void newRuleActionsOpenTheWizardsAndRefresh();
    void referenceDialogStoresAUse();
    void sampleRuleInUseCannotBeDeleted();
    void renamingInThePropertySheetKeepsItsUsers();
    void storingANaqcRuleAgainKeepsItsEntriesAndUses();
    void screenshotOfAFreshStore();
    void badDatabasesExitWithAMessageAndCreateNothing_data();
    void badDatabasesExitWithAMessageAndCreateNothing();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<SqlRuleStore> m_store;
};

void TestConsole::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_store = std::make_unique<SqlRuleStore>();
    QVERIFY2(m_store->open(m_dir->filePath(QStringLiteral("rules.sqlite"))), qPrintable(m_store->lastError()));
    resetModalSafetyNet();
}

void TestConsole::cleanup()
{
    resetSheetRoutes();
    m_store.reset();
    m_dir.reset();
    QVERIFY(!modalSafetyNetFired());
}

void TestConsole::optionsAreParsed_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("database");
    QTest::addColumn<int>("view");
    QTest::addColumn<QString>("screenshot");
    using P = ParseResult;
    QTest::newRow("defaults") << QStringList{} << int(P::Run) << "" << 6 << "";
    QTest::newRow("all") << QStringList{"--database", "sqlite:/x/r.db", "--view", "NAQC", "--screenshot", "s.png"}
                         << int(P::Run) << "sqlite:/x/r.db" << 5 << "s.png";
    QTest::newRow("short -d") << QStringList{"-d", "postgresql://u@h/d", "--view=wmi"} << int(P::Run)
                              << "postgresql://u@h/d" << 6 << "";
    QTest::newRow("help") << QStringList{"--help"} << int(P::Help) << "" << 6 << "";
    QTest::newRow("bad view") << QStringList{"--view", "all"} << int(P::Error) << "" << 6 << "";
    QTest::newRow("unknown option") << QStringList{"--db", "x"} << int(P::Error) << "" << 6 << "";
    QTest::newRow("stray argument") << QStringList{"rules.db"} << int(P::Error) << "" << 6 << "";
    QTest::newRow("bad URL") << QStringList{"--database", "ftp://h/x"} << int(P::BadDatabase) << "" << 6 << "";
}

void TestConsole::optionsAreParsed()
{
    QFETCH(QStringList, args);
    QFETCH(int, result);
    Options o;
    QString message;
    const ParseResult r = parseOptions(QStringList{QStringLiteral("qarvo-console")} + args, &o, &message);
    QCOMPARE(int(r), result);
    if (r == ParseResult::Run) {
        QTEST(o.database, "database");
        QTEST(int(o.view), "view");
        QTEST(o.screenshot, "screenshot");
    } else {
        QVERIFY(!message.isEmpty());
    }
    if (r == ParseResult::Help) {
        for (const char *option : {"--database", "--view", "--screenshot", "--help", "qarvo-console"})
            QVERIFY2(message.contains(QLatin1String(option)), option);
    }
}

void TestConsole::newStoreGetsSamplesOnlyOnce()
{
    QVERIFY(m_store->createdOnOpen());
    QString error;
    QCOMPARE(addSampleRules(*m_store, &error), 7);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(ruleNames(m_store.get(), category::WMI),
             (QStringList{"Disk Free Space", "No Disk Shares", "Service Pack Level", "Update Service On",
                          "Workstation Check"}));
    QCOMPARE(ruleNames(m_store.get(), category::NAQC), (QStringList{"Branch Dial-Up", "VPN Baseline"}));
    // One rule is used by two others, so deleting it from the list is refused.
    QCOMPARE(usersOf(m_store.get(), QStringLiteral("Service Pack Level"), category::WMI),
             (QStringList{"VPN Baseline", "Workstation Check"}));
    QCOMPARE(addSampleRules(*m_store), 0);
    QCOMPARE(ruleNames(m_store.get(), category::WMI).size(), 5);

    SqlRuleStore again;
    QVERIFY(again.open(m_store->location()));
    QVERIFY(!again.createdOnOpen());
}

void TestConsole::scriptSelectionMarksChosenEntriesPerSection()
{
    const QString pre = QStringLiteral("Pre-Connect Actions");
    QCOMPARE(scriptSelection(QStringLiteral("Svc"), {}), QStringLiteral("\"Svc\",0,0,0,0,0,0,0,0,0"));
    QCOMPARE(scriptSelection(QStringLiteral("Svc"), {{"a", pre, "", false}, {"b", pre, "", true}}),
             QStringLiteral("\"Svc\",0,\"1\",0,0,0,0,0,0,0"));
    QCOMPARE(scriptSelection(QStringLiteral("Svc"),
                             {{"a", pre, "", true}, {"x", "On-Error Actions", "", true},
                              {"b", pre, "", false}, {"c", pre, "", true}}),
             QStringLiteral("\"Svc\",0,\"0:2\",0,0,0,0,0,0,\"0\""));
}

void TestConsole::controlSitsAtTheOriginOfItsContainer()
{
    ConsoleWindow w(m_store.get(), category::WMI);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    auto *host = w.findChild<QWidget *>(QStringLiteral("controlHost"));
    QVERIFY(host);
    QCOMPARE(w.control()->parentWidget(), host);
    QCOMPARE(w.control()->geometry(), host->rect());
    w.resize(1200, 800);
    QTRY_COMPARE(w.control()->geometry(), host->rect());
    QCOMPARE(w.control()->pos(), QPoint(0, 0));
    QCOMPARE(w.windowTitle(), m_store->location().displayText() + QString::fromUtf8(" \u2014 qarvo console"));
}

void TestConsole::viewsSwitchLikeAHostDoes()
{
    addSampleRules(*m_store);
    CallLog log(m_store.get());
    ConsoleWindow w(m_store.get(), category::NAQC, &log);
    w.show();
    w.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    QCOMPARE(w.control()->ViewType(), short(5));
    QCOMPARE(currentDataService(), static_cast<DataService *>(&log));
    QCOMPARE(log.methods, QStringList{"GetRQCRule"});

    auto *scope = w.findChild<QTreeWidget *>(QStringLiteral("scopeTree"));
    QCOMPARE(scope->currentItem()->text(0), QStringLiteral("NAQC Rules"));
    QPointer<CqarvoCtrl> first = w.control();

    log.methods.clear();
    action(&w, "actionViewWMI")->trigger();
    QCOMPARE(w.view(), category::WMI);
    QCOMPARE(w.control()->ViewType(), short(6));
    QVERIFY(!first); // a fresh control for the new view; columns are never set up twice
    QCOMPARE(log.methods, QStringList{"GetWMIRules"});
    QCOMPARE(scope->currentItem()->text(0), QStringLiteral("WMI Rules"));
    QVERIFY(action(&w, "actionViewWMI")->isChecked());

    // The scope tree and the keyboard lead to the same place.
    log.methods.clear();
    scope->setFocus();
    QTest::keyClick(scope, Qt::Key_Up);
    QCOMPARE(w.view(), category::NAQC);
    QTest::keyClick(&w, Qt::Key_2, Qt::ControlModifier);
    QCOMPARE(w.view(), category::WMI);
    QTest::keyClick(&w, Qt::Key_F5);
    QCOMPARE(log.methods, (QStringList{"GetRQCRule", "GetWMIRules", "GetWMIRules"}));

    // End to end: the rules and a rule's conditions come out of the store into the control.
    auto *list = w.control()->findChild<QAbstractItemView *>(QStringLiteral("ruleList"));
    QVERIFY(list);
    QCOMPARE(list->model()->rowCount(), 5);
    list->setCurrentIndex(list->model()->index(2, 0));
    QCOMPARE(list->model()->index(2, 0).data().toString(), QStringLiteral("Service Pack Level"));
    auto *details = w.control()->findChild<QAbstractItemView *>(QStringLiteral("detailList"));
    QVERIFY(details);
    QTRY_COMPARE(details->model()->rowCount(), 2);
    QCOMPARE(details->model()->index(1, 1).data().toString(), QStringLiteral("AND"));
    QCOMPARE(details->model()->index(1, 4).data().toString(), QStringLiteral("ProductType"));
    if (qEnvironmentVariableIsSet("QARVO_KEEP_SCREENSHOT"))
        w.grab().save(qEnvironmentVariable("QARVO_KEEP_SCREENSHOT") + QStringLiteral(".details.png"));
}

void TestConsole::newRuleActionsOpenTheWizardsAndRefresh_data()
{
    QTest::addColumn<QString>("actionName");
    QTest::addColumn<QString>("sheet");
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<int>("viewAfter");
    QTest::newRow("WMI, finished") << "actionNewWMIRule" << "wmi:New WMIRule Wizard:0" << 1
                                   << QStringList{"GetWMIRules"} << 6;
    QTest::newRow("WQL, cancelled") << "actionNewWQLRule" << "wmi:New WQLRule Wizard:1" << 2
                                    << QStringList{"GetWMIRules"} << 6;
    // A NAQC rule finished in the WMI view: the list is refreshed, then the NAQC rules shown.
    QTest::newRow("NAQC, finished") << "actionNewNAQCRule" << "rqc:0" << 1
                                    << QStringList{"GetWMIRules", "GetRQCRule"} << 5;
    QTest::newRow("NAQC, cancelled") << "actionNewNAQCRule" << "rqc:0" << 2
                                     << QStringList{"GetWMIRules"} << 6;
}

void TestConsole::newRuleActionsOpenTheWizardsAndRefresh()
{
    QFETCH(QString, actionName);
    QFETCH(QString, sheet);
    QFETCH(int, result);
    CallLog log(m_store.get());
    ConsoleWindow w(m_store.get(), category::WMI, &log);
    w.show();
    QStringList opened;
    DataService *serviceSeen = nullptr;
    sheetRoutes().wmi = [&](QWidget *, const WMISheetRequest &r) {
        opened << QStringLiteral("wmi:%1:%2").arg(r.caption).arg(r.wql);
        serviceSeen = currentDataService();
        return result;
    };
    sheetRoutes().rqc = [&](QWidget *, const RQCSheetRequest &r) {
        opened << QStringLiteral("rqc:%1").arg(r.mode);
        serviceSeen = currentDataService();
        return result;
    };
    log.methods.clear();
    action(&w, actionName.toLatin1().constData())->trigger();
    QCOMPARE(opened, QStringList{sheet});
    QCOMPARE(serviceSeen, static_cast<DataService *>(&log));
    QTEST(log.methods, "calls");
    QTEST(int(w.view()), "viewAfter");
}

void TestConsole::referenceDialogStoresAUse()
{
    addSampleRules(*m_store);
    ConsoleWindow w(m_store.get(), category::WMI);
    w.show();
    w.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&w));
    bool okWasDisabledForTheSameRule = false;
    whenModalShown([&](QWidget *modal) {
        auto *user = modal->findChild<QComboBox *>(QStringLiteral("userCombo"));
        auto *used = modal->findChild<QComboBox *>(QStringLiteral("usedCombo"));
        auto *ok = modal->findChild<QDialogButtonBox *>(QStringLiteral("buttons"))->button(QDialogButtonBox::Ok);
        QCOMPARE(user->count(), 7);
        user->setCurrentIndex(user->findText(QStringLiteral("Branch Dial-Up (NAQC)")));
        used->setCurrentIndex(user->currentIndex());
        okWasDisabledForTheSameRule = !ok->isEnabled();
        used->setCurrentIndex(used->findText(QStringLiteral("No Disk Shares (WQL)")));
        QVERIFY(ok->isEnabled());
        if (qEnvironmentVariableIsSet("QARVO_KEEP_SCREENSHOT"))
            modal->grab().save(qEnvironmentVariable("QARVO_KEEP_SCREENSHOT") + QStringLiteral(".reference.png"));
        ok->click();
    });
    QTest::keyClick(&w, Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier);
    QVERIFY(okWasDisabledForTheSameRule);
    QCOMPARE(usersOf(m_store.get(), QStringLiteral("No Disk Shares"), category::WMI),
             QStringList{"Branch Dial-Up"});
}

void TestConsole::sampleRuleInUseCannotBeDeleted()
{
    addSampleRules(*m_store);
    ConsoleWindow w(m_store.get(), category::WMI);
    w.show();
    auto *list = w.control()->findChild<QAbstractItemView *>(QStringLiteral("ruleList"));
    auto *remove = w.control()->findChild<QAction *>(QStringLiteral("actionDelete"));
    QVERIFY(list && remove);
    MessageCatcher catcher;

    list->setCurrentIndex(list->model()->index(2, 0)); // Service Pack Level
    remove->trigger();
    QCOMPARE(catcher.texts(),
             QStringList{"Cannot delete the [Service Pack Level] - because it is being used by the "
                         "follow rule(s).\n\n    - VPN Baseline\n    - Workstation Check"});
    QCOMPARE(ruleNames(m_store.get(), category::WMI).size(), 5);

    // Its user goes without a question, and takes its uses along.
    list->setCurrentIndex(list->model()->index(4, 0)); // Workstation Check
    remove->trigger();
    QCOMPARE(catcher.texts().size(), 1);
    QCOMPARE(list->model()->rowCount(), 4);
    QVERIFY(!ruleNames(m_store.get(), category::WMI).contains(QStringLiteral("Workstation Check")));
    QCOMPARE(usersOf(m_store.get(), QStringLiteral("Service Pack Level"), category::WMI),
             QStringList{"VPN Baseline"});
}

// The whole road: the rule list, the real property sheet, and the store underneath.
void TestConsole::renamingInThePropertySheetKeepsItsUsers()
{
    addSampleRules(*m_store);
    ConsoleWindow w(m_store.get(), category::WMI);
    w.show();
    auto *list = w.control()->findChild<QAbstractItemView *>(QStringLiteral("ruleList"));
    list->setCurrentIndex(list->model()->index(2, 0)); // Service Pack Level
    whenModalShown([](QWidget *sheet) {
        auto *name = sheet->findChild<QLineEdit *>(QStringLiteral("nameEdit"));
        QVERIFY(name);
        QCOMPARE(name->text(), QStringLiteral("Service Pack Level"));
        name->setText(QStringLiteral("Service Pack Minimum"));
        sheet->findChild<QPushButton *>(QStringLiteral("okButton"))->click();
    });
    w.control()->findChild<QAction *>(QStringLiteral("actionProperties"))->trigger();

    Reply info = calls::GetWMIRuleInfo(m_store.get(), ruleIdText(101));
    QStringList fields;
    forEachRow(info, [&](RowReader &r) {
        fields << r.text(QStringLiteral("rule_name")) + QLatin1Char('/') + r.text(QStringLiteral("rule_field"));
    });
    QCOMPARE(fields, (QStringList{"Service Pack Minimum/ServicePackMajorVersion",
                                  "Service Pack Minimum/ProductType"}));
    QCOMPARE(usersOf(m_store.get(), QStringLiteral("Service Pack Minimum"), category::WMI),
             (QStringList{"VPN Baseline", "Workstation Check"}));
    QCOMPARE(usersOf(m_store.get(), QStringLiteral("Service Pack Level"), category::WMI), QStringList());
    QTRY_COMPARE(list->model()->index(2, 0).data().toString(), QStringLiteral("Service Pack Minimum"));
}

void TestConsole::storingANaqcRuleAgainKeepsItsEntriesAndUses()
{
    addSampleRules(*m_store);
    ConsoleWindow w(m_store.get(), category::NAQC);
    w.show();
    auto *list = w.control()->findChild<QAbstractItemView *>(QStringLiteral("ruleList"));
    list->setCurrentIndex(list->model()->index(1, 0)); // VPN Baseline
    bool stored = false;
    whenModalShown([&](QWidget *sheet) {
        auto *buttons = sheet->findChild<QDialogButtonBox *>(QStringLiteral("buttonBox"));
        QVERIFY(buttons);
        buttons->button(QDialogButtonBox::Ok)->click();
        stored = true;
    });
    w.control()->findChild<QAction *>(QStringLiteral("actionProperties"))->trigger();
    QVERIFY(stored);

    Reply scripts = calls::GetRQCRuleScriptInfo(m_store.get(), ruleIdText(201));
    QStringList entries;
    forEachRow(scripts, [&](RowReader &r) {
        entries << QStringLiteral("%1 %2").arg(r.integer(QStringLiteral("rule_select")))
                       .arg(r.text(QStringLiteral("rule_script")));
    });
    QCOMPARE(entries, (QStringList{"0 setup.cmd", "1 rqc.exe", "1 checkav.cmd", "0 cleanup.cmd"}));
    QCOMPARE(ruleNames(m_store.get(), category::NAQC), (QStringList{"Branch Dial-Up", "VPN Baseline"}));
    QCOMPARE(usersOf(m_store.get(), QStringLiteral("Service Pack Level"), category::WMI),
             (QStringList{"VPN Baseline", "Workstation Check"}));
}

void TestConsole::screenshotOfAFreshStore()
{
    const QString db = m_dir->filePath(QStringLiteral("fresh.sqlite"));
    const QString png = m_dir->filePath(QStringLiteral("console.png"));
    QProcess p;
    p.start(QStringLiteral(QARVO_CONSOLE_BIN),
            {QStringLiteral("--database"), db, QStringLiteral("--screenshot"), png});
    QVERIFY(p.waitForFinished(60000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QVERIFY2(p.exitCode() == 0, p.readAllStandardError().constData());
    QImage image(png);
    QVERIFY(!image.isNull());
    QVERIFY(image.width() >= 800 && image.height() >= 500);

    SqlRuleStore store;
    QVERIFY(store.open(db));
    QCOMPARE(ruleNames(&store, category::WMI).size(), 5);
    QCOMPARE(ruleNames(&store, category::NAQC).size(), 2);

    // A store that has rules is never touched: a second start adds nothing.
    QVERIFY(!failed(calls::DelRQCRule(&store, ruleIdText(202), delmode::FromList)));
    p.start(QStringLiteral(QARVO_CONSOLE_BIN),
            {QStringLiteral("--database"), QStringLiteral("sqlite:") + db, QStringLiteral("--view"),
             QStringLiteral("naqc"), QStringLiteral("--screenshot"), png});
    QVERIFY(p.waitForFinished(60000));
    QCOMPARE(p.exitCode(), 0);
    QCOMPARE(ruleNames(&store, category::NAQC), QStringList{"VPN Baseline"});

    if (qEnvironmentVariableIsSet("QARVO_KEEP_SCREENSHOT"))
        QFile::copy(png, qEnvironmentVariable("QARVO_KEEP_SCREENSHOT"));
}

void TestConsole::badDatabasesExitWithAMessageAndCreateNothing_data()
{
    QTest::addColumn<QString>("database");
    QTest::addColumn<QString>("mentions");
    QTest::newRow("unknown scheme") << "mysql://u@h/rules" << "is not a database this console knows";
    QTest::newRow("URL without database") << "postgresql://u@127.0.0.1:5432" << "names no database";
    QTest::newRow("missing folder") << "sqlite:@DIR@/missing/rules.sqlite" << "does not exist";
    QTest::newRow("not a database") << "@DIR@/notes.txt" << "not a readable SQLite database";
    QTest::newRow("server down") << "postgresql://postgres@127.0.0.1:1/rules" << "Cannot open";
}

void TestConsole::badDatabasesExitWithAMessageAndCreateNothing()
{
    QFETCH(QString, database);
    QFETCH(QString, mentions);
    database.replace(QLatin1String("@DIR@"), m_dir->path());
    QFile notes(m_dir->filePath(QStringLiteral("notes.txt")));
    QVERIFY(notes.open(QIODevice::WriteOnly));
    notes.write("not rules\n");
    notes.close();
    const QStringList before = QDir(m_dir->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries);

    QProcess p;
    p.start(QStringLiteral(QARVO_CONSOLE_BIN),
            {QStringLiteral("--database"), database, QStringLiteral("--screenshot"),
             m_dir->filePath(QStringLiteral("never.png"))});
    QVERIFY(p.waitForFinished(60000));
    const QString err = QString::fromUtf8(p.readAllStandardError());
    QCOMPARE(p.exitCode(), 1);
    QVERIFY2(err.contains(mentions), qPrintable(err));
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), before);
    QVERIFY(notes.open(QIODevice::ReadOnly));
    QCOMPARE(notes.readAll(), QByteArray("not rules\n"));
}

QTEST_MAIN(TestConsole)
#include "tst_console.moc"
