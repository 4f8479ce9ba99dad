#include "conditions/catalogue.h"
#include "conditions/conditioncheck.h"
#include "conditions/wqlreader.h"
#include "dlghelpers.h"
#include "fuzzwql.h"
#include "wmirule/conditionrow.h"

#include <QRandomGenerator>
#include <QtTest>

using namespace qarvo;
using namespace qarvo::wql;

namespace {

QString firstProblem(const QString &query)
{
    const ReadResult r = readQuery(query);
    return r.ok() ? QString() : QStringLiteral("%1: %2").arg(r.error.pos).arg(r.error.message);
}

// Random queries from the grammar, written the way people write them: any letter case, any
// spacing, every kind of literal, nesting.
class QueryGenerator
{
public:
    explicit QueryGenerator(quint32 seed) : m_rng(seed) {}

    WqlQueryParts parts()
    {
        WqlQueryParts p;
        if (pick(4) == 0) {
            p.select = space(true) + QStringLiteral("*");
        } else {
            p.select = space(true) + name();
            for (int n = pick(3); n > 0; --n)
                p.select += space(true) + u',' + space(true) + name();
        }
        p.select += space(true);
        p.from = space(true) + name() + space(true);
        if (pick(3) > 0)
            p.where = space(true) + condition(0) + space(true);
        return p;
    }

private:
    int pick(int n) { return int(m_rng.bounded(n)); }
    template<typename T>
    T one(std::initializer_list<T> items) { return items.begin()[pick(int(items.size()))]; }

    QString space(bool optional)
    {
        if (optional && pick(2) == 0)
            return {};
        return QString::fromUtf16(one({u" ", u"  ", u"\t", u"\n", u" \r\n ", u"\f"}));
    }

    QString keyword(const char *word)
    {
        QString w = QLatin1String(word);
        for (QChar &c : w)
            c = pick(2) ? c.toLower() : c;
        return w;
    }

    QString name()
    {
        return QString::fromUtf16(one({u"Name", u"State", u"ProcessId", u"__CLASS", u"x1", u"Gr\u00F6\u00DFe",
                                       u"_a_b", u"Selected", u"Fromage", u"ISAtype"}));
    }

    QString literal()
    {
        switch (pick(6)) {
        case 0: {
            const QString quote = pick(2) ? QStringLiteral("'") : QStringLiteral("\"");
            return quote + one({QStringLiteral(" FROM "), QStringLiteral(" WHERE "), QStringLiteral("C:\\\\Win"),
                                QStringLiteral("it\\'s \\\"x\\\""), QString()})
                   + quote;
        }
        case 1: return one({QStringLiteral("0"), QStringLiteral("-42"), QStringLiteral("+7")});
        case 2: return one({QStringLiteral("0x1F"), QStringLiteral("0XaB")});
        case 3: return one({QStringLiteral("1.5"), QStringLiteral("-.5e-3"), QStringLiteral("2E10")});
        case 4: return keyword(pick(2) ? "TRUE" : "FALSE");
        default: return keyword("NULL");
        }
    }

    QString comparison()
    {
        const QString op = one({QStringLiteral("="), QStringLiteral("<>"), QStringLiteral("!="),
                                QStringLiteral("<"), QStringLiteral(">"), QStringLiteral("<="), QStringLiteral(">=")});
        switch (pick(5)) {
        case 0: return name() + space(true) + op + space(true) + literal();
        case 1: return literal() + space(true) + op + space(true) + name();
        case 2:
            return name() + space(false) + (pick(2) ? keyword("NOT") + space(false) : QString()) + keyword("LIKE")
                   + space(false) + one({QStringLiteral("'%sql[^a-c]_%'"), QStringLiteral("\"[]]x\"")});
        case 3:
            return name() + space(false) + keyword("IS") + space(false)
                   + (pick(2) ? keyword("NOT") + space(false) : QString()) + keyword("NULL");
        default: return name() + space(false) + keyword("ISA") + space(false) + QStringLiteral("'Win32_Service'");
        }
    }

