#include "recordingservice.h"
#include "resources/strings.h"
#include "sheethelpers.h"
#include "wmirule/listviewer.h"
#include "wmirule/rulepages.h"
#include "wmirule/rulesheet.h"

#include <QAbstractItemView>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QWizard>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

// The pages and the condition list, driven as a user drives them.
class TestWmiRuleList : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void wizardCaptionsTitlesAndHeader_data();
    void wizardCaptionsTitlesAndHeader();
    void propertySheetCaptionAndTabs_data();
    void propertySheetCaptionAndTabs();
    void nameControlsNextAndBothEditsStopAt49();
    void conditionColumnsPerKind_data();
    void conditionColumnsPerKind();
    void addAndDeleteKeepTheFirstRowEQ();
    void deleteFollowsClicks();
    void conjunctionComboOpensOnLaterRowsOnly();
    void conjunctionComboWritesBackOnEnterAndFocusLoss();
    void escapeInTheComboChangesNothing();
    void doubleClickReopensTheWMIEditor();
    void doubleClickReopensTheWQLEditorWithTheQueryTakenApart();
    void summaryColumnsFollowTheFirstShowing();

private:
    RecordingService m_service;
};

namespace {

QStringList headers(QTreeWidget *list)
{
    QStringList out;
    for (int i = 0; i < list->columnCount(); ++i)
        out << list->headerItem()->text(i);
    return out;
}

QList<int> widths(QTreeWidget *list)
{
    QList<int> out;
    for (int i = 0; i < list->columnCount(); ++i)
        out << list->columnWidth(i);
    return out;
}

void click(CWMIRuleListViewer *list, int row, int column)
{
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->cellRect(row, column).center());
}

QStringList opColumn(CWMIRuleListViewer *list)
{
    QStringList out;
    for (int r = 0; r < list->rowCount(); ++r)
        out << list->cellText(r, column::Op) + "/" + QString::number(list->rowImage(r));
    return out;
}

// A wizard shown on its conditions page with `count` WMI conditions added.
struct WizardOnPage2
{
    WizardOnPage2(ScriptedEditors &editors, int count, RuleKind kind = RuleKind::WMI)
        : sheet(nullptr, kind, SheetMode::Wizard, "New WMIRule Wizard")
    {
        sheet.wizard()->show();
        sheet.page1()->nameEdit()->setText("Rule");
        sheet.wizard()->next();
        for (int i = 0; i < count; ++i) {
            if (kind == RuleKind::WQL)
                editors.wqlAnswers.append(wqlCount("*", QStringLiteral("C%1").arg(i), "", "=", "0"));
            else
                editors.wmiAnswers.append(
                    wmiCondition(QStringLiteral("Class%1").arg(i), "F", "uint32", "=", "1"));
            sheet.page2()->addButton()->click();
        }
    }
    CWMIRuleListViewer *list() { return sheet.page2()->list(); }
    CWMIRuleSheet sheet;
};

} // namespace

void TestWmiRuleList::init()
{
    m_service.clear();
    useService(&m_service);
}

void TestWmiRuleList::cleanup()
{
    resetConditionEditors();
    useService(nullptr);
}

void TestWmiRuleList::wizardCaptionsTitlesAndHeader_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QString>("pageTitle");
    QTest::addColumn<QStringList>("headerTitles");
    QTest::newRow("wmi") << 0 << "New WMIRule Wizard" << "Add WMI Rule Wizard"
                         << QStringList{"WMI Rule Name", "Enter a rule's name and comment",
                                        "WMI Conditions",
                                        "Rule requires at least one WMI condition statement. Add a "
                                        "condition statement into the rule.",
                                        "Finish", "Confirm new rule"};
    QTest::newRow("wql") << 1 << "New WQLRule Wizard" << "Add WMI Rule Wizard - WQL"
                         << QStringList{"WMI Rule Name", "Enter a rule's name and comment",
                                        "WQL Conditions",
                                        "Rule requires at least one WQL condition statement. Add a "
                                        "condition statement into the rule.",
                                        "Finish", "Confirm new rule"};
}

