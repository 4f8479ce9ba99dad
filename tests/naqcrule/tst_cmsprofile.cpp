#include "naqcrule/cmsprofile.h"
#include "dataservice/recordsizes.h"
#include "naqcrule/inireader.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace qarvo;

namespace {

QByteArray utf16(const QString &text, bool bigEndian)
{
    QByteArray out = bigEndian ? QByteArray("\xFE\xFF", 2) : QByteArray("\xFF\xFE", 2);
    for (QChar c : text) {
        const char lo = char(c.unicode() & 0xFF), hi = char(c.unicode() >> 8);
        out.append(bigEndian ? hi : lo).append(bigEndian ? lo : hi);
    }
    return out;
}

// The rows of a profile as "script|action|comment", or nothing when it is refused.
std::optional<QStringList> rowsOf(const std::optional<CmsProfile> &profile)
{
    if (!profile)
        return std::nullopt;
    QStringList out;
    for (const auto &r : profile->rows)
        out << r.scriptFile + u'|' + r.actionType + u'|' + r.comment;
    return out;
}

} // namespace

class TestCmsProfile : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void lookupRules_data();
    void lookupRules();
    void profiles_data();
    void profiles();
    void scriptToken_data();
    void scriptToken();
    void sectionOrderNumberingAndLimits();
    void badFiles();
    void fuzzCorpusReplays();
};

void TestCmsProfile::lookupRules_data()
{
    QTest::addColumn<QString>("section");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::newRow("any case, quotes taken off") << "connection manager" << "SERVICENAME" << "  Corp VPN  ";
    QTest::newRow("quote on one side kept") << "Connection Manager" << "Quoted" << "\"left only";
    QTest::newRow("inner quotes kept") << "Connection Manager" << "Inner" << "a \"b\" c";
    QTest::newRow("empty quotes") << "Connection Manager" << "Pair" << "";
    QTest::newRow("semicolon inside a value") << "Connection Manager" << "Semi" << "a ; not a comment";
    QTest::newRow("missing key") << "Connection Manager" << "Missing" << "";
    QTest::newRow("missing section") << "Missing" << "ServiceName" << "";
    QTest::newRow("before any section") << "" << "Orphan" << "";
    QTest::newRow("repeated section ignored") << "A" << "k" << "first";
    QTest::newRow("only in the repeat") << "a" << "other" << "";
    QTest::newRow("header without bracket") << "A" << "[B" << "";
    QTest::newRow("lone CR line ends") << "C" << "x" << "1";
    QTest::newRow("non-ASCII names fold") << "ÉTÉ" << "CLÉ" << "v";
    QTest::newRow("NUL ends a value") << "C" << "nul" << "ab";
    QTest::newRow("blanks only") << "C" << "blank" << "";
    QTest::newRow("key not asked for") << "Connection Manager" << "Unasked" << "";
    QTest::newRow("section not asked for") << "Skipped" << "k" << "";
}

void TestCmsProfile::lookupRules()
{
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QString, value);
    IniFile::Selection asked;
    asked.add(u"CONNECTION MANAGER", {"ServiceName", "Quoted", "Inner", "Pair", "Semi", "Missing"});
    asked.add(u"", {"Orphan"});
    asked.add(u"Missing", {"ServiceName"});
    asked.add(u"a", {"K", "[b", "other"});
    asked.add(u"C", {"x", "nul", "blank"});
    asked.add(u"ÉTÉ", {"CLÉ"});
    const IniFile ini = IniFile::fromBytes(QByteArray("; comment\r\nOrphan=before any section\r\n"
                                                      "[Connection Manager]\r\n"
                                                      "  SERVICENAME  =  \"  Corp VPN  \"  \r\n"
                                                      "servicename=second loses\r\nQuoted=\"left only\r\n"
                                                      "Inner=a \"b\" c\r\nPair=\"\"\r\n"
                                                      "Semi=a ; not a comment\r\nUnasked=x\r\n"
                                                      "[A]\nk=first\n[B\nbare\n[Skipped]\nk=v\n[ a ]\nk=second\n"
                                                      "other=x\n[C]\rx=1\r=no key\nnul=ab~cd\n \t \nblank= \t\n[été]\nclé=v\n")
                                               .replace('~', '\0'),
                                           asked);
    QCOMPARE(ini.sectionCount(), 4);
    QCOMPARE(ini.value(section, key, 256), value);
}

