#include "browser/panedown.h"
#include "browser/paneup.h"
#include "browser/rulelistmodel.h"
#include "browser/splitdlg.h"
#include "control/qarvoctrl.h"
#include "dataservice/calls.h"
#include "dialogdriver.h"
#include "rulestore/sqlrulestore.h"
#include "sheethelpers.h"
#include "wmirule/listviewer.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QWizard>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

// WMI and WQL rules made, shown, edited, renamed and deleted through the control over a real
// SQLite store, the way the console hosts it.
class TestWmiRuleEndToEnd : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void rulesLiveThroughTheControl();
};

namespace {

int rowNamed(RuleListModel *model, const QString &name)
{
    for (int r = 0; r < model->rowCount(); ++r)
        if (model->cellText(r, 0) == name)
            return r;
    return -1;
}

// Every cell of the detail pane, in one text.
QString details(CPaneDown *down)
{
    QStringList cells;
    QTreeWidget *list = down->detailList();
    for (int r = 0; r < list->topLevelItemCount(); ++r)
        for (int c = 0; c < list->columnCount(); ++c)
            cells << list->topLevelItem(r)->text(c);
    return cells.join(u'|');
}

// "name:kind:op:field" of every condition stored under `id`.
QStringList stored(DataService *store, int id)
{
    QStringList rows;
    Reply info = calls::GetWMIRuleInfo(store, ruleIdText(id));
    forEachRow(info, [&](RowReader &row) {
        rows << row.text("rule_name") + ":" + QString::number(row.integer("rule_wql")) + ":"
                    + QString::number(row.integer("rule_op")) + ":" + row.text("rule_field");
    });
    return rows;
}

// Fills and finishes a wizard: name, comment and as many conditions as the editors hold.
void finishWizard(QWidget *modal, const QString &name, int conditions, bool secondIsOr)
{
    auto *wizard = qobject_cast<QWizard *>(modal);
    QVERIFY(wizard);
    wizard->findChild<QLineEdit *>("nameEdit")->setText(name);
    wizard->findChild<QLineEdit *>("commentEdit")->setText("made end to end");
    wizard->next();
    for (int i = 0; i < conditions; ++i)
        wizard->findChild<QPushButton *>("addButton")->click();
    if (secondIsOr)
        wizard->findChild<CWMIRuleListViewer *>("conditionList")
            ->endInPlaceEdit(1, column::Op, QStringLiteral("OR"));
    wizard->next();
    wizard->button(QWizard::FinishButton)->click();
}

} // namespace

void TestWmiRuleEndToEnd::init()
{
    resetModalSafetyNet();
}

void TestWmiRuleEndToEnd::cleanup()
{
    resetConditionEditors();
    useService(nullptr);
    QVERIFY(!modalSafetyNetFired());
}

