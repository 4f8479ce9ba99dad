#include "conditions/editors.h"
#include "conditions/wqldlg.h"
#include "dialogdriver.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

namespace {

template<typename T>
T *child(QWidget *parent, const char *name)
{
    T *w = parent->findChild<T *>(QLatin1String(name));
    if (!w)
        qWarning("no child %s", name);
    return w;
}

QStringList items(QComboBox *combo)
{
    QStringList out;
    for (int i = 0; i < combo->count(); ++i)
        out << combo->itemText(i);
    return out;
}

void choose(QComboBox *combo, const QString &text)
{
    const int index = combo->findText(text);
    QVERIFY2(index >= 0, qPrintable(text));
    combo->setCurrentIndex(index);
}

const QStringList Six{"=", "!=", ">", "<", ">=", "<="};
const QStringList Eight{"=", "!=", ">", "<", ">=", "<=", "in", "not in"};

} // namespace

class TestWQLDlg : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void newConditionDefaults();
    void modesEnableTheirControls();
    void fieldTypeDrivesTheLists_data();
    void fieldTypeDrivesTheLists();
    void countAcceptsDigitsOnly();
    void okChecksInOrderAndMovesTheFocus();
    void countAndValueResults();
    void editModes();
    void modalThroughTheEditorSeam();
};

void TestWQLDlg::init()
{
    resetModalSafetyNet();
}

void TestWQLDlg::cleanup()
{
    resetConditionEditors();
    QVERIFY(!modalSafetyNetFired());
}

void TestWQLDlg::newConditionDefaults()
{
    CWQLDlg dlg;
    dlg.show();
    QCOMPARE(dlg.windowTitle(), QStringLiteral("WQL"));
    QVERIFY(child<QRadioButton>(&dlg, "countRadio")->isChecked());
    QVERIFY(!child<QRadioButton>(&dlg, "valueRadio")->isChecked());
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
    QVERIFY(!child<QLineEdit>(&dlg, "valueEdit")->isHidden());
    QVERIFY(child<QComboBox>(&dlg, "valueChoiceCombo")->isHidden());
    const QString dir = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
    if (!dir.isEmpty())
        dlg.grab().save(dir + "/wqldlg-new.png");
}

void TestWQLDlg::modesEnableTheirControls()
{
    CWQLDlg dlg;
    dlg.show();
    const QStringList valueSide{"fieldEdit", "fieldTypeCombo", "valueConditionCombo",
                                "valueChoiceCombo", "valueEdit"};
    const QStringList countSide{"countConditionCombo", "countValueEdit"};
    auto enabled = [&](const QStringList &names) {
        QList<bool> out;
        for (const QString &n : names)
            out << dlg.findChild<QWidget *>(n)->isEnabled();
        return out;
    };
    QCOMPARE(enabled(countSide), QList<bool>(2, true));
    QCOMPARE(enabled(valueSide), QList<bool>(5, false));

    QTest::mouseClick(child<QRadioButton>(&dlg, "valueRadio"), Qt::LeftButton);
    QCOMPARE(enabled(countSide), QList<bool>(2, false));
    QCOMPARE(enabled(valueSide), QList<bool>(5, true));

    QTest::mouseClick(child<QRadioButton>(&dlg, "countRadio"), Qt::LeftButton);
    QCOMPARE(enabled(countSide), QList<bool>(2, true));
    QCOMPARE(enabled(valueSide), QList<bool>(5, false));
}

void TestWQLDlg::fieldTypeDrivesTheLists_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QStringList>("operators");
    QTest::addColumn<bool>("choice");
    QTest::newRow("boolean") << "boolean" << QStringList{"=", "!="} << true;
    QTest::newRow("string") << "string" << QStringList{"in", "not in"} << false;
    QTest::newRow("number") << "sint64" << Six << false;
    QTest::newRow("array") << "string array" << Six << false;
}

