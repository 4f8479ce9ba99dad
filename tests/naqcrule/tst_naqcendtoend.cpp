// A NAQC rule's whole life on a real SQLite store, driven the way the console drives the control:
// import a profile in the wizard, pick scripts, finish, see the rule and its chosen scripts in
// the browser, then rename it and change the pick in the property sheet.

#include "browser/panedown.h"
#include "browser/paneup.h"
#include "browser/splitdlg.h"
#include "control/qarvoctrl.h"
#include "dataservice/calls.h"
#include "dialogdriver.h"
#include "rulestore/sqlrulestore.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QWizard>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

namespace {

QStringList columnTexts(QTreeWidget *list, int column)
{
    QStringList out;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        out << list->topLevelItem(i)->text(column);
    return out;
}

QStringList listNames(CPaneUP *pane)
{
    QStringList out;
    QAbstractItemModel *model = pane->ruleList()->model();
    for (int r = 0; r < model->rowCount(); ++r)
        out << model->index(r, 0).data().toString();
    return out;
}

} // namespace

class TestNaqcEndToEnd : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void createShowRenameOnSQLite();
};

void TestNaqcEndToEnd::createShowRenameOnSQLite()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    SqlRuleStore store;
    QVERIFY2(store.open(dir.filePath("rules.sqlite")), qPrintable(store.lastError()));

    const QString profilePath = dir.filePath("corp.cms");
    {
        QFile f(profilePath);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("[Connection Manager]\r\nServiceName=Corp VPN\r\n"
                "[Connect Actions]\r\n0=%PROFILEDIR%\\quarantine.cmd /v\r\n0&Description=Quarantine\r\n"
                "[Pre-Connect Actions]\r\n0=%PROFILEDIR%\\precheck.exe\r\n"
                "1=%PROFILEDIR%\\patch.cmd\r\n1&Description=Patch level\r\n");
    }

    CqarvoCtrl ctrl;
    ctrl.resize(800, 600);
    ctrl.show();
    ctrl.setViewType(5);
    ctrl.ShowPane(&store, QString(), 1, 0);
    CPaneUP *up = ctrl.splitDialog()->paneUp();
    CPaneDown *down = ctrl.splitDialog()->paneDown();
    QVERIFY(listNames(up).isEmpty());

    FileDialogAnswer answer({profilePath});
    whenModalShown([](QWidget *modal) {
        auto *wizard = qobject_cast<QWizard *>(modal);
        QVERIFY(wizard);
        QTest::keyClicks(wizard->findChild<QLineEdit *>("ruleNameEdit"), QStringLiteral("VPN quarantine"));
        QTest::keyClicks(wizard->findChild<QLineEdit *>("commentEdit"), QStringLiteral("remote users"));
        wizard->next();
        QTest::mouseClick(wizard->findChild<QPushButton *>("importButton"), Qt::LeftButton);
        auto *list = wizard->findChild<QTreeWidget *>("scriptList");
        QCOMPARE(list->topLevelItemCount(), 3);
        list->topLevelItem(1)->setCheckState(0, Qt::Checked); // patch.cmd
        list->topLevelItem(2)->setCheckState(0, Qt::Checked); // quarantine.cmd
        wizard->next();
        wizard->button(QWizard::FinishButton)->click();
    });
    QCOMPARE(ctrl.ShowRQCRuleWzd(&store), short(1));
    QVERIFY(!modalSafetyNetFired());

    // The sheet does not refresh the list; the host does.
    ctrl.RefreshList();
    QCOMPARE(listNames(up), QStringList({"VPN quarantine"}));
    up->ruleList()->setCurrentIndex(up->ruleList()->model()->index(0, 0));
    QTRY_COMPARE(down->detailList()->topLevelItemCount(), 2);
    QStringList shown = columnTexts(down->detailList(), 0);
    shown.sort();
    QCOMPARE(shown, QStringList({"patch.cmd", "quarantine.cmd"}));

    int ruleId = -1;
    {
        Reply rules = calls::GetRQCRule(&store);
        forEachRow(rules, [&](RowReader &row) { ruleId = ruleIdFromText(row.text("rule_id")); });
    }
    QVERIFY(ruleId >= 0 && ruleId <= 32767);

    whenModalShown([](QWidget *modal) {
        QCOMPARE(modal->windowTitle(), QStringLiteral("NAQCRule Properties"));
        auto *name = modal->findChild<QLineEdit *>("ruleNameEdit");
        QCOMPARE(name->text(), QStringLiteral("VPN quarantine"));
        QCOMPARE(modal->findChild<QLineEdit *>("serviceNameEdit")->text(), QStringLiteral("Corp VPN"));
        auto *list = modal->findChild<QTreeWidget *>("scriptList");
        QCOMPARE(columnTexts(list, 0), QStringList({"precheck.exe", "patch.cmd", "quarantine.cmd"}));
        QCOMPARE(list->topLevelItem(1)->checkState(0), Qt::Checked);
        list->topLevelItem(1)->setCheckState(0, Qt::Unchecked);
        name->setText(QStringLiteral("VPN quarantine 2"));
        modal->findChild<QDialogButtonBox *>("buttonBox")->button(QDialogButtonBox::Ok)->click();
    });
    QCOMPARE(ctrl.ShowRQCProperties(nullptr, short(ruleId)), short(1));
    QVERIFY(!modalSafetyNetFired());

    ctrl.RefreshList();
    QCOMPARE(listNames(up), QStringList({"VPN quarantine 2"}));
    up->ruleList()->setCurrentIndex(up->ruleList()->model()->index(0, 0));
    QTRY_COMPARE(columnTexts(down->detailList(), 0), QStringList({"quarantine.cmd"}));

    // Stored again under the same id, with every script entry and the new pick.
    Reply info = calls::GetRQCRuleInfo(&store, ruleIdText(ruleId));
    QString storedName;
    forEachRow(info, [&](RowReader &row) { storedName = row.text("rule_name"); });
    QCOMPARE(storedName, QStringLiteral("VPN quarantine 2"));
    Reply scripts = calls::GetRQCRuleScriptInfo(&store, ruleIdText(ruleId));
    QStringList picks;
    forEachRow(scripts, [&](RowReader &row) {
        picks << row.text("rule_script") + u'=' + QString::number(row.integer("rule_select"));
    });
    QCOMPARE(picks, QStringList({"precheck.exe=0", "patch.cmd=0", "quarantine.cmd=1"}));
}

QTEST_MAIN(TestNaqcEndToEnd)
#include "tst_naqcendtoend.moc"
