// The NAQC rule sheet's pages as an administrator meets them: titles, the name rule, importing a
// profile (good and bad), the record each page leaves behind, and the summary.

#include "control/modulestate.h"
#include "control/qarvoctrl.h"
#include "dialogdriver.h"
#include "naqcrule/rqcrulesheet.h"
#include "recordingservice.h"
#include "resources/images.h"
#include "resources/strings.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QHeaderView>
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

const QByteArray kProfile = "[Connection Manager]\r\n"
                            "ServiceName=Corp VPN\r\n"
                            "[Connect Actions]\r\n"
                            "0=%PROFILEDIR%\\quarantine.cmd /v\r\n"
                            "0&Description=Quarantine check\r\n"
                            "[Pre-Connect Actions]\r\n"
                            "0=%PROFILEDIR%\\precheck.exe\r\n"
                            "1=C:\\Tools\\check.exe /q\r\n"
                            "1&Description=Tools check\r\n";

QStringList column(QTreeWidget *list, int c)
{
    QStringList out;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        out << list->topLevelItem(i)->text(c);
    return out;
}

} // namespace

class TestRQCRuleSheet : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void wizardFrame();
    void nameGovernsNext();
    void importFillsTheList();
    void badInputLeavesThePageAsItWas();
    void leavingCmProfileRebuildsTheRecord();
    void longTextsAreCutToTheRecord();
    void propertiesFrameAndLoad();
    void propertiesWithoutARecordNeedsAName();
    void screenshots();

private:
    QString writeFile(const QString &name, const QByteArray &bytes);
    QTemporaryDir m_dir;
    RecordingService m_service;
    CqarvoCtrl m_ctrl;
};

void TestRQCRuleSheet::initTestCase()
{
    QVERIFY(m_dir.isValid());
    // The sheets take the service the control holds; ShowPane with no view type sets just that.
    m_ctrl.ShowPane(&m_service, QString(), 1, 0);
    QCOMPARE(currentDataService(), &m_service);
}

QString TestRQCRuleSheet::writeFile(const QString &name, const QByteArray &bytes)
{
    QFile f(m_dir.filePath(name));
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(name));
    return f.fileName();
}

void TestRQCRuleSheet::wizardFrame()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    auto *wizard = qobject_cast<QWizard *>(sheet.dialog());
    QVERIFY(wizard);
    QCOMPARE(wizard->windowTitle(), QStringLiteral("Add NAQC Rule Wizard"));
    QCOMPARE(wizard->wizardStyle(), QWizard::ModernStyle);
    QVERIFY(!wizard->pixmap(QWizard::LogoPixmap).isNull());
    QCOMPARE(wizard->pageIds().size(), 3);
    QCOMPARE(wizard->page(wizard->pageIds()[0]), sheet.page1());
    QCOMPARE(wizard->page(wizard->pageIds()[1]), sheet.page2());
    QCOMPARE(wizard->page(wizard->pageIds()[2]), sheet.page3());
    const QList<std::pair<QString, QString>> headers = {
        {"NAQC Rule Name", "Enter a rule's name and comment"},
        {"CMS File", "Import a CMS File"},
        {"Finish", "Confirm new rule"}};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(wizard->page(i)->title(), headers[i].first);
        QCOMPARE(wizard->page(i)->subTitle(), headers[i].second);
    }

    auto *list = sheet.page2()->findChild<QTreeWidget *>("scriptList");
    QVERIFY(list);
    QCOMPARE(list->columnCount(), 3);
    QCOMPARE(list->headerItem()->text(0), QStringLiteral("ScriptFile"));
    QCOMPARE(list->headerItem()->text(1), QStringLiteral("Action Type"));
    QCOMPARE(list->headerItem()->text(2), QStringLiteral("Comment"));
    QCOMPARE(list->columnWidth(0), 140);
    QCOMPARE(list->columnWidth(1), 120);
    QCOMPARE(CRQCRulePage2::instructionText(),
             QStringLiteral("  Import s CMS file in CM Profile of NAQC (Network Access Quarantine "
                            "Control System).  \r\n  Select a script you want to apply."));
    auto *instruction = sheet.page2()->findChild<QLabel *>("instructionText");
    QCOMPARE(instruction->text(), QString(CRQCRulePage2::instructionText()).replace("\r\n", "\n"));
    QCOMPARE(sheet.page2()->findChild<QPushButton *>("importButton")->text(),
             QStringLiteral("Import CMSFile"));
    QVERIFY(sheet.page3()->findChild<QPlainTextEdit *>("summaryEdit")->isReadOnly());

    // Keyboard order on the profile page follows the controls: service name, list, import.
    auto *service = sheet.page2()->serviceNameEdit();
    QCOMPARE(service->nextInFocusChain(), static_cast<QWidget *>(list));
}

