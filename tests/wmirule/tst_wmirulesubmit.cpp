#include "control/qarvoctrl.h"
#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "dialogdriver.h"
#include "recordingservice.h"
#include "sheethelpers.h"
#include "wmirule/listviewer.h"
#include "wmirule/rulepages.h"
#include "wmirule/rulesheet.h"

#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTimer>
#include <QWizard>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

// What Finish and OK send to the data service, and where they stop when it fails.
class TestWmiRuleSubmit : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void finishSendsTheWholeRule_data();
    void finishSendsTheWholeRule();
    void finishStopsWhereTheServiceFails_data();
    void finishStopsWhereTheServiceFails();
    void takenNameKeepsTheWizardOpen();
    void takenIdsAreDrawnAgainWithTheWindowAlive();
    void cancelEndsAnEndlessIdSearch();
    void propertiesLoadTheStoredRule();
    void propertiesStoreAgainWithoutRename();
    void propertiesRenameIsCheckedCaseSensitively();
    void propertiesStopWhereTheServiceFails_data();
    void propertiesStopWhereTheServiceFails();
    void propertiesKeepTheLoadedNameAfterAFailure();
    void propertiesSurviveABrokenLoad();
    void controlMembersReturnTwoOrOne();

private:
    static QString idAt(qint64 seconds);
};

namespace {

const QStringList InfoColumns{"rule_name",      "rule_comment", "rule_wql",
                              "rule_op",        "rule_namespace", "rule_class",
                              "rule_field",     "rule_type",    "rule_condition",
                              "rule_value"};

ScriptedReply answer(int v)
{
    return ScriptedReply::answer(QVariant::fromValue(qint16(v)));
}

QString addArgs(const QString &id, const QString &name, const QString &comment, int kind, int index,
                int conj, const QString &cls, const QString &field, const QString &value,
                const QString &op, int opCode, const QString &ns, const QString &type, int typeCode)
{
    return QStringLiteral("AddWMIRule(text:%1, text:%2, text:%3, short:%4, short:%5, short:%6, "
                          "text:%7, text:%8, text:%9, text:%10, short:%11, text:%12, text:%13, "
                          "short:%14)")
        .arg(id, name, comment)
        .arg(kind)
        .arg(index)
        .arg(conj)
        .arg(cls, field, value, op)
        .arg(opCode)
        .arg(ns, type)
        .arg(typeCode);
}

// A wizard shown on its last page, with name, comment and the given conditions entered.
struct WizardOnPage3
{
    WizardOnPage3(ScriptedEditors &editors, const QList<WMICondition> &conditions,
                  const QString &name = QStringLiteral("Service running"))
        : sheet(nullptr, RuleKind::WMI, SheetMode::Wizard, "New WMIRule Wizard")
    {
        sheet.wizard()->show();
        sheet.page1()->nameEdit()->setText(name);
        sheet.page1()->commentEdit()->setText("Checked daily");
        sheet.wizard()->next();
        for (const WMICondition &c : conditions) {
            editors.wmiAnswers.append(c);
            sheet.page2()->addButton()->click();
        }
        sheet.wizard()->next();
    }
    void finish() { sheet.wizard()->button(QWizard::FinishButton)->click(); }
    bool closed() const { return !sheet.window()->isVisible(); }
    CWMIRuleSheet sheet;
};

} // namespace

QString TestWmiRuleSubmit::idAt(qint64 seconds)
{
    RuleIdGenerator gen([seconds] { return seconds; });
    return ruleIdText(gen.draw());
}

void TestWmiRuleSubmit::init()
{
    resetModalSafetyNet();
    ruleIdClock() = [] { return qint64(1763730000); };
}

void TestWmiRuleSubmit::cleanup()
{
    resetRuleIdClock();
    resetConditionEditors();
    useService(nullptr);
    QVERIFY(!modalSafetyNetFired());
}

void TestWmiRuleSubmit::finishSendsTheWholeRule_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("wmi") << 0;
    QTest::newRow("wql") << 1;
}

