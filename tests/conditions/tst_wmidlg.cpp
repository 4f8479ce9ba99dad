#include "conditions/arraydlg.h"
#include "conditions/classtreemodel.h"
#include "conditions/editors.h"
#include "conditions/wmidlg.h"
#include "control/settings.h"
#include "dialogdriver.h"
#include "resources/images.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QHeaderView>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTreeView>
#include <QTreeWidget>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

namespace {

const QByteArray Marker("\xA6\xA6");

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

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

QStringList columnTexts(QTableWidget *table, int column)
{
    QStringList out;
    for (int r = 0; r < table->rowCount(); ++r)
        out << table->item(r, column)->text();
    return out;
}

void maybeScreenshot(QWidget *w, const QString &name)
{
    const QString dir = qEnvironmentVariable("QARVO_SCREENSHOT_DIR");
    if (!dir.isEmpty())
        w->grab().save(dir + "/" + name + ".png");
}

// Selects the tree node with this text and returns it.
QModelIndex selectClass(CWMIDlg &dlg, const QString &text)
{
    auto *tree = child<QTreeView>(&dlg, "classTree");
    auto *model = qobject_cast<ClassTreeModel *>(tree->model());
    const QModelIndex index = model->findText(text);
    tree->setCurrentIndex(index);
    return index;
}

void selectField(CWMIDlg &dlg, const QString &name)
{
    auto *fields = child<QTreeWidget>(&dlg, "fieldList");
    const auto found = fields->findItems(name, Qt::MatchExactly, 0);
    QVERIFY2(!found.isEmpty(), qPrintable(name));
    fields->setCurrentItem(found.first());
}

} // namespace

class TestWMIDlg : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void opensOnTheRootWithTheTree();
    void categoriesAndClasses();
    void operatorsAndValuesByType_data();
    void operatorsAndValuesByType();
    void okChecksInOrder();
    void okHandsBackTheCondition();
    void arrayValuesOnlyThroughTheArrayDialog();
    void editModePreselects();
    void editModeWithUnknownValue();
    void catalogueFailures();
    void modalThroughTheEditorSeam();
    void shippedCatalogueWithoutTheSetting();

    void arraySplitAndJoin_data();
    void arraySplitAndJoin();
    void arrayDialogNumbersAndDeletes();
    void arrayDialogAddAndEmptyInput();

private:
    QTemporaryDir m_settingsDir;
    QTemporaryDir m_catalogue;
};

void TestWMIDlg::initTestCase()
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, m_settingsDir.path());
    const QString root = m_catalogue.path();
    writeFile(root + "/class.dat", "!Operating System\n"
                                   "@Services\n"
                                   "#Win32_Test$Test class from the list\n"
                                   "#Win32_Missing$Not in its field file\n"
                                   "a plain line\n"
                                   "!Files\n"
                                   "@File System\n"
                                   "#CIM_Thing$A thing\n");
    writeFile(root + "/data/win32.dat",
              "Win32_Test\r\nroot\\cimv2\r\n@The test class.\r\n{\r\n"
              "boolean Flag;\r\n" + Marker + "A flag.\r\n"
              "string Name;\r\n" + Marker + "The name.\\nSecond line.\r\n"
              "uint32 Size;Units(\"bytes\")\r\n" + Marker + "A size.\r\n"
              "uint16 Codes[];\r\n" + Marker + "Some codes.\r\n"
              "string Tags[];\r\n" + Marker + "Some tags.\r\n"
              "string Mode;ValueMap{\"Auto\", \"Manual\", \"Disabled\"}\r\n" + Marker + "Mode.\r\n"
              "uint16 Level;ValueMap{\"0\", \"1\"} Units(\"steps\")\r\n" + Marker + "Level.\r\n"
              "CIM_DataFile Ref Target;\r\n" + Marker + "A file.\r\n"
              "datetime When;\r\n" + Marker + "A time.\r\n"
              "}\r\n");
    writeFile(root + "/data/cim.dat", "CIM_Thing\nroot\\cimv2\nno description\n{\nstring Path;\n"
                                      + Marker + "p\n}\n");
    writeFile(root + "/data/other.dat", "");
}

