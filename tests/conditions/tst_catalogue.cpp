#include "conditions/catalogue.h"
#include "conditions/linereader.h"
#include "control/settings.h"
#include "dialogdriver.h"
#include "dlghelpers.h"
#include "fuzzcatalogue.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace qarvo;
using namespace qarvo::catalogue;
using namespace qarvo::test;

namespace {

const QByteArray Marker("\xA6\xA6");

ClassFields fieldsFrom(const QByteArray &bytes, const QString &className)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    return readClassFields(buffer, className);
}

ClassTree treeFrom(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    ClassTree tree;
    readClassList(buffer, tree);
    return tree;
}

QStringList childTexts(const ClassTree &tree, int node)
{
    QStringList out;
    for (int child : tree.nodes[node].children)
        out << tree.nodes[child].text;
    return out;
}

} // namespace

class TestCatalogue : public QObject
{
    Q_OBJECT
    QTemporaryDir m_settingsDir;

private Q_SLOTS:
    void initTestCase()
    {
        QSettings::setPath(QSettings::NativeFormat, QSettings::SystemScope, m_settingsDir.path());
    }


    void cleanup()
    {
        QFile::remove(managerSettings()->fileName());
    }


    void classListBuildsTheTree()
    {
        const ClassTree tree = treeFrom("!Operating System\n@Services\n#Win32_Service$A service on the "
                                        "computer\nleaf under the class\r\n#Win32_BaseService$Base\n"
                                        "@Processes\n#Win32_Process$A process\n!Files\nmore\n");
        QCOMPARE(tree.nodes[0].text, QStringLiteral("WMI"));
        QCOMPARE(childTexts(tree, 0), QStringList({"Operating System", "Files"}));
        QCOMPARE(childTexts(tree, 1), QStringList({"Services", "Processes"}));
        QCOMPARE(childTexts(tree, 2), QStringList({"Win32_Service", "Win32_BaseService"}));
        QCOMPARE(childTexts(tree, 3), QStringList({"leaf under the class"}));
        // A plain line belongs to the node inserted last, a category here.
        const int files = tree.nodes[0].children[1];
        QCOMPARE(childTexts(tree, files), QStringList({"more"}));

        // Folders for the root, categories and classes; the leaf picture for plain lines.
        for (const TreeNode &node : tree.nodes) {
            const bool leaf = node.text == "leaf under the class" || node.text == "more";
            QCOMPARE(node.image, leaf ? 10 : 0);
            QCOMPARE(node.selectedImage, leaf ? 9 : 1);
        }
        // Parents of inserted categories and classes open; classes themselves and "Files" (with
        // only a leaf) stay closed.
        QList<bool> expanded;
        for (int node : {0, 1, 2, 3, files})
            expanded << tree.nodes[node].expanded;
        QCOMPARE(expanded, QList<bool>({true, true, true, false, false}));

        QStringList entries;
        for (const NodeEntry &e : tree.entries)
            entries << (e.name == e.description ? e.name : e.name + "=" + e.description);
        QCOMPARE(entries, QStringList({"WMI", "Operating System", "Services",
                                       "Win32_Service=A service on the computer",
                                       "Win32_BaseService=Base", "Processes",
                                       "Win32_Process=A process", "Files"}));
    }


    void classListOddLines()
    {
        // Blank lines are leaves with empty text; a class without "$" has an empty name and the
        // whole rest as description; a class before any category hangs off the root; "$" splits
        // only once.
        const ClassTree tree = treeFrom("#Early$first\n\n!Cat\n@Sub\n#NoDollar here\n#A$b$c");
        QCOMPARE(childTexts(tree, 0), QStringList({"Early", "Cat"}));
        QCOMPARE(childTexts(tree, 1), QStringList({""}));
        QCOMPARE(tree.nodes[2].image, 10);
        QCOMPARE(tree.entries[1].name, QStringLiteral("Early"));
        const int sub = tree.nodes[tree.nodes[0].children[1]].children[0];
        QCOMPARE(childTexts(tree, sub), QStringList({"", "A"}));
        QCOMPARE(tree.entries.last().description, QStringLiteral("b$c"));
        QCOMPARE(tree.entries[tree.entries.size() - 2].name, QString());
        QCOMPARE(tree.entries[tree.entries.size() - 2].description, QStringLiteral("NoDollar here"));

        // An empty file still gives the root.
        const ClassTree empty = treeFrom({});
        QCOMPARE(empty.nodes.size(), 1);
        QCOMPARE(empty.entries.size(), 1);
    }