void TestWmiRuleSubmit::finishSendsTheWholeRule()
{
    QFETCH(int, kind);
    RecordingService s;
    s.script("CanUseID", answer(0));
    s.script("CanUseExRuleName", answer(0));
    useService(&s);
    ScriptedEditors editors;

    CWMIRuleSheet sheet(nullptr, RuleKind(kind), SheetMode::Wizard, "New WMIRule Wizard");
    QWizard *wizard = sheet.wizard();
    wizard->show();
    sheet.page1()->nameEdit()->setText("Rule A");
    sheet.page1()->commentEdit()->setText("A comment");
    wizard->next();
    if (kind) {
        editors.wqlAnswers = {wqlCount("*", "Win32_Process", "Name = 'x.exe'", ">=", "1"),
                              wqlValue("FreeSpace", "Win32_LogicalDisk", "", "FreeSpace", "real64",
                                       "<", "5"),
                              wqlValue("Name", "Win32_Service", "", "Started", "BOOLEAN", "=", "TRUE")};
    } else {
        editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                              wmiCondition("Win32_Bios", "Speed", "real32", "like", "1"),
                              wmiCondition("Win32_QuickFixEngineering", "HotFixID[]", "string",
                                           "not in", "KB1,KB2")};
    }
    for (int i = 0; i < 3; ++i)
        sheet.page2()->addButton()->click();
    sheet.page2()->list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
    wizard->next();
    s.clear();
    wizard->button(QWizard::FinishButton)->click();

    const QString id = idAt(1763730000);
    QCOMPARE(id.size(), 9);
    QVERIFY(id.toInt() <= 32767);
    const QString ns = QStringLiteral("root\\cimv2");
    QStringList expected{"CanUseID(text:" + id + ", short:6)",
                         "CanUseExRuleName(text:Rule A, short:6)"};
    if (kind) {
        expected << addArgs(id, "Rule A", "A comment", 1, 0, 0,
                            "SELECT * FROM Win32_Process WHERE Name = 'x.exe'", "#Count", "1",
                            ">=", 5, ns, "uint8", 3)
                 // real64 is not in the table: the type code of the row before goes along
                 << addArgs(id, "Rule A", "A comment", 1, 1, 2,
                            "SELECT FreeSpace FROM Win32_LogicalDisk", "FreeSpace", "5", "<", 4,
                            ns, "real64", 3)
                 << addArgs(id, "Rule A", "A comment", 1, 2, 1, "SELECT Name FROM Win32_Service",
                            "Started", "TRUE", "=", 1, ns, "BOOLEAN", 1);
    } else {
        expected << addArgs(id, "Rule A", "A comment", 0, 0, 0, "Win32_Service", "State",
                            "Running", "=", 1, ns, "string", 2)
                 // neither "like" nor real32 is in a table: both codes carry over
                 << addArgs(id, "Rule A", "A comment", 0, 1, 2, "Win32_Bios", "Speed", "1", "like",
                            1, ns, "real32", 2)
                 << addArgs(id, "Rule A", "A comment", 0, 2, 1, "Win32_QuickFixEngineering",
                            "HotFixID[]", "KB1,KB2", "not in", 8, ns, "string", 2);
    }
    QCOMPARE(s.signatures(), expected);
    QVERIFY(!wizard->isVisible());
    QCOMPARE(wizard->result(), int(QDialog::Accepted));
    QCOMPARE(sheet.record().ruleId, id);
}

void TestWmiRuleSubmit::finishStopsWhereTheServiceFails_data()
{
    QTest::addColumn<int>("failing");
    QTest::addColumn<bool>("unknownName");
    QTest::newRow("CanUseID fails") << 0 << false;
    QTest::newRow("CanUseExRuleName fails") << 1 << false;
    QTest::newRow("first AddWMIRule fails") << 2 << false;
    QTest::newRow("second AddWMIRule fails") << 3 << false;
    QTest::newRow("last AddWMIRule fails") << 4 << false;
    QTest::newRow("CanUseID unknown") << 0 << true;
    QTest::newRow("AddWMIRule unknown") << 2 << true;
}