void TestWMIDlg::init()
{
    auto settings = managerSettings();
    settings->setValue("ProgramPath", m_catalogue.path());
    settings->sync();
    resetModalSafetyNet();
}

void TestWMIDlg::cleanup()
{
    QFile::remove(managerSettings()->fileName());
    resetConditionEditors();
    QVERIFY(!modalSafetyNetFired());
}

void TestWMIDlg::opensOnTheRootWithTheTree()
{
    MessageCatcher catcher;
    CWMIDlg dlg;
    dlg.show();
    QCOMPARE(dlg.windowTitle(), QStringLiteral("WMI"));

    auto *tree = child<QTreeView>(&dlg, "classTree");
    auto *model = qobject_cast<ClassTreeModel *>(tree->model());
    QVERIFY(model);
    const QModelIndex root = model->index(0, 0);
    QCOMPARE(tree->currentIndex(), root);
    QCOMPARE(root.data().toString(), QStringLiteral("WMI"));
    QCOMPARE(child<QPlainTextEdit>(&dlg, "descriptionEdit")->toPlainText(), QStringLiteral("WMI"));

    const QModelIndex leaf = model->findText("a plain line");
    QCOMPARE(leaf.parent().data().toString(), QStringLiteral("Win32_Missing"));
    for (const QModelIndex &index : {root, model->findText("Services"), model->findText("Win32_Test")}) {
        QCOMPARE(index.data(images::ImageIndexRole).toInt(), 0);
        QCOMPARE(index.data(ClassTreeModel::SelectedImageIndexRole).toInt(), 1);
    }
    QCOMPARE(leaf.data(images::ImageIndexRole).toInt(), 10);
    QCOMPARE(leaf.data(ClassTreeModel::SelectedImageIndexRole).toInt(), 9);
    QVERIFY(!leaf.data(Qt::DecorationRole).value<QIcon>().isNull());

    // Parents of inserted categories and classes are open; a class with a leaf is not.
    QVERIFY(tree->isExpanded(root));
    QVERIFY(tree->isExpanded(model->findText("Operating System")));
    QVERIFY(tree->isExpanded(model->findText("Services")));
    QVERIFY(!tree->isExpanded(model->findText("Win32_Missing")));

    auto *fields = child<QTreeWidget>(&dlg, "fieldList");
    QCOMPARE(fields->headerItem()->text(0), QStringLiteral("Field Name"));
    QCOMPARE(fields->headerItem()->text(1), QStringLiteral("Type"));
    QCOMPARE(fields->columnWidth(0), 160);
    QCOMPARE(fields->columnWidth(1), 140);
    QCOMPARE(fields->topLevelItemCount(), 0);

    QVERIFY(child<QComboBox>(&dlg, "valueCombo")->isHidden());
    QVERIFY(!child<QComboBox>(&dlg, "conditionCombo")->isEnabled());
    QVERIFY(child<QPushButton>(&dlg, "arrayButton")->isHidden());
    QVERIFY(child<QLineEdit>(&dlg, "valueEdit")->isReadOnly());
    QVERIFY(child<QLineEdit>(&dlg, "unitsEdit")->isHidden());
    QVERIFY(catcher.messages.isEmpty());
    maybeScreenshot(&dlg, "wmidlg-open");
}