void TestWQLDlg::fieldTypeDrivesTheLists()
{
    QFETCH(QString, type);
    QFETCH(QStringList, operators);
    QFETCH(bool, choice);

    CWQLDlg dlg;
    dlg.show();
    QTest::mouseClick(child<QRadioButton>(&dlg, "valueRadio"), Qt::LeftButton);
    auto *value = child<QLineEdit>(&dlg, "valueEdit");
    auto *valueChoice = child<QComboBox>(&dlg, "valueChoiceCombo");
    QTest::keyClicks(value, "old");
    choose(child<QComboBox>(&dlg, "fieldTypeCombo"), type);

    QCOMPARE(items(child<QComboBox>(&dlg, "valueConditionCombo")), operators);
    QCOMPARE(child<QComboBox>(&dlg, "valueConditionCombo")->currentIndex(), -1);
    QCOMPARE(valueChoice->isHidden(), !choice);
    QCOMPARE(value->isHidden(), choice);
    if (choice) {
        QCOMPARE(items(valueChoice), QStringList({"TRUE", "FALSE"}));
        QCOMPARE(valueChoice->currentIndex(), -1);
    } else {
        QCOMPARE(valueChoice->count(), 0);
        QVERIFY(value->text().isEmpty());
    }

    // Going from boolean back to another type brings the value edit back.
    if (choice) {
        choose(child<QComboBox>(&dlg, "fieldTypeCombo"), "uint8");
        QVERIFY(!value->isHidden());
        QVERIFY(valueChoice->isHidden());
        QCOMPARE(valueChoice->count(), 0);
    }
}

void TestWQLDlg::countAcceptsDigitsOnly()
{
    CWQLDlg dlg;
    dlg.show();
    auto *count = child<QLineEdit>(&dlg, "countValueEdit");
    QTest::keyClicks(count, "12a3");
    QCOMPARE(count->text(), QStringLiteral("123"));
    count->setText("x4-5 6");
    QCOMPARE(count->text(), QStringLiteral("456"));
    count->clear();
    count->setText(QStringLiteral("\u0663") + "7"); // an Arabic-Indic three does not count
    QCOMPARE(count->text(), QStringLiteral("7"));
}

void TestWQLDlg::okChecksInOrderAndMovesTheFocus()
{
    MessageCatcher catcher;
    CWQLDlg dlg;
    dlg.show();
    dlg.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&dlg));
    auto *ok = child<QPushButton>(&dlg, "okButton");
    QStringList focus;
    auto press = [&] {
        ok->click();
        focus << (QApplication::focusWidget() ? QApplication::focusWidget()->objectName() : "");
    };

    child<QLineEdit>(&dlg, "namespaceEdit")->clear();
    press();
    child<QLineEdit>(&dlg, "namespaceEdit")->setText("root\\cimv2");
    press();
    child<QLineEdit>(&dlg, "selectEdit")->setText("*");
    press();
    child<QLineEdit>(&dlg, "fromEdit")->setText("Win32_Service");
    press();
    choose(child<QComboBox>(&dlg, "countConditionCombo"), ">");
    press();

    QTest::mouseClick(child<QRadioButton>(&dlg, "valueRadio"), Qt::LeftButton);
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

void TestWQLDlg::countAndValueResults()
{
    MessageCatcher catcher;
    {
        CWQLDlg dlg;
        dlg.show();
        child<QLineEdit>(&dlg, "selectEdit")->setText("Name");
        child<QLineEdit>(&dlg, "fromEdit")->setText("Win32_Process");
        choose(child<QComboBox>(&dlg, "countConditionCombo"), ">=");
        QTest::keyClicks(child<QLineEdit>(&dlg, "countValueEdit"), "2");
        child<QPushButton>(&dlg, "okButton")->click(); // no WHERE needed
        QCOMPARE(dlg.result(), int(QDialog::Accepted));
        const WQLCondition c = dlg.condition();
        QCOMPARE(c.mode, 1);
        QCOMPARE(QStringList({c.nameSpace, c.select, c.from, c.where, c.op, c.count, c.field}),
                 QStringList({"Root\\CIMV2", "Name", "Win32_Process", "", ">=", "2", ""}));
    }
    {
        CWQLDlg dlg;
        dlg.show();
        child<QLineEdit>(&dlg, "selectEdit")->setText("*");
        child<QLineEdit>(&dlg, "fromEdit")->setText("Win32_Service");
        child<QPlainTextEdit>(&dlg, "whereEdit")->setPlainText("Name = 'Spooler'");
        QTest::mouseClick(child<QRadioButton>(&dlg, "valueRadio"), Qt::LeftButton);
        child<QLineEdit>(&dlg, "fieldEdit")->setText("Started");
        choose(child<QComboBox>(&dlg, "fieldTypeCombo"), "boolean");
        choose(child<QComboBox>(&dlg, "valueConditionCombo"), "!=");
        choose(child<QComboBox>(&dlg, "valueChoiceCombo"), "FALSE");
        const QString dir = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
        if (!dir.isEmpty())
            dlg.grab().save(dir + "/wqldlg-value.png");
        child<QPushButton>(&dlg, "okButton")->click();
        const WQLCondition c = dlg.condition();
        QCOMPARE(c.mode, 2);
        QCOMPARE(QStringList({c.where, c.field, c.fieldType, c.op, c.value, c.count}),
                 QStringList({"Name = 'Spooler'", "Started", "boolean", "!=", "FALSE", ""}));
    }
    QVERIFY(catcher.messages.isEmpty());
}