void TestWmiRuleSubmit::finishStopsWhereTheServiceFails()
{
    QFETCH(int, failing);
    QFETCH(bool, unknownName);
    RecordingService s;
    useService(&s);
    ScriptedEditors editors;
    WizardOnPage3 w(editors, {wmiCondition("A", "F", "uint8", "=", "1"),
                              wmiCondition("B", "F", "uint16", "=", "2"),
                              wmiCondition("C", "F", "uint32", "=", "3")});
    MessageCatcher messages;
    s.clear();
    const QStringList order{"CanUseID", "CanUseExRuleName", "AddWMIRule", "AddWMIRule", "AddWMIRule"};
    if (unknownName)
        s.forgetMethod(order[failing]);
    else
        s.failCall(failing);
    w.finish();

    QVERIFY(!w.closed()); // the wizard stays on its last page, silently
    QCOMPARE(w.sheet.wizard()->currentId(), 2);
    QVERIFY(messages.messages.isEmpty());
    QCOMPARE(s.methods(), order.mid(0, unknownName ? failing : failing + 1));
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

void TestWmiRuleSubmit::takenNameKeepsTheWizardOpen()
{
    RecordingService s;
    s.scriptOnce("CanUseExRuleName", answer(-1));
    useService(&s);
    ScriptedEditors editors;
    WizardOnPage3 w(editors, {wmiCondition("A", "F", "uint8", "=", "1")}, "Taken");
    MessageCatcher messages;
    s.clear();
    w.finish();
    QVERIFY(!w.closed());
    QCOMPARE(s.methods(), QStringList({"CanUseID", "CanUseExRuleName"}));
    QCOMPARE(messages.messages.size(), 1);
    QCOMPARE(messages.messages[0].caption, QStringLiteral("INFO"));
    QCOMPARE(messages.messages[0].text,
             QStringLiteral("There is already a rule with the same name. Please enter a different name."));
    QCOMPARE(messages.messages[0].icon, ui::MessageIcon::Information);
    QCOMPARE(w.sheet.record().ruleId, idAt(1763730000)); // the drawn id stays in the record

    // A new name on page 1, then Finish again.
    w.sheet.wizard()->back();
    w.sheet.wizard()->back();
    w.sheet.page1()->nameEdit()->setText("Free");
    w.sheet.wizard()->next();
    w.sheet.wizard()->next();
    s.clear();
    w.finish();
    QVERIFY(w.closed());
    QCOMPARE(s.signatures().mid(0, 2),
             QStringList({"CanUseID(text:" + idAt(1763730000) + ", short:6)",
                          "CanUseExRuleName(text:Free, short:6)"}));
    QCOMPARE(s.calls().size(), 3);
}

void TestWmiRuleSubmit::takenIdsAreDrawnAgainWithTheWindowAlive()
{
    RecordingService s;
    for (int i = 0; i < 4; ++i)
        s.scriptOnce("CanUseID", answer(-1));
    s.script("CanUseID", answer(0));
    useService(&s);
    // The clock moves on after every second reading.
    int reads = 0;
    ruleIdClock() = [&reads] { return qint64(1763730000 + reads++ / 2); };
    ScriptedEditors editors;
    WizardOnPage3 w(editors, {wmiCondition("A", "F", "uint8", "=", "1")});
    s.clear();

    // Events keep being handled between tries: a timer of the page's own keeps ticking, and the
    // buttons that could start a second Finish are held while the search runs.
    int ticks = 0;
    bool finishHeld = true;
    QTimer ticker;
    ticker.setInterval(5);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        ++ticks;
        finishHeld = finishHeld && !w.sheet.wizard()->button(QWizard::FinishButton)->isEnabled()
                     && !w.sheet.wizard()->button(QWizard::BackButton)->isEnabled();
    });
    ticker.start();
    w.finish();
    ticker.stop();
    QVERIFY(ticks > 0);
    QVERIFY(finishHeld);
    QVERIFY(w.closed());

    QStringList candidates;
    for (const RecordedCall &c : s.calls())
        if (c.method == u"CanUseID")
            candidates << std::get<QString>(c.args[0]);
    QCOMPARE(candidates, QStringList({idAt(1763730000), idAt(1763730000), idAt(1763730001),
                                      idAt(1763730001), idAt(1763730002)}));
    QCOMPARE(w.sheet.record().ruleId, idAt(1763730002));
    QCOMPARE(std::get<QString>(s.calls().last().args[0]), idAt(1763730002));
}

