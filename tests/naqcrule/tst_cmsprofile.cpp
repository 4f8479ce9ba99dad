#include "naqcrule/cmsprofile.h"
#include "naqcrule/inireader.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace qarvo;

namespace {

QByteArray utf16le(const QString &text)
{
    QByteArray out("\xFF\xFE", 2);
    for (QChar c : text) {
        out.append(char(c.unicode() & 0xFF));
        out.append(char(c.unicode() >> 8));
    }
    return out;
}

QByteArray utf16be(const QString &text)
{
    QByteArray out("\xFE\xFF", 2);
    for (QChar c : text) {
        out.append(char(c.unicode() >> 8));
        out.append(char(c.unicode() & 0xFF));
    }
    return out;
}

QStringList scriptFiles(const CmsProfile &p)
{
    QStringList out;
    for (const auto &r : p.rows)
        out << r.scriptFile;
    return out;
}

} // namespace

class TestCmsProfile : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void lookupRules();
    void repeatedSectionsAndOddLines();
    void limitsCutValues();
    void encodings_data();
    void encodings();
    void eightBitTextIsWindowsLatin();
    void scriptToken_data();
    void scriptToken();
    void sectionsComeInFixedOrder();
    void numberingMustBeContiguousAndStopsAt99();
    void serviceNameMissingOrEmpty();
    void badFiles();
    void descriptionKeyIsIndexAmpDescription();
};

void TestCmsProfile::lookupRules()
{
    const IniFile ini = IniFile::fromBytes("; comment\r\n"
                                           "Orphan=before any section\r\n"
                                           "[Connection Manager]\r\n"
                                           "  SERVICENAME  =  \"  Corp VPN  \"  \r\n"
                                           "servicename=second loses\r\n"
                                           "Quoted=\"left only\r\n"
                                           "Empty=\r\n"
                                           "Inner=a \"b\" c\r\n"
                                           "Pair=\"\"\r\n"
                                           "Semi=a ; not a comment\r\n");
    QCOMPARE(ini.value(u"connection manager", u"ServiceName", 256), QStringLiteral("  Corp VPN  "));
    QCOMPARE(ini.value(u"CONNECTION MANAGER", u"servicename", 256), QStringLiteral("  Corp VPN  "));
    QCOMPARE(ini.value(u"Connection Manager", u"Quoted", 256), QStringLiteral("\"left only"));
    QCOMPARE(ini.value(u"Connection Manager", u"Inner", 256), QStringLiteral("a \"b\" c"));
    QCOMPARE(ini.value(u"Connection Manager", u"Pair", 256), QString());
    QCOMPARE(ini.value(u"Connection Manager", u"Semi", 256), QStringLiteral("a ; not a comment"));
    QCOMPARE(ini.value(u"Connection Manager", u"Empty", 256), QString());
    QCOMPARE(ini.value(u"Connection Manager", u"Missing", 256), QString());
    QCOMPARE(ini.value(u"Missing", u"ServiceName", 256), QString());
    QCOMPARE(ini.value(u"", u"Orphan", 256), QString());
    QCOMPARE(ini.sectionCount(), 1);
}

void TestCmsProfile::repeatedSectionsAndOddLines()
{
    const IniFile ini = IniFile::fromBytes("[A]\n"
                                           "k=first\n"
                                           "[B\n"            // no bracket: an entry of [A]
                                           "bare\n"          // a key without '='
                                           "[ a ]\n"
                                           "k=second section\n"
                                           "other=only in the repeat\n"
                                           "[C]\r"           // lone CR line ends
                                           "x=1\r"
                                           "=no key\n");
    QCOMPARE(ini.value(u"a", u"k", 100), QStringLiteral("first"));
    QCOMPARE(ini.value(u"A", u"other", 100), QString());
    QCOMPARE(ini.value(u"A", u"[B", 100), QString());
    QCOMPARE(ini.value(u"C", u"x", 100), QStringLiteral("1"));
    QCOMPARE(ini.sectionCount(), 2);
}