void TestWmiRuleList::wizardCaptionsTitlesAndHeader()
{
    QFETCH(int, kind);
    QFETCH(QString, caption);
    QFETCH(QString, pageTitle);
    QFETCH(QStringList, headerTitles);

    CWMIRuleSheet sheet(nullptr, RuleKind(kind), SheetMode::Wizard, caption);
    QWizard *wizard = sheet.wizard();
    QVERIFY(wizard);
    QVERIFY(!sheet.tabs());
    QCOMPARE(wizard->windowTitle(), caption);
    QCOMPARE(wizard->wizardStyle(), QWizard::ModernStyle);
    QVERIFY(!wizard->testOption(QWizard::HaveHelpButton));
    QVERIFY(!wizard->pixmap(QWizard::LogoPixmap).isNull());
    QCOMPARE(wizard->pageIds(), QList<int>({0, 1, 2}));
    QStringList titles;
    for (int id : wizard->pageIds()) {
        QCOMPARE(wizard->page(id)->windowTitle(), pageTitle);
        titles << wizard->page(id)->title() << wizard->page(id)->subTitle();
    }
    QCOMPARE(titles, headerTitles);
    QCOMPARE(sheet.page1()->title(), strings::text(201));
    QVERIFY(m_service.calls().isEmpty()); // a wizard loads nothing
}

void TestWmiRuleList::propertySheetCaptionAndTabs_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("tab");
    QTest::newRow("wmi") << 0 << "WMI";
    QTest::newRow("wql") << 1 << "WQL";
}

void TestWmiRuleList::propertySheetCaptionAndTabs()
{
    QFETCH(int, kind);
    QFETCH(QString, tab);
    CWMIRuleSheet sheet(nullptr, RuleKind(kind), SheetMode::Properties,
                        kind ? "WQLRule Properties" : "WMIRule Properties", 7);
    QVERIFY(!sheet.wizard());
    QDialog *dialog = sheet.window();
    QCOMPARE(dialog->windowTitle(), QStringLiteral("Properties"));
    QTabWidget *tabs = sheet.tabs();
    QCOMPARE(tabs->count(), 2);
    QCOMPARE(tabs->tabText(0), QStringLiteral("General"));
    QCOMPARE(tabs->tabText(1), tab);
    QCOMPARE(sheet.page3()->windowTitle(), QStringLiteral("Final"));
    auto *box = dialog->findChild<QDialogButtonBox *>("sheetButtons");
    QVERIFY(box);
    QCOMPARE(box->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    dialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(dialog));
    QVERIFY(!sheet.page3()->isVisible());
    QCOMPARE(m_service.signatures(), QStringList({"GetWMIRuleInfo(text:000000007, slot)",
                                                  "GetWMIRuleInfo(text:000000007, slot)"}));
}

void TestWmiRuleList::nameControlsNextAndBothEditsStopAt49()
{
    CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Wizard, "New WMIRule Wizard");
    QWizard *wizard = sheet.wizard();
    wizard->show();
    QVERIFY(QTest::qWaitForWindowExposed(wizard));
    QAbstractButton *next = wizard->button(QWizard::NextButton);
    QLineEdit *name = sheet.page1()->nameEdit();
    QVERIFY(!next->isEnabled());
    QTest::keyClick(name, Qt::Key_Space); // blanks count as a name
    QVERIFY(next->isEnabled());
    QTest::keyClick(name, Qt::Key_Backspace);
    QVERIFY(!next->isEnabled());

    QTest::keyClicks(name, QString(60, u'n'));
    QTest::keyClicks(sheet.page1()->commentEdit(), QString(60, u'c'));
    QCOMPARE(name->text().size(), 49);
    QCOMPARE(sheet.page1()->commentEdit()->text().size(), 49);
    wizard->next();
    QCOMPARE(wizard->currentId(), 1);
    QCOMPARE(sheet.record().ruleName, QString(49, u'n'));
    QCOMPARE(sheet.record().comment, QString(49, u'c'));

    // Back on page 1 the rule holds again.
    wizard->back();
    name->clear();
    QVERIFY(!next->isEnabled());
}

