#include "conditions/arraydlg.h"
#include "conditions/classtreemodel.h"
#include "conditions/editors.h"
#include "conditions/wmidlg.h"
#include "control/settings.h"
#include "dialogdriver.h"
#include "dlghelpers.h"
#include "resources/images.h"

#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTreeView>
#include <QTreeWidget>

using namespace qarvo;
using namespace qarvo::test;

namespace {

const QByteArray Marker("\xA6\xA6");

ClassTreeModel *treeModel(QWidget *dlg)
{
    return qobject_cast<ClassTreeModel *>(child<QTreeView>(dlg, "classTree")->model());
}

// Selects the tree node with this text and returns it.
QModelIndex selectClass(QWidget *dlg, const QString &text)
{
    const QModelIndex index = treeModel(dlg)->findText(text);
    child<QTreeView>(dlg, "classTree")->setCurrentIndex(index);
    return index;
}

void selectField(QWidget *dlg, const QString &name)
{
    auto *fields = child<QTreeWidget>(dlg, "fieldList");
    const auto found = fields->findItems(name, Qt::MatchExactly, 0);
    QVERIFY2(!found.isEmpty(), qPrintable(name));
    fields->setCurrentItem(found.first());
}

QStringList parts(const WMICondition &c)
{
    return {c.nameSpace, c.className, c.field, c.type, c.condition, c.value};
}

void clickRow(QTableWidget *list, int row)
{
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(row, 1)).center());
}

} // namespace

