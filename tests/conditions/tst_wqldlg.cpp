#include "conditions/editors.h"
#include "conditions/wqldlg.h"
#include "dialogdriver.h"
#include "dlghelpers.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>

using namespace qarvo;
using namespace qarvo::test;

namespace {

const QStringList Six{"=", "!=", ">", "<", ">=", "<="};
const QStringList Eight{"=", "!=", ">", "<", ">=", "<=", "in", "not in"};

QStringList parts(const WQLCondition &c)
{
    return {c.nameSpace, c.select, c.from, c.where, QString::number(c.mode), c.op,
            c.count,     c.field,  c.fieldType, c.value};
}

void valueMode(QWidget *dlg)
{
    QTest::mouseClick(child<QRadioButton>(dlg, "valueRadio"), Qt::LeftButton);
}

} // namespace

class TestWQLDlg : public QObject
{
    Q_OBJECT
    QTemporaryDir m_settingsDir;

private Q_SLOTS:
    // No manager settings: the advice reads the catalogue shipped with the build.
    void initTestCase()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, m_settingsDir.path());
    }

    void init() { resetModalSafetyNet(); }

    void cleanup()
    {
        resetConditionEditors();
        QVERIFY(!modalSafetyNetFired());
    }

    void defaultsAndModes()
    {
        CWQLDlg dlg;
        dlg.show();
        QCOMPARE(dlg.windowTitle(), QStringLiteral("WQL"));
        QCOMPARE(child<QLineEdit>(&dlg, "namespaceEdit")->text(), QStringLiteral("Root\\CIMV2"));
        QCOMPARE(items(child<QComboBox>(&dlg, "countConditionCombo")), Six);
        QCOMPARE(items(child<QComboBox>(&dlg, "valueConditionCombo")), Eight);
        QCOMPARE(items(child<QComboBox>(&dlg, "valueChoiceCombo")), Eight);
        QCOMPARE(items(child<QComboBox>(&dlg, "fieldTypeCombo")),
                 QStringList({"boolean", "string", "uint8", "uint16", "sint16", "uint32", "sint32",
                              "uint64", "sint64", "datetime", "uint8 array", "uint16 array",
                              "uint32 array", "string array"}));
        for (const char *name : {"countConditionCombo", "fieldTypeCombo", "valueConditionCombo"})
            QCOMPARE(child<QComboBox>(&dlg, name)->currentIndex(), -1);
        QVERIFY(child<QComboBox>(&dlg, "valueChoiceCombo")->isHidden());
        maybeScreenshot(&dlg, "wqldlg-new");

        // Count mode first; each mode enables only its own controls.
        const QStringList countSide{"countConditionCombo", "countValueEdit"};
        const QStringList valueSide{"fieldEdit", "fieldTypeCombo", "valueConditionCombo",
                                    "valueChoiceCombo", "valueEdit"};
        auto enabled = [&](bool count) {
            for (const QString &n : countSide + valueSide)
                QCOMPARE(dlg.findChild<QWidget *>(n)->isEnabled(), count == countSide.contains(n));
        };
        QVERIFY(child<QRadioButton>(&dlg, "countRadio")->isChecked());
        enabled(true);
        valueMode(&dlg);
        enabled(false);
        QTest::mouseClick(child<QRadioButton>(&dlg, "countRadio"), Qt::LeftButton);
        enabled(true);

        // The count takes ASCII digits only, typed or pasted.
        auto *count = child<QLineEdit>(&dlg, "countValueEdit");
        QTest::keyClicks(count, "12a3");
        QCOMPARE(count->text(), QStringLiteral("123"));
        count->setText(QStringLiteral("x4-5 6\u0663"));
        QCOMPARE(count->text(), QStringLiteral("456"));
    }

    void fieldTypeDrivesTheLists_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QStringList>("operators");
        QTest::addColumn<bool>("choice");
        QTest::newRow("boolean") << "boolean" << QStringList{"=", "!="} << true;
        QTest::newRow("string") << "string" << QStringList{"in", "not in"} << false;
        QTest::newRow("number") << "sint64" << Six << false;
        QTest::newRow("array") << "string array" << Six << false;
    }

    void fieldTypeDrivesTheLists()
    {
        QFETCH(QString, type);
        QFETCH(QStringList, operators);
        QFETCH(bool, choice);
        CWQLDlg dlg;
        dlg.show();
        valueMode(&dlg);
        auto *value = child<QLineEdit>(&dlg, "valueEdit");
        auto *valueChoice = child<QComboBox>(&dlg, "valueChoiceCombo");
        QTest::keyClicks(value, "old");
        choose(child<QComboBox>(&dlg, "fieldTypeCombo"), type);
        QCOMPARE(items(child<QComboBox>(&dlg, "valueConditionCombo")), operators);
        QCOMPARE(child<QComboBox>(&dlg, "valueConditionCombo")->currentIndex(), -1);
        QCOMPARE(valueChoice->isHidden(), !choice);
        QCOMPARE(value->isHidden(), choice);
        QCOMPARE(items(valueChoice), choice ? QStringList({"TRUE", "FALSE"}) : QStringList());
        QCOMPARE(valueChoice->currentIndex(), -1);
        QVERIFY(choice || value->text().isEmpty());
        // Going from boolean to another type brings the value edit back.
        choose(child<QComboBox>(&dlg, "fieldTypeCombo"), "uint8");
        QVERIFY(!value->isHidden() && valueChoice->isHidden());
        QCOMPARE(valueChoice->count(), 0);
    }

    void okChecksInOrderAndMovesTheFocus()
    {
        MessageCatcher catcher;
        CWQLDlg dlg;
        dlg.show();
        dlg.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&dlg));
        QStringList focus;
        auto press = [&] {
            child<QPushButton>(&dlg, "okButton")->click();
            focus << (QApplication::focusWidget() ? QApplication::focusWidget()->objectName() : "");
        };
        child<QLineEdit>(&dlg, "namespaceEdit")->clear();
        press();
        for (auto [edit, text] : {std::pair{"namespaceEdit", "root\\cimv2"}, {"selectEdit", "*"},
                                  {"fromEdit", "Win32_Service"}}) {
            child<QLineEdit>(&dlg, edit)->setText(text);
            press();
        }
        choose(child<QComboBox>(&dlg, "countConditionCombo"), ">");
        press();
        valueMode(&dlg);
        press();
        child<QLineEdit>(&dlg, "fieldEdit")->setText("State");
        press();
        choose(child<QComboBox>(&dlg, "fieldTypeCombo"), "string");
        press();
        choose(child<QComboBox>(&dlg, "valueConditionCombo"), "in");
        press();
        choose(child<QComboBox>(&dlg, "fieldTypeCombo"), "boolean");
        choose(child<QComboBox>(&dlg, "valueConditionCombo"), "=");
        press();

        QCOMPARE(catcher.texts(),
                 QStringList({"[NameSpace] Content is empty", "[SELECT] Content is empty",
                              "[FROM] Content is empty", "[Condition] Content is empty",
                              "[Value] Content is empty", "[Field] Content is empty",
                              "[Field Type] Content is empty", "[Condition] Content is empty",
                              "[Value] Content is empty", "[Value] Content is empty"}));
        QCOMPARE(focus, QStringList({"namespaceEdit", "selectEdit", "fromEdit", "countConditionCombo",
                                     "countValueEdit", "fieldEdit", "fieldTypeCombo",
                                     "valueConditionCombo", "valueEdit", "valueChoiceCombo"}));
        for (const auto &m : catcher.messages)
            QCOMPARE(m.caption, QStringLiteral("INFO"));
        QVERIFY(dlg.isVisible());
    }

    void conditionsComeBackAndReopen()
    {
        MessageCatcher catcher;
        // Count mode needs no WHERE and no field.
        whenModalShown([](QWidget *modal) {
            child<QLineEdit>(modal, "selectEdit")->setText("Name");
            child<QLineEdit>(modal, "fromEdit")->setText("Win32_Process");
            choose(child<QComboBox>(modal, "countConditionCombo"), ">=");
            QTest::keyClicks(child<QLineEdit>(modal, "countValueEdit"), "2");
            QTest::keyClick(modal, Qt::Key_Return);
        });
        const auto count = editWQLCondition(nullptr);
        QVERIFY(count);
        QCOMPARE(parts(*count), QStringList({"Root\\CIMV2", "Name", "Win32_Process", "", "1", ">=",
                                             "2", "", "", ""}));

        whenModalShown([](QWidget *modal) {
            child<QPlainTextEdit>(modal, "whereEdit")->setPlainText("Name = 'Spooler'");
            valueMode(modal);
            child<QLineEdit>(modal, "fieldEdit")->setText("Started");
            choose(child<QComboBox>(modal, "fieldTypeCombo"), "boolean");
            choose(child<QComboBox>(modal, "valueConditionCombo"), "!=");
            choose(child<QComboBox>(modal, "valueChoiceCombo"), "FALSE");
            maybeScreenshot(modal, "wqldlg-value");
            child<QPushButton>(modal, "okButton")->click();
        });
        const auto value = editWQLCondition(nullptr, *count);
        QVERIFY(value);
        QCOMPARE(parts(*value), QStringList({"Root\\CIMV2", "Name", "Win32_Process", "Name = 'Spooler'",
                                             "2", "!=", "", "Started", "boolean", "FALSE"}));
        QVERIFY(catcher.messages.isEmpty());

        // Edit mode 1 and 2 preselect everything; OK hands back what came in.
        for (const WQLCondition &c : {*count, *value}) {
            whenModalShown([&c](QWidget *modal) {
                QCOMPARE(child<QRadioButton>(modal, "countRadio")->isChecked(), c.mode == 1);
                QCOMPARE(child<QLineEdit>(modal, "fieldEdit")->isEnabled(), c.mode == 2);
                QCOMPARE(child<QComboBox>(modal, c.mode == 1 ? "countConditionCombo" : "valueConditionCombo")
                             ->currentText(), c.op);
                child<QPushButton>(modal, "okButton")->click();
            });
            QCOMPARE(parts(editWQLCondition(nullptr, c).value()), parts(c));
        }

        // A type outside the list that is still a boolean keeps the TRUE/FALSE choice.
        WQLCondition odd = *value;
        odd.fieldType = "BOOLEAN";
        odd.value = "TRUE";
        CWQLDlg dlg;
        dlg.setEditCondition(odd);
        dlg.show();
        QCOMPARE(child<QComboBox>(&dlg, "fieldTypeCombo")->currentIndex(), -1);
        QCOMPARE(child<QComboBox>(&dlg, "valueChoiceCombo")->currentText(), QStringLiteral("TRUE"));
        QVERIFY(child<QLineEdit>(&dlg, "valueEdit")->isHidden());

        whenModalShown([](QWidget *modal) { QTest::keyClick(modal, Qt::Key_Escape); });
        QVERIFY(!editWQLCondition(nullptr, *count));
    }

    // The line under the query follows the typing; it is advice and never keeps OK from closing.
    void adviceFollowsTheQuery()
    {
        MessageCatcher catcher;
        whenModalShown([](QWidget *modal) {
            auto *advice = child<QLabel>(modal, "adviceLabel");
            QCOMPARE(advice->accessibleName(), QStringLiteral("Query advice"));
            QTest::keyClicks(child<QLineEdit>(modal, "selectEdit"), "Name");
            QVERIFY(advice->text().isEmpty());
            QTest::keyClicks(child<QLineEdit>(modal, "fromEdit"), "Win32_Servise");
            QCOMPARE(advice->text(), QStringLiteral("FROM, character 1: Win32_Servise is not a class the "
                                                    "catalogue knows; did you mean Win32_Service?"));
            QVERIFY(child<QLabel>(modal, "adviceIcon")->isVisible());
            child<QLineEdit>(modal, "fromEdit")->setText("Win32_Service");
            QVERIFY(advice->text().isEmpty());
            QVERIFY(!child<QLabel>(modal, "adviceIcon")->isVisible());

            QTest::keyClicks(child<QPlainTextEdit>(modal, "whereEdit"), "State = Running");
            QVERIFY2(advice->text().startsWith("WHERE, character 9: expected a value, found \"Running\""),
                     qPrintable(advice->text()));
            child<QPlainTextEdit>(modal, "whereEdit")->setPlainText("State = 'Running'");
            valueMode(modal);
            child<QLineEdit>(modal, "fieldEdit")->setText("Started");
            choose(child<QComboBox>(modal, "fieldTypeCombo"), "uint8");
            QCOMPARE(advice->text(), QStringLiteral("Field: Started is not in the SELECT list\n"
                                                    "Field Type: Started is boolean in the catalogue, not uint8"));
            // Two wrapped lines get the room they need: the dialog grows rather than cut them.
            QTRY_VERIFY(advice->height() >= advice->heightForWidth(advice->width())
                        && advice->geometry().bottom() < advice->parentWidget()->height());
            maybeScreenshot(modal, "wqldlg-advice");
            choose(child<QComboBox>(modal, "valueConditionCombo"), "=");
            QTest::keyClicks(child<QLineEdit>(modal, "valueEdit"), "1");
            child<QPushButton>(modal, "okButton")->click();
        });
        const auto c = editWQLCondition(nullptr);
        QVERIFY(c);
        QCOMPARE(c->field, QStringLiteral("Started"));
        QVERIFY(catcher.messages.isEmpty());
    }
};

QTEST_MAIN(TestWQLDlg)
#include "tst_wqldlg.moc"