void TestCmsProfile::profiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("serviceName"); // "" when the file is refused
    QTest::addColumn<QStringList>("rows");
    const QString text = QStringLiteral("[Connection Manager]\r\nServiceName=Café Ünïcode \u4E2D\r\n"
                                        "[On-Error Actions]\r\n0=%PROFILEDIR%\\fix.cmd\r\n"
                                        "0&Description=répare \u4E2D\r\n");
    const QString name = QStringLiteral("Café Ünïcode \u4E2D");
    const QStringList fix = {QStringLiteral("fix.cmd|On-Error Actions|répare \u4E2D")};
    QTest::newRow("utf-16 le") << utf16(text, false) << name << fix;
    QTest::newRow("utf-16 be") << utf16(text, true) << name << fix;
    QTest::newRow("utf-8 bom") << QByteArray("\xEF\xBB\xBF") + text.toUtf8() << name << fix;
    QTest::newRow("utf-8") << text.toUtf8() << name << fix;
    // Not valid UTF-8, so each byte is one character of the Windows Latin code page.
    QTest::newRow("8-bit") << QByteArray("[Connection Manager]\nServiceName=Caf\xE9 \x80 \x93q\x94\n")
                           << QStringLiteral("Café € \u201Cq\u201D") << QStringList();
    QTest::newRow("description key") << QByteArray("[Connection Manager]\nServiceName=S\n[Pre-Init Actions]\n"
                                                   "0=a b\n0 Description=wrong\n1=c d\n1&DESCRIPTION=right\n")
                                     << "S" << QStringList({"b|Pre-Init Actions|", "d|Pre-Init Actions|right"});
    // Names fold as Unicode does: the long s of "ſervicename" is an s.
    QTest::newRow("folded key") << QByteArray("[Connection Manager]\n\xC5\xBF" "erviceName=x\n") << "x"
                                << QStringList();
    QTest::newRow("no actions") << QByteArray("[Connection Manager]\nServiceName=x\n") << "x" << QStringList();
    QTest::newRow("empty name") << QByteArray("[Connection Manager]\nServiceName=\n[Connect Actions]\n0=a b\n")
                                << "" << QStringList();
    QTest::newRow("quoted empty name") << QByteArray("[Connection Manager]\nServiceName=\"\"\n") << ""
                                       << QStringList();
    QTest::newRow("name elsewhere") << QByteArray("[Other]\nServiceName=x\n") << "" << QStringList();
}

void TestCmsProfile::profiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, serviceName);
    QFETCH(QStringList, rows);
    const auto profile = readCmsProfile(IniFile::fromBytes(bytes, cmsEntries()));
    QCOMPARE(bool(profile), !serviceName.isEmpty());
    if (profile) {
        QCOMPARE(profile->serviceName, serviceName);
        QCOMPARE(*rowsOf(profile), rows);
    }
}

void TestCmsProfile::scriptToken_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("token");
    QTest::newRow("path") << "C:\\Tools\\check.exe /q" << "Tools";
    QTest::newRow("macro") << "%PROFILEDIR%\\check.cmd /q" << "check.cmd";
    QTest::newRow("arguments") << "check.exe /q" << "/q";
    QTest::newRow("alone") << "check.exe" << "";
    QTest::newRow("runs and leading") << "  \\\\ srv\\ \\ share\\x" << "share";
    QTest::newRow("tab is no separator") << "a\tb c" << "c";
    QTest::newRow("separators only") << " \\ " << "";
}

void TestCmsProfile::scriptToken()
{
    QFETCH(QString, line);
    QFETCH(QString, token);
    QCOMPARE(cmsScriptToken(line), token);
}

