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
const QString Kb = QString::fromUtf8("KB1,KB2,Größe");

ScriptedReply wmiRuleWithFourConditions()
{
    const QString ns = QStringLiteral("root\\cimv2");
    return conditions({{"Patch level", "", 0, 0, ns, "Win32_OperatingSystem", "Version", "string", ">=", "6.1"},
                       {"Patch level", "", 0, 1, ns, "Win32_Service", "State", "string", "=", "Running"},
                       {"Patch level", "", 0, 2, "root\\SecurityCenter", "AntiVirusProduct",
                        "onAccessScanningEnabled", "boolean", "=", "TRUE"},
                       {"Patch level", "", 0, 3, ns, "Win32_QuickFixEngineering", "HotFixID[]", "string", "in", Kb}});
}

// A service with rules "A" and "B" in both categories.
struct TwoRules : RecordingService
{
    TwoRules()
    {
        script("GetWMIRules", wmiRules({{0, "A", "", "1"}, {0, "B", "", "2"}}));
        script("GetRQCRule", naqcRules({{"A", "", "1"}, {"B", "", "2"}}));
        script("GetWMIRuleInfo", wmiRuleWithFourConditions());
        script("GetRQCRuleScriptInfo", scriptActions({{1, "a.cmd", "Pre", "x"}}));
    }
};

} // namespace

