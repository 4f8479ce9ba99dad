// The NAQC rule sheet as an administrator meets it (titles, the name rule, importing a profile,
// good and bad, the record and the summary) and what it sends to the data service on Finish and
// on OK, call by call, with where it stops when a call fails.

#include "control/qarvoctrl.h"
#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "dialogdriver.h"
#include "naqcrule/rqcrulesheet.h"
#include "recordingservice.h"
#include "resources/images.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QWizard>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

namespace {

constexpr qint64 kSecond = 1700000000;

const QByteArray kProfileFile = "[Connection Manager]\r\nServiceName=Corp VPN\r\n"
                                "[Connect Actions]\r\n0=%PROFILEDIR%\\quarantine.cmd /v\r\n"
                                "0&Description=Quarantine check\r\n"
                                "[Pre-Connect Actions]\r\n0=%PROFILEDIR%\\precheck.exe\r\n"
                                "1=C:\\Tools\\check.exe /q\r\n1&Description=Tools check\r\n";
// The rows it gives, sections in their fixed order whatever the file says, and the ones checked
// on the way to Final.
const QList<QStringList> kRows = {{"precheck.exe", "Pre-Connect Actions", ""},
                                  {"Tools", "Pre-Connect Actions", "Tools check"},
                                  {"quarantine.cmd", "Connect Actions", "Quarantine check"}};
const QList<int> kChecked = {0, 2};

// Rows as "script|action|comment|x" (x when checked), the way rows() shows the list.
QStringList expectedRows(const QList<int> &checked)
{
    QStringList out;
    for (int i = 0; i < kRows.size(); ++i)
        out << kRows[i].join(u'|') + (checked.contains(i) ? "|x" : "|");
    return out;
}

QStringList rows(QTreeWidget *list)
{
    QStringList out;
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        const QTreeWidgetItem *item = list->topLevelItem(i);
        out << QStringList({item->text(0), item->text(1), item->text(2),
                            item->checkState(0) == Qt::Checked ? "x" : ""}).join(u'|');
    }
    return out;
}

QString idAt(qint64 second)
{
    RuleIdGenerator generator([second] { return second; });
    return ruleIdText(generator.draw());
}

QWizard *wizardOf(const CRQCRuleSheet &sheet)
{
    return qobject_cast<QWizard *>(sheet.dialog());
}

QPushButton *okButton(const CRQCRuleSheet &sheet)
{
    return sheet.dialog()->findChild<QDialogButtonBox *>("buttonBox")->button(QDialogButtonBox::Ok);
}

QStringList shown(const ui::MessageRecord &m)
{
    return {m.caption, m.text, m.icon == ui::MessageIcon::Critical ? "critical" : "information"};
}

QStringList storeCalls(const QString &id, const QString &name = QStringLiteral("Quarantine"))
{
    QStringList calls;
    for (int i = 0; i < kRows.size(); ++i)
        calls << QStringLiteral("AddRQCScript(text:%1, short:%2, text:%3, short:%4)")
                     .arg(id).arg(i).arg(kRows[i].join(QStringLiteral(", text:")))
                     .arg(kChecked.contains(i) ? 1 : 0);
    return calls << "AddRQCRule(text:" + id + ", text:" + name + ", text:Corp VPN, text:remote users, "
                        "text:\"Corp VPN\",0,\"0\",0,0,\"0\",0,0,0,0)";
}

// The stored rule the property sheet loads: the one Final would store, or `scripts` instead of
// its entries.
void scriptStoredRule(RecordingService &service, std::optional<ScriptedReply> scripts = {})
{
    service.scriptOnce("GetRQCRuleInfo",
                       ScriptedReply::table({"rule_name", "rule_servicename", "rule_comment"},
                                            {{"Quarantine", "Corp VPN", "remote users"},
                                             {"Second", "ignored", "ignored"}}));
    QList<QVariantList> table;
    for (int i = 0; i < kRows.size(); ++i)
        table.append({kChecked.contains(i) ? 1 : 0, kRows[i][0], kRows[i][1], kRows[i][2]});
    service.scriptOnce("GetRQCRuleScriptInfo",
                       scripts ? *scripts
                               : ScriptedReply::table({"rule_select", "rule_script",
                                                       "rule_scriptact", "rule_comment"},
                                                      table));
}

} // namespace