    void findNodeEntryIsExactAndFirst()
    {
        const ClassTree tree = treeFrom("!Win32_Service\n@S\n#Win32_Service$second\n");
        QCOMPARE(tree.FindNodeEntry(u"Win32_Service")->description, QStringLiteral("Win32_Service"));
        QCOMPARE(tree.FindNodeEntry(u"WMI")->description, QStringLiteral("WMI"));
        QVERIFY(!tree.FindNodeEntry(u"win32_service"));
        QVERIFY(!tree.FindNodeEntry(u"Win32_Servic"));
    }


    // Field file choice (by case-sensitive prefix), field lines (name|type|value map|units) and
    // description unescaping, one rule per row.
    void lineRules_data()
    {
        QTest::addColumn<char>("rule");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        auto row = [](const char *name, char rule, const QString &in, const QString &out) {
            QTest::newRow(name) << rule << in << out;
        };
        row("file win32", 'f', "Win32_Service", "win32.dat");
        row("file cim", 'f', "CIM_DataFile", "cim.dat");
        row("file lower win32", 'f', "win32_service", "other.dat");
        row("file lower cim", 'f', "cim_DataFile", "other.dat");
        row("file prefix without underscore", 'f', "Win32Service", "other.dat");
        row("file other", 'f', "AntiVirusProduct", "other.dat");
        row("file empty", 'f', "", "other.dat");
        row("field plain", 'l', "uint32 ProcessId;", "ProcessId|uint32||");
        row("field array", 'l', "string Dependencies[];", "Dependencies[]|string||");
        row("field reference", 'l', "CIM_DataFile Ref Target;", "Target|CIM_DataFile Ref||");
        row("field Ref at position 0 is no reference", 'l', " Ref Target;", "Ref Target|||");
        row("field value map", 'l', R"(string StartMode;ValueMap{"Boot", "Auto"} trailing)",
            R"(StartMode|string|ValueMap{"Boot", "Auto"}|)");
        row("field units then value map", 'l', R"(uint64 Size;Units("bytes") ValueMap{"0"})",
            R"(Size|uint64|ValueMap{"0"}|Units("bytes"))");
        row("field no semicolon", 'l', "uint32 Count", "|uint32||");
        row("field no space", 'l', "uint32", "|uint32||");
        row("field unclosed qualifiers", 'l', R"(string A;ValueMap{"x" Units("y")",
            R"(A|string|ValueMap{"x" Units("y"|Units("y")");
        row("field empty", 'l', "", "|||");
        row("unescape line break", 'u', R"(one\ntwo)", "one\r\ntwo");
        row("unescape tab is three spaces", 'u', R"(a\tb)", "a   b");
        row("unescape backslash", 'u', R"(C:\\Windows\\n)", R"(C:\Windows\n)");
        row("unescape quote", 'u', R"(say \"hi\")", R"(say "hi")");
        row("unescape others drop the backslash", 'u', R"(a\qb)", "aqb");
        row("unescape leading backslash kept", 'u', R"(\nstart)", R"(\nstart)");
        row("unescape leading backslash, escape after it", 'u', R"(\\n)", "\\\r\n");
        row("unescape trailing backslash", 'u', R"(end\)", R"(end\)");
        row("unescape empty", 'u', "", "");
    }

    void lineRules()
    {
        QFETCH(char, rule);
        QFETCH(QString, input);
        QFETCH(QString, expected);
        if (rule == 'f') {
            QCOMPARE(FieldFileFor(input), QStringLiteral("data") + QDir::separator() + expected);
        } else if (rule == 'l') {
            const FieldRecord f = parseFieldLine(input);
            QCOMPARE(QStringList({f.name, f.type, f.valueMap, f.units}).join(u'|'), expected);
        } else {
            QCOMPARE(unescapeDescription(input), expected);
        }
    }

