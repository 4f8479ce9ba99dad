#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "dialogdriver.h"
#include "sheethelpers.h"

#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTimer>

using namespace qarvo;
using namespace qarvo::test;

namespace {

constexpr qint64 Now = 1763730000;
const QString Ns = QStringLiteral("root\\cimv2");
const QString Taken =
    QStringLiteral("There is already a rule with the same name. Please enter a different name.");

QString idAt(qint64 seconds)
{
    RuleIdGenerator gen([seconds] { return seconds; });
    return ruleIdText(gen.draw());
}

// The signature of one AddWMIRule call: id, name, comment and kind, then per condition
// {index, conjunction code, class, field, value, op, op code, namespace, type, type code}.
QString addCall(const QString &head, const QVariantList &c)
{
    return QStringLiteral("AddWMIRule(%1, short:%2, short:%3, text:%4, text:%5, text:%6, text:%7, "
                          "short:%8, text:%9, text:%10, short:%11)")
        .arg(head, c[0].toString(), c[1].toString(), c[2].toString(), c[3].toString(),
             c[4].toString(), c[5].toString(), c[6].toString(), c[7].toString())
        .arg(c[8].toString(), c[9].toString());
}

QString head(const QString &id, const QString &name, const QString &comment, int kind)
{
    return QStringLiteral("text:%1, text:%2, text:%3, short:%4").arg(id, name, comment).arg(kind);
}

// A wizard on its last page with one condition per class given.
struct WizardOnPage3 : WizardOnPage2
{
    WizardOnPage3(ScriptedEditors &editors, const QStringList &classes,
                  const QString &name = QStringLiteral("Service running"))
        : WizardOnPage2(RuleKind::WMI, name)
    {
        for (const QString &cls : classes)
            editors.wmiAnswers.append(wmiCondition(cls, "F", "uint8", "=", "1"));
        add(int(classes.size()));
        sheet.wizard()->next();
    }
    void finish() { sheet.wizard()->button(QWizard::FinishButton)->click(); }
    bool closed() const { return !sheet.window()->isVisible(); }
};

// A property sheet, shown, over `s` answering GetWMIRuleInfo with `rows`.
struct Properties
{
    Properties(RecordingService &s, RuleKind kind, int number, QList<QVariantList> rows)
        : sheet(serve(s, std::move(rows)), kind, SheetMode::Properties, "WMIRule Properties",
                number)
    {
        sheet.window()->show();
    }
    static QWidget *serve(RecordingService &s, QList<QVariantList> rows)
    {
        s.script("GetWMIRuleInfo", storedRule(std::move(rows)));
        useService(&s);
        return nullptr; // the sheet's parent
    }
    void ok() { sheet.okButton()->click(); }
    bool open() const { return sheet.window()->isVisible(); }
    CWMIRuleSheet sheet;
};

const QVariantList OldRow{"Old", "", 0, "ns", "C", "F", "string", "=", "v"};

} // namespace