class TestRQCRuleSheet : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void wizardFrameAndNameRule();
    void importFillsTheList();
    void badInputLeavesThePageAsItWas();
    void leavingCmProfileRebuildsTheRecord();
    void selectionText();
    void finishStopsAtAFailedCall();
    void cancelEndsAnEndlessIdSearch();
    void propertiesFrameAndLoad();
    void scriptLoadGovernsOk_data();
    void scriptLoadGovernsOk();
    void okRefusesATakenName();
    void okStopsAtAFailedCall_data();
    void okStopsAtAFailedCall();
    void screenshots();

private:
    QString writeFile(const QString &name, const QByteArray &bytes);
    void import(CRQCRulePage2 *page, const QByteArray &bytes);
    // A wizard brought to its Final page with the profile imported and two scripts checked.
    std::unique_ptr<CRQCRuleSheet> wizardAtFinal(DataService *service);
    QTemporaryDir m_dir;
    RecordingService m_service;
    CqarvoCtrl m_ctrl;
};

void TestRQCRuleSheet::init()
{
    m_service.clear();
    ruleIdClock() = [] { return kSecond; };
    m_service.script("CanUseID", ScriptedReply::answer(qint16(0)));
    m_service.script("CanUseExRuleName", ScriptedReply::answer(qint16(0)));
    // The sheets take the service the control holds; ShowPane with no view type sets just that.
    m_ctrl.ShowPane(&m_service, QString(), 1, 0);
    resetModalSafetyNet();
}

void TestRQCRuleSheet::cleanup()
{
    resetRuleIdClock();
    QVERIFY(!modalSafetyNetFired());
}

QString TestRQCRuleSheet::writeFile(const QString &name, const QByteArray &bytes)
{
    QFile f(m_dir.filePath(name));
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(name));
    return f.fileName();
}

void TestRQCRuleSheet::import(CRQCRulePage2 *page, const QByteArray &bytes)
{
    FileDialogAnswer answer({writeFile("import.cms", bytes)});
    QTest::mouseClick(page->importButton(), Qt::LeftButton);
}

std::unique_ptr<CRQCRuleSheet> TestRQCRuleSheet::wizardAtFinal(DataService *service)
{
    auto sheet = std::make_unique<CRQCRuleSheet>(nullptr, CRQCRuleSheet::Wizard);
    sheet->record().service = service;
    wizardOf(*sheet)->show();
    QTest::keyClicks(sheet->page1()->nameEdit(), QStringLiteral("Quarantine"));
    QTest::keyClicks(sheet->page1()->commentEdit(), QStringLiteral("remote users"));
    wizardOf(*sheet)->next();
    import(sheet->page2(), kProfileFile);
    for (int row : kChecked)
        sheet->page2()->scriptList()->topLevelItem(row)->setCheckState(0, Qt::Checked);
    wizardOf(*sheet)->next();
    return sheet;
}

