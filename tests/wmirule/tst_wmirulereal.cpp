#include "conditions/classtreemodel.h"
#include "control/settings.h"
#include "dialogdriver.h"
#include "sheethelpers.h"

#include <QFile>
#include <QPlainTextEdit>
#include <QRadioButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTreeView>
#include <QTreeWidget>

using namespace qarvo;
using namespace qarvo::test;

// The condition page with the real condition editors behind Add and double-click, over the
// catalogue that ships with the console.
class TestWmiRuleReal : public QObject
{
    Q_OBJECT
    QTemporaryDir m_settingsDir;
    RecordingService m_service;

    // Runs `drive` on the editor that `open` brings up and checks it really came up.
    static void inEditor(const char *objectName, std::function<void(QWidget *)> drive,
                         const std::function<void()> &open)
    {
        bool seen = false;
        whenModalShown([&](QWidget *modal) {
            QCOMPARE(modal->objectName(), QLatin1String(objectName));
            seen = true;
            drive(modal);
        });
        open();
        QVERIFY(seen);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, m_settingsDir.path());
    }

    void init()
    {
        const QString catalogue = qEnvironmentVariable("QARVO_SOURCE_DIR") + "/data/catalogue";
        QVERIFY(QFile::exists(catalogue + "/class.dat"));
        managerSettings()->setValue("ProgramPath", catalogue);
        resetConditionEditors();
        resetModalSafetyNet();
        useService(&m_service);
    }

    void cleanup()
    {
        QFile::remove(managerSettings()->fileName());
        useService(nullptr);
        QVERIFY(!modalSafetyNetFired());
    }

    void wmiEditorAddsAndReopensARow()
    {
        WizardOnPage2 w(RuleKind::WMI);
        inEditor("CWMIDlg", [](QWidget *modal) {
            auto *tree = child<QTreeView>(modal, "classTree");
            tree->setCurrentIndex(qobject_cast<ClassTreeModel *>(tree->model())->findText("Win32_Service"));
            auto *fields = child<QTreeWidget>(modal, "fieldList");
            fields->setCurrentItem(fields->findItems("ProcessId", Qt::MatchExactly, 0).value(0));
            choose(child<QComboBox>(modal, "conditionCombo"), ">");
            child<QLineEdit>(modal, "valueEdit")->setText("0");
            child<QPushButton>(modal, "okButton")->click();
        }, [&] { w.add(); });
        QCOMPARE(opColumn(w.list()), QStringList{"EQ/11"});
        QCOMPARE(w.list()->rowTexts(0),
                 (ConditionTexts{"root\\cimv2", "Win32_Service", "ProcessId", "uint32", ">", "0"}));
        QVERIFY(w.sheet.wizard()->button(QWizard::NextButton)->isEnabled());

        // Double-click opens the editor on that condition; a new value comes back into the row.
        inEditor("CWMIDlg", [](QWidget *modal) {
            QCOMPARE(child<QTreeView>(modal, "classTree")->currentIndex().data().toString(),
                     QStringLiteral("Win32_Service"));
            QCOMPARE(child<QTreeWidget>(modal, "fieldList")->currentItem()->text(0),
                     QStringLiteral("ProcessId"));
            QCOMPARE(child<QComboBox>(modal, "conditionCombo")->currentText(), QStringLiteral(">"));
            QCOMPARE(child<QLineEdit>(modal, "valueEdit")->text(), QStringLiteral("0"));
            child<QLineEdit>(modal, "valueEdit")->setText("100");
            child<QPushButton>(modal, "okButton")->click();
        }, [&] { clickCell(w.list(), 0, column::Field, true); });
        QCOMPARE(w.list()->cellText(0, column::Value), QStringLiteral("100"));

        inEditor("CWMIDlg", [](QWidget *modal) { child<QPushButton>(modal, "cancelButton")->click(); },
                 [&] { w.add(); });
        QCOMPARE(w.list()->rowCount(), 1); // cancelled: nothing changes
    }

    void wqlEditorAddsAndReopensARow()
    {
        WizardOnPage2 w(RuleKind::WQL);
        inEditor("CWQLDlg", [](QWidget *modal) {
            child<QLineEdit>(modal, "selectEdit")->setText("*");
            child<QLineEdit>(modal, "fromEdit")->setText("Win32_Process");
            child<QPlainTextEdit>(modal, "whereEdit")->setPlainText("\t Name = 'notepad.exe'");
            choose(child<QComboBox>(modal, "countConditionCombo"), "<");
            child<QLineEdit>(modal, "countValueEdit")->setText("1");
            child<QPushButton>(modal, "okButton")->click();
        }, [&] { w.add(); });
        const QString query = QStringLiteral("SELECT * FROM Win32_Process WHERE Name = 'notepad.exe'");
        QCOMPARE(w.list()->rowTexts(0), (ConditionTexts{"Root\\CIMV2", query, "#Count", "uint8", "<", "1"}));

        inEditor("CWQLDlg", [](QWidget *modal) {
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
            choose(child<QComboBox>(modal, "fieldTypeCombo"), "uint32");
            choose(child<QComboBox>(modal, "valueConditionCombo"), ">=");
            child<QLineEdit>(modal, "valueEdit")->setText("4");
            child<QPushButton>(modal, "okButton")->click();
        }, [&] { clickCell(w.list(), 0, column::ClassOrQuery, true); });
        QCOMPARE(w.list()->rowTexts(0), (ConditionTexts{"Root\\CIMV2", query, "ThreadCount", "uint32", ">=", "4"}));
        QCOMPARE(opColumn(w.list()), QStringList{"EQ/11"});
    }
};

QTEST_MAIN(TestWmiRuleReal)
#include "tst_wmirulereal.moc"