void TestCmsProfile::limitsCutValues()
{
    const QString longName(300, u'n');
    const QString longLine = QStringLiteral("dir\\") + QString(3000, u's');
    const QString quotedLong = u'"' + QString(2100, u'q') + u'"';
    const QByteArray text = ("[Connection Manager]\nServiceName=" + longName
                             + "\n[Connect Actions]\n0=" + longLine + "\n0&Description="
                             + quotedLong + "\n")
                                .toUtf8();
    const auto profile = readCmsProfile(IniFile::fromBytes(text));
    QVERIFY(profile);
    QCOMPARE(profile->serviceName, QString(255, u'n'));
    QCOMPARE(profile->rows.size(), 1);
    // The command line is cut to 2047 characters before its second token is taken.
    QCOMPARE(profile->rows[0].scriptFile, QString(2047 - 4, u's'));
    QCOMPARE(profile->rows[0].comment, QString(2047, u'q'));

    // A cut never leaves half a surrogate pair behind.
    const QString emoji = QStringLiteral("a\U0001F600");
    QCOMPARE(fitBuffer(emoji, 3), QStringLiteral("a"));
    QCOMPARE(fitBuffer(emoji, 4), emoji);
    QCOMPARE(fitBuffer(emoji, 0), QString());
}

void TestCmsProfile::encodings_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QString text = QStringLiteral("[Connection Manager]\r\nServiceName=Café Ünïcode \u4E2D\r\n"
                                        "[On-Error Actions]\r\n0=%PROFILEDIR%\\fix.cmd\r\n"
                                        "0&Description=répare \u4E2D\r\n");
    QTest::newRow("utf-16 le") << utf16le(text);
    QTest::newRow("utf-16 be") << utf16be(text);
    QTest::newRow("utf-8 bom") << QByteArray("\xEF\xBB\xBF") + text.toUtf8();
    QTest::newRow("utf-8") << text.toUtf8();
}

void TestCmsProfile::encodings()
{
    QFETCH(QByteArray, bytes);
    const auto profile = readCmsProfile(IniFile::fromBytes(bytes));
    QVERIFY(profile);
    QCOMPARE(profile->serviceName, QStringLiteral("Café Ünïcode \u4E2D"));
    QCOMPARE(profile->rows.size(), 1);
    QCOMPARE(profile->rows[0],
             (CmsScriptRow{QStringLiteral("fix.cmd"), QStringLiteral("On-Error Actions"),
                           QStringLiteral("répare \u4E2D")}));
}

