#include "browserfixture.h"

#include "control/modulestate.h"
#include "dataservice/calls.h"
#include "dialogdriver.h"
#include "resources/groupbox.h"
#include "resources/images.h"

#include <QLabel>

using namespace qarvo;
using namespace qarvo::test;

namespace {

const QStringList WmiTitles = {"", "OP", "NameSpace", "WMI Class", "Field", "Type", "Eq", "Value"};
const QList<int> WmiWidths = {20, 50, 100, 100, 100, 70, 50, 180};
const QStringList WqlTitles = {"", "OP", "NameSpace", "WQL", "Field", "Type", "Eq", "Value"};
const QList<int> WqlWidths = {20, 50, 70, 220, 100, 50, 50, 100};
const QStringList NaqcTitles = {"Script File", "Action Type", "Comment"};
const QList<int> NaqcWidths = {150, 100, 300};

QStringList titlesOf(QTreeWidget *list)
{
    QStringList out;
    for (int i = 0; i < list->columnCount(); ++i)
        out << list->headerItem()->text(i);
    return out;
}

QStringList rowTexts(QTreeWidget *list, int row)
{
    QStringList out;
    for (int i = 0; i < list->columnCount(); ++i)
        out << list->topLevelItem(row)->text(i);
    return out;
}

ScriptedReply wmiRuleWithFourConditions()
{
    return conditions({
        {"Patch level", "", 0, 0, "root\\cimv2", "Win32_OperatingSystem", "Version", "string", ">=", "6.1"},
        {"Patch level", "", 0, 1, "root\\cimv2", "Win32_Service", "State", "string", "=", "Running"},
        {"Patch level", "", 0, 2, "root\\SecurityCenter", "AntiVirusProduct", "onAccessScanningEnabled",
         "boolean", "=", "TRUE"},
        {"Patch level", "", 0, 3, "root\\cimv2", "Win32_QuickFixEngineering", "HotFixID[]", "string",
         "in", QString::fromUtf8("KB1,KB2,Größe")},
    });
}

} // namespace

class TestPaneDown : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup();
    void categoryPreparesColumnsAndCaption_data();
    void categoryPreparesColumnsAndCaption();
    void naqcRowsOnlySelectedNewestOnTop();
    void naqcNothingSelectedKeepsHeaders();
    void wmiConditionsWithConjunctions();
    void wqlLayoutThenWmiRestores();
    void emptyRuleShowsWmiLayout();
    void failedCallLeavesListEmpty_data();
    void failedCallLeavesListEmpty();
    void faultKeepsRowsAlreadyAdded();
    void clearKeepsColumns();
    void headingCarriesTheRuleName();
    void layoutOnEveryResize();
};

void TestPaneDown::cleanup()
{
    setEditionCheck({});
}

void TestPaneDown::categoryPreparesColumnsAndCaption_data()
{
    QTest::addColumn<short>("category");
    QTest::addColumn<QStringList>("titles");
    QTest::addColumn<QList<int>>("widths");
    QTest::addColumn<QString>("caption");
    QTest::newRow("NAQC") << short(5) << NaqcTitles << NaqcWidths << "CM Profile";
    QTest::newRow("WMI") << short(6) << WmiTitles << WmiWidths
                         << "Conditions - Check that following condition is meet";
}

void TestPaneDown::categoryPreparesColumnsAndCaption()
{
    QFETCH(short, category);
    QFETCH(QStringList, titles);
    QFETCH(QList<int>, widths);
    QFETCH(QString, caption);

    RecordingService s;
    Browser b;
    b.show(category, &s);
    QCOMPARE(titlesOf(b.details()), titles);
    QCOMPARE(headerWidths(b.details()), widths);
    QStringList shown;
    for (QLabel *label : b.down()->findChildren<QLabel *>())
        if (label->isVisible())
            shown << label->text();
    QCOMPARE(shown, QStringList({caption}));
    // The statics that never show are there all the same.
    QCOMPARE(b.down()->findChild<QLabel *>("serviceNameLabel")->text(), QStringLiteral("- Service Name :"));
    QCOMPARE(b.down()->findChild<QLabel *>("naqcLabel")->text(), QStringLiteral("- NAQC  :"));
    QCOMPARE(b.down()->findChild<QLabel *>("policyOptionLabel")->text(), QStringLiteral("- Policy Option :"));

    // Set again by the next ShowPane: still the one set of columns.
    b.show(category, &s);
    QCOMPARE(titlesOf(b.details()), titles);
}