class TestPaneDown : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup() { setEditionCheck({}); }

    void categoryPreparesColumnsAndCaption_data()
    {
        QTest::addColumn<short>("category");
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<QList<int>>("widths");
        QTest::addColumn<QString>("caption");
        QTest::newRow("NAQC") << short(5) << NaqcTitles << NaqcWidths << "CM Profile";
        QTest::newRow("WMI") << short(6) << WmiTitles << WmiWidths
                             << "Conditions - Check that following condition is meet";
    }

    void categoryPreparesColumnsAndCaption()
    {
        QFETCH(short, category);
        QFETCH(QStringList, titles);
        RecordingService s;
        Browser b(category, &s);
        QCOMPARE(headerTitles(b.details()), titles);
        QTEST(headerWidths(b.details()), "widths");
        QStringList shown;
        for (QLabel *label : b.down()->findChildren<QLabel *>())
            if (label->isVisible())
                shown << label->text();
        QFETCH(QString, caption);
        QCOMPARE(shown, QStringList({caption}));

        // Set again by the next ShowPane: still the one set of columns.
        b.show(category, &s);
        QCOMPARE(headerTitles(b.details()), titles);
    }

    void wmiLayoutFollowsTheFirstCondition()
    {
        RecordingService s;
        s.script("GetWMIRules", wmiRules({{1, "Process count", "", "5"}, {0, "Patch level", "", "000000012"},
                                          {1, "Empty", "", "7"}}));
        const QString query = QStringLiteral("SELECT * FROM Win32_Process WHERE Name='svchost.exe'");
        s.scriptOnce("GetWMIRuleInfo",
                     conditions({{"Process count", "", 1, 0, "root\\cimv2", query, "#Count", "uint32", ">", "2"}}));
        s.scriptOnce("GetWMIRuleInfo", wmiRuleWithFourConditions());
        s.scriptOnce("GetWMIRuleInfo", conditions({}));
        Browser b(6, &s);
        b.clickRow(0);
        QCOMPARE(headerTitles(b.details()), WqlTitles);
        QCOMPARE(headerWidths(b.details()), WqlWidths);
        QCOMPARE(rowTexts(b.details(), 0), QStringList({"", "EQ", "root\\cimv2", query, "#Count", "uint32", ">", "2"}));
        keepScreenshot(b.host.get(), QStringLiteral("wql-details"));

        // Rebuilt on every show: back to the WMI layout, conditions in order with their conjunctions.
        s.clear();
        b.clickRow(1);
        QCOMPARE(s.signatures(), QStringList({"GetWMIRuleInfo(text:000000012, slot)"}));
        QCOMPARE(headerTitles(b.details()), WmiTitles);
        QCOMPARE(headerWidths(b.details()), WmiWidths);
        QStringList words;
        for (int r = 0; r < b.details()->topLevelItemCount(); ++r) {
            QTreeWidgetItem *item = b.details()->topLevelItem(r);
            QVERIFY(item->text(0).isEmpty() && !item->icon(0).isNull());
            words << item->text(1) + ' ' + item->data(0, images::ImageIndexRole).toString();
        }
        QCOMPARE(words, QStringList({"EQ 11", "AND 13", "OR 12", "EQ 11"}));
        // The strip's last picture is there; past it there is none.
        QVERIFY(!images::icon(images::StripCount - 1).isNull() && images::icon(images::StripCount).isNull());
        QCOMPARE(rowTexts(b.details(), 3).mid(2),
                 QStringList({"root\\cimv2", "Win32_QuickFixEngineering", "HotFixID[]", "string", "in", Kb}));
        keepScreenshot(b.host.get(), QStringLiteral("wmi-details"));

        // A rule without conditions shows the WMI layout, whatever its kind.
        b.clickRow(2);
        QCOMPARE(headerTitles(b.details()), WmiTitles);
        QCOMPARE(b.details()->topLevelItemCount(), 0);
        QVERIFY(s.rowSets().last()->closed);
    }

    void naqcRowsOnlySelectedNewestOnTop()
    {
        RecordingService s;
        s.script("GetRQCRule", naqcRules({{"Dial-in", "", "000000042"}, {"Empty", "", "43"}}));
        s.script("GetRQCRuleScriptInfo",
                 scriptActions({{1, "first.cmd", "Pre-Connect Actions", "runs first"},
                                {0, "skipped.cmd", "Connect Actions", "not chosen"},
                                {1, QString::fromUtf8("zweite Prüfung.cmd"), "Post-Connect Actions", ""},
                                {2, "also skipped.cmd", "Connect Actions", ""}}));
        s.scriptOnce("GetRQCRuleScriptInfo", scriptActions({{0, "a", "b", "c"}, {-1, "d", "e", "f"}}));
        Browser b(5, &s);
        // Nothing selected in the rule: no rows, the headers stay.
        b.clickRow(1);
        QCOMPARE(b.details()->topLevelItemCount(), 0);
        QCOMPARE(headerWidths(b.details()), NaqcWidths);

        s.clear();
        b.clickRow(0);
        QCOMPARE(s.signatures(), QStringList({"GetRQCRuleScriptInfo(text:000000042, slot)"}));
        QCOMPARE(rowTexts(b.details(), 0),
                 QStringList({QString::fromUtf8("zweite Prüfung.cmd"), "Post-Connect Actions", ""}));
        QCOMPARE(rowTexts(b.details(), 1), QStringList({"first.cmd", "Pre-Connect Actions", "runs first"}));
        QCOMPARE(b.details()->topLevelItemCount(), 2);
        QVERIFY(s.rowSets().last()->closed);
        keepScreenshot(b.host.get(), QStringLiteral("naqc-details"));

        // Clearing keeps the columns.
        b.down()->clear();
        QCOMPARE(b.down()->heading(), QString());
        QCOMPARE(b.details()->topLevelItemCount(), 0);
        QCOMPARE(headerTitles(b.details()), NaqcTitles);
    }

    void failedCallLeavesListEmpty_data()
    {
        QTest::addColumn<short>("category");
        QTest::addColumn<int>("columns");
        QTest::addColumn<int>("rows");
        // The WMI layout is rebuilt from the answer, so a failed call leaves no columns either.
        QTest::newRow("NAQC") << short(5) << 3 << 1;
        QTest::newRow("WMI") << short(6) << 0 << 4;
    }

    void failedCallLeavesListEmpty()
    {
        QFETCH(short, category);
        QFETCH(int, rows);
        TwoRules s;
        MessageCatcher messages;
        Browser b(category, &s);
        s.scriptOnce(category == 5 ? "GetRQCRuleScriptInfo" : "GetWMIRuleInfo", ScriptedReply::failure());
        b.clickRow(1);
        QCOMPARE(b.down()->heading(), QStringLiteral("B"));
        QCOMPARE(b.details()->topLevelItemCount(), 0);
        QTEST(b.details()->columnCount(), "columns");
        QVERIFY(messages.messages.isEmpty());

        // The next rule shows normally again.
        b.clickRow(0);
        QCOMPARE(b.details()->topLevelItemCount(), rows);

        // A refusing edition check shows nothing and asks the service nothing.
        setEditionCheck([](qint16, EditionAction, QWidget *) { return false; });
        s.clear();
        b.clickRow(1);
        QVERIFY(s.calls().isEmpty());
    }

    void faultKeepsRowsAlreadyAdded()
    {
        TwoRules s;
        ScriptedReply reply = wmiRuleWithFourConditions();
        reply.faultAtFieldRead = 1 + 7 * 2 + 1; // rule_wql, then seven fields a row: the third row's namespace
        s.script("GetWMIRuleInfo", reply);
        ScriptedReply actions = scriptActions({{1, "a.cmd", "Pre", "x"}, {1, "b.cmd", "Post", "y"}});
        actions.faultAtFieldRead = 6; // the second record's action type
        s.script("GetRQCRuleScriptInfo", actions);
        setFaultReporter([](const DataServiceError &) {});
        Browser b(6, &s);
        b.clickRow(0);
        QCOMPARE(b.details()->topLevelItemCount(), 3);
        QCOMPARE(rowTexts(b.details(), 1).mid(1, 3), QStringList({"AND", "root\\cimv2", "Win32_Service"}));
        QCOMPARE(rowTexts(b.details(), 2).mid(1, 2), QStringList({"OR", ""}));

        b.show(5, &s);
        b.clickRow(0);
        setFaultReporter({});
        QCOMPARE(b.details()->topLevelItemCount(), 2);
        QCOMPARE(rowTexts(b.details(), 0), QStringList({"b.cmd", "", ""}));
        QCOMPARE(rowTexts(b.details(), 1), QStringList({"a.cmd", "Pre", "x"}));
    }

    void headingCarriesTheRuleName()
    {
        RecordingService s;
        const QString longName(49, u'W');
        s.script("GetWMIRules", wmiRules({{0, longName, "", "1"}, {0, QString::fromUtf8("Größe & Co"), "", "2"}}));
        Browser b(6, &s);
        CGroupBox *heading = b.down()->headingFrame();
        QCOMPARE(heading->font().family(), QStringLiteral("Tohoma"));
        QVERIFY(!heading->isEnabled());
        QVERIFY(heading->isVisible());
        b.clickRow(0);
        QCOMPARE(heading->title(), longName);
        b.clickRow(1);
        QCOMPARE(heading->title(), QString::fromUtf8("Größe & Co"));
        // The details lie above the frame.
        QVERIFY(b.down()->childAt(b.details()->geometry().center()) != heading);
    }

    void layoutOnEveryResize()
    {
        RecordingService s;
        Browser b(6, &s);
        CPaneDown *down = b.down();
        for (const QSize size : {QSize(500, 300), QSize(800, 120), QSize(20, 20)}) {
            down->layoutControls(size.width(), size.height());
            const int w = qMax(0, size.width() - 30);
            QCOMPARE(down->headingFrame()->geometry(), QRect(QPoint(0, 0), size));
            QCOMPARE(down->findChild<QLabel *>("conditionsLabel")->geometry(), QRect(15, 35, w, 15));
            QCOMPARE(down->findChild<QLabel *>("profileLabel")->geometry(), QRect(15, 35, w, 15));
            QCOMPARE(down->findChild<QFrame *>("separator")->geometry(), QRect(15, 50, w, 2));
            QCOMPARE(b.details()->geometry(), QRect(15, 60, w, qMax(0, size.height() - 70)));
        }
        // And the pane does it by itself whenever the split view resizes it.
        b.ctrl->resize(640, 700);
        QTRY_COMPARE(b.details()->geometry(), QRect(15, 60, down->width() - 30, down->height() - 70));
    }
};

QTEST_MAIN(TestPaneDown)
#include "tst_panedown.moc"