void TestWmiRuleSubmit::cancelEndsAnEndlessIdSearch()
{
    RecordingService s;
    s.script("CanUseID", answer(-1)); // taken, forever
    useService(&s);
    ScriptedEditors editors;

    // Through the control, the way the host opens it: the wizard runs modally.
    CqarvoCtrl ctrl;
    int calls = 0;
    whenModalShown([&](QWidget *modal) {
        auto *wizard = qobject_cast<QWizard *>(modal);
        QVERIFY(wizard);
        auto *name = wizard->findChild<QLineEdit *>("nameEdit");
        name->setText("Endless");
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
    QVERIFY(!s.methods().contains("CanUseExRuleName"));
    QVERIFY(!s.methods().contains("AddWMIRule"));
    QVERIFY(!QApplication::activeModalWidget());
}

void TestWmiRuleSubmit::propertiesLoadTheStoredRule()
{
    RecordingService s;
    s.script("GetWMIRuleInfo",
             ScriptedReply::table(InfoColumns,
                                  {{"Disk space", "Enough free space", 0, 0, "root\\cimv2",
                                    "Win32_LogicalDisk", "FreeSpace", "uint64", ">", "1000"},
                                   {"Disk space", "Enough free space", 0, 2, "root\\cimv2",
                                    "Win32_LogicalDisk", "Size", "uint64", ">", "2000"},
                                   {"Disk space", "Enough free space", 0, 1, "root\\default",
                                    "Win32_Volume", "Label", "string", "!=", "X"},
                                   {"Disk space", "Enough free space", 0, 0, "root\\default",
                                    "Win32_Volume", "DriveType", "uint32", "=", "3"}}));
    useService(&s);
    CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 12);
    QCOMPARE(s.signatures(), QStringList({"GetWMIRuleInfo(text:000000012, slot)",
                                          "GetWMIRuleInfo(text:000000012, slot)"}));
    for (const auto &trace : s.rowSets())
        QVERIFY(trace->closed);
    QCOMPARE(sheet.record().ruleId, QStringLiteral("000000012"));
    QCOMPARE(sheet.loadedName(), QStringLiteral("Disk space"));
    QCOMPARE(sheet.page1()->nameEdit()->text(), QStringLiteral("Disk space"));
    QCOMPARE(sheet.page1()->commentEdit()->text(), QStringLiteral("Enough free space"));
    CWMIRuleListViewer *list = sheet.page2()->list();
    QCOMPARE(list->rowCount(), 4);
    QStringList ops;
    for (int r = 0; r < 4; ++r)
        ops << list->cellText(r, column::Op) + "/" + QString::number(list->rowImage(r));
    QCOMPARE(ops, QStringList({"EQ/11", "OR/12", "AND/13", "EQ/11"}));
    QCOMPARE(list->rowTexts(2), (ConditionTexts{"root\\default", "Win32_Volume", "Label", "string",
                                                "!=", "X"}));
    QVERIFY(sheet.okButton()->isEnabled());
}

void TestWmiRuleSubmit::propertiesStoreAgainWithoutRename()
{
    RecordingService s;
    s.script("GetWMIRuleInfo",
             ScriptedReply::table(InfoColumns,
                                  {{"Q", "c", 1, 0, "root\\cimv2", "SELECT * FROM Win32_Process",
                                    "#Count", "uint8", "<", "2"},
                                   {"Q", "c", 1, 0, "root\\cimv2", "SELECT * FROM Win32_Service",
                                    "#Count", "uint8", "=", "0"}}));
    useService(&s);
    CWMIRuleSheet sheet(nullptr, RuleKind::WQL, SheetMode::Properties, "WQLRule Properties", 305);
    sheet.window()->show();
    sheet.page1()->commentEdit()->setText("new comment");
    s.clear();
    sheet.okButton()->click();
    const QString ns = QStringLiteral("root\\cimv2");
    // A later row stored with 0 comes back as "EQ" and goes out with code 0 again.
    QCOMPARE(s.signatures(),
             QStringList({"DelWMIRule(text:000000305, short:2)",
                          addArgs("000000305", "Q", "new comment", 1, 0, 0,
                                  "SELECT * FROM Win32_Process", "#Count", "2", "<", 4, ns, "uint8", 3),
                          addArgs("000000305", "Q", "new comment", 1, 1, 0,
                                  "SELECT * FROM Win32_Service", "#Count", "0", "=", 1, ns, "uint8", 3)}));
    QVERIFY(!sheet.window()->isVisible());
    QCOMPARE(sheet.window()->result(), int(QDialog::Accepted));
}

void TestWmiRuleSubmit::propertiesRenameIsCheckedCaseSensitively()
{
    RecordingService s;
    s.script("GetWMIRuleInfo", ScriptedReply::table(InfoColumns, {{"Disk", "", 0, 0, "ns", "C", "F",
                                                                   "string", "=", "v"}}));
    useService(&s);
    MessageCatcher messages;
    {
        CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 9);
        sheet.window()->show();
        sheet.page1()->nameEdit()->setText("DISK");
        s.clear();
        sheet.okButton()->click();
        QCOMPARE(s.signatures().mid(0, 3),
                 QStringList({"CanUseExRuleName(text:DISK, short:6)",
                              "UpdateExRuleNameInRule(text:Disk, text:DISK, short:6)",
                              "DelWMIRule(text:000000009, short:2)"}));
        QCOMPARE(s.calls().size(), 4);
        QCOMPARE(std::get<QString>(s.calls()[3].args[1]), QStringLiteral("DISK"));
        QVERIFY(!sheet.window()->isVisible());
    }
    {
        s.script("CanUseExRuleName", answer(-1));
        CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 9);
        sheet.window()->show();
        sheet.page1()->nameEdit()->setText("Other");
        s.clear();
        sheet.okButton()->click();
        QCOMPARE(s.signatures(), QStringList({"CanUseExRuleName(text:Other, short:6)"}));
        QCOMPARE(messages.texts(),
                 QStringList({"There is already a rule with the same name. Please enter a different name."}));
        QCOMPARE(messages.messages[0].caption, QStringLiteral("INFO"));
        QVERIFY(sheet.window()->isVisible());
    }
}