void TestRQCRuleSheet::wizardFrameAndNameRule()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    QWizard *wizard = wizardOf(sheet);
    QCOMPARE(wizard->windowTitle(), QStringLiteral("Add NAQC Rule Wizard"));
    QCOMPARE(wizard->wizardStyle(), QWizard::ModernStyle);
    QVERIFY(!wizard->pixmap(QWizard::LogoPixmap).isNull());
    QStringList headers;
    for (QWizardPage *page : std::initializer_list<QWizardPage *>{sheet.page1(), sheet.page2(), sheet.page3()})
        headers << page->title() << page->subTitle();
    QCOMPARE(headers, QStringList({"NAQC Rule Name", "Enter a rule's name and comment", "CMS File",
                                   "Import a CMS File", "Finish", "Confirm new rule"}));
    QCOMPARE(wizard->pageIds(), QList<int>({0, 1, 2}));
    QTreeWidget *list = sheet.page2()->findChild<QTreeWidget *>("scriptList");
    QTreeWidgetItem *header = list->headerItem();
    QCOMPARE(QStringList({header->text(0), header->text(1), header->text(2)}),
             QStringList({"ScriptFile", "Action Type", "Comment"}));
    QCOMPARE(CRQCRulePage2::instructionText(),
             "  Import s CMS file in CM Profile of NAQC (Network Access Quarantine Control System).  "
             "\r\n  Select a script you want to apply.");
    QCOMPARE(sheet.page2()->findChild<QLabel *>("instructionText")->text(),
             QString(CRQCRulePage2::instructionText()).replace("\r\n", "\n"));
    QCOMPARE(sheet.page2()->importButton()->text(), QStringLiteral("Import CMSFile"));
    QVERIFY(sheet.page3()->summaryEdit()->isReadOnly());
    // Keyboard order on the profile page follows the controls: service name, list, import.
    QCOMPARE(sheet.page2()->serviceNameEdit()->nextInFocusChain(), static_cast<QWidget *>(list));

    // Next only with a name; blanks are a name.
    wizard->show();
    QVERIFY(QTest::qWaitForWindowExposed(wizard));
    // Laid out on screen, the last column keeps its width too.
    QCOMPARE(QList<int>({list->columnCount(), list->columnWidth(0), list->columnWidth(1), list->columnWidth(2)}),
             QList<int>({3, 140, 120, 180}));
    QAbstractButton *next = wizard->button(QWizard::NextButton);
    QLineEdit *name = sheet.page1()->nameEdit();
    QVERIFY(!next->isEnabled() && !wizard->button(QWizard::BackButton)->isEnabled());
    for (auto [key, enabled] : {std::pair{Qt::Key_A, true}, {Qt::Key_Backspace, false}, {Qt::Key_Space, true}}) {
        QTest::keyClick(name, key);
        QCOMPARE(next->isEnabled(), enabled);
    }
    QCOMPARE(QList<int>({name->maxLength(), sheet.page1()->commentEdit()->maxLength()}),
             QList<int>({49, 1023}));
}

void TestRQCRuleSheet::importFillsTheList()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    CRQCRulePage2 *page = sheet.page2();
    FileDialogAnswer answer({writeFile("corp.cms", kProfileFile)});
    MessageCatcher messages;
    QTest::mouseClick(page->importButton(), Qt::LeftButton);

    QCOMPARE(answer.filters, QStringList({"CMSFiles(*.cms);;All files(*.*)"}));
    QVERIFY(messages.messages.isEmpty());
    QCOMPARE(page->serviceNameEdit()->text(), QStringLiteral("Corp VPN"));
    QTreeWidget *list = page->scriptList();
    QCOMPARE(rows(list), expectedRows({}));
    QTreeWidgetItem *item = list->topLevelItem(1);
    QCOMPARE(item->data(0, images::ImageIndexRole).toInt(), 2);
    QVERIFY(!item->icon(0).isNull());
    QCOMPARE(item->toolTip(2), QStringLiteral("Tools check"));
    // The check boxes answer the keyboard as well.
    list->setCurrentItem(item);
    QTest::keyClick(list->viewport(), Qt::Key_Space);
    QCOMPARE(item->checkState(0), Qt::Checked);

    // A second import replaces what the first brought; texts longer than the record's fields
    // are cut when the page is left.
    import(page, "[Connection Manager]\r\nServiceName=" + QByteArray(200, 'n')
                     + "\r\n[Connect Actions]\r\n0=d\\" + QByteArray(1500, 's')
                     + "\r\n0&Description=" + QByteArray(1500, 'c') + "\r\n");
    QCOMPARE(list->topLevelItemCount(), 1);
    page->storeToRecord();
    QCOMPARE(sheet.record().serviceName.size(), 127);
    QCOMPARE(sheet.record().scripts[0].scriptFile.size(), 1023);
    QCOMPARE(sheet.record().scripts[0].comment.size(), 1023);
}

