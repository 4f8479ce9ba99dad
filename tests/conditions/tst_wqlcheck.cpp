#include "conditions/wqlreader.h"

#include <QtTest>

using namespace qarvo;
using namespace qarvo::wql;

namespace {

QString firstProblem(const QString &query)
{
    const ReadResult r = readQuery(query);
    return r.ok() ? QString() : QStringLiteral("%1: %2").arg(r.error.pos).arg(r.error.message);
}

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
};

QTEST_GUILESS_MAIN(TestWqlCheck)
#include "tst_wqlcheck.moc"