void TestWMIDlg::categoriesAndClasses()
{
    MessageCatcher catcher;
    CWMIDlg dlg;
    dlg.show();
    auto *fields = child<QTreeWidget>(&dlg, "fieldList");
    auto *description = child<QPlainTextEdit>(&dlg, "descriptionEdit");
    auto *nameSpace = child<QLineEdit>(&dlg, "namespaceEdit");

    selectClass(dlg, "Services");
    QCOMPARE(description->toPlainText(), QStringLiteral("Services"));
    QCOMPARE(fields->topLevelItemCount(), 0);
    QVERIFY(nameSpace->text().isEmpty());

    selectClass(dlg, "Win32_Test");
    QCOMPARE(description->toPlainText(), QStringLiteral("The test class."));
    QCOMPARE(nameSpace->text(), QStringLiteral("root\\cimv2"));
    QStringList rows;
    for (int i = 0; i < fields->topLevelItemCount(); ++i)
        rows << fields->topLevelItem(i)->text(0) + " " + fields->topLevelItem(i)->text(1);
    QCOMPARE(rows, QStringList({"Flag boolean", "Name string", "Size uint32", "Codes[] uint16",
                                "Tags[] string", "Mode string", "Level uint16",
                                "Target CIM_DataFile Ref", "When datetime"}));

    // Without an "@" line the description from the class list stays.
    selectClass(dlg, "CIM_Thing");
    QCOMPARE(description->toPlainText(), QStringLiteral("A thing"));
    QCOMPARE(fields->topLevelItemCount(), 1);

    // A class missing from its file: empty list, no message.
    selectField(dlg, "Path");
    selectClass(dlg, "Win32_Missing");
    QCOMPARE(description->toPlainText(), QStringLiteral("Not in its field file"));
    QCOMPARE(fields->topLevelItemCount(), 0);
    QVERIFY(child<QLineEdit>(&dlg, "fieldEdit")->text().isEmpty());
    QVERIFY(!child<QComboBox>(&dlg, "conditionCombo")->isEnabled());
    QVERIFY(catcher.messages.isEmpty());
}

void TestWMIDlg::operatorsAndValuesByType_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QStringList>("operators");
    QTest::addColumn<QStringList>("choices"); // empty: the value edit is used
    QTest::addColumn<bool>("array");
    QTest::addColumn<QString>("units");

    const QStringList all{"=", "!=", ">", "<", ">=", "<="};
    QTest::newRow("boolean") << "Flag" << QStringList{"=", "!="} << QStringList{"TRUE", "FALSE"}
                             << false << "";
    QTest::newRow("string") << "Name" << QStringList{"in", "not in"} << QStringList() << false << "";
    QTest::newRow("number with units") << "Size" << all << QStringList() << false << "bytes";
    QTest::newRow("datetime") << "When" << all << QStringList() << false << "";
    QTest::newRow("numeric array") << "Codes[]" << QStringList{"=", "!="} << QStringList() << true
                                   << "";
    QTest::newRow("string array") << "Tags[]" << QStringList{"in", "not in"} << QStringList()
                                  << true << "";
    QTest::newRow("string value map") << "Mode" << QStringList{"in", "not in"}
                                      << QStringList{"Auto", "Manual", "Disabled"} << false << "";
    QTest::newRow("numeric value map with units") << "Level" << all << QStringList{"0", "1"}
                                                  << false << "steps";
}

void TestWMIDlg::operatorsAndValuesByType()
{
    QFETCH(QString, field);
    QFETCH(QStringList, operators);
    QFETCH(QStringList, choices);
    QFETCH(bool, array);
    QFETCH(QString, units);

    CWMIDlg dlg;
    dlg.show();
    selectClass(dlg, "Win32_Test");
    // Start from a field of another kind so that nothing is left over from it.
    selectField(dlg, field == "Flag" ? "Codes[]" : "Flag");
    selectField(dlg, field);

    auto *condition = child<QComboBox>(&dlg, "conditionCombo");
    auto *value = child<QLineEdit>(&dlg, "valueEdit");
    auto *valueList = child<QComboBox>(&dlg, "valueCombo");
    auto *unitsEdit = child<QLineEdit>(&dlg, "unitsEdit");
    QCOMPARE(child<QLineEdit>(&dlg, "fieldEdit")->text(), field);
    QVERIFY(condition->isEnabled());
    QCOMPARE(items(condition), operators);
    QCOMPARE(condition->currentIndex(), -1);
    QCOMPARE(valueList->isHidden(), choices.isEmpty());
    QCOMPARE(value->isHidden(), !choices.isEmpty());
    if (!choices.isEmpty()) {
        QCOMPARE(items(valueList), choices);
        QCOMPARE(valueList->currentIndex(), -1);
    }
    QCOMPARE(child<QPushButton>(&dlg, "arrayButton")->isHidden(), !array);
    QCOMPARE(value->isReadOnly(), array);
    QCOMPARE(unitsEdit->isHidden(), units.isEmpty());
    if (!units.isEmpty())
        QCOMPARE(unitsEdit->text(), units);
    if (field == "Name")
        QCOMPARE(child<QPlainTextEdit>(&dlg, "fieldDescriptionEdit")->toPlainText(),
                 QStringLiteral("The name.\nSecond line."));
    if (field == "Mode")
        maybeScreenshot(&dlg, "wmidlg-valuemap");
}