    void classBlock()
    {
        const QByteArray file =
            "Win32_Other\nroot\\x\n@other\n{\nuint32 A;\n" + Marker + "a\n}\n"
            "Win32_Service\r\nroot\\cimv2\r\n@The service class.\r\n{\r\nboolean AcceptPause;\r\n"
            + Marker + "Can be paused.\r\n" + Marker + "a stray description line is skipped\r\n"
            "string StartMode;ValueMap{\"Boot\", \"Auto\"}\r\n" + Marker + "Start mode.\\nSee the manual.\r\n"
            "uint32 ProcessId;\r\nno marker here\r\nCIM_DataFile Ref Target;\r\n" + Marker
            + "Referenced file.\r\nstring Dependencies[];\r\n" + Marker + "\r\n}\r\nWin32_Next\n";
        const ClassFields c = fieldsFrom(file, "Win32_Service");
        QVERIFY(c.found);
        QCOMPARE(c.nameSpace, QStringLiteral("root\\cimv2"));
        QCOMPARE(c.description, std::optional<QString>("The service class."));
        QCOMPARE(c.fields,
                 (QList<FieldRecord>{
                     {"AcceptPause", "boolean", "Can be paused.", "", ""},
                     {"StartMode", "string", "Start mode.\r\nSee the manual.", R"(ValueMap{"Boot", "Auto"})", ""},
                     {"ProcessId", "uint32", "", "", ""},
                     {"Target", "CIM_DataFile Ref", "Referenced file.", "", ""},
                     {"Dependencies[]", "string", "", "", ""},
                 }));

        // Without "@" the third line is consumed and gives no description.
        const ClassFields plain = fieldsFrom("X\nroot\\y\nuint32 Lost;\n{\nuint32 Kept;\n"
                                             + Marker + "d\n}\n", "X");
        QVERIFY(!plain.description);
        QCOMPARE(plain.fields.size(), 1);
        QCOMPARE(plain.fields[0].name, QStringLiteral("Kept"));
    }


    void markerForms_data()
    {
        QTest::addColumn<QByteArray>("marker");
        QTest::newRow("bytes A6 A6") << Marker;
        QTest::newRow("widened, UTF-8") << QStringLiteral("\u00A6\u00A6").toUtf8();
        QTest::newRow("code page form, UTF-8") << QStringLiteral("\u2514").toUtf8();
    }


    void markerForms()
    {
        QFETCH(QByteArray, marker);
        const ClassFields c =
            fieldsFrom("C\nns\n@\n{\n" + marker + "skipped\nuint8 F;\n" + marker + "F's text\n}\n", "C");
        QCOMPARE(c.fields.size(), 1);
        QCOMPARE(c.fields[0].description, QStringLiteral("F's text"));
        // A lone A6, or the marker later in the line, is no marker.
        const ClassFields none = fieldsFrom("C\nns\n@\nuint8 F;\n\xA6x" + marker + "\n}\n", "C");
        QCOMPARE(none.fields.size(), 1);
        QCOMPARE(none.fields[0].description, QString());
    }


    void fieldBeforeClosingBraceSwallowsIt()
    {
        const QByteArray file = "A\nns\n@\n{\nuint32 Last;\n}\nB\nns2\n@b\n{\nuint8 Other;\n"
                                + Marker + "x\n}\nuint8 Never;\n";
        const ClassFields a = fieldsFrom(file, "A");
        // "}" became Last's description line; reading ran on through B's block, taking "B"/"ns2",
        // "@b"/"{" and "uint8 Other;"/marker as field and description pairs, until B's "}".
        QStringList names;
        for (const auto &f : a.fields)
            names << f.name + "|" + f.type;
        QCOMPARE(names, QStringList({"Last|uint32", "|B", "|@b", "Other|uint8"}));
        QCOMPARE(fieldsFrom(file, "B").fields.size(), 1);
    }


    void classLookupIsExact()
    {
        const QByteArray file = "win32_service\nwrong\n@\n}\n Win32_Service\nwrong\n@\n}\n"
                                "Win32_Service \nwrong\n@\n}\nWin32_Service\nright\n@\n}\n";
        const ClassFields c = fieldsFrom(file, "Win32_Service");
        QVERIFY(c.found);
        QCOMPARE(c.nameSpace, QStringLiteral("right"));

        const ClassFields absent = fieldsFrom(file, "Win32_Process");
        QVERIFY(!absent.found);
        QVERIFY(absent.fields.isEmpty());

        // A name outside ASCII matches its line in either encoding.
        const QString name = QStringLiteral("Caf\u00e9");
        QVERIFY(fieldsFrom(name.toUtf8() + "\nutf8\n", name).found);
        QCOMPARE(fieldsFrom(name.toLatin1() + "\nlatin1\n", name).nameSpace, QStringLiteral("latin1"));
    }


