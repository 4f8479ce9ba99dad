#include "conditions/classtreemodel.h"
#include "control/settings.h"
#include "dialogdriver.h"
#include "recordingservice.h"
#include "sheethelpers.h"
#include "wmirule/listviewer.h"
#include "wmirule/rulepages.h"
#include "wmirule/rulesheet.h"

#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTreeView>
#include <QTreeWidget>
#include <QWizard>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

// The condition page with the real condition editors behind Add and double-click, over the
// catalogue that ships with the console.
class TestWmiRuleReal : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void wmiEditorAddsAndReopensARow();
    void wqlEditorAddsAndReopensARow();

private:
    QTemporaryDir m_settingsDir;
    RecordingService m_service;
};

namespace {

template<typename T>
T *child(QWidget *parent, const char *name)
{
    T *w = parent->findChild<T *>(QLatin1String(name));
    if (!w)
        qWarning("no child %s", name);
    return w;
}

void chooseText(QComboBox *combo, const QString &text)
{
    const int i = combo->findText(text);
    QVERIFY2(i >= 0, qPrintable(text));
    combo->setCurrentIndex(i);
}

struct Wizard
{
    explicit Wizard(RuleKind kind) : sheet(nullptr, kind, SheetMode::Wizard, "New WMIRule Wizard")
    {
        sheet.wizard()->show();
        sheet.page1()->nameEdit()->setText("Real editors");
        sheet.wizard()->next();
    }
    CWMIRuleListViewer *list() { return sheet.page2()->list(); }
    void doubleClick(int row, int column)
    {
        QTest::mouseDClick(list()->viewport(), Qt::LeftButton, {},
                           list()->cellRect(row, column).center());
    }
    CWMIRuleSheet sheet;
};

} // namespace

void TestWmiRuleReal::initTestCase()
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, m_settingsDir.path());
}

void TestWmiRuleReal::init()
{
    const QString source = qEnvironmentVariable("QARVO_SOURCE_DIR");
    QVERIFY(QFile::exists(source + "/data/catalogue/class.dat"));
    auto settings = managerSettings();
    settings->setValue("ProgramPath", source + "/data/catalogue");
    settings->sync();
    resetConditionEditors();
    resetModalSafetyNet();
    useService(&m_service);
}

void TestWmiRuleReal::cleanup()
{
    QFile::remove(managerSettings()->fileName());
    useService(nullptr);
    QVERIFY(!modalSafetyNetFired());
}

void TestWmiRuleReal::wmiEditorAddsAndReopensARow()
{
    Wizard w(RuleKind::WMI);
    bool seen = false;
    whenModalShown([&seen](QWidget *modal) {
        QCOMPARE(modal->objectName(), QStringLiteral("CWMIDlg"));
        auto *tree = child<QTreeView>(modal, "classTree");
        auto *model = qobject_cast<ClassTreeModel *>(tree->model());
        tree->setCurrentIndex(model->findText("Win32_Service"));
        auto *fields = child<QTreeWidget>(modal, "fieldList");
        const auto found = fields->findItems("ProcessId", Qt::MatchExactly, 0);
        QVERIFY(!found.isEmpty());
        fields->setCurrentItem(found.first());
        chooseText(child<QComboBox>(modal, "conditionCombo"), ">");
        child<QLineEdit>(modal, "valueEdit")->setText("0");
        seen = true;
        child<QPushButton>(modal, "okButton")->click();
    });
    w.sheet.page2()->addButton()->click();
    QVERIFY(seen);
    QCOMPARE(w.list()->rowCount(), 1);
    QCOMPARE(w.list()->cellText(0, column::Op), QStringLiteral("EQ"));
    QCOMPARE(w.list()->rowTexts(0),
             (ConditionTexts{"root\\cimv2", "Win32_Service", "ProcessId", "uint32", ">", "0"}));
    QVERIFY(w.sheet.wizard()->button(QWizard::NextButton)->isEnabled());

    // Double-click opens the editor on that condition; a new value comes back into the row.
    seen = false;
    whenModalShown([&seen](QWidget *modal) {
        QCOMPARE(modal->objectName(), QStringLiteral("CWMIDlg"));
        QCOMPARE(child<QTreeView>(modal, "classTree")->currentIndex().data().toString(),
                 QStringLiteral("Win32_Service"));
        QCOMPARE(child<QTreeWidget>(modal, "fieldList")->currentItem()->text(0),
                 QStringLiteral("ProcessId"));
        QCOMPARE(child<QComboBox>(modal, "conditionCombo")->currentText(), QStringLiteral(">"));
        QCOMPARE(child<QLineEdit>(modal, "valueEdit")->text(), QStringLiteral("0"));
        child<QLineEdit>(modal, "valueEdit")->setText("100");
        seen = true;
        child<QPushButton>(modal, "okButton")->click();
    });
    w.doubleClick(0, column::Field);
    QVERIFY(seen);
    QCOMPARE(w.list()->cellText(0, column::Value), QStringLiteral("100"));

    // Cancelled: nothing changes.
    whenModalShown([](QWidget *modal) { child<QPushButton>(modal, "cancelButton")->click(); });
    w.sheet.page2()->addButton()->click();
    QCOMPARE(w.list()->rowCount(), 1);
}