void TestCmsProfile::eightBitTextIsWindowsLatin()
{
    // Not valid UTF-8, so each byte is one character of the Windows Latin code page.
    const auto profile = readCmsProfile(
        IniFile::fromBytes("[Connection Manager]\nServiceName=Caf\xE9 \x80 \x93q\x94\n"));
    QVERIFY(profile);
    QCOMPARE(profile->serviceName, QStringLiteral("Café € \u201Cq\u201D"));
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

void TestCmsProfile::sectionsComeInFixedOrder()
{
    QByteArray text = "[Connection Manager]\nServiceName=S\n";
    const QStringList sections = cmsActionSections();
    QCOMPARE(sections.size(), 9);
    QCOMPARE(sections.first(), QStringLiteral("Pre-Init Actions"));
    QCOMPARE(sections.last(), QStringLiteral("On-Error Actions"));
    // Written back to front and in another case; the rows still follow the fixed order.
    for (qsizetype i = sections.size() - 1; i >= 0; --i)
        text += "[" + sections[i].toUpper().toUtf8() + "]\n0=x " + QByteArray::number(i) + "\n";
    const auto profile = readCmsProfile(IniFile::fromBytes(text));
    QVERIFY(profile);
    QCOMPARE(profile->rows.size(), 9);
    for (int i = 0; i < 9; ++i) {
        QCOMPARE(profile->rows[i].actionType, sections[i]);
        QCOMPARE(profile->rows[i].scriptFile, QString::number(i));
    }
}

void TestCmsProfile::numberingMustBeContiguousAndStopsAt99()
{
    QByteArray text = "[Connection Manager]\nServiceName=S\n[Pre-Dial Actions]\n0=a x\n1=b y\n"
                      "3=c z\n[Connect Actions]\n";
    for (int n = 120; n >= 0; --n)
        text += QByteArray::number(n) + "=p " + QByteArray::number(n) + "\n";
    text += "[Disconnect Actions]\n1=not from zero\n[On-Cancel Actions]\n0=\n1=after empty\n";
    const auto profile = readCmsProfile(IniFile::fromBytes(text));
    QVERIFY(profile);
    QCOMPARE(profile->rows.size(), 2 + 100);
    QCOMPARE(scriptFiles(*profile).mid(0, 2), QStringList({"x", "y"}));
    QCOMPARE(profile->rows[101].scriptFile, QStringLiteral("99"));
    QCOMPARE(profile->rows[101].actionType, QStringLiteral("Connect Actions"));
}

void TestCmsProfile::serviceNameMissingOrEmpty()
{
    QVERIFY(!readCmsProfile(IniFile::fromBytes("[Connection Manager]\nServiceName=\n"
                                               "[Connect Actions]\n0=a b\n")));
    QVERIFY(!readCmsProfile(IniFile::fromBytes("[Connection Manager]\nServiceName=\"\"\n")));
    QVERIFY(!readCmsProfile(IniFile::fromBytes("[Other]\nServiceName=x\n")));
    // A profile without a single action is still a profile.
    const auto bare = readCmsProfile(IniFile::fromBytes("[Connection Manager]\nServiceName=x\n"));
    QVERIFY(bare);
    QVERIFY(bare->rows.isEmpty());
}

void TestCmsProfile::badFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const auto write = [&](const QString &name, const QByteArray &bytes) {
        QFile f(dir.filePath(name));
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(name));
        return f.fileName();
    };

    QVERIFY(!readCmsProfile(write("prose.txt", "Dear admin,\nthis is not an INI file at all.\n")));
    QByteArray binary;
    for (int i = 0; i < 64 * 1024; ++i)
        binary.append(char((i * 7919) & 0xFF));
    QVERIFY(!readCmsProfile(write("blob.bin", binary)));
    QVERIFY(!readCmsProfile(dir.filePath("does-not-exist.cms")));
    QVERIFY(!readCmsProfile(dir.path())); // a folder
    QVERIFY(!readCmsProfile(QString()));

    // 10 MB of one section's filler after a valid head still reads, and quickly enough to test.
    QByteArray big = "[Connection Manager]\r\nServiceName=Big\r\n[Connect Actions]\r\n0=a\\b.cmd\r\n";
    const QByteArray filler = "; padding line that nobody reads ................................\r\n";
    while (big.size() < 10 * 1024 * 1024)
        big += filler;
    const auto bigProfile = readCmsProfile(write("big.cms", big));
    QVERIFY(bigProfile);
    QCOMPARE(scriptFiles(*bigProfile), QStringList({"b.cmd"}));

    // A value of 100,000 characters is cut, not refused.
    const QByteArray huge = "[Connection Manager]\nServiceName=" + QByteArray(100000, 'h')
                            + "\n[Connect Actions]\n0=x " + QByteArray(100000, 'v') + "\n";
    const auto hugeProfile = readCmsProfile(write("huge.cms", huge));
    QVERIFY(hugeProfile);
    QCOMPARE(hugeProfile->serviceName.size(), 255);
    QCOMPARE(hugeProfile->rows[0].scriptFile.size(), 2047 - 2);

    // NUL bytes end a value the way a zero-terminated buffer would.
    const auto nul = readCmsProfile(IniFile::fromBytes(QByteArray("[Connection Manager]\nServiceName=ab\0cd\n", 38)));
    QVERIFY(nul);
    QCOMPARE(nul->serviceName, QStringLiteral("ab"));
}

void TestCmsProfile::descriptionKeyIsIndexAmpDescription()
{
    const auto profile = readCmsProfile(
        IniFile::fromBytes("[Connection Manager]\nServiceName=S\n[Pre-Init Actions]\n"
                           "0=a b\n0 Description=wrong key\n1=c d\n1&DESCRIPTION=right key\n"));
    QVERIFY(profile);
    QCOMPARE(profile->rows.size(), 2);
    QCOMPARE(profile->rows[0].comment, QString());
    QCOMPARE(profile->rows[1].comment, QStringLiteral("right key"));
}

QTEST_GUILESS_MAIN(TestCmsProfile)
#include "tst_cmsprofile.moc"