void TestRQCRuleSheet::nameGovernsNext()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    auto *wizard = qobject_cast<QWizard *>(sheet.dialog());
    wizard->show();
    QVERIFY(QTest::qWaitForWindowExposed(wizard));
    QAbstractButton *next = wizard->button(QWizard::NextButton);
    QAbstractButton *back = wizard->button(QWizard::BackButton);
    auto *name = wizard->findChild<QLineEdit *>("ruleNameEdit");
    QVERIFY(!next->isEnabled());
    QVERIFY(!back->isEnabled());
    QTest::keyClick(name, Qt::Key_A);
    QVERIFY(next->isEnabled());
    QTest::keyClick(name, Qt::Key_Backspace);
    QVERIFY(!next->isEnabled());
    QTest::keyClick(name, Qt::Key_Space); // blanks are a name
    QVERIFY(next->isEnabled());
    QCOMPARE(name->maxLength(), 49);
    QCOMPARE(wizard->findChild<QLineEdit *>("commentEdit")->maxLength(), 1023);
}

void TestRQCRuleSheet::importFillsTheList()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    CRQCRulePage2 *page = sheet.page2();
    FileDialogAnswer answer({writeFile("corp.cms", kProfile)});
    MessageCatcher messages;
    QTest::mouseClick(page->importButton(), Qt::LeftButton);

    QCOMPARE(answer.filters, QStringList({"CMSFiles(*.cms);;All files(*.*)"}));
    QVERIFY(messages.messages.isEmpty());
    QCOMPARE(page->serviceNameEdit()->text(), QStringLiteral("Corp VPN"));
    QTreeWidget *list = page->scriptList();
    // Sections in their fixed order: Pre-Connect before Connect, whatever the file says.
    QCOMPARE(column(list, 0), QStringList({"precheck.exe", "Tools", "quarantine.cmd"}));
    QCOMPARE(column(list, 1),
             QStringList({"Pre-Connect Actions", "Pre-Connect Actions", "Connect Actions"}));
    QCOMPARE(column(list, 2), QStringList({"", "Tools check", "Quarantine check"}));
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        QTreeWidgetItem *item = list->topLevelItem(i);
        QCOMPARE(item->checkState(0), Qt::Unchecked);
        QCOMPARE(item->data(0, images::ImageIndexRole).toInt(), 2);
        QVERIFY(!item->icon(0).isNull());
    }

    // The check boxes answer the keyboard as well.
    list->setCurrentItem(list->topLevelItem(1));
    QTest::keyClick(list->viewport(), Qt::Key_Space);
    QCOMPARE(list->topLevelItem(1)->checkState(0), Qt::Checked);

    // A second import replaces what the first brought.
    FileDialogAnswer again({writeFile("other.cms", "[Connection Manager]\nServiceName=Other\n")});
    QTest::mouseClick(page->importButton(), Qt::LeftButton);
    QCOMPARE(page->serviceNameEdit()->text(), QStringLiteral("Other"));
    QCOMPARE(list->topLevelItemCount(), 0);
}

