// What the NAQC rule sheet sends to the data service on Finish and on OK, call by call, and where
// it stops when a call fails.

#include "control/modulestate.h"
#include "control/qarvoctrl.h"
#include "control/sheets.h"
#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "dialogdriver.h"
#include "naqcrule/cmsprofile.h"
#include "naqcrule/rqcrulesheet.h"
#include "recordingservice.h"

#include <QDialogButtonBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QWizard>
#include <QtTest>

#include <memory>

using namespace qarvo;
using namespace qarvo::test;

namespace {

constexpr qint64 kSecond = 1700000000;

CmsProfile sampleProfile()
{
    return {QStringLiteral("Corp VPN"),
            {{"a.cmd", "Pre-Connect Actions", "first"},
             {"b.cmd", "Pre-Connect Actions", ""},
             {"c.cmd", "Connect Actions", "third"},
             {"d.cmd", "On-Error Actions", ""},
             {"e.cmd", "On-Error Actions", "fifth"}}};
}
const QList<int> kChecked = {1, 2, 4};

QString idAt(qint64 second)
{
    RuleIdGenerator generator([second] { return second; });
    return ruleIdText(generator.draw());
}

// A wizard brought to its Final page with the sample profile and three checked scripts.
std::unique_ptr<CRQCRuleSheet> wizardAtFinal(DataService *service)
{
    auto sheet = std::make_unique<CRQCRuleSheet>(nullptr, CRQCRuleSheet::Wizard);
    sheet->record().service = service;
    auto *wizard = qobject_cast<QWizard *>(sheet->dialog());
    wizard->show();
    sheet->page1()->nameEdit()->setText(QStringLiteral("Quarantine"));
    sheet->page1()->commentEdit()->setText(QStringLiteral("remote users"));
    wizard->next();
    sheet->page2()->showProfile(sampleProfile());
    for (int row : kChecked)
        sheet->page2()->scriptList()->topLevelItem(row)->setCheckState(0, Qt::Checked);
    wizard->next();
    return sheet;
}

QStringList storeCalls(const QString &id)
{
    const QString sel = QStringLiteral("\"Corp VPN\",0,\"1\",0,0,\"0\",0,0,0,\"1\"");
    return {"AddRQCScript(text:" + id + ", short:0, text:a.cmd, text:Pre-Connect Actions, text:first, short:0)",
            "AddRQCScript(text:" + id + ", short:1, text:b.cmd, text:Pre-Connect Actions, text:, short:1)",
            "AddRQCScript(text:" + id + ", short:2, text:c.cmd, text:Connect Actions, text:third, short:1)",
            "AddRQCScript(text:" + id + ", short:3, text:d.cmd, text:On-Error Actions, text:, short:0)",
            "AddRQCScript(text:" + id + ", short:4, text:e.cmd, text:On-Error Actions, text:fifth, short:1)",
            "AddRQCRule(text:" + id + ", text:Quarantine, text:Corp VPN, text:remote users, text:" + sel + ")"};
}

void scriptStoredRule(RecordingService &service, const QString &name = QStringLiteral("Quarantine"))
{
    service.scriptOnce("GetRQCRuleInfo",
                       ScriptedReply::table({"rule_name", "rule_servicename", "rule_comment"},
                                            {{name, "Corp VPN", "remote users"}}));
    QList<QVariantList> rows;
    const CmsProfile p = sampleProfile();
    for (int i = 0; i < p.rows.size(); ++i)
        rows.append({kChecked.contains(i) ? 1 : 0, p.rows[i].scriptFile, p.rows[i].actionType,
                     p.rows[i].comment});
    service.scriptOnce("GetRQCRuleScriptInfo",
                       ScriptedReply::table({"rule_select", "rule_script", "rule_scriptact",
                                             "rule_comment"},
                                            rows));
}

QPushButton *okButton(CRQCRuleSheet &sheet)
{
    return sheet.dialog()->findChild<QDialogButtonBox *>("buttonBox")->button(QDialogButtonBox::Ok);
}

} // namespace