void TestCmsProfile::sectionOrderNumberingAndLimits()
{
    const QStringList sections = cmsActionSections();
    QCOMPARE(sections.size(), 9);
    QCOMPARE(sections.first(), QStringLiteral("Pre-Init Actions"));
    QCOMPARE(sections.last(), QStringLiteral("On-Error Actions"));
    // Written back to front and in another case; the rows still follow the fixed order.
    QByteArray text = "[Connection Manager]\nServiceName=S\n";
    QStringList expected;
    for (qsizetype i = sections.size() - 1; i >= 0; --i) {
        text += "[" + sections[i].toUpper().toUtf8() + "]\n0=x " + QByteArray::number(i) + "\n";
        expected.prepend(QString::number(i) + u'|' + sections[i] + u'|');
    }
    QCOMPARE(*rowsOf(readCmsProfile(IniFile::fromBytes(text, cmsEntries()))), expected);

    // A gap, a section not starting at 0 or an empty value ends a section; key 99 is the last.
    text = "[Connection Manager]\nServiceName=S\n[Pre-Dial Actions]\n0=a x\n1=b y\n3=c z\n"
           "[Connect Actions]\n";
    for (int n = 120; n >= 0; --n)
        text += QByteArray::number(n) + "=p " + QByteArray::number(n) + "\n";
    text += "[Disconnect Actions]\n1=not from zero\n[On-Cancel Actions]\n0=\n1=after empty\n";
    const QStringList numbered = *rowsOf(readCmsProfile(IniFile::fromBytes(text, cmsEntries())));
    QCOMPARE(numbered.size(), 2 + 100);
    QCOMPARE(numbered.mid(0, 2), QStringList({"x|Pre-Dial Actions|", "y|Pre-Dial Actions|"}));
    QCOMPARE(numbered.last(), QStringLiteral("99|Connect Actions|"));

    // Values are cut to the buffer, the command line before its second token is taken, and a
    // cut never leaves half a surrogate pair behind.
    const auto profile = readCmsProfile(IniFile::fromBytes(
        ("[Connection Manager]\nServiceName=" + QString(300, u'n') + "\n[Connect Actions]\n0=dir\\"
         + QString(3000, u's') + "\n0&Description=\"" + QString(2100, u'q') + "\"\n")
            .toUtf8(),
        cmsEntries()));
    QCOMPARE(profile->serviceName, QString(255, u'n'));
    QCOMPARE(*rowsOf(profile), QStringList({QString(2043, u's') + "|Connect Actions|" + QString(2047, u'q')}));
    const QString emoji = QStringLiteral("a\U0001F600");
    QCOMPARE(fitRecordText(emoji, 3), QStringLiteral("a"));
    QCOMPARE(fitRecordText(emoji, 4), emoji);
    QCOMPARE(fitRecordText(emoji, 0), QString());
}

// Prose, binary data and missing files are met through the page's import; here what only the
// reader decides.
void TestCmsProfile::badFiles()
{
    QTemporaryDir dir;
    const auto write = [&](const QByteArray &bytes) {
        QFile f(dir.filePath("profile.cms"));
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
            qFatal("cannot write the profile");
        return f.fileName();
    };
    QVERIFY(!readCmsProfile(dir.path())); // a folder
    QVERIFY(!readCmsProfile(QString()));
#ifdef Q_OS_UNIX
    // A FIFO with no writer: refused at once rather than waited on.
    const QString fifo = dir.filePath("fifo.cms");
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QVERIFY(!readCmsProfile(fifo));
#endif
    // 10 MB of filler after a valid head still reads.
    const QByteArray head = "[Connection Manager]\r\nServiceName=Big\r\n[Connect Actions]\r\n0=a\\b.cmd\r\n";
    const auto big = readCmsProfile(
        write(head + QByteArray("; padding line that nobody reads ...........\r\n").repeated(220000)));
    QCOMPARE(*rowsOf(big), QStringList({"b.cmd|Connect Actions|"}));
    // A value of 100,000 characters is cut, not refused.
    const auto huge = readCmsProfile(write("[Connection Manager]\nServiceName=" + QByteArray(100000, 'h')
                                           + "\n[Connect Actions]\n0=x " + QByteArray(100000, 'v') + "\n"));
    QVERIFY(huge);
    QCOMPARE(huge->serviceName.size(), 255);
    QCOMPARE(huge->rows[0].scriptFile.size(), 2047 - 2);
}

// Every input that once widened the fuzzer's reach keeps being read in ordinary runs.
void TestCmsProfile::fuzzCorpusReplays()
{
    const QDir corpus(qEnvironmentVariable("QARVO_SOURCE_DIR") + QStringLiteral("/fuzz/naqcrule/corpus"));
    const QStringList files = corpus.entryList(QDir::Files, QDir::Name);
    QVERIFY2(files.size() >= 5, qPrintable(corpus.path()));
    int profiles = 0;
    for (const QString &name : files) {
        const auto profile = readCmsProfile(corpus.filePath(name));
        profiles += profile ? 1 : 0;
        QVERIFY2(!profile || profile->serviceName.size() < cms::ServiceNameBuffer, qPrintable(name));
        for (const CmsScriptRow &row : profile ? profile->rows : QList<CmsScriptRow>()) {
            QVERIFY2(cmsActionSections().contains(row.actionType), qPrintable(name));
            QVERIFY(row.scriptFile.size() < cms::ActionBuffer && row.comment.size() < cms::ActionBuffer);
        }
    }
    QVERIFY(profiles > 0);
}

QTEST_GUILESS_MAIN(TestCmsProfile)
#include "tst_cmsprofile.moc"