    QString condition(int depth)
    {
        QString c;
        const int terms = 1 + pick(3);
        for (int t = 0; t < terms; ++t) {
            if (t > 0)
                c += space(false) + keyword(pick(2) ? "AND" : "OR") + space(false);
            if (pick(5) == 0)
                c += keyword("NOT") + space(false);
            c += depth < 4 && pick(4) == 0 ? u'(' + space(true) + condition(depth + 1) + space(true) + u')'
                                           : comparison();
        }
        return c;
    }

    QRandomGenerator m_rng;
};

} // namespace

class TestWqlCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsQueriesOrSaysWhereTheyGoWrong_data()
    {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("problem"); // "position: message", empty when the query reads
        const QString x = QStringLiteral("SELECT * FROM X WHERE ");
        for (const char *good :
             {"select Name, State from Win32_Service where State <> 'Running' and StartMode = \"Auto\"",
              "SELECT * FROM Win32_LogicalDisk WHERE DriveType = 3 AND FreeSpace < 0x40000000",
              "SELECT * FROM Win32_Process WHERE (Name LIKE '%sql[^a]_%' OR NOT ProcessId >= 4) AND "
              "ExecutablePath IS NOT NULL",
              "SELECT * FROM Win32_Directory WHERE Name = 'C:\\\\Windows' AND Hidden = FALSE",
              "SELECT * FROM Win32_OperatingSystem WHERE 2 <= ServicePackMajorVersion AND Debug != true",
              "SELECT * FROM CIM_LogicalFile WHERE __CLASS ISA 'CIM_DataFile' AND FileSize > 1.5e6",
              "SELECT * FROM X WHERE TargetInstance.Name = NULL AND Name NOT LIKE '[]]%'"})
            QTest::newRow(good) << QString::fromLatin1(good) << QString();

        QTest::newRow("keyword misspelt") << "SELEC * FROM X" << "0: expected SELECT, found \"SELEC\"";
        QTest::newRow("empty list") << "SELECT FROM X" << "7: expected \"*\" or a property name, found FROM";
        QTest::newRow("missing comma") << "SELECT Name State FROM X" << "12: expected \",\" or FROM, found \"State\"";
        QTest::newRow("after class") << "SELECT * FROM X Y" << "16: expected WHERE or the end of the query, found \"Y\"";
        QTest::newRow("empty WHERE") << "SELECT * FROM X WHERE"
                                     << "21: expected a property, a value, NOT or \"(\", found the end of the query";
        QTest::newRow("unquoted string")
            << x + "State = Running"
            << "30: expected a value, found \"Running\": a property is compared with a value, not with another property";
        QTest::newRow("lone backslash") << x + "Name = 'C:\\Windows'"
                                        << "32: unknown escape \"\\W\" in a string; a backslash is written \\\\";
        QTest::newRow("open string") << x + "Name = \"abc" << "29: expected \" to close the string that starts here";
        QTest::newRow("open parenthesis") << x + "(A = 1 OR B = 2"
                                          << "37: expected AND, OR or \")\", found the end of the query";
        QTest::newRow("IS without NULL") << x + "A IS 1" << "27: expected NULL or NOT NULL, found \"1\"";
        QTest::newRow("open LIKE set") << x + "A LIKE '[a-z'" << "29: expected \"]\" to close the \"[\" set of the LIKE pattern";
        QTest::newRow("bad number") << x + "A = 12abc" << "26: \"12abc\" is not a number";
        QTest::newRow("two tests") << x + "A = 1 B = 2" << "28: expected AND, OR or the end of the query, found \"B\"";
        QTest::newRow("stray character") << x + "A # 1" << "24: unexpected character \"#\"";
        QTest::newRow("no-break space") << x + "A =\u00A01" << "25: unexpected character U+00A0";
        QTest::newRow("nested too deeply") << x + QString(5000, u'(') << "86: the condition is nested too deeply";
    }

    void readsQueriesOrSaysWhereTheyGoWrong()
    {
        QFETCH(QString, query);
        QTEST(firstProblem(query), "problem");
    }

    void readsWhatTheQueryHolds()
    {
        const ReadResult r = readQuery(u"SELECT a, b FROM Cls WHERE 'x\\'y' = c AND d IS NOT NULL");
        QVERIFY(r.ok());
        QCOMPARE(r.query->select.size(), 2);
        QCOMPARE(r.query->select[1].pos, qsizetype(10));
        QCOMPARE(r.query->className.text, QStringLiteral("Cls"));
        QCOMPARE(r.query->where.size(), 2);
        QCOMPARE(r.query->where[0].property.text, QStringLiteral("c"));
        QCOMPARE(r.query->where[0].value->value, QStringLiteral("x'y"));
        QCOMPARE(r.query->where[1].op, QStringLiteral("IS NOT NULL"));
        QVERIFY(!r.query->where[1].value);

        QVERIFY(isDateTimeText(u"20240131093000.000000+060"));
        QVERIFY(isDateTimeText(u"2024****000000.000000+***"));
        QVERIFY(isDateTimeText(u"2024-01-31 09:30"));
        QVERIFY(isDateTimeText(u"1/31/2024"));
        QVERIFY(!isDateTimeText(u"20241331000000.000000+000"));
        QVERIFY(!isDateTimeText(u"yesterday"));
    }

    void checksAgainstTheCatalogue_data()
    {
        QTest::addColumn<QString>("nameSpace");
        QTest::addColumn<QStringList>("parts"); // select, from, where, and in Value mode field and type
        QTest::addColumn<QStringList>("advice");
        const QString cimv2 = QStringLiteral("Root\\CIMV2");
        QTest::newRow("sound, any case") << cimv2 << QStringList{"name, __PATH", "win32_service", "  state = 'Running'"}
                                         << QStringList();
        QTest::newRow("unknown class")
            << cimv2 << QStringList{"*", "Win32_Servise"}
            << QStringList{"FROM, character 1: Win32_Servise is not a class the catalogue knows; did you mean "
                           "Win32_Service?"};
        QTest::newRow("unknown properties")
            << cimv2 << QStringList{"Name, Stat", "Win32_Service", "DisplayNme = 'x'"}
            << QStringList{"SELECT, character 7: Win32_Service has no property Stat; did you mean State?",
                           "WHERE, character 1: Win32_Service has no property DisplayNme; did you mean DisplayName?"};
        QTest::newRow("literal types")
            << cimv2
            << QStringList{"*", "Win32_Service",
                           "Started = 'yes' AND ProcessId = '4' AND Name = 5 AND ExitCode = 4294967296 "
                           "AND TagId LIKE '1%' AND CheckPoint = 1.5 AND State LIKE 'Run%'"}
            << QStringList{"WHERE, character 11: Started is boolean: compare it with TRUE or FALSE",
                           "WHERE, character 33: ProcessId is uint32: compare it with a number, without quotes",
                           "WHERE, character 48: Name is a string: put the value in quotes",
                           "WHERE, character 65: 4294967296 is out of range for ExitCode (uint32: 0 to 4294967295)",
                           "WHERE, character 91: LIKE compares text, and TagId is uint32",
                           "WHERE, character 113: CheckPoint is uint32: compare it with a whole number"};
        QTest::newRow("dates, arrays, namespace")
            << QStringLiteral("root\\SecurityCenter2")
            << QStringList{"*", "Win32_OperatingSystem",
                           "InstallDate > '2024-01-31' AND LastBootUpTime < 5 AND MUILanguages = 'en-US'"}
            << QStringList{"NameSpace: Win32_OperatingSystem is in the namespace root\\cimv2",
                           "WHERE, character 49: LastBootUpTime is a datetime: compare it with a quoted date such "
                           "as '20240131000000.000000+000'",
                           "WHERE, character 70: MUILanguages is an array, which WQL cannot test in WHERE"};
        QTest::newRow("value field")
            << cimv2 << QStringList{"Name", "Win32_Service", "", "State", "uint32"}
            << QStringList{"Field: State is not in the SELECT list",
                           "Field Type: State is string in the catalogue, not uint32"};
        QTest::newRow("value field, array")
            << cimv2 << QStringList{"*", "Win32_OperatingSystem", "", "MUILanguages[]", "string array"}
            << QStringList();
        QTest::newRow("syntax first, in the part")
            << cimv2 << QStringList{"*", "Win32_Servise", "\t State = "}
            << QStringList{"WHERE, character 11: expected a value, found the end of the query"};
    }

    void checksAgainstTheCatalogue()
    {
        QFETCH(QString, nameSpace);
        QFETCH(QStringList, parts);
        WQLCondition c;
        c.nameSpace = nameSpace;
        c.select = parts.value(0);
        c.from = parts.value(1);
        c.where = parts.value(2);
        c.mode = parts.size() > 3 ? 2 : 1;
        c.field = parts.value(3);
        c.fieldType = parts.value(4);
        Schema schema(catalogue::shippedCatalogueDirectory());
        QStringList advice;
        for (const Advice &a : checkWQLCondition(c, schema))
            advice << adviceText(a);
        QTEST(advice, "advice");
    }

    // Without a catalogue only the grammar can be judged; a half-typed query says nothing yet.
    void judgesOnlyWhatItCan()
    {
        Schema none(std::nullopt);
        WQLCondition c;
        c.nameSpace = QStringLiteral("root\\cimv2");
        c.select = QStringLiteral("*");
        c.from = QStringLiteral("Nowhere_Class");
        QVERIFY(checkWQLCondition(c, none).isEmpty());
        c.from = QStringLiteral(" ");
        Schema shipped(catalogue::shippedCatalogueDirectory());
        QVERIFY(checkWQLCondition(c, shipped).isEmpty());
        QCOMPARE(adviceText(checkStoredWQL(c.nameSpace, QStringLiteral("SELECT * FROM Win32_Share WHERE Type = '0'"),
                                           QStringLiteral("#Count"), QStringLiteral("uint8"), shipped)
                                .value(0)),
                 QStringLiteral("Query, character 40: Type is uint32: compare it with a number, without quotes"));
        WMICondition wmi;
        wmi.className = QStringLiteral("Win32_Service");
        wmi.field = QStringLiteral("Sate");
        QCOMPARE(checkWMICondition(wmi, shipped).value(0).message,
                 QStringLiteral("Win32_Service has no property Sate; did you mean State?"));
        QCOMPARE(closestNames(QStringLiteral("Statu"), {"State", "Status", "Started", "Stat"}),
                 QStringList({"State", "Status", "Stat"}));
    }

    // Whatever the editor's parts hold, the wizard's query comes apart into the same parts.
    void builtQueriesComeApartAgain()
    {
        QueryGenerator generate(20240131);
        for (int i = 0; i < 3000; ++i) {
            const WqlQueryParts parts = generate.parts();
            const QString query = buildWqlQuery(parts.select, parts.from, parts.where);
            QVERIFY2(readQuery(query).ok(), qPrintable(query + u'\n' + firstProblem(query)));
            WqlQueryParts expected = parts;
            while (expected.where.startsWith(u' ') || expected.where.startsWith(u'\t'))
                expected.where.remove(0, 1);
            QCOMPARE(splitWqlQuery(query), expected);
        }
    }

    void corpusReplays() { test::replayCorpus(QStringLiteral("conditions/wql-corpus"), &fuzz::runWqlInput); }
};

QTEST_GUILESS_MAIN(TestWqlCheck)
#include "tst_wqlcheck.moc"