class TestRQCSubmit : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void selectionText();
    void finishSendsTheRule();
    void finishRetriesATakenIdUntilTheClockMoves();
    void finishStopsAtAFailedCall();
    void finishWithNothingImported();
    void okWithoutRenameDeletesAndStoresAgain();
    void okWithRenameChecksAndPropagates_data();
    void okWithRenameChecksAndPropagates();
    void okRefusesATakenName();
    void okStopsAtAFailedCall();
    void controlReturnsTwoWhenCancelledOneWhenFinished();

private:
    RecordingService m_service;
    CqarvoCtrl m_ctrl;
    qint64 m_now = kSecond;
};

void TestRQCSubmit::init()
{
    m_service.clear();
    m_now = kSecond;
    ruleIdClock() = [this] { return m_now; };
    m_service.script("CanUseID", ScriptedReply::answer(qint16(0)));
    m_service.script("CanUseExRuleName", ScriptedReply::answer(qint16(0)));
    m_ctrl.ShowPane(&m_service, QString(), 1, 0);
    resetModalSafetyNet();
}

void TestRQCSubmit::cleanup()
{
    resetRuleIdClock();
    resetSheetRoutes();
    QVERIFY(!modalSafetyNetFired());
}

void TestRQCSubmit::selectionText()
{
    RQCRuleRecord r;
    r.serviceName = QStringLiteral("Svc, \"odd\"");
    QCOMPARE(rqcScriptSelectionText(r), QStringLiteral("\"Svc, \"odd\"\",0,0,0,0,0,0,0,0,0"));
    r.serviceName = QStringLiteral("S");
    r.scripts = {{"x", "Pre-Init Actions", "", 1},    {"y", "Pre-Connect Actions", "", 0},
                 {"z", "Pre-Connect Actions", "", 1}, {"w", "Pre-Init Actions", "", 0},
                 {"v", "Pre-Init Actions", "", 1},    {"u", "Not A Section", "", 1},
                 {"t", "connect actions", "", 1}};
    // Indexes count every entry of the section, selected or not, in list order.
    QCOMPARE(rqcScriptSelectionText(r), QStringLiteral("\"S\",\"0:2\",\"1\",0,0,0,0,0,0,0"));
}

void TestRQCSubmit::finishSendsTheRule()
{
    auto sheet = wizardAtFinal(&m_service);
    m_service.clear();
    m_service.scriptOnce("CanUseID", ScriptedReply::answer(true));
    qobject_cast<QWizard *>(sheet->dialog())->button(QWizard::FinishButton)->click();

    const QString id = idAt(kSecond);
    QVERIFY(id.startsWith(QStringLiteral("0000")));
    QCOMPARE(id.size(), 9);
    QCOMPARE(m_service.signatures(),
             QStringList({"CanUseID(text:" + id + ", short:5)", "CanUseID(text:" + id + ", short:5)"})
                 + storeCalls(id));
    QCOMPARE(sheet->record().ruleId, id);
    QCOMPARE(sheet->dialog()->result(), int(QDialog::Accepted));
    QVERIFY(!sheet->dialog()->isVisible());
}

void TestRQCSubmit::finishRetriesATakenIdUntilTheClockMoves()
{
    auto sheet = wizardAtFinal(&m_service);
    m_service.clear();
    // Taken three times; the clock moves on after the second refusal only.
    int asked = 0;
    struct Answering : DataService
    {
        DataService *inner;
        std::function<void()> onCanUseId;
        Reply call(const QString &m, const ArgList &a) override
        {
            if (m == QLatin1String("CanUseID"))
                onCanUseId();
            return inner->call(m, a);
        }
    } answering;
    answering.inner = &m_service;
    answering.onCanUseId = [&] {
        if (++asked == 2)
            m_now += 1;
    };
    for (int i = 0; i < 3; ++i)
        m_service.scriptOnce("CanUseID", ScriptedReply::answer(qint16(-1)));
    sheet->record().service = &answering;
    QVERIFY(sheet->finish());
    const QStringList expected = {"CanUseID(text:" + idAt(kSecond) + ", short:5)",
                                  "CanUseID(text:" + idAt(kSecond) + ", short:5)",
                                  "CanUseID(text:" + idAt(kSecond + 1) + ", short:5)",
                                  "CanUseID(text:" + idAt(kSecond + 1) + ", short:5)"};
    QCOMPARE(m_service.signatures().mid(0, 4), expected);
    QCOMPARE(sheet->record().ruleId, idAt(kSecond + 1));
    QCOMPARE(m_service.methods().count("AddRQCScript"), 5);
}

