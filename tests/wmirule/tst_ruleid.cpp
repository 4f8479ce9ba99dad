#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "recordingservice.h"

#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

class TestRuleId : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup() { resetRuleIdClock(); }
    void followsTheCLibrarySequence();
    void staysWithinFifteenBitsForAnySeed();
    void everyDrawIsReseededFromTheClock();
    void theSharedClockIsReadWhenNoneIsGiven();
    void searchAsksUntilTheServiceAccepts();
    void searchStopsOnAFailedCheck();
    void searchCanBeAbandonedBetweenTries();
};

void TestRuleId::followsTheCLibrarySequence()
{
    // The well-known first numbers of the C library generator after a seed of 1.
    RuleIdGenerator gen;
    gen.seed(1);
    QList<int> drawn;
    for (int i = 0; i < 10; ++i)
        drawn << gen.next();
    QCOMPARE(drawn, QList<int>({41, 18467, 6334, 26500, 19169, 15724, 11478, 29358, 26962, 24464}));
    gen.seed(0);
    QCOMPARE(gen.next(), 38); // the increment alone, shifted
}

void TestRuleId::staysWithinFifteenBitsForAnySeed()
{
    RuleIdGenerator gen;
    int highest = 0;
    for (quint32 s : {0u, 1u, 0x7fffffffu, 0x80000000u, 0xffffffffu, 1763700000u}) {
        gen.seed(s);
        for (int i = 0; i < 2000; ++i) {
            const int v = gen.next();
            QVERIFY(v >= 0 && v <= RuleIdGenerator::MaxId);
            highest = std::max(highest, v);
        }
    }
    QVERIFY(highest > 32000); // bit 15 of the result is really used
    QCOMPARE(ruleIdText(RuleIdGenerator::MaxId), QStringLiteral("000032767"));
}

void TestRuleId::everyDrawIsReseededFromTheClock()
{
    qint64 now = 1763700000;
    RuleIdGenerator gen([&now] { return now; });
    const int first = gen.draw();
    QCOMPARE(gen.draw(), first); // same second, same candidate
    RuleIdGenerator reference;
    reference.seed(quint32(now));
    QCOMPARE(first, reference.next());

    ++now;
    const int second = gen.draw();
    QVERIFY(second != first);

    // Times beyond 32 bits are truncated as an unsigned seed takes them.
    now = (qint64(1) << 32) + 5;
    reference.seed(5);
    QCOMPARE(gen.draw(), reference.next());
}

void TestRuleId::theSharedClockIsReadWhenNoneIsGiven()
{
    int reads = 0;
    ruleIdClock() = [&reads] { ++reads; return qint64(1); };
    RuleIdGenerator gen;
    QCOMPARE(gen.draw(), 41);
    QCOMPARE(gen.draw(), 41);
    QCOMPARE(reads, 2);
}

void TestRuleId::searchAsksUntilTheServiceAccepts()
{
    RecordingService s;
    s.scriptOnce("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(-1))));
    s.scriptOnce("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(-1))));
    s.scriptOnce("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(-1))));
    s.script("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(0))));

    // The clock moves on only after the second refusal: the first two candidates are equal.
    QList<qint64> clock{1, 1, 2, 3};
    RuleIdGenerator gen([&clock] { return clock.size() > 1 ? clock.takeFirst() : clock.first(); });
    int pauses = 0;
    const DrawnRuleId drawn = drawUnusedRuleId(&s, category::WMI, gen, [&pauses] {
        ++pauses;
        return true;
    });
    QVERIFY(drawn.accepted());
    QCOMPARE(drawn.tries, 4);
    QCOMPARE(pauses, 3);

    RuleIdGenerator ref;
    auto idFor = [&ref](quint32 t) { ref.seed(t); return ruleIdText(ref.next()); };
    QCOMPARE(s.signatures(),
             QStringList({"CanUseID(text:" + idFor(1) + ", short:6)",
                          "CanUseID(text:" + idFor(1) + ", short:6)",
                          "CanUseID(text:" + idFor(2) + ", short:6)",
                          "CanUseID(text:" + idFor(3) + ", short:6)"}));
    QCOMPARE(drawn.id, idFor(3));
    QCOMPARE(drawn.id.size(), 9);

    // Anything but the 16-bit true counts as free, also for the NAQC category.
    s.clear();
    s.script("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(1))));
    const DrawnRuleId naqc = drawUnusedRuleId(&s, category::NAQC, gen);
    QVERIFY(naqc.accepted());
    QCOMPARE(s.signatures(), QStringList({"CanUseID(text:" + idFor(3) + ", short:5)"}));
}

void TestRuleId::searchStopsOnAFailedCheck()
{
    RecordingService s;
    s.scriptOnce("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(-1))));
    s.failCall(1, status::UnknownName);
    RuleIdGenerator gen([] { return qint64(7); });
    const DrawnRuleId drawn = drawUnusedRuleId(&s, category::WMI, gen);
    QVERIFY(!drawn.accepted());
    QCOMPARE(drawn.status, status::UnknownName);
    QVERIFY(drawn.id.isEmpty());
    QCOMPARE(s.calls().size(), 2);

    // No service at all fails like an unknown name, without looping.
    const DrawnRuleId none = drawUnusedRuleId(nullptr, category::WMI, gen);
    QVERIFY(!none.accepted());
    QCOMPARE(none.tries, 1);
}

void TestRuleId::searchCanBeAbandonedBetweenTries()
{
    RecordingService s;
    s.script("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(-1))));
    RuleIdGenerator gen([] { return qint64(7); });
    int pauses = 0;
    const DrawnRuleId drawn = drawUnusedRuleId(&s, category::WMI, gen, [&pauses] {
        return ++pauses < 50;
    });
    QVERIFY(drawn.abandoned);
    QVERIFY(!drawn.accepted());
    QCOMPARE(drawn.tries, 50);
    QVERIFY(drawn.id.isEmpty());
}

QTEST_GUILESS_MAIN(TestRuleId)
#include "tst_ruleid.moc"