void TestWMIDlg::okChecksInOrder()
{
    MessageCatcher catcher;
    CWMIDlg dlg;
    dlg.show();
    auto *ok = child<QPushButton>(&dlg, "okButton");
    auto *condition = child<QComboBox>(&dlg, "conditionCombo");
    auto *valueList = child<QComboBox>(&dlg, "valueCombo");

    ok->click(); // the root is a class name but has no field
    selectClass(dlg, "Win32_Test");
    selectField(dlg, "Target");
    QCOMPARE(child<QLineEdit>(&dlg, "fieldEdit")->text(), QStringLiteral("NOT SUPPORT"));
    QVERIFY(child<QLineEdit>(&dlg, "typeEdit")->text().isEmpty());
    QVERIFY(!condition->isEnabled());
    ok->click();
    selectField(dlg, "Size");
    ok->click();
    condition->setCurrentIndex(condition->findText(">="));
    ok->click();
    selectField(dlg, "Flag");
    condition->setCurrentIndex(0);
    ok->click(); // nothing chosen in the value list
    selectField(dlg, "Codes[]");
    condition->setCurrentIndex(0);
    ok->click(); // an array without values

    QCOMPARE(catcher.texts(), QStringList({"Select field",
                                           "This system does not support selected field yet",
                                           "[Condition] Content is empty",
                                           "[Value] Content is empty", "[Value] Content is empty",
                                           "[Value] Content is empty"}));
    for (const auto &m : catcher.messages) {
        QCOMPARE(m.caption, QStringLiteral("INFO"));
        QCOMPARE(m.icon, ui::MessageIcon::Information);
    }
    QVERIFY(dlg.isVisible());
    QCOMPARE(dlg.result(), 0);
    Q_UNUSED(valueList);

    // The same order as a plain function, including the empty class.
    WMIDlgEntries e;
    QCOMPARE(firstWMIDlgProblem(e), 303);
    e.className = "C";
    QCOMPARE(firstWMIDlgProblem(e), 304);
    e.field = "NOT SUPPORT";
    QCOMPARE(firstWMIDlgProblem(e), 305);
    e.field = "F";
    QCOMPARE(firstWMIDlgProblem(e), 306);
    e.operatorChosen = true;
    QCOMPARE(firstWMIDlgProblem(e), 307);
    e.valueText = "v";
    QCOMPARE(firstWMIDlgProblem(e), 0);
    e.valueEditShown = false;
    e.valueListShown = true;
    QCOMPARE(firstWMIDlgProblem(e), 307);
    e.valueListChosen = true;
    QCOMPARE(firstWMIDlgProblem(e), 0);
}

void TestWMIDlg::okHandsBackTheCondition()
{
    MessageCatcher catcher;
    {
        CWMIDlg dlg;
        dlg.show();
        selectClass(dlg, "Win32_Test");
        selectField(dlg, "Size");
        auto *condition = child<QComboBox>(&dlg, "conditionCombo");
        condition->setCurrentIndex(condition->findText("<="));
        auto *value = child<QLineEdit>(&dlg, "valueEdit");
        QTest::keyClicks(value, "1024");
        child<QPushButton>(&dlg, "okButton")->click();
        QCOMPARE(dlg.result(), int(QDialog::Accepted));
        const WMICondition c = dlg.condition();
        QCOMPARE(QStringList({c.nameSpace, c.className, c.field, c.type, c.condition, c.value}),
                 QStringList({"root\\cimv2", "Win32_Test", "Size", "uint32", "<=", "1024"}));
    }
    {
        CWMIDlg dlg;
        dlg.show();
        selectClass(dlg, "Win32_Test");
        selectField(dlg, "Mode");
        child<QComboBox>(&dlg, "conditionCombo")->setCurrentIndex(1);
        child<QComboBox>(&dlg, "valueCombo")->setCurrentIndex(1);
        child<QPushButton>(&dlg, "okButton")->click();
        const WMICondition c = dlg.condition();
        QCOMPARE(QStringList({c.field, c.type, c.condition, c.value}),
                 QStringList({"Mode", "string", "not in", "Manual"}));
    }
    QVERIFY(catcher.messages.isEmpty());
}