void TestWQLDlg::editModes()
{
    WQLCondition count;
    count.nameSpace = "root\\cimv2";
    count.select = "*";
    count.from = "Win32_Share";
    count.mode = 1;
    count.op = "<";
    count.count = "3";
    {
        CWQLDlg dlg;
        dlg.setEditCondition(count);
        dlg.show();
        QVERIFY(child<QRadioButton>(&dlg, "countRadio")->isChecked());
        QCOMPARE(child<QComboBox>(&dlg, "countConditionCombo")->currentText(), QStringLiteral("<"));
        QVERIFY(!child<QLineEdit>(&dlg, "fieldEdit")->isEnabled());
        child<QPushButton>(&dlg, "okButton")->click();
        QCOMPARE(dlg.condition().count, QStringLiteral("3"));
        QCOMPARE(dlg.condition().nameSpace, QStringLiteral("root\\cimv2"));
    }

    WQLCondition value;
    value.nameSpace = "root\\cimv2";
    value.select = "*";
    value.from = "Win32_Service";
    value.where = "Name='Spooler'";
    value.mode = 2;
    value.field = "StartMode";
    value.fieldType = "string";
    value.op = "not in";
    value.value = "Disabled";
    {
        CWQLDlg dlg;
        dlg.setEditCondition(value);
        dlg.show();
        QVERIFY(child<QRadioButton>(&dlg, "valueRadio")->isChecked());
        QVERIFY(child<QLineEdit>(&dlg, "fieldEdit")->isEnabled());
        QVERIFY(!child<QComboBox>(&dlg, "countConditionCombo")->isEnabled());
        QCOMPARE(items(child<QComboBox>(&dlg, "valueConditionCombo")),
                 QStringList({"in", "not in"}));
        child<QPushButton>(&dlg, "okButton")->click();
        QCOMPARE(dlg.result(), int(QDialog::Accepted));
        const WQLCondition c = dlg.condition();
        QCOMPARE(QStringList({c.where, c.field, c.fieldType, c.op, c.value}),
                 QStringList({"Name='Spooler'", "StartMode", "string", "not in", "Disabled"}));
    }

    value.fieldType = "BOOLEAN"; // not in the type list, yet still a boolean
    value.op = "=";
    value.value = "TRUE";
    CWQLDlg dlg;
    dlg.setEditCondition(value);
    dlg.show();
    QCOMPARE(child<QComboBox>(&dlg, "fieldTypeCombo")->currentIndex(), -1);
    QCOMPARE(child<QComboBox>(&dlg, "valueChoiceCombo")->currentText(), QStringLiteral("TRUE"));
    QVERIFY(child<QLineEdit>(&dlg, "valueEdit")->isHidden());
}

void TestWQLDlg::modalThroughTheEditorSeam()
{
    whenModalShown([](QWidget *modal) {
        child<QLineEdit>(modal, "selectEdit")->setText("*");
        child<QLineEdit>(modal, "fromEdit")->setText("Win32_QuickFixEngineering");
        choose(child<QComboBox>(modal, "countConditionCombo"), "=");
        QTest::keyClicks(child<QLineEdit>(modal, "countValueEdit"), "0");
        QTest::keyClick(modal, Qt::Key_Return);
    });
    const auto c = editWQLCondition(nullptr);
    QVERIFY(c);
    QCOMPARE(c->from, QStringLiteral("Win32_QuickFixEngineering"));
    QCOMPARE(c->count, QStringLiteral("0"));

    whenModalShown([](QWidget *modal) { QTest::keyClick(modal, Qt::Key_Escape); });
    QVERIFY(!editWQLCondition(nullptr, *c));
}

QTEST_MAIN(TestWQLDlg)
#include "tst_wqldlg.moc"