void TestRQCRuleSheet::badInputLeavesThePageAsItWas()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    CRQCRulePage2 *page = sheet.page2();
    {
        FileDialogAnswer answer({writeFile("corp.cms", kProfile)});
        QTest::mouseClick(page->importButton(), Qt::LeftButton);
    }
    page->scriptList()->topLevelItem(1)->setCheckState(0, Qt::Checked);
    page->serviceNameEdit()->setText(QStringLiteral("Edited"));

    QByteArray binary(4096, '\0');
    for (int i = 0; i < binary.size(); ++i)
        binary[i] = char(i * 31);
    QByteArray tenMegabytes = "[Connect Actions]\r\n0=a b\r\n";
    tenMegabytes += QByteArray(10 * 1024 * 1024, 'x');
    const QStringList broken = {
        writeFile("prose.txt", "Just some notes.\nNothing here is INI.\n"),
        writeFile("binary.bin", binary),
        writeFile("tenmb.cms", tenMegabytes),
        writeFile("empty-name.cms", "[Connection Manager]\nServiceName=\n[Connect Actions]\n0=a b\n"),
        m_dir.filePath("missing.cms"),
    };
    MessageCatcher messages;
    FileDialogAnswer answers(QStringList{QString()} + broken);
    for (int i = 0; i <= broken.size(); ++i)
        QTest::mouseClick(page->importButton(), Qt::LeftButton);

    // The cancelled dialog says nothing; every broken file gets the one file message.
    QCOMPARE(messages.messages.size(), broken.size());
    for (const ui::MessageRecord &m : messages.messages) {
        QCOMPARE(m.caption, QStringLiteral("ERROR"));
        QCOMPARE(m.text, QStringLiteral("File is not exacted or broken"));
        QCOMPARE(m.icon, ui::MessageIcon::Critical);
    }
    QCOMPARE(page->serviceNameEdit()->text(), QStringLiteral("Edited"));
    QCOMPARE(page->scriptList()->topLevelItemCount(), 3);
    QCOMPARE(page->scriptList()->topLevelItem(1)->checkState(0), Qt::Checked);
}

void TestRQCRuleSheet::leavingCmProfileRebuildsTheRecord()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    auto *wizard = qobject_cast<QWizard *>(sheet.dialog());
    wizard->show();
    QTest::keyClicks(sheet.page1()->nameEdit(), QStringLiteral("Quarantine"));
    QTest::keyClicks(sheet.page1()->commentEdit(), QStringLiteral("VPN users"));
    wizard->next();
    QCOMPARE(wizard->currentPage(), sheet.page2());
    QCOMPARE(sheet.record().ruleName, QStringLiteral("Quarantine"));
    QCOMPARE(sheet.record().comment, QStringLiteral("VPN users"));
    {
        FileDialogAnswer answer({writeFile("corp.cms", kProfile)});
        QTest::mouseClick(sheet.page2()->importButton(), Qt::LeftButton);
    }
    QTreeWidget *list = sheet.page2()->scriptList();
    list->topLevelItem(0)->setCheckState(0, Qt::Checked);
    list->topLevelItem(2)->setCheckState(0, Qt::Checked);
    // Next is not held back by the profile page.
    QVERIFY(wizard->button(QWizard::NextButton)->isEnabled());
    wizard->next();
    QCOMPARE(wizard->currentPage(), sheet.page3());
    QCOMPARE(sheet.record().serviceName, QStringLiteral("Corp VPN"));
    QCOMPARE(sheet.record().scripts.size(), 3);
    QCOMPARE(sheet.record().scripts[1],
             (RQCScriptEntry{"Tools", "Pre-Connect Actions", "Tools check", 0}));
    QVERIFY(wizard->button(QWizard::FinishButton)->isVisible());
    QVERIFY(wizard->button(QWizard::BackButton)->isEnabled());

    const QString tabs = QStringLiteral("\t\t\t\t\t\t\t");
    const QString expected = "\r\n Add for rule information is as below" + tabs
                             + "\r\n\r\n+ Rule Name : Quarantine" + tabs
                             + "\r\n\r\n+ Service Name : Corp VPN" + tabs
                             + "\r\n\r\n+ Script :\r\nprecheck.exe\r\nquarantine.cmd\r\n";
    QCOMPARE(sheet.page3()->summaryText(), expected);
    QCOMPARE(sheet.page3()->summaryEdit()->toPlainText(), QString(expected).replace("\r\n", "\n"));

    // Back, uncheck one, forward again: the record and the summary follow the list.
    wizard->back();
    list->topLevelItem(0)->setCheckState(0, Qt::Unchecked);
    wizard->next();
    QCOMPARE(sheet.record().scripts[0].selected, qint16(0));
    QVERIFY(sheet.page3()->summaryText().endsWith("+ Script :\r\nquarantine.cmd\r\n"));
}