void TestWmiRuleList::conditionColumnsPerKind_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QStringList>("headers");
    QTest::addColumn<QList<int>>("widths");
    QTest::newRow("wmi") << 0
                         << QStringList{"", "OP", "NameSpace", "WMI Class", "Field", "Type", "Eq", "Value"}
                         << QList<int>{20, 40, 80, 100, 80, 80, 30, 40};
    QTest::newRow("wql") << 1
                         << QStringList{"", "OP", "NameSpace", "WQL", "Field", "Type", "Eq", "Value"}
                         << QList<int>{20, 30, 80, 140, 80, 60, 30, 40};
}

void TestWmiRuleList::conditionColumnsPerKind()
{
    QFETCH(int, kind);
    QFETCH(QStringList, headers);
    QFETCH(QList<int>, widths);
    for (SheetMode mode : {SheetMode::Wizard, SheetMode::Properties}) {
        CWMIRuleSheet sheet(nullptr, RuleKind(kind), mode, "caption", 1);
        sheet.window()->show();
        CWMIRuleListViewer *list = sheet.page2()->list();
        QCOMPARE(::headers(list), headers);
        QCOMPARE(::widths(list), widths);
        QVERIFY(!list->header()->stretchLastSection());
        QCOMPARE(list->selectionBehavior(), QAbstractItemView::SelectRows);
    }
}

void TestWmiRuleList::addAndDeleteKeepTheFirstRowEQ()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 0);
    QWizard *wizard = w.sheet.wizard();
    QCOMPARE(wizard->currentId(), 1);
    QVERIFY(!wizard->button(QWizard::NextButton)->isEnabled());
    QVERIFY(wizard->button(QWizard::BackButton)->isEnabled());

    w.sheet.page2()->addButton()->click(); // the editor is cancelled: no row
    QCOMPARE(editors.wmiSeen.size(), 1);
    QVERIFY(!editors.wmiSeen[0]); // a new condition, nothing to edit
    QCOMPARE(w.list()->rowCount(), 0);

    editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                          wmiCondition("Win32_Process", "Name", "string", "!=", "x.exe"),
                          wmiCondition("Win32_Bios", "Version", "string", "in", "a,b")};
    for (int i = 0; i < 3; ++i)
        w.sheet.page2()->addButton()->click();
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13", "AND/13"}));
    QCOMPARE(w.list()->rowTexts(1),
             (ConditionTexts{"root\\cimv2", "Win32_Process", "Name", "string", "!=", "x.exe"}));
    QVERIFY(wizard->button(QWizard::NextButton)->isEnabled());

    // Row 1 becomes "OR", then the first row goes: the "OR" row moves up and becomes "EQ".
    w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
    click(w.list(), 0, column::Field);
    w.sheet.page2()->deleteButton()->click();
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13"}));
    QCOMPARE(w.list()->cellText(0, column::ClassOrQuery), QStringLiteral("Win32_Process"));

    click(w.list(), 1, column::Value);
    w.sheet.page2()->deleteButton()->click();
    click(w.list(), 0, column::Value);
    w.sheet.page2()->deleteButton()->click();
    QCOMPARE(w.list()->rowCount(), 0);
    QVERIFY(!wizard->button(QWizard::NextButton)->isEnabled());
    QVERIFY(wizard->button(QWizard::BackButton)->isEnabled());

    // The same rule in a property sheet is enforced on OK.
    RecordingService s;
    s.script("GetWMIRuleInfo",
             ScriptedReply::table({"rule_name", "rule_comment", "rule_op", "rule_namespace",
                                   "rule_class", "rule_field", "rule_type", "rule_condition",
                                   "rule_value"},
                                  {{"R", "", 0, "ns", "C", "F", "string", "=", "v"}}));
    useService(&s);
    CWMIRuleSheet props(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 3);
    props.window()->show();
    props.tabs()->setCurrentIndex(1);
    QVERIFY(props.okButton()->isEnabled());
    click(props.page2()->list(), 0, column::Field);
    props.page2()->deleteButton()->click();
    QVERIFY(!props.okButton()->isEnabled());
    editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running")};
    props.page2()->addButton()->click();
    QCOMPARE(opColumn(props.page2()->list()), QStringList({"EQ/11"}));
    QVERIFY(props.okButton()->isEnabled());
    props.tabs()->setCurrentIndex(0);
    props.page1()->nameEdit()->clear(); // and a name, as in the wizard
    QVERIFY(!props.okButton()->isEnabled());
    QCOMPARE(s.methods(), QStringList({"GetWMIRuleInfo", "GetWMIRuleInfo"}));
}

