#include "sheethelpers.h"

#include <QAbstractItemView>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QTabWidget>

using namespace qarvo;
using namespace qarvo::test;

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

// A point in the empty space below the last row.
QPoint belowTheRows(CWMIRuleListViewer *list)
{
    const QRect last = list->cellRect(list->rowCount() - 1, column::NameSpace);
    return {last.center().x(), last.bottom() + 40};
}

// A wizard on page 2 with `count` WMI conditions (classes Class0, Class1, ...).
struct Filled : WizardOnPage2
{
    Filled(ScriptedEditors &editors, int count)
    {
        for (int i = 0; i < count; ++i)
            editors.wmiAnswers.append(wmiCondition(QStringLiteral("Class%1").arg(i), "F", "uint32", "=", "1"));
        add(count);
        QVERIFY(QTest::qWaitForWindowActive(sheet.wizard()));
    }
};

// Opens the in-place combo on `row` and waits for it to take the focus.
QPointer<CListViewerCombo> openCombo(CWMIRuleListViewer *list, int row)
{
    clickCell(list, row, column::Op);
    QPointer<CListViewerCombo> combo = list->inPlaceCombo();
    if (!QTest::qWaitFor([&] { return combo && combo->hasFocus(); }))
        qWarning("the in-place combo did not take the focus");
    return combo;
}

} // namespace

// The pages and the condition list, driven as a user drives them.
class TestWmiRuleList : public QObject
{
    Q_OBJECT
    RecordingService m_service;

private Q_SLOTS:
    void init()
    {
        m_service.clear();
        useService(&m_service);
    }

    void cleanup()
    {
        resetConditionEditors();
        useService(nullptr);
    }