void TestWmiRuleSubmit::propertiesStopWhereTheServiceFails_data()
{
    QTest::addColumn<int>("failing");
    QTest::addColumn<bool>("closes");
    QTest::newRow("CanUseExRuleName") << 0 << false;
    QTest::newRow("UpdateExRuleNameInRule") << 1 << false;
    QTest::newRow("DelWMIRule") << 2 << false;
    QTest::newRow("first AddWMIRule") << 3 << true;
    QTest::newRow("second AddWMIRule") << 4 << true;
    QTest::newRow("nothing") << 99 << true;
}

void TestWmiRuleSubmit::propertiesStopWhereTheServiceFails()
{
    QFETCH(int, failing);
    QFETCH(bool, closes);
    RecordingService s;
    s.script("GetWMIRuleInfo",
             ScriptedReply::table(InfoColumns, {{"Old", "", 0, 0, "ns", "C", "F", "string", "=", "v"},
                                                {"Old", "", 0, 1, "ns", "D", "G", "string", "=", "w"}}));
    useService(&s);
    MessageCatcher messages;
    CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 77);
    sheet.window()->show();
    sheet.page1()->nameEdit()->setText("New");
    s.clear();
    s.failCall(failing);
    sheet.okButton()->click();
    const QStringList order{"CanUseExRuleName", "UpdateExRuleNameInRule", "DelWMIRule",
                            "AddWMIRule", "AddWMIRule"};
    QCOMPARE(s.methods(), order.mid(0, std::min(failing + 1, int(order.size()))));
    QCOMPARE(sheet.window()->isVisible(), !closes);
    QVERIFY(messages.messages.isEmpty());
}