void TestWmiRuleList::deleteFollowsClicks()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 2);
    QPushButton *del = w.sheet.page2()->deleteButton();
    QVERIFY(!del->isEnabled());
    click(w.list(), 1, column::NameSpace);
    QVERIFY(del->isEnabled());
    QCOMPARE(w.list()->lastClickRow(), 1);
    QCOMPARE(w.list()->lastClickColumn(), column::NameSpace);

    // Empty space below the rows.
    const QRect last = w.list()->cellRect(1, 2);
    QTest::mouseClick(w.list()->viewport(), Qt::LeftButton, {}, QPoint(last.center().x(), last.bottom() + 40));
    QVERIFY(!del->isEnabled());

    // Leaving the page and coming back disables it as well.
    click(w.list(), 0, column::Value);
    QVERIFY(del->isEnabled());
    w.sheet.wizard()->next();
    w.sheet.wizard()->back();
    QVERIFY(!del->isEnabled());

    // Moving through the rows with the keyboard counts like a click.
    w.list()->setFocus();
    QTest::keyClick(w.list(), Qt::Key_Down);
    QVERIFY(del->isEnabled());
}

void TestWmiRuleList::conjunctionComboOpensOnLaterRowsOnly()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 3);
    QVERIFY(QTest::qWaitForWindowActive(w.sheet.wizard()));
    click(w.list(), 0, column::Op);
    QVERIFY(!w.list()->inPlaceCombo()); // the first condition's "EQ" stays
    click(w.list(), 2, column::Type);
    QVERIFY(!w.list()->inPlaceCombo()); // other cells open nothing

    click(w.list(), 2, column::Op);
    CListViewerCombo *combo = w.list()->inPlaceCombo();
    QVERIFY(combo);
    QCOMPARE(combo->objectName(), QStringLiteral("inPlaceCombo"));
    QCOMPARE(combo->row(), 2);
    QCOMPARE(combo->column(), column::Op);
    const QRect cell = w.list()->cellRect(2, column::Op);
    QCOMPARE(combo->geometry().left(), cell.left());
    QCOMPARE(combo->geometry().top(), cell.top() - 3);
    QCOMPARE(combo->geometry().width(), cell.width());
    QCOMPARE(combo->count(), 2);
    QCOMPARE(combo->itemText(0), QStringLiteral("AND"));
    QCOMPARE(combo->itemText(1), QStringLiteral("OR"));
    QCOMPARE(combo->currentText(), QStringLiteral("AND"));
    QVERIFY(!combo->isEditable());
    QCOMPARE(combo->view()->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOn);
    QVERIFY(combo->view()->minimumWidth() >= w.list()->columnWidth(column::Op));
    QTRY_VERIFY(combo->hasFocus());
    QTest::keyClick(combo, Qt::Key_Escape);
    QTRY_VERIFY(!w.list()->inPlaceCombo());

    // An "OR" cell opens with "OR" chosen.
    w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
    click(w.list(), 1, column::Op);
    QVERIFY(w.list()->inPlaceCombo());
    QCOMPARE(w.list()->inPlaceCombo()->currentText(), QStringLiteral("OR"));
}