void TestWmiRuleReal::wqlEditorAddsAndReopensARow()
{
    Wizard w(RuleKind::WQL);
    whenModalShown([](QWidget *modal) {
        QCOMPARE(modal->objectName(), QStringLiteral("CWQLDlg"));
        child<QLineEdit>(modal, "selectEdit")->setText("*");
        child<QLineEdit>(modal, "fromEdit")->setText("Win32_Process");
        child<QPlainTextEdit>(modal, "whereEdit")->setPlainText("\t Name = 'notepad.exe'");
        child<QRadioButton>(modal, "countRadio")->click();
        chooseText(child<QComboBox>(modal, "countConditionCombo"), "<");
        child<QLineEdit>(modal, "countValueEdit")->setText("1");
        child<QPushButton>(modal, "okButton")->click();
    });
    w.sheet.page2()->addButton()->click();
    QCOMPARE(w.list()->rowTexts(0),
             (ConditionTexts{"Root\\CIMV2", "SELECT * FROM Win32_Process WHERE Name = 'notepad.exe'",
                             "#Count", "uint8", "<", "1"}));

    bool seen = false;
    whenModalShown([&seen](QWidget *modal) {
        QCOMPARE(child<QLineEdit>(modal, "selectEdit")->text(), QStringLiteral("*"));
        QCOMPARE(child<QLineEdit>(modal, "fromEdit")->text(), QStringLiteral("Win32_Process"));
        QCOMPARE(child<QPlainTextEdit>(modal, "whereEdit")->toPlainText(),
                 QStringLiteral("Name = 'notepad.exe'"));
        QVERIFY(child<QRadioButton>(modal, "countRadio")->isChecked());
        QCOMPARE(child<QComboBox>(modal, "countConditionCombo")->currentText(), QStringLiteral("<"));
        QCOMPARE(child<QLineEdit>(modal, "countValueEdit")->text(), QStringLiteral("1"));
        // Turned into a value test of the same query.
        child<QRadioButton>(modal, "valueRadio")->click();
        child<QLineEdit>(modal, "fieldEdit")->setText("ThreadCount");
        chooseText(child<QComboBox>(modal, "fieldTypeCombo"), "uint32");
        chooseText(child<QComboBox>(modal, "valueConditionCombo"), ">=");
        child<QLineEdit>(modal, "valueEdit")->setText("4");
        seen = true;
        child<QPushButton>(modal, "okButton")->click();
    });
    w.doubleClick(0, column::ClassOrQuery);
    QVERIFY(seen);
    QCOMPARE(w.list()->rowTexts(0),
             (ConditionTexts{"Root\\CIMV2", "SELECT * FROM Win32_Process WHERE Name = 'notepad.exe'",
                             "ThreadCount", "uint32", ">=", "4"}));
    QCOMPARE(w.list()->cellText(0, column::Op), QStringLiteral("EQ"));
}

QTEST_MAIN(TestWmiRuleReal)
#include "tst_wmirulereal.moc"