    void captionsTitlesAndColumns_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("caption");
        QTest::addColumn<QString>("pageTitle");
        QTest::addColumn<QString>("tab");
        QTest::addColumn<QStringList>("columns");
        QTest::addColumn<QList<int>>("widths");
        QTest::newRow("wmi") << 0 << "New WMIRule Wizard" << "Add WMI Rule Wizard" << "WMI"
                             << QStringList{"", "OP", "NameSpace", "WMI Class", "Field", "Type", "Eq", "Value"}
                             << QList<int>{20, 40, 80, 100, 80, 80, 30, 40};
        QTest::newRow("wql") << 1 << "New WQLRule Wizard" << "Add WMI Rule Wizard - WQL" << "WQL"
                             << QStringList{"", "OP", "NameSpace", "WQL", "Field", "Type", "Eq", "Value"}
                             << QList<int>{20, 30, 80, 140, 80, 60, 30, 40};
    }

    void captionsTitlesAndColumns()
    {
        QFETCH(int, kind);
        QFETCH(QString, caption);
        QFETCH(QString, pageTitle);
        QFETCH(QString, tab);
        QFETCH(QStringList, columns);
        QFETCH(QList<int>, widths);
        {
            CWMIRuleSheet sheet(nullptr, RuleKind(kind), SheetMode::Wizard, caption);
            QWizard *wizard = sheet.wizard();
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
            const QString k = kind ? "WQL" : "WMI";
            QCOMPARE(titles, QStringList({"WMI Rule Name", "Enter a rule's name and comment",
                                          k + " Conditions",
                                          "Rule requires at least one " + k + " condition statement. "
                                          "Add a condition statement into the rule.",
                                          "Finish", "Confirm new rule"}));
            wizard->show();
            QVERIFY(QTest::qWaitForWindowExposed(wizard));
            QCOMPARE(::headers(sheet.page2()->list()), columns);
            QCOMPARE(::widths(sheet.page2()->list()), widths);
            QVERIFY(m_service.calls().isEmpty()); // a wizard loads nothing

            // Every page, looked at with content.
            const QString name = tab.toLower() + "-wizard-";
            ScriptedEditors editors;
            editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                                  wmiCondition("Win32_QuickFixEngineering", "HotFixID[]", "string",
                                               "in", "KB958644,KB958687")};
            editors.wqlAnswers = {wqlCount("*", "Win32_Process", "Name = 'notepad.exe'", "<", "1"),
                                  wqlCondition("FreeSpace", "Win32_LogicalDisk", "DeviceID = 'C:'",
                                               "FreeSpace", "uint64", ">", "1073741824")};
            sheet.page1()->nameEdit()->setText("Checked at every connection");
            maybeScreenshot(wizard, name + "1");
            wizard->next();
            for (int i = 0; i < 2; ++i)
                sheet.page2()->addButton()->click();
            maybeScreenshot(wizard, name + "2");
            wizard->next();
            maybeScreenshot(wizard, name + "3");
        }
        m_service.script("GetWMIRuleInfo",
                         storedRule({{"Stored", "Loaded", 0, "root\\cimv2", "C", "F", "string", "=", "v"},
                                     {"Stored", "Loaded", 2, "root\\cimv2", "C", "G", "uint8", "!=", "1"}}));
        CWMIRuleSheet sheet(nullptr, RuleKind(kind), SheetMode::Properties, caption, 7);
        QVERIFY(!sheet.wizard());
        QCOMPARE(sheet.window()->windowTitle(), QStringLiteral("Properties"));
        QCOMPARE(sheet.tabs()->count(), 2);
        QCOMPARE(sheet.tabs()->tabText(0), QStringLiteral("General"));
        QCOMPARE(sheet.tabs()->tabText(1), tab);
        QCOMPARE(sheet.page3()->windowTitle(), QStringLiteral("Final"));
        QCOMPARE(sheet.window()->findChild<QDialogButtonBox *>("sheetButtons")->standardButtons(),
                 QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
        sheet.window()->show();
        QVERIFY(QTest::qWaitForWindowExposed(sheet.window()));
        QVERIFY(!sheet.page3()->isVisible());
        CWMIRuleListViewer *list = sheet.page2()->list();
        maybeScreenshot(sheet.window(), tab.toLower() + "-properties-1");
        sheet.tabs()->setCurrentIndex(1);
        maybeScreenshot(sheet.window(), tab.toLower() + "-properties-2");
        QVERIFY(!list->header()->stretchLastSection());
        QCOMPARE(list->selectionBehavior(), QAbstractItemView::SelectRows);
        QCOMPARE(m_service.signatures(), QStringList(2, "GetWMIRuleInfo(text:000000007, slot)"));
    }

    void nameControlsNextAndBothEditsStopAt49()
    {
        CWMIRuleSheet sheet(nullptr, RuleKind::WMI, SheetMode::Wizard, "New WMIRule Wizard");
        QWizard *wizard = sheet.wizard();
        wizard->show();
        QAbstractButton *next = wizard->button(QWizard::NextButton);
        QLineEdit *name = sheet.page1()->nameEdit();
        QVERIFY(!next->isEnabled());
        QTest::keyClick(name, Qt::Key_Space); // blanks count as a name
        QVERIFY(next->isEnabled());
        QTest::keyClick(name, Qt::Key_Backspace);
        QVERIFY(!next->isEnabled());

        QTest::keyClicks(name, QString(60, u'n'));
        QTest::keyClicks(sheet.page1()->commentEdit(), QString(60, u'c'));
        wizard->next();
        QCOMPARE(wizard->currentId(), 1);
        QCOMPARE(sheet.record().ruleName, QString(49, u'n'));
        QCOMPARE(sheet.record().comment, QString(49, u'c'));
        wizard->back();
        name->clear();
        QVERIFY(!next->isEnabled());
    }

    void addAndDeleteKeepTheFirstRowEQ()
    {
        ScriptedEditors editors;
        WizardOnPage2 w;
        QWizard *wizard = w.sheet.wizard();
        QVERIFY(!wizard->button(QWizard::NextButton)->isEnabled());
        w.add(); // the editor is cancelled: no row
        QVERIFY(editors.wmiSeen.size() == 1 && !editors.wmiSeen[0]); // a new one: nothing to edit
        QCOMPARE(w.list()->rowCount(), 0);

        editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                              wmiCondition("Win32_Process", "Name", "string", "!=", "x.exe"),
                              wmiCondition("Win32_Bios", "Version", "string", "in", "a,b")};
        w.add(3);
        QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13", "AND/13"}));
        QCOMPARE(w.list()->rowTexts(1),
                 (ConditionTexts{"root\\cimv2", "Win32_Process", "Name", "string", "!=", "x.exe"}));
        QVERIFY(wizard->button(QWizard::NextButton)->isEnabled());

        // Row 1 becomes "OR", then the first row goes: the "OR" row moves up and becomes "EQ".
        w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
        for (int row : {0, 1, 0}) {
            clickCell(w.list(), row, column::Field);
            w.sheet.page2()->deleteButton()->click();
            if (w.list()->rowCount() == 2) {
                QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13"}));
                QCOMPARE(w.list()->cellText(0, column::ClassOrQuery), QStringLiteral("Win32_Process"));
            }
        }
        QCOMPARE(w.list()->rowCount(), 0);
        QVERIFY(!wizard->button(QWizard::NextButton)->isEnabled());
        QVERIFY(wizard->button(QWizard::BackButton)->isEnabled());

        // The same rules hold OK in a property sheet: a condition and a name.
        m_service.script("GetWMIRuleInfo", storedRule({{"R", "", 0, "ns", "C", "F", "string", "=", "v"}}));
        CWMIRuleSheet props(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 3);
        props.window()->show();
        props.tabs()->setCurrentIndex(1);
        QVERIFY(props.okButton()->isEnabled());
        clickCell(props.page2()->list(), 0, column::Field);
        props.page2()->deleteButton()->click();
        QVERIFY(!props.okButton()->isEnabled());
        editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running")};
        props.page2()->addButton()->click();
        QCOMPARE(opColumn(props.page2()->list()), QStringList({"EQ/11"}));
        QVERIFY(props.okButton()->isEnabled());
        props.page1()->nameEdit()->clear();
        QVERIFY(!props.okButton()->isEnabled());
        QCOMPARE(m_service.methods(), QStringList(2, "GetWMIRuleInfo"));
    }

    void deleteFollowsClicks()
    {
        ScriptedEditors editors;
        Filled w(editors, 2);
        QPushButton *del = w.sheet.page2()->deleteButton();
        QVERIFY(!del->isEnabled());
        clickCell(w.list(), 1, column::NameSpace);
        QVERIFY(del->isEnabled());
        QCOMPARE(w.list()->lastClickRow(), 1);
        QCOMPARE(w.list()->lastClickColumn(), column::NameSpace);
        QTest::mouseClick(w.list()->viewport(), Qt::LeftButton, {}, belowTheRows(w.list()));
        QVERIFY(!del->isEnabled());

        // Leaving the page and coming back disables it as well.
        clickCell(w.list(), 0, column::Value);
        w.sheet.wizard()->next();
        w.sheet.wizard()->back();
        QVERIFY(!del->isEnabled());

        // Moving through the rows with the keyboard counts like a click.
        w.list()->setFocus();
        QTest::keyClick(w.list(), Qt::Key_Down);
        QVERIFY(del->isEnabled());
    }

    void conjunctionComboOpensOnLaterRowsOnly()
    {
        ScriptedEditors editors;
        Filled w(editors, 3);
        clickCell(w.list(), 0, column::Op);
        QVERIFY(!w.list()->inPlaceCombo()); // the first condition's "EQ" stays
        clickCell(w.list(), 2, column::Type);
        QVERIFY(!w.list()->inPlaceCombo()); // other cells open nothing

        QPointer<CListViewerCombo> combo = openCombo(w.list(), 2);
        QVERIFY(combo);
        QCOMPARE(combo->row(), 2);
        const QRect cell = w.list()->cellRect(2, column::Op);
        QCOMPARE(combo->geometry(), QRect(cell.left(), cell.top() - 3, cell.width(), combo->height()));
        QCOMPARE(combo->count(), 2);
        QCOMPARE(QStringList({combo->itemText(0), combo->itemText(1)}), QStringList({"AND", "OR"}));
        QCOMPARE(combo->currentText(), QStringLiteral("AND"));
        QVERIFY(!combo->isEditable());
        QCOMPARE(combo->view()->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOn);
        QVERIFY(combo->view()->minimumWidth() >= w.list()->columnWidth(column::Op));
        QTest::keyClick(combo, Qt::Key_Escape);
        QTRY_VERIFY(!combo);
        // An "OR" cell opens with "OR" chosen; Space opens it from the keyboard.
        w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
        w.list()->setFocus();
        w.list()->setCurrentItem(w.list()->topLevelItem(1));
        QTest::keyClick(w.list(), Qt::Key_Space);
        QTRY_VERIFY(w.list()->inPlaceCombo());
        QCOMPARE(w.list()->inPlaceCombo()->currentText(), QStringLiteral("OR"));
        QTest::keyClick(w.list()->inPlaceCombo(), Qt::Key_Escape);
        QTRY_VERIFY(!w.list()->inPlaceCombo());
        // Other keys keep their ordinary meaning.
        QTest::keyClick(w.list(), Qt::Key_Down);
        QCOMPARE(w.list()->currentItem(), w.list()->topLevelItem(2));
        QVERIFY(!w.list()->inPlaceCombo());

        // A later row holding a code that is neither choice preselects nothing, and leaving the
        // list without a choice keeps the row as it was.
        w.list()->endInPlaceEdit(2, column::Op, QStringLiteral("EQ"));
        combo = openCombo(w.list(), 2);
        QCOMPARE(combo->currentIndex(), -1);
        w.sheet.page2()->addButton()->setFocus();
        QTRY_VERIFY(!combo);
        QCOMPARE(opColumn(w.list()).at(2), QStringLiteral("EQ/12"));
    }

    void conjunctionComboWritesBack()
    {
        ScriptedEditors editors;
        Filled w(editors, 3);
        QWizard *wizard = w.sheet.wizard();

        // Enter ends the edit, not the page.
        QPointer<CListViewerCombo> combo = openCombo(w.list(), 1);
        QTest::keyClick(combo, Qt::Key_Down);
        QTest::keyClick(combo, Qt::Key_Return);
        QTRY_VERIFY(!combo);
        QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "OR/12", "AND/13"}));
        QCOMPARE(wizard->currentId(), 1);
        QVERIFY(w.list()->hasFocus());

        // Escape changes nothing and does not cancel the wizard.
        combo = openCombo(w.list(), 1);
        QTest::keyClick(combo, Qt::Key_Up);
        QTest::keyClick(combo, Qt::Key_Escape);
        QTRY_VERIFY(!combo);
        QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "OR/12", "AND/13"}));
        QVERIFY(wizard->isVisible());

        // Focus moving elsewhere ends the edit and writes back.
        combo = openCombo(w.list(), 1);
        QTest::keyClick(combo, Qt::Key_Up);
        w.sheet.page2()->addButton()->setFocus();
        QTRY_VERIFY(!combo);
        QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13", "AND/13"}));

        // Choosing in the drop-down itself.
        combo = openCombo(w.list(), 2);
        maybeScreenshot(w.sheet.wizard(), "wmi-wizard-2-combo");
        combo->showPopup();
        QTRY_VERIFY(combo->view()->isVisible());
        maybeScreenshot(combo->view()->window(), "wmi-wizard-2-dropdown");
        combo->view()->setCurrentIndex(combo->model()->index(1, 0));
        QTest::keyClick(combo->view(), Qt::Key_Return);
        QTRY_VERIFY(!combo);
        QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13", "OR/12"}));

        // A write-back without text, or for a row that is gone, is ignored.
        w.list()->endInPlaceEdit(1, column::Op, std::nullopt);
        w.list()->endInPlaceEdit(7, column::Op, QStringLiteral("AND"));
        QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "AND/13", "OR/12"}));

        wizard->next(); // leaving the page takes the edited conjunctions along
        QCOMPARE(w.sheet.record().conditions[2].conjunction, QStringLiteral("OR"));

        // In a property sheet Enter in the drop-down does not press OK.
        m_service.script("GetWMIRuleInfo", storedRule({{"R", "", 0, "ns", "C", "F", "string", "=", "v"},
                                                       {"R", "", 1, "ns", "C", "F", "string", "=", "w"}}));
        CWMIRuleSheet props(nullptr, RuleKind::WMI, SheetMode::Properties, "WMIRule Properties", 3);
        props.window()->show();
        QVERIFY(QTest::qWaitForWindowActive(props.window()));
        props.tabs()->setCurrentIndex(1);
        combo = openCombo(props.page2()->list(), 1);
        QTest::keyClick(combo, Qt::Key_Down);
        QTest::keyClick(combo, Qt::Key_Enter);
        QTRY_VERIFY(!combo);
        QCOMPARE(opColumn(props.page2()->list()), QStringList({"EQ/11", "OR/12"}));
        QVERIFY(props.window()->isVisible());
        QVERIFY(!m_service.methods().contains("DelWMIRule"));
    }

    void doubleClickReopensTheWMIEditor()
    {
        ScriptedEditors editors;
        WizardOnPage2 w;
        editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                              wmiCondition("Win32_QuickFixEngineering", "HotFixID[]", "string", "in",
                                           "KB1,KB2", "root\\default")};
        w.add(2);
        w.list()->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
        editors.wmiSeen.clear();

        editors.wmiAnswers = {wmiCondition("Win32_OperatingSystem", "BuildNumber", "sint32", ">", "6000")};
        clickCell(w.list(), 1, column::Value, true);
        QCOMPARE(editors.wmiSeen.size(), 1);
        QCOMPARE(textsFromWMI(*editors.wmiSeen[0]),
                 (ConditionTexts{"root\\default", "Win32_QuickFixEngineering", "HotFixID[]",
                                 "string", "in", "KB1,KB2"}));
        QCOMPARE(w.list()->rowTexts(1), (ConditionTexts{"root\\cimv2", "Win32_OperatingSystem",
                                                        "BuildNumber", "sint32", ">", "6000"}));
        QCOMPARE(opColumn(w.list()), QStringList({"EQ/11", "OR/12"})); // conjunction and image stay

        // F2 opens the editor as well; cancelled, the row stays as it was.
        w.list()->setFocus();
        w.list()->setCurrentItem(w.list()->topLevelItem(0));
        QTest::keyClick(w.list(), Qt::Key_F2);
        QCOMPARE(editors.wmiSeen.size(), 2);
        QCOMPARE(editors.wmiSeen[1]->className, QStringLiteral("Win32_Service"));
        QCOMPARE(w.list()->cellText(0, column::ClassOrQuery), QStringLiteral("Win32_Service"));

        QTest::mouseDClick(w.list()->viewport(), Qt::LeftButton, {}, belowTheRows(w.list()));
        QCOMPARE(editors.wmiSeen.size(), 2); // empty space opens nothing
        QVERIFY(editors.wqlSeen.isEmpty());
    }

    void summaryColumnsFollowTheFirstShowing()
    {
        ScriptedEditors editors;
        Filled w(editors, 2);
        w.sheet.wizard()->next();
        QTreeWidget *summary = w.sheet.page3()->summary();
        // A WMI rule too: the set follows whether the list was empty, not the kind.
        QCOMPARE(headers(summary), QStringList({"", "OP", "NameSpace", "WQL", "Field", "Type", "Eq", "Value"}));
        QCOMPARE(widths(summary), QList<int>({20, 50, 70, 200, 50, 50, 50, 100}));
        QCOMPARE(summary->topLevelItemCount(), 2);
        QCOMPARE(summary->topLevelItem(1)->text(1), QStringLiteral("AND"));
        QCOMPARE(summary->topLevelItem(1)->text(3), QStringLiteral("Class1"));
        QCOMPARE(w.sheet.page3()->nameView()->text(), QStringLiteral("Rule"));

        // Every showing refills the rows; the header set stays from the first.
        w.sheet.wizard()->back();
        editors.wmiAnswers = {wmiCondition("Win32_Bios", "Version", "string", "=", "1")};
        w.add();
        w.sheet.wizard()->next();
        QCOMPARE(summary->topLevelItemCount(), 3);
        QCOMPARE(widths(summary), QList<int>({20, 50, 70, 200, 50, 50, 50, 100}));

        // First shown with no conditions (a property sheet's page 3 is never shown by the sheet).
        CWMIRuleSheet props(nullptr, RuleKind::WQL, SheetMode::Properties, "WQLRule Properties", 4);
        props.page3()->activate();
        props.page3()->resize(520, 300);
        maybeScreenshot(props.page3(), "wql-properties-3-unshown");
        QCOMPARE(headers(props.page3()->summary()),
                 QStringList({"", "OP", "NameSpace", "WMI Class", "Field", "Type", "Eq", "Value"}));
        QCOMPARE(widths(props.page3()->summary()), QList<int>({20, 50, 100, 80, 80, 50, 30, 80}));
    }
};

QTEST_MAIN(TestWmiRuleList)
#include "tst_wmirulelist.moc"