void TestRQCRuleSheet::badInputLeavesThePageAsItWas()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    CRQCRulePage2 *page = sheet.page2();
    import(page, kProfileFile);
    page->scriptList()->topLevelItem(1)->setCheckState(0, Qt::Checked);
    page->serviceNameEdit()->setText(QStringLiteral("Edited"));

    QByteArray binary(4096, '\0');
    for (int i = 0; i < binary.size(); ++i)
        binary[i] = char(i * 31);
    const QStringList broken = {
        writeFile("prose.txt", "Just some notes.\nNothing here is INI.\n"),
        writeFile("binary.bin", binary),
        writeFile("tenmb.cms", "[Connect Actions]\r\n0=a b\r\n" + QByteArray(10 << 20, 'x')),
        writeFile("empty-name.cms", "[Connection Manager]\nServiceName=\n[Connect Actions]\n0=a b\n"),
        m_dir.filePath("missing.cms"),
    };
    MessageCatcher messages;
    FileDialogAnswer answers(QStringList{QString()} + broken);
    for (int i = 0; i <= broken.size(); ++i)
        QTest::mouseClick(page->importButton(), Qt::LeftButton);

    // The cancelled dialog says nothing; every broken file gets the one file message.
    QCOMPARE(messages.messages.size(), broken.size());
    for (const ui::MessageRecord &m : messages.messages)
        QCOMPARE(shown(m), QStringList({"ERROR", "File is not exacted or broken", "critical"}));
    QCOMPARE(page->serviceNameEdit()->text(), QStringLiteral("Edited"));
    QCOMPARE(rows(page->scriptList()), expectedRows({1}));
}

void TestRQCRuleSheet::leavingCmProfileRebuildsTheRecord()
{
    // What the record holds on Final shows in what Finish sends (finishStopsAtAFailedCall).
    auto sheet = wizardAtFinal(&m_service);
    QWizard *wizard = wizardOf(*sheet);

    const QString tabs = QStringLiteral("\t\t\t\t\t\t\t");
    const QString expected = "\r\n Add for rule information is as below" + tabs
                             + "\r\n\r\n+ Rule Name : Quarantine" + tabs
                             + "\r\n\r\n+ Service Name : Corp VPN" + tabs
                             + "\r\n\r\n+ Script :\r\nprecheck.exe\r\nquarantine.cmd\r\n";
    QCOMPARE(sheet->page3()->summaryText(), expected);
    QCOMPARE(sheet->page3()->summaryEdit()->toPlainText(), QString(expected).replace("\r\n", "\n"));

    // Back, uncheck one, forward again: the record and the summary follow the list.
    wizard->back();
    sheet->page2()->scriptList()->topLevelItem(0)->setCheckState(0, Qt::Unchecked);
    wizard->next();
    QCOMPARE(sheet->record().scripts[0].selected, qint16(0));
    QVERIFY(sheet->page3()->summaryText().endsWith("+ Script :\r\nquarantine.cmd\r\n"));
}

void TestRQCRuleSheet::selectionText()
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

void TestRQCRuleSheet::finishStopsAtAFailedCall()
{
    const QString id = idAt(kSecond);
    QCOMPARE(id.size(), 9);
    const QStringList all = QStringList{"CanUseID(text:" + id + ", short:5)"} + storeCalls(id);
    for (int failAt = 0; failAt <= all.size(); ++failAt) { // the last round fails nothing
        RecordingService service;
        service.script("CanUseID", ScriptedReply::answer(qint16(0)));
        auto sheet = wizardAtFinal(&service);
        service.failCall(failAt);
        wizardOf(*sheet)->button(QWizard::FinishButton)->click();
        QCOMPARE(service.signatures(), all.mid(0, failAt + 1));
        // A failure keeps the wizard on Final; success closes it.
        QCOMPARE(sheet->dialog()->isVisible(), failAt < all.size());
        QCOMPARE(wizardOf(*sheet)->currentPage(), sheet->page3());
    }
}