void TestWmiRuleList::conjunctionComboWritesBackOnEnterAndFocusLoss()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 3);
    QWizard *wizard = w.sheet.wizard();
    QVERIFY(QTest::qWaitForWindowActive(wizard));

    click(w.list(), 1, column::Op);
    QPointer<CListViewerCombo> combo = w.list()->inPlaceCombo();
    QTRY_VERIFY(combo && combo->hasFocus());
    QTest::keyClick(combo, Qt::Key_Down);
    QTest::keyClick(combo, Qt::Key_Return); // ends the edit, not the page
    QTRY_VERIFY(!combo);
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "OR/12", "AND/13"}));
    QCOMPARE(wizard->currentId(), 1);
    QVERIFY(wizard->isVisible());
    QVERIFY(w.list()->hasFocus());

    // Back to "AND", ended by the focus moving elsewhere.
    click(w.list(), 1, column::Op);
    combo = w.list()->inPlaceCombo();
    QTRY_VERIFY(combo && combo->hasFocus());
    QTest::keyClick(combo, Qt::Key_Up);
    w.sheet.page2()->addButton()->setFocus();
    QTRY_VERIFY(!combo);
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13", "AND/13"}));

    // Choosing in the drop-down itself.
    click(w.list(), 2, column::Op);
    combo = w.list()->inPlaceCombo();
    QTRY_VERIFY(combo);
    combo->showPopup();
    QTRY_VERIFY(combo->view()->isVisible());
    combo->view()->setCurrentIndex(combo->model()->index(1, 0));
    QTest::keyClick(combo->view(), Qt::Key_Return);
    QTRY_VERIFY(!combo);
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13", "OR/12"}));

    // Leaving the page takes the edited conjunctions along.
    wizard->next();
    QCOMPARE(w.sheet.record().conditions.size(), 3);
    QCOMPARE(w.sheet.record().conditions[2].conjunction, QStringLiteral("OR"));

    // In a property sheet Enter in the drop-down does not press OK.
    RecordingService s;
    s.script("GetWMIRuleInfo",
             ScriptedReply::table({"rule_name", "rule_comment", "rule_op", "rule_namespace",
                                   "rule_class", "rule_field", "rule_type", "rule_condition",
                                   "rule_value"},
                                  {{"R", "", 0, "ns", "C", "F", "string", "=", "v"},
                                   {"R", "", 1, "ns", "C", "F", "string", "=", "w"}}));
    useService(&s);
    CWMIRuleSheet props(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 3);
    props.window()->show();
    QVERIFY(QTest::qWaitForWindowActive(props.window()));
    props.tabs()->setCurrentIndex(1);
    CWMIRuleListViewer *list = props.page2()->list();
    click(list, 1, column::Op);
    combo = list->inPlaceCombo();
    QTRY_VERIFY(combo && combo->hasFocus());
    QTest::keyClick(combo, Qt::Key_Down);
    QTest::keyClick(combo, Qt::Key_Enter);
    QTRY_VERIFY(!combo);
    QCOMPARE(opColumn(list), QStringList({"EQ/11", "OR/12"}));
    QVERIFY(props.window()->isVisible());
    QCOMPARE(s.methods(), QStringList({"GetWMIRuleInfo", "GetWMIRuleInfo"}));
}

void TestWmiRuleList::escapeInTheComboChangesNothing()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 2);
    QWizard *wizard = w.sheet.wizard();
    QVERIFY(QTest::qWaitForWindowActive(wizard));
    w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));

    click(w.list(), 1, column::Op);
    QPointer<CListViewerCombo> combo = w.list()->inPlaceCombo();
    QTRY_VERIFY(combo && combo->hasFocus());
    QTest::keyClick(combo, Qt::Key_Up); // "AND" chosen, then abandoned
    QTest::keyClick(combo, Qt::Key_Escape);
    QTRY_VERIFY(!combo);
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "OR/12"}));
    QVERIFY(wizard->isVisible()); // Escape did not cancel the wizard
    QCOMPARE(wizard->result(), 0);

    // The list itself ignores a write-back without text, or for a row that is gone.
    w.list()->endInPlaceEdit(1, column::Op, std::nullopt);
    w.list()->endInPlaceEdit(7, column::Op, QStringLiteral("AND"));
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "OR/12"}));

    // Space opens the drop-down from the keyboard.
    w.list()->setFocus();
    w.list()->setCurrentItem(w.list()->topLevelItem(1));
    QTest::keyClick(w.list(), Qt::Key_Space);
    QTRY_VERIFY(w.list()->inPlaceCombo());
}