void TestPaneDown::naqcRowsOnlySelectedNewestOnTop()
{
    RecordingService s;
    s.script("GetRQCRule", naqcRules({{"Dial-in", "", "000000042"}}));
    s.script("GetRQCRuleScriptInfo",
             scriptActions({{1, "first.cmd", "Pre-Connect Actions", "runs first"},
                            {0, "skipped.cmd", "Connect Actions", "not chosen"},
                            {1, QString::fromUtf8("zweite Prüfung.cmd"), "Post-Connect Actions", ""},
                            {2, "also skipped.cmd", "Connect Actions", ""}}));
    Browser b;
    b.show(5, &s);
    s.clear();
    b.clickRow(0);
    QCOMPARE(s.signatures(), QStringList({"GetRQCRuleScriptInfo(text:000000042, slot)"}));
    QCOMPARE(b.details()->topLevelItemCount(), 2);
    QCOMPARE(rowTexts(b.details(), 0),
             QStringList({QString::fromUtf8("zweite Prüfung.cmd"), "Post-Connect Actions", ""}));
    QCOMPARE(rowTexts(b.details(), 1), QStringList({"first.cmd", "Pre-Connect Actions", "runs first"}));
    QCOMPARE(titlesOf(b.details()), NaqcTitles);
    QVERIFY(s.rowSets().last()->closed);
    keepScreenshot(b.host.get(), QStringLiteral("naqc-details"));
}

void TestPaneDown::naqcNothingSelectedKeepsHeaders()
{
    RecordingService s;
    s.script("GetRQCRule", naqcRules({{"Dial-in", "", "1"}}));
    s.script("GetRQCRuleScriptInfo", scriptActions({{0, "a", "b", "c"}, {-1, "d", "e", "f"}}));
    Browser b;
    b.show(5, &s);
    b.clickRow(0);
    QCOMPARE(b.details()->topLevelItemCount(), 0);
    QCOMPARE(titlesOf(b.details()), NaqcTitles);
    QCOMPARE(headerWidths(b.details()), NaqcWidths);
}

void TestPaneDown::wmiConditionsWithConjunctions()
{
    RecordingService s;
    s.script("GetWMIRules", wmiRules({{0, "Patch level", "", "000000012"}}));
    s.script("GetWMIRuleInfo", wmiRuleWithFourConditions());
    Browser b;
    b.show(6, &s);
    s.clear();
    b.clickRow(0);
    QCOMPARE(s.signatures(), QStringList({"GetWMIRuleInfo(text:000000012, slot)"}));
    QCOMPARE(titlesOf(b.details()), WmiTitles);
    QCOMPARE(headerWidths(b.details()), WmiWidths);
    QCOMPARE(b.details()->topLevelItemCount(), 4);
    const QStringList words = {"EQ", "AND", "OR", "EQ"};
    const QList<int> icons = {11, 13, 12, 11};
    for (int r = 0; r < 4; ++r) {
        QTreeWidgetItem *item = b.details()->topLevelItem(r);
        QCOMPARE(item->text(0), QString());
        QCOMPARE(item->text(1), words[r]);
        QCOMPARE(item->data(0, images::ImageIndexRole).toInt(), icons[r]);
        QVERIFY(!item->icon(0).isNull());
    }
    QCOMPARE(rowTexts(b.details(), 1).mid(2),
             QStringList({"root\\cimv2", "Win32_Service", "State", "string", "=", "Running"}));
    QCOMPARE(rowTexts(b.details(), 3).mid(2),
             QStringList({"root\\cimv2", "Win32_QuickFixEngineering", "HotFixID[]", "string", "in",
                          QString::fromUtf8("KB1,KB2,Größe")}));
    keepScreenshot(b.host.get(), QStringLiteral("wmi-details"));
}