void TestRQCSubmit::finishStopsAtAFailedCall()
{
    const QString id = idAt(kSecond);
    const QStringList all = QStringList{"CanUseID(text:" + id + ", short:5)"} + storeCalls(id);
    for (int failAt = 0; failAt < all.size(); ++failAt) {
        RecordingService service;
        service.script("CanUseID", ScriptedReply::answer(qint16(0)));
        auto sheet = wizardAtFinal(&service);
        service.failCall(failAt);
        auto *wizard = qobject_cast<QWizard *>(sheet->dialog());
        wizard->button(QWizard::FinishButton)->click();
        QCOMPARE(service.signatures(), all.mid(0, failAt + 1));
        QVERIFY2(wizard->isVisible(), qPrintable(all[failAt]));
        QCOMPARE(wizard->currentPage(), sheet->page3());
    }
    // A name the service does not know fails the same way, before anything is sent.
    RecordingService noRule;
    noRule.forgetMethod("AddRQCRule");
    auto sheet = wizardAtFinal(&noRule);
    QVERIFY(!sheet->finish());
    QCOMPARE(noRule.methods().count("AddRQCScript"), 5);
}

void TestRQCSubmit::finishWithNothingImported()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    auto *wizard = qobject_cast<QWizard *>(sheet.dialog());
    wizard->show();
    sheet.page1()->nameEdit()->setText(QStringLiteral("Bare"));
    wizard->next();
    wizard->next();
    QVERIFY(sheet.page3()->summaryText().endsWith(QStringLiteral("+ Script :\r\n")));
    wizard->button(QWizard::FinishButton)->click();
    const QString id = idAt(kSecond);
    QCOMPARE(m_service.signatures(),
             QStringList({"CanUseID(text:" + id + ", short:5)",
                          "AddRQCRule(text:" + id + ", text:Bare, text:, text:, text:\"\",0,0,0,0,0,0,0,0,0)"}));
    QVERIFY(!wizard->isVisible());
}

void TestRQCSubmit::okWithoutRenameDeletesAndStoresAgain()
{
    scriptStoredRule(m_service);
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 1234);
    sheet.dialog()->show();
    m_service.clear();
    QTest::mouseClick(okButton(sheet), Qt::LeftButton);
    QCOMPARE(m_service.signatures(),
             QStringList{"DelRQCRule(text:000001234, short:2)"} + storeCalls("000001234"));
    QCOMPARE(sheet.dialog()->result(), int(QDialog::Accepted));
}

void TestRQCSubmit::okWithRenameChecksAndPropagates_data()
{
    QTest::addColumn<QString>("newName");
    QTest::newRow("new name") << "Renamed";
    QTest::newRow("letter case only") << "quarantine";
}

void TestRQCSubmit::okWithRenameChecksAndPropagates()
{
    QFETCH(QString, newName);
    scriptStoredRule(m_service);
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 12);
    sheet.dialog()->show();
    sheet.page1()->nameEdit()->setText(newName);
    sheet.page2()->scriptList()->topLevelItem(0)->setCheckState(0, Qt::Checked);
    m_service.clear();
    QTest::mouseClick(okButton(sheet), Qt::LeftButton);
    const QStringList sent = m_service.signatures();
    QCOMPARE(sent.mid(0, 3),
             QStringList({"CanUseExRuleName(text:" + newName + ", short:5)",
                          "UpdateExRuleNameInRule(text:Quarantine, text:" + newName + ", short:5)",
                          "DelRQCRule(text:000000012, short:2)"}));
    QCOMPARE(sent[3], QStringLiteral("AddRQCScript(text:000000012, short:0, text:a.cmd, "
                                     "text:Pre-Connect Actions, text:first, short:1)"));
    QCOMPARE(sent.last(), "AddRQCRule(text:000000012, text:" + newName
                              + ", text:Corp VPN, text:remote users, "
                                "text:\"Corp VPN\",0,\"0:1\",0,0,\"0\",0,0,0,\"1\")");
    QVERIFY(!sheet.dialog()->isVisible());
}