void TestWMIDlg::arrayValuesOnlyThroughTheArrayDialog()
{
    MessageCatcher catcher;
    CWMIDlg dlg;
    dlg.show();
    selectClass(dlg, "Win32_Test");
    selectField(dlg, "Codes[]");
    auto *value = child<QLineEdit>(&dlg, "valueEdit");
    QTest::keyClicks(value, "typed");
    QVERIFY(value->text().isEmpty());

    // First round: nothing given, so the list starts empty; add two values.
    QStringList seenOnOpen;
    whenModalShown([&](QWidget *modal) {
        auto *list = child<QTableWidget>(modal, "arrayList");
        seenOnOpen << QString::number(list->rowCount());
        for (const char *text : {"7", "9"}) {
            whenModalShown([text](QWidget *input) {
                QCOMPARE(input->windowTitle(), QStringLiteral("Input Data"));
                QTest::keyClicks(child<QLineEdit>(input, "valueEdit"), text);
                child<QPushButton>(input, "okButton")->click();
            });
            child<QPushButton>(modal, "addButton")->click();
        }
        child<QPushButton>(modal, "okButton")->click();
    });
    child<QPushButton>(&dlg, "arrayButton")->click();
    QCOMPARE(value->text(), QStringLiteral("7,9"));

    // Second round: the current text is the initial content; Cancel keeps it.
    whenModalShown([&](QWidget *modal) {
        QCOMPARE(modal->windowTitle(), QStringLiteral("Array Properties"));
        seenOnOpen << columnTexts(child<QTableWidget>(modal, "arrayList"), 1).join('|');
        child<QPushButton>(modal, "cancelButton")->click();
    });
    child<QPushButton>(&dlg, "arrayButton")->click();
    QCOMPARE(value->text(), QStringLiteral("7,9"));
    QCOMPARE(seenOnOpen, QStringList({"0", "7|9"}));

    child<QComboBox>(&dlg, "conditionCombo")->setCurrentIndex(1);
    child<QPushButton>(&dlg, "okButton")->click();
    QCOMPARE(dlg.condition().value, QStringLiteral("7,9"));
    QCOMPARE(dlg.condition().condition, QStringLiteral("!="));
    QCOMPARE(dlg.condition().field, QStringLiteral("Codes[]"));
    QVERIFY(catcher.messages.isEmpty());
}

void TestWMIDlg::editModePreselects()
{
    CWMIDlg dlg;
    dlg.setEditCondition({"root\\cimv2", "Win32_Test", "Mode", "string", "not", "Manual"});
    dlg.show();
    auto *tree = child<QTreeView>(&dlg, "classTree");
    QCOMPARE(tree->currentIndex().data().toString(), QStringLiteral("Win32_Test"));
    auto *fields = child<QTreeWidget>(&dlg, "fieldList");
    QCOMPARE(fields->currentItem()->text(0), QStringLiteral("Mode"));
    QVERIFY(fields->currentItem()->isSelected());
    // The operator is the first one that begins with the given text.
    QCOMPARE(child<QComboBox>(&dlg, "conditionCombo")->currentText(), QStringLiteral("not in"));
    QCOMPARE(child<QComboBox>(&dlg, "valueCombo")->currentText(), QStringLiteral("Manual"));
    maybeScreenshot(&dlg, "wmidlg-edit");

    child<QPushButton>(&dlg, "okButton")->click();
    QCOMPARE(dlg.result(), int(QDialog::Accepted));
    QCOMPARE(dlg.condition().value, QStringLiteral("Manual"));

    CWMIDlg numbers;
    numbers.setEditCondition({"", "Win32_Test", "Size", "", "<", "42"});
    numbers.show();
    QCOMPARE(child<QComboBox>(&numbers, "conditionCombo")->currentText(), QStringLiteral("<"));
    QCOMPARE(child<QLineEdit>(&numbers, "valueEdit")->text(), QStringLiteral("42"));
    QVERIFY(!child<QLineEdit>(&numbers, "valueEdit")->isReadOnly());
}

