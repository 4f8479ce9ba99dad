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

QStringList firstColumn(QTreeWidget *list)
{
    QStringList out;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        out << list->topLevelItem(i)->text(0);
    return out;
}

// Refreshes the rule list, selects its first rule and answers the names listed.
QStringList refreshAndSelect(CqarvoCtrl &ctrl)
{
    ctrl.RefreshList();
    QAbstractItemView *view = ctrl.splitDialog()->paneUp()->ruleList();
    QStringList names;
    for (int r = 0; r < view->model()->rowCount(); ++r)
        names << view->model()->index(r, 0).data().toString();
    view->setCurrentIndex(view->model()->index(0, 0));
    return names;
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
    SqlRuleStore store;
    QVERIFY2(store.open(dir.filePath("rules.sqlite")), qPrintable(store.lastError()));
    QFile profile(dir.filePath("corp.cms"));
    QVERIFY(profile.open(QIODevice::WriteOnly));
    profile.write("[Connection Manager]\r\nServiceName=Corp VPN\r\n"
                  "[Connect Actions]\r\n0=%PROFILEDIR%\\quarantine.cmd /v\r\n0&Description=Quarantine\r\n"
                  "[Pre-Connect Actions]\r\n0=%PROFILEDIR%\\precheck.exe\r\n"
                  "1=%PROFILEDIR%\\patch.cmd\r\n1&Description=Patch level\r\n");
    profile.close();

    CqarvoCtrl ctrl;
    ctrl.resize(800, 600);
    ctrl.show();
    ctrl.setViewType(5);
    ctrl.ShowPane(&store, QString(), 1, 0);
    QTreeWidget *details = ctrl.splitDialog()->paneDown()->detailList();

    FileDialogAnswer answer({profile.fileName()});
    whenModalShown([](QWidget *wizard) {
        QTest::keyClicks(wizard->findChild<QLineEdit *>("ruleNameEdit"), QStringLiteral("VPN quarantine"));
        QTest::keyClicks(wizard->findChild<QLineEdit *>("commentEdit"), QStringLiteral("remote users"));
        qobject_cast<QWizard *>(wizard)->next();
        QTest::mouseClick(wizard->findChild<QPushButton *>("importButton"), Qt::LeftButton);
        auto *list = wizard->findChild<QTreeWidget *>("scriptList");
        QCOMPARE(firstColumn(list), QStringList({"precheck.exe", "patch.cmd", "quarantine.cmd"}));
        list->topLevelItem(1)->setCheckState(0, Qt::Checked);
        list->topLevelItem(2)->setCheckState(0, Qt::Checked);
        qobject_cast<QWizard *>(wizard)->next();
        qobject_cast<QWizard *>(wizard)->button(QWizard::FinishButton)->click();
    });
    QCOMPARE(ctrl.ShowRQCRuleWzd(&store), short(1));
    QVERIFY(!modalSafetyNetFired());

    // The sheet does not refresh the list; the host does. Below the rule, its chosen scripts.
    QCOMPARE(refreshAndSelect(ctrl), QStringList({"VPN quarantine"}));
    QTRY_COMPARE(details->topLevelItemCount(), 2);
    QStringList shown = firstColumn(details);
    shown.sort();
    QCOMPARE(shown, QStringList({"patch.cmd", "quarantine.cmd"}));

    int ruleId = -1;
    Reply rules = calls::GetRQCRule(&store);
    forEachRow(rules, [&](RowReader &row) { ruleId = ruleIdFromText(row.text("rule_id")); });
    QVERIFY(ruleId >= 0 && ruleId <= 32767);

    whenModalShown([](QWidget *modal) {
        auto *name = modal->findChild<QLineEdit *>("ruleNameEdit");
        QCOMPARE(name->text(), QStringLiteral("VPN quarantine"));
        QCOMPARE(modal->findChild<QLineEdit *>("serviceNameEdit")->text(), QStringLiteral("Corp VPN"));
        auto *list = modal->findChild<QTreeWidget *>("scriptList");
        QCOMPARE(list->topLevelItem(1)->checkState(0), Qt::Checked);
        list->topLevelItem(1)->setCheckState(0, Qt::Unchecked);
        name->setText(QStringLiteral("VPN quarantine 2"));
        modal->findChild<QDialogButtonBox *>("buttonBox")->button(QDialogButtonBox::Ok)->click();
    });
    QCOMPARE(ctrl.ShowRQCProperties(nullptr, short(ruleId)), short(1));
    QVERIFY(!modalSafetyNetFired());

    QCOMPARE(refreshAndSelect(ctrl), QStringList({"VPN quarantine 2"}));
    QTRY_COMPARE(firstColumn(details), QStringList({"quarantine.cmd"}));
    // Stored again under the same id, with every script entry and the new pick.
    Reply scripts = calls::GetRQCRuleScriptInfo(&store, ruleIdText(ruleId));
    QStringList picks;
    forEachRow(scripts, [&](RowReader &row) {
        picks << row.text("rule_script") + u'=' + QString::number(row.integer("rule_select"));
    });
    QCOMPARE(picks, QStringList({"precheck.exe=0", "patch.cmd=0", "quarantine.cmd=1"}));
}

QTEST_MAIN(TestNaqcEndToEnd)
#include "tst_naqcendtoend.moc"