void TestRQCSubmit::okRefusesATakenName()
{
    scriptStoredRule(m_service);
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 12);
    sheet.dialog()->show();
    sheet.page1()->nameEdit()->setText(QStringLiteral("Taken"));
    m_service.clear();
    m_service.scriptOnce("CanUseExRuleName", ScriptedReply::answer(qint16(-1)));
    MessageCatcher messages;
    QTest::mouseClick(okButton(sheet), Qt::LeftButton);
    QCOMPARE(m_service.signatures(), QStringList({"CanUseExRuleName(text:Taken, short:5)"}));
    QCOMPARE(messages.messages.size(), 1);
    QCOMPARE(messages.messages[0].caption, QStringLiteral("INFO"));
    QCOMPARE(messages.messages[0].icon, ui::MessageIcon::Information);
    QCOMPARE(messages.messages[0].text,
             QStringLiteral("There is already a rule with the same name. Please enter a different name."));
    QVERIFY(sheet.dialog()->isVisible());
}

void TestRQCSubmit::okStopsAtAFailedCall()
{
    const QString id = QStringLiteral("000000012");
    const QStringList all = QStringList{"CanUseExRuleName(text:Renamed, short:5)",
                                        "UpdateExRuleNameInRule(text:Quarantine, text:Renamed, short:5)",
                                        "DelRQCRule(text:" + id + ", short:2)"}
                            + storeCalls(id).replaceInStrings("text:Quarantine", "text:Renamed");
    for (int failAt = 0; failAt < all.size(); ++failAt) {
        RecordingService service;
        scriptStoredRule(service);
        m_ctrl.ShowPane(&service, QString(), 1, 0);
        CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 12);
        sheet.dialog()->show();
        sheet.page1()->nameEdit()->setText(QStringLiteral("Renamed"));
        service.clear();
        service.failCall(failAt); // counted from the clear above
        QTest::mouseClick(okButton(sheet), Qt::LeftButton);
        QCOMPARE(service.signatures(), all.mid(0, failAt + 1));
        // Before the delete the sheet stays; once the rule is gone it closes whatever happens.
        QCOMPARE(sheet.dialog()->isVisible(), failAt < 3);
    }
    m_ctrl.ShowPane(&m_service, QString(), 1, 0);
}

void TestRQCSubmit::controlReturnsTwoWhenCancelledOneWhenFinished()
{
    whenModalShown([](QWidget *modal) { qobject_cast<QDialog *>(modal)->reject(); });
    QCOMPARE(m_ctrl.ShowRQCRuleWzd(&m_service), short(2));
    QVERIFY(m_service.calls().isEmpty());

    whenModalShown([](QWidget *modal) {
        auto *wizard = qobject_cast<QWizard *>(modal);
        QVERIFY(wizard);
        QCOMPARE(wizard->windowTitle(), QStringLiteral("Add NAQC Rule Wizard"));
        QTest::keyClicks(wizard->findChild<QLineEdit *>("ruleNameEdit"), QStringLiteral("N"));
        wizard->next();
        wizard->next();
        wizard->button(QWizard::FinishButton)->click();
    });
    QCOMPARE(m_ctrl.ShowRQCRuleWzd(&m_service), short(1));
    QCOMPARE(m_service.methods(), QStringList({"CanUseID", "AddRQCRule"}));

    scriptStoredRule(m_service);
    whenModalShown([](QWidget *modal) {
        QCOMPARE(modal->windowTitle(), QStringLiteral("NAQCRule Properties"));
        modal->findChild<QDialogButtonBox *>("buttonBox")->button(QDialogButtonBox::Ok)->click();
    });
    m_service.clear();
    QCOMPARE(m_ctrl.ShowRQCProperties(nullptr, 5), short(1));
    QCOMPARE(m_service.methods().first(), QStringLiteral("GetRQCRuleInfo"));
    QCOMPARE(m_service.methods().last(), QStringLiteral("AddRQCRule"));
}

QTEST_MAIN(TestRQCSubmit)
#include "tst_rqcsubmit.moc"