class TestWMIDlg : public QObject
{
    Q_OBJECT
    QTemporaryDir m_settingsDir;
    QTemporaryDir m_catalogue;

private Q_SLOTS:
    void initTestCase()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, m_settingsDir.path());
        const QString root = m_catalogue.path();
        writeFile(root + "/class.dat",
                  "!Operating System\n@Services\n#Win32_Test$Test class from the list\n"
                  "#Win32_Roles$Roles\n#Win32_Missing$Not in its field file\na plain line\n"
                  "!Files\n@File System\n#CIM_Thing$A thing\n");
        QByteArray fields;
        for (const char *line : {"boolean Flag;", "string Name;", "uint32 Size;Units(\"bytes\")",
                                 "uint16 Codes[];", "string Tags[];",
                                 "string Mode;ValueMap{\"Auto\", \"Manual\", \"Disabled\"}",
                                 "uint16 Level;ValueMap{\"0\", \"1\"} Units(\"steps\")",
                                 "CIM_DataFile Ref Target;", "datetime When;"})
            fields += QByteArray(line) + "\r\n" + Marker
                      + (QByteArray(line).startsWith("string Name") ? "The name.\\nSecond line." : "d")
                      + "\r\n";
        writeFile(root + "/data/win32.dat",
                  "Win32_Test\r\nroot\\cimv2\r\n@The test class.\r\n{\r\n" + fields
                      + "}\r\n"
                        "Win32_Roles\nroot\\cimv2\n@\n{\nuint16 Role;ValueMap{\"1\", \"3\", \"4\"} "
                        "Values{\"Workstation\", \"Server \\\"main\\\"\", \"\"}\n"
                      + Marker + "r\n}\n");
        writeFile(root + "/data/cim.dat", "CIM_Thing\nroot\\cimv2\nno description\n{\nstring Path;\n"
                                          + Marker + "p\n}\n");
        writeFile(root + "/data/other.dat", "");
    }

    void init()
    {
        managerSettings()->setValue("ProgramPath", m_catalogue.path());
        resetModalSafetyNet();
    }

    void cleanup()
    {
        QFile::remove(managerSettings()->fileName());
        resetConditionEditors();
        QVERIFY(!modalSafetyNetFired());
    }

    void treeAndClasses()
    {
        MessageCatcher catcher;
        CWMIDlg dlg;
        dlg.show();
        QCOMPARE(dlg.windowTitle(), QStringLiteral("WMI"));
        auto *tree = child<QTreeView>(&dlg, "classTree");
        ClassTreeModel *model = treeModel(&dlg);
        const QModelIndex root = model->index(0, 0);
        QCOMPARE(tree->currentIndex(), root);
        QCOMPARE(root.data().toString(), QStringLiteral("WMI"));
        QVERIFY(!model->index(0, 1, root).isValid()); // one column only
        auto *description = child<QPlainTextEdit>(&dlg, "descriptionEdit");
        QCOMPARE(description->toPlainText(), QStringLiteral("WMI"));

        const QModelIndex leaf = model->findText("a plain line");
        QCOMPARE(leaf.parent().data().toString(), QStringLiteral("Win32_Missing"));
        for (const QModelIndex &index : {root, model->findText("Services"), model->findText("Win32_Test"), leaf}) {
            QCOMPARE(index.data(images::ImageIndexRole).toInt(), index == leaf ? 10 : 0);
            QCOMPARE(index.data(ClassTreeModel::SelectedImageIndexRole).toInt(), index == leaf ? 9 : 1);
        }
        QVERIFY(!leaf.data(Qt::DecorationRole).value<QIcon>().isNull());
        // Parents of inserted categories and classes are open; a class with a leaf is not.
        for (const char *open : {"WMI", "Operating System", "Services"})
            QVERIFY2(tree->isExpanded(model->findText(open)), open);
        QVERIFY(!tree->isExpanded(model->findText("Win32_Missing")));

        auto *fields = child<QTreeWidget>(&dlg, "fieldList");
        QCOMPARE(QStringList({fields->headerItem()->text(0), fields->headerItem()->text(1)}),
                 QStringList({"Field Name", "Type"}));
        QCOMPARE(QList<int>({fields->columnWidth(0), fields->columnWidth(1)}), QList<int>({160, 140}));
        for (const char *hidden : {"valueCombo", "arrayButton", "unitsEdit"})
            QVERIFY2(child<QWidget>(&dlg, hidden)->isHidden(), hidden);
        QVERIFY(!child<QComboBox>(&dlg, "conditionCombo")->isEnabled());
        QVERIFY(child<QLineEdit>(&dlg, "valueEdit")->isReadOnly());
        maybeScreenshot(&dlg, "wmidlg-open");
        // Each label stands on its control's row, to its left.
        for (QLabel *label : dlg.findChildren<QLabel *>()) {
            const QWidget *buddy = label->buddy();
            if (buddy && buddy->isVisible())
                QVERIFY2(label->geometry().right() < buddy->geometry().left()
                             && qAbs(label->geometry().center().y() - buddy->geometry().center().y()) < buddy->height(),
                         qPrintable(label->text()));
        }

        auto *nameSpace = child<QLineEdit>(&dlg, "namespaceEdit");
        selectClass(&dlg, "Services");
        QCOMPARE(description->toPlainText(), QStringLiteral("Services"));
        QCOMPARE(fields->topLevelItemCount(), 0);
        QVERIFY(nameSpace->text().isEmpty());

        selectClass(&dlg, "Win32_Test");
        QCOMPARE(description->toPlainText(), QStringLiteral("The test class."));
        QCOMPARE(nameSpace->text(), QStringLiteral("root\\cimv2"));
        QStringList rows;
        for (int i = 0; i < fields->topLevelItemCount(); ++i)
            rows << fields->topLevelItem(i)->text(0) + " " + fields->topLevelItem(i)->text(1);
        QCOMPARE(rows, QStringList({"Flag boolean", "Name string", "Size uint32", "Codes[] uint16",
                                    "Tags[] string", "Mode string", "Level uint16",
                                    "Target CIM_DataFile Ref", "When datetime"}));

        // Without an "@" line the description from the class list stays.
        selectClass(&dlg, "CIM_Thing");
        QCOMPARE(description->toPlainText(), QStringLiteral("A thing"));
        QCOMPARE(fields->topLevelItemCount(), 1);

        // A class missing from its file: empty list, no message, the field chosen before is gone.
        selectField(&dlg, "Path");
        selectClass(&dlg, "Win32_Missing");
        QCOMPARE(description->toPlainText(), QStringLiteral("Not in its field file"));
        QCOMPARE(fields->topLevelItemCount(), 0);
        QVERIFY(child<QLineEdit>(&dlg, "fieldEdit")->text().isEmpty());
        QVERIFY(!child<QComboBox>(&dlg, "conditionCombo")->isEnabled());
        QVERIFY(catcher.messages.isEmpty());
    }

    void operatorsAndValuesByType_data()
    {
        QTest::addColumn<QString>("field");
        QTest::addColumn<QStringList>("operators");
        QTest::addColumn<QStringList>("choices"); // empty: the value edit is used
        QTest::addColumn<bool>("array");
        QTest::addColumn<QString>("units");
        const QStringList all{"=", "!=", ">", "<", ">=", "<="};
        const QStringList eq{"=", "!="};
        const QStringList in{"in", "not in"};
        QTest::newRow("boolean") << "Flag" << eq << QStringList{"TRUE", "FALSE"} << false << "";
        QTest::newRow("string") << "Name" << in << QStringList() << false << "";
        QTest::newRow("number with units") << "Size" << all << QStringList() << false << "bytes";
        QTest::newRow("datetime") << "When" << all << QStringList() << false << "";
        QTest::newRow("numeric array") << "Codes[]" << eq << QStringList() << true << "";
        QTest::newRow("string array") << "Tags[]" << in << QStringList() << true << "";
        QTest::newRow("string value map") << "Mode" << in << QStringList{"Auto", "Manual", "Disabled"}
                                          << false << "";
        QTest::newRow("numeric value map with units") << "Level" << all << QStringList{"0", "1"}
                                                      << false << "steps";
    }

    void operatorsAndValuesByType()
    {
        QFETCH(QString, field);
        QFETCH(QStringList, operators);
        QFETCH(QStringList, choices);
        QFETCH(bool, array);
        QFETCH(QString, units);
        CWMIDlg dlg;
        dlg.show();
        selectClass(&dlg, "Win32_Test");
        // Start from a field of another kind so that nothing is left over from it.
        selectField(&dlg, field == "Flag" ? "Codes[]" : "Flag");
        selectField(&dlg, field);

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
        QCOMPARE(items(valueList), choices);
        QCOMPARE(valueList->currentIndex(), -1);
        QCOMPARE(child<QPushButton>(&dlg, "arrayButton")->isHidden(), !array);
        QCOMPARE(value->isReadOnly(), array);
        QCOMPARE(unitsEdit->isHidden(), units.isEmpty());
        QCOMPARE(unitsEdit->text(), units);
        if (field == "Name")
            QCOMPARE(child<QPlainTextEdit>(&dlg, "fieldDescriptionEdit")->toPlainText(),
                     QStringLiteral("The name.\nSecond line."));
        if (field == "Mode")
            maybeScreenshot(&dlg, "wmidlg-valuemap");
    }

    void okChecksInOrder()
    {
        MessageCatcher catcher;
        CWMIDlg dlg;
        dlg.show();
        auto *ok = child<QPushButton>(&dlg, "okButton");
        auto *condition = child<QComboBox>(&dlg, "conditionCombo");
        ok->click(); // the root is a class name but has no field
        selectClass(&dlg, "Win32_Test");
        selectField(&dlg, "Target");
        QCOMPARE(child<QLineEdit>(&dlg, "fieldEdit")->text(), QStringLiteral("NOT SUPPORT"));
        QVERIFY(child<QLineEdit>(&dlg, "typeEdit")->text().isEmpty());
        QVERIFY(!condition->isEnabled());
        ok->click();
        selectField(&dlg, "Size");
        ok->click();
        choose(condition, ">=");
        ok->click();
        // Nothing chosen in the value list; an array without values.
        for (const char *field : {"Flag", "Codes[]"}) {
            selectField(&dlg, field);
            condition->setCurrentIndex(0);
            ok->click();
        }
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

        // No class at all comes first: an edited condition whose class is gone.
        CWMIDlg gone;
        gone.setEditCondition({"", "Win32_Gone", "X", "", "=", "1"});
        gone.show();
        QVERIFY(!child<QTreeView>(&gone, "classTree")->currentIndex().isValid());
        child<QPushButton>(&gone, "okButton")->click();
        QCOMPARE(catcher.texts().last(), QStringLiteral("Select WMI class"));
    }

    void conditionsComeBackAndReopen()
    {
        MessageCatcher catcher;
        whenModalShown([](QWidget *modal) {
            selectClass(modal, "Win32_Test");
            selectField(modal, "Size");
            choose(child<QComboBox>(modal, "conditionCombo"), "<=");
            QTest::keyClicks(child<QLineEdit>(modal, "valueEdit"), "1024");
            child<QPushButton>(modal, "okButton")->click();
        });
        const auto size = editWMICondition(nullptr);
        QVERIFY(size);
        QCOMPARE(parts(*size), QStringList({"root\\cimv2", "Win32_Test", "Size", "uint32", "<=", "1024"}));

        whenModalShown([](QWidget *modal) {
            selectField(modal, "Mode");
            child<QComboBox>(modal, "conditionCombo")->setCurrentIndex(1);
            child<QComboBox>(modal, "valueCombo")->setCurrentIndex(1);
            child<QPushButton>(modal, "okButton")->click();
        });
        const auto mode = editWMICondition(nullptr, *size);
        QVERIFY(mode);
        QCOMPARE(parts(*mode), QStringList({"root\\cimv2", "Win32_Test", "Mode", "string", "not in", "Manual"}));

        // Edit mode preselects class, field, operator (the first that begins with the text) and value.
        WMICondition prefix = *mode;
        prefix.condition = "not";
        for (const WMICondition &c : {*size, prefix}) {
            whenModalShown([&c](QWidget *modal) {
                QCOMPARE(child<QTreeView>(modal, "classTree")->currentIndex().data().toString(), c.className);
                auto *field = child<QTreeWidget>(modal, "fieldList")->currentItem();
                QVERIFY(field && field->isSelected());
                QCOMPARE(field->text(0), c.field);
                QVERIFY(child<QComboBox>(modal, "conditionCombo")->currentText().startsWith(c.condition));
                maybeScreenshot(modal, "wmidlg-edit-" + c.field);
                child<QPushButton>(modal, "okButton")->click();
            });
            QCOMPARE(editWMICondition(nullptr, c)->value, c.value);
        }
        QVERIFY(catcher.messages.isEmpty());

        // A value no longer in the value map is not chosen; Cancel hands back nothing.
        WMICondition unknown = *mode;
        unknown.value = "Sometimes";
        whenModalShown([](QWidget *modal) {
            QCOMPARE(child<QComboBox>(modal, "valueCombo")->currentIndex(), -1);
            child<QPushButton>(modal, "okButton")->click();
            child<QPushButton>(modal, "cancelButton")->click();
        });
        QVERIFY(!editWMICondition(nullptr, unknown));
        QCOMPARE(catcher.texts(), QStringList({"[Value] Content is empty"}));
    }

    void arrayValuesOnlyThroughTheArrayDialog()
    {
        MessageCatcher catcher;
        CWMIDlg dlg;
        dlg.show();
        selectClass(&dlg, "Win32_Test");
        selectField(&dlg, "Codes[]");
        auto *value = child<QLineEdit>(&dlg, "valueEdit");
        QTest::keyClicks(value, "typed");
        QVERIFY(value->text().isEmpty());

        // First round: nothing given, so the list starts empty; add two values.
        QStringList seenOnOpen;
        whenModalShown([&](QWidget *modal) {
            seenOnOpen << QString::number(child<QTableWidget>(modal, "arrayList")->rowCount());
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
            seenOnOpen << columnTexts(child<QTableWidget>(modal, "arrayList"), 1).join('|');
            child<QPushButton>(modal, "cancelButton")->click();
        });
        child<QPushButton>(&dlg, "arrayButton")->click();
        QCOMPARE(seenOnOpen, QStringList({"0", "7|9"}));

        child<QComboBox>(&dlg, "conditionCombo")->setCurrentIndex(1);
        child<QPushButton>(&dlg, "okButton")->click();
        QCOMPARE(parts(dlg.condition()).mid(2), QStringList({"Codes[]", "uint16", "!=", "7,9"}));
        QVERIFY(catcher.messages.isEmpty());
    }

    void catalogueFailuresAndTheShippedOne()
    {
        QTemporaryDir empty;
        managerSettings()->setValue("ProgramPath", empty.path());
        MessageCatcher catcher;
        {
            CWMIDlg dlg;
            dlg.show();
            QCOMPARE(treeModel(&dlg)->rowCount(), 0);
        }
        QCOMPARE(catcher.texts(), QStringList({"Cannot open class list file"}));
        QCOMPARE(catcher.messages[0].caption, QStringLiteral("ERROR"));

        // A class list without field files: the root's file cannot be opened, nor the class's.
        writeFile(empty.filePath("class.dat"), "!A\n@B\n#Win32_X$x\n");
        catcher.messages.clear();
        {
            CWMIDlg dlg;
            dlg.show();
            selectClass(&dlg, "Win32_X");
            QCOMPARE(catcher.texts(), QStringList(2, "Cannot open field list file"));
            QCOMPARE(catcher.messages.last().icon, ui::MessageIcon::Critical);
            QCOMPARE(child<QTreeWidget>(&dlg, "fieldList")->topLevelItemCount(), 0);
        }

        // Without the setting the catalogue shipped with the console is used.
        QFile::remove(managerSettings()->fileName());
        catcher.messages.clear();
        CWMIDlg dlg;
        dlg.show();
        QVERIFY(selectClass(&dlg, "Win32_Service").isValid());
        QCOMPARE(child<QLineEdit>(&dlg, "namespaceEdit")->text(), QStringLiteral("root\\cimv2"));
        selectField(&dlg, "StartMode");
        QCOMPARE(items(child<QComboBox>(&dlg, "valueCombo")),
                 QStringList({"Boot", "System", "Auto", "Manual", "Disabled"}));
        maybeScreenshot(&dlg, "wmidlg-shipped");
        QVERIFY(catcher.messages.isEmpty());
    }

    void valueMeaningsShownCodeStored()
    {
        const WMICondition role{"root\\cimv2", "Win32_Roles", "Role", "uint16", "=", "3"};
        whenModalShown([](QWidget *modal) {
            selectClass(modal, "Win32_Roles");
            selectField(modal, "Role");
            auto *values = child<QComboBox>(modal, "valueCombo");
            QCOMPARE(items(values),
                     QStringList({"1 \u2013 Workstation", "3 \u2013 Server \"main\"", "4"}));
            QCOMPARE(values->currentText(), QString());
            choose(values, "3 \u2013 Server \"main\"");
            choose(child<QComboBox>(modal, "conditionCombo"), "=");
            maybeScreenshot(modal, "wmidlg-meanings");
            child<QPushButton>(modal, "okButton")->click();
        });
        QCOMPARE(parts(*editWMICondition(nullptr)), parts(role));
        // Reopened on the stored code, the list shows it with its meaning.
        whenModalShown([](QWidget *modal) {
            QCOMPARE(child<QComboBox>(modal, "valueCombo")->currentText(),
                     QStringLiteral("3 \u2013 Server \"main\""));
            child<QPushButton>(modal, "cancelButton")->click();
        });
        editWMICondition(nullptr, role);
    }

    void classSearch()
    {
        MessageCatcher catcher;
        CWMIDlg dlg;
        dlg.show();
        QVERIFY(QTest::qWaitForWindowActive(&dlg));
        auto *tree = child<QTreeView>(&dlg, "classTree");
        auto *search = child<QLineEdit>(&dlg, "classSearch");
        QCOMPARE(search->accessibleName(), QStringLiteral("Search classes"));
        const auto shown = [&] {
            QStringList out;
            std::function<void(const QModelIndex &, int)> walk = [&](const QModelIndex &parent,
                                                                     int depth) {
                for (int r = 0; r < tree->model()->rowCount(parent); ++r) {
                    const QModelIndex i = tree->model()->index(r, 0, parent);
                    out << QString(depth, '.') + i.data().toString()
                               + (tree->isExpanded(i) && tree->model()->hasChildren(i) ? "+" : "");
                    walk(i, depth + 1);
                }
            };
            walk({}, 0);
            return out;
        };
        const QStringList everything = shown();

        // A class chosen before stays chosen while a search hides it.
        selectClass(&dlg, "Win32_Test");
        selectField(&dlg, "Size");
        QTest::keyClick(&dlg, Qt::Key_F, Qt::ControlModifier);
        QVERIFY(search->hasFocus());
        QTest::keyClicks(search, "THING");
        QCOMPARE(shown(), QStringList({"WMI+", ".Files+", "..File System+", "...CIM_Thing"}));
        QCOMPARE(child<QLineEdit>(&dlg, "fieldEdit")->text(), QStringLiteral("Size"));

        // Names match anywhere, categories never; a matching class keeps its own leaves.
        search->setText("n32_");
        QCOMPARE(shown(), QStringList({"WMI+", ".Operating System+", "..Services+", "...Win32_Test",
                                       "...Win32_Roles", "...Win32_Missing+", "....a plain line"}));
        search->setText("Services");
        QCOMPARE(shown(), QStringList({"WMI"}));

        // Enter picks the first match without closing the dialog; Escape brings the whole tree
        // back with the pick still chosen, and only then closes the dialog.
        search->setText("i");
        QTest::keyClick(search, Qt::Key_Return);
        QVERIFY(dlg.isVisible());
        QCOMPARE(tree->currentIndex().data().toString(), QStringLiteral("Win32_Test"));
        QVERIFY(tree->hasFocus());
        search->setFocus();
        QTest::keyClick(search, Qt::Key_Escape);
        QVERIFY(search->text().isEmpty());
        QCOMPARE(shown(), everything);
        QCOMPARE(tree->currentIndex().data().toString(), QStringLiteral("Win32_Test"));
        QCOMPARE(child<QLineEdit>(&dlg, "fieldEdit")->text(), QStringLiteral("Size"));
        QTest::keyClick(search, Qt::Key_Escape);
        QVERIFY(!dlg.isVisible());
        QVERIFY(catcher.messages.isEmpty());
    }

    void arraySplitAndJoin_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("values");
        QTest::newRow("one") << "x" << QStringList{"x"};
        QTest::newRow("two") << "a,b" << QStringList{"a", "b"};
        QTest::newRow("trailing comma") << "a," << QStringList{"a", ""};
        QTest::newRow("spaces kept") << " a b ,c" << QStringList{" a b ", "c"};
        QTest::newRow("empty") << "" << QStringList{""};
    }

    void arraySplitAndJoin()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, values);
        QCOMPARE(splitArrayText(text), values);
        QCOMPARE(joinArrayValues(values), text);
        CArrayDlg dlg;
        dlg.setArrayText(text, true);
        QCOMPARE(dlg.values(), values);
        child<QPushButton>(&dlg, "okButton")->click();
        QCOMPARE(dlg.arrayText(), text);
    }

    void arrayDialogNumbersAndDeletes()
    {
        CArrayDlg dlg;
        dlg.setArrayText("a,b,c,d", true);
        dlg.show();
        QCOMPARE(dlg.windowTitle(), QStringLiteral("Array Properties"));
        auto *list = child<QTableWidget>(&dlg, "arrayList");
        auto *del = child<QPushButton>(&dlg, "delButton");
        QCOMPARE(list->horizontalHeaderItem(0)->text(), QStringLiteral("Num"));
        QCOMPARE(list->horizontalHeaderItem(1)->text(), QStringLiteral("Value"));
        QCOMPARE(QList<int>({list->columnWidth(0), list->columnWidth(1)}), QList<int>({50, 150}));
        QVERIFY(list->showGrid());
        QCOMPARE(columnTexts(list, 0), QStringList({"1", "2", "3", "4"}));
        QVERIFY(!del->isEnabled());
        maybeScreenshot(&dlg, "arraydlg");

        // A click on an item enables "Del", a click on empty space disables it again.
        clickRow(list, 1);
        QVERIFY(del->isEnabled());
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, QPoint(5, list->viewport()->height() - 3));
        QVERIFY(!del->isEnabled());

        clickRow(list, 1);
        del->click();
        QCOMPARE(columnTexts(list, 0), QStringList({"1", "2", "3"}));
        QCOMPARE(columnTexts(list, 1), QStringList({"a", "c", "d"}));
        QVERIFY(!del->isEnabled());
        for (int i = 0; i < 3; ++i) {
            clickRow(list, 0);
            del->click();
        }
        child<QPushButton>(&dlg, "okButton")->click();
        QCOMPARE(dlg.arrayText(), QString());

        CArrayDlg unflagged;
        unflagged.setArrayText("ignored", false);
        QCOMPARE(child<QTableWidget>(&unflagged, "arrayList")->rowCount(), 0);

        // Add asks for one value and refuses an empty one.
        MessageCatcher catcher;
        dlg.setArrayText("x", true);
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
        QCOMPARE(columnTexts(list, 0), QStringList({"1", "2"}));
        whenModalShown([](QWidget *input) { child<QPushButton>(input, "cancelButton")->click(); });
        child<QPushButton>(&dlg, "addButton")->click();
        QCOMPARE(list->rowCount(), 2);
        child<QPushButton>(&dlg, "okButton")->click();
        QCOMPARE(dlg.arrayText(), QStringLiteral("x,with space"));
    }
};

QTEST_MAIN(TestWMIDlg)
#include "tst_wmidlg.moc"