void TestWmiRuleSubmit::propertiesKeepTheLoadedNameAfterAFailure()
{
    RecordingService s;
    s.script("GetWMIRuleInfo",
             ScriptedReply::table(InfoColumns, {{"Old", "", 0, 0, "ns", "C", "F", "string", "=", "v"}}));
    useService(&s);
    CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 5);
    sheet.window()->show();
    sheet.page1()->nameEdit()->setText("New");
    s.clear();
    s.failCall(2); // the rename went through, the delete did not
    sheet.okButton()->click();
    QVERIFY(sheet.window()->isVisible());
    const qsizetype before = s.calls().size();
    sheet.okButton()->click();
    QCOMPARE(s.signatures().mid(before, 3),
             QStringList({"CanUseExRuleName(text:New, short:6)",
                          "UpdateExRuleNameInRule(text:Old, text:New, short:6)",
                          "DelWMIRule(text:000000005, short:2)"}));
    QVERIFY(!sheet.window()->isVisible());
}

void TestWmiRuleSubmit::propertiesSurviveABrokenLoad()
{
    {
        // No rule behind the id: empty name and comment, no rows, and OK stays off.
        RecordingService s;
        useService(&s);
        CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 5);
        QVERIFY(sheet.page1()->nameEdit()->text().isEmpty());
        QCOMPARE(sheet.page2()->list()->rowCount(), 0);
        QVERIFY(!sheet.okButton()->isEnabled());
    }
    {
        RecordingService s;
        s.script("GetWMIRuleInfo", ScriptedReply::failure());
        useService(&s);
        CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 5);
        QCOMPARE(s.calls().size(), 2);
        QVERIFY(!sheet.okButton()->isEnabled());
    }
    {
        // A row-set fault while reading the second condition ends the load there.
        RecordingService s;
        ScriptedReply names = ScriptedReply::table(
            InfoColumns, {{"Long", QString(80, u'c'), 0, 0, "ns", "C", "F", "string", "=", "v"},
                          {"Long", "", 0, 1, "ns", "D", "G", "string", "=", "w"}});
        s.scriptOnce("GetWMIRuleInfo", names);
        ScriptedReply rows = names;
        rows.faultAtFieldRead = 9;
        s.scriptOnce("GetWMIRuleInfo", rows);
        useService(&s);
        CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 5);
        QCOMPARE(sheet.page2()->list()->rowCount(), 1);
        QCOMPARE(s.rowSets().size(), 2);
        QCOMPARE(s.rowSets()[1]->destroyed, 1);
        // A stored comment longer than page 1 hands on arrives cut to 49 characters.
        QCOMPARE(sheet.record().comment.size(), 80);
        QCOMPARE(sheet.page1()->commentEdit()->text(), QString(49, u'c'));
        sheet.window()->show();
        s.clear();
        sheet.okButton()->click();
        QCOMPARE(s.methods(), QStringList({"DelWMIRule", "AddWMIRule"}));
        QCOMPARE(std::get<QString>(s.calls()[1].args[2]), QString(49, u'c'));
    }
}

void TestWmiRuleSubmit::controlMembersReturnTwoOrOne()
{
    RecordingService s;
    s.script("GetWMIRuleInfo",
             ScriptedReply::table(InfoColumns, {{"R", "", 1, 0, "ns", "SELECT * FROM A", "#Count",
                                                 "uint8", "=", "0"}}));
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
    // The properties of a WQL rule work with the service the control already has.
    RecordingService other;
    s.clear();
    QCOMPARE(ctrl.ShowWQLProperties(&other, 44), short(1));
    QVERIFY(other.calls().isEmpty());
    QCOMPARE(s.methods(),
             QStringList({"GetWMIRuleInfo", "GetWMIRuleInfo", "DelWMIRule", "AddWMIRule"}));
    QCOMPARE(s.signatures()[0], QStringLiteral("GetWMIRuleInfo(text:000000044, slot)"));

    whenModalShown([](QWidget *modal) {
        QCOMPARE(modal->findChild<QTabWidget *>("sheetTabs")->tabText(1), QStringLiteral("WMI"));
        modal->findChild<QPushButton *>("cancelButton")->click();
    });
    QCOMPARE(ctrl.ShowWMIProperties(&s, 44), short(2));
}

QTEST_MAIN(TestWmiRuleSubmit)
#include "tst_wmirulesubmit.moc"