    void missingFilesAndSilentCases()
    {
        QTemporaryDir dir;
        MessageCatcher catcher;
        ClassTree tree = treeFrom("!stale\n");
        QVERIFY(!LoadClassList(dir.path(), tree));
        QVERIFY(tree.isEmpty());
        QVERIFY(!LoadClassFields(dir.path(), "Win32_Service"));
        // A directory, a pipe (which would wait for a writer) or a huge sparse file where a file
        // should be cannot be read either.
        QDir(dir.path()).mkpath("data/other.dat");
        QVERIFY(!LoadClassFields(dir.path(), "Other"));
#ifdef Q_OS_UNIX
        QCOMPARE(::mkfifo(QFile::encodeName(dir.filePath("data/cim.dat")).constData(), 0600), 0);
#endif
        QVERIFY(!LoadClassFields(dir.path(), "CIM_X"));
        QFile huge(dir.filePath("class.dat"));
        QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(256 * 1024 * 1024 + 1));
        huge.close();
        QVERIFY(!LoadClassList(dir.path(), tree));
        huge.remove();
        QCOMPARE(catcher.texts(), QStringList({"Cannot open class list file", "Cannot open field list file",
                                               "Cannot open field list file", "Cannot open field list file",
                                               "Cannot open class list file"}));
        for (const auto &m : catcher.messages) {
            QCOMPARE(m.caption, QStringLiteral("ERROR"));
            QCOMPARE(m.icon, ui::MessageIcon::Critical);
        }