void TestRQCRuleSheet::cancelEndsAnEndlessIdSearch()
{
    m_service.script("CanUseID", ScriptedReply::answer(qint16(-1))); // taken, forever
    // Through the control, the way the host opens it: the wizard runs modally and keeps asking,
    // with the buttons that could start a second Finish held, until Cancel, Escape or the close
    // box ends the search.
    for (const QString how : {"cancel", "escape", "close"}) {
        m_service.clear();
        int asked = 0;
        bool held = false;
        whenModalShown([&](QWidget *modal) {
            auto *wizard = qobject_cast<QWizard *>(modal);
            wizard->findChild<QLineEdit *>("ruleNameEdit")->setText(QStringLiteral("Endless"));
            wizard->next();
            wizard->next();
            QTimer::singleShot(200, wizard, [&, wizard] {
                asked = int(m_service.methods().count("CanUseID"));
                wizard->accept(); // a stray close while storing waits for the search
                held = !wizard->button(QWizard::FinishButton)->isEnabled()
                       && !wizard->button(QWizard::BackButton)->isEnabled();
                if (how == u"cancel")
                    wizard->button(QWizard::CancelButton)->click();
                else if (how == u"escape")
                    QTest::keyClick(wizard, Qt::Key_Escape);
                else
                    wizard->close();
            });
            wizard->button(QWizard::FinishButton)->click();
        });
        QCOMPARE(m_ctrl.ShowRQCRuleWzd(&m_service), short(2));
        QVERIFY2(asked >= 2 && held, qPrintable(how));
        QStringList methods = m_service.methods();
        methods.removeDuplicates();
        QCOMPARE(methods, QStringList({"CanUseID"})); // nothing stored
        QVERIFY(!QApplication::activeModalWidget());
    }
}

void TestRQCRuleSheet::propertiesFrameAndLoad()
{
    scriptStoredRule(m_service);
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 42);
    QCOMPARE(m_service.signatures(), QStringList({"GetRQCRuleInfo(text:000000042, slot)",
                                                  "GetRQCRuleScriptInfo(text:000000042, slot)"}));
    QVERIFY(m_service.rowSets()[0]->closed && m_service.rowSets()[1]->closed);

    QCOMPARE(sheet.dialog()->windowTitle(), QStringLiteral("NAQCRule Properties"));
    QVERIFY(!wizardOf(sheet) && !sheet.page3());
    auto *tabs = sheet.dialog()->findChild<QTabWidget *>("propertyTabs");
    QCOMPARE(tabs->count(), 2);
    QCOMPARE(QStringList({tabs->tabText(0), tabs->tabText(1)}), QStringList({"General", "CM Profile"}));
    QCOMPARE(sheet.dialog()->findChild<QDialogButtonBox *>("buttonBox")->standardButtons(),
             QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    // The first record row only.
    QCOMPARE(sheet.loadedName(), QStringLiteral("Quarantine"));
    QCOMPARE(sheet.page1()->nameEdit()->text(), QStringLiteral("Quarantine"));
    QCOMPARE(sheet.page1()->commentEdit()->text(), QStringLiteral("remote users"));
    QCOMPARE(sheet.page2()->serviceNameEdit()->text(), QStringLiteral("Corp VPN"));
    QCOMPARE(rows(sheet.page2()->scriptList()), expectedRows(kChecked));
    QCOMPARE(sheet.page2()->scriptList()->topLevelItem(1)->data(0, images::ImageIndexRole).toInt(), 2);

    // OK only with a name.
    QVERIFY(okButton(sheet)->isEnabled());
    sheet.page1()->nameEdit()->clear();
    QVERIFY(!okButton(sheet)->isEnabled());
}

void TestRQCRuleSheet::scriptLoadGovernsOk_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("failCall"); // -1: none
    QTest::addColumn<int>("faultAtFieldRead");
    QTest::addColumn<int>("rowsShown");
    QTest::newRow("call fails") << 2 << 1 << -1 << 0;
    QTest::newRow("row-set fault part-way") << 2 << -1 << 5 << 1;
    QTest::newRow("no entries stored") << 0 << -1 << -1 << 0; // read in full: OK as usual
}