void TestWMIDlg::editModeWithUnknownValue()
{
    MessageCatcher catcher;
    CWMIDlg dlg;
    dlg.setEditCondition({"", "Win32_Test", "Mode", "", "in", "Sometimes"});
    dlg.show();
    QCOMPARE(child<QComboBox>(&dlg, "valueCombo")->currentIndex(), -1);
    child<QPushButton>(&dlg, "okButton")->click();
    QCOMPARE(catcher.texts(), QStringList({"[Value] Content is empty"}));

    // A class that is no longer in the catalogue leaves the tree without a selection.
    CWMIDlg gone;
    gone.setEditCondition({"", "Win32_Gone", "X", "", "=", "1"});
    gone.show();
    QVERIFY(!child<QTreeView>(&gone, "classTree")->currentIndex().isValid());
    child<QPushButton>(&gone, "okButton")->click();
    QCOMPARE(catcher.texts().last(), QStringLiteral("Select WMI class"));
}

void TestWMIDlg::catalogueFailures()
{
    QTemporaryDir empty;
    {
        auto settings = managerSettings();
        settings->setValue("ProgramPath", empty.path());
    }
    MessageCatcher catcher;
    {
        CWMIDlg dlg;
        dlg.show();
        QCOMPARE(child<QTreeView>(&dlg, "classTree")->model()->rowCount(), 0);
        child<QPushButton>(&dlg, "okButton")->click();
        QVERIFY(dlg.isVisible());
    }
    QCOMPARE(catcher.texts(), QStringList({"Cannot open class list file", "Select WMI class"}));
    QCOMPARE(catcher.messages[0].caption, QStringLiteral("ERROR"));

    // A class list without field files: the root's file cannot be opened.
    writeFile(empty.filePath("class.dat"), "!A\n@B\n#Win32_X$x\n");
    catcher.messages.clear();
    CWMIDlg dlg;
    dlg.show();
    selectClass(dlg, "Win32_X");
    QCOMPARE(catcher.texts(), QStringList({"Cannot open field list file",
                                           "Cannot open field list file"}));
    QCOMPARE(catcher.messages.last().icon, ui::MessageIcon::Critical);
    QCOMPARE(child<QTreeWidget>(&dlg, "fieldList")->topLevelItemCount(), 0);
}

void TestWMIDlg::modalThroughTheEditorSeam()
{
    MessageCatcher catcher;
    whenModalShown([](QWidget *modal) {
        auto &dlg = *qobject_cast<CWMIDlg *>(modal);
        selectClass(dlg, "Win32_Test");
        selectField(dlg, "Flag");
        child<QComboBox>(modal, "conditionCombo")->setCurrentIndex(1);
        child<QComboBox>(modal, "valueCombo")->setCurrentIndex(0);
        child<QPushButton>(modal, "okButton")->click();
    });
    const auto added = editWMICondition(nullptr);
    QVERIFY(added);
    QCOMPARE(QStringList({added->nameSpace, added->className, added->field, added->type,
                          added->condition, added->value}),
             QStringList({"root\\cimv2", "Win32_Test", "Flag", "boolean", "!=", "TRUE"}));

    whenModalShown([](QWidget *modal) {
        QCOMPARE(child<QComboBox>(modal, "valueCombo")->currentText(), QStringLiteral("TRUE"));
        child<QPushButton>(modal, "cancelButton")->click();
    });
    QVERIFY(!editWMICondition(nullptr, *added));
    QVERIFY(catcher.messages.isEmpty());
}

void TestWMIDlg::shippedCatalogueWithoutTheSetting()
{
    QFile::remove(managerSettings()->fileName());
    MessageCatcher catcher;
    CWMIDlg dlg;
    dlg.show();
    QVERIFY(selectClass(dlg, "Win32_Service").isValid());
    QCOMPARE(child<QLineEdit>(&dlg, "namespaceEdit")->text(), QStringLiteral("root\\cimv2"));
    selectField(dlg, "StartMode");
    QCOMPARE(items(child<QComboBox>(&dlg, "valueCombo")),
             QStringList({"Boot", "System", "Auto", "Manual", "Disabled"}));
    maybeScreenshot(&dlg, "wmidlg-shipped");
    QVERIFY(catcher.messages.isEmpty());
}

// ---- array dialogs --------------------------------------------------------------------------

