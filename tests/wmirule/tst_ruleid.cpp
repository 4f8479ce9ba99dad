#include "dataservice/calls.h"
#include "dataservice/ruleid.h"
#include "recordingservice.h"

#include <QtTest>

using namespace qarvo;
using namespace qarvo::test;

namespace {

ScriptedReply taken(bool yes)
{
    return ScriptedReply::answer(QVariant::fromValue(qint16(yes ? -1 : 0)));
}

QString idFor(quint32 seed)
{
    RuleIdGenerator ref;
    ref.seed(seed);
    return ruleIdText(ref.next());
}

} // namespace

class TestRuleId : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanup() { resetRuleIdClock(); }

    void followsTheCLibrarySequenceInFifteenBits()
    {
        // The well-known first numbers of the C library generator after a seed of 1.
        RuleIdGenerator gen;
        gen.seed(1);
        QList<int> drawn;
        for (int i = 0; i < 10; ++i)
            drawn << gen.next();
        QCOMPARE(drawn, QList<int>({41, 18467, 6334, 26500, 19169, 15724, 11478, 29358, 26962, 24464}));

        int highest = 0;
        for (quint32 s : {0u, 0x7fffffffu, 0x80000000u, 0xffffffffu, 1763700000u}) {
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

    void everyDrawIsReseededFromTheClock()
    {
        qint64 now = 1763700000;
        RuleIdGenerator gen([&now] { return now; });
        const int first = gen.draw();
        QCOMPARE(gen.draw(), first); // same second, same candidate
        QCOMPARE(ruleIdText(first), idFor(quint32(now)));
        ++now;
        QVERIFY(gen.draw() != first);
        now = (qint64(1) << 32) + 5; // truncated as an unsigned seed takes it
        QCOMPARE(ruleIdText(gen.draw()), idFor(5));

        // Without a clock of its own, the shared one is read on every draw.
        int reads = 0;
        ruleIdClock() = [&reads] { ++reads; return qint64(1); };
        RuleIdGenerator shared;
        QCOMPARE(shared.draw(), 41);
        QCOMPARE(shared.draw(), 41);
        QCOMPARE(reads, 2);
    }

    void searchAsksUntilTheServiceAccepts()
    {
        RecordingService s;
        for (int i = 0; i < 3; ++i)
            s.scriptOnce("CanUseID", taken(true));
        s.script("CanUseID", taken(false));
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
        QStringList expected;
        for (quint32 t : {1, 1, 2, 3})
            expected << "CanUseID(text:" + idFor(t) + ", short:6)";
        QCOMPARE(s.signatures(), expected);
        QCOMPARE(drawn.id, idFor(3));

        // Anything but the 16-bit true counts as free, also for the NAQC category.
        s.clear();
        s.script("CanUseID", ScriptedReply::answer(QVariant::fromValue(qint16(1))));
        QVERIFY(drawUnusedRuleId(&s, category::NAQC, gen).accepted());
        QCOMPARE(s.signatures(), QStringList({"CanUseID(text:" + idFor(3) + ", short:5)"}));
    }

    void searchStopsOnAFailureOrWhenAbandoned()
    {
        RecordingService s;
        s.scriptOnce("CanUseID", taken(true));
        s.failCall(1, status::UnknownName);
        RuleIdGenerator gen([] { return qint64(7); });
        const DrawnRuleId failed = drawUnusedRuleId(&s, category::WMI, gen);
        QVERIFY(!failed.accepted());
        QCOMPARE(failed.status, status::UnknownName);
        QVERIFY(failed.id.isEmpty());
        QCOMPARE(s.calls().size(), 2);

        // No service at all fails like an unknown name, without looping.
        const DrawnRuleId none = drawUnusedRuleId(nullptr, category::WMI, gen);
        QVERIFY(!none.accepted());
        QCOMPARE(none.tries, 1);

        s.script("CanUseID", taken(true));
        int pauses = 0;
        const DrawnRuleId given = drawUnusedRuleId(&s, category::WMI, gen, [&pauses] {
            return ++pauses < 50;
        });
        QVERIFY(given.abandoned && !given.accepted());
        QCOMPARE(given.tries, 50);
        QVERIFY(given.id.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestRuleId)
#include "tst_ruleid.moc"
