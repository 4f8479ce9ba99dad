#include "conditions/catalogue.h"
#include "conditions/cataloguebuild.h"
#include "dialogdriver.h"
#include "dlghelpers.h"
#include "fuzzmof.h"

#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::catalogue;
using namespace qarvo::test;

namespace {

struct Run
{
    int status = -1;
    QString out;
    QString err;
};

Run build(const QString &outDir, const QStringList &files, const QString &category = {})
{
    Run run;
    QTextStream out(&run.out);
    QTextStream err(&run.err);
    CatalogueBuildOptions options;
    options.outDir = outDir;
    options.files = files;
    options.category = category;
    run.status = buildCatalogue(options, out, err);
    return run;
}

QMap<QString, QByteArray> snapshot(const QString &dir)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(dir, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile f(it.next());
        f.open(QIODevice::ReadOnly);
        files.insert(QDir(dir).relativeFilePath(f.fileName()), f.readAll());
    }
    return files;
}

QStringList classesUnder(const ClassTree &tree, const QString &level1, const QString &level2)
{
    for (int a : tree.nodes[0].children) {
        for (int b : tree.nodes[a].children) {
            if (tree.nodes[a].text != level1 || tree.nodes[b].text != level2)
                continue;
            QStringList names;
            for (int c : tree.nodes[b].children)
                names << tree.nodes[c].text;
            return names;
        }
    }
    return {};
}

QString categoryOf(const ClassTree &tree, const QString &className)
{
    for (const TreeNode &node : tree.nodes) {
        if (node.isClass && node.text == className)
            return tree.nodes[node.parent].text;
    }
    return {};
}

// Every construct a schema uses, over an include below the top file.
const char TopMof[] =
    "// The services of the test schema.\n"
    "#pragma locale (\"en_US\")\n"
    "#pragma include (\"parts/base.mof\")\n"
    "#pragma namespace (\"\\\\\\\\.\\\\root\\\\Test\")\n"
    "/* Block comments span\n"
    "   lines. */\n"
    "   [Description (\"A service \" \"with a description.\\n\"\n"
    "       \"Second line.\"), UMLPackagePath ( \"Test::Services\" ), Vendor (\"x\")]\n"
    "class Test_Service : Test_Base {\n"
    "      [Override ( \"Name\" ), Key]\n"
    "   string Name;\n"
    "      [Description ( \"State\\tof it\" ), ValueMap { \"1\", \"2\", \"3\", \"..\", \"a,b\" },\n"
    "       Values { \"Stopped\", \"Running\", \"Paused (Units(\\\"x\\\"))\", \"Reserved\", "
    "\"Odd\" } : ToSubclass]\n"
    "   uint16 State;\n"
    "      [Values { \"Off\", \"On\" }]\n"
    "   uint8 Power;\n"
    "      [EmbeddedInstance ( \"Test_Base\" )]\n"
    "   string Settings;\n"
    "   Test_Base REF Owner;\n"
    "   sint32 Codes[];\n"
    "   uint32 Fixed[4] = { 1, 2, 3, 4 };\n"
    "      [Deprecated { \"Nothing\" }, Units ( \"KiloBytes\" )]\n"
    "   uint64 Size = -1;\n"
    "   uint32 Start([IN] string Argument, [OUT] uint32 Result[]);\n"
    "};\n"
    "instance of Test_Service as $S { Name = \"x\"; };\n";

const char BaseMof[] = "Qualifier Custom : string = null, Scope(property);\n"
                       "   [Abstract, Description ( \"The base.\" )]\n"
                       "class Test_Base {\n"
                       "      [Key, Description ( \"Name\\r\\nof it.\" ), MaxLen ( 256 )]\n"
                       "   string Name;\n"
                       "      [Custom ( \"y\" ), Description ( \"\\\\Starts with a backslash\" )]\n"
                       "   boolean Enabled;\n"
                       "};\n"
                       "class CIM_Thing { string Path; };\n";

} // namespace