void TestPaneDown::wqlLayoutThenWmiRestores()
{
    RecordingService s;
    s.script("GetWMIRules", wmiRules({{1, "Process count", "", "5"}, {0, "Patch level", "", "6"}}));
    s.scriptOnce("GetWMIRuleInfo",
                 conditions({{"Process count", "", 1, 0, "root\\cimv2",
                              "SELECT * FROM Win32_Process WHERE Name='svchost.exe'", "#Count",
                              "uint32", ">", "2"}}));
    s.scriptOnce("GetWMIRuleInfo", wmiRuleWithFourConditions());
    Browser b;
    b.show(6, &s);
    b.clickRow(0);
    QCOMPARE(titlesOf(b.details()), WqlTitles);
    QCOMPARE(headerWidths(b.details()), WqlWidths);
    QCOMPARE(rowTexts(b.details(), 0),
             QStringList({"", "EQ", "root\\cimv2", "SELECT * FROM Win32_Process WHERE Name='svchost.exe'",
                          "#Count", "uint32", ">", "2"}));
    keepScreenshot(b.host.get(), QStringLiteral("wql-details"));

    b.clickRow(1);
    QCOMPARE(titlesOf(b.details()), WmiTitles);
    QCOMPARE(headerWidths(b.details()), WmiWidths);
    QCOMPARE(b.details()->topLevelItemCount(), 4);
}

void TestPaneDown::emptyRuleShowsWmiLayout()
{
    RecordingService s;
    s.script("GetWMIRules", wmiRules({{1, "Empty", "", "5"}}));
    s.script("GetWMIRuleInfo", conditions({}));
    Browser b;
    b.show(6, &s);
    b.clickRow(0);
    QCOMPARE(titlesOf(b.details()), WmiTitles);
    QCOMPARE(b.details()->topLevelItemCount(), 0);
    QVERIFY(s.rowSets().last()->closed);
}

void TestPaneDown::failedCallLeavesListEmpty_data()
{
    QTest::addColumn<short>("category");
    QTest::addColumn<int>("columns");
    // The WMI layout is rebuilt from the answer, so a failed call leaves no columns either.
    QTest::newRow("NAQC") << short(5) << 3;
    QTest::newRow("WMI") << short(6) << 0;
}

void TestPaneDown::failedCallLeavesListEmpty()
{
    QFETCH(short, category);
    QFETCH(int, columns);

    RecordingService s;
    s.script("GetWMIRules", wmiRules({{0, "A", "", "1"}, {0, "B", "", "2"}}));
    s.script("GetRQCRule", naqcRules({{"A", "", "1"}, {"B", "", "2"}}));
    s.script("GetWMIRuleInfo", wmiRuleWithFourConditions());
    s.script("GetRQCRuleScriptInfo", scriptActions({{1, "a", "b", "c"}}));
    MessageCatcher messages;
    Browser b;
    b.show(category, &s);
    b.clickRow(0);
    QCOMPARE(b.details()->topLevelItemCount(), category == 5 ? 1 : 4);

    s.scriptOnce(category == 5 ? "GetRQCRuleScriptInfo" : "GetWMIRuleInfo", ScriptedReply::failure());
    b.clickRow(1);
    QCOMPARE(b.down()->heading(), QStringLiteral("B"));
    QCOMPARE(b.details()->topLevelItemCount(), 0);
    QCOMPARE(b.details()->columnCount(), columns);
    QVERIFY(messages.messages.isEmpty());

    // The next rule shows normally again.
    b.clickRow(0);
    QCOMPARE(b.details()->topLevelItemCount(), category == 5 ? 1 : 4);

    // A refusing edition check shows nothing and asks the service nothing.
    setEditionCheck([](qint16, EditionAction, QWidget *) { return false; });
    s.clear();
    b.clickRow(1);
    QVERIFY(s.calls().isEmpty());
}