void TestRQCRuleSheet::scriptLoadGovernsOk()
{
    QFETCH(int, rows);
    QFETCH(int, failCall);
    QFETCH(int, faultAtFieldRead);
    QFETCH(int, rowsShown);
    ScriptedReply scripts = ScriptedReply::table(
        {"rule_select", "rule_script", "rule_scriptact", "rule_comment"},
        QList<QVariantList>({{1, "a.cmd", "Connect Actions", ""}, {0, "b.cmd", "Connect Actions", ""}})
            .first(rows));
    scripts.faultAtFieldRead = faultAtFieldRead;
    RecordingService service;
    scriptStoredRule(service, scripts);
    service.failCall(failCall);
    m_ctrl.ShowPane(&service, QString(), 1, 0);
    MessageCatcher messages;
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 7);
    QCOMPARE(sheet.page2()->scriptList()->topLevelItemCount(), rowsShown);
    // With only part of the entries read, OK would delete the rule and store it back with only
    // those: it stays off, whatever the name does, and says why.
    const bool complete = rows == 0;
    QTest::keyClick(sheet.page1()->nameEdit(), Qt::Key_N);
    QCOMPARE(okButton(sheet)->isEnabled(), complete);
    QCOMPARE(okButton(sheet)->toolTip().isEmpty(), complete);
    service.clear();
    QCOMPARE(sheet.save(), complete);
    const QStringList stored = {"CanUseExRuleName", "UpdateExRuleNameInRule", "DelRQCRule", "AddRQCRule"};
    QCOMPARE(service.methods(), complete ? stored : QStringList());
}

void TestRQCRuleSheet::okRefusesATakenName()
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
    QCOMPARE(shown(messages.messages[0]),
             QStringList({"INFO", "There is already a rule with the same name. Please enter a "
                                  "different name.", "information"}));
    QVERIFY(sheet.dialog()->isVisible());
}

void TestRQCRuleSheet::okStopsAtAFailedCall_data()
{
    QTest::addColumn<QString>("newName");
    QTest::newRow("same name") << "Quarantine";
    QTest::newRow("new name") << "Renamed";
    QTest::newRow("letter case only") << "quarantine"; // a rename all the same
}

void TestRQCRuleSheet::okStopsAtAFailedCall()
{
    QFETCH(QString, newName);
    QStringList all;
    if (newName != u"Quarantine")
        all << "CanUseExRuleName(text:" + newName + ", short:5)"
            << "UpdateExRuleNameInRule(text:Quarantine, text:" + newName + ", short:5)";
    const qsizetype deleteAt = all.size();
    all << "DelRQCRule(text:000000012, short:2)" << storeCalls("000000012", newName);
    for (int failAt = 0; failAt <= all.size(); ++failAt) { // the last round fails nothing
        RecordingService service;
        scriptStoredRule(service);
        m_ctrl.ShowPane(&service, QString(), 1, 0);
        CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 12);
        sheet.dialog()->show();
        sheet.page1()->nameEdit()->setText(newName);
        service.clear();
        service.failCall(failAt); // counted from the clear above
        QTest::mouseClick(okButton(sheet), Qt::LeftButton);
        QCOMPARE(service.signatures(), all.mid(0, failAt + 1));
        // Before the delete the sheet stays; once the rule is gone it closes whatever happens.
        QCOMPARE(sheet.dialog()->isVisible(), failAt <= deleteAt);
    }
}

void TestRQCRuleSheet::screenshots()
{
    const QString out = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
    if (out.isEmpty())
        QSKIP("set QARVO_SCREENSHOT_DIR to write the page screenshots");
    const auto save = [&](QWidget *w, const char *name) {
        QVERIFY(QTest::qWaitForWindowExposed(w));
        QVERIFY(w->grab().save(out + "/naqc-" + name + ".png"));
    };
    auto sheet = wizardAtFinal(&m_service);
    save(sheet->dialog(), "wizard-3-final");
    wizardOf(*sheet)->back();
    save(sheet->dialog(), "wizard-2-cmprofile");
    wizardOf(*sheet)->back();
    save(sheet->dialog(), "wizard-1-general");
    scriptStoredRule(m_service);
    CRQCRuleSheet props(nullptr, CRQCRuleSheet::Properties, 3);
    props.dialog()->show();
    save(props.dialog(), "properties-general");
    props.dialog()->findChild<QTabWidget *>("propertyTabs")->setCurrentIndex(1);
    save(props.dialog(), "properties-cmprofile");
}

QTEST_MAIN(TestRQCRuleSheet)
#include "tst_rqcrulesheet.moc"