// What Finish and OK send to the data service, and where they stop when it fails.
class TestWmiRuleSubmit : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        resetModalSafetyNet();
        ruleIdClock() = [] { return Now; };
    }

    void cleanup()
    {
        resetRuleIdClock();
        resetConditionEditors();
        useService(nullptr);
        QVERIFY(!modalSafetyNetFired());
    }

    void finishSendsTheWholeRule_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("wmi") << 0;
        QTest::newRow("wql") << 1;
    }

    void finishSendsTheWholeRule()
    {
        QFETCH(int, kind);
        RecordingService s;
        s.script("CanUseID", answer(0));
        s.script("CanUseExRuleName", answer(0));
        useService(&s);
        ScriptedEditors editors;
        WizardOnPage2 w(RuleKind(kind), "Rule A");
        editors.wqlAnswers = {
            wqlCount("*", "Win32_Process", "Name = 'x.exe'", ">=", "1"),
            wqlCondition("FreeSpace", "Win32_LogicalDisk", "", "FreeSpace", "real64", "<", "5"),
            wqlCondition("Name", "Win32_Service", "", "Started", "BOOLEAN", "=", "TRUE")};
        editors.wmiAnswers = {
            wmiCondition("Win32_Service", "State", "string", "=", "Running"),
            wmiCondition("Win32_Bios", "Speed", "real32", "like", "1"),
            wmiCondition("Win32_QuickFixEngineering", "HotFixID[]", "string", "not in", "KB1,KB2")};
        w.add(3);
        w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
        w.sheet.wizard()->next();
        s.clear();
        w.sheet.wizard()->button(QWizard::FinishButton)->click();

        const QString id = idAt(Now);
        QCOMPARE(id.size(), 9);
        QVERIFY(id.toInt() <= 32767);
        const QString h = head(id, "Rule A", "Checked daily", kind);
        QStringList expected{"CanUseID(text:" + id + ", short:6)",
                             "CanUseExRuleName(text:Rule A, short:6)"};
        if (kind) {
            expected << addCall(h, {0, 0, "SELECT * FROM Win32_Process WHERE Name = 'x.exe'",
                                    "#Count", "1", ">=", 5, Ns, "uint8", 3})
                     // real64 is not in the type table: the code of the row before goes along
                     << addCall(h, {1, 2, "SELECT FreeSpace FROM Win32_LogicalDisk", "FreeSpace",
                                    "5", "<", 4, Ns, "real64", 3})
                     << addCall(h, {2, 1, "SELECT Name FROM Win32_Service", "Started", "TRUE", "=",
                                    1, Ns, "BOOLEAN", 1});
        } else {
            expected << addCall(h, {0, 0, "Win32_Service", "State", "Running", "=", 1, Ns, "string", 2})
                     // neither "like" nor real32 is in a table: both codes carry over
                     << addCall(h, {1, 2, "Win32_Bios", "Speed", "1", "like", 1, Ns, "real32", 2})
                     << addCall(h, {2, 1, "Win32_QuickFixEngineering", "HotFixID[]", "KB1,KB2",
                                    "not in", 8, Ns, "string", 2});
        }
        QCOMPARE(s.signatures(), expected);
        QVERIFY(!w.sheet.wizard()->isVisible());
        QCOMPARE(w.sheet.wizard()->result(), int(QDialog::Accepted));
    }

    void finishStopsWhereTheServiceFails_data()
    {
        QTest::addColumn<int>("failing");
        QTest::addColumn<bool>("unknownName");
        QTest::addColumn<bool>("taken");
        const char *names[] = {"CanUseID", "CanUseExRuleName", "first AddWMIRule",
                               "second AddWMIRule", "last AddWMIRule"};
        for (int i = 0; i < 5; ++i)
            QTest::addRow("%s fails", names[i]) << i << false << false;
        QTest::newRow("CanUseID unknown") << 0 << true << false;
        QTest::newRow("AddWMIRule unknown") << 2 << true << false;
        QTest::newRow("name taken") << 99 << false << true;
    }

    void finishStopsWhereTheServiceFails()
    {
        QFETCH(int, failing);
        QFETCH(bool, unknownName);
        QFETCH(bool, taken);
        RecordingService s;
        if (taken)
            s.scriptOnce("CanUseExRuleName", answer(-1));
        useService(&s);
        ScriptedEditors editors;
        WizardOnPage3 w(editors, {"A", "B", "C"});
        MessageCatcher messages;
        s.clear();
        const QStringList order{"CanUseID", "CanUseExRuleName", "AddWMIRule", "AddWMIRule",
                                "AddWMIRule"};
        if (unknownName)
            s.forgetMethod(order[failing]);
        else
            s.failCall(failing);
        w.finish();

        QVERIFY(!w.closed()); // the wizard stays on its last page, silently unless the name is taken
        QCOMPARE(w.sheet.wizard()->currentId(), 2);
        QCOMPARE(messages.texts(), taken ? QStringList{Taken} : QStringList());
        if (taken) {
            QCOMPARE(messages.messages[0].caption, QStringLiteral("INFO"));
            QCOMPARE(messages.messages[0].icon, ui::MessageIcon::Information);
        }
        QCOMPARE(s.methods(), order.mid(0, taken ? 2 : unknownName ? failing : failing + 1));
        QCOMPARE(w.sheet.record().ruleId.isEmpty(), failing == 0);
        QVERIFY(w.sheet.wizard()->button(QWizard::FinishButton)->isEnabled());
        QVERIFY(w.sheet.wizard()->button(QWizard::BackButton)->isEnabled());

        // Once the service works again, Finish starts over with a new id check.
        s.setKnownMethods(RecordingService::catalogue());
        const qsizetype before = s.calls().size();
        w.finish();
        QVERIFY(w.closed());
        QCOMPARE(s.methods().mid(before), order);
    }

    void takenIdsAreDrawnAgainWithTheWindowAlive()
    {
        RecordingService s;
        for (int i = 0; i < 4; ++i)
            s.scriptOnce("CanUseID", answer(-1));
        s.script("CanUseID", answer(0));
        useService(&s);
        int reads = 0; // the clock moves on after every second reading
        ruleIdClock() = [&reads] { return Now + reads++ / 2; };
        ScriptedEditors editors;
        WizardOnPage3 w(editors, {"A"});
        s.clear();

        // Events keep being handled between tries: a timer keeps ticking, and the buttons that
        // could start a second Finish are held while the search runs.
        int ticks = 0;
        bool held = true;
        QTimer ticker;
        ticker.setInterval(5);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            ++ticks;
            held = held && !w.sheet.wizard()->button(QWizard::FinishButton)->isEnabled()
                   && !w.sheet.wizard()->button(QWizard::BackButton)->isEnabled();
        });
        ticker.start();
        w.finish();
        ticker.stop();
        QVERIFY(ticks > 0);
        QVERIFY(held);
        QVERIFY(w.closed());

        // Each try draws from the clock anew; the rule is stored under the last candidate.
        QCOMPARE(s.methods().count("CanUseID"), 5);
        QCOMPARE(std::get<QString>(s.calls().last().args[0]), idAt(Now + 2));
    }

    void cancelEndsAnEndlessIdSearch()
    {
        RecordingService s;
        s.script("CanUseID", answer(-1)); // taken, forever
        useService(&s);
        ScriptedEditors editors;
        CqarvoCtrl ctrl; // the way the host opens it: the wizard runs modally
        int calls = 0;
        whenModalShown([&](QWidget *modal) {
            auto *wizard = qobject_cast<QWizard *>(modal);
            QVERIFY(wizard);
            wizard->findChild<QLineEdit *>("nameEdit")->setText("Endless");
            wizard->next();
            editors.wmiAnswers = {wmiCondition("A", "F", "uint8", "=", "1")};
            wizard->findChild<QPushButton *>("addButton")->click();
            wizard->next();
            QTimer::singleShot(300, wizard, [wizard, &s, &calls] {
                calls = int(s.calls().size());
                wizard->button(QWizard::CancelButton)->click();
            });
            wizard->button(QWizard::FinishButton)->click();
        });
        QCOMPARE(ctrl.ShowWMIRuleWzd(&s), short(2));
        QVERIFY(calls >= 2); // it kept asking until Cancel
        QVERIFY(!s.methods().contains("CanUseExRuleName") && !s.methods().contains("AddWMIRule"));
        QVERIFY(!QApplication::activeModalWidget());
    }

    void propertiesLoadTheStoredRule()
    {
        RecordingService s;
        const QString comment(80, u'c');
        Properties p(s, RuleKind::WMI, 12,
                     {{"Disk", comment, 0, Ns, "Win32_LogicalDisk", "FreeSpace", "uint64", ">", "1"},
                      {"Disk", comment, 2, Ns, "Win32_LogicalDisk", "Size", "uint64", ">", "2"},
                      {"Disk", comment, 1, "root\\default", "Win32_Volume", "Label", "string", "!=", "X"},
                      {"Disk", comment, 0, "root\\default", "Win32_Volume", "DriveType", "uint32", "=", "3"}});
        QCOMPARE(s.signatures(), QStringList(2, "GetWMIRuleInfo(text:000000012, slot)"));
        for (const auto &trace : s.rowSets())
            QVERIFY(trace->closed);
        QCOMPARE(p.sheet.loadedName(), QStringLiteral("Disk"));
        QCOMPARE(p.sheet.page1()->nameEdit()->text(), QStringLiteral("Disk"));
        QCOMPARE(opColumn(p.sheet.page2()->list()), QStringList({"EQ/11", "OR/12", "AND/13", "EQ/11"}));
        QCOMPARE(p.sheet.page2()->list()->rowTexts(2),
                 (ConditionTexts{"root\\default", "Win32_Volume", "Label", "string", "!=", "X"}));
        QVERIFY(p.sheet.okButton()->isEnabled());
        QVERIFY(p.sheet.okButton()->toolTip().isEmpty());

        // A stored comment longer than page 1 hands on is shown, and stored again, cut to 49.
        QCOMPARE(p.sheet.record().comment, comment);
        QCOMPARE(p.sheet.page1()->commentEdit()->text(), QString(49, u'c'));
        s.clear();
        p.ok();
        QCOMPARE(s.methods(), QStringList({"DelWMIRule", "AddWMIRule", "AddWMIRule", "AddWMIRule",
                                           "AddWMIRule"}));
        QCOMPARE(std::get<QString>(s.calls()[1].args[2]), QString(49, u'c'));
    }

    void propertiesStoreAgainWithoutRename()
    {
        RecordingService s;
        Properties p(s, RuleKind::WQL, 305,
                     {{"Q", "c", 0, Ns, "SELECT * FROM Win32_Process", "#Count", "uint8", "<", "2"},
                      {"Q", "c", 0, Ns, "SELECT * FROM Win32_Service", "#Count", "uint8", "=", "0"}});
        p.sheet.page1()->commentEdit()->setText("new comment");
        s.clear();
        p.ok();
        // No name check; a later row stored with 0 comes back as "EQ" and goes out with 0 again.
        const QString h = head("000000305", "Q", "new comment", 1);
        QCOMPARE(s.signatures(),
                 QStringList({"DelWMIRule(text:000000305, short:2)",
                              addCall(h, {0, 0, "SELECT * FROM Win32_Process", "#Count", "2", "<",
                                          4, Ns, "uint8", 3}),
                              addCall(h, {1, 0, "SELECT * FROM Win32_Service", "#Count", "0", "=",
                                          1, Ns, "uint8", 3})}));
        QVERIFY(!p.open());
        QCOMPARE(p.sheet.window()->result(), int(QDialog::Accepted));
    }

    void propertiesStopWhereTheServiceFails_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("taken");
        QTest::addColumn<int>("failing");
        QTest::addColumn<bool>("closes");
        QTest::newRow("case-only rename") << "OLD" << false << 99 << true;
        QTest::newRow("name taken") << "Other" << true << 99 << false;
        const char *names[] = {"CanUseExRuleName", "UpdateExRuleNameInRule", "DelWMIRule",
                               "first AddWMIRule", "second AddWMIRule"};
        for (int i = 0; i < 5; ++i)
            QTest::addRow("%s fails", names[i]) << "New" << false << i << (i > 2);
    }

    void propertiesStopWhereTheServiceFails()
    {
        QFETCH(QString, name);
        QFETCH(bool, taken);
        QFETCH(int, failing);
        QFETCH(bool, closes);
        RecordingService s;
        s.script("CanUseExRuleName", answer(taken ? -1 : 0));
        MessageCatcher messages;
        QVariantList second = OldRow;
        second[2] = 1;
        Properties p(s, RuleKind::WMI, 77, {OldRow, second});
        p.sheet.page1()->nameEdit()->setText(name);
        s.clear();
        s.failCall(failing);
        p.ok();
        const QStringList order{"CanUseExRuleName", "UpdateExRuleNameInRule", "DelWMIRule",
                                "AddWMIRule", "AddWMIRule"};
        QCOMPARE(s.methods(), order.mid(0, taken ? 1 : failing + 1));
        QCOMPARE(s.signatures()[0], "CanUseExRuleName(text:" + name + ", short:6)");
        if (s.calls().size() > 3)
            QCOMPARE(std::get<QString>(s.calls()[3].args[1]), name);
        QCOMPARE(p.open(), !closes);
        QCOMPARE(messages.texts(), taken ? QStringList{Taken} : QStringList());
        if (closes || taken)
            return;
        // A second OK renames from the name as loaded again.
        const qsizetype before = s.calls().size();
        p.ok();
        QCOMPARE(s.signatures().mid(before, 3),
                 QStringList({"CanUseExRuleName(text:New, short:6)",
                              "UpdateExRuleNameInRule(text:Old, text:New, short:6)",
                              "DelWMIRule(text:000000077, short:2)"}));
        QVERIFY(!p.open());
    }

    void propertiesOfAnIncompleteLoadCannotBeStored_data()
    {
        QTest::addColumn<int>("failing"); // GetWMIRuleInfo call that fails, -1 none
        QTest::addColumn<int>("faultAt"); // field read that throws while reading the conditions
        QTest::addColumn<int>("rowsShown");
        QTest::newRow("name and comment cannot be read") << 0 << -1 << 2;
        QTest::newRow("conditions cannot be read") << 1 << -1 << 0;
        QTest::newRow("fault in the second condition") << -1 << 9 << 1;
        // A rule without conditions is read completely: OK follows the page rules.
        QTest::newRow("nothing stored") << -1 << -1 << 0;
    }

    void propertiesOfAnIncompleteLoadCannotBeStored()
    {
        QFETCH(int, failing);
        QFETCH(int, faultAt);
        QFETCH(int, rowsShown);
        const bool complete = failing < 0 && faultAt < 0;
        RecordingService s;
        QVariantList second = OldRow;
        second[2] = 1;
        ScriptedReply rows = storedRule(rowsShown || !complete ? QList<QVariantList>{OldRow, second}
                                                               : QList<QVariantList>{});
        rows.faultAtFieldRead = faultAt;
        s.scriptOnce("GetWMIRuleInfo", failing == 0 ? ScriptedReply::failure() : rows);
        s.scriptOnce("GetWMIRuleInfo", failing == 1 ? ScriptedReply::failure() : rows);
        useService(&s);
        CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 5);
        sheet.window()->show();
        QCOMPARE(sheet.page2()->list()->rowCount(), rowsShown);
        QCOMPARE(sheet.loadedCompletely(), complete);
        QCOMPARE(sheet.okButton()->isEnabled(), rowsShown > 0 && complete);
        QCOMPARE(sheet.okButton()->toolTip().isEmpty(), complete);

        // Only a complete load lets OK on: storing deletes first and would otherwise leave the
        // rule with only the conditions that were read.
        sheet.page1()->nameEdit()->setText("Renamed");
        ScriptedEditors editors;
        editors.wmiAnswers = {wmiCondition("A", "F", "uint8", "=", "1")};
        sheet.page2()->addButton()->click();
        QCOMPARE(sheet.okButton()->isEnabled(), complete);
        s.clear();
        QTest::keyClick(sheet.window(), Qt::Key_Return); // OK is the default button
        if (!complete)
            sheet.storeProperties();
        QCOMPARE(s.methods(), complete ? QStringList({"CanUseExRuleName", "UpdateExRuleNameInRule",
                                                      "DelWMIRule", "AddWMIRule"})
                                       : QStringList());
        QCOMPARE(sheet.window()->isVisible(), !complete);
    }

    void controlMembersReturnTwoOrOne()
    {
        RecordingService s;
        s.script("GetWMIRuleInfo",
                 storedRule({{"R", "", 0, "ns", "SELECT * FROM A", "#Count", "uint8", "=", "0"}}));
        useService(&s);
        CqarvoCtrl ctrl;
        whenModalShown([](QWidget *modal) {
            QCOMPARE(modal->windowTitle(), QStringLiteral("New WQLRule Wizard"));
            qobject_cast<QDialog *>(modal)->reject();
        });
        QCOMPARE(ctrl.ShowWQLRuleWzd(&s), short(2));

        whenModalShown([](QWidget *modal) {
            QCOMPARE(modal->windowTitle(), QStringLiteral("Properties"));
            QCOMPARE(modal->findChild<QTabWidget *>("sheetTabs")->tabText(1), QStringLiteral("WQL"));
            modal->findChild<QPushButton *>("okButton")->click();
        });
        // The properties work with the service the control already has.
        RecordingService other;
        s.clear();
        QCOMPARE(ctrl.ShowWQLProperties(&other, 44), short(1));
        QVERIFY(other.calls().isEmpty());
        QCOMPARE(s.methods(),
                 QStringList({"GetWMIRuleInfo", "GetWMIRuleInfo", "DelWMIRule", "AddWMIRule"}));
        QCOMPARE(s.signatures()[0], QStringLiteral("GetWMIRuleInfo(text:000000044, slot)"));
    }
};

QTEST_MAIN(TestWmiRuleSubmit)
#include "tst_wmirulesubmit.moc"