void TestPaneDown::faultKeepsRowsAlreadyAdded()
{
    RecordingService s;
    s.script("GetWMIRules", wmiRules({{0, "Patch level", "", "12"}}));
    ScriptedReply reply = wmiRuleWithFourConditions();
    // rule_wql, then seven fields per row: the fault hits the third row's namespace.
    reply.faultAtFieldRead = 1 + 7 * 2 + 1;
    s.script("GetWMIRuleInfo", reply);
    setFaultReporter([](const DataServiceError &) {});
    Browser b;
    b.show(6, &s);
    b.clickRow(0);
    setFaultReporter({});
    QCOMPARE(b.details()->topLevelItemCount(), 3);
    QCOMPARE(rowTexts(b.details(), 1).mid(1, 3), QStringList({"AND", "root\\cimv2", "Win32_Service"}));
    QCOMPARE(rowTexts(b.details(), 2).mid(1, 2), QStringList({"OR", ""}));

    RecordingService n;
    n.script("GetRQCRule", naqcRules({{"Dial-in", "", "1"}}));
    ScriptedReply actions = scriptActions({{1, "a.cmd", "Pre", "x"}, {1, "b.cmd", "Post", "y"}});
    actions.faultAtFieldRead = 6; // the second record's action type
    n.script("GetRQCRuleScriptInfo", actions);
    setFaultReporter([](const DataServiceError &) {});
    b.show(5, &n);
    b.clickRow(0);
    setFaultReporter({});
    QCOMPARE(b.details()->topLevelItemCount(), 2);
    QCOMPARE(rowTexts(b.details(), 0), QStringList({"b.cmd", "", ""}));
    QCOMPARE(rowTexts(b.details(), 1), QStringList({"a.cmd", "Pre", "x"}));
}

void TestPaneDown::clearKeepsColumns()
{
    RecordingService s;
    s.script("GetRQCRule", naqcRules({{"Dial-in", "", "1"}}));
    s.script("GetRQCRuleScriptInfo", scriptActions({{1, "a.cmd", "Pre", "x"}}));
    Browser b;
    b.show(5, &s);
    b.clickRow(0);
    QCOMPARE(b.details()->topLevelItemCount(), 1);
    b.down()->clear();
    QCOMPARE(b.down()->heading(), QString());
    QCOMPARE(b.details()->topLevelItemCount(), 0);
    QCOMPARE(titlesOf(b.details()), NaqcTitles);
}

void TestPaneDown::headingCarriesTheRuleName()
{
    RecordingService s;
    const QString longName(49, QChar(u'W'));
    s.script("GetWMIRules", wmiRules({{0, longName, "", "1"}, {0, QString::fromUtf8("Größe & Co"), "", "2"}}));
    Browser b;
    b.show(6, &s);
    CGroupBox *heading = b.down()->headingFrame();
    QCOMPARE(heading->font().family(), QStringLiteral("Tohoma"));
    QVERIFY(!heading->isEnabled());
    QVERIFY(heading->isVisible());
    b.clickRow(0);
    QCOMPARE(heading->title(), longName);
    b.clickRow(1);
    QCOMPARE(heading->title(), QString::fromUtf8("Größe & Co"));
    // The rule list and the details lie above the frame.
    QVERIFY(b.down()->childAt(b.details()->geometry().center()) != heading);
}

void TestPaneDown::layoutOnEveryResize()
{
    RecordingService s;
    Browser b;
    b.show(6, &s);
    CPaneDown *down = b.down();
    for (const QSize size : {QSize(500, 300), QSize(800, 120), QSize(20, 20)}) {
        down->layoutControls(size.width(), size.height());
        const int w = size.width(), h = size.height();
        QCOMPARE(down->headingFrame()->geometry(), QRect(0, 0, w, h));
        QCOMPARE(down->findChild<QLabel *>("conditionsLabel")->geometry(), QRect(15, 35, qMax(0, w - 30), 15));
        QCOMPARE(down->findChild<QLabel *>("profileLabel")->geometry(), QRect(15, 35, qMax(0, w - 30), 15));
        QCOMPARE(down->findChild<QFrame *>("separator")->geometry(), QRect(15, 50, qMax(0, w - 30), 2));
        QCOMPARE(b.details()->geometry(), QRect(15, 60, qMax(0, w - 30), qMax(0, h - 70)));
    }
    // And the pane does it by itself whenever the split view resizes it.
    b.ctrl->resize(640, 700);
    QTRY_COMPARE(b.details()->geometry(), QRect(15, 60, down->width() - 30, down->height() - 70));
}

QTEST_MAIN(TestPaneDown)
#include "tst_panedown.moc"