void TestRQCRuleSheet::longTextsAreCutToTheRecord()
{
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
    CRQCRulePage2 *page = sheet.page2();
    const QByteArray longAction = "0=d\\" + QByteArray(1500, 's') + "\r\n0&Description="
                                  + QByteArray(1500, 'c') + "\r\n";
    FileDialogAnswer answer({writeFile("long.cms", "[Connection Manager]\r\nServiceName="
                                                       + QByteArray(200, 'n')
                                                       + "\r\n[Connect Actions]\r\n" + longAction)});
    QTest::mouseClick(page->importButton(), Qt::LeftButton);
    page->storeToRecord();
    QCOMPARE(sheet.record().serviceName.size(), 127);
    QCOMPARE(sheet.record().scripts.size(), 1);
    QCOMPARE(sheet.record().scripts[0].scriptFile.size(), 1023);
    QCOMPARE(sheet.record().scripts[0].comment.size(), 1023);
}

void TestRQCRuleSheet::propertiesFrameAndLoad()
{
    m_service.clear();
    m_service.scriptOnce("GetRQCRuleInfo",
                         ScriptedReply::table({"rule_name", "rule_servicename", "rule_comment"},
                                              {{"Stored", "Corp VPN", "kept"},
                                               {"Second", "ignored", "ignored"}}));
    m_service.scriptOnce("GetRQCRuleScriptInfo",
                         ScriptedReply::table({"rule_select", "rule_script", "rule_scriptact",
                                               "rule_comment"},
                                              {{0, "a.cmd", "Pre-Init Actions", "first"},
                                               {1, "b.cmd", "Connect Actions", "second"}}));
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 42);
    QCOMPARE(m_service.signatures(),
             QStringList({"GetRQCRuleInfo(text:000000042, slot)",
                          "GetRQCRuleScriptInfo(text:000000042, slot)"}));
    QVERIFY(m_service.rowSets()[0]->closed);
    QVERIFY(m_service.rowSets()[1]->closed);

    QCOMPARE(sheet.dialog()->windowTitle(), QStringLiteral("NAQCRule Properties"));
    QVERIFY(!qobject_cast<QWizard *>(sheet.dialog()));
    QVERIFY(!sheet.page3());
    auto *tabs = sheet.dialog()->findChild<QTabWidget *>("propertyTabs");
    QCOMPARE(tabs->count(), 2);
    QCOMPARE(tabs->tabText(0), QStringLiteral("General"));
    QCOMPARE(tabs->tabText(1), QStringLiteral("CM Profile"));
    auto *box = sheet.dialog()->findChild<QDialogButtonBox *>("buttonBox");
    QCOMPARE(box->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);

    QCOMPARE(sheet.record().ruleId, QStringLiteral("000000042"));
    QCOMPARE(sheet.loadedName(), QStringLiteral("Stored"));
    QCOMPARE(sheet.page1()->nameEdit()->text(), QStringLiteral("Stored"));
    QCOMPARE(sheet.page1()->commentEdit()->text(), QStringLiteral("kept"));
    QCOMPARE(sheet.page2()->serviceNameEdit()->text(), QStringLiteral("Corp VPN"));
    QTreeWidget *list = sheet.page2()->scriptList();
    QCOMPARE(column(list, 0), QStringList({"a.cmd", "b.cmd"}));
    QCOMPARE(column(list, 1), QStringList({"Pre-Init Actions", "Connect Actions"}));
    QCOMPARE(column(list, 2), QStringList({"first", "second"}));
    QCOMPARE(list->topLevelItem(0)->checkState(0), Qt::Unchecked);
    QCOMPARE(list->topLevelItem(1)->checkState(0), Qt::Checked);
    QCOMPARE(list->topLevelItem(1)->data(0, images::ImageIndexRole).toInt(), 2);

    QPushButton *ok = box->button(QDialogButtonBox::Ok);
    QVERIFY(ok->isEnabled());
    sheet.page1()->nameEdit()->clear();
    QVERIFY(!ok->isEnabled());
    QTest::keyClick(sheet.page1()->nameEdit(), Qt::Key_X);
    QVERIFY(ok->isEnabled());
}

