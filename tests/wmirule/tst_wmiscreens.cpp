#include "dataservice/calls.h"
#include "recordingservice.h"
#include "sheethelpers.h"
#include "wmirule/listviewer.h"
#include "wmirule/rulepages.h"
#include "wmirule/rulesheet.h"

#include <QDir>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QWizard>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

// Renders every page of the sheet in both modes and both kinds. The pictures go to
// QARVO_SCREENSHOT_DIR when it is set, so that they can be looked at; the checks make sure each
// page really renders with content.
class TestWmiScreens : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void everyPageRenders_data();
    void everyPageRenders();

private:
    void save(const QPixmap &pixmap, const QString &name, QSize atLeast = QSize(300, 200));
};

void TestWmiScreens::init()
{
    resetConditionEditors();
}

void TestWmiScreens::cleanup()
{
    resetConditionEditors();
    useService(nullptr);
}

void TestWmiScreens::save(const QPixmap &pixmap, const QString &name, QSize atLeast)
{
    QVERIFY(!pixmap.isNull());
    QVERIFY(pixmap.width() >= atLeast.width() && pixmap.height() >= atLeast.height());
    const QString dir = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
    if (!dir.isEmpty())
        QVERIFY(pixmap.save(QDir(dir).filePath(name + QStringLiteral(".png"))));
}

void TestWmiScreens::everyPageRenders_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("wmi") << int(RuleKind::WMI);
    QTest::newRow("wql") << int(RuleKind::WQL);
}

void TestWmiScreens::everyPageRenders()
{
    QFETCH(int, kind);
    const bool wql = kind == int(RuleKind::WQL);
    const QString prefix = wql ? QStringLiteral("wql") : QStringLiteral("wmi");

    RecordingService s;
    useService(&s);
    ScriptedEditors editors;
    if (wql) {
        editors.wqlAnswers = {wqlCount("*", "Win32_Process", "  Name = 'notepad.exe'", "<", "1"),
                              wqlValue("FreeSpace", "Win32_LogicalDisk", "DeviceID = 'C:'",
                                       "FreeSpace", "uint64", ">", "1073741824")};
    } else {
        editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                              wmiCondition("Win32_OperatingSystem", "ServicePackMajorVersion",
                                           "uint16", ">=", "2"),
                              wmiCondition("Win32_QuickFixEngineering", "HotFixID[]", "string",
                                           "in", "KB958644,KB958687")};
    }

    {
        CWMIRuleSheet sheet(nullptr, RuleKind(kind), SheetMode::Wizard,
                            wql ? "New WQLRule Wizard" : "New WMIRule Wizard");
        QWizard *wizard = sheet.wizard();
        wizard->show();
        QVERIFY(QTest::qWaitForWindowExposed(wizard));
        save(wizard->grab(), prefix + "-wizard-1-empty");
        sheet.page1()->nameEdit()->setText(wql ? "Notepad is not running" : "Service running");
        sheet.page1()->commentEdit()->setText("Checked at every connection");
        save(wizard->grab(), prefix + "-wizard-1");
        wizard->next();
        save(wizard->grab(), prefix + "-wizard-2-empty");
        const int answers = int(wql ? editors.wqlAnswers.size() : editors.wmiAnswers.size());
        for (int i = 0; i < answers; ++i)
            sheet.page2()->addButton()->click();
        CWMIRuleListViewer *list = sheet.page2()->list();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->cellRect(1, 4).center());
        save(wizard->grab(), prefix + "-wizard-2");
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->cellRect(1, 1).center());
        QTRY_VERIFY(list->inPlaceCombo());
        save(wizard->grab(), prefix + "-wizard-2-combo");
        list->inPlaceCombo()->showPopup();
        QTest::qWait(50);
        QTRY_VERIFY(list->inPlaceCombo()->view()->isVisible());
        save(list->inPlaceCombo()->view()->window()->grab().scaled(200, 200, Qt::KeepAspectRatio),
             prefix + "-wizard-2-dropdown", QSize(20, 20));
        list->inPlaceCombo()->hidePopup();
        list->setFocus();
        wizard->next();
        save(wizard->grab(), prefix + "-wizard-3");
    }
    {
        s.script("GetWMIRuleInfo",
                 ScriptedReply::table({"rule_name", "rule_comment", "rule_wql", "rule_op",
                                       "rule_namespace", "rule_class", "rule_field", "rule_type",
                                       "rule_condition", "rule_value"},
                                      {{"Stored rule", "Loaded from the store", int(wql), 0,
                                        "root\\cimv2",
                                        wql ? "SELECT * FROM Win32_Process WHERE Name = 'a.exe'"
                                            : "Win32_Service",
                                        wql ? "#Count" : "State", wql ? "uint8" : "string", "=",
                                        wql ? "0" : "Running"},
                                       {"Stored rule", "Loaded from the store", int(wql), 2,
                                        "root\\cimv2",
                                        wql ? "SELECT Name FROM Win32_Service" : "Win32_Service",
                                        "StartMode", "string", "!=", "Disabled"}}));
        CWMIRuleSheet sheet(nullptr, RuleKind(kind), SheetMode::Properties,
                            wql ? "WQLRule Properties" : "WMIRule Properties", 12);
        QDialog *dialog = sheet.window();
        dialog->show();
        QVERIFY(QTest::qWaitForWindowExposed(dialog));
        save(dialog->grab(), prefix + "-properties-1");
        sheet.tabs()->setCurrentIndex(1);
        save(dialog->grab(), prefix + "-properties-2");
        // Page 3 is never shown in this mode; render it alone to see it holds together.
        sheet.page2()->store();
        sheet.page3()->activate();
        sheet.page3()->resize(520, 300);
        save(sheet.page3()->grab(), prefix + "-properties-3-unshown");
    }
}

QTEST_MAIN(TestWmiScreens)
#include "tst_wmiscreens.moc"