void TestWmiRuleList::doubleClickReopensTheWMIEditor()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 0);
    editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                          wmiCondition("Win32_QuickFixEngineering", "HotFixID[]", "string", "in",
                                       "KB1,KB2", "root\\default")};
    w.sheet.page2()->addButton()->click();
    w.sheet.page2()->addButton()->click();
    w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
    editors.wmiSeen.clear();

    editors.wmiAnswers = {wmiCondition("Win32_OperatingSystem", "BuildNumber", "sint32", ">", "6000")};
    QTest::mouseDClick(w.list()->viewport(), Qt::LeftButton, {},
                       w.list()->cellRect(1, column::Value).center());
    QCOMPARE(editors.wmiSeen.size(), 1);
    const std::optional<WMICondition> &seen = editors.wmiSeen[0];
    QVERIFY(seen);
    QCOMPARE(seen->nameSpace, QStringLiteral("root\\default"));
    QCOMPARE(seen->className, QStringLiteral("Win32_QuickFixEngineering"));
    QCOMPARE(seen->field, QStringLiteral("HotFixID[]"));
    QCOMPARE(seen->type, QStringLiteral("string"));
    QCOMPARE(seen->condition, QStringLiteral("in"));
    QCOMPARE(seen->value, QStringLiteral("KB1,KB2"));
    QCOMPARE(w.list()->rowTexts(1), (ConditionTexts{"root\\cimv2", "Win32_OperatingSystem",
                                                    "BuildNumber", "sint32", ">", "6000"}));
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "OR/12"})); // conjunction and image stay

    // Cancelled: the row stays as it was. F2 opens the editor as well.
    w.list()->setFocus();
    w.list()->setCurrentItem(w.list()->topLevelItem(0));
    QTest::keyClick(w.list(), Qt::Key_F2);
    QCOMPARE(editors.wmiSeen.size(), 2);
    QCOMPARE(editors.wmiSeen[1]->className, QStringLiteral("Win32_Service"));
    QCOMPARE(w.list()->cellText(0, column::ClassOrQuery), QStringLiteral("Win32_Service"));

    // Empty space opens nothing.
    const QRect last = w.list()->cellRect(1, 2);
    QTest::mouseDClick(w.list()->viewport(), Qt::LeftButton, {}, QPoint(last.center().x(), last.bottom() + 40));
    QCOMPARE(editors.wmiSeen.size(), 2);
    QVERIFY(editors.wqlSeen.isEmpty());
}