void TestRQCRuleSheet::propertiesWithoutARecordNeedsAName()
{
    m_service.clear();
    m_service.scriptOnce("GetRQCRuleInfo", ScriptedReply::table({"rule_name"}, {}));
    // A fault in the middle of the script rows keeps the rows read before it.
    ScriptedReply scripts = ScriptedReply::table(
        {"rule_select", "rule_script", "rule_scriptact", "rule_comment"},
        {{1, "a.cmd", "Connect Actions", ""}, {0, "b.cmd", "Connect Actions", ""}});
    scripts.faultAtFieldRead = 5;
    m_service.scriptOnce("GetRQCRuleScriptInfo", scripts);
    CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Properties, 7);
    QCOMPARE(sheet.page1()->nameEdit()->text(), QString());
    QCOMPARE(sheet.page2()->scriptList()->topLevelItemCount(), 1);
    auto *box = sheet.dialog()->findChild<QDialogButtonBox *>("buttonBox");
    QVERIFY(!box->button(QDialogButtonBox::Ok)->isEnabled());
    QTest::keyClick(sheet.page1()->nameEdit(), Qt::Key_N);
    QVERIFY(box->button(QDialogButtonBox::Ok)->isEnabled());
}

void TestRQCRuleSheet::screenshots()
{
    const QString out = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
    if (out.isEmpty())
        QSKIP("set QARVO_SCREENSHOT_DIR to write the page screenshots");
    const auto save = [&](QWidget *w, const QString &name) {
        QVERIFY(w->grab().save(out + u'/' + name + QStringLiteral(".png")));
    };
    {
        CRQCRuleSheet sheet(nullptr, CRQCRuleSheet::Wizard);
        auto *wizard = qobject_cast<QWizard *>(sheet.dialog());
        wizard->show();
        QVERIFY(QTest::qWaitForWindowExposed(wizard));
        QTest::keyClicks(sheet.page1()->nameEdit(), QStringLiteral("VPN quarantine"));
        QTest::keyClicks(sheet.page1()->commentEdit(), QStringLiteral("Checks for remote users"));
        save(wizard, "naqc-wizard-1-general");
        wizard->next();
        FileDialogAnswer answer({writeFile("shot.cms", kProfile)});
        QTest::mouseClick(sheet.page2()->importButton(), Qt::LeftButton);
        sheet.page2()->scriptList()->topLevelItem(2)->setCheckState(0, Qt::Checked);
        save(wizard, "naqc-wizard-2-cmprofile");
        wizard->next();
        save(wizard, "naqc-wizard-3-final");
    }
    m_service.clear();
    m_service.scriptOnce("GetRQCRuleInfo",
                         ScriptedReply::table({"rule_name", "rule_servicename", "rule_comment"},
                                              {{"VPN quarantine", "Corp VPN", "remote users"}}));
    m_service.scriptOnce("GetRQCRuleScriptInfo",
                         ScriptedReply::table({"rule_select", "rule_script", "rule_scriptact",
                                               "rule_comment"},
                                              {{0, "precheck.exe", "Pre-Connect Actions", ""},
                                               {1, "quarantine.cmd", "Connect Actions", "Check"}}));
    CRQCRuleSheet props(nullptr, CRQCRuleSheet::Properties, 3);
    props.dialog()->show();
    QVERIFY(QTest::qWaitForWindowExposed(props.dialog()));
    save(props.dialog(), "naqc-properties-general");
    props.dialog()->findChild<QTabWidget *>("propertyTabs")->setCurrentIndex(1);
    save(props.dialog(), "naqc-properties-cmprofile");
}

QTEST_MAIN(TestRQCRuleSheet)
#include "tst_rqcrulesheet.moc"