void TestWMIDlg::arraySplitAndJoin_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("values");
    QTest::newRow("one") << "x" << QStringList{"x"};
    QTest::newRow("two") << "a,b" << QStringList{"a", "b"};
    QTest::newRow("trailing comma") << "a," << QStringList{"a", ""};
    QTest::newRow("spaces kept") << " a b ,c" << QStringList{" a b ", "c"};
    QTest::newRow("empty") << "" << QStringList{""};
}

void TestWMIDlg::arraySplitAndJoin()
{
    QFETCH(QString, text);
    QFETCH(QStringList, values);
    QCOMPARE(splitArrayText(text), values);
    QCOMPARE(joinArrayValues(values), text);
}

void TestWMIDlg::arrayDialogNumbersAndDeletes()
{
    CArrayDlg dlg;
    dlg.setArrayText("a,b,c,d", true);
    dlg.show();
    QCOMPARE(dlg.windowTitle(), QStringLiteral("Array Properties"));
    auto *list = child<QTableWidget>(&dlg, "arrayList");
    auto *del = child<QPushButton>(&dlg, "delButton");
    QCOMPARE(list->horizontalHeaderItem(0)->text(), QStringLiteral("Num"));
    QCOMPARE(list->horizontalHeaderItem(1)->text(), QStringLiteral("Value"));
    QCOMPARE(list->columnWidth(0), 50);
    QVERIFY(list->showGrid());
    QCOMPARE(columnTexts(list, 0), QStringList({"1", "2", "3", "4"}));
    QVERIFY(!del->isEnabled());
    maybeScreenshot(&dlg, "arraydlg");

    // A click on an item enables "Del", a click on empty space disables it again.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(1, 1)).center());
    QVERIFY(del->isEnabled());
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, QPoint(5, list->viewport()->height() - 3));
    QVERIFY(!del->isEnabled());

    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(1, 0)).center());
    del->click();
    QCOMPARE(columnTexts(list, 0), QStringList({"1", "2", "3"}));
    QCOMPARE(columnTexts(list, 1), QStringList({"a", "c", "d"}));
    QVERIFY(!del->isEnabled());

    for (int i = 0; i < 3; ++i) {
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(0, 1)).center());
        del->click();
    }
    child<QPushButton>(&dlg, "okButton")->click();
    QCOMPARE(dlg.arrayText(), QString());

    CArrayDlg unflagged;
    unflagged.setArrayText("ignored", false);
    QCOMPARE(child<QTableWidget>(&unflagged, "arrayList")->rowCount(), 0);

    CArrayDlg trailing;
    trailing.setArrayText("a,", true);
    QCOMPARE(trailing.values(), QStringList({"a", ""}));
    child<QPushButton>(&trailing, "okButton")->click();
    QCOMPARE(trailing.arrayText(), QStringLiteral("a,"));
}

void TestWMIDlg::arrayDialogAddAndEmptyInput()
{
    MessageCatcher catcher;
    CArrayDlg dlg;
    dlg.setArrayText("x", true);
    dlg.show();
    whenModalShown([&](QWidget *input) {
        maybeScreenshot(input, "arrayinputdlg");
        auto *ok = child<QPushButton>(input, "okButton");
        ok->click(); // empty: refused
        QVERIFY(input->isVisible());
        QTest::keyClicks(child<QLineEdit>(input, "valueEdit"), "with space");
        ok->click();
    });
    child<QPushButton>(&dlg, "addButton")->click();
    QCOMPARE(catcher.texts(), QStringList({"Value is empty"}));
    QCOMPARE(catcher.messages[0].caption, QStringLiteral("INFO"));
    auto *list = child<QTableWidget>(&dlg, "arrayList");
    QCOMPARE(columnTexts(list, 0), QStringList({"1", "2"}));

    whenModalShown([](QWidget *input) { child<QPushButton>(input, "cancelButton")->click(); });
    child<QPushButton>(&dlg, "addButton")->click();
    QCOMPARE(list->rowCount(), 2);

    child<QPushButton>(&dlg, "okButton")->click();
    QCOMPARE(dlg.arrayText(), QStringLiteral("x,with space"));
}

QTEST_MAIN(TestWMIDlg)
#include "tst_wmidlg.moc"