void TestWmiRuleList::doubleClickReopensTheWQLEditorWithTheQueryTakenApart()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 0, RuleKind::WQL);
    editors.wqlAnswers = {wqlCount("*", "Win32_Process", " \tName = 'a.exe' ", "<", "2"),
                          wqlValue("FreeSpace, Size", "Win32_LogicalDisk", "", "FreeSpace",
                                   "uint64", ">", "1024")};
    w.sheet.page2()->addButton()->click();
    w.sheet.page2()->addButton()->click();
    QCOMPARE(w.list()->rowTexts(0),
             (ConditionTexts{"root\\cimv2", "SELECT * FROM Win32_Process WHERE Name = 'a.exe' ",
                             "#Count", "uint8", "<", "2"}));
    QCOMPARE(w.list()->rowTexts(1),
             (ConditionTexts{"root\\cimv2", "SELECT FreeSpace, Size FROM Win32_LogicalDisk",
                             "FreeSpace", "uint64", ">", "1024"}));
    editors.wqlSeen.clear();

    editors.wqlAnswers = {wqlValue("Name", "Win32_Service", "StartMode = 'Auto'", "State",
                                   "string", "=", "Running")};
    QTest::mouseDClick(w.list()->viewport(), Qt::LeftButton, {},
                       w.list()->cellRect(0, column::NameSpace).center());
    QCOMPARE(editors.wqlSeen.size(), 1);
    const WQLCondition seen = *editors.wqlSeen[0];
    QCOMPARE(seen.select, QStringLiteral("*"));
    QCOMPARE(seen.from, QStringLiteral("Win32_Process"));
    QCOMPARE(seen.where, QStringLiteral("Name = 'a.exe' "));
    QCOMPARE(seen.mode, 1);
    QCOMPARE(seen.op, QStringLiteral("<"));
    QCOMPARE(seen.count, QStringLiteral("2"));
    QCOMPARE(w.list()->rowTexts(0),
             (ConditionTexts{"root\\cimv2", "SELECT Name FROM Win32_Service WHERE StartMode = 'Auto'",
                             "State", "string", "=", "Running"}));
    QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13"}));

    QTest::mouseDClick(w.list()->viewport(), Qt::LeftButton, {},
                       w.list()->cellRect(1, column::Value).center());
    const WQLCondition value = *editors.wqlSeen[1];
    QCOMPARE(value.select, QStringLiteral("FreeSpace, Size"));
    QCOMPARE(value.from, QStringLiteral("Win32_LogicalDisk"));
    QVERIFY(value.where.isEmpty());
    QCOMPARE(value.mode, 2);
    QCOMPARE(value.field, QStringLiteral("FreeSpace"));
    QCOMPARE(value.fieldType, QStringLiteral("uint64"));
    QCOMPARE(value.value, QStringLiteral("1024"));
    QVERIFY(editors.wmiSeen.isEmpty());
}

void TestWmiRuleList::summaryColumnsFollowTheFirstShowing()
{
    ScriptedEditors editors;
    WizardOnPage2 w(editors, 2);
    w.sheet.wizard()->next();
    QTreeWidget *summary = w.sheet.page3()->summary();
    const QStringList filled{"", "OP", "NameSpace", "WQL", "Field", "Type", "Eq", "Value"};
    QCOMPARE(headers(summary), filled); // a WMI rule too: the set follows the list, not the kind
    QCOMPARE(widths(summary), QList<int>({20, 50, 70, 200, 50, 50, 50, 100}));
    QCOMPARE(summary->topLevelItemCount(), 2);
    QCOMPARE(summary->topLevelItem(1)->text(1), QStringLiteral("AND"));
    QCOMPARE(summary->topLevelItem(1)->text(3), QStringLiteral("Class1"));
    QVERIFY(summary->topLevelItem(1)->text(0).isEmpty());
    QCOMPARE(w.sheet.page3()->nameView()->text(), QStringLiteral("Rule"));

    // Every showing refills the rows; the header set stays from the first.
    w.sheet.wizard()->back();
    editors.wmiAnswers = {wmiCondition("Win32_Bios", "Version", "string", "=", "1")};
    w.sheet.page2()->addButton()->click();
    w.sheet.wizard()->next();
    QCOMPARE(summary->topLevelItemCount(), 3);
    QCOMPARE(widths(summary), QList<int>({20, 50, 70, 200, 50, 50, 50, 100}));

    // First shown with no conditions (a property sheet's page 3 is never shown by the sheet).
    CWMIRuleSheet props(nullptr, RuleKind::WQL, SheetMode::Properties, "WQLRule Properties", 4);
    props.page3()->activate();
    QCOMPARE(headers(props.page3()->summary()),
             QStringList({"", "OP", "NameSpace", "WMI Class", "Field", "Type", "Eq", "Value"}));
    QCOMPARE(widths(props.page3()->summary()), QList<int>({20, 50, 100, 80, 80, 50, 30, 80}));
    QCOMPARE(props.page3()->summary()->topLevelItemCount(), 0);
}

QTEST_MAIN(TestWmiRuleList)
#include "tst_wmirulelist.moc"