        writeFile(dir.filePath("class.dat"), "!A\n");
        writeFile(dir.filePath("data/win32.dat"), "Win32_X\nns\n@\n}\n");
        QVERIFY(LoadClassList(dir.path(), tree));
        QCOMPARE(tree.nodes.size(), 2);
        const auto absent = LoadClassFields(dir.path(), "Win32_Absent");
        QVERIFY(absent && !absent->found && absent->fields.isEmpty());
        QCOMPARE(catcher.messages.size(), 5);
    }


    void programDirectoryFromSettingsOrShipped()
    {
        // No key at all: the catalogue shipped in the build tree is used.
        QVERIFY(!managerKeyExists());
        const auto shipped = programDirectory();
        QVERIFY(shipped);
        QCOMPARE(*shipped, QDir::toNativeSeparators(shippedCatalogueDirectory()));
        QVERIFY(QFileInfo::exists(catalogueFilePath(*shipped, "class.dat")));

        QTemporaryDir dir;
        managerSettings()->setValue("ProgramPath", dir.path());
        QCOMPARE(programDirectory(), std::optional<QString>(QDir::toNativeSeparators(dir.path())));
        QCOMPARE(catalogueFilePath(dir.path(), FieldFileFor(u"CIM_X")),
                 QDir::toNativeSeparators(dir.path() + "/data/cim.dat"));

        // The stored text is used as it stands (a trailing separator stays), cut at 511 characters.
        managerSettings()->setValue("ProgramPath", QString(600, 'p'));
        QCOMPARE(programDirectory()->size(), 511);
        QCOMPARE(catalogueFilePath("/opt/nap/", "class.dat"),
                 QDir::toNativeSeparators("/opt/nap//class.dat"));
    }


    void badInputNeverHangs()
    {
        QRandomGenerator rng(20261121);
        QByteArray garbage(256 * 1024, Qt::Uninitialized);
        for (char &c : garbage)
            c = char(rng.bounded(256));
        const ClassTree tree = treeFrom(garbage);
        QVERIFY(!tree.isEmpty());
        QVERIFY(!fieldsFrom(garbage, "Win32_Service").found);

        // A 1 MB line, inside a block that never closes.
        const QByteArray longLine(1024 * 1024, 'x');
        const QByteArray file = "C\nns\n@\n{\nuint32 A;\n" + Marker + longLine + "\nstring " + longLine
                                + ";\n" + Marker + "\nuint8 Z;";
        const ClassFields c = fieldsFrom(file, "C");
        QCOMPARE(c.fields.size(), 3);
        QCOMPARE(c.fields[0].description.size(), longLine.size());
        QCOMPARE(c.fields[1].name.size(), longLine.size());
        QCOMPARE(c.fields[2].name, QStringLiteral("Z"));
        QVERIFY(fieldsFrom(longLine + "\nC\nns\n", "C").found);
        QCOMPARE(treeFrom("!" + longLine).nodes[1].text.size(), longLine.size());

        // Truncated blocks end quietly wherever they stop.
        QCOMPARE(fieldsFrom("C\nns", "C").nameSpace, QStringLiteral("ns"));
        QCOMPARE(fieldsFrom("C\nns\n@d\nuint8 A;", "C").fields.size(), 1);

        // Bytes that are not UTF-8 are taken one character each.
        QCOMPARE(treeFrom("!Caf\xe9\n").nodes[1].text, QStringLiteral("Caf\u00e9"));
    }


    void overlongLinesAreCut()
    {
        auto linesOf = [](const QByteArray &bytes, qsizetype block, qsizetype max) {
            QBuffer buffer;
            buffer.setData(bytes);
            buffer.open(QIODevice::ReadOnly);
            LineReader reader(buffer, block, max);
            QList<QByteArray> out;
            QByteArrayView line;
            while (reader.next(line))
                out << line.toByteArray();
            return out;
        };
        const QList<QByteArray> expected{"abcdefgh", "ok", "", "cr", "12345678"};
        const QByteArray text = "abcdefghijklmnopqrstuvwxyz\r\nok\n\ncr\r\n1234567890";
        // Every block size, so that line ends fall on and across block boundaries.
        for (qsizetype block = 1; block <= 40; ++block)
            QCOMPARE(linesOf(text, block, 8), expected);
        QCOMPARE(linesOf(text, 4, 1024).first(), QByteArray("abcdefghijklmnopqrstuvwxyz"));
        QCOMPARE(linesOf("a\r", 1, 8), QList<QByteArray>{"a\r"}); // a CR alone is not a line end
        QVERIFY(linesOf({}, 4, 8).isEmpty());

        // A device in a catalogue file's place is refused like a missing file.
        if (QFileInfo::exists("/dev/zero")) {
            QTemporaryDir dir;
            QVERIFY(QFile::link("/dev/zero", dir.filePath("class.dat")));
            MessageCatcher catcher;
            ClassTree tree;
            QVERIFY(!LoadClassList(dir.path(), tree));
            QCOMPARE(catcher.texts(), QStringList({"Cannot open class list file"}));
        }
    }


    void shippedCatalogueLoadsCompletely()
    {
        for (const QString &root : {qEnvironmentVariable("QARVO_SOURCE_DIR") + "/data/catalogue", shippedCatalogueDirectory()}) {
            MessageCatcher catcher;
            ClassTree tree;
            QVERIFY2(LoadClassList(root, tree), qPrintable(root));

            QStringList classes;
            for (const NodeEntry &e : tree.entries.mid(1)) {
                if (e.name != e.description)
                    classes << e.name;
            }
            for (const char *required :
                 {"Win32_OperatingSystem", "Win32_QuickFixEngineering", "Win32_Service",
                  "Win32_Process", "Win32_ComputerSystem", "Win32_BIOS", "Win32_LogicalDisk",
                  "Win32_Volume", "Win32_NetworkAdapterConfiguration", "Win32_Share",
                  "Win32_UserAccount", "Win32_Group", "Win32_StartupCommand", "Win32_Product",
                  "Win32_Environment", "Win32_Processor", "Win32_PhysicalMemory",
                  "Win32_PageFileUsage", "Win32_EncryptableVolume", "AntiVirusProduct",
                  "FirewallProduct", "AntiSpywareProduct", "MSFT_MpComputerStatus", "CIM_DataFile",
                  "CIM_Directory", "CIM_LogicalFile"})
                QVERIFY2(classes.contains(QLatin1String(required)), required);

            // Every class sits under a level-2 category and every class is in its field file with a
            // namespace, a description and fields that all have a name, a type and a description.
            for (const TreeNode &node : tree.nodes) {
                if (!node.children.isEmpty() || node.parent < 0)
                    continue;
                QVERIFY2(classes.contains(node.text), qPrintable(node.text));
                QCOMPARE(tree.nodes[tree.nodes[node.parent].parent].parent, 0);
            }
            for (const QString &name : classes) {
                const auto c = LoadClassFields(root, name);
                QVERIFY2(c && c->found && c->nameSpace.startsWith("root\\") && c->description
                             && !c->description->isEmpty() && c->fields.size() >= 2,
                         qPrintable(name));
                for (const FieldRecord &f : c->fields)
                    QVERIFY2(!f.name.isEmpty() && !f.type.isEmpty() && !f.description.isEmpty()
                                 && (f.valueMap.isEmpty() || (f.valueMap.endsWith('}') && f.valueMap.count('"') >= 2)),
                             qPrintable(name + "." + f.name));
            }
            QVERIFY(catcher.messages.isEmpty());
            QCOMPARE(LoadClassFields(root, "Win32_EncryptableVolume")->nameSpace,
                     QStringLiteral("root\\cimv2\\Security\\MicrosoftVolumeEncryption"));
            QCOMPARE(LoadClassFields(root, "AntiVirusProduct")->nameSpace,
                     QStringLiteral("root\\SecurityCenter2"));
            QCOMPARE(LoadClassFields(root, "MSFT_MpComputerStatus")->nameSpace,
                     QStringLiteral("root\\Microsoft\\Windows\\Defender"));
        }
    }

    void corpusReplays() { replayCorpus(QStringLiteral("conditions/corpus"), &fuzz::runCatalogueInput); }
};

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