class TestCatalogueBuild : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void compilesEveryConstructAndReadsBack()
    {
        QTemporaryDir dir;
        writeFile(dir.filePath("schema/top.mof"), TopMof);
        writeFile(dir.filePath("schema/parts/base.mof"), BaseMof);
        const QString out = dir.filePath("catalogue");
        const Run run = build(out, {dir.filePath("schema/top.mof")});
        QCOMPARE(run.status, 0);
        const QString top = dir.filePath("schema/top.mof");
        QCOMPARE(
            run.err.split('\n', Qt::SkipEmptyParts),
            QStringList({top + ":8: warning: unknown qualifier 'Vendor' (not declared) ignored",
                         top
                             + ":14: warning: value-map entry \"a,b\" of Test_Service.State left "
                               "out: the catalogue cannot hold it in a value"}));
        QVERIFY2(run.out.contains("3 classes compiled: 3 added, 0 replaced, 0 unchanged"),
                 qPrintable(run.out));
        QVERIFY2(run.out.contains("skipped 1 method (a rule compares properties only), 1 instance "
                                  "(the catalogue holds classes), 1 value-map range"),
                 qPrintable(run.out));

        ClassTree tree;
        QVERIFY(LoadClassList(out, tree));
        QCOMPARE(classesUnder(tree, "Namespace root\\Test", "Test::Services"),
                 QStringList({"Test_Service"}));
        QCOMPARE(classesUnder(tree, "Namespace root\\cimv2", "Test"), QStringList({"Test_Base"}));
        QCOMPARE(classesUnder(tree, "Namespace root\\cimv2", "CIM"), QStringList({"CIM_Thing"}));
        QCOMPARE(tree.FindNodeEntry(u"Test_Service")->description,
                 QStringLiteral("A service with a description. Second line."));
        QVERIFY(LoadClassFields(out, "CIM_Thing")->found);

        const auto service = LoadClassFields(out, "Test_Service");
        QVERIFY(service && service->found);
        QCOMPARE(service->nameSpace, QStringLiteral("root\\Test"));
        QCOMPARE(service->description,
                 std::optional<QString>("A service with a description. Second line."));
        const QList<FieldRecord> expected{
            {"Codes[]", "sint32", "", "", ""},
            {"Enabled", "boolean", "\\Starts with a backslash", "", ""},
            {"Fixed[]", "uint32", "", "", ""},
            {"Name", "string", "Name\r\nof it.", "", ""},
            {"Owner", "Test_Base Ref", "", "", ""},
            {"Power", "uint8", "", R"(ValueMap{"0", "1"})", "", R"(Values{"Off", "On"})"},
            {"Settings", "string", "", "", ""},
            {"Size", "uint64", "", "", R"(Units("KiloBytes"))"},
            {"State", "uint16", "State\tof it", R"(ValueMap{"1", "2", "3"})", "",
             "Values{\"Stopped\", \"Running\", \"Paused \\(Units\\(\\\"x\\\"))\"}"},
        };
        QCOMPARE(service->fields, expected);
        QCOMPARE(valueMeanings(service->fields[8].meanings),
                 QStringList({"Stopped", "Running", "Paused (Units(\"x\"))"}));
    }

    void addingAgainChangesNothingAndReplacesInPlace()
    {
        // The shipped catalogue, added to: one class derived from a class only the catalogue
        // holds, one shipped class replaced.
        QTemporaryDir dir;
        const QString source = qEnvironmentVariable("QARVO_SOURCE_DIR") + "/data/catalogue";
        for (auto [name, bytes] : snapshot(source).asKeyValueRange())
            writeFile(dir.filePath("cat/" + name), bytes);
        const QString out = dir.filePath("cat");
        ClassTree shipped;
        QVERIFY(LoadClassList(out, shipped));
        QMap<QString, QList<FieldRecord>> before;
        for (const NodeEntry &e : shipped.entries)
            before.insert(e.name, LoadClassFields(out, e.name)->fields);

        const QString mof = dir.filePath("added.mof");
        writeFile(mof,
                  "class Win32_Added : Win32_Service { [Description(\"Own.\")] string Extra; };\n"
                  "#pragma namespace(\"root\\\\SecurityCenter2\")\n"
                  "class AntiVirusProduct { string displayName; };\n");
        QCOMPARE(build(out, {mof}).status, 0);
        const QMap<QString, QByteArray> first = snapshot(out);

        ClassTree tree;
        QVERIFY(LoadClassList(out, tree));
        for (const NodeEntry &e : shipped.entries) {
            if (e.name != "AntiVirusProduct")
                QCOMPARE(LoadClassFields(out, e.name)->fields, before.value(e.name));
        }
        QCOMPARE(QString(first["class.dat"]).count("#AntiVirusProduct$"), 1);
        QCOMPARE(categoryOf(tree, "AntiVirusProduct"), categoryOf(shipped, "AntiVirusProduct"));
        QCOMPARE(LoadClassFields(out, "AntiVirusProduct")->fields.size(), 1);
        const QList<FieldRecord> added = LoadClassFields(out, "Win32_Added")->fields;
        QCOMPARE(added.size(), before.value("Win32_Service").size() + 1);
        QVERIFY(added.contains(FieldRecord{"Extra", "string", "Own.", "", ""}));
        for (const FieldRecord &f : before.value("Win32_Service"))
            QVERIFY2(added.contains(f), qPrintable(f.name));

        // The same input again: byte for byte the same files.
        const Run again = build(out, {mof});
        QVERIFY2(again.out.contains("2 classes compiled: 0 added, 0 replaced, 2 unchanged"),
                 qPrintable(again.out));
        QVERIFY(again.out.contains("nothing changed"));
        QCOMPARE(snapshot(out), first);

        writeFile(
            mof,
            "class Win32_Added : Win32_Service { [Description(\"Changed.\")] string Extra; };\n");
        QVERIFY(
            build(out, {mof}).out.contains("1 class compiled: 0 added, 1 replaced, 0 unchanged"));
        QCOMPARE(QString(snapshot(out)["class.dat"]).count("#Win32_Added$"), 1);
    }

    // A file met again, by an include or on the command line, is read once and noted.
    void filesAreReadOnce()
    {
        QTemporaryDir dir;
        writeFile(dir.filePath("b.mof"), "class B_B { string X; };");
        writeFile(dir.filePath("a.mof"), "#pragma include(\"b.mof\")\n#pragma include(\"b.mof\")\n");
        const Run run = build(dir.filePath("out"), {dir.filePath("a.mof"), dir.filePath("a.mof")});
        QCOMPARE(run.status, 0);
        QCOMPARE(run.err.count("was read already; not read again"), 2);
        QVERIFY2(run.err.startsWith(dir.filePath("a.mof:2:")), qPrintable(run.err));
    }

    void badInputWritesNothing_data()
    {
        QTest::addColumn<QByteArray>("a");
        QTest::addColumn<QByteArray>("b");
        QTest::addColumn<QString>("expected"); // after the folder of the files
        QTest::newRow("syntax") << QByteArray("class A_B {\n string X\n};") << QByteArray()
                                << "a.mof:3: error: expected ';' after A_B.X, found '}'";
        QTest::newRow("string not closed")
            << QByteArray("\n[Description(\"abc)] class A_B {};") << QByteArray()
            << "a.mof:2: error: a string opened here is not closed on its line";
        QTest::newRow("comment not closed")
            << QByteArray("class A_B {};\n/* open") << QByteArray()
            << "a.mof:2: error: a comment opened here is never closed";
        QTest::newRow("unknown type") << QByteArray("class A_B { strng X; };") << QByteArray()
                                      << "a.mof:1: error: unknown data type 'strng' of A_B.X";
        QTest::newRow("superclass cycle")
            << QByteArray("class A_A : A_B {};\nclass A_B : A_A {};") << QByteArray()
            << "a.mof:2: error: superclass cycle: A_A -> A_B -> A_A";
        QTest::newRow("missing superclass")
            << QByteArray("class A_A : A_Gone {};") << QByteArray()
            << "a.mof:1: error: the superclass A_Gone of A_A is defined "
               "neither in the input nor in the catalogue";
        QTest::newRow("include cycle") << QByteArray("#pragma include(\"b.mof\")")
                                       << QByteArray("\n#pragma include(\"a.mof\")")
                                       << "b.mof:2: error: include cycle: a.mof -> b.mof -> a.mof";
        QTest::newRow("missing include")
            << QByteArray("#pragma include (\"gone.mof\")") << QByteArray()
            << "a.mof:1: error: cannot include '%1/gone.mof': no such file";
        QTest::newRow("not text")
            << QByteArray("class A_B {};\n\x7f"
                          "ELF\x01\x00",
                          20)
            << QByteArray()
            << "a.mof:2: error: not a text file: it holds the control character U+007f";
    }

    void badInputWritesNothing()
    {
        QFETCH(QByteArray, a);
        QFETCH(QByteArray, b);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        writeFile(dir.filePath("a.mof"), a);
        if (!b.isEmpty())
            writeFile(dir.filePath("b.mof"), b);
        const Run run = build(dir.filePath("out"), {dir.filePath("a.mof")});
        QCOMPARE(run.status, 1);
        QCOMPARE(run.err, dir.path() + "/" + expected.arg(dir.path())
                              + "\nqarvo-catalogue: nothing was written\n");
        QVERIFY(!QFileInfo::exists(dir.filePath("out")));
    }

    void commandLine()
    {
        QProcess tool;
        tool.start(QStringLiteral(QARVO_CATALOGUE_TOOL), {"--help"});
        QVERIFY(tool.waitForFinished());
        QCOMPARE(tool.exitCode(), 0);
        QVERIFY(tool.readAllStandardOutput().startsWith(
            "Usage: qarvo-catalogue build --out DIR [options] FILE.mof..."));

        tool.start(QStringLiteral(QARVO_CATALOGUE_TOOL), {"build", "x.mof"});
        QVERIFY(tool.waitForFinished());
        QCOMPARE(tool.exitCode(), 2);
        QCOMPARE(tool.readAllStandardError(), QByteArray("qarvo-catalogue: --out DIR is missing\n"
                                                         "Try qarvo-catalogue --help.\n"));

        QTemporaryDir dir;
        writeFile(dir.filePath("a.mof"), "class A_B { uint32 X; };");
        tool.start(QStringLiteral(QARVO_CATALOGUE_TOOL),
                   {"build", "--out", dir.filePath("c"), dir.filePath("a.mof")});
        QVERIFY(tool.waitForFinished());
        QCOMPARE(tool.exitCode(), 0);
        QCOMPARE(snapshot(dir.filePath("c")).keys(),
                 QStringList({"class.dat", "data/cim.dat", "data/other.dat", "data/win32.dat"}));
    }

    void corpusReplays() { replayCorpus(QStringLiteral("conditions/corpus_mof"), &fuzz::runMofInput); }
};

QTEST_GUILESS_MAIN(TestCatalogueBuild)
#include "tst_cataloguebuild.moc"