void TestWmiRuleEndToEnd::rulesLiveThroughTheControl()
{
    QTemporaryDir dir;
    SqlRuleStore store;
    QVERIFY2(store.open(dir.filePath("rules.sqlite")), qPrintable(store.lastError()));

    CqarvoCtrl ctrl;
    ctrl.resize(900, 600);
    ctrl.show();
    ctrl.setViewType(6);
    ctrl.ShowPane(&store, QString(), 1, 0);
    CPaneUP *up = ctrl.splitDialog()->paneUp();
    CPaneDown *down = ctrl.splitDialog()->paneDown();
    RuleListModel *model = up->model();
    QCOMPARE(model->rowCount(), 0);

    ScriptedEditors editors;
    editors.wmiAnswers = {wmiCondition("Win32_Service", "State", "string", "=", "Running"),
                          wmiCondition("Win32_Service", "StartMode", "string", "!=", "Disabled")};
    whenModalShown([](QWidget *modal) { finishWizard(modal, "Spooler", 2, true); });
    QCOMPARE(ctrl.ShowWMIRuleWzd(&store), short(1));

    editors.wqlAnswers = {wqlCount("*", "Win32_Process", " Name = 'notepad.exe'", "=", "0")};
    whenModalShown([](QWidget *modal) { finishWizard(modal, "No notepad", 1, false); });
    QCOMPARE(ctrl.ShowWQLRuleWzd(&store), short(1));

    // A wizard cancelled halfway stores nothing.
    whenModalShown([](QWidget *modal) { qobject_cast<QDialog *>(modal)->reject(); });
    QCOMPARE(ctrl.ShowWMIRuleWzd(&store), short(2));

    ctrl.RefreshList();
    QCOMPARE(model->rowCount(), 2);
    const int wmiRow = rowNamed(model, "Spooler");
    const int wqlRow = rowNamed(model, "No notepad");
    QVERIFY(wmiRow >= 0 && wqlRow >= 0);
    const int wmiId = model->row(wmiRow).ruleId;
    const int wqlId = model->row(wqlRow).ruleId;
    QVERIFY(wmiId != wqlId && wmiId >= 0 && wmiId <= 32767);

    // The conditions show below the list, as stored.
    up->ruleList()->setCurrentIndex(model->index(wmiRow, 0));
    QTRY_COMPARE(down->detailList()->topLevelItemCount(), 2);
    QVERIFY(details(down).contains("StartMode"));
    QCOMPARE(stored(&store, wmiId), QStringList({"Spooler:0:0:State", "Spooler:0:2:StartMode"}));
    up->ruleList()->setCurrentIndex(model->index(wqlRow, 0));
    QTRY_COMPARE(down->detailList()->topLevelItemCount(), 1);
    QVERIFY(details(down).contains("SELECT * FROM Win32_Process WHERE Name = 'notepad.exe'"));

    // Properties from the list: rename the WQL rule and give it a second condition.
    editors.wqlAnswers = {wqlCondition("Name", "Win32_Service", "", "Started", "boolean", "=", "TRUE")};
    whenModalShown([](QWidget *modal) {
        QCOMPARE(modal->windowTitle(), QStringLiteral("Properties"));
        QCOMPARE(modal->findChild<QTabWidget *>("sheetTabs")->tabText(1), QStringLiteral("WQL"));
        QCOMPARE(modal->findChild<QLineEdit *>("nameEdit")->text(), QStringLiteral("No notepad"));
        modal->findChild<QLineEdit *>("nameEdit")->setText("Notepad closed");
        modal->findChild<QPushButton *>("addButton")->click();
        modal->findChild<QPushButton *>("okButton")->click();
    });
    up->openProperties();
    QTRY_COMPARE(rowNamed(model, "Notepad closed") >= 0, true);
    QCOMPARE(rowNamed(model, "No notepad"), -1);
    QCOMPARE(model->row(rowNamed(model, "Notepad closed")).ruleId, wqlId); // the id stays

    // A rename onto a taken name is refused and changes nothing.
    MessageCatcher messages;
    whenModalShown([](QWidget *modal) {
        modal->findChild<QLineEdit *>("nameEdit")->setText("Spooler");
        modal->findChild<QPushButton *>("okButton")->click();
        QVERIFY(modal->isVisible());
        modal->findChild<QPushButton *>("cancelButton")->click();
    });
    QCOMPARE(ctrl.ShowWQLProperties(&store, short(wqlId)), short(2));
    QCOMPARE(messages.texts(),
             QStringList({"There is already a rule with the same name. Please enter a different name."}));

    // Changing only the case is a rename of its own.
    whenModalShown([](QWidget *modal) {
        modal->findChild<QLineEdit *>("nameEdit")->setText("SPOOLER");
        modal->findChild<QPushButton *>("okButton")->click();
    });
    QCOMPARE(ctrl.ShowWMIProperties(&store, short(wmiId)), short(1));
    ctrl.RefreshList();
    QVERIFY(rowNamed(model, "SPOOLER") >= 0);
    QCOMPARE(stored(&store, wqlId), QStringList({"Notepad closed:1:0:#Count", "Notepad closed:1:1:Started"}));

    // Deleted from the list, both are gone from the store.
    for (const QString &name : {QStringLiteral("SPOOLER"), QStringLiteral("Notepad closed")}) {
        up->ruleList()->setCurrentIndex(model->index(rowNamed(model, name), 0));
        up->deleteSelectedRule();
        QCOMPARE(rowNamed(model, name), -1);
    }
    ctrl.RefreshList();
    QCOMPARE(model->rowCount(), 0);
    QVERIFY(store.isEmpty());
}

QTEST_MAIN(TestWmiRuleEndToEnd)
#include "tst_wmiruleend2end.moc"
